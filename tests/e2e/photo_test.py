#!/usr/bin/python3
"""The photo share: changes end in the rows of a fresh index, and what is hostile or out of reach does no harm."""
import fcntl
import os
import pathlib
import random
import shutil
import sqlite3
import subprocess

import harness
from harness import appliance, hand_over

SEQUENCES = 5
P, OUT, BIN, LINK = "/volume1/photo", "/volume1/music", "/volume1/photo/#recycle", "/var/services/photo"
PICTURE = "photo/Family/IMG_3000.jpg"
SAMPLES = {PICTURE: ".jpg", "photo/Formats/picture.png": ".PNG", "photo/Formats/picture.jpe": ".jpeg",
           "photo/Formats/picture.tif": ".tif", "photo/Coast 2019/Day 2/waves.mp4": ".mp4",
           "video/Formats/clip.avi": ".avi", "music/Broken/empty.mp3": ".jpg", "music/Party mix.m3u": ".txt",
           "music/Evening.wpl": ""}
NAMES = ("Trip", "O'Brien \"x\"", "100%_a", "back\\slash\\", "'; DROP TABLE photo_share; --", "' or '1'='1",
         "inv\udcff", "v1.2 Été")


def below(top, folders):
    """The folders, or the files, of a tree that the indexer sees, the top not included."""
    found = []
    for place, inside, names in os.walk(top):
        inside[:] = sorted(name for name in inside if name not in ("@eaDir", "#recycle"))
        found += [f"{place}/{name}" for name in (inside if folders else sorted(names))]
    return found


def is_at(path, top):
    return path == top or path.startswith(top + "/")


def is_photo(path):
    """Has a row in the photo library, by its path."""
    return is_at(path, P) and not is_at(path, BIN) and path.lower().endswith((".jpg", ".jpeg", ".png"))


def inode(path):
    return os.stat(path).st_ino


def level(name):
    return name.count("/")


