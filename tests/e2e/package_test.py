#!/usr/bin/python3
"""The Debian package: installed, used within the limits of its services, and removed."""
import glob
import os
import re
import shutil
import signal
import subprocess
import sys
import unittest

import harness
from harness import appliance

UNITS = "/usr/lib/systemd/system"
CTL = "/usr/bin/koliindexctl"
CONFFILES = ["/etc.defaults/koliinfo.conf", "/etc/koliinfo.conf"]
MOUNTS_LEFT = ("/proc", "/sys", "/dev")  # ProtectSystem=strict does not touch them
SKIPPED = 77


def run(*command, check=True):
    return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, check=check).stdout


def dpkg(*arguments):
    return run("dpkg", "--no-triggers", "--force-unsafe-io", *arguments)


def unit_values(unit, key):
    with open(f"{UNITS}/{unit}.service") as file:
        return [word for line in file if line.startswith(f"{key}=") for word in line[len(key) + 1:].split()]


def within_limits(unit, *command):
    """The command line that runs a command as the service would: no network, no privileges but the unit's, and
    everything read-only but what the unit makes writable."""
    writable = [path.lstrip("-") for path in unit_values(unit, "ReadWritePaths")]
    writable = [os.path.realpath(path) for path in writable + ["/var/lib/" + unit_values(unit, "StateDirectory")[0]]]
    with open("/proc/self/mounts") as file:
        mounts = [line.split()[1].encode().decode("unicode_escape") for line in file]
    locked = [point for point in mounts if not point.startswith(MOUNTS_LEFT) and point not in writable]
    rights = "".join(f",+{name.removeprefix('CAP_').lower()}" for name in unit_values(unit, "CapabilityBoundingSet"))
    setup = [f"mount --bind '{path}' '{path}'" for path in writable]
    setup += [f"mount -o remount,bind,ro '{point}'" for point in locked]
    setup.append(f'exec setpriv --no-new-privs --bounding-set=-all{rights} -- "$@"')
    return ["unshare", "--mount", "--net", "sh", "-ec", "\n".join(setup), "sh", *command]


class Package(harness.DaemonTest):
    package = ""

    @classmethod
    def setUpClass(cls):
        """A plain machine; setup makes what the package does not bring."""
        os.makedirs("/var/log")
        os.unlink(CONFFILES[0])
        for link in glob.glob("/var/services/*"):
            os.unlink(link)
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
        for unit in glob.glob(f"{UNITS}/koliindexd*.service"):
            self.assertTrue(os.path.islink(f"/etc/systemd/system/multi-user.target.wants/{os.path.basename(unit)}"))
            if shutil.which("systemd-analyze"):
                self.assertEqual(run("systemd-analyze", "verify", "--man=no", "--recursive-errors=no", unit), "")

    def test_2_manual_and_completion(self):
        page = re.sub(r"\\f.|\\", "", run("zcat", "/usr/share/man/man1/koliindexctl.1.gz"))  # hyphens as they are typed
        help_text = run(CTL, "--help")
        commands = re.findall(r"^  ([a-z]+) ", help_text.split("Subcommands:")[1].split("\n\n")[0], re.MULTILINE)
        self.assertGreater(len(commands), 10)
        for command in commands:
            self.assertRegex(page, rf"(?m)^\.BI? \"?{command}\b|^\.BR \"?{command}\b")
            help_text += run(CTL, command, "--help")
        options, described = (set(re.findall(r"(?<![\w-])--?[a-z][a-z-]*", text)) for text in (help_text, page))
        self.assertEqual(options - described, set())
        script = "source /usr/share/bash-completion/completions/koliindexctl; COMP_WORDS=(koliindexctl ''); " \
                 "COMP_CWORD=1; _koliindexctl; echo ${COMPREPLY[@]}"
        self.assertEqual(sorted(run("bash", "-c", script).split()), sorted(commands))

    def test_3_daemon_within_its_limits(self):
        self.assert_read_only("koliindexd", "/etc", "/usr", "/volume1", "/var/lib", "/root")
        with_cover = self.put("/volume1/music/cover.mp3", "music/Blue Harbour/01 First Light.mp3")
        raw_aac = self.put("/volume1/music/raw.aac", "music/Formats/sample.aac")
        film = self.put("/volume1/video/film.avi", "video/Formats/clip.avi")
        picture = self.put("/volume1/photo/Coast/a.jpg", "photo/Coast 2019/IMG_0001.jpg")
        log = self.index(*harness.EVERYTHING)
        # This machine has no thumbnail daemon, and its kernel may lack a part of the guard.
        expected = ("Thumb daemon is not running", "this kernel lacks it")
        self.assertEqual([line for line in log if not any(text in line for text in expected)], [])
        self.assertTrue(os.path.exists("/volume1/music/@eaDir/cover.mp3/cover1.jpg"))
        self.assertEqual(self.row("music", with_cover)["has_cover"], 1)
        self.assertGreater(self.row("music", raw_aac)["duration"], 0)
        self.assertGreater(self.row("video", film)["width"], 0)
        self.assertEqual(self.paths("photo_info"), [picture])

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

    def test_5_removal_keeps_the_data(self):
        path = self.put("/volume1/music/cover.mp3", "music/Blue Harbour/01 First Light.mp3")
        self.index(f"a:{path}")
        self.start()
        stored = harness.dump()
        with open(CONFFILES[1], "a") as file:
            file.write("albumdefpublic=yes\n")
        dpkg("--remove", "koliindexd")
        self.assertEqual(appliance.daemon_pid(), 0)
        self.assertEqual(glob.glob("/usr/*/koli*") + glob.glob(f"{UNITS}/koli*"), [])
        self.assertEqual([path for path in CONFFILES if not os.path.exists(path)], [])
        appliance.enqueue(["A:/volume1/music"])
        self.assertIn("/var/lib/koli", dpkg("--purge", "koliindexd"))
        left = [path for path in CONFFILES if os.path.exists(path)] + glob.glob("/etc/systemd/system/*/koli*")
        self.assertEqual((left, harness.dump()), ([], stored))
        self.assertTrue(stored["music"] and os.path.exists(appliance.QUEUE))
        self.assertTrue(os.path.exists("/volume1/music/@eaDir/cover.mp3/cover1.jpg"))


if __name__ == "__main__":
    appliance.require_sandbox()
    if os.stat("/usr/bin").st_uid != os.getuid():
        print("only root can install a package")
        sys.exit(SKIPPED)
    Package.package = max(glob.glob(f"{sys.argv.pop(1)}/koliindexd_*.deb"), key=os.path.getmtime)
    unittest.main(verbosity=2)
