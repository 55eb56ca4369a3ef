"""The library of the sandbox in a browser, with the daemon and the watcher at work beside the page."""
import os
import signal
import subprocess
import sys

import appliance
from live_shell import start_watcher


def run(daemon, shares):
    """Until Ctrl-C, or until the server ends."""
    control = f"{os.path.dirname(os.path.realpath(daemon))}/koliindexctl"
    if appliance.start(daemon).returncode != 0:
        sys.exit("The daemon did not start again")
    watcher = start_watcher(control, shares)
    print("\nThe library is at the address below; Ctrl-C ends it. It is a private copy of the machine: your files stay\n"
          "as they are.\n", flush=True)
    server = subprocess.Popen([control, "serve", "--cache", "/tmp/pictures"])
    try:
        server.wait()
    except KeyboardInterrupt:
        server.wait()
    finally:
        watcher.kill()
        appliance.stop(signal.SIGKILL)
