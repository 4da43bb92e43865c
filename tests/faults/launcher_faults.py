#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
# The launcher when the operating system says no: the real strata-launcher in the partition
# sandbox (scripts/sandbox) with libfiu's preload libraries and our witness library
# (fault_witness.cpp) in its own environment alone, one run per row of the table below and
# mode. Every run is judged on the same invariants:
#   - its fault fired (the witness records each injected failure);
#   - it ends by itself or within 3 s of SIGTERM, except where the waits are fixed
#     behaviour (HELD, with the Parts of the specification that fix them);
#   - it ends with status 0 or 1, never by a signal; status 1 comes with a failure line on
#     standard error (unless every write fails);
#   - no daemon is left when it ends, and no child stays a zombie while it runs (unless
#     waitpid is the failing call);
#   - no daemon holds a launcher descriptor or sees the preload's environment.
# Usage: launcher_faults.py LAUNCHER STANDIN WITNESS [--all: every point in every scenario and
# mode, reporting instead of judging]; STRATA_FAULTS_ONLY=<regex> picks rows by "scenario point
# mode". Exit status 77 (skipped) without root, bubblewrap or libfiu.
import concurrent.futures
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
FIU = "/usr/lib/fiu"
MARKER = "/data/target/etc/adaptive/ara_DLT/DLTActivation"
# host, kind, sandbox options, passes that reach the run phase with their daemons
SCENARIOS = {
    "com": ("vm_adaptive", "0", [], 1),
    "bridge": ("vm_housekeeping", "99", [], 1),
    "phm": ("vm_java", "2", [], 1),
    "udpnm": ("vm_adaptive", "3", [], 1),
    "dlt": ("vm_adaptive", "1", ["--file", MARKER + "="], 2),
}
ALL = tuple(SCENARIOS)
DLT = ("dlt",)  # only the DLT launcher starts daemons again after its first READY
# Modes: s = always from the start, o = once (its first call), r = always once READY=1 is out.
# fault point, scenarios where the launcher makes the call (modes s and o), scenarios where
# it makes it after READY (mode r)
TABLE = [
    ("posix/proc/fork", ALL, DLT),
    ("strata/proc/execve", ALL, DLT),
    ("posix/io/net/socket", ALL, DLT),
    ("posix/io/net/bind", ("com", "phm", "udpnm", "dlt"), DLT),
    ("posix/io/net/recvmsg", ("com", "phm", "udpnm", "dlt"), DLT),
    ("posix/io/net/sendmsg", ALL, DLT),
    ("posix/io/net/poll", ALL, ALL),
    ("posix/io/oc/open", ALL, ALL),
    ("posix/io/oc/close", ALL, ALL),
    ("posix/io/rw/read", DLT, DLT),
    ("posix/io/rw/write", ALL, ALL),
    ("posix/io/dir/unlink", ALL, ALL),
    ("posix/io/dir/opendir", ("bridge", "udpnm", "dlt"), DLT),
    ("posix/io/dir/readdir", ("bridge", "udpnm", "dlt"), DLT),
    ("posix/proc/kill", ALL, ALL),
    ("posix/proc/waitpid", ALL, DLT),
    ("posix/proc/sigaction", ALL, DLT),
    ("strata/net/gethostname", ALL, ()),
    ("strata/time/nanosleep", ALL, ALL),
]
# Waits that the specification fixes, by fault point: the modes where a run may not end,
# and the Parts. A stop loop polls kill without bound (a failed SIGTERM leaves the PHM
# daemon running, and its loop only waits); a failed wait leaves the child unreaped, and
# the loops' kill keeps finding it; a sleep is resumed for as long as nanosleep fails with
# EINTR. The service manager's watchdog ends such a launcher.
HELD = {
    "posix/proc/kill": ("sor", "Parts 2.1, 2.7, 3.2"),
    "posix/proc/waitpid": ("sor", "Parts 2.1, 2.7, 3.2"),
    "strata/time/nanosleep": ("sr", "Parts 1.2, 2.1"),
}
FAILURE_LINE = re.compile(r"failed|FAILURE|Cannot|cannot|error|not ready|Unknown|not able")
SETTLE = 20.0  # the longest start: a COM daemon's readiness wait of 15 s
STOP_LIMIT = 3.0


def read(path):
    try:
        with open(path, errors="replace") as handle:
            return handle.read()
    except OSError:
        return ""