class People:
    """Whoever works in the share. Each change gives the request lines that the file service sends for it. Kept in
    mind, by inodes, is what no index can find out: what was typed in, and whom an album was open to when its
    sub-albums came."""

    def __init__(self, seed):
        self.chance, self.count = random.Random(seed), 0
        self.paths, self.typed, self.albums = {}, {}, {}  # of the typed in, the key has a stream, too
        self.waiting = set()  # albums that have lost their folders: their rows wait for a resync

    def look(self):
        """After a change: what was typed in goes along with its file, and a row with its folder."""
        self.paths = {inode(path): path for path in below(P, True) + below(P, False)}
        kinds = {number: "photo" if is_photo(path) else path[-4:] for number, path in self.paths.items()}
        self.typed = {(number, stream): text for (number, stream), text in self.typed.items()
                      if kinds.get(number) == (".mp4" if stream == "video" else "photo")}
        for number, album in list(self.albums.items()):
            name = self.paths.get(number, P)[len(P) + 1:]
            if name != album["name"]:
                self.moved(number, album, name)
        for path in below(P, True):
            if level(path) < 5 and inode(path) not in self.albums:
                self.made(path, path[len(P) + 1:])

    def moved(self, number, album, name):
        """The sub-albums follow a top album that stays one. Below the second level a row comes, but never moves."""
        old, album["name"] = album["name"], name
        is_inside = os.path.basename(name) == os.path.basename(old)  # of what has moved
        stays = is_inside or min(level(name), level(old)) > 1
        if not name or stays and name.partition("/")[2] != old.partition("/")[2]:
            del self.albums[number]
            if level(old) > 1 or level(name) > 2:
                self.waiting.add(os.path.basename(old))
        elif not is_inside:
            album["cover"] = album["cover"].replace(f"{LINK}/{old}/", f"{LINK}/{name}/")

    def made(self, path, name):
        """A sub-album takes over flag and rights of its album."""
        flag = f"{P}/@eaDir/{name}/KOLIPHOTO:PUBLIC"
        is_public, users = "t" if os.path.exists(flag) and os.path.getsize(flag) > 1 else "f", set()
        if level(name):
            top = self.albums[inode(os.path.dirname(path))]
            is_public, users = top["public"], set() if top["public"] == "t" else set(top["users"])
        self.albums[inode(path)] = {"name": name, "public": is_public, "title": "", "cover": "", "users": users}

    def is_waiting(self, name):
        return os.path.basename(name) in self.waiting and not os.path.isdir(f"{P}/{name}")

    def resynced(self):
        self.waiting.clear()
        self.albums = {number: album for number, album in self.albums.items() if level(album["name"]) < 2}

    # --- Changes

    def name(self):
        self.count += 1
        return f"{self.count} {self.chance.choice(NAMES)}"

    def folder(self):
        """Often the top, or one with an album: there the most can go wrong."""
        folders = below(P, True)
        albums = [path for path in folders if level(path) < 5]
        return self.chance.choice(self.chance.choice(([P], albums, albums, folders)) or [P])

    def something(self):
        folder = self.folder()
        return self.chance.choice(below(P, False)) if folder == P or self.chance.random() < 0.3 else folder

    def put(self, folder):
        sample = self.chance.choice(list(SAMPLES))
        path = f"{folder}/{self.name()}{SAMPLES[sample]}"
        shutil.copyfile(f"{harness.SAMPLES}/{sample}", path)
        return path

    def type_in(self, path):
        if is_photo(path) and os.path.isfile(path) and os.path.getsize(path):
            for stream in self.chance.sample(["TITLE", "DESC"], self.chance.choice((0, 1, 2))):
                self.typed[inode(path), stream] = f"{stream} typed in, no. {self.name()}"
                hand_over(path, stream, self.typed[inode(path), stream])
        return path

    def add_file(self):
        return [f"{self.chance.choice('aA')}:{self.type_in(self.put(self.folder()))}"]

    def add_tree(self):
        top = f"{self.folder()}/{self.name()}"
        for place in (top, f"{top}/{self.name()}", f"{top}/{self.name()}/{self.name()}"):
            os.makedirs(place)
            for _ in range(3):
                self.type_in(self.put(place))
        if os.path.dirname(top) == P:
            hand_over(top, "PUBLIC", self.chance.choice(("1\n", "0")))
        return [f"A:{top}"]

    def move(self, old=None, place=None):
        old = old or self.something()
        place = place or self.chance.choice((self.folder(), P if is_at(old, BIN) else os.path.dirname(old)))
        new = f"{place}/{self.name()}"
        if os.path.isfile(old):
            new += os.path.splitext(old)[1] if self.chance.random() < 0.7 else self.chance.choice((".txt", ".jpg"))
            alike = [path for path in below(P, False)
                     if path[-4:] == old[-4:] and min(map(os.path.getsize, (path, old)))]
            if alike and self.chance.random() < 0.3:
                new = self.chance.choice(alike)  # takes another file's place
        if is_at(new, old):
            return []
        if os.path.isfile(new) and not is_photo(old):
            shutil.copyfile(old, new)  # the texts of the other stay
            os.unlink(old)
        else:
            os.rename(old, new)
        # An album that comes from below the second level would get its sub-albums with the next resync.
        return [f"N:{new}:{old}"] + [f"A:{new}"] * (level(old) > 4 and os.path.isdir(new))

    def move_file(self):
        return self.move(self.chance.choice(below(P, False)))

    def move_album(self):
        albums = [f"{P}/{album['name']}" for album in self.albums.values()]
        places = [P] + [path for path in albums if level(path) == 3]
        return self.move(self.chance.choice(albums), self.chance.choice(places))

    def enter(self):
        """From another share, or out of the recycle bin."""
        namesake = f"{OUT}/{self.chance.choice(list(self.albums.values()))['name']}"  # of an album, in the other share
        if not os.path.exists(namesake):
            os.makedirs(namesake)
            self.put(namesake)
        outside = [f"{place}/{name}" for place in (OUT, BIN) for name in os.listdir(place)]
        return [f"A:{OUT}"] + self.move(self.chance.choice([namesake] + outside))

    def leave(self):
        """To where the indexer does not look is gone."""
        old = self.something()
        end, code = (os.path.splitext(old)[1], self.chance.choice("dD")) if os.path.isfile(old) else ("", "D")
        os.rename(old, new := f"{self.chance.choice((OUT, BIN))}/{self.name()}{end}")
        return [f"N:{new}:{old}"] * is_at(new, OUT) + [f"{code}:{old}"]

    def type_in_later(self):
        path = self.type_in(self.something())
        return [self.chance.choice((f"A:{os.path.dirname(path)}", "U:photo", "R:photo"))]

    def work_in_application(self):
        """Names and paths are bytes to it."""
        self.count += 1
        database = sqlite3.connect(f"{appliance.STORE}/photo.db", isolation_level=None)
        for album in [album for album in self.albums.values() if self.chance.random() < 0.4]:
            values = os.fsencode(album["name"]), self.count
            database.execute(f"UPDATE photo_share SET title = ?2, cover = '{LINK}/' || sharename || '/' || sharename"
                             " || '/.jpg' WHERE CAST(sharename AS BLOB) = ?1", values)
            database.execute("INSERT INTO photo_access_right SELECT ?2, shareid, '' FROM photo_share"
                             " WHERE CAST(sharename AS BLOB) = ?1", values)
            album.update(title=str(self.count), cover=f"{LINK}/{album['name']}/{album['name']}/.jpg")
            album["users"].add(self.count)
        for number, path in self.paths.items():
            if path.endswith(".mp4") and (number, "video") not in self.typed:
                database.execute("REPLACE INTO video_desc (path, title) VALUES (CAST(?1 AS TEXT), ?2)",
                                 (os.fsencode(path), self.count))
                self.typed[number, "video"] = str(self.count)
        database.close()
        return []

    def work_unannounced(self):
        """Nobody tells: a rebuild finds out. To it a moved file is a new one."""
        self.leave()
        self.add_tree()
        return ["R:photo", "R:everything"]


