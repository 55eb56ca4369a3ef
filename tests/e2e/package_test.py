#!/usr/bin/python3
"""The Debian package: installed, used within the limits of its services, and removed."""
import contextlib
import ctypes
import errno
import functools
import glob
import grp
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import threading
import unittest
import urllib.request

import harness
import shells
from harness import appliance

UNITS = "/usr/lib/systemd/system"
CTL = "/usr/bin/koliindexctl"
CONFFILES = ["/etc.defaults/koliinfo.conf", "/etc/koliinfo.conf"]
MOUNTS_LEFT = ("/proc", "/sys", "/dev")  # ProtectSystem=strict does not touch them
QUEUE_UNIT = "koliindexd-queue@"
SOMEBODY = 1234  # no user of this machine
SKIPPED = 77


def run(*command, check=True):
    return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, check=check).stdout


def dpkg(*arguments):
    return run("dpkg", "--no-triggers", "--force-unsafe-io", *arguments)


def unit_lines(unit, key):
    """From the unit and what is laid over it."""
    texts = [pathlib.Path(path).read_text() for path in [f"{UNITS}/{unit}", *sorted(glob.glob(f"{UNITS}/{unit}.d/*.conf"))]]
    return re.findall(f"^{key}=(.*)", "\n".join(texts), re.MULTILINE)


def unit_values(unit, key):
    return " ".join(unit_lines(f"{unit}.service", key)).split()


def unit_value(unit, key):
    return "".join(unit_values(unit, key))


def calls(name):
    """The system calls of a set, or the one of that name."""
    if not name.startswith("@"):
        return {name}
    lines = run("systemd-analyze", "syscall-filter", name).split("\n")[1:]
    return set().union(*(calls(line.strip()) for line in lines if line.strip() and "#" not in line))


def allowed_calls(unit):
    allowed = set()
    for words in unit_lines(f"{unit}.service", "SystemCallFilter"):
        named = set().union(*(calls(name) for name in words.lstrip("~").split()))
        allowed = allowed - named if words.startswith("~") else allowed | named
    return allowed


class Compare(ctypes.Structure):
    _fields_ = [("argument", ctypes.c_uint), ("operation", ctypes.c_int), ("mask", ctypes.c_uint64), ("value", ctypes.c_uint64)]


def load_filter(otherwise, action, rules):
    """Rules are names of calls with the bits of the third argument that all have to be set."""
    seccomp = ctypes.CDLL("libseccomp.so.2")
    seccomp.seccomp_init.restype = ctypes.c_void_p
    built = ctypes.c_void_p(seccomp.seccomp_init(otherwise))
    for name, bits in rules:
        number = seccomp.seccomp_syscall_resolve_name(name.encode())
        if number >= 0:
            seccomp.seccomp_rule_add_array(built, action, number, 1 if bits else 0, ctypes.byref(Compare(2, 7, bits, bits)))
    if seccomp.seccomp_load(built) != 0:
        sys.exit("cannot load the filter")


def run_filtered(unit, *command):
    """Goes on as the command, without memory of code where the unit says so, and with the unit's system calls alone."""
    allow, refuse = 0x7FFF0000, 0x00050000 | errno.EPERM
    if unit_value(unit, "MemoryDenyWriteExecute") == "yes":
        load_filter(allow, refuse, [("mmap2" if sys.maxsize < 2**32 else "mmap", 6), ("mprotect", 4), ("pkey_mprotect", 4)])
    if shutil.which("systemd-analyze"):
        load_filter(refuse, allow, [(name, 0) for name in allowed_calls(unit)])
    os.execvp(command[0], command)