def children(pid):
    """(pid, state, name) of the children of every thread of pid."""
    found = []
    try:
        tasks = os.listdir("/proc/%d/task" % pid)
    except OSError:
        return found
    for task in tasks:
        for child in read("/proc/%d/task/%s/children" % (pid, task)).split():
            stat = read("/proc/%s/stat" % child)
            if stat:
                found.append((int(child), stat[stat.rindex(")") + 2], stat[stat.index("(") + 1:stat.rindex(")")]))
    return found


class Run:
    def __init__(self, launcher, standin, witness, scenario, point, mode):
        self.scenario, self.point, self.mode = scenario, point, mode
        self.label = "%-7s %-24s %s" % (scenario, point, mode)
        self.problems, self.held, self.zombies = [], False, {}
        host, kind, options, self.passes = SCENARIOS[scenario]
        self.records = tempfile.mkdtemp(prefix="strata-faults.")
        self.standins = os.path.join(self.records, "standin")
        os.makedirs(self.standins)
        shutil.copy(witness, self.standins)
        preload = ["/run/strata-standin/" + os.path.basename(witness), FIU + "/fiu_run_preload.so",
                   FIU + "/fiu_posix_preload.so"]
        command = "enable name=%s%s" % (point, ",onetime" if mode == "o" else "")
        environment = ["LD_PRELOAD=" + " ".join(preload), "STRATA_FAULT_RECORD=/run/strata-standin/fired",
                       "FIU_CTRL_FIFO=", "FIU_ENABLE=" + (command if mode != "r" else ""),
                       "FIU_PRNG_SEED=%d" % (sum(map(ord, self.label)) % 10007)]
        if mode == "r":
            environment.append("STRATA_FAULT_AFTER_READY=" + command)
        arguments = [sys.executable, os.path.join(TOP, "scripts", "sandbox"), "--quiet", "--hostname", host,
                     "--kind", kind, "--record-dir", self.records, "--launcher", launcher,
                     "--standin-binary", standin, "--timeout", "60"] + options
        for entry in environment:
            arguments += ["--launcher-env", entry]
        self.log = os.path.join(self.records, "stderr")
        self.started = time.monotonic()
        with open(self.log, "w") as log:
            self.process = subprocess.Popen(arguments, stdout=subprocess.DEVNULL, stderr=log,
                                            stdin=subprocess.DEVNULL)
        self.launcher_pid, self.last_view = None, []

    def launcher(self):
        if self.launcher_pid is None:
            text = read(os.path.join(self.records, "launcher.pid"))
            if text.endswith("\n") and read("/proc/%d/comm" % int(text)) == "strata-launcher\n":
                self.launcher_pid = int(text)
        return self.launcher_pid

    def watch(self):
        """One look at the launcher's children; False once the sandbox has ended."""
        if self.process.poll() is not None:
            return False
        pid = self.launcher()
        if pid is not None and read("/proc/%d/stat" % pid).split(") ")[-1][:1] not in ("", "Z", "X"):
            view = children(pid)
            self.last_view = view
            now = time.monotonic()
            for child, state, name in view:
                if state == "Z":
                    first = self.zombies.setdefault(child, now)
                    if now - first > 1.0 and self.point != "posix/proc/waitpid":
                        self.problems.append("zombie %s (%d) for more than 1 s" % (name, child))
                        self.zombies[child] = float("inf")
        return True

    def wait(self, predicate, seconds):
        deadline = time.monotonic() + seconds
        while self.watch():
            if predicate() or time.monotonic() > deadline:
                return True
            time.sleep(0.02)
        return False

    def settled(self):
        stderr = read(self.log)
        return (read(os.path.join(self.records, "notify.log")).count("READY=1") >= self.passes or
                stderr.count("Launcher: Running...") >= self.passes)

    def fired(self):
        return [line for line in read(os.path.join(self.standins, "fired")).splitlines()]

    def execute(self):
        try:
            # A held run spins or waits for ever: no need to wait long for it to settle.
            held = self.mode in HELD.get(self.point, ("", ""))[0]
            if self.wait(self.settled, 5.0 if held else SETTLE):
                # Once READY is out a fault of mode r is armed; give it a poll period to fire.
                self.wait(lambda: self.point in self.fired(), 1.0 if self.mode == "r" else 0.2)
                if self.launcher() is not None:
                    try:
                        os.kill(self.launcher(), signal.SIGTERM)
                    except ProcessLookupError:
                        pass
                    if self.wait(lambda: False, STOP_LIMIT):
                        self.end_held()
            self.process.wait(timeout=30)
            self.judge()
        except Exception as error:  # a broken run is a failed row, not a broken table
            self.problems.append("run failed: %r" % error)
        finally:
            if self.process.poll() is None:
                self.process.kill()
                self.process.wait()
            self.elapsed = time.monotonic() - self.started
            self.stderr = read(self.log)
            shutil.rmtree(self.records, ignore_errors=True)
        return self

    def end_held(self):
        if self.mode in HELD.get(self.point, ("", ""))[0]:
            self.held = True
        else:
            self.problems.append("still running %.0f s after SIGTERM" % STOP_LIMIT)
        # A second stop request makes the sandbox end everything in it at once; a busy
        # sandbox may take two signals for one, so they are repeated until it ends.
        for _ in range(20):
            self.process.send_signal(signal.SIGTERM)
            if self.wait(lambda: False, 0.5) is False:
                break

    def judge(self):
        fired = self.fired()
        stderr = read(self.log)
        if self.point not in fired:
            self.problems.append("the fault never fired")
        if "strata/control-error" in fired:
            self.problems.append("the fault could not be armed after READY")
        status = self.process.returncode
        if not self.held:
            if status not in (0, 1):
                self.problems.append("exit status %d" % status)
            if status == 1 and not FAILURE_LINE.search(stderr) and not (self.point.endswith("/write") and
                                                                         self.mode != "o"):
                self.problems.append("exit status 1 without a failure line")
            alive = [child for child in self.last_view if child[1] != "Z"]
            if alive:
                self.problems.append("daemons left when the launcher ended: %s" % alive)
        for name in os.listdir(self.standins):
            if name.endswith(".record"):
                for line in read(os.path.join(self.standins, name)).splitlines():
                    key = (line.split(" ") + ["", ""])[1]
                    if key == "fd" or (key == "env" and re.search(r" (LD_PRELOAD|FIU_|STRATA_FAULT)", line)):
                        self.problems.append("%s: %s" % (name, line))


