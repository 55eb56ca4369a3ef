"""The points of fault_points where a server has the databases: the same kills and faults, the ends of connections, and
of the server itself, whose replica takes its place."""
import contextlib
import functools
import os
import pathlib
import signal

import fault_points
from harness import appliance, control_server
from wire import Wire

REPLICA = "/run/replica"
LOSSES = 40  # of a batch: each takes some seconds


@functools.cache
def wire():
    return Wire("/run/wire", appliance.SERVER)


def ask(server, statement):
    """Without the schema of the library, which may be away."""
    appliance.run_on_server(server, statement.encode())


class Points(fault_points.Points):
    def watch(self):
        wire().passed = 0

    def end_watch(self):
        self.messages = wire().passed

    @staticmethod
    def settings(replica=""):
        return appliance.server_settings(wire().folder + replica)

    def run_to(self, number, has_begun, hit, tick=appliance.try_again):
        """The batch, with something happening at the message of that number."""
        wire().arm(number, has_begun, hit)
        appliance.start(self.binary)
        with contextlib.suppress(appliance.DaemonGone, TimeoutError):
            appliance.wait_for_batch(60, tick)
        appliance.stop()
        self.unreached += wire().stop is not None
        wire().stop = None

    def ruptures(self):
        """Before each message to or from the server, and in its middle: the connection, or the daemon, ends."""
        return [(number, has_begun, end) for number in range(self.messages) for has_begun in (False, True)
                for end in ("the connection", "the daemon")]

    def rupture(self, point):
        number, has_begun, end = point
        fault_points.restore(self.start)
        self.run_to(number, has_begun, (lambda: None) if end == "the connection" else
                    lambda: appliance.stop(signal.SIGKILL))
        return f"{end} ended {'in' if has_begun else 'before'} message {number}", self.judge()

    def losses(self):
        return [*range(0, self.messages, self.messages // LOSSES + 1)]

    def lose(self, number):
        """All that the daemon took for done is on the replica, too."""
        fault_points.restore(self.start)
        control_server("replica", REPLICA, appliance.SERVER)
        ask(appliance.SERVER, "ALTER SYSTEM SET synchronous_standby_names = '*'; SELECT pg_reload_conf()")
        pathlib.Path("/etc/koliinfo.conf").write_text("runahead=no\n" + self.settings("," + REPLICA))
        primary, appliance.SERVER, steps = appliance.SERVER, REPLICA, []

        def tick():
            if steps == ["killed"]:
                control_server("promote", REPLICA)
                ask(REPLICA, "ALTER SYSTEM SET synchronous_standby_names = ''; SELECT pg_reload_conf()")
                steps.append("promoted")
            appliance.try_again()

        def kill():
            steps.append("killed")
            master = int(pathlib.Path(f"{primary}/data/postmaster.pid").read_text().split()[0])
            children = pathlib.Path(f"/proc/{master}/task/{master}/children").read_text().split()
            for process in (master, *map(int, children)):
                with contextlib.suppress(ProcessLookupError):
                    os.kill(process, signal.SIGKILL)

        try:
            self.run_to(number, False, kill, tick)
            found = self.judge() if steps else []
        finally:
            appliance.SERVER = primary
            control_server("stop", REPLICA)
            control_server("restart", primary)
            ask(primary, "ALTER SYSTEM SET synchronous_standby_names = ''; SELECT pg_reload_conf()")
            pathlib.Path("/etc/koliinfo.conf").write_text("runahead=no\n" + self.settings())
        return f"the primary was lost before message {number}", found


KINDS = {"kill": (Points.kills, Points.hit), "fault": (Points.faults, Points.hit),
         "rupture": (Points.ruptures, Points.rupture), "loss": (Points.losses, Points.lose)}
