"""A model of a disk that loses what was not synced when the power is cut.

What a file's writes and truncations have changed since its last fsync or fdatasync, or the last syncfs or sync, may be
lost: all of it, or any one write. What was created, renamed or removed may be lost until the folder that it is named in
(of a rename, the new one) is synced, or everything is; that a file was synced does not make its name durable. Changes of
names are kept in their order: when one is lost, so are the later ones that are not durable. Of a file whose name is
kept and whose writes are lost an empty file is left. All that is in memory only, /run and the index of a write-ahead
log, is gone. Not modelled: half a write, a disk that lies about a sync."""
import dataclasses
import os
import stat

NEVER = 1 << 60


@dataclasses.dataclass
class Change:
    kind: str  # data, size: of a file's content; name, gone, move: of names
    node: tuple
    path: str
    value: object  # data: offset and bytes; size: a number; move: the old path
    begun: int  # when it was made, and from when on it is durable
    durable: int = NEVER

    def is_name(self):
        return self.kind in ("name", "gone", "move")


class Disk:
    """At its start the real disk holds the given state, all of it durable."""

    def __init__(self, roots, is_volatile, state):
        self.roots, self.is_volatile, self.changes, self.now, self.existed = roots, is_volatile, [], 0, False
        self.names, self.content = {}, {}  # at the start: node by path; content and time of change by node
        for path, value in state.items():
            self.names[path] = node = node_of(os.lstat(path))
            self.content[node] = value

    def is_ours(self, path):
        return path.startswith(tuple(root + "/" for root in self.roots)) and not self.is_volatile(path)

    def before(self, call):
        self.existed = bool(call.paths) and os.path.lexists(call.paths[-1])
        self.node = node_of(os.lstat(call.paths[0])) if call.paths and os.path.lexists(call.paths[0]) else None

    def note(self, kind, node, path, value=None):
        self.now += 1
        self.changes.append(Change(kind, node, path, value, self.now))

    def after(self, call, result):
        """A call that has succeeded."""
        name, paths = call.name, call.paths
        if name in ("sync", "syncfs"):
            self.sync(lambda change: True)
        elif name in ("fsync", "fdatasync"):
            descriptor = f"/proc/{call.pid}/fd/{call.arguments[0]}"
            status = os.stat(descriptor)
            if stat.S_ISDIR(status.st_mode):
                self.sync(lambda change: change.is_name() and os.path.dirname(change.path) == paths[0])
            else:
                self.sync(lambda change: not change.is_name() and change.node == node_of(status))
        elif any(map(self.is_ours, paths)):
            self.change(call, result, name, paths[-1])

    def sync(self, includes):
        self.now += 1
        for change in self.changes:
            if includes(change):
                change.durable = min(change.durable, self.now)

    def change(self, call, result, name, path):
        if name in ("write", "pwrite64", "writev"):
            number = call.arguments[0]
            offset = call.arguments[3] if name == "pwrite64" else position(call.pid, number) - result
            with open(f"/proc/{call.pid}/fd/{number}", "rb") as file:
                file.seek(offset)
                self.note("data", node_of(os.fstat(file.fileno())), path, (offset, file.read(result)))
        elif name in ("ftruncate", "fallocate"):
            status = os.stat(f"/proc/{call.pid}/fd/{call.arguments[0]}")
            self.note("size", node_of(status), path, status.st_size)
        elif name in ("open", "openat", "creat"):
            status = os.stat(f"/proc/{call.pid}/fd/{result}")
            if not self.existed:
                self.note("name", node_of(status), path, b"")
            elif call.arguments[1 if name == "open" else 2] & os.O_TRUNC:
                self.note("size", node_of(status), path, 0)
        elif name in ("mkdir", "mkdirat"):
            self.note("name", node_of(os.stat(path)), path)
        elif name.startswith("rename"):
            self.note("move", self.node, path, call.paths[0])
        elif name in ("unlink", "unlinkat", "rmdir"):
            self.note("gone", self.node, path)
        elif name.startswith(("link", "symlink", "truncate")):
            raise NotImplementedError(name)

    def cuts(self):
        """Sets of changes that a cut may leave, each as a frozenset of their numbers; the full ones, which a kill leaves,
        are not among them."""
        found = set()
        for now in range(1, self.now + 1):
            made = [number for number, change in enumerate(self.changes) if change.begun <= now]
            open_ones = [number for number in made if self.changes[number].durable > now]
            names = [number for number in open_ones if self.changes[number].is_name()]
            data = [number for number in open_ones if not self.changes[number].is_name()]
            kept = frozenset(made) - frozenset(open_ones)
            found |= {kept, kept.union(names), kept.union(data)}
            found |= {kept.union(data, names[:count]) for count in range(1, len(names))}
            # One write is lost, or alone is kept: at the last instant before a sync, when most of them are open.
            if any(self.changes[number].durable == now + 1 for number in data) or now == self.now:
                for number in data:
                    found |= {kept.union(open_ones) - {number}, kept.union(names, [number])}
        return sorted(found - {frozenset(range(count)) for count in range(len(self.changes) + 1)}, key=sorted)

    def state(self, kept):
        """What the disk then holds, as restored by the test: by path the content and the time of change."""
        names, content = dict(self.names), dict(self.content)
        for number in sorted(kept):
            change = self.changes[number]
            if change.is_name():
                apply_name(names, content, change)
            else:
                old = (content.get(change.node) or (b"", 0))[0] or b""
                content[change.node] = changed_content(old, change), 0
        paths = {path: content.get(node, (b"", 0)) for path, node in names.items()}
        return {path: value for path, value in paths.items() if is_reached(path, paths, self.roots)}


def node_of(status):
    return status.st_dev, status.st_ino


def position(pid, number):
    with open(f"/proc/{pid}/fdinfo/{number}") as file:
        return int(file.readline().split()[1])


def apply_name(names, content, change):
    if change.kind == "name":
        names[change.path] = change.node
        content.setdefault(change.node, (change.value, 0))
        return
    old = change.path if change.kind == "gone" else change.value
    inside = {path: node for path, node in names.items() if path == old or path.startswith(old + "/")}
    for path in inside:
        del names[path]
    if change.kind == "move":
        names.update({change.path + path[len(old):]: node for path, node in inside.items()})
        names[change.path] = change.node


def changed_content(old, change):
    if change.kind == "size":
        return old[:change.value].ljust(change.value, b"\0")
    offset, data = change.value
    return old[:offset].ljust(offset, b"\0") + data + old[offset + len(data):]


def is_reached(path, paths, roots):
    folder = os.path.dirname(path)
    return folder in roots or folder in paths and paths[folder][0] is None and is_reached(folder, paths, roots)
