"""What the daemon stored of the shares, as tables: a few rows of each kind, what could not be read, what it logged."""
import collections
import os
import re

import appliance
from tables import Column, print_table

WORDS = {"music": "music", "video": "videos", "photo": "pictures", "playlist": "playlists", "directory": "folders",
         "photo_info": "photo library", "photo_share": "albums", "photo_access_right": "access rights"}
MOST_PROBLEMS = 40
MOST_ALBUMS = 20
QUEUE_LINES_SHOWN = 8
LOG_LINES_SHOWN = 12
FILE = Column("file", 24, is_path=True)


def number(name):
    return Column(name, is_number=True)


def clock(seconds):
    return f"{int(seconds // 60)}:{seconds % 60:04.1f}" if seconds else "-"


def kilobits(bits):
    return f"{bits / 1000:.0f} k" if bits else "-"


def truth(value):
    return str(value).lower() in ("t", "1", "true", "yes")


def short(path):
    return path.removeprefix("/volume1/")


def spread(title, rows, most, heads, line):
    """At most so many rows, from all over a table; line turns a row into a line."""
    step = max(1, len(rows) // most)
    shown = sorted(rows, key=lambda row: row["path"])[::step][:most]
    if shown:
        print_table(title, [FILE, *heads], [(short(row["path"]), *line(row)) for row in shown], len(rows))


def print_media(tables, most):
    spread("Music", tables["music"], most,
           [Column("title", 14), Column("artist", 8), number("length"), Column("album", 8), number("year"),
            Column("genre", 8), number("bit rate"), number("Hz"), Column("cover")],
           lambda r: (r["title"], r["artist"], clock(r["duration"]), r["album"], r["year"] or "-", r["genre"],
                      kilobits(r["audio_bitrate"]), r["sample_rate"] or "-", "yes" if r["has_cover"] else ""))
    spread("Videos", tables["video"], most,
           [Column("title", 14), number("length"), number("width"), number("height"), number("video"), number("audio")],
           lambda r: (r["title"], clock(r["duration"]), r["width"] or "-", r["height"] or "-",
                      kilobits(r["video_bitrate"]), kilobits(r["audio_bitrate"])))
    spread("Playlists", tables["playlist"], most, [Column("title", 14), Column("album", 8), number("bytes")],
           lambda r: (r["title"], r["album"], r["file_size"]))


def print_photos(tables, most):
    spread("Pictures", tables["photo"], most,
           [Column("title", 10), number("width"), number("height"), Column("taken", 16), Column("camera", 10),
            number("ISO")],
           lambda r: (r["title"], r["width"] or "-", r["height"] or "-", r["date_taken"],
                      f"{r['camera_make']} {r['camera_model']}".strip(), r["iso_speed"] or "-"))
    spread("Photo library", tables["photo_info"], most, [Column("title", 14), Column("description", 20)],
           lambda r: (r["title"], r["description"]))
    albums = sorted(tables["photo_share"], key=lambda r: r["sharename"])
    rights = [right["shareid"] for right in tables["photo_access_right"]]
    if albums:
        print_table("Albums", [Column("album", 24, is_path=True), Column("public"), Column("sub-album"),
                               number("users with access")],
                    [(r["sharename"], "yes" if truth(r["public"]) else "", "yes" if truth(r["is_subdir"]) else "",
                      rights.count(r["shareid"]) or "-") for r in albums[:MOST_ALBUMS]], len(albums))


def print_queues(queues):
    for name, path in queues:
        if os.path.exists(path):
            with open(path, "rb") as file:
                lines = os.fsdecode(file.read()).splitlines()
            print_table(f"Waiting for the {name} in {path}", [Column("entry", 24, is_path=True)],
                        [(line,) for line in lines[:QUEUE_LINES_SHOWN]], len(lines))


def print_problems(tables, files, most):
    problems = sorted((row["path"], row["reason"]) for row in tables["problem"])
    if problems:
        print_table("Could not be read", [FILE, Column("why", 50)],
                    [(short(path), reason) for path, reason in problems[:MOST_PROBLEMS]], len(problems))
    told = ("music", "video", "photo", "playlist", "photo_info", "problem")
    others = sorted(set(files) - {row["path"] for table in told for row in tables[table]})
    if others:
        print_table("Passed over for their names", [FILE], [(short(path),) for path in others[:most]], len(others))


def print_log(messages):
    """Each kind of message once, without the files that several are about."""
    kinds = collections.defaultdict(list)
    for text in messages:
        if not text.startswith("event "):
            kinds[re.sub(r"/volume1/(.*(?=\])|.*)", "…", text)].append(text)
    often = sorted(kinds.items(), key=lambda kind: -len(kind[1]))
    if often:
        print_table("System log", [number("times"), Column("message", 24)],
                    [(len(same), kind if len(same) > 1 else same[0]) for kind, same in often[:LOG_LINES_SHOWN]], len(often))


def print_counts(tables):
    lines = [(WORDS[name], len(rows)) for name, rows in tables.items() if name in WORDS]
    print_table("Rows stored", [Column("kind"), number("rows")], lines)


def print_report(files, queues, most):
    """most: how many rows of each kind are shown."""
    names = appliance.MEDIA_TABLES + appliance.PHOTO_TABLES + ("problem",)
    tables = {name: appliance.rows(name) for name in names}
    print_media(tables, most)
    print_photos(tables, most)
    print_queues(queues)
    print_problems(tables, files, most)
    print_log(appliance.log_messages())
    print_counts(tables)
