#!/usr/bin/python3
"""A terminal session with the sample library, as a picture: started by script/terminal-picture, in the sandbox.

Only what is the same each time is typed here: no times, no rates.
"""
import os
import subprocess
import sys
from xml.sax.saxutils import escape

import appliance
from tables import columns

SESSION = (
    "koliindexctl add --wait '/volume1/music/Old Tapes'",
    "koliindexctl search trio side",
    "koliindexctl list --where year=1987 --sort title --columns title,artist,year",
    "koliindexctl why /volume1/photo/Formats/picture.tif",
    "koliindexctl stats --below /volume1/music | head -6",
)
COLUMNS, WIDTH, HEIGHT, MARGIN = 80, 8.4, 18, 18  # of a terminal; of a character, a line and the frame in pixels
STYLE = ("text{font:14px ui-monospace,Menlo,Consolas,'DejaVu Sans Mono',monospace;fill:#24292f;white-space:pre}"
         ".typed{font-weight:bold}.prompt{fill:#0969da}")


def session(daemon):
    """[(command, [line, ...]), ...]; the daemon is at work before and after."""
    path = os.path.dirname(os.path.abspath(daemon)) + ":" + os.environ["PATH"]
    said = []
    for command in SESSION:
        shown = subprocess.run(["bash", "-c", command], env={**os.environ, "PATH": path, "COLUMNS": str(COLUMNS)},
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                               check=False)
        if not shown.stdout:
            sys.exit(f"{command} prints nothing")
        said.append((command, shown.stdout.splitlines()))
    return said


def line_element(text, row, mark):
    """A line of the picture, as wide as its characters are on a terminal whatever font is found."""
    y = MARGIN + (row + 1) * HEIGHT - 5
    length = f'textLength="{columns(text) * WIDTH:.1f}" lengthAdjust="spacingAndGlyphs"'
    body = escape(text)
    if mark:
        body = f'<tspan class="prompt">$</tspan><tspan class="typed">{escape(text[1:])}</tspan>'
    return f'<text x="{MARGIN}" y="{y}" {length} xml:space="preserve">{body}</text>'


def picture(said):
    rows = []
    for command, lines in said:
        rows += [(f"$ {command}", True), *((line, False) for line in lines), ("", False)]
    rows.pop()
    width = max(columns(text) for text, _ in rows) * WIDTH + 2 * MARGIN
    height = len(rows) * HEIGHT + 2 * MARGIN
    elements = [line_element(text, row, mark) for row, (text, mark) in enumerate(rows) if text]
    return "\n".join([f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width:.0f} {height:.0f}" width="{width:.0f}">',
                      f"<style>{STYLE}</style>",
                      '<rect width="100%" height="100%" rx="8" fill="#f6f8fa" stroke="#d0d7de"/>',
                      *elements, "</svg>", ""])


def main():
    daemon, target = sys.argv[1:]
    appliance.require_sandbox()
    appliance.enqueue([f"A:/volume1/{share}" for share in ("music", "video", "photo")])
    appliance.start(daemon)
    appliance.wait_for_batch(600)
    svg = picture(session(daemon))
    appliance.stop()
    with open(target, "w", encoding="utf-8") as file:
        file.write(svg)


if __name__ == "__main__":
    main()
