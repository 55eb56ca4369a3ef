#!/usr/bin/python3
"""A sample of the points at which a batch can be hit, and how long the databases are locked; script/fault-run tries all
points."""
import random

import fault_points
import harness

SAMPLE = 5  # points of each kind and batch


class Faults(harness.DaemonTest):
    def test_a_batch_that_is_hit_ends_like_one_that_is_not(self):
        chance = random.Random(8)
        for name in fault_points.BATCHES:
            batch = fault_points.Points(self.binary, name)
            with self.subTest(name):
                self.assertEqual(batch.lacks, [])
            for points, hit in fault_points.KINDS.values():
                found = points(batch)
                for point in chance.sample(found, min(SAMPLE, len(found))):
                    what, differences = hit(batch, point)
                    with self.subTest(f"{name}: {what}"):
                        self.assertEqual(differences, [])


if __name__ == "__main__":
    harness.main()
