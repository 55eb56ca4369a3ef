#!/usr/bin/python3
"""Request lines, the rows they lead to, and what the neighbours are told."""
import os
import signal
import sqlite3
import time

import harness
from harness import appliance

M = "/volume1/music"


class Rows(harness.DaemonTest):
    def test_music_in_every_tag_version(self):
        for album in ("Blue Harbour", "Café Été", "Каравелла", "Old Tapes"):
            harness.shutil.copytree(f"{harness.SAMPLES}/music/{album}", f"{M}/{album}")
        self.index(f"A:{M}")
        columns = ("title", "artist", "album", "genre", "year", "track", "disc", "comment", "audio_bitrate", "has_cover")
        expected = {
            "Blue Harbour/01 First Light.mp3":
                ("First Light", "The Sample Band", "Blue Harbour", "Jazz", 2004, 1, 1, "recorded at sea", 128000, 1),
            "Blue Harbour/03 Quay.mp3": ("Quay", "The Sample Band", "Blue Harbour", None, None, None, None, "", None, 0),
            "Café Été/01 Déjà vu.mp3": ("Déjà vu", "Zoé", "Café Été", "Chanson", 1998, 1, 0, "", 56000, 1),
            "Каравелла/01 Рассвет.mp3": ("Рассвет", "Каравелла", "Путь домой", "Фолк", 0, 0, 0, "", None, 0),
            "Каравелла/02 Закат.mp3": ("Закат", "Каравелла", "Путь домой", "", 0, 0, 0, "", 128000, 0),
            "Old Tapes/side a.mp3": ("Side A", "Garage Trio", "Old Tapes", "Metal", 1987, 0, 0, "first take", 192000, 0),
            "Old Tapes/side b.mp3": ("Side B", "Garage Trio", "Old Tapes", "SynthPop", 1987, 2, 0, "second take", 128000, 0),
            "Old Tapes/untagged, 100% \"live\" & 'loud'.mp3":
                ("untagged, 100% \"live\" & 'loud'", "", "Old Tapes", "", 0, 0, 0, "", None, 0),
        }
        for name, values in expected.items():
            row = self.row("music", f"{M}/{name}")
            wanted = {column: value for column, value in zip(columns, values) if value is not None}
            self.assertEqual({column: row[column] for column in wanted}, wanted, name)
            self.assertEqual(row["file_size"], os.path.getsize(row["path"]))
            # Of a constant bit rate the duration is the file's size, less a trailing tag, at that rate.
            size = row["file_size"] - (128 if "/side " in row["path"] else 0)
            constant = row["audio_bitrate"] in (56000, 128000, 192000)
            self.assertAlmostEqual(row["duration"], 8 * size / row["audio_bitrate"] if constant else 3.05, delta=0.03, msg=name)
        self.assertEqual(self.paths("directory"), sorted([M] + [f"{M}/{name}" for name in os.listdir(M)]))
        with open(f"{M}/Café Été/@eaDir/01 Déjà vu.mp3/cover1.jpg", "rb") as cover:
            picture = cover.read()
        self.assertEqual(picture[:3], b"\xff\xd8\xff")
        with open(f"{M}/Café Été/01 Déjà vu.mp3", "rb") as song:
            self.assertIn(b"front\0" + picture, song.read())

    def test_playlists(self):
        self.put(f"{M}/Party/mix.m3u", "music/Party mix.m3u")
        self.put(f"{M}/Party/evening.WPL", "music/Evening.wpl")
        os.mkdir(f"{M}/folder.m3u")
        self.index(f"A:{M}")
        row = self.row("playlist", f"{M}/Party/mix.m3u")
        self.assertEqual((row["title"], row["album"], row["mtime"][-1]), ("mix", "Party", "\n"))
        self.assertEqual(len(self.paths("playlist")), 2)

    def test_hostile_names_come_back_byte_for_byte(self):
        names = [b"it's \"quoted\"", b"100%_", b"back\\slash\\'", b"new\nline", b"inv\xff\xfe\xc3alid", b"'); DROP TABLE music; --",
                 b"$(touch /tmp/run)`touch /tmp/run`;touch /tmp/run", b"tab\tbell\a", b" blanks ", b"a:b", b"x" * 251]
        for name in names:
            self.put(b"%s/%s.mp3" % (M.encode(), name))
            if len(name) < 250:
                self.put(b"%s/%s/in folder.mp3" % (M.encode(), name))
        self.index(f"A:{M}")
        found = [os.fsencode(path) for path in self.paths("music")]
        self.assertEqual(sorted(found), sorted(os.fsencode(path) for path in harness.glob.glob(f"{M}/**/*.mp3", recursive=True)))
        self.assertEqual(len(found), 2 * len(names) - 1)
        # What cannot be in a line is reached through the folder above it; the rest is removed one by one.
        harness.empty_folder(M)
        self.index(*[b"%c:%s/%s" % (code, M.encode(), name + tail) for name in names if b"\n" not in name
                     for code, tail in ((ord("D"), b""), (ord("d"), b".mp3"))])
        self.assertEqual(self.paths("music"), [f"{M}/new\nline.mp3", f"{M}/new\nline/in folder.mp3"])
        self.assertFalse(os.path.exists("/tmp/run"))

    def test_wildcards_in_a_removed_folder_match_nothing_else(self):
        for folder in ("a_b", "axb", "a%b", "a%bc", "A_B"):
            self.put(f"{M}/{folder}/1.mp3")
        self.index(f"A:{M}")
        for folder in ("a_b", "a%b"):
            harness.shutil.rmtree(f"{M}/{folder}")
        self.index(f"D:{M}/a_b", f"D:{M}/a%b")
        self.assertEqual(self.paths("music"), [f"{M}/{folder}/1.mp3" for folder in ("A_B", "a%bc", "axb")])
        self.assertNotIn(f"{M}/a_b", self.paths("directory"))


