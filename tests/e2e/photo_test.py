#!/usr/bin/python3
"""The photo share: changes end in the rows that a fresh index gives, and what is hostile or out of reach harms nobody."""
import fcntl
import os
import random
import shutil
import sqlite3
import subprocess

import harness
from harness import appliance, hand_over

SEQUENCES, DEEPEST = 5, 999
P, OUT, BIN, LINK = "/volume1/photo", "/volume1/music", "/volume1/photo/#recycle", "/var/services/photo"
SAMPLES = {"photo/Family/IMG_3000.jpg": ".jpg", "photo/Formats/picture.png": ".PNG", "photo/Formats/picture.jpe": ".jpeg",
           "photo/Formats/picture.tif": ".tif", "photo/Coast 2019/Day 2/waves.mp4": ".mp4", "video/Formats/clip.avi": ".avi",
           "music/Broken/empty.mp3": ".jpg", "music/Party mix.m3u": ".txt", "music/Evening.wpl": ""}
PICTURE = "photo/Family/IMG_3000.jpg"
NAMES = ("Trip", "O'Brien \"x\"", "100%_a", "back\\slash\\", "'; DROP TABLE photo_share; --", "' or '1'='1", "inv\udcff",
         "v1.2 Été")


def album_of(path, levels=2):
    """The name of a folder's album; None for one that has none."""
    name = path[len(P) + 1:]
    return name if path.startswith(P + "/") and name.count("/") < levels and not path.startswith(BIN) else None


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


def difference(ours, expected):
    both = {key: (ours.get(key), expected.get(key)) for key in ours.keys() | expected.keys()}
    return {key: (our, other) for key, (our, other) in both.items() if our != other}


def by_hand(statement, name, number):
    """What the photo application writes; the name as bytes."""
    connection = sqlite3.connect(f"{appliance.STORE}/photo.db")
    with connection:
        connection.execute(statement, (os.fsencode(name), number))
    connection.close()


