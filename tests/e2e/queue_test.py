#!/usr/bin/python3
"""Request lines, the rows they lead to, and what the neighbours are told."""
import json
import os
import pathlib
import re
import signal
import subprocess
import time

import harness
from harness import appliance

M, P = "/volume1/music", "/volume1/photo"
COLUMNS = ("title", "artist", "album", "genre", "year", "track", "disc", "comment", "audio_bitrate", "has_cover")
UNTAGGED = "untagged, 100% \"live\" & 'loud'"


def files_with_tags(text):
    """Files in which it is both title and artist, in every tag that does not tell its charset, by their names."""
    def frame(name, version):
        body = b"\0" + text
        size = len(body).to_bytes(3 if version == 2 else 4, "big")  # below 128: alike in all versions
        return name + size + b"\0\0" * (version > 2) + body

    def id3v2(version):
        tag = b"".join(frame(name, version) for name in ((b"TT2", b"TP1") if version == 2 else (b"TIT2", b"TPE1")))
        return b"ID3" + bytes((version, 0, 0, 0, 0, 0, len(tag))) + tag

    sound = pathlib.Path(f"{harness.SAMPLES}/music/Old Tapes/{UNTAGGED}.mp3").read_bytes()
    wave = pathlib.Path(f"{harness.SAMPLES}/music/Formats/sample.wav").read_bytes()
    info = text + b"\0" * (2 - len(text) % 2)
    info = b"INFO" + b"".join(name + len(info).to_bytes(4, "little") + info for name in (b"INAM", b"IART"))
    riff = wave[8:] + b"LIST" + len(info).to_bytes(4, "little") + info
    return {"v1.mp3": sound + b"TAG" + text.ljust(30, b"\0") * 2 + bytes(65),
            "info.wav": wave[:4] + len(riff).to_bytes(4, "little") + riff,
            "front.wav": id3v2(3) + wave, **{f"v2{version}.mp3": id3v2(version) + sound for version in (2, 3, 4)}}


