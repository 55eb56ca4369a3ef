#!/usr/bin/python3
"""Writes what the daemon stores and logs of the samples and of damaged copies of them, in lines that are the same on
every machine:  script/sandbox -- tests/e2e/rows.py DAEMON FILE"""
import ctypes
import hashlib
import os
import re
import shutil
import sys
import time

import damage_test
import harness
from harness import appliance

TIMES = (-2_500_000_000, 0, 1_000_000_000, 3_000_000_000, 5_000_000_000)  # of files, in turn: from 1890 to 2128
OF_THE_RUN = {"ctime", "time"}  # columns
TODAY = re.compile("^" + time.strftime("%Y-%m-%d") + ".*")  # so is a picture without a date dated


def change_time(path, seconds):
    """Python has short times where the machine's C library has them, too."""
    libc = ctypes.CDLL(None, use_errno=True)
    call = libc["__utimensat64"] if ctypes.sizeof(ctypes.c_long) == 4 else libc.utimensat
    if call(-100, os.fsencode(path), (ctypes.c_int64 * 4)(0, 0, seconds, 0), 0) != 0:
        raise OSError(ctypes.get_errno(), path)


def put_library():
    for share in harness.SHARES:
        shutil.copytree(f"{harness.SAMPLES}/{share}", f"/volume1/{share}", dirs_exist_ok=True)
    damage_test.put_damaged_copies()
    number = 0
    for place, folders, names in os.walk("/volume1", topdown=False):
        for name in sorted(names):
            change_time(os.path.join(place, name), TIMES[number % len(TIMES)])
            number += 1
        change_time(place, TIMES[-1])


def text_of(value):
    return value.hex() if isinstance(value, float) else TODAY.sub("today", str(value))


def row_lines():
    for table in (*appliance.MEDIA_TABLES, *appliance.PHOTO_TABLES, "problem"):
        for row in appliance.rows(table):
            yield f"{table}: " + " ".join(f"{key}='{text_of(row[key])}'" for key in row if key not in OF_THE_RUN)


def cover_lines():
    for place, _, names in os.walk("/volume1"):
        for name in names if "@eaDir" in place else ():
            with open(os.path.join(place, name), "rb") as file:
                yield f"{place}/{name}: {hashlib.sha256(file.read()).hexdigest()}"


class Rows(harness.DaemonTest):
    out = ""

    def test_the_library(self):
        put_library()
        log = self.index(*harness.EVERYTHING)
        messages = [re.sub(r"(?<=Process )\d+", "", line) for line in log if "this kernel lacks it" not in line]
        lines = [*row_lines(), *cover_lines(), *messages]
        with open(self.out, "w", encoding="utf-8", errors="surrogateescape") as file:
            file.writelines(line + "\n" for line in sorted(lines))


if __name__ == "__main__":
    Rows.out = sys.argv.pop(2)
    harness.main()
