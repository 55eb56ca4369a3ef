#!/usr/bin/python3
"""The daemon and the watcher at work together: whatever happens on the disk, the stores follow."""
import os
import shutil
import signal
import subprocess

import harness

DISK = "/volume1/music/disk"


class Watch(harness.DaemonTest):
    def wait_for_paths(self, *paths):
        harness.wait_for(paths, lambda: harness.hurry() or set(paths) <= set(self.paths("music") + self.paths("video")))

    def test_stores_follow_the_disk(self):
        before = self.put("/volume1/music/before.mp3")
        os.mkdir(DISK)
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", DISK], check=True)
        self.addCleanup(subprocess.run, ["umount", "--quiet", DISK])
        self.start()
        links = [f"/var/services/{share}" for share in harness.SHARES]
        watcher = subprocess.Popen(self.command("watch", *links), stdout=subprocess.PIPE, text=True)
        self.addCleanup(watcher.communicate)
        self.addCleanup(watcher.kill)
        self.assertIn("watching", watcher.stdout.readline())
        mounted = self.put(f"{DISK}/album/a.mp3")
        shutil.copytree(f"{harness.SAMPLES}/video", "/volume1/video/copied")
        self.wait_for_paths(before, mounted, "/volume1/video/copied/Formats/clip.avi")
        os.rename(before, "/volume1/music/after.mp3")
        shutil.rmtree("/volume1/video/copied")
        self.wait_for_paths("/volume1/music/after.mp3")
        harness.wait_for("removals", lambda: harness.hurry() or not self.paths("video"))
        subprocess.run(["umount", DISK], check=True)  # what is unmounted stays stored
        self.wait_for_paths(self.put("/volume1/music/other.mp3"))
        last = self.put("/volume1/music/last/last.mp3")
        watcher.send_signal(signal.SIGTERM)
        watcher.communicate(timeout=harness.PATIENCE)
        self.assertEqual(watcher.returncode, 0)
        self.wait_for_paths(last)
        self.assertEqual(self.paths("music"), sorted(["/volume1/music/after.mp3", "/volume1/music/other.mp3", last, mounted]))


if __name__ == "__main__":
    harness.main()
