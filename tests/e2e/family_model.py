"""A family at work in its photo share, and what it expects the photo library to know afterwards."""
import os
import shutil
import sqlite3

from harness import appliance, hand_over

P, BIN = "/volume1/photo", "/volume1/photo/#recycle"
FOLDERS = ("Trip", "Trip2", "Trip 2", "Urlaub", "v1.2", "O'Brien_%")
PICTURES = ("a.jpg", "a.jpe", "a.jpeg", "b.jpg")
VIDEOS = ("v.mp4", "w.mp4")
TINY = bytes.fromhex("ffd8ffc0000b080001000101011100ffd9")  # one pixel


def is_at(path, top):
    return path == top or path.startswith(top + "/")


def level(path):
    """0 and 1 are albums."""
    return path[len(P) + 1:].count("/")


def stem(path):
    return os.path.basename(path).rpartition(".")[0]


class Thing:
    """A folder, picture or video of the share. `known` has a row since an earlier batch; `asked` gets one by the
    requests of this batch, at the place where it is now. `mixed`: a request for its path was there before itself."""

    def __init__(self, path, flag=None):
        self.path, self.flag = path, flag
        self.known = self.asked = self.mixed = self.deep = False
        self.texts, self.pending, self.options = {}, {}, {}  # by stream; options: what a row may say for it, too
        self.album = None  # public, description, users; None: as a new one
        self.is_video, self.is_photo = path.endswith(".mp4"), path.rpartition(".")[2] in ("jpg", "jpe", "jpeg")
        self.is_folder = not self.is_video and not self.is_photo

    def is_album(self):
        return self.is_folder and level(self.path) < 2 and not is_at(self.path, BIN)

    def own(self, stream):
        return self.texts.get(stream, stem(self.path) if stream == "TITLE" else "")

    def caption_file(self, stream):
        folder, name = os.path.split(self.path)
        return f"{folder}/@eaDir/{name}/KOLIPHOTO:{stream}"


class Ghost:
    """What was deleted. Its rows stay when something stands at its place again before the batch is executed."""

    def __init__(self, thing, top):
        self.thing, self.top, self.paths = thing, top, {thing.path}


