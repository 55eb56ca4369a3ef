"""Runs the daemon under ptrace (x86-64): every system call of it and of its children is seen before and after it is
made, may be replaced by an error, or may be its last."""
import collections
import ctypes
import os
import platform
import signal

from harness import appliance

TRACEME, POKEUSER, SYSCALL, SETOPTIONS, GET_SYSCALL_INFO = 0, 6, 24, 0x4200, 0x420e
OPTIONS = 0x100000 | 1 | 2 | 4 | 8 | 16  # kill with the tracer; mark calls; follow fork, vfork, clone, exec
RAX, ORIG_RAX = 10 * 8, 15 * 8  # in the user area
WALL = 0x40000000
HANG = 60  # seconds: no batch here takes one

# Number, name and what the first arguments are: f a descriptor, m a descriptor in the fifth, p a path, q a path alone,
# a a descriptor and a path below it, A two such pairs, l a text and a path, L a text and such a pair.
CALLS = {}
for entry in """0 read f|1 write f|2 open p|4 stat p|5 fstat f|6 lstat p|9 mmap m|17 pread64 f|18 pwrite64 f|19 readv f
    20 writev f|21 access p|72 fcntl f|73 flock f|74 fsync f|75 fdatasync f|76 truncate p|77 ftruncate f|80 chdir p
    81 fchdir f|82 rename q|83 mkdir p|84 rmdir p|86 link q|87 unlink p|88 symlink l|89 readlink p|90 chmod p|91 fchmod f
    92 chown p|93 fchown f|137 statfs p|138 fstatfs f|217 getdents64 f|257 openat a|258 mkdirat a|262 newfstatat a
    263 unlinkat a|264 renameat A|265 linkat A|266 symlinkat L|267 readlinkat a|268 fchmodat a|269 faccessat a
    280 utimensat a|285 fallocate f|306 syncfs f|316 renameat2 A|332 statx a|439 faccessat2 a|162 sync -|3 close f
    """.replace("\n", "|").split("|"):
    if entry.strip():
        number, name, kind = entry.split()
        CALLS[int(number)] = name, kind
NANOSLEEP = (35, 230)  # nanosleep, clock_nanosleep

libc = ctypes.CDLL(None, use_errno=True)
libc.ptrace.argtypes = [ctypes.c_long, ctypes.c_long, ctypes.c_void_p, ctypes.c_void_p]
libc.ptrace.restype = ctypes.c_long
is_able = platform.machine() == "x86_64"


class Info(ctypes.Structure):
    _fields_ = [("op", ctypes.c_uint8), ("arch", ctypes.c_uint32), ("ip", ctypes.c_uint64), ("sp", ctypes.c_uint64),
                ("number", ctypes.c_uint64), ("arguments", ctypes.c_uint64 * 6)]


Call = collections.namedtuple("Call", "pid name arguments paths")


def ptrace(request, pid, address=0, data=0):
    if libc.ptrace(request, pid, address, data) < 0:
        raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))


def memory(pid, address, size, is_text=False):
    """Bytes of the process, of a text those before its end."""
    found = b""
    with open(f"/proc/{pid}/mem", "rb", buffering=0) as file:
        while size > 0 and not (is_text and b"\0" in found):
            chunk = os.pread(file.fileno(), min(size, 4096 - address % 4096), address)
            found, address, size = found + chunk, address + len(chunk), size - len(chunk)
    return found.partition(b"\0")[0] if is_text else found


def descriptor_path(pid, number):
    number = ctypes.c_int(number).value
    try:
        return os.readlink(f"/proc/{pid}/cwd" if number == -100 else f"/proc/{pid}/fd/{number}")
    except OSError:
        return ""


def paths_of(pid, kind, arguments):
    """What a call names, as absolute paths without links in the folders."""
    def text(number, folder=-100):
        given = os.fsdecode(memory(pid, arguments[number], 4096, True)) if arguments[number] else ""
        path = os.path.join(descriptor_path(pid, folder), given)
        return os.path.join(os.path.realpath(os.path.dirname(path)), os.path.basename(path)) if given else path[:-1]

    if kind in "fm":
        return [descriptor_path(pid, arguments[0 if kind == "f" else 4]).removesuffix(" (deleted)")]
    return {"p": lambda: [text(0)], "q": lambda: [text(0), text(1)], "a": lambda: [text(1, arguments[0])],
            "A": lambda: [text(1, arguments[0]), text(3, arguments[2])], "l": lambda: [text(1)],
            "L": lambda: [text(2, arguments[1])], "-": lambda: []}[kind]()


class Ended(Exception):
    """The daemon has ended by itself, with this wait status, or was killed by the hook: None."""