class Requests(harness.DaemonTest):
    def test_music_in_every_tag_version(self):
        harness.shutil.copytree(f"{harness.SAMPLES}/music", M, dirs_exist_ok=True)
        self.index(f"A:{M}")
        for name, values in {
            "Blue Harbour/01 First Light":
                "First Light|The Sample Band|Blue Harbour|Jazz|2004|1|1|recorded at sea|128000|1",
            "Café Été/01 Déjà vu": "Déjà vu|Zoé|Café Été|Chanson|1998|1|0||56000|1",
            "Каравелла/02 Закат": "Закат|Каравелла|Путь домой||0|0|0||128000|0",
            "Old Tapes/side a": "Side A|Garage Trio|Old Tapes|Metal|1987|0|0|first take|192000|0",
            "Old Tapes/side b": "Side B|Garage Trio|Old Tapes|SynthPop|1987|2|0|second take|128000|0",
        }.items():
            row = self.row("music", f"{M}/{name}.mp3")
            self.assertEqual("|".join(str(row[column]) for column in COLUMNS), values)
            self.assertEqual(row["file_size"], os.path.getsize(row["path"]))
            # Of a constant bit rate the duration is the file's size at that rate, nearly.
            self.assertAlmostEqual(row["duration"], 8 * row["file_size"] / row["audio_bitrate"], delta=0.03, msg=name)
        row = self.row("music", f"{M}/Old Tapes/{UNTAGGED}.mp3")
        self.assertEqual((row["title"], row["album"], row["year"]), (UNTAGGED, "Old Tapes", 0))
        picture, song = (pathlib.Path(f"{M}/Café Été/{name}").read_bytes()
                         for name in ("@eaDir/01 Déjà vu.mp3/cover1.jpg", "01 Déjà vu.mp3"))
        self.assertIn(b"front\0" + picture, song)

    def test_old_tags_in_the_charset_of_the_settings(self):
        settings = pathlib.Path("/etc/koliinfo.conf")
        others = settings.read_text() if settings.exists() else ""
        self.addCleanup(settings.write_text, others)
        kept = [self.put(f"{M}/{number}.mp3", f"music/{name}.mp3") for number, name in
                enumerate(("Blue Harbour/02 Second Wind", "Каравелла/02 Закат"))]  # UTF-8, UTF-16
        def stored():
            rows = {row["path"]: (row["title"], row["artist"]) for row in appliance.rows("music")}
            self.assertEqual([rows.pop(path) for path in kept],
                             [("Second Wind – 第二", "The Sample Band"), ("Закат", "Каравелла")])
            self.assertEqual(len(rows), 6)
            return {text for texts in rows.values() for text in texts}

        for charset, text, misread in (
                ("CP1251", "Молодая гвардия", "Ìîëîäàÿ ãâàðäèÿ"), ("GB18030", "月亮代表我的心", "ÔÂÁÁ´ú±íÎÒµÄÐÄ"),
                ("SHIFT_JIS", "ソ連の桜~", "ƒ\\˜A‚Ì\x8d÷~"), ("EUC-KR", "나비야", "³ªºñ¾ß")):
            for name, data in files_with_tags(text.encode(charset)).items():
                pathlib.Path(f"{M}/tagged {name}").write_bytes(data)
            settings.write_text(others)
            self.index(f"A:{M}")
            self.assertIn(misread, stored())
            for path in (f"{M}/tagged v1.mp3", f"{M}/tagged v22.mp3"):
                found = json.loads(subprocess.check_output(self.command("charset", "--json", path, *kept)))
                self.assertEqual((found[0]["charset"], found[0]["title"], found[0]["artist"]), (charset, text, text))
                self.assertIn(("windows-1252", True, misread),
                              {(row["charset"], row["in_force"], row["title"]) for row in found})
                self.assertEqual({row["path"] for row in found}, {path})
            settings.write_text(f"{others}tagcharset={charset}\n")
            self.index("R:music")
            self.assertEqual(stored(), {text})
        settings.write_text(f"{others}tagcharset=UTF-16\n")
        log = self.index("R:music")
        self.assertEqual(len([line for line in log if "The charset [UTF-16] is none" in line]), 1)
        self.assertIn(misread, stored())

    def test_every_format_and_what_is_wrong_with_a_file(self):
        for share in ("music", "photo", "video"):
            harness.shutil.copytree(f"{harness.SAMPLES}/{share}", f"/volume1/{share}", dirs_exist_ok=True)
        self.index(*harness.EVERYTHING)
        # The formats of the README, which all have a sample.
        with open(f"{harness.TOP}/README.md", encoding="utf-8") as file:
            section = file.read().partition("## Formats")[2].partition("\n## ")[0]
        told, table = {name: set() for name in appliance.MEDIA_TABLES[:4]}, ""
        for name, extensions in re.findall(r"^\| (?:`(\w*)`)? *\| ([^|]+) \|", section, re.MULTILINE):
            table = name or table
            told.get(table, set()).update(re.split(",? ", extensions))
        self.assertEqual({table: {path.rpartition(".")[2].lower() for path in self.paths(table)} for table in told}, told)
        no_mpeg, unopened = "there is no MPEG audio in it", "the container could not be opened"
        unsized = "the size of the picture cannot be read"
        self.assertEqual({row["path"].partition("/Broken/")[2]: row["reason"] for row in appliance.rows("problem")}, {
            "cut.m4a": "it is no readable MP4 file", "cut.ogg": unopened, "page.wma": unopened, "cut.mp4": unopened,
            "page.avi": unopened, "empty.mp3": no_mpeg, "frame past the end.mp3": no_mpeg, "noise.mp3": no_mpeg,
            "tag only.mp3": no_mpeg, "page.flac": "there is no readable FLAC stream information in it",
            "silence.aac": "the AAC decoder tells nothing of it", "cut.jpg": unsized, "page.png": unsized,
            "noise.dat": "there is neither video nor audio in it"})
        rows = {row["path"]: row for table in told for row in appliance.rows(table)}
        clip = rows["/volume1/video/Formats/clip.avi"]
        self.assertEqual((clip["width"], clip["height"], round(clip["duration"])), (176, 144, 2))
        for share in harness.SHARES:
            harness.empty_folder(f"/volume1/{share}")
        self.index(f"D:{M}/Broken", *[f"d:{path}" for path in rows if not path.startswith(f"{M}/Broken/")])
        self.assertEqual({path for table in (*told, "problem") for path in self.paths(table)}, set())

    def test_hostile_names_come_back_byte_for_byte(self):
        names = [b"it's \"quoted\"", b"100%_", b"back\\slash\\'", b"new\nline", b"inv\xff\xfe\xc3alid", b" blanks ",
                 b"a:b", b"$(touch /tmp/run)`touch /tmp/run`;touch /tmp/run", b"'); DROP TABLE music; --", b"x" * 251]
        for name in names:
            self.put(b"%s/%s.mp3" % (M.encode(), name))
            self.put(b"%s/%s/in folder.mp3" % (M.encode(), name))
        self.index(f"A:{M}")
        self.assertEqual(self.paths("music"), sorted(harness.glob.glob(f"{M}/**/*.mp3", recursive=True)))
        self.assertEqual(len(self.paths("music")), 2 * len(names))
        # What cannot be in a line is reached through the folder above it; the rest is removed one by one.
        harness.empty_folder(M)
        self.index(*[b"%s:%s/%s%s" % (code, M.encode(), name, tail) for name in names if b"\n" not in name
                     for code, tail in ((b"D", b""), (b"d", b".mp3"))])
        self.assertEqual(self.paths("music"), [f"{M}/new\nline.mp3", f"{M}/new\nline/in folder.mp3"])
        self.assertFalse(os.path.exists("/tmp/run"))

    def test_every_request(self):
        for name in ("one", "two", "Album/three", "Album/Disc/four", "#recycle/x", "Album/@eaDir/x", "._fork"):
            self.put(f"{M}/{name}.mp3")
        os.mkfifo(f"{M}/fifo.mp3")
        log = self.index(f"A:{M}", f"D:{M}/Album", f"d:{M}/one.mp3")
        self.assertEqual(len([line for line in log if "Dir or File exists" in line]), 2)
        self.assertEqual(len(self.paths("music")), 4)

        os.rename(f"{M}/Album", f"{M}/Renamed")
        os.rename(f"{M}/one.mp3", f"{M}/uno.mp3")
        os.unlink(f"{M}/two.mp3")
        self.index(f"N:{M}/Renamed/:{M}/Album/", f"N:{M}/uno.mp3:{M}/one.mp3", f"d:{M}/two.mp3", f"N:{M}/only", "N:")
        found = [f"{M}/Renamed/Disc/four.mp3", f"{M}/Renamed/three.mp3", f"{M}/uno.mp3"]
        self.assertEqual(self.paths("music"), found)
        self.assertEqual(self.paths("directory"), [M, f"{M}/Renamed", f"{M}/Renamed/Disc"])

        video = self.put("/volume1/video/a.srt", "video/Formats/clip.srt")
        self.index("A:/volume1/video", "T:music", "T:video; DROP TABLE video", "T:sqlite_master", "T:")
        self.assertEqual((self.paths("music"), self.paths("video")), ([], [video]))
        os.unlink(video)
        self.index("R:music")
        self.assertEqual((self.paths("music"), self.paths("video")), (found, [video]))
        self.index("R:everything")
        self.assertEqual((self.paths("music"), self.paths("video")), (found, []))

    def test_one_file_has_one_row(self):
        link = "/var/services/music"
        self.addCleanup(lambda: (os.unlink(link), os.symlink(M, link)))
        os.unlink(link)
        os.symlink("../../volume1//./music", link)
        path = self.put(f"{M}/x/a.mp3")
        self.index("R:music", f"A:{M}//x/./", f"a:{M}/./x//a.mp3")
        self.assertEqual((self.paths("music"), self.paths("directory")), ([path], [M, f"{M}/x"]))
        os.unlink(path)
        self.index(f"d:{M}//x/./a.mp3")
        self.assertEqual(self.paths("music"), [])

    def test_a_rename_loses_nothing(self):
        def titles():
            self.assertEqual(self.paths("photo"), sorted(harness.glob.glob(f"{P}/[!@]*/*.jpg")))
            self.assertEqual(self.paths("photo"), self.paths("photo_info"))
            return {row["path"][len(P) + 1:-6]: row["title"] for row in appliance.rows("photo_info")}

        names = ("Artist", "Live", "One", "Two")
        for name in names:
            self.put(f"{P}/{name}/1.jpg", title=name)
        song = self.put(f"{M}/a.mp3")
        self.index(*harness.EVERYTHING)
        self.assertEqual(titles(), {name: name for name in names})
        # All of the old paths stand.
        self.index(f"N:{P}/Live:{P}/Artist:Live", f"N:{M}/a:/", f"N:{P}/Live:{P}", f"N:{P}/One:{P}/One", f"N:{M}/x:{M}")
        for torn in (f"N:{P}/Live:{P}/Two", f"N:{M}/New:{M}"):
            pathlib.Path(appliance.QUEUE).write_text(torn)
            self.index()
        self.assertEqual((self.paths("music"), titles()), ([song], {name: name for name in names}))

        for old, new, photos in ((P, M, 3), (M, P, 4)):  # to another share, and back
            os.rename(f"{old}/One", f"{new}/One")
            self.index(f"N:{new}/One:{old}/One", f"D:{old}/One")
            self.assertEqual((len(self.paths("photo_info")), self.row("photo", f"{new}/One/1.jpg")["album"]), (photos, "One"))
        self.assertEqual(len(titles()), 4)

        # A folder of films that has moved on is known by what was written about them.
        os.makedirs(f"{P}/Live/deep/last")
        with appliance.change("photo") as database:
            for table in ("video_desc", "video_comment"):
                database.execute(f"INSERT INTO {table} (path) VALUES (?)", (f"{P}/Live/deep/{table}/x.mp4",))
        for table in ("video_desc", "video_comment"):
            self.index(f"N:{P}/Live/deep/gone:{P}/Live/deep/{table}", f"N:{P}/Live/deep/last:{P}/Live/deep/gone")
            self.assertEqual(self.paths(table), [f"{P}/Live/deep/last/x.mp4"])

    def test_a_batch_that_is_no_file(self):
        path = self.put(f"{M}/a.mp3")
        for make, times in ((os.mkfifo, 1), (os.mkdir, 1), (lambda batch: os.symlink("/nowhere", batch), 0)):
            make(appliance.BATCH)
            log = self.index(f"A:{M}")
            failed = [line for line in log if line.endswith(f"Failed to open {appliance.BATCH}. (Invalid argument)")]
            self.assertEqual(len(failed), times, log)
            self.assertEqual(self.paths("music"), [path])
            self.forget_everything()


