"""What the scripts that measure have in common: is the machine quiet, and how figures are printed."""
import os
import statistics
import time

QUIET = 0.1  # of a processor, at work for others


def busy():
    """How many processors are at work, while this program does nothing."""
    def ticks():
        with open("/proc/stat", encoding="ascii") as stat:
            figures = [int(figure) for figure in stat.readline().split()[1:9]]
        return sum(figures) - figures[3] - figures[4]
    before = ticks()
    time.sleep(0.5)
    return (ticks() - before) / os.sysconf("SC_CLK_TCK") / 0.5


def tell_others(others):
    """`others`: what busy() has told from time to time."""
    if max(others) > QUIET:
        print(f"  The machine was not quiet: up to {max(others):.1f} of its processors were at work for others.")


def median_and_range(values, form):
    return f"{statistics.median(values):{form}} ({min(values):{form}} to {max(values):{form}})"
