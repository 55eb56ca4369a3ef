#!/usr/bin/python3
"""The daemon and the watcher at work together: whatever happens on the disk, the stores follow."""
import os
import shutil
import signal
import subprocess

import harness
from harness import appliance

SHARE_LINKS = [f"/var/services/{share}" for share in harness.SHARES]


class Watch(harness.DaemonTest):
    def ctl(self, *arguments):
        program = os.path.join(os.path.dirname(self.binary), "koliindexctl")
        return [program, *arguments]

    def start_watching(self):
        self.watcher = subprocess.Popen(self.ctl("watch", *SHARE_LINKS), stdout=subprocess.PIPE, text=True)
        self.addCleanup(self.watcher.kill)
        self.assertIn("watching", self.watcher.stdout.readline())

    def stop_watching(self):
        self.watcher.send_signal(signal.SIGTERM)
        self.watcher.communicate(timeout=30)
        self.assertEqual(self.watcher.returncode, 0)

    def in_step(self):
        return subprocess.run(self.ctl("sync", "--dry-run"), stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL).returncode == 0

    def wait_in_step(self, what):
        appliance.wait_until(self.in_step, 60, what)

    def test_stores_follow_the_disk(self):
        self.put("/volume1/music/before.mp3")
        self.start()
        self.start_watching()
        for share in harness.SHARES:
            shutil.copytree(f"{harness.SAMPLES}/{share}", f"/volume1/{share}/copied")
        self.put("/volume1/music/copied/gone.mp3")
        self.put("/volume1/photo/Trip/a.jpg", self.any_photo())
        self.wait_in_step("everything that was there or copied in")
        self.assertIn("/volume1/music/before.mp3", self.paths("music"))
        self.assertEqual([row["sharename"] for row in appliance.rows("photo_share") if row["sharename"] == "Trip"],
                         ["Trip"])

        os.unlink("/volume1/music/copied/gone.mp3")
        os.rename("/volume1/music/before.mp3", "/volume1/music/after.mp3")
        os.rename("/volume1/photo/Trip", "/volume1/photo/Journey")
        os.rename("/volume1/photo/Journey", "/volume1/photo/Holiday")
        shutil.rmtree("/volume1/video/copied")
        self.wait_in_step("moves and removals")
        self.assertIn("/volume1/photo/Holiday/a.jpg", self.paths("photo_info"))
        self.assertEqual([name for name in self.paths("photo_info") if "/Trip/" in name or "/Journey/" in name], [])
        self.assertEqual([path for path in self.paths("directory") + self.paths("video") if "/video/copied" in path], [])

        self.put("/volume1/music/last/last.mp3")
        self.stop_watching()
        self.wait_in_step("what was pending when the watcher was told to end")

    def test_a_share_that_is_unmounted_stays_stored(self):
        os.makedirs("/volume1/music/disk", exist_ok=True)
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", "/volume1/music/disk"], check=True)
        self.put("/volume1/music/disk/album/a.mp3")
        self.start()
        self.start_watching()
        self.wait_in_step("the mounted files")
        subprocess.run(["umount", "/volume1/music/disk"], check=True)
        self.put("/volume1/music/other.mp3")
        appliance.wait_until(lambda: "/volume1/music/other.mp3" in self.paths("music"), 60, "a file elsewhere")
        self.assertIn("/volume1/music/disk/album/a.mp3", self.paths("music"))
        self.stop_watching()

    @staticmethod
    def any_photo():
        for folder, _, names in os.walk(f"{harness.SAMPLES}/photo"):
            for name in sorted(names):
                if name.endswith(".jpg") and not name.startswith("."):
                    return os.path.relpath(os.path.join(folder, name), harness.SAMPLES)
        raise AssertionError("no sample photo")


if __name__ == "__main__":
    harness.main()
