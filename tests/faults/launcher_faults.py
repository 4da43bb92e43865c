#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
# The launcher when the operating system says no: the real strata-launcher in the partition
# sandbox (scripts/sandbox) with libfiu's preload libraries and the fault witness
# (tools/fault_witness) in its own environment alone, one run per row of the table below and
# mode. Every run is judged on the same invariants:
#   - its fault fired (the witness records each injected failure);
#   - it ends by itself or soon after SIGTERM (STOP_LIMIT), except where the waits are
#     fixed behaviour (HELD, with the waits that keep them);
#   - it ends with status 0 or 1, never by a signal; status 1 comes with a failure line on
#     standard error (unless every write fails);
#   - no daemon is alive when it ends, and no child stays a zombie for more than a second
#     (the sandbox watches its children) unless waitpid is the failing call;
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
    # No row for gethostname: a launcher that ends at once, while the log library's threads
    # are still starting inside libfiu's wrappers, now and then hangs in its exit inside the
    # preloads, which says nothing of the launcher. The unreadable host name's lines are
    # checked by the launcher's failure table, which makes gethostname fail.
    ("strata/time/nanosleep", ALL, ALL),
]
# Waits kept on purpose, by fault point: the modes where a run may not end, and the wait
# that keeps it. A stop loop polls kill without bound (a failed SIGTERM leaves the PHM
# daemon running, and its loop only waits); a failed wait leaves the child unreaped, and
# the loops' kill keeps finding it; a sleep is resumed for as long as nanosleep fails with
# EINTR. Only the unit's stop limit ends such a launcher.
HELD = {
    "posix/proc/kill": ("sor", "stop loop polls kill"),
    "posix/proc/waitpid": ("sor", "stop loop finds the unreaped child"),
    "strata/time/nanosleep": ("sr", "sleep resumed after EINTR"),
}
FAILURE_LINE = re.compile(r"failed|FAILURE|Cannot|cannot|error|not ready|Unknown|not able")
SETTLE = 20.0  # the longest start: a COM daemon's readiness wait of 15 s
# A stop takes well under a second, or about 2.3 s where the bridge's daemons missed SIGTERM
# (its 2 s wait before SIGKILL); twice that, for a loaded machine. Each run's time is shown.
STOP_LIMIT = 6.0


def read(path):
    try:
        with open(path, errors="replace") as handle:
            return handle.read()
    except OSError:
        return ""


def ended(pid):
    """True once the launcher is gone or a zombie (a pid of this run's own launcher, or None)."""
    if not pid:
        return True
    stat = read("/proc/%d/stat" % pid)
    return not stat.startswith("%d (strata-launcher) " % pid) or stat.split(") ", 1)[1][:1] in "ZX"