class Requests(harness.DaemonTest):
    def test_add_remove_rename(self):
        for name in ("one", "two", "Album/three", "Album/Disc/four"):
            self.put(f"{M}/{name}.mp3")
        log = self.index(f"A:{M}", f"D:{M}/Album", f"d:{M}/one.mp3")
        self.assertEqual(len([line for line in log if "Dir or File exists" in line]), 2)
        self.assertEqual(len(self.paths("music")), 4)

        os.rename(f"{M}/Album", f"{M}/Renamed")
        os.rename(f"{M}/one.mp3", f"{M}/uno.mp3")
        os.unlink(f"{M}/two.mp3")
        self.index(f"N:{M}/Renamed/:{M}/Album/", f"N:{M}/uno.mp3:{M}/one.mp3", f"d:{M}/two.mp3", f"N:{M}/only", "N:")
        self.assertEqual(self.paths("music"), [f"{M}/Renamed/Disc/four.mp3", f"{M}/Renamed/three.mp3", f"{M}/uno.mp3"])
        self.assertEqual(self.paths("directory"), [M, f"{M}/Renamed", f"{M}/Renamed/Disc"])

    def test_rebuild_and_truncate(self):
        self.put(f"{M}/a.mp3")
        self.put("/volume1/video/a.srt", "video/Formats/clip.srt")
        self.index(f"A:{M}", "A:/volume1/video")
        os.rename(f"{M}/a.mp3", f"{M}/b.mp3")
        os.rename("/volume1/video/a.srt", "/volume1/video/b.srt")
        self.index("R:music")
        self.assertEqual((self.paths("music"), self.paths("video")), ([f"{M}/b.mp3"], ["/volume1/video/a.srt"]))
        self.index("R:everything")
        self.assertEqual(self.paths("video"), ["/volume1/video/b.srt"])
        self.index("T:video", "T:music; DROP TABLE music", "T:sqlite_master", "T:")
        self.assertEqual((self.paths("music"), self.paths("video")), ([f"{M}/b.mp3"], []))

    def test_what_a_walk_leaves_out(self):
        for path in ("#recycle/x", "#recycle/sub/x", "@eaDir/x", "sub/@eaDir/x", "sub/#recycle/kept", "#recycled/kept", "._fork"):
            self.put(f"{M}/{path}.mp3")
        self.put(f"{M}/readme.txt")
        os.symlink("..", f"{M}/sub/up")
        os.mkfifo(f"{M}/fifo.mp3")
        self.index(f"A:{M}")
        self.assertEqual(self.paths("music"), [f"{M}/#recycled/kept.mp3", f"{M}/sub/#recycle/kept.mp3"])

    def test_bad_lines_leave_the_others_alone(self):
        self.put(f"{M}/a.mp3")
        self.put(f"{M}/last.mp3")
        with open(appliance.QUEUE, "wb") as queue:
            queue.write(b"X:/x\n/no code\n\n\0\0\0\nA\nA:\n%%%%s%%n:\n" + b"Y:" + b"y" * 9000 + b"\n" + bytes(range(256)) + b"\n")
            queue.write(f"a:{M}/a.mp3\na:{M}/last.mp3".encode())
        log = "\n".join(self.index())
        self.assertEqual(self.paths("music"), [f"{M}/a.mp3", f"{M}/last.mp3"])
        for text in ("Bad format [X:/x].", "Bad format [/no code#012].", "Bad format [#012].", "Warning! No new line here."):
            self.assertIn(text, log)

    def test_a_batch_that_is_no_file(self):
        def dangle(path):
            os.symlink("/nowhere", path)

        for make in (os.mkfifo, os.mkdir, dangle):
            self.put(f"{M}/a.mp3")
            make(appliance.BATCH)
            log = self.index(f"A:{M}")
            failed = [line for line in log if line.endswith(f"Failed to open {appliance.BATCH}. (Invalid argument)")]
            self.assertEqual(len(failed), 0 if make is dangle else 1, log)
            self.assertEqual(self.paths("music"), [f"{M}/a.mp3"])
            self.forget_everything()