KILL = -1


class Hook:
    """Does nothing. Calls count from the one that first names the queue; those before it are told of on demand."""
    sees_start = False

    def entry(self, call):
        """Nothing, an error number that the call fails with instead of being made, or KILL."""

    def exit(self, call, result):
        """After a call that was made."""

    def idle(self):
        """The daemon begins to wait for signals. True ends the run; else the wait is cut short."""
        return True


class Tracer:
    def __init__(self, binary, hook):
        self.binary, self.hook = binary, hook
        self.daemon = 0  # its pid, once it has named the queue
        self.last = None
        self.calls, self.known = {}, set()  # under way, by pid; None in place of a call that is not told of

    def run(self):
        """Until the hook ends it: then the result is None, else what else has happened."""
        def stop(_, __):
            raise TimeoutError(f"it hangs, last seen at {self.last}")

        signal.signal(signal.SIGALRM, stop)
        signal.alarm(HANG)
        first = self.start()
        try:
            self.resume(first)
            while True:
                self.step()
        except Ended as end:
            return end.args[0] and f"wait status {end.args[0]}"
        except ChildProcessError:
            return "without having come to its queue"
        except TimeoutError as timeout:
            return timeout
        finally:
            self.let_go()
            signal.alarm(0)
        return None

    def start(self):
        pid = os.fork()
        if pid == 0:
            try:
                null = os.open("/dev/null", os.O_RDWR)
                for number in range(3):
                    os.dup2(null, number)
                ptrace(TRACEME, 0)
                os.execve(self.binary, [self.binary], appliance.environment())
            finally:
                os._exit(127)
        os.waitpid(pid, 0)
        ptrace(SETOPTIONS, pid, 0, OPTIONS)
        self.known.add(pid)
        return pid

    def resume(self, pid, number=0):
        try:
            ptrace(SYSCALL, pid, 0, number)
        except ProcessLookupError:  # killed meanwhile; waiting tells
            pass

    def step(self):
        pid, status = os.waitpid(-1, WALL)
        if not os.WIFSTOPPED(status):
            self.known.discard(pid)
            if pid == self.daemon:
                raise Ended(status)
            return
        number, event = os.WSTOPSIG(status), status >> 16
        if number == signal.SIGTRAP | 0x80:
            self.at_call(pid)
        elif event or pid not in self.known:  # a new process begins with a stop
            self.known.add(pid)
            self.resume(pid)
        else:
            self.resume(pid, 0 if number == signal.SIGSTOP else number)

    def at_call(self, pid):
        info = Info()
        try:
            ptrace(GET_SYSCALL_INFO, pid, ctypes.sizeof(info), ctypes.addressof(info))
            if info.op == 1:
                self.at_entry(pid, info.number, list(info.arguments))
            else:
                self.at_exit(pid, ctypes.c_int64(info.number).value)
        except (ProcessLookupError, FileNotFoundError):  # killed meanwhile
            pass
        self.resume(pid)

    def at_entry(self, pid, number, arguments):
        if pid == self.daemon and number in NANOSLEEP:
            seconds = memory(pid, arguments[0 if number == 35 else 2], 8)
            if int.from_bytes(seconds, "little") > 2:
                if self.hook.idle():
                    self.kill()
                ptrace(POKEUSER, pid, ORIG_RAX, -1)
                self.calls[pid] = 0
                return
        name, kind = CALLS.get(number, (str(number), "-"))
        paths = paths_of(pid, kind, arguments)
        if not self.daemon and appliance.QUEUE in paths:
            self.daemon = pid
        if not self.daemon and not self.hook.sees_start:
            return
        self.last = call = Call(pid, name, arguments, paths)
        verdict = self.hook.entry(call)
        self.calls[pid] = call
        if verdict == KILL:
            self.kill()
        if verdict is not None:
            ptrace(POKEUSER, pid, ORIG_RAX, -1)
            self.calls[pid] = verdict

    def at_exit(self, pid, result):
        call = self.calls.pop(pid, None)
        if isinstance(call, int):
            ptrace(POKEUSER, pid, RAX, -call)
        elif call is not None:
            self.hook.exit(call, result)

    def kill(self):
        os.kill(self.daemon, signal.SIGKILL)
        raise Ended(None)

    def let_go(self):
        """Whatever still runs is killed, too; a process that has just been made is heard of only now."""
        left = self.known
        while True:
            for pid in left:
                try:
                    os.kill(pid, signal.SIGKILL)
                except ProcessLookupError:
                    pass
            try:
                pid, status = os.waitpid(-1, WALL)
                left = {pid} if os.WIFSTOPPED(status) else set()
            except ChildProcessError:
                return
