"""A model of a disk that loses what was not synced when the power is cut.

What a file's writes and truncations have changed since its last fsync or fdatasync, or the last syncfs or sync, may be
lost: all of it, or any one write. What was created, renamed or removed may be lost until the folder that it is named in
(of a rename, the new one) is synced, or everything is; that a file was synced does not make its name durable. Names
change in their order: when one change is lost, so are the later ones that are not durable. Of a file whose name is kept
and whose writes are lost an empty file is left. All that is in memory only, /run and the index of a write-ahead log, is
gone. Not modelled: half a write, a disk that lies about a sync."""
import dataclasses
import os
import stat


@dataclasses.dataclass
class Change:
    kind: str  # data, size: of a file's content; name, gone, move: of names
    node: tuple
    path: str
    value: object  # data: offset and bytes; size: a number; move: the old path
    made: int  # when, and from when on it is durable
    durable: int = 1 << 60

    def is_name(self):
        return self.kind in ("name", "gone", "move")


def node_of(status):
    return status.st_dev, status.st_ino


class Disk:
    """At its start the real disk holds the given state, all of it durable."""

    def __init__(self, roots, is_volatile, state):
        self.roots, self.is_volatile, self.changes, self.now = roots, is_volatile, [], 0
        self.names = {path: node_of(os.lstat(path)) for path in state}
        self.content = {self.names[path]: value for path, value in state.items()}  # and time of change

    def before(self, call):
        self.node = node_of(os.lstat(call.paths[0])) if call.paths and os.path.lexists(call.paths[0]) else None

    def after(self, call, result):
        """A call that has succeeded."""
        self.now += 1
        name, paths, arguments = call.name, call.paths, call.arguments
        descriptor = f"/proc/{call.pid}/fd/{arguments[0]}"
        if name in ("sync", "syncfs"):
            self.sync(lambda change: True)
        elif name in ("fsync", "fdatasync"):
            status = os.stat(descriptor)
            if stat.S_ISDIR(status.st_mode):
                self.sync(lambda change: change.is_name() and os.path.dirname(change.path) == paths[0])
            else:
                self.sync(lambda change: not change.is_name() and change.node == node_of(status))
        elif not any(path.startswith(self.roots) and not self.is_volatile(path) for path in paths):
            pass
        elif name in ("write", "pwrite64", "writev"):
            with open(f"/proc/{call.pid}/fdinfo/{arguments[0]}") as file:
                end = int(file.readline().split()[1]) if name != "pwrite64" else arguments[3] + result
            with open(descriptor, "rb") as file:
                file.seek(end - result)
                self.note("data", node_of(os.stat(descriptor)), paths[0], (end - result, file.read(result)))
        elif name in ("ftruncate", "fallocate"):
            self.note("size", node_of(os.stat(descriptor)), paths[0], os.stat(descriptor).st_size)
        elif name in ("open", "openat", "mkdir", "mkdirat") and not self.node:
            self.note("name", node_of(os.stat(paths[0])), paths[0], None if name.startswith("mkdir") else b"")
        elif name in ("open", "openat") and arguments[1 if name == "open" else 2] & os.O_TRUNC:
            self.note("size", self.node, paths[0], 0)
        elif name == "rename":
            self.note("move", self.node, paths[1], paths[0])
        elif name in ("unlink", "unlinkat", "rmdir"):
            self.note("gone", self.node, paths[0])
        elif name in ("link", "symlink"):
            raise NotImplementedError(name)

    def note(self, kind, node, path, value=None):
        self.changes.append(Change(kind, node, path, value, self.now))

    def sync(self, includes):
        for change in filter(includes, self.changes):
            change.durable = min(change.durable, self.now)

    def cuts(self):
        """Sets of changes, by their numbers, that a cut may leave. Those without a gap, as a kill leaves them, are not
        among them."""
        found = set()
        for now in range(1, self.now + 1):
            made = frozenset(number for number, change in enumerate(self.changes) if change.made <= now)
            kept = frozenset(number for number in made if self.changes[number].durable <= now)
            names = [number for number in sorted(made - kept) if self.changes[number].is_name()]
            data = made - kept - set(names)
            found |= {kept, kept.union(names), *(kept.union(data, names[:count]) for count in range(len(names)))}
            # One write is lost, or alone is kept: at the last instant before a sync, when most of them are open.
            if now == self.now or any(self.changes[number].durable == now + 1 for number in data):
                for number in data:
                    found |= {made - {number}, kept.union(names, [number])}
        return sorted(found - {frozenset(range(count)) for count in range(len(self.changes) + 1)}, key=sorted)

    def state(self, kept):
        """What the disk then holds: by path the content (None of a folder) and the time of change."""
        names, content = dict(self.names), dict(self.content)
        for number in sorted(kept):
            apply(self.changes[number], names, content)
        paths = {path: content.get(node, (b"", 0)) for path, node in names.items()}
        return {path: value for path, value in paths.items() if self.is_reached(path, paths)}

    def is_reached(self, path, paths):
        folder = os.path.dirname(path)
        return folder in self.roots or folder in paths and self.is_reached(folder, paths)


def apply(change, names, content):
    if change.kind == "name":
        names[change.path] = change.node
        content.setdefault(change.node, (change.value, 0))
    elif change.is_name():
        old = change.path if change.kind == "gone" else change.value
        inside = {path: names.pop(path) for path in list(names) if path == old or path.startswith(old + "/")}
        if change.kind == "move":
            names.update({change.path + path[len(old):]: node for path, node in inside.items()})
            names[change.path] = change.node
    else:
        bytes_now = content.get(change.node, (b"", 0))[0]
        offset, data = change.value if change.kind == "data" else (change.value, b"")
        after = bytes_now[offset + len(data):] if change.kind == "data" else b""
        content[change.node] = bytes_now[:offset].ljust(offset, b"\0") + data + after, 0
