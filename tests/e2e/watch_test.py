#!/usr/bin/python3
"""The daemon and the watcher at work together: whatever happens on the disk, the stores follow."""
import os
import shutil
import signal
import sqlite3
import subprocess
import time

import harness
from harness import appliance

PHOTO = "photo/Family/IMG_3000.jpg"
DISK = "/volume1/music/disk"


class Watch(harness.DaemonTest):
    def wait_in_step(self, what):
        def in_step():
            harness.hurry()
            differs = subprocess.run(self.command("sync", "--dry-run"), capture_output=True).returncode
            return not differs and not os.path.exists(appliance.BATCH)  # albums come after their photos

        harness.wait_for(what, in_step)

    def wait_stored(self, path):
        def is_stored():
            harness.hurry()
            return path in self.paths("music")

        harness.wait_for(path, is_stored)

    def watch(self):
        links = [f"/var/services/{share}" for share in harness.SHARES]
        watcher = subprocess.Popen(self.command("watch", *links), stdout=subprocess.PIPE, text=True)
        self.addCleanup(watcher.communicate)
        self.addCleanup(watcher.kill)
        self.assertIn("watching", watcher.stdout.readline())
        return watcher

    def test_captions_and_rights_follow_their_folders(self):
        share, names = "/volume1/photo", ["Anna", "Bert", "Carl", "Open", "Trip", "Trip2", "Bin"]
        for name in names:
            self.put(f"{share}/{name}/day/a.jpg", PHOTO)
        self.index(f"A:{share}")
        with sqlite3.connect(f"{appliance.STORE}/photo.db") as database:
            for name in names:
                database.execute("UPDATE photo_info SET title = ? WHERE path LIKE ?", (name, f"{share}/{name}/%"))
                database.execute("UPDATE photo_share SET description = ?1, public = ?2 WHERE sharename = ?1 OR"
                                 " sharename = ?1 || '/day'", (name, "t" if name == "Open" else "f"))
        database.close()
        self.start()
        self.watch()
        self.wait_in_step("nothing new")
        def move(*moves):
            for old, new in moves:
                os.rename(f"{share}/{old}", f"{share}/{new}")

        os.mkdir(f"{share}/#recycle")
        move(("Anna", "x"), ("Bert", "Anna"), ("x", "Bert"))
        shutil.rmtree(f"{share}/Open")
        move(("Carl", "Open"))
        os.mkdir(f"{share}/New")
        move(("Trip2/day", "New/day"), ("Trip2", "New/Trip2"), ("Trip", "X"), ("Bin", "#recycle/Bin"))
        time.sleep(4)  # so that some of it has been asked for already
        move(("X", "Y"), ("#recycle/Bin", "Back"))
        shutil.copytree(f"{share}/Back/day", f"{share}/Y/more")
        self.wait_in_step("everything that has moved")
        expected = {"Anna": "Bert", "Bert": "Anna", "Open": "Carl", "New/Trip2": "Trip2", "Y": "Trip", "Back": "Bin"}
        expected |= {f"{name}/day": owner for name, owner in expected.items() if "/" not in name}
        expected["New/day"] = "Trip2"
        albums = {row["sharename"]: row["description"] for row in appliance.rows("photo_share")}
        self.assertEqual(albums, expected | {"New": "", "Y/more": ""})
        self.assertEqual([row["sharename"] for row in appliance.rows("photo_share") if row["public"] == "t"], [])
        titles = {row["path"]: row["title"] for row in appliance.rows("photo_info")}
        self.assertEqual(titles.pop(f"{share}/Y/more/a.jpg"), "a")
        self.assertEqual(titles, {f"{share}/{name}/a.jpg": owner for name, owner in expected.items() if "day" in name})

    def test_stores_follow_the_disk(self):
        before = self.put("/volume1/music/before.mp3")
        os.mkdir(DISK)
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", DISK], check=True)
        self.addCleanup(subprocess.run, ["umount", "--quiet", DISK])
        self.start()
        watcher = self.watch()
        for share in harness.SHARES:
            shutil.copytree(f"{harness.SAMPLES}/{share}", f"/volume1/{share}/copied")
        gone, mounted = self.put("/volume1/music/copied/gone.mp3"), self.put(f"{DISK}/album/a.mp3")
        self.put("/volume1/photo/Trip/a.jpg", PHOTO)
        self.wait_in_step("everything that was there or copied in")
        self.assertLess({before, gone, mounted}, set(self.paths("music")))
        self.assertIn("Trip", [row["sharename"] for row in appliance.rows("photo_share")])

        os.unlink(gone)
        os.rename(before, "/volume1/music/after.mp3")
        os.rename("/volume1/photo/Trip", "/volume1/photo/Journey")
        os.rename("/volume1/photo/Journey", "/volume1/photo/Holiday")
        shutil.rmtree("/volume1/video/copied")
        self.wait_in_step("moves and removals")
        photos = [path for path in self.paths("photo_info") if path.endswith("/a.jpg")]
        self.assertEqual(photos, ["/volume1/photo/Holiday/a.jpg"])
        stored = self.paths("music") + self.paths("video") + self.paths("directory")
        self.assertEqual([path for path in stored if path in (gone, before) or "/video/copied" in path], [])

        subprocess.run(["umount", DISK], check=True)  # what is unmounted stays stored
        self.wait_stored(self.put("/volume1/music/other.mp3"))
        last = self.put("/volume1/music/last/last.mp3")
        watcher.send_signal(signal.SIGTERM)
        watcher.communicate(timeout=harness.PATIENCE)
        self.assertEqual(watcher.returncode, 0)
        self.wait_stored(last)
        self.assertIn(mounted, self.paths("music"))


if __name__ == "__main__":
    harness.main()
