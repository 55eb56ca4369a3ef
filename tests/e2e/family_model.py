"""A family at work in its photo share, and what it knows of its things."""
import os
import shutil

from harness import appliance, hand_over

P, BIN = "/volume1/photo", "/volume1/photo/#recycle"
FOLDERS = ("Trip", "Trip2", "Trip 2", "Urlaub", "v1.2", "O'Brien_%")
PICTURES, VIDEOS = ("a.jpg", "a.jpe", "a.jpeg", "b.jpg"), ("v.mp4", "w.mp4")
ONE_PIXEL = bytes.fromhex("ffd8ffc0000b080001000101011100ffd9")
WEIGHTS = {"upload": 4, "album": 4, "shift": 8, "shift_file": 5, "swap": 2, "swap_files": 2, "follow": 3, "replace": 2,
           "into_bin": 3, "restore": 4, "remove": 4, "recreate": 1, "describe": 2, "walk": 2}


def is_at(path, top):
    return path == top or path.startswith(top + "/")


def level(path):
    return path[len(P) + 1:].count("/")


class Thing:
    """A folder, picture or video. `known`: has a row since an earlier batch; `asked`: gets one, and what was handed
    over for it, by a request of this batch; `mixed`: something else was asked for at its path before it came there."""

    def __init__(self, path, flag=None):
        self.path, self.flag, self.album = path, flag, None  # public, description, users; None: as a new one
        self.known = self.asked = self.mixed = self.deep = False
        self.around = None  # the album that it was in, too deep to be one
        self.texts, self.pending, self.options = {}, {}, {}  # by stream: text, text to come, others that it may have
        self.is_video, self.is_photo = path.endswith(VIDEOS), path.endswith(PICTURES)
        self.is_folder = not self.is_video and not self.is_photo
        # Of a ghost, that is, of what was thrown away: its rows, at these paths, stay when something is at `top` again
        # before the batch is executed.
        self.top, self.paths = path, set()

    def is_album(self):
        return self.is_folder and level(self.path) < 2 and not is_at(self.path, BIN)

    def own(self, stream):
        name = os.path.basename(self.path).rpartition(".")[0]
        return self.texts.get(stream, name if stream == "TITLE" else "")

    def beside(self, stream=""):
        folder, name = os.path.split(self.path)
        return f"{folder}/@eaDir/{name}" + f"/KOLIPHOTO:{stream}" * bool(stream)