def within_limits(unit, *command):
    """The command line that runs a command as the service would: its group, no network, no privileges and no system
    calls but the unit's, and everything read-only but what the unit makes writable."""
    group = unit_value(unit, "Group")
    writable = [path.lstrip("-") for path in unit_values(unit, "ReadWritePaths")]
    setup = []
    for kind, place in ("StateDirectory", "/var/lib"), ("RuntimeDirectory", "/run"), ("CacheDirectory", "/var/cache"):
        if name := unit_value(unit, kind):
            writable.append(f"{place}/{name}")
            setup.append(f"install -d -g {group or 0} -m {unit_value(unit, kind + 'Mode')} {writable[-1]}")
    writable = [os.path.realpath(path) for path in writable]
    with open("/proc/self/mounts") as file:
        mounts = [line.split()[1].encode().decode("unicode_escape") for line in file]
    locked = [point for point in mounts if not point.startswith(MOUNTS_LEFT)
              and not any(f"{point}/".startswith(f"{path}/") for path in writable)]
    rights = "".join(f",+{name.removeprefix('CAP_').lower()}" for name in unit_values(unit, "CapabilityBoundingSet"))
    setup += [f"mount --rbind '{path}' '{path}'" for path in writable]
    setup += [f"mount -o remount,bind,ro '{point}'" for point in locked]
    setup.append(f'exec setpriv --no-new-privs --regid={group or 0} --clear-groups --bounding-set=-all{rights} -- "$@"')
    filtered = [] if harness.IS_EMULATED else [sys.executable, os.path.abspath(__file__), "--filtered", unit]
    network = ["--net"] if unit_lines(f"{unit}.service", "PrivateNetwork")[-1:] == ["yes"] else []
    return ["unshare", "--mount", *network, "sh", "-ec", "\n".join(setup), "sh", *filtered, *command]


def as_user(user, *command, groups="--clear-groups"):
    return subprocess.Popen(["setpriv", f"--reuid={user}", f"--regid={user}", groups, *command], text=True,
                            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)


def serve_queue():
    """What systemd does for koliindexd-queue.socket."""
    path, group, mode = (unit_lines("koliindexd-queue.socket", key)[0]
                         for key in ("ListenStream", "SocketGroup", "SocketMode"))
    server = socket.socket(socket.AF_UNIX)
    server.bind(path)
    shutil.chown(path, "root", group)
    os.chmod(path, int(mode, 8))
    server.listen()

    def serve():
        while True:
            with server.accept()[0] as peer:
                subprocess.run(within_limits(QUEUE_UNIT, *unit_values(QUEUE_UNIT, "ExecStart")), stdin=peer, check=False)

    threading.Thread(target=serve, daemon=True).start()


