#!/usr/bin/python3
"""The same library with its databases in files and on a server: the same rows, and the same answers."""
import json
import os
import pathlib
import random
import signal
import subprocess
import time
import urllib.request

import harness
from harness import appliance

CONFIG = pathlib.Path("/etc/koliinfo.conf")
ODD_NAMES = (b"inv\xff\xfe\xc3alid", "\uf780\uf7ff".encode(), b"\xc3\xa9\x80 after \xc3\xa9", b"\x80 before it", b"it's 100%_\\", b"new\nline\x01")


class Engines(harness.DaemonTest):
    def answers(self):
        """What koliindexctl finds, but for what is about the engine itself."""
        found = {}
        for command in ("list", "problems", "stats", "search a", "sync --dry-run", "show /volume1/music", "status",
                        "list --where title~A --limit 7", "list --below /volume1/photo --where width=64"):
            words = command.split()
            asked = subprocess.run(self.command(words[0], "--json", *words[1:]), capture_output=True, check=False)
            self.assertEqual((asked.stderr.replace(b"The daemon does not run.\n", b""), asked.returncode in (0, 1, 3)),
                             (asked.stderr, True))
            found[command] = json.loads(asked.stdout)
        found["status"] = {name: value for name, value in found["status"].items() if name.startswith("rows_")}
        for problem in found["problems"]:
            del problem["time"]
        return {**found, "pages": self.pages()}

    def pages(self):
        """What koliindexserve shows, once it has read them."""
        with subprocess.Popen(self.command("serve", "--cache", "/tmp/pictures"), stdout=subprocess.PIPE, text=True) as server:
            base = server.stdout.readline().strip()

            def read(address):
                with urllib.request.urlopen(base + address, timeout=harness.PATIENCE) as page:
                    return page.read().decode()

            harness.wait_for("the library", lambda: "Blue Harbour" in read("music/albums"))
            pages = [read(address) for address in ("music/albums", "films", "photos/albums", "folder/volume1/music")]
            server.terminate()
        return pages

    def test_rows_and_answers_are_the_same(self):
        chance = random.Random(14)
        for share in harness.SHARES:
            harness.shutil.copytree(f"{harness.SAMPLES}/{share}", f"/volume1/{share}", dirs_exist_ok=True)
            for source in sorted(pathlib.Path(f"/volume1/{share}").rglob("*.*")):
                if source.is_file() and "@eaDir" not in str(source):
                    damaged = bytearray(source.read_bytes()[:chance.randrange(1, 100_000)])
                    for _ in range(chance.randrange(20) if damaged else 0):
                        damaged[chance.randrange(len(damaged))] = chance.randrange(256)
                    source.with_name("damaged " + source.name).write_bytes(damaged)
        for name in ODD_NAMES:
            self.put(b"/volume1/music/%s/%s.mp3" % (name, name))
            self.put(b"/volume1/photo/%s/%s.jpg" % (name[:9], name), title="A caption")
        configured, captions = CONFIG.read_text(), list(pathlib.Path("/volume1").rglob("KOLIPHOTO:*"))
        captions = {path: path.read_bytes() for path in captions}
        found = []
        for appliance.ON_SERVER, settings in ((False, ""), (True, configured)):
            CONFIG.write_text(settings)
            self.forget_everything()
            for path, text in captions.items():
                path.write_bytes(text)
            self.index(*harness.EVERYTHING)
            found.append({**harness.stored_rows(), **self.answers()})
        files, server = found
        for part, rows in files.items():
            self.assertEqual(rows, server[part], part)
        self.assertEqual(server["sync --dry-run"]["differences"], [])
        self.assertGreater(len(server["music"]), 50)

    def test_a_server_that_stands_still_is_given_up_and_what_it_was_told_comes_again(self):
        self.put("/volume1/photo/one.jpg", title="One")
        self.index(*harness.EVERYTHING)
        two = self.put("/volume1/photo/two.jpg", title="Two")
        master = pathlib.Path(f"{appliance.SERVER}/data/postmaster.pid").read_text().split()[0]
        self.start()
        appliance.enqueue([f"A:{two}"])
        harness.hurry()
        appliance.wait_for_batch(harness.PATIENCE)
        os.unlink(two)
        children = pathlib.Path(f"/proc/{master}/task/{master}/children").read_text().split()
        for process in (master, *children):
            os.kill(int(process), signal.SIGSTOP)
        begin = time.monotonic()
        try:
            appliance.enqueue([f"D:{two}"])
            harness.hurry()
            harness.wait_for("the refusal", lambda: any("does not answer" in line for line in appliance.log_messages()))
            self.assertLess(time.monotonic() - begin, 40)  # with the loop's tick
        finally:
            for process in (*children, master):
                os.kill(int(process), signal.SIGCONT)
        appliance.wait_for_batch(harness.PATIENCE)
        self.assertEqual(self.paths("photo_info"), ["/volume1/photo/one.jpg"])
        appliance.stop()


if __name__ == "__main__":
    harness.main()
