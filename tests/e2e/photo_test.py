#!/usr/bin/python3
"""The photo share: changes end in the rows of a fresh index, and what is hostile or out of reach does no harm."""
import fcntl
import os
import pathlib
import random
import shutil
import subprocess

import family_model
import harness
from family_test import Check
from harness import appliance, hand_over

SEQUENCES = 5
P, OUT, LINK = "/volume1/photo", "/volume1/music", "/var/services/photo"
PICTURE = "photo/Family/IMG_3000.jpg"
SAMPLES = {PICTURE: ".jpg", "photo/Formats/picture.png": ".PNG", "photo/Formats/picture.jpe": ".jpeg",
           "photo/Formats/picture.tif": ".tif", "photo/Coast 2019/Day 2/waves.mp4": ".mp4",
           "video/Formats/clip.avi": ".avi", "music/Broken/empty.mp3": ".jpg", "music/Party mix.m3u": ".txt",
           "music/Evening.wpl": ""}
NAMES = ("Trip", "O'Brien \"x\"", "100%_a", "back\\slash\\", "'; DROP TABLE photo_share; --", "' or '1'='1",
         "v1.2 Été", "inv\udcff")


class Sequences(harness.DaemonTest):
    def state(self):
        """What the tables hold, ids apart, and without the times of rows that a rename carries along unread. Of
        what is in the recycle bin the photo library keeps its rows, which no index makes."""
        found = set()
        for table in appliance.MEDIA_TABLES + ("photo_info",):
            for row in appliance.rows(table):
                if table == "photo_info":
                    is_of_file = "-" in row["date_taken"]  # for want of the picture's own
                    row.update(ctime="", date_taken="" if is_of_file else row["date_taken"])
                found.add((table, *row.values()))
        return {row for row in found if "/#recycle/" not in row[1]}

    def others(self, family, chance, number):
        """What is not the family's: files of every kind, and a folder that goes from share to share."""
        albums = [path for path, thing in sorted(family.things.items()) if thing.is_album()]
        sample = chance.choice(list(SAMPLES))
        path = self.put(f"{chance.choice([P, OUT, *albums])}/{number} {chance.choice(NAMES)}{SAMPLES[sample]}", sample)
        old, new = (f"{top}/guest" for top in ((P, OUT) if number % 2 else (OUT, P)))
        self.put(f"{old}/{number} {NAMES[-1]}.jpg", PICTURE)
        os.rename(old, new)
        return f"a:{path}", f"A:{os.path.dirname(path)}", f"N:{new}:{old}", f"D:{old}"

    def test_changes_end_in_the_rows_of_a_fresh_index(self):
        family_model.FOLDERS = NAMES[:-1]
        for seed in range(SEQUENCES):
            self.clean()
            chance, family = random.Random(seed), family_model.Family(lambda: None)
            self.index(*harness.EVERYTHING)
            for number in range(12):
                family.begin()
                family.work(chance)
                for _ in range(3):
                    family.act(chance)
                # What stands at its place again when the batch comes is not deleted: only a rebuild finds out.
                is_back = any(ghost.top and os.path.isdir(ghost.top) for ghost in family.ghosts)
                self.index(*family.lines, *self.others(family, chance, number), *["R:everything"] * is_back)
                found = [text for text in Check(family, False, False).found if not os.path.exists(text[21:])]
                self.assertEqual(found, [], (seed, number, family.lines))
            self.index(f"A:{P}", "U:photo", "R:photo")  # a request for what has moved on has found nothing
            live, captions = self.state(), {row["path"]: row for row in appliance.rows("photo_info")}
            shutil.rmtree(f"{P}/@eaDir", ignore_errors=True)
            self.forget_everything()
            for path, row in captions.items():
                hand_over(path, "TITLE", row["title"])
                hand_over(path, "DESC", row["description"])
            self.index(*harness.EVERYTHING)
            self.assertEqual(self.state() ^ live, set(), seed)


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
        photos = [photos[0], f"{P}/B/sub/x.jpg", photos[1], self.put(f"{deepest}/x.jpg", PICTURE)]
        self.index(f"A:{P}", "R:photo", "U:photo", "R:everything")
        albums = ["A", "A/sub", "B", "B/sub", "new\nline", "new\nline/sub", "z", "z/d"]
        self.assertEqual(self.rows_of_photos(), (photos, photos, albums))
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
