"""Tables of text for people: as wide as the terminal, and whole where there is none."""
import os
import shutil
import sys
import typing
import unicodedata

MARGIN = GAP = "  "


class Column(typing.NamedTuple):
    name: str
    least: int = 0  # the narrowest it may become by cutting its texts; 0: they are never cut
    is_number: bool = False
    is_path: bool = False  # its end tells more than its beginning


def printable(value):
    """Names are bytes: what is no text, and control characters, are shown as escapes."""
    text = os.fsencode(str(value)).decode("utf-8", "backslashreplace")
    return "".join(c if c.isprintable() else c.encode("unicode_escape").decode() for c in text)


def columns(text):
    """What a terminal takes for it: letters of East Asia stand in two columns, accents that combine in none."""
    return sum(2 if unicodedata.east_asian_width(c) in "WF" else 0 if unicodedata.category(c) in ("Mn", "Me") else 1
               for c in text)


def cut(text, width, from_the_left=False):
    if columns(text) <= width:
        return text
    while columns(text) >= width:
        text = text[1:] if from_the_left else text[:-1]
    return "…" + text if from_the_left else text + "…"


def pad(text, width, to_the_right):
    blanks = " " * (width - columns(text))
    return blanks + text if to_the_right else text + blanks


def room():
    """How many columns there are; None: as many as it takes. COLUMNS speaks for a pipe, too."""
    return shutil.get_terminal_size().columns if sys.stdout.isatty() or os.environ.get("COLUMNS") else None


def fit(heads, widths, limit):
    """The widths with which the table stays within the limit; the last columns have none when that does not help."""
    def too_wide(some):
        return limit is not None and len(MARGIN) + sum(some) + len(GAP) * (len(some) - 1) > limit

    least = [min(width, max(head.least, columns(head.name))) if head.least else width
             for head, width in zip(heads, widths)]
    while len(least) > 1 and too_wide(least):
        least.pop()
    widths = widths[:len(least)]
    while too_wide(widths) and widths != least:
        widest = max(range(len(least)), key=lambda i: widths[i] - least[i])
        widths[widest] -= 1
    return widths


def print_table(title, heads, lines, total=None):
    """total: how many lines there are of which these are shown."""
    notes = [] if total is None else [f"{total}" if total == len(lines) else f"{len(lines)} of {total}"]
    cells = [[printable(value) for value in line] for line in lines]
    names = [head.name for head in heads]
    widths = fit(heads, [max(columns(row[i]) for row in [names] + cells) for i in range(len(heads))], room())
    if len(widths) < len(heads):
        notes.append(f"no room for: {', '.join(names[len(widths):])}")
    print("\n" + cut(title + (f" ({'; '.join(notes)})" if notes else ""), room() or sys.maxsize))
    for row in [names, ["-" * width for width in widths]] + cells:
        print(MARGIN + GAP.join(pad(cut(text, width, head.is_path), width, head.is_number)
                                for text, width, head in zip(row, widths, heads)).rstrip())