class Neighbours(harness.DaemonTest):
    def test_a_signal_leads_to_one_run_after_a_quiet_tick_and_an_unchanged_library_writes_nothing(self):
        signals = []
        for number, name in ((signal.SIGHUP, "mt-daapd"), (signal.SIGUSR1, "dms")):
            before = signal.signal(number, lambda received, _: signals.append(received))
            self.addCleanup(signal.signal, number, before)
            pathlib.Path(f"/run/{name}.pid").write_text(str(os.getpid()))

        def wait_for_the_last_signal():
            harness.wait_for("the media server's signal", lambda: signal.SIGUSR1 in signals)

        self.put(f"{M}/a.mp3")
        self.put(f"{M}/b.mp3", "music/Broken/noise.mp3")
        appliance.enqueue(["nothing to do"])  # once this is done, only a signal leads to a run
        self.start()
        wait_for_the_last_signal()
        for first in (True, False):
            signals.clear()
            appliance.enqueue([f"A:{M}"])
            watch = appliance.MediaWatch()
            begin = time.monotonic()
            os.kill(appliance.daemon_pid(), signal.SIGUSR1)
            appliance.wait_for_batch(harness.PATIENCE)
            self.assertGreater(time.monotonic() - begin, 8)
            wait_for_the_last_signal()
            self.assertEqual(signal.SIGHUP in signals, first)
            self.assertEqual(watch.has_changed(), first)
        self.assertEqual((self.paths("music"), self.paths("problem")), ([f"{M}/a.mp3", f"{M}/b.mp3"], [f"{M}/b.mp3"]))


if __name__ == "__main__":
    harness.main()