class People:
    """Whoever works in the share. Each change gives the request lines that the file service sends for it. Kept in mind is
    what no index can find out: what was typed in, and whom an album was open to when its sub-albums were made."""

    def __init__(self, seed):
        self.chance, self.count = random.Random(seed), 0
        self.captions, self.albums, self.texts = {}, {}, {}  # (photo, stream), album names, videos

    # --- What becomes of typed-in things

    def made(self, folder, public=False):
        """Albums for a folder and what is in it; a sub-album takes over flag and rights of its album."""
        for name in filter(None, map(album_of, [folder] + below(folder, True))):
            top = self.albums.get(name.partition("/")[0]) if "/" in name else {"public": public, "users": set()}
            users = set() if top["public"] else set(top["users"])
            self.albums.setdefault(name, {"public": top["public"], "users": users, "title": "", "cover": ""})

    def gone(self, path):
        self.captions = {key: text for key, text in self.captions.items() if not is_at(key[0], path)}
        top = album_of(path) or "/"
        self.albums = {name: album for name, album in self.albums.items() if not is_at(name, top)}

    def renamed(self, new, old):
        is_folder = os.path.isdir(new)
        captions = {key: text for key, text in self.captions.items() if key[0] != new or not is_photo(old)}
        self.captions = {(new + path[len(old):] if is_at(path, old) else path, stream): text
                         for (path, stream), text in captions.items()}
        if is_folder or new.endswith(".mp4") and new not in self.texts:  # every path that begins with the old one goes along
            self.texts = {new + path[len(old):] if path.startswith(old) else path: text for path, text in self.texts.items()}
        if is_folder:
            self.album_renamed(new, album_of(new, DEEPEST), album_of(old, DEEPEST))
        elif not is_photo(new):
            self.gone(new)

    def album_renamed(self, new, after, before):
        if before not in self.albums:
            return self.made(new)
        levels = before.count("/"), after.count("/")  # below the second one, a row only waits for the resync
        if min(levels) > 1:
            return None
        self.albums[after] = album = self.albums.pop(before)
        album["cover"] = album["cover"].replace(f"/var/services/photo/{before}/", f"/var/services/photo/{after}/")
        if levels in ((0, 0), (0, 1)):  # the sub-albums go along, or are dropped
            self.albums = {after + name[len(before):] if is_at(name, before) else name: album for name, album
                           in self.albums.items() if levels == (0, 0) or not is_at(name, before)}
        return self.made(new) if levels == (1, 0) else None

    def resynced(self):
        names = set(map(album_of, below(P, True)))
        self.albums = {name: album for name, album in self.albums.items() if name in names}
        self.made(P)

    # --- Changes

    def name(self):
        self.count += 1
        return f"{self.count} {self.chance.choice(NAMES)}"

    def folder(self):
        """Often the top, or one with an album: there the most can go wrong."""
        folders = below(P, True)
        albums = [path for path in folders if album_of(path)]
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
                self.captions[path, stream] = f"{stream} typed in, no. {self.name()}".encode("utf-8", "replace").decode()
                hand_over(path, stream, self.captions[path, stream])
        return path

    def add_file(self):
        return [f"{self.chance.choice('aA')}:{self.type_in(self.put(self.folder()))}"]

    def add_tree(self):
        top = f"{self.folder()}/{self.name()}"
        for place in (top, f"{top}/{self.name()}", f"{top}/{self.name()}/{self.name()}"):
            os.makedirs(place)
            for _ in range(3):
                self.type_in(self.put(place))
        public = self.chance.random() < 0.5
        if os.path.dirname(top) == P:
            hand_over(top, "PUBLIC", "1\n" if public else "0")
        self.made(top, public)
        return [f"A:{top}"]

    def make_folder(self):
        os.mkdir(path := f"{self.folder()}/{self.name()}")
        self.made(path)
        return [f"a:{path}"]

    def move(self, old=None, place=None):
        old = old or self.something()
        place = place or self.chance.choice((self.folder(), P if is_at(old, BIN) else os.path.dirname(old)))
        new = f"{place}/{self.name()}"
        if os.path.isfile(old):
            new += os.path.splitext(old)[1] if self.chance.random() < 0.8 else self.chance.choice((".txt", ".jpg"))
            alike = [path for path in below(P, False) if path[-4:] == old[-4:] and min(map(os.path.getsize, (path, old)))]
            if alike and self.chance.random() < 0.3:
                new = self.chance.choice(alike)  # takes another file's place
        if is_at(new, old):
            return []
        os.rename(old, new)
        self.renamed(new, old)
        return [f"N:{new}:{old}"]

    def move_album(self):
        albums = [f"{P}/{name}" for name in self.albums if os.path.isdir(f"{P}/{name}")]
        return self.move(self.chance.choice(albums), self.chance.choice([P] + [path for path in albums if path.count("/") == 3]))

    def enter(self):
        """From another share, or out of the recycle bin."""
        namesake = f"{OUT}/{self.chance.choice(list(self.albums))}"  # of an album, in the other share
        if not os.path.exists(namesake):
            os.makedirs(namesake)
            self.put(namesake)
        outside = [f"{place}/{name}" for place in (OUT, BIN) for name in os.listdir(place)]
        return [f"A:{OUT}"] + self.move(self.chance.choice([namesake] + outside))

    def leave(self):
        old = self.something()
        new = f"{self.chance.choice((OUT, BIN))}/{self.name()}{os.path.splitext(old)[1] if os.path.isfile(old) else ''}"
        os.rename(old, new)
        self.gone(old)
        return [f"N:{new}:{old}"] * is_at(new, OUT) + [f"D:{old}"]

    def delete(self):
        path = self.something()
        self.gone(path)
        code = "D" if os.path.isdir(path) else self.chance.choice("dD")
        subprocess.run(["rm", "-rf", path], check=True)
        return [f"{code}:{path}"]

    def change(self):
        path = self.chance.choice([path for path in below(P, False) if path.endswith(".jpg")] or [self.put(P) + ".jpg"])
        shutil.copyfile(f"{harness.SAMPLES}/photo/Семья/IMG_5000.jpg", path)
        return [f"{self.chance.choice('aA')}:{path}"]

    def type_in_later(self):
        path = self.type_in(self.something())
        line = self.chance.choice((f"A:{os.path.dirname(path)}", "U:photo", "R:photo"))
        if line.startswith("A:"):
            self.made(os.path.dirname(path))
        return [line]

    def work_in_application(self):
        self.count += 1
        for name in [name for name in self.albums if self.chance.random() < 0.4]:
            by_hand("UPDATE photo_share SET title = ?2, cover = '/var/services/photo/' || sharename || '/' || sharename"
                    " || '/.jpg' WHERE CAST(sharename AS BLOB) = ?1", name, self.count)
            by_hand("INSERT INTO photo_access_right SELECT ?2, shareid, '' FROM photo_share"
                    " WHERE CAST(sharename AS BLOB) = ?1", name, self.count)
            self.albums[name].update(title=str(self.count), cover=f"/var/services/photo/{name}/{name}/.jpg")
            self.albums[name]["users"].add(self.count)
        for path in [path for path in below(P, False) if path.endswith(".mp4") and path not in self.texts]:
            by_hand("INSERT INTO video_desc (path, title) VALUES (CAST(?1 AS TEXT), ?2)", path, self.count)
            self.texts[path] = str(self.count)
        return []

    def work_unannounced(self):
        """Nobody tells: a rebuild finds out. To it a moved file is a new one."""
        path = self.something()
        self.gone(path)
        os.rename(path, f"{BIN}/{self.name()}")
        self.add_tree()
        return ["R:photo", "R:everything"]


