#!/usr/bin/python3
"""A server for several appliances: what setup makes there, a library's way to it and back, questions about all of them."""
import contextlib
import json
import os
import pathlib
import secrets
import shutil
import signal
import sqlite3
import subprocess

import harness
from harness import appliance

CONFIG = pathlib.Path("/etc/koliinfo.conf")
ADMIN = f"host={appliance.SERVER} user=koli dbname=house"
FILES, BACK = f"sqlite:{appliance.STORE}", "/var/tmp/back"
SERVER = f"postgresql:host={appliance.SERVER} user=koli_writer dbname=house"
ODD = b"/volume1/music/inv\xff\xfe\xc3alid \xc3\xa9\x80 \xef\x9e\x80.mp3"
MANY = 20_000


def psql(statement, user="koli", database="house"):
    command = ["psql", "-XqAt", "-v", "ON_ERROR_STOP=1", "-h", appliance.SERVER, "-U", user, database, "-c", statement]
    asked = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    return asked.stdout.strip()


def contents(folder):
    """Every row of both databases, as bytes."""
    found = {}
    for name, tables in (("media", (*appliance.MEDIA_TABLES, "problem")), ("photo", (*appliance.PHOTO_TABLES, "setting"))):
        with contextlib.closing(sqlite3.connect(f"file:{folder}/{name}.db?mode=ro", uri=True)) as database:
            database.text_factory = bytes
            for table in tables:
                found[table] = sorted(database.execute(f"SELECT * FROM {table}"))
    return found


