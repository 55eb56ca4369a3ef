"""What the shells of this machine offer when Tab is pressed."""
import fcntl
import os
import pty
import re
import shutil
import struct
import subprocess
import termios

import harness

DONE = "all is said"
LINE_AWAY = "\x01\x0b"  # as these shells understand it, and a terminal that no shell has taken over yet does not
# The shell, how it is started without anybody's settings, and what it is told first.
INTERACTIVE = {
    "bash": (["bash", "--norc", "--noprofile", "-i"],
             "bind 'set show-all-if-ambiguous on'; . /usr/share/bash-completion/completions/koliindexctl"),
    "zsh": (["zsh", "-f", "-i"], "unsetopt list_ambiguous; autoload -U compinit; compinit -u -D"),
}
SHELLS = [name for name in (*INTERACTIVE, "fish") if shutil.which(name)]


def typed(command, keys):
    """What a terminal shows after these keys, without its colours."""
    process, terminal = pty.fork()
    if process == 0:
        os.environ.update(TERM="dumb", PS1="> ", HOME="/tmp")
        os.execvp(command[0], command)
    fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("4H", 60, 250, 0, 0))
    shown = []
    os.set_blocking(terminal, False)
    try:
        os.write(terminal, keys.encode())

        def is_done():
            try:
                shown.append(os.read(terminal, 65536).decode(errors="replace"))
            except BlockingIOError:
                pass
            return f"\n{DONE}" in "".join(shown).replace("\r", "")

        harness.wait_for(f"{command[0]}'s answer", is_done)
    finally:
        os.close(terminal)  # which ends the shell
        os.waitpid(process, 0)
    return re.sub(r"\x1b\[[\d;?]*\w", "", "".join(shown))


def offered(shell, line):
    """The text that the shell shows when Tab is pressed behind "koliindexctl " and the line."""
    line = f"koliindexctl {line}"
    if shell == "fish":
        return subprocess.run(["fish", "-c", f"complete -C '{line}'"], env={**os.environ, "HOME": "/tmp"},
                              stdout=subprocess.PIPE, text=True, check=True).stdout
    command, first = INTERACTIVE[shell]
    said = DONE.replace(" ", "' '")
    return typed(command, f"{first}\r{line}\t{LINE_AWAY}echo {said}\r")