class Sequences(harness.DaemonTest):
    def state(self):
        """What the tables hold, ids apart, and without the times of rows that a rename carries along unread."""
        tables = appliance.MEDIA_TABLES + ("photo_info",)
        rows = {(table, row["path"]): row for table in tables for row in appliance.rows(table)}
        for (table, _), row in rows.items():
            if table == "photo_info":
                del row["ctime"]
                if "-" in row["date_taken"]:  # the file's, for want of the picture's own
                    del row["date_taken"]
        return rows

    def albums(self):
        rows, rights = appliance.rows("photo_share"), appliance.rows("photo_access_right")
        for row in rows:
            self.assertEqual((row["is_subdir"], row["updated"]), ("t" if "/" in row["sharename"] else "f", 1), row)
        self.assertEqual({right["shareid"] for right in rights} - {row["shareid"] for row in rows}, set())
        return {row["sharename"]: {"public": row["public"] == "t", "title": row["title"], "cover": row["cover"],
                                   "users": {r["userid"] for r in rights if r["shareid"] == row["shareid"]}} for row in rows}

    def check(self, people, when):
        self.assertEqual(difference(self.albums(), people.albums), {}, when)
        texts = {row["path"]: row["title"] for row in appliance.rows("video_desc")}
        self.assertEqual(difference(texts, people.texts), {}, when)

    def test_changes_end_in_the_rows_of_a_fresh_index(self):
        weights = {"add_file": 3, "add_tree": 2, "make_folder": 1, "move": 5, "move_album": 4, "enter": 3, "leave": 2, "delete": 2,
                   "change": 1, "type_in_later": 2, "work_in_application": 3, "work_unannounced": 1}
        for seed in range(SEQUENCES):
            self.clean()
            os.mkdir(BIN)
            self.index(*harness.EVERYTHING)
            people, done = People(seed), []
            for kind in ["add_tree"] * 3 + people.chance.choices(list(weights), weights.values(), k=30):
                done += (lines := getattr(people, kind if people.albums and below(P, False) else "add_tree")())
                self.index(*lines)
                if "R:photo" in lines:
                    people.resynced()
                self.check(people, (seed, lines))
            self.assertEqual(harness.glob.glob(f"{P}/**/KOLIPHOTO:*", recursive=True), [])
            live = self.state()
            self.index("U:photo", "R:photo")
            self.assertEqual(difference(self.state(), live), {}, seed)
            people.resynced()
            self.check(people, (seed, "resync"))

            self.forget_everything()
            for (path, stream), text in people.captions.items():
                hand_over(path, stream, text)
            self.index(*harness.EVERYTHING)
            self.assertEqual(difference(live, self.state()), {}, (seed, done))
            self.assertEqual(set(self.albums()), set(people.albums))


class Trouble(harness.DaemonTest):
    def library_rows(self):
        """Both stores' pictures, and the albums."""
        albums = sorted(row["sharename"] for row in appliance.rows("photo_share"))
        return self.paths("photo"), self.paths("photo_info"), albums

    def put_album(self, name):
        return self.put(f"{P}/{name}/sub/x.jpg", PICTURE)

    def test_what_is_out_of_reach_keeps_its_rows(self):
        photos = [self.put_album(name) for name in ("gone", "locked", "open")]
        self.index(f"A:{P}")
        before, daemon = self.library_rows(), self.binary
        self.binary = "/tmp/without-override"  # to root, nothing is out of reach
        with open(self.binary, "w") as file:
            file.write(f"#!/bin/sh\nexec setpriv --bounding-set=-dac_override,-dac_read_search '{daemon}'\n")
        os.chmod(self.binary, 0o755)
        os.chmod(f"{P}/locked", 0o600)
        shutil.rmtree(f"{P}/gone")
        for target, named in (("/volume1/nowhere", "/volume1/nowhere"), (LINK, LINK), (P, f"{P}/locked")):
            os.unlink(LINK)
            os.symlink(target, LINK)
            self.assertIn(f"Failed to open directory {named} ", "\n".join(self.index("R:photo", "U:photo")))
            self.assertEqual(self.library_rows(), before, target)
        os.chmod(f"{P}/locked", 0o755)
        self.index("R:photo")
        self.assertEqual(self.library_rows()[1:], (photos[1:], ["locked", "locked/sub", "open", "open/sub"]))

    def test_a_conversion_queue_that_somebody_holds(self):
        queue_file = "/var/spool/thumb_create.queue"
        with open("/run/kolimkthumbd.pid", "w") as file:
            file.write("1")  # the sandbox's first process, which takes no signal
        first, second = self.put_album("A"), self.put_album("B")
        self.index(f"a:{first}")
        with open(queue_file, "r+") as queue:
            fcntl.flock(queue, fcntl.LOCK_EX)
            appliance.enqueue([f"a:{second}"])
            self.start()
            harness.wait_for("the row, while the daemon waits", lambda: len(self.library_rows()[1]) == 2)
            self.assertTrue(os.path.exists(appliance.BATCH))
            queue.seek(0, os.SEEK_END)
            print("somebody else's", file=queue, flush=True)
            fcntl.flock(queue, fcntl.LOCK_UN)
            appliance.wait_for_batch(harness.PATIENCE)
            queue.seek(0)
            self.assertEqual(queue.read().splitlines(), [f"{P}/A/sub", "somebody else's", f"{P}/B/sub"])


if __name__ == "__main__":
    harness.main()