class Libraries(harness.DaemonTest):
    def setUp(self):
        super().setUp()
        self.configured = CONFIG.read_text()
        self.settings = "".join(line for line in self.configured.splitlines(True)
                                if not line.startswith(("database", "library", "reader")))
        CONFIG.write_text(self.settings)
        self.addCleanup(CONFIG.write_text, self.configured)
        shutil.rmtree(BACK, ignore_errors=True)
        psql("DROP DATABASE IF EXISTS house WITH (FORCE)", database="postgres")
        psql("DROP ROLE IF EXISTS koli_writer, koli_reader", database="postgres")

    def ctl(self, code, *arguments):
        asked = subprocess.run(self.command(*arguments, "--json"), capture_output=True, text=True, check=False)
        self.assertEqual(asked.returncode, code, (arguments, asked.stdout, asked.stderr))
        self.complaint = asked.stderr
        return json.loads(asked.stdout) if asked.stdout else None

    def setup(self, code, *arguments, conninfo=ADMIN):
        return {step["name"]: step["state"] for step in self.ctl(code, "setup", "--database", conninfo, *arguments) or []}

    def refused(self, code, words, *arguments):
        self.ctl(code, *arguments)
        self.assertRegex(self.complaint, f"^koliindexctl: .*{words}")

    def test_setup_says_what_it_will_do_does_it_once_and_refuses_what_cannot_work(self):
        psql("CREATE DATABASE latin ENCODING 'SQL_ASCII' TEMPLATE template0 LOCALE_PROVIDER libc LOCALE 'C'", database="postgres")
        psql("CREATE ROLE nobody LOGIN", database="postgres")
        for words, conninfo in (("a command line", f"{ADMIN} password=secret"), ("which database", f"host={appliance.SERVER}"),
                                ("SQL_ASCII", ADMIN.replace("house", "latin")), ("may not make roles", ADMIN.replace("=koli ", "=nobody ")),
                                ("control characters", f"{ADMIN} options='\n'"), ("cannot be read", "postgresql:nonsense"), ("No such file", ADMIN.replace("/run", "/nowhere"))):
            self.refused(5, words, "setup", "--apply", "--database", conninfo)
            self.assertNotIn("secret", self.complaint)
        for name in ("pg_mine", "libraries", "*", "n" * 64, "two\nlines"):
            self.refused(5, "library", "setup", "--apply", "--database", ADMIN, "--library", name)
        psql("ALTER SYSTEM SET synchronous_standby_names = 'away'", database="postgres")
        psql("SELECT pg_reload_conf()", database="postgres")
        try:
            harness.wait_for("the setting", lambda: psql("SHOW synchronous_standby_names", database="postgres") == "away")
            self.refused(5, "synchronous replica", "setup", "--apply", "--database", ADMIN)
        finally:
            psql("ALTER SYSTEM RESET synchronous_standby_names", database="postgres")
            psql("SELECT pg_reload_conf()", database="postgres")
        self.assertEqual(psql("SELECT count(*) FROM pg_roles WHERE rolname LIKE 'koli\\__%'", database="postgres"), "0")
        harness.wait_for("the setting", lambda: psql("SHOW synchronous_standby_names", database="postgres") == "")

        shown = self.setup(1, "--library", "attic")
        self.assertEqual(shown["house"], "to make")
        self.assertIn('"house" does not exist', psql("SELECT 1"))
        self.assertEqual(set(self.setup(0, "--apply", "--library", "attic").values()), {"made", "to set"})
        self.assertEqual(CONFIG.read_text(), self.settings)
        # An administrator must not run what anybody has put into the schema of all.
        psql("CREATE FUNCTION public.has_database_privilege(oid, name, text) RETURNS boolean RETURN 1 / 0 = 1")
        CONFIG.write_text(f"{self.settings}library=old\n#library=x\nlibrary=older")
        again = self.setup(0, "--apply", "--configure", "--library", "attic")
        self.assertEqual((again.pop("database"), again.pop("library"), again.pop("reader")), ("made",) * 3)
        self.assertEqual(set(again.values()), {"present"})
        self.assertEqual(CONFIG.read_text(), f"{self.settings}library=attic\n#library=x\ndatabase={SERVER}\nreader=koli_reader\n"
                         .replace(SERVER, f"postgresql:dbname=house host={appliance.SERVER} user=koli_writer"))
        psql("CREATE SCHEMA theirs CREATE TABLE theirs.music (path text)")
        self.refused(5, "of something else", "setup", "--apply", "--database", ADMIN, "--library", "theirs")
        psql("ALTER ROLE koli_reader NOLOGIN")
        self.refused(5, "koli_reader may not log in", "setup", "--apply", "--database", ADMIN)
        psql("ALTER ROLE koli_reader LOGIN")
        song = self.put("/volume1/music/song.mp3")
        self.index("A:/volume1/music")
        self.assertEqual([row["path"] for row in self.ctl(0, "list")], [song])
        self.assertIn("permission denied", psql("DELETE FROM attic.music", user="koli_reader"))
        self.assertEqual(psql("SELECT library, path FROM libraries.music", user="koli_reader"), f"attic|{song}")
        psql("REVOKE USAGE ON SCHEMA attic FROM koli_reader")
        self.refused(5, "permission denied for schema attic", "list")
        odd = " \"it's\" $1 "
        self.setup(0, "--apply", "--configure", "--library", odd)
        self.index("A:/volume1/music")
        self.assertEqual(psql("SELECT library FROM libraries.music ORDER BY library").split("\n"), [odd.lstrip(), "attic"])

    def test_a_copy_goes_on_where_it_was_and_comes_back_byte_for_byte(self):
        for share in harness.SHARES:
            shutil.copytree(f"{harness.SAMPLES}/{share}", f"/volume1/{share}", dirs_exist_ok=True)
        self.put(ODD)
        harness.hand_over(self.put("/volume1/photo/Trip/a.jpg"), "TITLE", "sea")
        self.index(*harness.EVERYTHING)
        too_long = f"/volume1/music/{secrets.token_urlsafe(3000)}"
        with appliance_database("media") as media:
            media.executemany("INSERT INTO music (path, duration) VALUES (?, 0.1 * ?)",
                              [(f"/many/{number}", number) for number in range(MANY)])
            media.execute("INSERT INTO music (path) VALUES (?)", [too_long])
        with appliance_database("photo") as photo:
            photo.execute("INSERT INTO photo_access_right SELECT 1000, shareid, '' FROM photo_share")
            photo.execute("INSERT INTO video_comment VALUES (7, CAST(? AS TEXT), 1, '', 'fine')", [ODD])
        self.setup(0, "--apply", "--library", "attic")
        copy = ("copy-database", FILES, SERVER, "--library", "attic")
        with subprocess.Popen(self.command(*copy), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as begun:
            harness.wait_for("some rows", lambda: psql("SELECT count(*) > 0 FROM attic.music") == "t")
            begun.send_signal(signal.SIGKILL)
        self.refused(5, "holds a part of a copy", "copy-database", SERVER, f"sqlite:{BACK}", "--library", "attic")
        psql("DELETE FROM attic.music WHERE path = '/many/0'")
        psql("UPDATE attic.music SET title = 'another' WHERE path = '/many/1'")
        psql("INSERT INTO attic.music (path) VALUES ('/many/00')")
        copied = self.ctl(1, *copy)
        music = copied["tables"][0]
        self.assertEqual((music["table"], copied["lost_rows"], music["removed"]), ("music", 1, 2))
        self.assertLess(music["written"], MANY)
        self.assertIn(too_long, copied["lost"][0]["row"])
        self.refused(5, "holds a library already", *copy)
        self.ctl(0, "copy-database", SERVER, f"sqlite:{BACK}/", "--library", "attic")
        with appliance_database("media") as media:
            media.execute("DELETE FROM music WHERE path = ?", [too_long])
        before, after = contents(appliance.STORE), contents(BACK)
        for table, rows in before.items():
            self.assertEqual(rows, after[table], table)
        self.assertIn(ODD, [row[0] for row in after["music"]])
        self.assertTrue(after["photo_access_right"] and after["video_comment"])

        self.refused(2, "a place is", "copy-database", "/var/lib/koli", SERVER)
        self.refused(5, "there is no library", "copy-database", "sqlite:/nowhere", SERVER, "--library", "cellar")
        self.setup(0, "--apply", "--configure", "--library", "attic")
        self.start()
        locks = b"SELECT count(*) FROM pg_locks WHERE locktype = 'advisory'"
        harness.wait_for("both fences", lambda: appliance.run_on_server(appliance.SERVER, locks) == b"2\n")
        for settings in (CONFIG.read_text(), self.settings):  # another machine's daemon is known to the server alone
            CONFIG.write_text(settings)
            self.refused(5, "stop it first", "copy-database", SERVER, "sqlite:/var/tmp/none", "--library", "attic")
        appliance.stop()

    def test_all_libraries_are_asked_at_once(self):
        paths = {}
        for library, name in (("attic", "Blue"), ("cellar", "Green")):
            self.setup(0, "--apply", "--configure", "--library", library)
            self.clean()
            own, both = self.put(f"/volume1/music/{name}.mp3"), self.put("/volume1/photo/Both/a.jpg", title=f"{name} sea")
            self.index(*harness.EVERYTHING)
            paths[library] = own
            if library == "attic":  # as a later version would have it: the views of all have to do without
                psql("ALTER TABLE attic.music ADD COLUMN later text")
        self.assertEqual(psql("SELECT DISTINCT library FROM libraries.music ORDER BY 1", user="koli_reader"), "attic\ncellar")
        listed = self.ctl(0, "list", "--library", "*", "--kind", "music")
        self.assertEqual([(row["library"], row["path"]) for row in listed], list(paths.items()))
        self.assertEqual([row["path"] for row in self.ctl(0, "list", "--library", "attic", "--kind", "music")], [paths["attic"]])
        self.assertEqual(self.ctl(0, "list", "--library", "*", "--count")["photo"], 2)
        self.assertEqual([(row["library"], row["title"]) for row in self.ctl(0, "search", "--library", "*", "sea")],
                         [("attic", "Blue sea"), ("cellar", "Green sea")])
        shown = self.ctl(0, "show", "--library", "*", both)
        self.assertEqual([row["library"] for row in shown["photo_info"]], ["attic", "cellar"])
        stats = self.ctl(0, "stats", "--library", "*")
        self.assertEqual([(row["library"], row["files"]) for row in stats["libraries"]], [("attic", 2), ("cellar", 2)])
        status = self.ctl(3, "status", "--library", "*")
        self.assertEqual([(row["library"], row["media.db"], row["rows_music"]) for row in status["libraries"]],
                         [("attic", "sound", 1), ("cellar", "sound", 1)])
        self.refused(2, "to choose one, name it", "list", "--library", "*", "--where", "library=attic")
        self.refused(5, "no library atic; did you mean attic", "list", "--library", "atic")
        psql("DROP SCHEMA attic CASCADE")
        self.assertEqual([row["library"] for row in self.ctl(0, "list", "--library", "*", "--kind", "music")], ["cellar"])
        self.setup(1)
        self.index("A:/volume1/music")
        self.assertEqual(psql("SELECT library FROM libraries.music", user="koli_reader"), "cellar")
        CONFIG.write_text(self.settings)
        self.refused(5, "no name", "list", "--library", "cellar")


@contextlib.contextmanager
def appliance_database(name):
    with contextlib.closing(sqlite3.connect(f"{appliance.STORE}/{name}.db")) as connection, connection:
        yield connection


if __name__ == "__main__":
    harness.main()
