"""Runs the daemon under ptrace (x86): every system call of it and of its children is seen before and after it is
made, may be replaced by an error, or may be the daemon's last."""
import collections
import ctypes
import os
import signal
import subprocess

import harness
from harness import appliance

TRACEME, POKEUSER, SYSCALL, SETOPTIONS, GET_SYSCALL_INFO = 0, 6, 24, 0x4200, 0x420e
OPTIONS = 0x100000 | 1 | 2 | 4 | 8 | 16  # kill with the tracer; mark calls; follow fork, vfork, clone, exec
WORD = ctypes.sizeof(ctypes.c_long)
RAX, ORIG_RAX = (10 * 8, 15 * 8) if WORD == 8 else (6 * 4, 11 * 4)  # in the user area
WALL = 0x40000000
HANG = 60  # seconds: no batch here takes one
KILL = -1

# What the arguments name: f a descriptor, m one in the fifth, p a path, q two, a a folder and a path; with the names that
# calls of machines of 32 bits have beside.
KINDS = {
    "f": """read write close fstat,fstat64 pread64 pwrite64 writev fcntl,fcntl64 flock fsync fdatasync ftruncate,ftruncate64
            fchdir fchmod fchown,fchown32 fstatfs,fstatfs64 getdents64 fallocate syncfs""",
    "m": "mmap,mmap2",
    "p": """open stat,stat64 lstat,lstat64 access chdir mkdir rmdir unlink readlink chmod statfs,statfs64""",
    "q": "rename link symlink",
    "a": "openat mkdirat newfstatat,fstatat64 unlinkat faccessat utimensat,utimensat_time64 statx faccessat2",
    "-": "sync",
}


def number_of(name):
    """Below 0 when this machine has no such call."""
    return seccomp.seccomp_syscall_resolve_name(name.encode())


seccomp = ctypes.CDLL("libseccomp.so.2")
CALLS = {number_of(name): (names.split(",")[0], kind) for kind, text in KINDS.items() for names in text.split()
         for name in names.split(",")}
PAUSES = {number_of("nanosleep"): 0, number_of("clock_nanosleep"): 2,  # which argument tells how long
          number_of("clock_nanosleep_time64"): 2}

libc = ctypes.CDLL(None, use_errno=True)
libc.ptrace.argtypes = [ctypes.c_long, ctypes.c_long, ctypes.c_void_p, ctypes.c_void_p]
libc.ptrace.restype = ctypes.c_long

Call = collections.namedtuple("Call", "pid name arguments paths")


class Info(ctypes.Structure):
    _fields_ = [("op", ctypes.c_uint8), ("arch", ctypes.c_uint32), ("ip", ctypes.c_uint64), ("sp", ctypes.c_uint64),
                ("number", ctypes.c_uint64), ("arguments", ctypes.c_uint64 * 6)]


def ptrace(request, pid, address=0, data=0):
    if libc.ptrace(request, pid, address, data) < 0:
        raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))


def memory(pid, address, size):
    with open(f"/proc/{pid}/mem", "rb", buffering=0) as file:
        return os.pread(file.fileno(), size, address)


def text_at(pid, address):
    found = b""
    while address and b"\0" not in found:
        found += memory(pid, address + len(found), 4096 - (address + len(found)) % 4096)
    return os.fsdecode(found.partition(b"\0")[0])


def descriptor_path(pid, number):
    number = ctypes.c_int(number).value
    try:
        return os.readlink(f"/proc/{pid}/cwd" if number == -100 else f"/proc/{pid}/fd/{number}")
    except OSError:
        return ""


def paths_of(pid, kind, arguments):
    """What a call names, as absolute paths without links in the folders."""
    if kind in "fm":
        return [descriptor_path(pid, arguments[0 if kind == "f" else 4]).removesuffix(" (deleted)")]
    found = []
    for folder, address in {"p": [(-100, 0)], "q": [(-100, 0), (-100, 1)], "a": [(arguments[0], 1)]}.get(kind, []):
        given, top = text_at(pid, arguments[address]), descriptor_path(pid, folder)
        path = os.path.join(top, given)
        found.append(os.path.join(os.path.realpath(os.path.dirname(path)), os.path.basename(path)) if given else top)
    return found


class Ended(Exception):
    """The daemon's process has gone, or is to go."""


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
        self.daemon, self.last = 0, None  # its pid, once it has named the queue; the last call
        self.calls, self.known = {}, set()  # by pid: the call under way, or the error in its place

    def run(self):
        """Until the hook ends it: then the result is "", else what else has happened. Nothing is left running."""
        appliance.end_sessions()
        signal.signal(signal.SIGALRM, self.give_up)
        signal.alarm(HANG)
        try:
            self.start()
            while True:
                self.step()
        except (Ended, TimeoutError, ChildProcessError) as end:
            return str(end)
        finally:
            self.kill_all()
            signal.alarm(0)

    def give_up(self, *_):
        raise TimeoutError(f"hangs, last seen at {self.last}")

    def start(self):
        child = subprocess.Popen([self.binary], env=appliance.environment(), stdin=subprocess.DEVNULL,
                                 stdout=subprocess.DEVNULL, preexec_fn=lambda: ptrace(TRACEME, 0))
        child.returncode = 0  # it is waited for here
        os.waitpid(child.pid, 0)
        ptrace(SETOPTIONS, child.pid, 0, OPTIONS)
        self.known.add(child.pid)
        self.resume(child.pid)

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
                raise Ended(f"ended with wait status {status}")
            return
        number = os.WSTOPSIG(status)
        if number == signal.SIGTRAP | 0x80:
            self.at_call(pid)
        elif status >> 16 or pid not in self.known:  # a new process begins with a stop
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
        name, kind = CALLS.get(number, (str(number), "-"))
        call = Call(pid, name, arguments, paths_of(pid, kind, arguments))
        if {appliance.QUEUE, appliance.BATCH}.intersection(call.paths):
            self.daemon = self.daemon or pid
        verdict = None
        if pid == self.daemon and number in PAUSES and self.is_long(pid, arguments[PAUSES[number]]):
            verdict = KILL if self.hook.idle() else 0
        elif self.daemon or self.hook.sees_start:
            self.last, verdict = call, self.hook.entry(call)
            self.calls[pid] = call
        if verdict is not None:
            ptrace(POKEUSER, pid, ORIG_RAX, -1)
            self.calls[pid] = verdict
        if verdict == KILL:
            raise Ended

    @staticmethod
    def is_long(pid, address):
        """The loop's pause, as against those within a batch."""
        return int.from_bytes(memory(pid, address, 8), "little") > 2

    def at_exit(self, pid, result):
        call = self.calls.pop(pid, None)
        if isinstance(call, int):
            ptrace(POKEUSER, pid, RAX, -call)
        elif call is not None:
            self.hook.exit(call, result)

    def kill_all(self):
        """A process that has just been made is heard of only now. The daemon's own parent waits for it, too."""
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
                break
        harness.wait_for("the daemon's end", lambda: not os.path.exists(f"/proc/{self.daemon or 'none'}"))