class Sequences(harness.DaemonTest):
    def state(self):
        """What the tables hold, ids apart, and without the times of rows that a rename carries along unread."""
        found = set()
        for table in appliance.MEDIA_TABLES + ("photo_info",):
            for row in appliance.rows(table):
                if table == "photo_info":
                    is_of_file = "-" in row["date_taken"]  # for want of the picture's own
                    row.update(ctime="", date_taken="" if is_of_file else row["date_taken"])
                found.add((table, *row.values()))
        return found

    def check(self, people, when):
        rows, rights = appliance.rows("photo_share"), appliance.rows("photo_access_right")
        for row in rows:
            self.assertEqual((row["is_subdir"], row["updated"]), ("t" if level(row["sharename"]) else "f", 1), row)
            row.update(name=row["sharename"], users={r["userid"] for r in rights if r["shareid"] == row["shareid"]})
        self.assertLessEqual({right["shareid"] for right in rights}, {row["shareid"] for row in rows})
        ours, expected = ({(*map(album.get, ("name", "public", "title", "cover")), *sorted(album["users"]))
                           for album in albums if not people.is_waiting(album["name"])}
                          for albums in (rows, people.albums.values()))
        self.assertEqual(ours ^ expected, set(), when)
        texts = {(people.paths[number], text) for (number, stream), text in people.typed.items() if stream == "video"}
        stored = {(row["path"], row["title"]) for row in appliance.rows("video_desc")}
        self.assertEqual(texts - stored, set(), when)
        photos = {path for path in filter(is_photo, people.paths.values()) if os.path.getsize(path)}
        self.assertEqual(photos ^ set(self.paths("photo_info")), set(), when)

    def test_changes_end_in_the_rows_of_a_fresh_index(self):
        weights = {"add_file": 3, "add_tree": 2, "move": 3, "move_file": 5, "move_album": 4, "enter": 3,
                   "leave": 4, "type_in_later": 2, "work_in_application": 3, "work_unannounced": 1}
        for seed in range(SEQUENCES):
            self.clean()
            os.mkdir(BIN)
            self.index(*harness.EVERYTHING)
            people = People(seed)
            for kind in ["add_tree"] * 3 + people.chance.choices(list(weights), weights.values(), k=30) + ["resync"]:
                if kind == "resync":
                    live, lines = self.state(), ["U:photo", "R:photo"]
                else:
                    lines = getattr(people, kind if people.albums and below(P, False) else "add_tree")()
                people.look()
                self.index(*lines)
                if "R:photo" in lines:
                    people.resynced()
                self.check(people, (seed, lines))
            self.assertEqual(harness.glob.glob(f"{P}/**/KOLIPHOTO:*", recursive=True), [])
            self.assertEqual(self.state() ^ live, set(), seed)

            self.forget_everything()
            for (number, stream), text in people.typed.items():
                hand_over(people.paths[number], stream, text)
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
        self.assertEqual([self.row("photo_info", path)["title"] for path in below(P, False)], list(kinds.values()))
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
