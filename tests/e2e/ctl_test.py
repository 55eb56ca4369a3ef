#!/usr/bin/python3
"""koliindexctl and the daemon at work together, and what it says when something is missing, full or broken."""
import contextlib
import json
import os
import pathlib
import pty
import re
import shutil
import signal
import sqlite3
import subprocess
import termios
import unittest

import harness
from harness import appliance

MUSIC = "/volume1/music"
SONG = f"{MUSIC}/Album/a.mp3"
PROGRESS = ("koliindexctl: queued, ", "koliindexctl: being executed")


class Control(harness.DaemonTest):
    def ctl(self, code, *arguments, hurry=True, **options):
        """What the command prints, parsed when it is JSON; it must end with this code. A wait is made short."""
        with subprocess.Popen(self.command(*arguments), stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                              **options) as process:
            if "--wait" in arguments and hurry:
                harness.wait_for("the request", lambda: os.path.exists(appliance.QUEUE) or process.poll() is not None)
                harness.hurry()
            printed, complaints = process.communicate(timeout=harness.PATIENCE)
        self.assertEqual(process.returncode, code, (arguments, printed, complaints))
        self.complaints = [line for line in complaints.splitlines() if not any(text in line for text in PROGRESS)]
        return json.loads(printed) if "--json" in arguments else printed

    def refused(self, code, words, *arguments, queued=(), **options):
        """Ends with this code and one line that tells why; these requests are in the queue."""
        self.ctl(code, *arguments, hurry=False, **options)
        self.assertEqual(len(self.complaints), 1, self.complaints)
        self.assertRegex(self.complaints[0], f"^koliindexctl: .*{words}")
        self.assertEqual(self.queued(), list(queued))

    def queued(self):
        return pathlib.Path(appliance.QUEUE).read_text().splitlines() if os.path.exists(appliance.QUEUE) else []

    def stored_at_next_start(self, *paths):
        self.start()
        appliance.wait_for_batch(harness.PATIENCE)
        self.assertEqual(self.paths("music"), sorted(paths))

    def test_every_request_leads_to_its_rows(self):
        other, broken = self.put(f"{MUSIC}/Album/b\udce9.mp3"), self.put(f"{MUSIC}/Album/c.wma", "music/Broken/page.wma")
        self.put(SONG)
        self.put(f"{MUSIC}/list.m3u", "music/Party mix.m3u")
        self.start()
        result = self.ctl(1, "add", "--wait", "--strict", "--json", "/var/services/music")
        self.assertEqual((result["summary"]["stored"], result["unparsable"]), (4, [{"path": broken}]))
        self.assertEqual(self.ctl(0, "show", "--json", SONG)["music"], [self.row("music", SONG)])
        status = self.ctl(0, "status", "--json")
        self.assertEqual((status["pid"], status["rows_music"], status["unparsable"]), (appliance.daemon_pid(), 3, 1))
        self.assertEqual((self.ctl(0, "sync", "--json", MUSIC)["differences"], self.queued()), ([], []))

        shown = other.replace("\udce9", "\ufffd")
        for paths, *options in (([SONG, shown, broken], "--below", f"{MUSIC}/Album"), ([SONG], "--where", "path~/A.mp"),
                                ([], "--where", "title=x' OR '1'='1"), ([SONG, shown], "--kind", "music", "--limit", "2")):
            self.assertEqual([row["path"] for row in self.ctl(0, "list", "--json", *options)], paths)
        self.assertEqual([row["path"] for row in self.ctl(0, "search", "--json", "side B")], [SONG, shown])
        terminal, other_end = pty.openpty()
        self.addCleanup(os.close, terminal)
        termios.tcsetwinsize(other_end, (24, 60))
        with os.fdopen(other_end, "wb") as output:
            subprocess.run(self.command("search", "side B"), stdout=output, check=True)
        lines = os.read(terminal, 4096).decode().splitlines()
        self.assertTrue(len(lines) == 3 and max(map(len, lines)) == 59, lines)
        for command in ("list",), ("search", "x"), ("stats",), ("problems",):
            self.refused(1, "nothing is stored at or below /typo", *command, "--below", "/typo")
        self.refused(2, "1: there is no such column", "list", "--where", "1=1 OR path=x")
        self.assertEqual([row["path"] for row in self.ctl(1, "problems", "--json")], [broken])
        new = self.put(f"{MUSIC}/New/n.mp3")
        self.put(SONG, "music/Old Tapes/side a.mp3")
        os.unlink(other)
        found = self.ctl(1, "sync", "--dry-run", "--json", MUSIC)["differences"]
        self.assertEqual({item["path"]: item["change"] for item in found},
                         {SONG: "changed", shown: "gone", os.path.dirname(new): "new folder"})
        self.ctl(0, "sync", "--wait", MUSIC)
        self.assertEqual(self.paths("music"), sorted([SONG, broken, new]))
        self.assertEqual(self.row("music", SONG)["title"], "Side A")

        os.rename(f"{MUSIC}/New", f"{MUSIC}/Newer")
        shutil.rmtree(f"{MUSIC}/Album")
        self.ctl(0, "rename", f"{MUSIC}/New", f"{MUSIC}/Newer")
        self.ctl(0, "truncate", "--yes", "playlist")
        self.ctl(0, "remove", "--wait", f"{MUSIC}/Album")
        self.assertEqual((self.paths("music"), self.paths("playlist")), ([f"{MUSIC}/Newer/n.mp3"], []))
        self.ctl(0, "rebuild", "--wait", "music")
        self.assertEqual(self.paths("playlist"), [f"{MUSIC}/list.m3u"])

    def test_why_something_is_not_there(self):
        photo, away = "/volume1/photo/Trip", "/volume1/else"
        self.addCleanup(shutil.rmtree, away, ignore_errors=True)
        empty, large, broken = f"{photo}/empty.jpg", f"{photo}/large.jpg", self.put(f"{MUSIC}/b.mp3", "music/Broken/page.wma")
        for path in (SONG, f"{photo}/a.jpg", f"{photo}/.b.jpg", f"{photo}/.c/a.jpg", f"{MUSIC}/cover.jpg", f"{away}/a.mp3"):
            self.put(path)
        self.put(f"{photo}/c.tif", harness.PICTURE)
        for path in (empty, large):
            pathlib.Path(path).touch()
        os.truncate(large, 20 << 20)
        os.symlink("..", f"{MUSIC}/Album/up")
        self.start()
        self.ctl(0, "add", "--wait", MUSIC, photo)
        after = f"{MUSIC}/Album/changed.mp3", f"{MUSIC}/gone.mp3"
        for path in after:
            self.put(path)
        self.ctl(0, "add", "--wait", *after)
        os.unlink(f"{MUSIC}/gone.mp3")
        os.truncate(f"{MUSIC}/Album/changed.mp3", 9)
        for path in (f"{MUSIC}/a.opus", f"{MUSIC}/noext", f"{MUSIC}/._a.mp3", f"{MUSIC}/#recycle/a.mp3",
                     f"{MUSIC}/@eaDir/a.mp3", f"{MUSIC}/new.mp3", f"{MUSIC}/Album/new\nline.mp3"):
            self.put(path)
        os.symlink("nowhere", f"{MUSIC}/link.mp3")
        for code, path, *reasons in (
                (0, SONG), (0, f"{photo}/a.jpg"), (0, broken, "problem"), (0, photo), (0, large, "problem", "too_large"),
                (0, empty, "problem", "empty"), (0, f"{photo}/.b.jpg", "hidden"), (0, f"{photo}/.c", "hidden"),
                (0, f"{MUSIC}/cover.jpg", "not_in_photo_share"),
                (0, f"{photo}/c.tif", "not_for_browsers"), (1, f"{MUSIC}/a.opus", "unknown_extension"),
                (1, f"{MUSIC}/noext", "no_extension"), (1, f"{MUSIC}/._a.mp3", "companion"),
                (1, f"{MUSIC}/#recycle/a.mp3", "bin"), (1, f"{MUSIC}/@eaDir/a.mp3", "metadata"),
                (1, f"{MUSIC}/new.mp3", "not_asked_for"), (1, f"{MUSIC}/Album/new\nline.mp3", "not_queueable"),
                (1, f"{MUSIC}/link.mp3", "dangling_link"), (1, f"{MUSIC}/Albun/a.mp3", "absent"),
                (1, f"{MUSIC}/Album/up", "link_loop"), (1, f"{away}/a.mp3", "in_no_share"),
                (1, f"{MUSIC}/Album/changed.mp3", "changed"), (1, f"{MUSIC}/gone.mp3", "absent", "gone"),
                (1, f"{MUSIC}/Album", "differences_below")):
            answer = self.ctl(code, "why", "--json", path)
            self.assertEqual([reason["code"] for reason in answer["reasons"]], reasons, path)
            self.assertEqual(answer["in_step"], code == 0)
        appliance.stop()
        for left_out in ("a.opus", "#recycle", "._a.mp3", "@eaDir/a.mp3"):
            self.refused(2, "", "add", f"{MUSIC}/{left_out}")
        self.refused(2, "/a:b: a rename cannot carry", "rename", f"{MUSIC}/a:b", SONG)
        self.ctl(3, "add", SONG, f"{MUSIC}/new.mp3", f"{MUSIC}/a.opus")
        self.assertEqual(self.ctl(1, "why", f"{MUSIC}/new.mp3").splitlines(), [
            f"{MUSIC}/new.mp3 is not stored; it would be as music.", "  The daemon does not run.",
            "  A request that concerns it waits in the queue: line 2 of 2."])
        os.rename(appliance.QUEUE, appliance.BATCH)
        self.assertIn("batch with a request that concerns it was interrupted", self.ctl(1, "why", f"{MUSIC}/new.mp3"))

    @staticmethod
    def change(name, *statements):
        with appliance.change(name) as database:
            for statement in statements:
                database.execute(statement)
        if not appliance.ON_SERVER:
            with contextlib.closing(sqlite3.connect(f"{appliance.STORE}/{name}.db")) as database:
                database.execute("PRAGMA wal_checkpoint(TRUNCATE)")

    @staticmethod
    def albums():
        return sorted((row["sharename"], row["public"]) for row in appliance.rows("photo_share"))

    def test_sync_compares_albums(self):
        for folder in ("Trip", "Trip/Day 1/deep", "Trip/%", "caf\udce9", "line\nbreak", "O'Neil: x", ".hidden",
                       "Trip/.hidden", "x@eaDir", "#recycle/old"):
            self.put(f"/volume1/photo/{folder}/a.jpg")
        os.symlink("..", "/volume1/photo/Trip/loop")
        self.start()
        self.ctl(0, "sync", "--wait")
        albums = self.albums()
        for lost in ("sharename NOT IN ('Trip', 'Trip/loop')", "sharename = 'Trip'"):
            self.change("photo", f"DELETE FROM photo_share WHERE {lost}",
                        "INSERT INTO photo_share (sharename) VALUES ('Trip/old'), ('old'), ('/')")
            self.assertIn("no album", self.ctl(1, "sync", "--dry-run"))
            self.ctl(0, "sync", "--wait")
            self.assertEqual(self.ctl(0, "sync", "--json")["differences"], [])
            self.change("photo", "DELETE FROM photo_share WHERE sharename = '/'")  # not the daemon's, so it stays
            self.assertEqual(self.albums(), albums)

    def test_missing_daemon_and_one_that_dies(self):
        stored = [self.put(f"{MUSIC}/{name}.mp3") for name in "abc"]
        self.refused(3, "not running", "add", "--wait", stored[0], queued=[f"a:{stored[0]}"])
        self.stored_at_next_start(stored[0])
        for count, moment in ((2, appliance.QUEUE), (3, appliance.BATCH)):
            command = self.command("add", "--wait", stored[count - 1])
            with contextlib.closing(self.lock_media_store()), subprocess.Popen(command, stderr=subprocess.PIPE,
                                                                               text=True) as waiting:
                self.assertIn(PROGRESS[0], waiting.stderr.readline())
                if moment == appliance.BATCH:  # the lock holds the daemon back in the middle of it
                    harness.hurry()
                harness.wait_for("the moment", lambda: os.path.exists(moment))
                appliance.stop(signal.SIGKILL)
                complaint = waiting.communicate(timeout=harness.PATIENCE)[1].splitlines()[-1]
            self.assertRegex(complaint, "^koliindexctl: the daemon has ended before .* are kept")
            self.assertEqual(waiting.returncode, 3)
            self.stored_at_next_start(*stored[:count])

    @unittest.skipIf(appliance.IS_FOREIGN, "a lock of ours on a database is none to a machine of the other order of bytes")
    def test_status_tells_of_the_work(self):
        broken = self.put(f"{MUSIC}/Album/c.wma", "music/Broken/page.wma")
        self.put(SONG)
        self.index(f"A:{MUSIC}")
        appliance.enqueue(["nothing to do"])  # once this is done, only a signal leads to a run
        self.start()
        appliance.wait_for_batch(harness.PATIENCE)
        follow = subprocess.Popen(self.command("status", "--follow", "--json"), stdout=subprocess.PIPE, text=True)
        self.addCleanup(follow.communicate)
        self.addCleanup(follow.kill)
        self.assertEqual(json.loads(follow.stdout.readline())["requests_waiting"], 0)
        with subprocess.Popen(self.command("add", "--wait", broken, SONG), stderr=subprocess.PIPE, text=True) as waiting:
            self.assertIn(PROGRESS[0], waiting.stderr.readline())
            waiting.send_signal(signal.SIGINT)
            self.assertIn("interrupted; the requests stay queued", waiting.communicate()[1])
        self.assertEqual(waiting.returncode, -signal.SIGINT)
        while json.loads(follow.stdout.readline())["requests_waiting"] != 2:  # it looks once in a second
            pass
        at_work = ("batch", "running") if appliance.ON_SERVER else ("current_path", broken)
        with contextlib.closing(self.lock_media_store()):  # the daemon waits for it
            harness.hurry()
            harness.wait_for("its work", lambda: at_work in self.ctl(0, "status", "--json").items())
            status = self.ctl(0, "status", "--json")
            self.assertEqual((status["batch"], status["requests_in_batch"]), ("running", 2))
            if not appliance.ON_SERVER:  # the rows of which are sent together
                self.assertEqual((status["requests_done"], status["files_done"]), (0, 1))
        appliance.wait_for_batch(harness.PATIENCE)
        self.assertEqual(self.ctl(0, "status", "--json")["last_problem"], broken)
        follow.send_signal(signal.SIGINT)
        self.assertEqual(follow.wait(harness.PATIENCE), 0)
        metrics, typed = {}, set()
        for line in self.ctl(0, "status", "--metrics").splitlines():
            sample = re.fullmatch(r'(koliindexd_\w+)(\{\w+="(?:\\.|[^"\\])*"(?:,\w+="(?:\\.|[^"\\])*")*\})? (\d+(?:\.\d+)?)', line)
            if sample:
                self.assertIn(sample[1], typed)
                metrics[sample[1] + (sample[2] or "")] = float(sample[3])
            else:
                typed.add(re.fullmatch(r"# (?:HELP (\w+) .+\.|TYPE (\w+) (?:gauge|counter))", line)[2])
        self.assertEqual([metrics["koliindexd_" + name] for name in
                          ("up", "problems", 'rows{database="media.db",table="music"}')], [1, 1, 2])
        self.assertGreaterEqual(metrics["koliindexd_files_total"], 2)

    @staticmethod
    def lock_media_store(mode="NORMAL"):
        if appliance.ON_SERVER:
            return appliance.ServerLock("music")
        lock = sqlite3.connect(f"{appliance.STORE}/media.db", isolation_level=None)
        lock.execute(f"PRAGMA locking_mode = {mode}")  # a lock keeps readers out only in the mode EXCLUSIVE
        lock.execute("BEGIN EXCLUSIVE")
        return lock

    @unittest.skipIf(appliance.ON_SERVER, "a server has no files of databases")
    def test_database_that_is_locked_or_damaged(self):
        gone = self.put(f"{MUSIC}/Album/gone.mp3")
        self.index(f"A:{MUSIC}")
        os.unlink(gone)
        self.put(SONG)
        self.change("media")
        for path, line in (gone, f"d:{gone}"), (f"{MUSIC}/Unknown", f"D:{MUSIC}/Unknown"):  # which may yet become a folder
            self.refused(3, "not running", "remove", path, queued=[line])
            os.unlink(appliance.QUEUE)
        with contextlib.closing(self.lock_media_store("EXCLUSIVE")):
            with subprocess.Popen(self.command("status"), stderr=subprocess.PIPE, stdout=subprocess.DEVNULL) as status:
                self.refused(3, "not running", "remove", gone, queued=[f"D:{gone}"])
                self.assertIn(b"media.db is locked by another program: database is locked", status.communicate()[1])
        store = pathlib.Path(appliance.STORE, "media.db")
        sound = store.read_bytes()
        store.write_bytes(b"no database")
        self.start()
        self.ctl(5, "add", "--wait", SONG)
        self.assertRegex(self.complaints[-1], "cannot read .*/media.db: .*not a database")
        appliance.stop()
        for arguments in ["list"], ["show", SONG], ["sync"]:
            self.refused(5, "cannot read .*/media.db: .*not a database", *arguments)
        store.write_bytes(sound[:4096] + b"\x55" * (len(sound) - 4096))
        self.refused(5, "cannot read .*/media.db: .*malformed", "problems")
        self.refused(5, "media.db is damaged: .*malformed.*; koliindexctl repair mends it", "status")
        store.write_bytes(sound)
        pathlib.Path(f"{store}-wal").touch()
        for file, mode in ((store.parent, 0o755), (store, 0o644), (f"{store}-wal", 0o600)):
            os.chmod(file, mode)
        self.refused(5, "cannot read .*/media.db: Permission denied; only root may", "list", user=65534,
                     executable=shutil.copy(*self.command("/tmp")))
        os.unlink(f"{store}-wal")
        self.ctl(3, "sync")
        self.stored_at_next_start(SONG)

    @unittest.skipIf(appliance.ON_SERVER, "a server has no files of databases")
    def test_repair_beside_a_daemon_at_work(self):
        pictures = [self.put(f"/volume1/photo/Trip/{name}.jpg", "photo/Coast 2019/IMG_0001.jpg") for name in "ab"]
        self.put(SONG)
        self.index("A:/volume1/photo", f"A:{MUSIC}")
        self.change("photo", "UPDATE photo_info SET description = 'Wedding ' || name",
                    "UPDATE photo_share SET public = 'f'")
        before, albums = self.row("photo_info", pictures[1]), self.albums()
        store = pathlib.Path(appliance.STORE, "photo.db")
        with open(store, "r+b") as file:
            file.write(b"damage" * 100)
        self.start()
        new = self.put(f"{MUSIC}/Album/new.mp3")
        self.ctl(5, "add", "--wait", new)
        self.assertEqual(self.ctl(5, "status", "--json")["rows_music"], 2)
        self.assertRegex(self.complaints[0], "photo.db is damaged: .*; koliindexctl repair mends it")
        self.refused(1, "photo.db is damaged: ", "repair", "--dry-run")
        pictures.append(self.put("/volume1/photo/Trip/new.jpg", "photo/Coast 2019/IMG_0001.jpg"))
        self.ctl(1, "repair", "--wait")  # of the page where the list of tables stood there is nothing
        self.assertEqual(self.paths("photo_info"), pictures)
        self.assertEqual((self.row("photo_info", pictures[1]), self.albums()), (before, albums))
        self.assertEqual(len([*store.parent.glob("photo.db-damaged-*Z")]), 1)
        self.ctl(0, "repair")
        self.ctl(0, "status")
        self.change("photo", "DROP TABLE photo_share")
        self.ctl(1, "repair")
        self.assertEqual(self.albums(), [("Trip", "f")])


if __name__ == "__main__":
    harness.main()
