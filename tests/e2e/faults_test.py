#!/usr/bin/python3
"""A sample of the points at which a batch can be hit, and how long the databases are locked; script/fault-run tries all
points."""
import json
import os
import platform
import random
import re
import sqlite3
import subprocess
import threading
import time
import unittest

import fault_points
import harness
from fault_points import M, P, put
from harness import appliance
from tracer import KILL, Hook, Tracer

SAMPLE = 5  # points of each kind and batch
FILES, FILE_TAKES, LONGEST_LOCK = 20, 0.1, 1.2  # seconds


@unittest.skipUnless(platform.machine() == "x86_64", "the tracer knows no other processor")
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


class SlowDisk(Hook):
    """Every opening of a media file takes a while."""

    def entry(self, call):
        if call.name == "openat" and call.paths[0].endswith((".mp3", ".jpg")):
            time.sleep(FILE_TAKES)


class Writer(threading.Thread):
    """Another program that wants to write to a database all the time; notes the longest time that it cannot."""

    def __init__(self, name):
        super().__init__(daemon=True)
        self.path, self.longest, self.is_over = f"{appliance.STORE}/{name}.db", 0, False

    def run(self):
        database = sqlite3.connect(self.path, timeout=0, isolation_level=None)
        granted = time.monotonic()
        while not self.is_over:
            try:
                database.execute("BEGIN IMMEDIATE")
                database.execute("ROLLBACK")
                granted = time.monotonic()
            except sqlite3.OperationalError:  # locked
                self.longest = max(self.longest, time.monotonic() - granted)
            time.sleep(0.001)
        database.close()


@unittest.skipUnless(platform.machine() == "x86_64", "the tracer knows no other processor")
class Locks(harness.DaemonTest):
    def test_other_programs_write_while_a_long_batch_runs(self):
        """What one database has got does not wait for what is done in the other, nor for the end of a line."""
        put(f"{P}/one.jpg")
        self.index(f"A:{P}")
        for number in range(FILES):
            put(f"{M}/Slow/{number}.mp3", fault_points.SONG)
            put(f"{P}/Slow/{number}.jpg", title=f"no. {number}")
        put(f"{M}/one.mp3", fault_points.SONG)
        for lines in ([f"a:{P}/one.jpg", f"A:{M}/Slow"], [f"a:{M}/one.mp3", "U:photo"],
                      [f"N:{P}/Slow:{P}/Fast", "R:photo"]):
            appliance.enqueue(lines)
            harness.hand_over(f"{P}/one.jpg", "TITLE", lines[0])
            writers = [Writer(name) for name in ("media", "photo")]
            for writer in writers:
                writer.start()
            self.assertEqual(Tracer(self.binary, SlowDisk()).run(), "")
            for writer in writers:
                writer.is_over = True
            for writer in writers:
                with self.subTest(f"{writer.path} {lines}"):
                    self.assertLess(writer.longest, LONGEST_LOCK)


class Deadly(Hook):
    """The first look into one file brings the daemon down."""
    sees_start = True

    def __init__(self, path):
        self.path = path

    def entry(self, call):
        return KILL if call.name in ("read", "pread64") and self.path in call.paths else None


@unittest.skipUnless(platform.machine() == "x86_64", "the tracer knows no other processor")
class BroughtDown(harness.DaemonTest):
    def problems(self):
        printed = subprocess.run(self.command("problems", "--json"), capture_output=True, text=True, check=False).stdout
        return [(row["path"], row["reason"][:42]) for row in json.loads(printed)]

    def test_one_file_keeps_no_other_from_being_stored(self):
        with open(f"{harness.TOP}/packaging/koliindexd.service.in") as unit:
            self.assertGreaterEqual(int(re.search(r"(?m)^StartLimitBurst=(\d+)$", unit.read())[1]), 3)
        for sample, figure in (("music/Blue Harbour/01 First Light.mp3", "duration"),
                               ("music/Formats/sample.flac", "duration"), ("music/Formats/sample.m4a", "duration"),
                               ("music/Formats/sample.aiff", "duration"), ("video/Formats/clip.dat", "width"),
                               ("photo/Family/IMG_3000.jpg", "width")):
            with self.subTest(sample):
                self.clean()
                share, ending = sample.partition("/")[0], os.path.splitext(sample)[1]
                paths = [self.put(f"/volume1/{share}/Trip/{name}{ending}", sample) for name in "abc"]
                appliance.enqueue([f"A:/volume1/{share}"])
                for _ in range(2):
                    self.assertEqual(Tracer(self.binary, Deadly(paths[1])).run(), "")
                self.start()
                appliance.wait_for_batch(harness.PATIENCE)
                self.assertEqual([self.row(share, path)[figure] > 0 for path in paths], [True, False, True])
                self.assertEqual(self.paths("photo_info"), paths if share == "photo" else [])
                self.assertEqual(self.problems(), [(paths[1], "The file has brought the daemon down twice")])
                appliance.stop()
                os.utime(paths[1])
                self.index(f"a:{paths[1]}")
                self.assertGreater(self.row(share, paths[1])[figure], 0)
                self.assertEqual(self.problems(), [])


if __name__ == "__main__":
    harness.main()