class Family:
    """Each change is a call of do(), so that a history can be told again. `lines` is what a cooperating program asks
    for on the way."""

    def __init__(self, after_each=lambda: None):
        self.things, self.ghosts, self.history, self.count = {}, [], [], 0
        self.after_each, self.lines = after_each, []
        os.makedirs(BIN, exist_ok=True)
        self.begin()

    def begin(self):
        """The next batch. What is deleted for good, or swept, leaves nothing behind."""
        if self.is_swept():
            self.ghosts = []
        self.ghosts = [ghost for ghost in self.ghosts if not ghost.top or os.path.exists(ghost.top)]
        for ghost in self.ghosts:
            ghost.top = ""
        for thing in self.things.values():
            thing.asked = thing.mixed = False
            thing.options = {}
        self.lines, self.requested, self.visitors, self.flags = [], [], {}, {None}

    def do(self, name, *arguments):
        self.history.append((name, *arguments))
        getattr(self, name)(*arguments)
        self.after_each()

    def below(self, top):
        return [thing for path, thing in sorted(self.things.items()) if is_at(path, top)]

    # --- The changes

    def arrive(self, thing, path):
        thing.path = path
        thing.mixed = any(is_at(path, asked) for asked in self.requested)
        self.things[path] = thing
        self.visitors.setdefault(path, []).append(thing)

    def make(self, path, flag=None):
        """A folder, or an empty-looking file; whether a new album is to be public may be said with it."""
        if path in self.things or os.path.dirname(path) not in (P, *self.things):
            return
        thing = Thing(path, flag)
        if thing.is_folder:
            os.mkdir(path)
            self.flags.add(flag)
            if flag is not None:
                hand_over(path, "PUBLIC", str(int(flag)))
        else:
            with open(path, "wb") as file:
                file.write(TINY)
        self.arrive(thing, path)

    def caption(self, path, stream, text):
        if path in self.things:
            hand_over(path, stream, text)
            os.utime(path)  # so that a watcher hears of it
            self.things[path].pending[stream] = text

    def ask(self, code, path):
        self.lines.append(f"{code}:{path}")
        self.requested.append(path)
        for thing in self.below(path) if path != P else self.things.values():
            thing.asked = not is_at(thing.path, BIN)

    def move(self, old, new):
        """The metadata beside a file goes with it, as every file service does it."""
        if old not in self.things or is_at(new, old) or os.path.dirname(new) not in (P, BIN, *self.things):
            return
        if new in self.things:
            if self.things[old].is_folder or self.things[new].is_folder:
                return
            self.delete(new, [])
        moved, is_folder = self.below(old), self.things[old].is_folder
        rows = [thing.path for thing in self.things.values() if thing.known and not thing.is_video]
        rows += [path for ghost in self.ghosts for path in ghost.paths]
        has_rows = any(path.startswith(old + "/" * is_folder) for path in rows) or self.things[old].known
        has_rows = has_rows or any(is_at(old, path) or is_at(path, old) for path in self.requested)
        for thing in moved:
            self.visitors.setdefault(thing.path, []).append(thing)
            thing.asked = not thing.known and thing.asked and not has_rows
            thing.deep = thing.deep or level(thing.path) > 1
            del self.things[thing.path]
        for thing in moved:
            self.arrive(thing, new + thing.path[len(old):])
            thing.deep = thing.deep or level(thing.path) > 1
        if is_folder and not self.things[new].known:
            self.things[new].asked = True
        for ghost in self.ghosts:
            ghost.paths |= {new + path[len(old):] for path in ghost.paths if is_at(path, old)}
        os.rename(old, new)
        beside = [f"{os.path.dirname(path)}/@eaDir/{os.path.basename(path)}" for path in (old, new)]
        if os.path.isdir(beside[0]):
            os.makedirs(os.path.dirname(beside[1]), exist_ok=True)
            os.rename(*beside)
        self.lines.append(f"N:{new}:{old}")
        self.requested.append(new)

    def delete(self, path, lines=None):
        if path not in self.things:
            return
        for thing in self.below(path):
            self.visitors.setdefault(thing.path, []).append(thing)
            self.ghosts.append(Ghost(thing, path))
            del self.things[thing.path]
        shutil.rmtree(f"{os.path.dirname(path)}/@eaDir/{os.path.basename(path)}", ignore_errors=True)
        if os.path.isdir(path):
            shutil.rmtree(path)
            self.lines.append(f"D:{path}")
        else:
            os.unlink(path)
            self.lines += [f"d:{path}"] if lines is None else lines

    def resync(self):
        self.ask("R", P)
        self.lines[-1] = "R:photo"

    def is_swept(self):
        """Nothing but what exists has rows after this batch."""
        return self.lines[-1:] == ["R:photo"]

    def update(self):
        """Of pictures alone."""
        albums = [thing for thing in self.things.values() if thing.is_folder and not thing.asked]
        self.ask("U", P)
        self.lines[-1] = "U:photo"
        for thing in albums:
            thing.asked = False

    def open_up(self, path, public, description, users):
        """In the photo application, which knows the albums as the last batch has left them."""
        if path not in self.things or not self.things[path].known:
            return
        name = path[len(P) + 1:]
        with appliance.change("photo") as database:
            database.execute("UPDATE photo_share SET public = ?, description = ? WHERE sharename = ?",
                             ("ft"[public], description, name))
            album = "(SELECT shareid FROM photo_share WHERE sharename = ?)"
            database.execute(f"DELETE FROM photo_access_right WHERE shareid = {album}", (name,))
            for user in users:
                database.execute(f"INSERT INTO photo_access_right VALUES (?, {album}, '')", (user, name))
        self.things[path].album = (public, description, frozenset(users))

    def tell(self, path, text):
        """Of a video: a description, and two comments."""
        if path not in self.things or not self.things[path].known or "video" in self.things[path].texts:
            return
        with appliance.change("photo") as database:
            database.execute("REPLACE INTO video_desc (path, title) VALUES (?, ?)", (path, text))
            for time in ("1", "2"):
                database.execute("INSERT INTO video_comment (path, time, comment) VALUES (?, ?, ?)", (path, time, text))
        self.things[path].texts["video"] = text

    # --- What they do

    def work(self, chance):
        for path, thing in sorted(self.things.items()):
            if thing.is_album() and thing.known and chance.random() < 0.2:
                self.do("open_up", path, chance.random() < 0.3, self.text("album"),
                        [self.count, 1] if chance.random() < 0.7 else [])
            if thing.is_video and not is_at(path, BIN) and chance.random() < 0.5:
                self.do("tell", path, self.text("video"))

    def places(self, chance):
        """Where folders may go: mostly the top, or an album."""
        return chance.choice([[P]] * 3 + [[path for path, t in self.things.items() if t.is_album()]] * 2
                             + [[path for path, t in self.things.items() if t.is_folder and not is_at(path, BIN)]])

    def some(self, chance, wanted):
        found = sorted(path for path, thing in self.things.items() if wanted(thing) and not is_at(path, BIN))
        return chance.choice(found) if found else f"{P}/-"

    def text(self, kind):
        self.count += 1
        return f"{kind} {self.count}"

    def act(self, chance):
        """One thing that somebody does."""
        weights = {"upload": 4, "album": 4, "rename": 4, "shift": 4, "shift_file": 5, "swap": 2, "swap_files": 2,
                   "chain": 3, "replace": 2, "into_bin": 3, "restore": 4, "remove": 2, "remove_file": 2, "recreate": 1,
                   "describe": 2, "walk": 1}
        getattr(self, chance.choices(list(weights), weights.values())[0])(chance)

    def folder(self, chance):
        return self.some(chance, lambda thing: thing.is_folder and (thing.is_album() or chance.random() < 0.2))

    def file(self, chance):
        return self.some(chance, lambda thing: not thing.is_folder)

    def place(self, chance):
        return chance.choice(sorted(self.places(chance)) or [P])

    def upload(self, chance, place=None):
        folder = place or self.folder(chance)
        for name in chance.sample(PICTURES + VIDEOS, chance.randint(1, 2)):
            path = f"{folder}/{name}"
            if folder not in self.things or path in self.things:
                continue
            self.do("make", path)
            if name in PICTURES:
                for stream in chance.sample(["TITLE", "DESC"], chance.randint(0, 2)):
                    self.do("caption", path, stream, self.text(stream))
            if place is None:
                self.do("ask", "a", path)

    def album(self, chance, path=None):
        path = path or f"{self.place(chance)}/{chance.choice(FOLDERS)}"
        if path in self.things:
            return
        self.do("make", path, chance.choice((None, False, True)) if not level(path) else None)
        self.upload(chance, path)
        if chance.random() < 0.5:
            inside = f"{path}/{chance.choice(FOLDERS)}"
            self.do("make", inside)
            self.upload(chance, inside)
        self.do("ask", "A", path)

    def rename(self, chance):
        old = self.folder(chance)
        for _ in range(chance.choice((1, 1, 1, 2))):
            new = f"{os.path.dirname(old)}/{chance.choice(FOLDERS)}"
            if new not in self.things:
                self.do("move", old, new)
                old = new

    def shift(self, chance):
        old, new = self.folder(chance), f"{self.place(chance)}/{chance.choice(FOLDERS)}"
        if new not in self.things:
            self.do("move", old, new)

    def shift_file(self, chance):
        """Often over another one of that name."""
        old = self.file(chance)
        folder = chance.choice((os.path.dirname(old), self.folder(chance)))
        names = VIDEOS if old.endswith("mp4") else PICTURES
        self.do("move", old, f"{folder}/{chance.choice(names + (os.path.basename(old),))}")

    def swap(self, chance, one=None, other=None):
        one, other = one or self.folder(chance), other or self.folder(chance)
        if is_at(one, other) or is_at(other, one) or one not in self.things or other not in self.things:
            return
        between = f"{os.path.dirname(one)}/between" + (os.path.splitext(one)[1] if not os.path.isdir(one) else "")
        for step in ((one, between), (other, one), (between, other)):
            self.do("move", *step)

    def swap_files(self, chance):
        one = self.file(chance)
        self.swap(chance, one, self.some(chance, lambda thing: thing.path[-4:] == one[-4:]))

    def chain(self, chance):
        """One goes, the next takes its name."""
        first, second = self.folder(chance), self.folder(chance)
        new = f"{os.path.dirname(first)}/{chance.choice(FOLDERS)}"
        if new not in self.things and not is_at(second, first) and not is_at(first, second):
            self.do("move", first, new)
            self.do("move", second, first)

    def replace(self, chance):
        first, second = self.folder(chance), self.folder(chance)
        if not is_at(second, first) and not is_at(first, second):
            self.do("delete", first)
            self.do("move", second, first)

    def into_bin(self, chance):
        old = chance.choice((self.folder, self.file))(chance)
        new = f"{BIN}/{os.path.basename(old)}"
        if new in self.things:
            self.do("delete", new)
        self.do("move", old, new)

    def restore(self, chance):
        binned = sorted(path for path in self.things if os.path.dirname(path) == BIN)
        if binned:
            old = chance.choice(binned)
            place = self.place(chance) if self.things[old].is_folder else self.folder(chance)
            new = f"{place}/{os.path.basename(old)}"
            if new not in self.things:
                self.do("move", old, new)

    def remove(self, chance):
        self.do("delete", self.folder(chance))

    def remove_file(self, chance):
        self.do("delete", self.file(chance))

    def recreate(self, chance):
        path = self.folder(chance)
        if path in self.things:
            self.do("delete", path)
            self.album(chance, path)

    def describe(self, chance):
        path = self.some(chance, lambda thing: thing.is_photo)
        self.do("caption", path, chance.choice(("TITLE", "DESC")), self.text("later"))
        self.do("ask", "a", path)

    def walk(self, chance):
        self.do(*chance.choice((("ask", "A", P), ("update",), ("resync",))))
