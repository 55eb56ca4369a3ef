#!/usr/bin/python3
"""The photo share: what is hostile or out of reach does no harm."""
import fcntl
import os
import pathlib
import resource
import shutil
import signal
import subprocess

import harness
from harness import appliance, hand_over

P, LINK = "/volume1/photo", "/var/services/photo"
FEW = 64  # open files
PICTURE = "photo/Family/IMG_3000.jpg"


class Trouble(harness.DaemonTest):
    def rows_of_photos(self):
        """Both stores' pictures, and the albums."""
        albums = sorted(row["sharename"] for row in appliance.rows("photo_share"))
        return self.paths("photo"), self.paths("photo_info"), albums

    def put_album(self, name):
        return self.put(f"{P}/{name}/sub/x.jpg", PICTURE)

    def test_captions_of_every_kind(self):
        kinds = {"": "0", "x" * 10 ** 6: "x" * 254, "\nsecond": "2", "it's \"%s%n\"\n": "it's \"%s%n\"\n",
                 "Caf\udce9": "Café", os.mkdir: "5", os.mkfifo: "6", lambda path: os.symlink("/etc/passwd", path): "7"}
        for number, kind in enumerate(kinds):
            path = self.put(f"{P}/{number}.jpg", PICTURE)
            if callable(kind):
                os.mkdir(folder := f"{P}/@eaDir/{number}.jpg")
                kind(f"{folder}/KOLIPHOTO:TITLE")
            else:
                hand_over(path, "TITLE", kind)
        self.index(f"A:{P}", "R:photo")
        paths = sorted(harness.glob.glob(f"{P}/*.jpg"))
        self.assertEqual([self.row("photo_info", path)["title"] for path in paths], list(kinds.values()))
        left = harness.glob.glob(f"{P}/@eaDir/*/KOLIPHOTO:TITLE")
        self.assertEqual({path.split("/")[4] for path in left}, {"5.jpg", "7.jpg"})  # a pipe reads as empty

    def test_link_loops_and_two_thousand_levels(self):
        photos = [self.put_album(name) for name in ("A", "new\nline")]
        for name, target in {"B": "A", "A/sub/up": "../..", "A/sub/self": ".", "A/sub/share": P, "A/sub/loop": "loop",
                             "A/sub/nowhere": "/nowhere/x.jpg"}.items():
            os.symlink(target, f"{P}/{name}")
        deepest = f"{P}/z" + 1999 * "/d"
        subprocess.run(["mkdir", "-p", deepest], check=True)
        subprocess.run(["mkdir", "y" * 200], check=True, cwd=deepest)  # beyond the longest path
        limits = resource.getrlimit(resource.RLIMIT_NOFILE)
        self.addCleanup(resource.setrlimit, resource.RLIMIT_NOFILE, limits)
        resource.setrlimit(resource.RLIMIT_NOFILE, (FEW, limits[1]))
        for name in ("@eaDir/x.jpg", "my@eaDir/x.jpg", "no ending"):  # which no store takes
            self.put(f"{P}/{name}", PICTURE)
        hidden = self.put(f"{P}/.x.jpg", PICTURE)
        photos = [photos[0], f"{P}/B/sub/x.jpg", photos[1], self.put(f"{deepest}/x.jpg", PICTURE)]
        self.index(f"A:{P}", "R:photo", "U:photo", "R:everything")
        albums = ["A", "A/sub", "B", "B/sub", "new\nline", "new\nline/sub", "z", "z/d"]
        self.assertEqual(self.rows_of_photos(), ([hidden, *photos], photos, albums))
        os.rename(f"{P}/z", f"{P}/_")
        self.index(f"N:{P}/_:{P}/z")
        self.assertIn(photos[3].replace("/z/", "/_/"), self.rows_of_photos()[1])

    def test_what_is_out_of_reach_keeps_its_rows(self):
        photos = [self.put_album(name) for name in ("gone", "locked", "open")]
        self.index(f"A:{P}")
        before, daemon = self.rows_of_photos(), self.binary
        self.binary = "/tmp/without-override"  # to root, nothing is out of reach
        pathlib.Path(self.binary).write_text(
            f"#!/bin/sh\nexec setpriv --bounding-set=-dac_override,-dac_read_search '{daemon}'\n")
        os.chmod(self.binary, 0o755)
        os.chmod(f"{P}/locked", 0o600)
        shutil.rmtree(f"{P}/gone")
        for target, named in (("/volume1/nowhere", "/volume1/nowhere"), (LINK, LINK), (P, f"{P}/locked")):
            os.unlink(LINK)
            os.symlink(target, LINK)
            self.assertIn(f"Failed to open directory {named} ", "\n".join(self.index("R:photo", "U:photo")))
            self.assertEqual(self.rows_of_photos(), before, target)
        os.chmod(f"{P}/locked", 0o755)
        self.index("R:photo")
        self.assertEqual(self.rows_of_photos()[1:], (photos[1:], ["locked", "locked/sub", "open", "open/sub"]))

    def test_the_converters_that_run_are_asked(self):
        for name, sample in (("a.jpg", PICTURE), ("b.jpg", PICTURE), ("c.mp4", "photo/Coast 2019/Day 2/waves.mp4"),
                             ("d.avi", "video/Formats/clip.avi")):
            self.put(f"{P}/A/{name}", sample)
        for running in (("kolimkthumbd", "kolimkflvd"), ("kolimkthumbd",), ("kolimkflvd",)):
            self.forget_everything()
            converters = [subprocess.Popen(["sleep", "60"]) for _ in running]
            for name, converter in zip(running, converters):
                self.addCleanup(converter.kill)
                pathlib.Path(f"/run/{name}.pid").write_text(str(converter.pid))
            self.index(f"A:{P}")
            asked = {pathlib.Path(path).name: pathlib.Path(path).read_text() for path in harness.glob.glob("/var/spool/*")}
            self.assertEqual(asked, {queue: text for name, queue, text in (
                ("kolimkthumbd", "thumb_create.queue", f"{P}/A\n"),
                ("kolimkflvd", "flv_create.queue", f"{P}/A/c.mp4\n")) if name in running})
            self.assertEqual({converter.wait(harness.PATIENCE) for converter in converters}, {-signal.SIGUSR1})

    def test_a_conversion_queue_that_somebody_holds(self):
        pathlib.Path("/run/kolimkthumbd.pid").write_text("1")  # the sandbox's first process, which takes no signal
        with open("/var/spool/thumb_create.queue", "w+") as queue:
            fcntl.flock(queue, fcntl.LOCK_EX)
            appliance.enqueue([f"a:{self.put_album('A')}"])
            self.start()
            harness.wait_for("the row, while the daemon waits", lambda: len(self.rows_of_photos()[1]) == 1)
            self.assertTrue(os.path.exists(appliance.BATCH))
            print("somebody else's", file=queue, flush=True)
            fcntl.flock(queue, fcntl.LOCK_UN)
            appliance.wait_for_batch(harness.PATIENCE)
            queue.seek(0)
            self.assertEqual(queue.read().splitlines(), ["somebody else's", f"{P}/A/sub"])


if __name__ == "__main__":
    harness.main()