class Run:
    def __init__(self, launcher, standin, witness, scenario, point, mode):
        self.point, self.mode, self.label = point, mode, "%-7s %-24s %s" % (scenario, point, mode)
        self.problems, self.held, self.stop_time = [], False, None
        self.may_hold = mode in HELD.get(point, ("", ""))[0]
        host, kind, options, self.passes = SCENARIOS[scenario]
        self.records = tempfile.mkdtemp(prefix="strata-faults.")
        os.makedirs(os.path.join(self.records, "standin"))
        shutil.copy(witness, os.path.join(self.records, "standin"))
        preload = ["/run/strata-standin/" + os.path.basename(witness), FIU + "/fiu_run_preload.so",
                   FIU + "/fiu_posix_preload.so"]
        command = "enable name=%s%s" % (point, ",onetime" if mode == "o" else "")
        environment = ["LD_PRELOAD=" + " ".join(preload), "STRATA_FAULT_RECORD=/run/strata-standin/fired",
                       "FIU_CTRL_FIFO=", "FIU_ENABLE=" + (command if mode != "r" else ""),
                       "FIU_PRNG_SEED=%d" % (sum(map(ord, self.label)) % 10007)]
        environment += ["STRATA_FAULT_AFTER_READY=" + command] if mode == "r" else []
        self.log = os.path.join(self.records, "stderr")
        self.started = time.monotonic()
        with open(self.log, "w") as log:
            self.process = subprocess.Popen(
                [sys.executable, os.path.join(TOP, "scripts", "sandbox"), "--quiet", "--hostname", host, "--kind",
                 kind, "--record-dir", self.records, "--launcher", launcher, "--standin-binary", standin,
                 "--timeout", "60"] + options + sum((["--launcher-env", e] for e in environment), []),
                stdout=subprocess.DEVNULL, stderr=log, stdin=subprocess.DEVNULL)
        self.reniced = not self.may_hold

    def file(self, name):
        return read(os.path.join(self.records, name))

    def wait(self, predicate, seconds):
        """True when the predicate holds or the time is up, False once the sandbox ended."""
        deadline = time.monotonic() + seconds
        while self.process.poll() is None:
            if predicate() or time.monotonic() > deadline:
                return True
            time.sleep(0.02)
        return False

    def settled(self):
        pid = None if self.reniced else self.launcher()
        if pid is not None:
            # A spinning launcher must not starve the runs that are timed; its later threads
            # inherit the main thread's niceness.
            try:
                for task in os.listdir("/proc/%d/task" % pid):
                    os.setpriority(os.PRIO_PROCESS, int(task), 19)
            except OSError:
                pass
            self.reniced = True
        return max(self.file("notify.log").count("READY=1"), self.file("stderr").count("Launcher: Running...")) \
            >= self.passes

    def daemons_started(self):
        forked = set(re.findall(r"Process_factory:create process Fork PID= (\d+)\n", self.file("stderr")))
        records = "".join(self.file("standin/" + n) for n in os.listdir(os.path.join(self.records, "standin")))
        return forked <= set(re.findall(r"^(\d+) start ", records, re.M))

    def launcher(self):
        text = self.file("launcher.pid")  # may still name the sandbox's shell, which execs it
        if text.endswith("\n") and read("/proc/%d/comm" % int(text)) == "strata-launcher\n":
            return int(text)
        return None

    def stop_launcher(self):
        pid = self.launcher()
        try:
            if pid is not None and pid > 0:  # never a process group
                os.kill(pid, signal.SIGTERM)
        except ProcessLookupError:
            pass

    def execute(self):
        try:
            # A held run spins or waits for ever: no need to wait long for it to settle.
            if self.wait(self.settled, 5.0 if self.may_hold else SETTLE):
                # Once READY is out a fault of mode r is armed; give it a poll period to fire.
                self.wait(lambda: self.point in self.file("standin/fired"), 3.0 if self.mode == "r" else 0.2)
                # A daemon not yet past its exec would miss the SIGTERM (nothing awaits the bridge's).
                self.wait(self.daemons_started, 1.0)
                # The sandbox names the launcher a moment after it started.
                self.wait(lambda: self.launcher() is not None, 5.0)
                pid = self.launcher()
                self.stop_launcher()
                stopped = time.monotonic()
                # The launcher's own end is timed, not the sandbox's clean-up after it.
                if self.wait(lambda: ended(pid), STOP_LIMIT) and not ended(pid):
                    self.held = self.may_hold
                    if not self.held:
                        self.problems.append("still running %.0f s after SIGTERM" % STOP_LIMIT)
                    # Further stop requests make the sandbox end everything in it at once.
                    while self.wait(lambda: False, 0.5) and time.monotonic() - self.started < 60:
                        self.process.send_signal(signal.SIGTERM)
                else:
                    self.stop_time = time.monotonic() - stopped
            self.process.wait(timeout=30)
            self.judge()
        except Exception as error:  # a broken run is a failed row, not a broken table
            self.problems.append("run failed: %r" % error)
        finally:
            if self.process.poll() is None:
                self.process.kill()
                self.process.wait()
            self.elapsed, self.stderr = time.monotonic() - self.started, self.file("stderr")
            shutil.rmtree(self.records, ignore_errors=True)
        return self

    def judge(self):
        fired, status, children = self.file("standin/fired").splitlines(), self.process.returncode, self.file("children")
        if self.point not in fired:
            self.problems.append("the fault never fired")
        if "strata/control-error" in fired:
            self.problems.append("the fault could not be armed after READY")
        if not self.held:
            every_write_fails = self.point.endswith("/write") and self.mode != "o"
            if status not in (0, 1):
                self.problems.append("exit status %d" % status)
            if status == 1 and not FAILURE_LINE.search(self.file("stderr")) and not every_write_fails:
                self.problems.append("exit status 1 without a failure line")
            self.problems += [line for line in children.splitlines() if line.startswith("left ")]
        if self.point != "posix/proc/waitpid":
            self.problems += [line for line in children.splitlines() if line.startswith("zombie ")]
        for name in os.listdir(os.path.join(self.records, "standin")):
            for line in self.file("standin/" + name).splitlines() if name.endswith(".record") else []:
                if re.match(r"\d+ (fd |env (LD_PRELOAD|FIU_|STRATA_FAULT))", line):
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
    # The runs mostly wait; twelve at a time keep two cores busy without starving them.
    with concurrent.futures.ThreadPoolExecutor(max_workers=12) as pool:
        runs = list(pool.map(lambda case: Run(launcher, standin, witness, *case).execute(), rows(everything)))
    failed = [run for run in runs if run.problems]
    for run in runs:
        verdict = "HELD (%s)" % HELD[run.point][1] if run.held else "ok"
        print("%s  status %-3s %5.1f s  stop %s  %s" % (run.label, run.process.returncode, run.elapsed,
                                                         "%4.1f s" % run.stop_time if run.stop_time else "  -   ",
                                                         "; ".join(run.problems) or verdict))
    for run in failed[:10] if not everything else []:
        print("--- %s\n%s" % (run.label, run.stderr[-1200:]), file=sys.stderr)
    print("faults: %d runs, %d failed, %d held, longest stop %.1f s, %.0f s in all" % (
        len(runs), len(failed), sum(r.held for r in runs), max(r.stop_time or 0 for r in runs),
        time.monotonic() - started))
    return 1 if failed and not everything else 0


if __name__ == "__main__":
    arguments = [a for a in sys.argv[1:] if a != "--all"]
    sys.exit(main(*[os.path.abspath(a) for a in arguments[:3]], "--all" in sys.argv[1:]))