class Family:
    """All that happens is a call of do(): `history` can be told again. `lines` is what a cooperating program asks for
    in the course of it."""

    def __init__(self, after_each):
        self.after_each, self.things, self.ghosts, self.lines, self.count = after_each, {}, [], [], 0
        os.makedirs(BIN, exist_ok=True)
        self.begin()

    def begin(self):
        """The next batch. What is gone for good, or swept, leaves nothing behind."""
        self.ghosts = [ghost for ghost in self.ghosts if not self.is_swept() and os.path.exists(ghost.top)]
        for ghost in self.ghosts:
            ghost.top = P
        for thing in self.things.values():
            thing.asked, thing.mixed, thing.options = False, False, {}
        self.history, self.lines, self.requested, self.steps, self.visitors = [], [], [], [], {}

    def do(self, name, *arguments):
        self.history.append((name, *arguments))
        getattr(self, name)(*arguments)
        self.after_each()

    def is_swept(self):
        """Nothing but what there is has rows after this batch."""
        return self.lines[-1:] == ["R:photo"]

    def below(self, top):
        return [thing for path, thing in sorted(self.things.items()) if is_at(path, top)]

    def is_place(self, path):
        return path in (P, BIN) or path in self.things and self.things[path].is_folder

    # --- What happens

    def arrive(self, thing, path):
        thing.path, self.things[path] = path, thing
        thing.mixed = any(is_at(path, asked) for asked in self.requested)
        thing.deep = thing.deep or level(path) > 1
        self.visitors.setdefault(path, []).append(thing)

    def make(self, path, flag=None):
        if path in self.things or not self.is_place(os.path.dirname(path)):
            return
        thing = Thing(path, flag)
        if thing.is_folder:
            os.mkdir(path)
        else:
            with open(path, "wb") as file:
                file.write(ONE_PIXEL)
        if flag is not None:
            hand_over(path, "PUBLIC", str(int(flag)))
        self.arrive(thing, path)

    def caption(self, path, stream, text):
        if path in self.things:
            hand_over(path, stream, text)
            os.utime(path)  # a watcher hears of it
            self.things[path].pending[stream] = text

    def ask(self, code, path, line=None):
        self.lines.append(line or f"{code}:{path}")
        self.requested.append(path)
        for thing in self.things.values():
            if is_at(thing.path, path) and not is_at(thing.path, BIN) and (code != "U" or not thing.is_folder):
                thing.asked = True

    def move(self, old, new):
        """Over another file, too. What lies beside it goes along, as with every file service."""
        if old not in self.things or is_at(new, old) or not self.is_place(os.path.dirname(new)):
            return
        thing = self.things[old]
        if new in self.things and (thing.is_folder or self.things[new].is_folder):
            return
        self.delete(new, says=False)
        rows = [other.path for other in self.things.values() if other.known and not other.is_video]
        rows += [path for ghost in self.ghosts for path in ghost.paths]
        has_rows = (thing.known or any(path.startswith(old + "/" * thing.is_folder) for path in rows)
                    or any(is_at(old, path) or is_at(path, old) for path in self.requested))
        beside, moved = thing.beside(), self.below(old)
        for other in moved:
            if level(other.path) > 1:
                top = os.path.dirname(other.path)
                while level(top) > 1:
                    top = os.path.dirname(top)
                other.around = self.things.get(top)
        os.rename(old, new)
        for other in moved:
            other.asked = other.asked and not other.known and not has_rows
            self.visitors.setdefault(other.path, []).append(self.things.pop(other.path))
        for other in moved:
            self.steps.append((other, old, other.path, new + other.path[len(old):]))
            self.arrive(other, self.steps[-1][-1])
        thing.asked = thing.asked or thing.is_folder and not thing.known
        for ghost in self.ghosts:
            ghost.paths |= {new + path[len(old):] for path in ghost.paths if is_at(path, old)}
        if os.path.isdir(beside):
            os.makedirs(os.path.dirname(thing.beside()), exist_ok=True)
            os.rename(beside, thing.beside())
        self.lines.append(f"N:{new}:{old}")
        self.requested.append(new)

    def delete(self, path, says=True):
        gone = self.below(path)
        for thing in gone:
            self.visitors.setdefault(thing.path, []).append(self.things.pop(thing.path))
            thing.top, thing.paths = path, {thing.path}
            self.ghosts.append(thing)
        if gone:
            shutil.rmtree(gone[0].beside(), ignore_errors=True)
            shutil.rmtree(path) if gone[0].is_folder else os.unlink(path)
            self.lines += [f"{'D' if gone[0].is_folder else 'd'}:{path}"] * says

    def open_up(self, path, public, description, users):
        """In the photo application, which knows the albums as the last batch has left them."""
        if path not in self.things or not self.things[path].known:
            return
        name, album = path[len(P) + 1:], "(SELECT shareid FROM photo_share WHERE sharename = ?)"
        with appliance.change("photo") as database:
            database.execute("UPDATE photo_share SET public = ?, description = ? WHERE sharename = ?",
                             ("ft"[public], description, name))
            database.execute(f"DELETE FROM photo_access_right WHERE shareid = {album}", (name,))
            for user in users:
                database.execute(f"INSERT INTO photo_access_right VALUES (?, {album}, '')", (user, name))
        self.things[path].album = (public, description, frozenset(users))

    def tell(self, path, text):
        """Describes a video, and comments on it."""
        if path not in self.things or not self.things[path].known:
            return
        with appliance.change("photo") as database:
            database.execute("INSERT INTO video_desc (path, title) VALUES (?, ?)"
                             " ON CONFLICT (path) DO UPDATE SET title = excluded.title", (path, text))
            database.execute("INSERT INTO video_comment (path, comment) VALUES (?, ?)", (path, text))
        self.things[path].texts["video"] = text

    # --- What they do, by chance

    def act(self, chance):
        getattr(self, chance.choices(list(WEIGHTS), WEIGHTS.values())[0])(chance)

    def text(self, kind):
        self.count += 1
        return f"{kind} {self.count}"

    def one(self, chance, wanted):
        found = [path for path, thing in sorted(self.things.items()) if wanted(thing) and not is_at(path, BIN)]
        return chance.choice(found or [f"{P}/-"])

    def folder(self, chance):
        return self.one(chance, lambda thing: thing.is_folder and (thing.is_album() or chance.random() < 0.2))

    def file(self, chance, end=(".jpg", ".jpe", ".jpeg", ".mp4")):
        return self.one(chance, lambda thing: thing.path.endswith(end))

    def free_name(self, chance, near=P):
        """The empty name of a folder in none."""
        place = chance.choice((P, near, self.folder(chance)))
        return f"{place}/{chance.choice([name for name in FOLDERS if f'{place}/{name}' not in self.things] or ['-'])}"

    def work(self, chance):
        """In the photo application."""
        for path, thing in sorted(self.things.items()):
            if thing.is_album() and chance.random() < 0.2:
                users = [self.count, 1] * (chance.random() < 0.7)
                self.do("open_up", path, chance.random() < 0.3, self.text("album"), users)
            elif thing.is_video and "video" not in thing.texts and not is_at(path, BIN):
                self.do("tell", path, self.text("video"))

    def upload(self, chance, folder=None):
        place = folder or self.folder(chance)
        for name in chance.sample(PICTURES + VIDEOS, chance.randint(1, 2)):
            path = f"{place}/{name}"
            if path in self.things or not self.is_place(place):
                continue
            self.do("make", path)
            for stream in chance.sample(["TITLE", "DESC"], chance.randint(0, 2)) if name in PICTURES else []:
                self.do("caption", path, stream, self.text(stream))
            if folder is None:
                self.do("ask", "a", path)

    def album(self, chance, path=None):
        path = path or self.free_name(chance)
        for folder in (path, f"{path}/{chance.choice(FOLDERS)}")[:chance.randint(1, 2)]:
            self.do("make", folder, None if level(folder) else chance.choice((None, False, True)))
            self.upload(chance, folder)
        self.do("ask", "A", path)

    def shift(self, chance):
        old = self.folder(chance)
        for _ in range(chance.choice((1, 1, 1, 2))):
            new = self.free_name(chance, os.path.dirname(old))
            self.do("move", old, new)
            old = new

    def shift_file(self, chance):
        old = self.file(chance)
        place = chance.choice((os.path.dirname(old), self.folder(chance)))
        self.do("move", old, f"{place}/{chance.choice(VIDEOS if old.endswith(VIDEOS) else PICTURES)}")

    def exchange(self, one, other):
        between = f"{os.path.dirname(one)}/between{os.path.splitext(one)[1] if os.path.isfile(one) else ''}"
        if not is_at(one, other) and not is_at(other, one):
            for step in ((one, between), (other, one), (between, other)):
                self.do("move", *step)

    def swap(self, chance):
        self.exchange(self.folder(chance), self.folder(chance))

    def swap_files(self, chance):
        one = self.file(chance)
        self.exchange(one, self.file(chance, os.path.splitext(one)[1] or "-"))

    def follow(self, chance):
        """One goes, the next one takes its name."""
        first, second = self.folder(chance), self.folder(chance)
        self.do("move", first, self.free_name(chance, os.path.dirname(first)))
        self.do("move", second, first)

    def replace(self, chance):
        first, second = self.folder(chance), self.folder(chance)
        if not is_at(second, first):
            self.do("delete", first)
            self.do("move", second, first)

    def into_bin(self, chance):
        old = chance.choice((self.folder, self.file))(chance)
        self.do("delete", f"{BIN}/{os.path.basename(old)}")
        self.do("move", old, f"{BIN}/{os.path.basename(old)}")

    def restore(self, chance):
        old = chance.choice([path for path in sorted(self.things) if os.path.dirname(path) == BIN] or [BIN])
        self.do("move", old, f"{chance.choice((P, self.folder(chance)))}/{os.path.basename(old)}")

    def remove(self, chance):
        self.do("delete", chance.choice((self.folder, self.file))(chance))

    def recreate(self, chance):
        path = self.folder(chance)
        self.do("delete", path)
        self.album(chance, path)

    def describe(self, chance):
        path = self.file(chance, PICTURES)
        self.do("caption", path, chance.choice(("TITLE", "DESC")), self.text("later"))
        self.do("ask", "a", path)

    def walk(self, chance):
        self.do("ask", *chance.choice((("A", P), ("U", P, "U:photo"), ("R", P, "R:photo"))))
