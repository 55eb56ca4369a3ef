#!/usr/bin/python3
"""Start and stop."""
import os
import signal
import subprocess

import harness
from harness import appliance


class Life(harness.DaemonTest):
    def test_help(self):
        shown = subprocess.run([self.binary, "--help"], capture_output=True, check=True).stdout
        self.assertIn(b"koliindexd", shown)
        self.assertFalse(os.path.exists(appliance.PID_FILE))

    def test_two_starts_at_the_same_instant_and_a_third_later(self):
        second = (1, b"Daemon alive. No need to start\n")
        for _ in range(20):
            both = [subprocess.Popen([self.binary], stdout=subprocess.PIPE) for _ in range(2)]
            self.assertEqual(sorted((one.wait(), one.communicate()[0]) for one in both), [(0, b""), second])
            self.assertNotEqual(appliance.daemon_pid(), 0)  # there it is as soon as the start is over
            # The one of the round before may still be on its way out: its pid file goes first.
            harness.wait_for("a single daemon", lambda: self.processes() == 1)
            pid = appliance.daemon_pid()
            third = appliance.start(self.binary)
            self.assertEqual(((third.returncode, third.stdout), appliance.daemon_pid()), (second, pid))
            harness.wait_for("the nice level", lambda: os.getpriority(os.PRIO_PROCESS, pid) == 10)
            appliance.stop()
            self.assertFalse(os.path.exists(appliance.PID_FILE))

    def test_stale_pid_files(self):
        ended = subprocess.Popen(["true"])
        ended.wait()
        own = os.getpid()
        for text in (f"{ended.pid}", "", "none", f"-{own}", "0", "99999999999999999999", f"{own}x", f"{own}\n1"):
            with open(appliance.PID_FILE, "w") as file:
                file.write(text)
            os.chmod(appliance.PID_FILE, 0o600)
            self.start()
            self.assertEqual(os.stat(appliance.PID_FILE).st_mode & 0o777, 0o644)
            appliance.stop()

    def test_stray_signals(self):
        self.start()
        pid = appliance.daemon_pid()
        for stray in (signal.SIGHUP, signal.SIGPIPE, signal.SIGALRM, signal.SIGUSR2):
            os.kill(pid, stray)
        path = self.put("/volume1/music/a.mp3")
        appliance.enqueue([f"a:{path}"])
        harness.wait_for("the batch", lambda: harness.hurry() or path in self.paths("music"))
        self.assertEqual(appliance.daemon_pid(), pid)

    def test_without_a_pid_file_there_is_no_daemon(self):
        os.mkdir(appliance.PID_FILE)
        self.addCleanup(os.rmdir, appliance.PID_FILE)
        started = appliance.start(self.binary)
        self.assertEqual((started.returncode, started.stdout), (0, b""))
        self.assertEqual(started.stderr, b"koliindexd: cannot create /var/run/koliindexd.pid: Is a directory. "
                                         b"No daemon is started.\n")
        self.assertTrue(any("Failed to create /var/run/koliindexd.pid." in line for line in appliance.log_messages()))
        self.assertEqual(self.processes(), 0)


if __name__ == "__main__":
    harness.main()