class Neighbours(harness.DaemonTest):
    def setUp(self):
        super().setUp()
        self.signals = []
        for number, name in ((signal.SIGHUP, "mt-daapd"), (signal.SIGUSR1, "dms")):
            before = signal.signal(number, lambda received, _: self.signals.append(received))
            self.addCleanup(signal.signal, number, before)
            with open(f"/run/{name}.pid", "w") as file:
                file.write(str(os.getpid()))

    def told(self, *lines):
        self.signals.clear()
        self.index(*lines, before_stop=self.wait_for_the_last_signal)
        return set(self.signals)

    def wait_for_the_last_signal(self):
        appliance.wait_until(lambda: signal.SIGUSR1 in self.signals, 20, "the media server's signal")

    def test_the_music_server_hears_of_changed_tables_only(self):
        self.put(f"{M}/a.mp3")
        self.put(f"{M}/a.m3u", "music/Party mix.m3u")
        both = {signal.SIGHUP, signal.SIGUSR1}
        self.assertEqual(self.told(f"a:{M}/a.mp3"), both)
        self.assertEqual(self.told(f"A:{M}", "garbage"), {signal.SIGUSR1})
        os.utime(f"{M}/a.mp3", (1, 1))
        self.assertEqual(self.told(f"A:{M}"), both)
        self.assertEqual(self.told("R:music"), both)
        os.unlink(f"{M}/a.mp3")
        self.assertEqual(self.told(f"d:{M}/a.mp3"), both)

    def test_a_signal_leads_to_one_run_after_a_quiet_tick_and_an_unchanged_library_writes_nothing(self):
        self.put(f"{M}/a.mp3")
        appliance.enqueue(["nothing to do"])  # once this is done, only a signal leads to a run
        self.start()
        self.wait_for_the_last_signal()
        for first in (True, False):
            self.signals.clear()
            appliance.enqueue([f"A:{M}"])
            watch = sqlite3.connect(f"{appliance.STORE}/media.db")
            version = watch.execute("PRAGMA data_version").fetchone()
            begin = time.monotonic()
            os.kill(appliance.daemon_pid(), signal.SIGUSR1)
            appliance.wait_for_batch(30)
            self.assertGreater(time.monotonic() - begin, 8)
            self.wait_for_the_last_signal()
            self.assertEqual(signal.SIGHUP in self.signals, first)
            self.assertEqual(watch.execute("PRAGMA data_version").fetchone() != version, first)
            watch.close()
        self.assertEqual(self.paths("music"), [f"{M}/a.mp3"])
        appliance.stop()


if __name__ == "__main__":
    harness.main()
