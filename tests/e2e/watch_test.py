#!/usr/bin/python3
"""The daemon and the watcher at work together: whatever happens on the disk, the stores follow."""
import os
import shutil
import subprocess

import harness

DISK = "/volume1/music/disk"


class Watch(harness.DaemonTest):
    def wait_for_paths(self, *paths):
        harness.wait_for(paths, lambda: harness.hurry() or set(paths) <= set(self.paths("music") + self.paths("video")))

    def test_stores_follow_the_disk(self):
        os.mkdir(DISK)
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", DISK], check=True)
        self.addCleanup(subprocess.run, ["umount", "--quiet", DISK])
        self.start()
        links = [f"/var/services/{share}" for share in harness.SHARES]
        watcher = subprocess.Popen(self.command("watch", *links), stdout=subprocess.PIPE, text=True)
        self.addCleanup(watcher.communicate)
        self.addCleanup(watcher.kill)
        self.assertIn("watching", watcher.stdout.readline())
        second = subprocess.run(self.command("watch", "/var/services/photo", DISK), capture_output=True, text=True)
        self.assertEqual((second.returncode, f"process {watcher.pid} watches" in second.stderr), (2, True), second.stderr)
        mounted = self.put(f"{DISK}/album/a.mp3")
        shutil.copytree(f"{harness.SAMPLES}/video", "/volume1/video/copied")
        self.wait_for_paths(mounted, "/volume1/video/copied/Formats/clip.avi")
        subprocess.run(["umount", DISK], check=True)  # what is unmounted stays stored
        other = self.put("/volume1/music/other.mp3")
        shutil.rmtree("/volume1/video/copied")
        self.wait_for_paths(other)
        harness.wait_for("removals", lambda: harness.hurry() or not self.paths("video"))
        self.assertEqual(self.paths("music"), sorted([other, mounted]))


if __name__ == "__main__":
    harness.main()
