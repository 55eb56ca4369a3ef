#!/usr/bin/python3
"""A sample of the points at which a batch can be hit, and how long the databases are locked; script/fault-run tries all
points."""
import errno
import json
import os
import platform
import random
import re
import signal
import sqlite3
import subprocess
import threading
import time
import unittest

import fault_points
import harness
import server_points
from fault_points import M, P
from harness import appliance, hand_over, put
from tracer import KILL, Hook, Tracer

kinds_of = server_points if appliance.ON_SERVER else fault_points
SAMPLE = 1 if appliance.ON_SERVER else 5  # points of each kind and batch
FILES, FILE_TAKES = 20, 0.1  # seconds
LONGEST_LOCK = 15  # of these files: a busy machine makes each take longer


IS_KNOWN = platform.machine() in ("x86_64", "i686") and not harness.IS_EMULATED
TRACED = unittest.skipUnless(IS_KNOWN, "the tracer knows neither this processor nor an emulator")


@TRACED
class Faults(harness.DaemonTest):
    def test_a_batch_that_is_hit_ends_like_one_that_is_not(self):
        chance = random.Random(8)
        for name in fault_points.BATCHES:
            batch = kinds_of.Points(self.binary, name)
            with self.subTest(name):
                self.assertEqual(batch.lacks, [])
            for points, hit in kinds_of.KINDS.values():
                found = points(batch)
                for point in chance.sample(found, min(SAMPLE, len(found))):
                    what, differences = hit(batch, point)
                    with self.subTest(f"{name}: {what}"):
                        self.assertEqual(differences, [])


class SlowDisk(Hook):
    """Every opening of a media file takes a while."""
    opened = 0

    def entry(self, call):
        is_media = call.name == "openat" and call.paths[0].endswith((".mp3", ".jpg"))
        if is_media and call.pid == appliance.daemon_pid():  # and not what runs ahead of it
            time.sleep(FILE_TAKES)
            self.opened += 1


class Writer(threading.Thread):
    """Another program that wants to write to a database all the time; notes how many files are opened
    while it cannot, at most."""

    def __init__(self, name, disk):
        super().__init__(daemon=True)
        self.path, self.disk, self.longest, self.is_over = f"{appliance.STORE}/{name}.db", disk, 0, False

    def run(self):
        database = sqlite3.connect(self.path, timeout=0, isolation_level=None)
        granted = self.disk.opened
        while not self.is_over:
            try:
                database.execute("BEGIN IMMEDIATE")
                database.execute("ROLLBACK")
                granted = self.disk.opened
            except sqlite3.OperationalError:  # locked
                self.longest = max(self.longest, self.disk.opened - granted)
            time.sleep(0.001)
        database.close()


@TRACED
@unittest.skipIf(appliance.ON_SERVER, "a server locks rows")
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
            disk = SlowDisk()
            writers = [Writer(name, disk) for name in ("media", "photo")]
            for writer in writers:
                writer.start()
            self.assertEqual(Tracer(self.binary, disk).run(), "")
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


class Fault(Hook):
    """Every call of one kind that names a file fails."""

    def __init__(self, name, path, error):
        self.name, self.path, self.error = name, path, error

    def entry(self, call):
        return self.error if call.name == self.name and any(path.endswith(self.path) for path in call.paths) else None


class Stop(Hook):
    """The batch has been done and is about to go when the daemon is told to stop."""

    def entry(self, call):
        if call.name == "unlink" and call.paths == [appliance.BATCH]:
            os.kill(call.pid, signal.SIGTERM)


