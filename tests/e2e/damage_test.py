#!/usr/bin/python3
"""Damaged copies of every sample through the real daemon; the sanitizers of the asan build judge it."""
import os
import random
import re

import harness

COPIES = 4  # of each sample
PID = re.compile(r"(?<=Process )\d+")


def damaged(data, chance):
    """A copy cut off, with bytes or whole numbers overwritten (most often near its start), or with a piece doubled."""
    copy = bytearray(data)
    if not copy or chance.random() < 0.25:
        return copy[:chance.randrange(len(copy) + 1)]
    for _ in range(chance.choice((1, 3, 30))):
        at = chance.randrange(min(len(copy), chance.choice((32, 512, 8192, len(copy)))))
        copy[at:at + 4] = chance.choice((b"\xff\xff\xff\xff", b"\0\0\0\0", b"\x7f\xff\xff\xff", b"\x80\0\0\0",
                                         bytes((chance.randrange(256),)), bytes(copy[at:at + 64]) * 2))
    return copy


def put_damaged_copies():
    """Writes the same ones each time; their paths."""
    chance = random.Random(2006)
    written = []
    for place, folders, names in os.walk(harness.SAMPLES):
        folders.sort()
        for name in sorted(name for name in names if "@eaDir" not in place and not name.startswith(".")):
            with open(os.path.join(place, name), "rb") as file:
                data = file.read()
            share, _, rest = os.path.relpath(place, harness.SAMPLES).partition("/")
            for copy in range(COPIES):
                path = os.path.normpath(f"/volume1/{share}/Damaged/{rest}/{copy} {name}")
                os.makedirs(os.path.dirname(path), exist_ok=True)
                with open(path, "wb") as file:
                    file.write(damaged(data, chance))
                written.append(path)
    return written


class Damage(harness.DaemonTest):
    def test_damaged_files_end_in_a_verdict_and_the_next_file(self):
        written = put_damaged_copies()
        sound = self.put("/volume1/photo/zz/after.mp3")
        log = self.index(*harness.EVERYTHING, f"a:{sound}")
        known = {path for table in ("music", "video", "photo", "playlist") for path in self.paths(table)}
        judged = {line.partition("file [")[2][:-2] for line in log if "Failed to parse media metadata" in line}
        self.assertEqual(set(written) - known - judged, set())
        self.assertIn(sound, known)
        self.assertEqual(self.processes(), 0)

        # On one processor no probe runs ahead of its file's turn: rows and log lines are the same.
        stored = harness.stored_rows()
        self.forget_everything()
        os.sched_setaffinity(0, [min(os.sched_getaffinity(0))])
        alone = self.index(*harness.EVERYTHING, f"a:{sound}")
        self.assertEqual(harness.stored_rows(), stored)
        self.assertEqual([PID.sub("", line) for line in alone], [PID.sub("", line) for line in log])


if __name__ == "__main__":
    harness.main()
