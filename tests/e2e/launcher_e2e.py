#!/usr/bin/env python3
# End-to-end passes: the real strata-launcher in the partition sandbox (scripts/sandbox) with
# stand-in daemons. Every scenario of a case runs in a sandbox of its own, all at once, and
# is judged on its transcript, exit status, the daemons' records and the READY datagrams.
# Usage: launcher_e2e.py --launcher BIN --standin BIN [unittest arguments]; exit status 77
# (skipped) when not root or when bubblewrap cannot create namespaces.
import argparse
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest

SANDBOX = os.path.join(os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))), "scripts",
                       "sandbox")
SKIP = 77
LAUNCHER = STANDIN = None
RUNS = []
# Every wait is bounded; the bounds are more than twice the worst seen on a loaded 2-core machine.
WAIT = 20.0
PATH_ENTRY = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
USAGE = ("Launcher: main_launcher start : flag_updated=false \nUsage: Strata Launcher [daemon]\n"
         "0: COM, 1: DLT, 2: PHM, 3: UDPNM, 99: COM BRIDGE\nNo valid process type to initialize dlt. \n"
         " Launcher: Shutting down... TERMINATION\nLauncher: Terminating...\n")


def sandbox_usable():
    if os.geteuid() != 0 or shutil.which("bwrap") is None:
        return "needs root and bwrap (bubblewrap)"
    probe = subprocess.run(["bwrap", "--unshare-uts", "--unshare-pid", "--ro-bind", "/", "/", "--proc", "/proc",
                            "true"], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    return probe.returncode and "bwrap cannot create namespaces: " + probe.stderr.decode(errors="replace")


class Record:
    # A stand-in's record: lines "pid key value" of every start of one daemon name.
    def __init__(self, path):
        self.lines = []
        if os.path.exists(path):
            with open(path) as handle:
                self.lines = [(line.rstrip("\n").split(" ", 2) + [""])[:3] for line in handle if line.strip()]

    def pids(self):
        return sorted({int(fields[0]) for fields in self.lines})

    def values(self, key, pid=None):
        return [value for p, k, value in self.lines if k == key and pid in (None, int(p))]


def processes_in_namespace(namespace):
    # (pid, state, name) of every process in the PID namespace named by a /proc/<pid>/ns/pid link.
    found = []
    for entry in filter(str.isdigit, os.listdir("/proc")):
        try:
            if os.readlink("/proc/%s/ns/pid" % entry) != namespace:
                continue
            with open("/proc/%s/stat" % entry) as handle:
                stat = handle.read()
        except OSError:
            continue
        found.append((int(entry), stat[stat.rindex(")") + 2], stat[stat.index("(") + 1:stat.rindex(")")]))
    return found


class Run:
    # One sandbox run of the launcher. Its stderr is read as it comes, so that a case can
    # wait for a line and the transcript is whole once the sandbox has ended.
    def __init__(self, test, hostname, kind, *options, records=None):
        self.test, self.label = test, "%s kind %s %s" % (hostname, kind, " ".join(options))
        self.records = records or tempfile.mkdtemp(prefix="strata-e2e.")
        test.addCleanup(shutil.rmtree, self.records, True)
        arguments = [sys.executable, SANDBOX, "--quiet", "--hostname", hostname, "--record-dir", self.records,
                     "--launcher", LAUNCHER, "--standin-binary", STANDIN, "--timeout", "60"]
        self.process = subprocess.Popen(arguments + (["--kind", kind] if kind else []) + list(options),
                                        stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, stdin=subprocess.DEVNULL)
        self.chunks, self.ended, self.pid = [], None, None
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()
        RUNS.append(self)
        test.addCleanup(self.kill)

    def read(self):
        for chunk in iter(lambda: self.process.stderr.read1(4096), b""):
            self.chunks.append(chunk)
        self.ended = time.monotonic()

    @property
    def stderr(self):
        return b"".join(self.chunks).decode(errors="replace")

    def kill(self):
        # A stop request for the launcher, a second one that ends the sandbox, SIGKILL last.
        for number in (signal.SIGTERM, signal.SIGTERM, signal.SIGKILL):
            if self.process.poll() is None:
                self.process.send_signal(number)
                try:
                    self.process.wait(timeout=5)
                except subprocess.TimeoutExpired:
                    pass

    def fail(self, what):
        self.test.fail("%s\n--- %s, stderr:\n%s" % (what, self.label, self.stderr[-1500:]))

    def wait_for(self, predicate, what, seconds=WAIT):
        deadline = time.monotonic() + seconds
        while not predicate():
            if self.process.poll() is not None and self.ended is not None and not predicate():
                self.fail("the sandbox ended (status %s) before %s" % (self.process.returncode, what))
            if time.monotonic() > deadline:
                self.fail("no %s within %.0f s" % (what, seconds))
            time.sleep(0.01)

    def wait_text(self, text, seconds=WAIT):
        self.wait_for(lambda: text in self.stderr, repr(text), seconds)

    def ready_count(self):
        path = os.path.join(self.records, "notify.log")
        if not os.path.exists(path):
            return 0
        with open(path) as handle:
            return handle.read().count("READY=1")

    def wait_ready(self, count=1, seconds=WAIT):
        self.wait_for(lambda: self.ready_count() >= count, "READY=1 #%d at the sandbox's socket" % count, seconds)

    def exec_done(self):
        # The pid file may be half written, and its pid may still be the sandbox's shell.
        try:
            with open(os.path.join(self.records, "launcher.pid")) as handle:
                text = handle.read()
            with open("/proc/%d/comm" % int(text)) as handle:
                self.pid = int(text) if text.endswith("\n") and handle.read() == "strata-launcher\n" else None
        except (OSError, ValueError):
            pass
        return self.pid is not None

    def signal(self, *numbers):
        self.wait_for(self.exec_done, "the launcher's pid")
        for number in numbers:  # a storm is spread over a second or so
            try:
                os.kill(self.pid, number)
            except ProcessLookupError:
                break
            time.sleep(0.005 if len(numbers) > 1 else 0)

    def finish(self, seconds=40.0):
        try:
            self.process.wait(timeout=seconds)
        except subprocess.TimeoutExpired:
            self.kill()
            self.fail("the launcher did not end within %.0f s" % seconds)
        self.reader.join(10)
        return self.process.returncode

    def stopped(self, status=0):
        self.test.assertEqual((self.finish(), self.leftovers()), (status, []), self.stderr[-1500:])

    def record(self, name):
        return Record(os.path.join(self.records, "standin", name + ".record"))

    def leftovers(self):
        with open(os.path.join(self.records, "leftovers")) as handle:
            return handle.read().split()

    def processes(self):
        self.wait_for(self.exec_done, "the launcher's pid")
        return processes_in_namespace(os.readlink("/proc/%d/ns/pid" % self.pid))


def env(notify, instance):
    return [PATH_ENTRY] + (["NOTIFY_SOCKET=" + notify] if notify else []) + ["APP_INSTANCE_ID=" + instance]


def in_order(test, text, lines):
    at = 0
    for line in lines:
        found = text.find(line, at)
        test.assertGreaterEqual(found, 0, "%r missing or out of order in:\n%s" % (line, text[-1500:]))
        at = found + len(line)


RUN = "/var/run/adaptive/"
LOG = ["--log_mode", "remote", "--log_level", "info"]
COM_ENV = env(RUN + "ara_Com/com_management_daemon", "com-daemon-1-container")
BRIDGE_ENV = env(" ", "com-daemon-1-container")
PHM_ENV = env(RUN + "ara_PHM/phm_launch_daemon", "phm-daemon-container")
BRIDGE = ["-e", RUN + "ara_Com/ara_com_sm"] + LOG + [
    "--iam_shared_lib", "/usr/lib/libvosk1_iam.so.1", "--tls_shared_lib", "/usr/lib/libtls_manager_botan.so.1",
    "--tls_manifest", "/etc/adaptive/ara_COM/com_conf/tls_manager_customer_configuration.json", "-m"]
HK = "/data/target/etc/adaptive/ara_COM/comManifests_HK/"
# host, kind, sandbox options, daemon, signals ending the pass, [argv and environment of each start]
KINDS = [
    ("vm_adaptive", "0", [], "com_daemon", [signal.SIGTERM],
     [(["-d", "-e", RUN + "ara_Com/ara_com_sm", "-g", RUN + "ara_Com/ara_com_gw_1_"] + LOG, COM_ENV)]),
    ("qemu-arm64", "99", [], "com_daemon", [signal.SIGINT],
     [(["-c", "255", "-i", "fd00:5354:5241::3", "-n", "netns0", "-e", RUN + "ara_Com/ara_com_sm"] + LOG +
       ["-m", "/data/target/etc/adaptive/ara_COM/comManifest/sample_service_manifest.json"], BRIDGE_ENV)]),
    # Daemons ignoring SIGTERM, and a storm of stop requests and child signals while the
    # launcher waits for them to end.
    ("vm_housekeeping", "99", ["--standin", "com_daemon=ignore_term=yes"], "com_daemon",
     [signal.SIGTERM] + [signal.SIGTERM, signal.SIGINT, signal.SIGCHLD] * 30,
     [(["-c", "255", "-i", "fd4e:91a2:5c0:3::8:10", "-n", "eth0.3"] + BRIDGE + [HK + "VLAN_INFOTAINMENT/infotainment_manifest.json"],
       BRIDGE_ENV),
      (["-c", "255", "-i", "fd4e:91a2:5c0:4::8:10", "-n", "eth0.4"] + BRIDGE + [HK + "VLAN_CONNECT/connect_manifest.json"],
       env(None, "com-daemon-1-container"))]),
    ("vm_java", "2", [], "quor_phmd", [signal.SIGTERM], [(["--autostart"], PHM_ENV)]),
    ("vm_adaptive", "2", ["--omit", "/dev/watchdog"], "quor_phmd", [signal.SIGINT],
     [(["--autostart", "--dummy_watchdog"], PHM_ENV)]),
    # Child signals during the readiness wait neither cut it short nor hide the READY; they end the pass.
    ("vm_adaptive", "3", ["--standin", "quor_udpnmd=ready=1000"], "quor_udpnmd", [],
     [(["-c", "/data/target/etc/adaptive/ara_UdpNm/quor_udpnm_vosk1_sys01.json"],
       env(RUN + "ara_UdpNm/udpnm-daemon-1-container", "udpnm-daemon-1-container"))]),
    ("vm_housekeeping", "3", ["--standin", "sibling=ready=never", "--with", "/usr/bin/sibling"], "quor_udpnmd",
     [signal.SIGTERM], []),
]


class LauncherE2e(unittest.TestCase):
    maxDiff = None

    def test_EveryKind_OnItsPartitions_AndPassesEndingByThemselves(self):
        runs = [Run(self, host, kind, *options) for host, kind, options, _, _, _ in KINDS]
        missing = Run(self, "vm_adaptive", "99", "--omit", "/usr/bin/com_daemon")
        death = Run(self, "vm_adaptive", "2", "--standin", "quor_phmd=exit_after=300;exit_code=3")
        unknown = Run(self, "vm_java.local", "0")
        udpnm = runs[5]
        udpnm.wait_for(lambda: udpnm.record("quor_udpnmd").pids(), "quor_udpnmd started")
        udpnm.signal(*[signal.SIGCHLD] * 100)
        for run, (host, kind, _, daemon, numbers, starts) in zip(runs, KINDS):
            run.wait_ready()
            run.wait_for(lambda: len(run.record(daemon).pids()) == len(starts), "%d starts" % len(starts))
            if numbers:
                # A signal before the main loop's first status line would show in it.
                run.wait_text("Termination = NoTermination\n")
                if kind == "0":
                    self.assertEqual([p for p in run.processes() if p[1] == "Z"], [], run.label)
                if host == "vm_housekeeping" and kind == "3":
                    run.wait_for(lambda: run.record("sibling").pids(), "the sibling started")
                    self.assertNotIn("quor_udpnmd", [p[2] for p in run.processes()])
                run.signal(*numbers)
        for run, (host, kind, _, daemon, numbers, starts) in zip(runs, KINDS):
            run.stopped()
            self.assertEqual(run.ready_count(), 1, run.label)
            record = run.record(daemon)
            self.assertEqual([(record.values("argv", pid), record.values("env", pid)) for pid in record.pids()],
                             [(["/usr/bin/" + daemon] + argv, environment) for argv, environment in starts])
            if numbers:
                self.assertIn("Launcher: Received SIGNAL%d\n" % numbers[0], run.stderr)
            for pid in record.pids()[:1 if kind in "02" else 0]:
                self.assertEqual(record.values("fd", pid), [], "descriptors leaked into the daemon")
                self.assertIn("SigBlk:\t0000000000000000", record.values("mask", pid))
                self.assertIn("SigIgn:\t0000000000000000", record.values("mask", pid))
        com, _, bridge, phm, _, _, sibling = runs
        pid = com.record("com_daemon").pids()[0]
        self.assertIn("[Daemon_handler]: send_termination signal to the PID :%d" % pid, com.stderr)
        in_order(self, com.stderr, ["COM_LAUNCHER Launcher: Running...\nLauncher: app= NoStop Update needed = "
                                    "NoUpdate Termination = NoTermination\n", "Launcher: Received SIGNAL15\n"])
        self.assertTrue(com.stderr.endswith("COM_LAUNCHER  Launcher: Shutting down... STOP\n"
                                            "COM_LAUNCHER Launcher: Terminating...\n"), com.stderr[-1500:])
        for pid in bridge.record("com_daemon").pids():
            self.assertEqual(bridge.record("com_daemon").values("ignored", pid)[:1], ["15"])
            self.assertEqual(bridge.record("com_daemon").values("exit", pid), [], "the daemon ended by itself")
        self.assertEqual(bridge.stderr.count("[LS_COM_C]: Time out, but child still running...\n"), 1, bridge.stderr)
        in_order(self, bridge.stderr, ["[LS_COM_C]: Sending Kill signal to com_vlan0_daemon...\n",
                                       "[LS_COM_C]: Sending Kill signal to com_vlan1_daemon...\n",
                                       "COM_BRIDGE_LAUNCHER Launcher: Terminating...\n"])
        self.assertTrue(bridge.stderr.endswith("Terminating...\n"))
        # PHM stops with SIGTERM alone, so the daemon lives to record it.
        self.assertEqual(phm.record("quor_phmd").values("signal")[0].split()[0], "15")
        self.assertIn("[Daemon_handler]: get child_ready from /var/run/adaptive/ara_UdpNm/udpnm-daemon-1-container\n"
                      "[Daemon_handler]: get_child_ready =  1\n", udpnm.stderr)
        self.assertEqual(sibling.record("sibling").values("signal"), [], "the launcher's stop reached a stranger")
        self.assertIn("[LS_UDPNM]: Not starting UdpNM daemon on HK partition, but keep strata-launcher running...\n",
                      sibling.stderr)

        # A COM BRIDGE without its daemon binary: the child's failed exec ends the pass.
        missing.stopped()
        self.assertEqual(missing.ready_count(), 1)
        for line in ("LAUNCHER Process_factory: execve returns FAILURE -1\n", " terminated. Exit code: 127\n",
                     "Launcher: Received SIGNAL17\n"):
            self.assertIn(line, missing.stderr)
        # A child that returned from the failed exec would run a second launcher.
        self.assertEqual(missing.stderr.count("Launcher: Running...\n"), 1, missing.stderr)
        in_order(self, missing.stderr, ["COM_BRIDGE_LAUNCHER Launcher: Starting Launcher... EXIT_SUCCESS \n",
                                        "COM_BRIDGE_LAUNCHER Launcher: Running...\n",
                                        "COM_BRIDGE_LAUNCHER  Launcher: Shutting down... STOP\n"
                                        "COM_BRIDGE_LAUNCHER Launcher: Terminating...\n"])
        death.stopped()
        self.assertEqual(death.ready_count(), 1)
        in_order(self, death.stderr, ["Launcher: Received SIGNAL17\n", "PHM_LAUNCHER Launcher: Terminating...\n"])
        self.assertNotIn("TERMINATION", death.stderr)
        self.assertEqual((unknown.finish(), unknown.stderr, os.listdir(os.path.join(unknown.records, "standin")),
                          unknown.ready_count()),
                         (1, "Launcher: main_launcher start : flag_updated=false \nLauncher configuration: Unknown "
                          "partition. hostname = vm_java.local\nCOM_LAUNCHER Launcher: Configuration failed. "
                          "Terminating\n", [], 0))
        # Outside the sandbox: a bad argument never reaches the host name.
        for arguments in ([], ["abc"], ["7"], ["-1"], ["0", "1"], ["4294967296"]):
            result = subprocess.run([LAUNCHER] + arguments, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                    stdin=subprocess.DEVNULL, timeout=10)
            self.assertEqual((result.returncode, result.stderr.decode(), result.stdout), (1, USAGE, b""), arguments)

    def test_ReadinessLimits_Com15sOnDeath_PhmAndUdpnm3s(self):
        cases = [(Run(self, "vm_java", "0", "--standin", "com_daemon=ready=never;exit_after=200"), "com_daemon",
                  15, "[Daemon_handler]: timeout reached for child_ready \n[Daemon_handler]: get_child_ready =  0\n"
                  "[LS_COM_S]: com_daemon is not ready\n"),
                 (Run(self, "vm_java", "2", "--standin", "quor_phmd=ready=never;first=STATUS=warming up"),
                  "quor_phmd", 3, "[LS_PHM]: phm_daemon is not ready\n"),
                 (Run(self, "vm_adaptive", "3", "--standin", "quor_udpnmd=ready=never;first=STATUS=warming up"),
                  "quor_udpnmd", 3, "[LS_UPDNM]: udpnm-daemon-1-container is not ready reached time out\n")]
        for run, daemon, limit, text in cases:
            run.stopped(1)
            # From the daemon's start to the launcher's end, which the reader saw as it came.
            waited = run.ended - int(run.record(daemon).values("start")[0]) / 1e9
            self.assertTrue(limit < waited < 2 * limit + 1, "%s waited %.1f s" % (daemon, waited))
            self.assertIn(text + "Launcher: Starting failed. Terminating\n", run.stderr)
            self.assertIn(" Launcher: Shutting down... EXIT_FAILURE\n", run.stderr)
            # systemd is told READY even then; the launcher's end tells it the rest.
            self.assertEqual(run.ready_count(), 1)
            self.assertIn("Launcher: Received SIGNAL17\n" if limit == 15 else
                          "Daemon_handler: Getting message :STATUS=warming up\n", run.stderr)


def main(arguments=None, extra=()):
    global LAUNCHER, STANDIN
    parser = argparse.ArgumentParser(add_help=False)
    for name in ("--launcher", "--standin") + tuple(extra):
        parser.add_argument(name, required=True)
    known, rest = parser.parse_known_args(arguments)
    LAUNCHER, STANDIN = os.path.abspath(known.launcher), os.path.abspath(known.standin)
    reason = sandbox_usable()
    if reason:
        print("SKIPPED: " + reason, file=sys.stderr)
        sys.exit(SKIP)
    return known, rest


def run_cases(rest):
    program = unittest.main(argv=[sys.argv[0]] + rest, verbosity=2, exit=False)
    if not program.result.wasSuccessful():
        for run in RUNS:  # what each sandbox printed, for a failure that did not say
            print("--- %s: status %s\n%s" % (run.label, run.process.returncode, run.stderr[-800:]), file=sys.stderr)
    sys.exit(0 if program.result.wasSuccessful() else 1)


if __name__ == "__main__":
    run_cases(main()[1])