@TRACED
class Troubles(harness.DaemonTest):
    def test_a_stop_leaves_no_server_untold(self):
        told = []  # the test is the media server
        self.addCleanup(signal.signal, signal.SIGUSR1, signal.signal(signal.SIGUSR1, lambda *_: told.append("a batch")))
        with open("/run/dms.pid", "w") as file:
            file.write(str(os.getpid()))
        appliance.enqueue([f"A:{M}"])
        self.assertEqual(Tracer(self.binary, Stop()).run(), "ended with wait status 0")
        self.assertEqual((told, os.path.exists(appliance.BATCH)), (["a batch"], False))

    def control(self, *arguments):
        printed = subprocess.run(self.command(*arguments, "--json"), capture_output=True, text=True, check=False).stdout
        return json.loads(printed)

    def problems(self):
        return [(row["path"], row["reason"]) for row in self.control("problems")]

    def begin(self, path, sample):
        """One file, with what goes with it, is about to be indexed."""
        self.clean()
        put(path, sample, title="Sunset" if path.startswith(P) else None)
        if path.startswith(P):
            hand_over(os.path.dirname(path), "PUBLIC", "1\n")
        os.utime(path, (1, 1))
        appliance.enqueue([f"A:{os.path.dirname(path)}"])

    def test_what_fails_for_a_moment_is_a_problem_and_done_again(self):
        unread, cover, caption = "the file cannot be read", "the cover cannot be saved", "a caption cannot be read"
        for sample, name, failing, error, reason in (
                (fault_points.SONG, "pread64", "/x.mp3", errno.EIO, unread),
                (fault_points.SONG, "openat", "/x.mp3", errno.EMFILE, unread),
                (fault_points.SONG, "write", "/cover1.jpg", errno.ENOSPC, cover),
                (fault_points.SONG, "close", "/cover1.jpg", errno.EDQUOT, cover),
                (fault_points.SONG, "mkdirat", "/Trip/@eaDir", errno.ENOSPC, cover),
                ("music/Formats/sample.flac", "pread64", "/x.flac", errno.EIO, unread),
                ("music/Formats/sample.m4a", "openat", "/x.m4a", errno.ENOMEM, unread),
                ("music/Formats/sample.aiff", "pread64", "/x.aiff", errno.EIO, unread),
                ("video/Formats/clip.avi", "read", "/x.avi", errno.EIO, unread),
                (fault_points.PICTURES[0], "openat", "/x.jpg", errno.EMFILE, unread),
                (fault_points.PICTURES[0], "pread64", "/x.jpg", errno.EIO, unread),
                (fault_points.PICTURES[0], "openat", "/KOLIPHOTO:TITLE", errno.EIO, caption),
                (fault_points.PICTURES[0], "read", "/KOLIPHOTO:PUBLIC", errno.EIO, caption)):
            with self.subTest(f"{name} {failing}"):
                path = f"/volume1/{sample.partition('/')[0]}/Trip/x{os.path.splitext(sample)[1]}"
                self.begin(path, sample)
                self.index()
                undisturbed = fault_points.outcome()
                self.begin(path, sample)
                self.assertEqual(Tracer(self.binary, Fault(name, failing, error)).run(), "")
                place = os.path.dirname(path) if "PUBLIC" in failing else path
                self.assertEqual(self.problems(), [(place, f"{reason}: {os.strerror(error)}")])
                self.control("sync")
                self.index()
                self.assertEqual(fault_points.differences(undisturbed, fault_points.outcome()), [])
                self.assertEqual((self.problems(), self.control("sync")["differences"]), ([], []))

    def test_a_cover_that_is_lost_is_made_again(self):
        path = f"{M}/Trip/x.mp3"
        self.begin(path, fault_points.SONG)
        self.index()
        cover = f"{M}/Trip/@eaDir/x.mp3/cover1.jpg"
        for lose in (os.unlink, lambda file: os.truncate(file, 0)):
            lose(cover)
            self.assertEqual(self.control("sync", "--dry-run", f"{M}/Trip")["differences"],
                             [{"change": "no cover", "path": path}])
            self.control("sync", f"{M}/Trip")
            self.index()
            self.assertGreater(os.path.getsize(cover), 0)

    def test_one_file_keeps_no_other_from_being_stored(self):
        with open(f"{harness.TOP}/packaging/koliindexd.service.in") as unit:
            self.assertGreaterEqual(int(re.search(r"(?m)^StartLimitBurst=(\d+)$", unit.read())[1]), 3)
        for sample, figure in (("music/Formats/sample.flac", "duration"), (fault_points.PICTURES[0], "width")):
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
                self.assertEqual(self.problems(), [(paths[1], "the file has brought the daemon down twice and is "
                                                                "not opened until it changes")])
                appliance.stop()
                os.utime(paths[1])
                self.index(f"a:{paths[1]}")
                self.assertGreater(self.row(share, paths[1])[figure], 0)
                self.assertEqual(self.problems(), [])


if __name__ == "__main__":
    harness.main()