def rows(everything):
    only = re.compile(os.environ.get("STRATA_FAULTS_ONLY", ""))
    for point, scenarios, after_ready in TABLE:
        for mode in "sor":
            for scenario in ALL if everything else scenarios if mode != "r" else after_ready:
                if only.search("%s %s %s" % (scenario, point, mode)):
                    yield scenario, point, mode


def main(launcher, standin, witness, everything):
    probe = ["bwrap", "--unshare-uts", "--unshare-pid", "--ro-bind", "/", "/", "true"]
    if os.geteuid() != 0 or not shutil.which("bwrap") or subprocess.run(probe, stderr=subprocess.PIPE).returncode:
        print("SKIPPED: needs root and a bwrap that can create namespaces", file=sys.stderr)
        return 77
    if not os.path.exists(FIU + "/fiu_posix_preload.so"):
        print("SKIPPED: needs libfiu's preload libraries (fiu-utils, libfiu0: scripts/setup)", file=sys.stderr)
        return 77
    started = time.monotonic()
    cases = list(rows(everything))
    # The runs mostly wait; twelve at a time keep two cores busy without starving them.
    with concurrent.futures.ThreadPoolExecutor(max_workers=12) as pool:
        runs = list(pool.map(lambda case: Run(launcher, standin, witness, *case).execute(), cases))
    failed = [run for run in runs if run.problems]
    for run in runs:
        verdict = "HELD (%s)" % HELD[run.point][1] if run.held else "ok"
        print("%s  status %-3s %5.1f s  %s" % (run.label, run.process.returncode, run.elapsed,
                                                "; ".join(run.problems) or verdict))
    for run in failed[:10] if not everything else []:
        print("--- %s\n%s" % (run.label, run.stderr[-1200:]), file=sys.stderr)
    print("faults: %d runs, %d failed, %d held, %.0f s" % (len(runs), len(failed), sum(r.held for r in runs),
                                                         time.monotonic() - started))
    return 1 if failed and not everything else 0


if __name__ == "__main__":
    arguments = [a for a in sys.argv[1:] if a != "--all"]
    sys.exit(main(*[os.path.abspath(a) for a in arguments[:3]], "--all" in sys.argv[1:]))