class Package(harness.DaemonTest):
    package = module = ""

    @classmethod
    def setUpClass(cls):
        """A plain machine; setup makes what the package does not bring."""
        os.makedirs("/var/log")
        os.unlink(CONFFILES[0])
        for link in glob.glob("/var/services/*"):
            os.unlink(link)
        run("addgroup", "--quiet", "koliindex")  # somebody's own, for the databases of an earlier version
        dpkg("--install", cls.package)
        made = run(CTL, "setup", "--apply", "/volume1")
        if not os.path.islink("/var/services/photo"):
            raise AssertionError(made)

    def start(self):
        self.assertEqual(run(*within_limits("koliindexd", "/usr/sbin/koliindexd")), "")
        harness.wait_for("the pid file", appliance.daemon_pid)

    def assert_read_only(self, unit, *folders):
        for folder in folders:
            self.assertIn("Read-only file system", run(*within_limits(unit, "touch", f"{folder}/file"), check=False))

    def test_1_files(self):
        files = [path for path in run("dpkg", "--listfiles", "koliindexd").split("\n")[1:-1] if not os.path.isdir(path)]
        self.assertEqual([path for path in files if os.stat(path).st_uid or os.stat(path).st_mode & 0o022], [])
        conffiles = run("dpkg-query", "--show", "--showformat=${Conffiles}", "koliindexd").split()[::2]
        self.assertEqual(sorted(conffiles), CONFFILES)
        enabled = glob.glob("/etc/systemd/system/*.wants/koliindexd*")
        self.assertEqual(sorted(map(os.path.basename, enabled)),
                         ["koliindexd-queue.socket", "koliindexd-watch.service", "koliindexd.service"])
        for command in (["lintian", "--allow-root", "--fail-on=none", self.package],
                        ["systemd-analyze", "verify", "--man=no", "--recursive-errors=no", *glob.glob(f"{UNITS}/koli*")]):
            self.assertEqual(run(*command) if shutil.which(command[0]) else "", "")

    def test_2_manual_and_completion(self):
        page = re.sub(r"\\f.|\\", "", run("zcat", "/usr/share/man/man1/koliindexctl.1.gz"))  # hyphens as they are typed
        text = run(CTL, "--help")
        commands = re.findall(r"^  ([a-z][a-z-]+) ", text.split("Exit codes:")[0], re.MULTILINE)
        self.assertGreater(len(commands), 10)
        for command in commands:
            said = run(CTL, command, "--help")
            self.assertEqual(run(CTL, "help", command), said)
            text += said
        self.assertEqual([line for line in text.splitlines() if len(line) > 80], [])
        said = {*re.findall(r"(?<![\w-])--?[a-z][a-z0-9-]*", text), *commands}
        self.assertEqual([word for word in said if not re.search(rf"(?<![\w-]){word}(?![\w-])", page)], [])
        os.makedirs("/tmp/files/A folder")
        os.chdir("/tmp/files")
        self.put("/tmp/files/A song.mp3")
        for shell in shells.SHELLS:
            for line, offers in (("", commands), ("re", ["rebuild", "repair"]), ("add --", ["--wait", "--quiet"]),
                                 ("truncate ph", ["photo_info"]), ("list --kind=v", ["video"]), ("list --limit ", []),
                                 ("list --columns title,art", ["artist"]), ("list --where art", ["artist="]),
                                 ("watch A", ["folder"]), ("add A", ["folder", "song.mp3"])):
                with self.subTest(shell=shell, line=line):
                    shown = shells.offered(shell, line)
                    self.assertEqual([word for word in offers if word not in shown], [])
                    self.assertEqual("song" in shown, "song.mp3" in offers)

    def test_3_daemon_within_its_limits(self):
        self.assert_read_only("koliindexd", "/etc", "/usr", "/volume1", "/var/lib", "/root")
        with_cover = self.put("/volume1/music/cover.mp3", "music/Blue Harbour/01 First Light.mp3")
        raw_aac = self.put("/volume1/music/raw.aac", "music/Formats/sample.aac")
        film = self.put("/volume1/video/film.avi", "video/Formats/clip.avi")
        picture = self.put("/volume1/photo/Coast/a.jpg", "photo/Coast 2019/IMG_0001.jpg")
        harness.hand_over(picture, "TITLE", "sea")
        for place in ("/volume1/music", "/volume1/photo/Coast"):
            run("chown", "-R", f"{SOMEBODY}:{SOMEBODY}", place)
            run("chmod", "-R", "u=rX,go=,+t", place)  # theirs alone, and nobody else removes something there
        os.mkdir("/volume1/music/Full")
        run("mount", "-t", "tmpfs", "-o", "size=512k", "none", "/volume1/music/Full")
        self.addCleanup(run, "umount", "/volume1/music/Full")
        without_room = self.put("/volume1/music/Full/cover.mp3", "music/Blue Harbour/01 First Light.mp3")
        with contextlib.suppress(OSError), open("/volume1/music/Full/fill", "wb", buffering=0) as fill:
            while fill.write(bytes(4096)):
                pass
        server = as_user(SOMEBODY, "sleep", "1000")
        self.addCleanup(server.communicate)
        self.addCleanup(server.kill)
        with open("/run/dms.pid", "w") as file:
            file.write(str(server.pid))
        log = self.index(*harness.EVERYTHING)
        self.assertEqual(server.wait(harness.PATIENCE), -signal.SIGUSR1)
        # This machine has no thumbnail daemon, and its kernel may lack a part of the guard.
        expected = ("Thumb daemon is not running", "this kernel lacks it", "No space left on device")
        self.assertEqual([line for line in log if not any(text in line for text in expected)], [])
        cover = os.stat("/volume1/music/@eaDir/cover.mp3/cover1.jpg")
        self.assertEqual((cover.st_uid, cover.st_gid, cover.st_mode & 0o7777), (SOMEBODY, SOMEBODY, 0o777))
        self.assertGreater(self.row("music", without_room)["duration"], 0)
        self.assertEqual([(row["path"], row["reason"]) for row in appliance.rows("problem")],
                         [(without_room, "the cover cannot be saved: No space left on device")])
        self.assertEqual(self.row("photo_info", picture)["title"], "sea")
        self.assertEqual(glob.glob("/volume1/photo/Coast/@eaDir/*/*"), [])
        for table, path, figure in (("music", with_cover, "has_cover"), ("music", raw_aac, "duration"),
                                    ("video", film, "width")):
            self.assertGreater(self.row(table, path)[figure], 0)

    def test_4_watcher_within_its_limits(self):
        self.start()
        self.assert_read_only("koliindexd-watch", "/volume1/music")
        command = within_limits("koliindexd-watch", *unit_values("koliindexd-watch", "ExecStart"))
        with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as watcher:
            self.assertEqual(watcher.stdout.readline(), "watching 3 folders\n")
            path = self.put("/volume1/music/new.mp3")
            harness.wait_for("the new file's row", lambda: harness.hurry() or path in self.paths("music"))
            watcher.send_signal(signal.SIGTERM)
            self.assertEqual((watcher.communicate()[1], watcher.returncode), ("", 0))

    def test_5_group(self):
        def told(code, user, *arguments):
            with user(SOMEBODY, CTL, *arguments) as process:
                if "--wait" in arguments:
                    harness.wait_for("the request", lambda: os.path.exists(appliance.QUEUE) or process.poll() is not None)
                    harness.hurry()
                printed = process.communicate(timeout=harness.PATIENCE)[0]
            self.assertEqual(process.returncode, code, printed)
            return printed

        member = functools.partial(as_user, groups=f"--groups={grp.getgrnam('koliindex').gr_gid}")
        path = self.put("/volume1/music/song.mp3")
        self.index()
        for file in glob.glob(f"{appliance.STORE}/*"):
            os.chmod(file, 0o644)  # as an earlier version has made them
        os.chmod(appliance.STORE, 0o755)
        serve_queue()
        self.start()
        told(0, member, "add", "--wait", path)
        self.assertIn(path, told(0, member, "list"))
        for code, *refused in ((5, "list"), (5, "status"), (4, "add", path)):
            self.assertIn('; members of the group "koliindex" may', told(code, as_user, *refused))
        for root_only in (["add", "/tmp"], ["truncate", "--yes", "photo_share"]):
            self.assertIn("only root's to ask", told(4, member, *root_only))
        self.assertFalse(os.path.exists(appliance.QUEUE))
        modes = {os.stat(file).st_mode & 0o7777 for file in glob.glob(f"{appliance.STORE}/*.db*")}
        self.assertEqual((modes, os.stat(appliance.STORE).st_mode & 0o7777), ({0o640}, 0o2750))
        appliance.stop()
        self.assertIn(path, told(0, member, "list"))
        told(3, member, "add", path)
        self.assertEqual(os.stat(appliance.QUEUE).st_mode & 0o777, 0o640)

    @harness.MAKES_PICTURES
    def test_6_pages_within_their_limits(self):
        """With the socket that systemd hands over, and no other way out; a picture is made."""
        unit, folders = "koliindexd-serve", [f"{place}/koliindexd-serve" for place in ("/var/lib", "/var/cache")]
        path = self.put("/volume1/photo/page.jpg")
        self.index(f"a:{path}")
        self.assert_read_only(unit, "/volume1/photo", appliance.STORE)
        start = "STATE_DIRECTORY=$1 CACHE_DIRECTORY=$2 LISTEN_FDS=1 LISTEN_PID=$$; export STATE_DIRECTORY CACHE_DIRECTORY " \
            f"LISTEN_FDS LISTEN_PID; exec {' '.join(unit_values(unit, 'ExecStart'))}"
        with socket.create_server(("127.0.0.1", 0)) as listener:
            def hand_over():
                os.dup2(listener.fileno(), 3)
                os.set_inheritable(3, True)  # also where it has that number

            server = subprocess.Popen(within_limits(unit, "sh", "-c", start, "sh", *folders), stdout=subprocess.PIPE,
                                      stderr=subprocess.PIPE, text=True, close_fds=False, preexec_fn=hand_over)
            self.addCleanup(server.kill)
            address = server.stdout.readline().strip()
            with open(server.stdout.readline().split()[1]) as file:
                form = f"token={file.read().strip()}".encode()
            browser = urllib.request.build_opener(urllib.request.HTTPCookieProcessor())
            browser.open(address + "login", form, harness.PATIENCE).close()
            with browser.open(f"{address}small/160{path}", timeout=harness.PATIENCE) as picture:
                self.assertEqual(picture.headers["Content-Type"], "image/jpeg")
        server.send_signal(signal.SIGTERM)
        self.assertEqual((server.communicate()[1], server.returncode), ("", 0))
        self.assertTrue(os.listdir(folders[1] + "/pictures"))

    def test_6_server(self):
        settings = pathlib.Path(CONFFILES[1]).read_text()
        self.addCleanup(pathlib.Path(CONFFILES[1]).write_text, settings)
        with open(CONFFILES[1], "a") as file:
            file.write("database=postgresql:host=127.0.0.1 port=1 dbname=koli\n")
        path = self.put("/volume1/music/song.mp3")
        for installed, reason in (False, "koliindexd-postgresql is not installed"), (True, "127.0.0.1.*Connection refused"):
            if installed:
                dpkg("--install", self.module)
                self.assertEqual(unit_lines("koliindexd-serve.service", "IPAddressDeny")[-1], "")
                self.assertIn("AF_INET", unit_values("koliindexd-watch", "RestrictAddressFamilies"))
            appliance.clear_log()
            appliance.enqueue([f"a:{path}"])
            self.start()
            harness.hurry()
            harness.wait_for("the refusal", lambda text=reason: re.search(text, "\n".join(appliance.log_messages())))
            self.assertRegex(run(CTL, "list", check=False), reason)
            appliance.stop()
        self.assertIn("depends on koliindexd", run("dpkg", "--remove", "koliindexd", check=False))
        dpkg("--purge", "koliindexd-postgresql")
        self.assertEqual(glob.glob(f"{UNITS}/koli*.d"), [])

    def test_7_removal_keeps_the_data(self):
        path = self.put("/volume1/music/cover.mp3", "music/Blue Harbour/01 First Light.mp3")
        self.index(f"a:{path}")
        self.start()
        stored = harness.stored_rows()
        with open(CONFFILES[1], "a") as file:
            file.write("albumdefpublic=yes\n")
        dpkg("--remove", "koliindexd")
        self.assertEqual(appliance.daemon_pid(), 0)
        self.assertEqual(glob.glob("/usr/*/koli*") + glob.glob(f"{UNITS}/koli*"), [])
        self.assertTrue(all(map(os.path.exists, CONFFILES)))
        appliance.enqueue(["A:/volume1/music"])
        self.assertIn("/var/lib/koli", dpkg("--purge", "koliindexd"))
        self.assertFalse(any(map(os.path.exists, [*CONFFILES, *glob.glob("/etc/systemd/system/*/koli*")])))
        self.assertTrue(stored["music"] and harness.stored_rows() == stored)
        self.assertTrue(all(map(os.path.exists, [appliance.QUEUE, "/volume1/music/@eaDir/cover.mp3/cover1.jpg"])))


if __name__ == "__main__":
    if sys.argv[1] == "--filtered":
        run_filtered(*sys.argv[2:])
    appliance.require_sandbox()
    if os.stat("/usr/bin").st_uid != os.getuid():
        print("only root can install a package")
        sys.exit(SKIPPED)
    Package.package, Package.module = (max(glob.glob(f"{sys.argv[1]}/{name}_*.deb"), key=os.path.getmtime)
                                       for name in ("koliindexd", "koliindexd-postgresql"))
    del sys.argv[1]
    unittest.main(verbosity=2)
