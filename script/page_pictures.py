#!/usr/bin/python3
"""Pages of the sample library as a browser shows them: started by script/page-pictures, in the sandbox."""
import json
import os
import signal
import subprocess
import sys
import urllib.request

import appliance
import browser

SHARES = [f"A:/volume1/{share}" for share in ("music", "video", "photo")]
SIZES = {"wide": (1280, 800, 0.75, "light"), "phone": (390, 844, 1, "dark")}
PAGES = {
    "start": "/",
    "album": "/music/album/The%20Sample%20Band/Blue%20Harbour",
    "photos": "/photos/album/Coast%202019",
    "picture": "/entry/volume1/photo/Coast%202019/IMG_0000.jpg",
    "search": "/search?q=coast",
    "work": "/status",
}
DRAWN = "[...document.images].every(image => image.complete || image.getBoundingClientRect().top > innerHeight)"
FRAME = "new Promise(done => requestAnimationFrame(() => requestAnimationFrame(() => done(true))))"


def requests_done(base):
    with urllib.request.urlopen(f"{base}/live") as reply:
        return json.load(reply).get("requests_done", 0)


def stop_at_work(daemon, base):
    """The daemon in the midst of a batch, for as long as it is looked at."""
    appliance.stop()
    appliance.enqueue(SHARES * 8)
    appliance.start(daemon)
    appliance.wait_until(lambda: requests_done(base) > len(SHARES) * 3, 60, "the batch")
    os.kill(appliance.daemon_pid(), signal.SIGSTOP)


def take(page, base, folder, name):
    for size, (width, height, scale, scheme) in SIZES.items():
        page.size(width, height, scale)
        page.scheme(scheme)
        page.go(base + PAGES[name])
        page.until(DRAWN)
        if name == "album":
            page.click("[data-play-all]")
            page.until("document.querySelector('audio').currentTime > 0.2")
        page.run(FRAME)
        page.picture(f"{folder}/{name}-{size}.webp", format="webp", quality=60)


def main():
    appliance.require_sandbox()
    daemon, folder = sys.argv[1:]
    os.makedirs(folder, exist_ok=True)
    appliance.enqueue(SHARES)
    appliance.start(daemon)
    appliance.wait_for_batch(600)
    control = f"{os.path.dirname(os.path.abspath(daemon))}/koliindexctl"
    server = subprocess.Popen([control, "serve", "--cache", "/tmp/pictures"], stdout=subprocess.PIPE, text=True)
    base, lead = server.stdout.readline().strip().rstrip("/"), browser.Browser()
    page = lead.page()
    try:
        for name in PAGES:
            if name == "work":
                stop_at_work(daemon, base)
            take(page, base, folder, name)
    finally:
        lead.close()
        server.terminate()
        appliance.stop(signal.SIGKILL)


if __name__ == "__main__":
    main()
