#!/usr/bin/python3
"""A server that is away, full, of another program, or not to be trusted; what people are told of it."""
import json
import os
import pathlib
import random
import signal
import subprocess

import harness
from harness import appliance, control_server
from wire import Wire

M, P = "/volume1/music", "/volume1/photo"
CONFIG = pathlib.Path("/etc/koliinfo.conf")
SMALL = "/run/small"
WARNING = b"SWARNING\0VWARNING\0C01000\0M\33[31mred\nbatch=none\0\0"
NO_COLUMNS = b"\0\0\0\6\0\0"


class Server(harness.DaemonTest):
    @classmethod
    def setUpClass(cls):
        cls.wire = Wire("/run/between", appliance.SERVER)

    def setUp(self):
        super().setUp()
        self.addCleanup(CONFIG.write_text, CONFIG.read_text())

    def ctl(self, code, *arguments):
        """What it prints and complains; it must end with this code."""
        done = subprocess.run(self.command(*arguments), capture_output=True, text=True, errors="surrogateescape",
                              timeout=harness.PATIENCE, check=False)
        self.assertEqual(done.returncode, code, (arguments, done))
        return done.stdout + done.stderr

    def work_off(self):
        appliance.wait_for_batch(harness.PATIENCE, appliance.try_again)

    def test_a_server_that_stops_is_waited_for(self):
        self.put(f"{M}/one.mp3")
        self.index(f"A:{M}")
        self.put(f"{M}/two.mp3")
        self.start()
        (master,) = pathlib.Path(f"{appliance.SERVER}/data/postmaster.pid").read_text().split()[:1]
        os.kill(int(master), signal.SIGINT)
        harness.wait_for("its end", lambda: not os.path.exists(f"/proc/{master}"))
        appliance.enqueue([f"A:{M}", f"D:{M}/one.mp3"])
        harness.hurry()
        harness.wait_for("the refusal", lambda: os.path.exists("/run/koliindexd.state"))
        status = self.ctl(5, "status")
        self.assertRegex(status, "media.db cannot be read: .*No such file")
        self.assertRegex(status, "kept_reason .*No such file")
        self.assertRegex(self.ctl(5, "list"), "^koliindexctl: cannot read media.db of postgresql:.*: .*No such file")
        control_server("restart", appliance.SERVER)
        self.work_off()
        self.assertEqual(self.paths("music"), [f"{M}/one.mp3", f"{M}/two.mp3"])

    def test_a_full_server_takes_the_batch_when_it_has_room(self):
        os.mkdir(SMALL)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=96m", "none", SMALL], check=True)
        whole, appliance.SERVER = appliance.SERVER, f"{SMALL}/server"
        try:
            os.chmod(SMALL, 0o755)
            control_server("start", appliance.SERVER)
            CONFIG.write_text(appliance.server_settings(appliance.SERVER))
            self.index(f"A:{M}")
            appliance.ask_server("CHECKPOINT")
            songs = [self.put(f"{M}/{number}/{'long' * 50}.mp3") for number in range(60)]
            with open(f"{SMALL}/filler", "wb", 0) as filler, harness.contextlib.suppress(OSError):
                while True:
                    filler.write(bytes(1 << 12))
            appliance.enqueue([f"A:{M}"])
            self.start()
            harness.wait_for("the refusal", lambda: os.path.exists("/run/koliindexd.state"))
            os.unlink(f"{SMALL}/filler")
            control_server("restart", appliance.SERVER)
            self.work_off()
            self.assertEqual(self.paths("music"), sorted(songs))
            appliance.stop()
        finally:
            control_server("stop", appliance.SERVER)
            appliance.SERVER = whole
            subprocess.run(["umount", SMALL], check=True)

    def test_tables_that_are_not_as_they_should_be(self):
        picture = self.put(f"{P}/a.jpg", title="A")
        self.put(f"{M}/a.mp3")
        self.index(f"A:{M}", f"A:{P}")
        self.assertEqual(self.ctl(0, "repair"), "media.db is sound\nphoto.db is sound\n")
        tools = "its server's own tools mend it"
        for statement, state, told in (
                ("UPDATE koli_schema SET version = 99 WHERE name = 'photo.db'", "of an unknown schema", "of a later version"),
                ("ALTER TABLE photo_info RENAME TO pictures", "damaged", f"there is no table photo_info; {tools}")):
            appliance.ask_server(statement)
            self.assertRegex(self.ctl(5, "status"), f"photo.db +{state}\n[^$]*{told}")
            self.assertRegex(self.ctl(5, "repair"), told)
            self.put(f"{M}/{state}.mp3")
            harness.hand_over(picture, "TITLE", state)
            self.index(f"A:{M}", f"A:{P}")  # the one that is sound is told, and the batch goes
            self.assertFalse(appliance.is_waiting())
            self.row("music", f"{M}/{state}.mp3")
            appliance.ask_server("UPDATE koli_schema SET version = 1")
        appliance.ask_server("ALTER TABLE pictures RENAME TO photo_info")
        self.index(f"A:{P}")
        self.assertEqual(self.row("photo_info", picture)["title"], state)

    def test_a_library_that_somebody_drops_is_made_anew(self):
        songs, picture = [self.put(f"{M}/one.mp3")], self.put(f"{P}/a.jpg")
        self.start()
        for name in ("three", "two"):
            appliance.enqueue([f"A:{P}", f"A:{M}"])  # the connection of the one makes the schema anew, not the other's tables
            self.work_off()
            appliance.ask_server(f"DROP SCHEMA {appliance.LIBRARY} CASCADE")
            songs.append(self.put(f"{M}/{name}.mp3"))
        appliance.enqueue([f"A:{P}", f"A:{songs[-1]}", f"A:{M}"])
        self.work_off()
        self.assertEqual((self.paths("music"), self.paths("photo_info")), (songs, [picture]))

    def test_a_name_that_nobody_knows_keeps_no_other_server_from_being_found(self):
        self.put(f"{M}/one.mp3")
        CONFIG.write_text(appliance.server_settings(f"no.such.server.invalid,{appliance.SERVER}"))
        self.index(f"A:{M}")
        self.assertIn(f"{M}/one.mp3", self.ctl(0, "list"))
        CONFIG.write_text(appliance.server_settings("no.such.server.invalid"))
        self.assertRegex(self.ctl(5, "list"), "cannot read media.db of .*no.such.server.invalid: ")

    def test_what_a_hostile_server_says_harms_nobody(self):
        for name in (b"a", b"b\xff", b"c\n"):
            self.put(b"%s/%s.mp3" % (M.encode(), name))
            self.put(b"%s/%s.jpg" % (P.encode(), name), title="A caption")
        self.index(f"A:{M}", f"A:{P}")
        CONFIG.write_text(appliance.server_settings(self.wire.folder))
        chance, is_narrow = random.Random(14), False

        def spoil(message):
            nonlocal is_narrow
            kind = message[:1]
            if kind == b"T":
                is_narrow = chance.random() < 0.1
            if is_narrow and kind in b"TD":
                return kind + NO_COLUMNS
            if chance.random() < 0.1:
                message = b"N" + (4 + len(WARNING)).to_bytes(4, "big") + WARNING + message
            message = bytearray(message)
            if chance.random() < 0.1:
                at = chance.randrange(len(message)) if chance.random() < 0.1 else 5  # a length makes who reads it wait
                for _ in range(chance.randrange(8)):
                    message[at:at + 1] = chance.randbytes(1)
                    at = min(len(message) - 1, at + chance.choice((1, 1, 2, 9)))
            return message

        self.wire.spoil = spoil
        for command in ("list", "status", "stats", "problems", "sync --dry-run", "search a") * 2:
            done = subprocess.run(self.command(*command.split()), capture_output=True, timeout=60, check=False,
                                  env=appliance.environment())
            self.assertIn(done.returncode, range(6), done)
            self.assertNotIn(b"\33", done.stdout + done.stderr)
        self.start()
        for _ in range(5):
            appliance.enqueue([f"A:{M}", f"N:{P}/x:{P}/y", f"A:{P}"])
            harness.hurry()
        self.assertTrue(appliance.daemon_pid())
        self.wire.spoil = None
        self.work_off()
        appliance.stop()
        appliance.server_restore(b"")
        self.index(f"A:{M}", f"A:{P}")
        self.assertEqual(len(self.paths("music")), 3)
        self.assertEqual(json.loads(self.ctl(0, "list", "--json", "--count"))["music"], 3)


if __name__ == "__main__":
    harness.main()
