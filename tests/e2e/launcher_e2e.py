#!/usr/bin/env python3
"""End-to-end cases: the real strata-launcher in the partition sandbox (scripts/sandbox)
with stand-in daemons, asserting what an integrator would see: texts, exit status,
the daemons' command lines and environments, READY at the service manager's socket.

Usage: launcher_e2e.py --launcher BIN --standin BIN [unittest arguments, e.g. a case name]
Exit status 77 (skipped) when not root or when bubblewrap cannot create namespaces.
"""

import argparse
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
SANDBOX = os.path.join(os.path.dirname(os.path.dirname(HERE)), "scripts", "sandbox")
SKIP = 77
LAUNCHER = None
STANDIN = None

PATH_ENTRY = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
USAGE = ("Launcher: main_launcher start : flag_updated=false \n"
         "Usage: Strata Launcher [daemon]\n"
         "0: COM, 1: DLT, 2: PHM, 3: UDPNM, 99: COM BRIDGE\n"
         "No valid process type to initialize dlt. \n"
         " Launcher: Shutting down... TERMINATION\n"
         "Launcher: Terminating...\n")


def sandbox_usable():
    if os.geteuid() != 0:
        return "not root: the sandbox mounts fixed paths and the launcher binds below /var/run"
    if shutil.which("bwrap") is None:
        return "bwrap (bubblewrap) is not installed"
    probe = subprocess.run(["bwrap", "--unshare-uts", "--unshare-pid", "--hostname", "probe", "--ro-bind", "/", "/",
                            "--proc", "/proc", "true"], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    if probe.returncode != 0:
        return "bwrap cannot create namespaces here: " + probe.stderr.decode(errors="replace").strip()
    return None


class Record:
    """A stand-in's record: what one daemon name was started with and went through."""

    def __init__(self, path):
        self.lines = []
        if os.path.exists(path):
            with open(path) as handle:
                self.lines = [line.rstrip("\n").split(" ", 2) for line in handle if line.strip()]

    def pids(self):
        return sorted({int(fields[0]) for fields in self.lines})

    def values(self, key, pid=None):
        return [fields[2] if len(fields) > 2 else "" for fields in self.lines
                if fields[1] == key and (pid is None or int(fields[0]) == pid)]

    def argv(self, pid=None):
        return self.values("argv", pid)

    def env(self, pid=None):
        return self.values("env", pid)


class Run:
    """One sandbox run of the launcher, driven from outside."""

    def __init__(self, test, hostname, kind, *options):
        self.test = test
        self.records = tempfile.mkdtemp(prefix="strata-e2e.")
        test.addCleanup(shutil.rmtree, self.records, True)
        arguments = [sys.executable, SANDBOX, "--quiet", "--hostname", hostname, "--record-dir", self.records,
                     "--launcher", LAUNCHER, "--standin-binary", STANDIN, "--timeout", "30"]
        if kind is not None:
            arguments += ["--kind", kind]
        self.started = time.monotonic()
        self.process = subprocess.Popen(arguments + list(options), stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                        stdin=subprocess.DEVNULL)
        test.addCleanup(self.kill)
        self.status = None
        self.stderr = ""
        self.ended = None

    def kill(self):
        """Ends a sandbox that is still running so that it cleans up after itself: a stop
        request for the launcher, a second one that ends the sandbox, SIGKILL last."""
        for number in (signal.SIGTERM, signal.SIGTERM, signal.SIGKILL):
            if self.process.poll() is not None:
                return
            self.process.send_signal(number)
            try:
                self.process.wait(timeout=5)
            except subprocess.TimeoutExpired:
                continue

    def path(self, name):
        return os.path.join(self.records, name)

    def wait_for(self, predicate, what, seconds=10.0):
        deadline = time.monotonic() + seconds
        while time.monotonic() < deadline:
            if predicate():
                return
            if self.process.poll() is not None:
                self.finish()
                self.test.fail("the sandbox ended while waiting for %s; status %s, stderr:\n%s"
                               % (what, self.status, self.stderr))
            time.sleep(0.01)
        self.test.fail("no %s within %.0f s" % (what, seconds))

    def ready_count(self):
        if not os.path.exists(self.path("notify.log")):
            return 0
        with open(self.path("notify.log")) as handle:
            return sum(1 for line in handle if "READY=1" in line)

    def wait_ready(self, count=1, seconds=10.0):
        self.wait_for(lambda: self.ready_count() >= count, "READY=1 at the sandbox's socket", seconds)

    def launcher_pid(self):
        self.wait_for(lambda: os.path.exists(self.path("launcher.pid")), "launcher pid")
        with open(self.path("launcher.pid")) as handle:
            return int(handle.read())

    def signal(self, number):
        os.kill(self.launcher_pid(), number)

    def finish(self, seconds=20.0):
        if self.status is None:
            try:
                _, stderr = self.process.communicate(timeout=seconds)
            except subprocess.TimeoutExpired:
                self.kill()
                _, stderr = self.process.communicate()
                self.test.fail("the launcher did not end within %.0f s" % seconds)
            self.ended = time.monotonic()
            self.status = self.process.returncode
            self.stderr = stderr.decode(errors="replace")
        return self.status

    def record(self, name):
        return Record(os.path.join(self.records, "standin", name + ".record"))

    def leftovers(self):
        with open(self.path("leftovers")) as handle:
            return handle.read().split()

    def processes(self):
        """(pid, state, name) of every process in the launcher's PID namespace."""
        return processes_in_namespace(os.readlink("/proc/%d/ns/pid" % self.launcher_pid()))


def processes_in_namespace(namespace):
    """(pid, state, name) of every process in the PID namespace named by `namespace` (the
    target of a /proc/<pid>/ns/pid link)."""
    found = []
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        try:
            if os.readlink("/proc/%s/ns/pid" % entry) != namespace:
                continue
            with open("/proc/%s/stat" % entry) as handle:
                stat = handle.read()
        except OSError:
            continue
        name = stat[stat.index("(") + 1:stat.rindex(")")]
        state = stat[stat.rindex(")") + 2]
        found.append((int(entry), state, name))
    return found


class LauncherE2e(unittest.TestCase):
    maxDiff = None

    def assertStopped(self, run, expected_status=0):
        self.assertEqual(run.finish(), expected_status, run.stderr)
        self.assertEqual(run.leftovers(), [], "files left below /run/adaptive")

    def assertCleanChild(self, record, pid):
        self.assertEqual(record.values("fd", pid), [], "descriptors leaked into the daemon")
        self.assertIn("SigBlk:\t0000000000000000", record.values("mask", pid))
        self.assertIn("SigIgn:\t0000000000000000", record.values("mask", pid))

    # --- every kind on one partition: command line, environment, READY, stop by signal

    def test_ComDaemon_OnAdaptive_StartsWaitsForReadyAndStopsOnSigterm(self):
        run = Run(self, "vm_adaptive", "0")
        run.wait_ready()
        states = run.processes()
        self.assertFalse([p for p in states if p[1] == "Z"], states)
        run.signal(signal.SIGTERM)
        self.assertStopped(run)
        record = run.record("com_daemon")
        self.assertEqual(len(record.pids()), 1)
        self.assertEqual(record.argv(), ["/usr/bin/com_daemon", "-d", "-e", "/var/run/adaptive/ara_Com/ara_com_sm",
                                         "-g", "/var/run/adaptive/ara_Com/ara_com_gw_1_", "--log_mode", "remote",
                                         "--log_level", "info"])
        self.assertEqual(record.env(), [PATH_ENTRY, "NOTIFY_SOCKET=/var/run/adaptive/ara_Com/com_management_daemon",
                                        "APP_INSTANCE_ID=com-daemon-1-container"])
        self.assertCleanChild(record, record.pids()[0])
        self.assertEqual(run.ready_count(), 1)
        self.assertIn("COM_LAUNCHER Launcher: Running...\n"
                      "Launcher: app= NoStop Update needed = NoUpdate Termination = NoTermination\n", run.stderr)
        self.assertIn("Launcher: Received SIGNAL15\n", run.stderr)
        self.assertIn("[Daemon_handler]: send_termination signal to the PID :%d" % record.pids()[0], run.stderr)
        self.assertTrue(run.stderr.endswith("COM_LAUNCHER  Launcher: Shutting down... STOP\n"
                                            "COM_LAUNCHER Launcher: Terminating...\n"), run.stderr)

    def test_ComBridge_OnEmulator_FindsNetns0AddressAndStopsOnSigint(self):
        run = Run(self, "qemu-arm64", "99")
        run.wait_ready()
        run.signal(signal.SIGINT)
        self.assertStopped(run)
        record = run.record("com_daemon")
        self.assertEqual(record.argv(), ["/usr/bin/com_daemon", "-c", "255", "-i", "fd00:5354:5241::3", "-n", "netns0",
                                         "-e", "/var/run/adaptive/ara_Com/ara_com_sm", "--log_mode", "remote",
                                         "--log_level", "info", "-m",
                                         "/data/target/etc/adaptive/ara_COM/comManifest/sample_service_manifest.json"])
        self.assertEqual(record.env(), [PATH_ENTRY, "NOTIFY_SOCKET= ", "APP_INSTANCE_ID=com-daemon-1-container"])
        self.assertIn("Launcher: Received SIGNAL2\n", run.stderr)
        self.assertEqual(run.ready_count(), 1)

    def test_ComBridge_OnHousekeeping_BothVlanDaemonsIgnoringSigtermAreKilledThroughASignalStorm(self):
        run = Run(self, "vm_housekeeping", "99", "--standin", "com_daemon=ignore_term=yes")
        run.wait_ready()
        self.wait_for_records(run, "com_daemon", 2)
        run.signal(signal.SIGTERM)
        # More stop requests and child signals while the two seconds of waiting run.
        for number in [signal.SIGTERM, signal.SIGINT, signal.SIGCHLD] * 30:
            run.signal(number)
        self.assertStopped(run)
        record = run.record("com_daemon")
        first, second = record.pids()
        common = ["/usr/bin/com_daemon", "-c", "255", "-i"]
        tail = ["-e", "/var/run/adaptive/ara_Com/ara_com_sm", "--log_mode", "remote", "--log_level", "info",
                "--iam_shared_lib", "/usr/lib/libvosk1_iam.so.1",
                "--tls_shared_lib", "/usr/lib/libtls_manager_botan.so.1", "--tls_manifest",
                "/etc/adaptive/ara_COM/com_conf/tls_manager_customer_configuration.json", "-m"]
        hk = "/data/target/etc/adaptive/ara_COM/comManifests_HK/"
        self.assertEqual(record.argv(first), common + ["fd4e:91a2:5c0:3::8:10", "-n", "eth0.3"] + tail +
                         [hk + "VLAN_INFOTAINMENT/infotainment_manifest.json"])
        self.assertEqual(record.argv(second), common + ["fd4e:91a2:5c0:4::8:10", "-n", "eth0.4"] + tail +
                         [hk + "VLAN_CONNECT/connect_manifest.json"])
        self.assertEqual(record.env(first), [PATH_ENTRY, "NOTIFY_SOCKET= ", "APP_INSTANCE_ID=com-daemon-1-container"])
        self.assertEqual(record.env(second), [PATH_ENTRY, "APP_INSTANCE_ID=com-daemon-1-container"])
        for pid in (first, second):
            self.assertEqual(record.values("ignored", pid)[0], "15")
            self.assertEqual(record.values("exit", pid), [], "the daemon ended by itself")
        self.assertEqual(run.stderr.count("[LS_COM_C]: Time out, but child still running...\n"), 1, run.stderr)
        self.assertIn("[LS_COM_C]: Sending Kill signal to com_vlan0_daemon...\n", run.stderr)
        self.assertIn("[LS_COM_C]: Sending Kill signal to com_vlan1_daemon...\n", run.stderr)
        self.assertTrue(run.stderr.endswith("COM_BRIDGE_LAUNCHER Launcher: Terminating...\n"), run.stderr)

    def test_ComBridge_MissingDaemonBinary_ChildFailsExecAndThePassEnds(self):
        run = Run(self, "vm_adaptive", "99", "--omit", "/usr/bin/com_daemon")
        self.assertStopped(run)
        self.assertEqual(run.ready_count(), 1)
        # The child's lines and the reaping thread's interleave freely with the main thread's.
        for line in ("LAUNCHER Process_factory: execve returns FAILURE -1\n", " terminated. Exit code: 127\n",
                     "Launcher: Received SIGNAL17\n"):
            self.assertIn(line, run.stderr)
        # A child that returned from the failed exec would run a second launcher.
        self.assertEqual(run.stderr.count("Launcher: Running...\n"), 1, run.stderr)
        expected = ["COM_BRIDGE_LAUNCHER Launcher: Starting Launcher... EXIT_SUCCESS \n",
                    "COM_BRIDGE_LAUNCHER Launcher: Running...\n",
                    "COM_BRIDGE_LAUNCHER  Launcher: Shutting down... STOP\n"
                    "COM_BRIDGE_LAUNCHER Launcher: Terminating...\n"]
        at = 0
        for line in expected:
            found = run.stderr.find(line, at)
            self.assertGreaterEqual(found, 0, "%r missing or out of order in:\n%s" % (line, run.stderr))
            at = found + len(line)

    def test_Phm_OnJava_WithWatchdogDevice_UsesRealWatchdog(self):
        run = Run(self, "vm_java", "2")
        run.wait_ready()
        run.signal(signal.SIGTERM)
        self.assertStopped(run)
        record = run.record("quor_phmd")
        pid = record.pids()[0]
        self.assertEqual(record.argv(), ["/usr/bin/quor_phmd", "--autostart"])
        self.assertEqual(record.env(), [PATH_ENTRY, "NOTIFY_SOCKET=/var/run/adaptive/ara_PHM/phm_launch_daemon",
                                        "APP_INSTANCE_ID=phm-daemon-container"])
        # PHM stops with SIGTERM alone, so the daemon lives to record it.
        self.assertEqual(record.values("signal", pid)[0].split()[0], "15")
        self.assertCleanChild(record, pid)

    def test_Phm_WithoutWatchdogDevice_AsksForDummyWatchdog(self):
        run = Run(self, "vm_adaptive", "2", "--omit", "/dev/watchdog")
        run.wait_ready()
        run.signal(signal.SIGINT)
        self.assertStopped(run)
        self.assertEqual(run.record("quor_phmd").argv(), ["/usr/bin/quor_phmd", "--autostart", "--dummy_watchdog"])

    def test_Udpnm_OnAdaptive_UsesSys01Configuration_ThroughASignalStormWhileWaiting(self):
        run = Run(self, "vm_adaptive", "3", "--standin", "quor_udpnmd=ready=700")
        self.wait_for_records(run, "quor_udpnmd", 1)
        # Child signals interrupt the readiness wait's sleeps; they must neither cut the
        # wait short nor hide the READY that follows.
        for _ in range(100):
            run.signal(signal.SIGCHLD)
        self.assertStopped(run)
        self.assertIn("[Daemon_handler]: get child_ready from /var/run/adaptive/ara_UdpNm/udpnm-daemon-1-container\n"
                      "[Daemon_handler]: get_child_ready =  1\n", run.stderr)
        self.assertEqual(run.ready_count(), 1)
        record = run.record("quor_udpnmd")
        self.assertEqual(record.argv(), ["/usr/bin/quor_udpnmd", "-c",
                                         "/data/target/etc/adaptive/ara_UdpNm/quor_udpnm_vosk1_sys01.json"])
        self.assertEqual(record.env(), [PATH_ENTRY,
                                        "NOTIFY_SOCKET=/var/run/adaptive/ara_UdpNm/udpnm-daemon-1-container",
                                        "APP_INSTANCE_ID=udpnm-daemon-1-container"])
        self.assertIn("UDPMN_LAUNCHER Launcher: Terminating...\n", run.stderr)

    def test_Udpnm_OnHousekeeping_StartsNothingAndSignalsNobody(self):
        run = Run(self, "vm_housekeeping", "3", "--standin", "sibling=ready=never", "--with", "/usr/bin/sibling")
        self.wait_for_records(run, "sibling", 1)
        run.wait_ready()
        names = [p[2] for p in run.processes()]
        self.assertNotIn("quor_udpnmd", names)
        run.signal(signal.SIGTERM)
        self.assertStopped(run)
        self.assertEqual(run.record("quor_udpnmd").pids(), [])
        self.assertEqual(run.record("sibling").values("signal"), [], "the launcher's stop reached a stranger")
        self.assertIn("[LS_UDPNM]: Not starting UdpNM daemon on HK partition, but keep strata-launcher running...\n",
                      run.stderr)

    # --- ends without a signal

    def test_ChildDeath_EndsLauncherWithStatusZero(self):
        run = Run(self, "vm_adaptive", "2", "--standin", "quor_phmd=exit_after=300;exit_code=3")
        self.assertStopped(run)
        self.assertIn("Launcher: Received SIGNAL17\n", run.stderr)
        self.assertIn("PHM_LAUNCHER Launcher: Terminating...\n", run.stderr)
        self.assertNotIn("TERMINATION", run.stderr)
        self.assertEqual(run.ready_count(), 1)

    def test_UnknownHost_FailsWithoutChild(self):
        run = Run(self, "vm_java.local", "0")
        self.assertEqual(run.finish(), 1)
        self.assertEqual(run.stderr, "Launcher: main_launcher start : flag_updated=false \n"
                                     "Launcher configuration: Unknown partition. hostname = vm_java.local\n"
                                     "COM_LAUNCHER Launcher: Configuration failed. Terminating\n")
        self.assertEqual(os.listdir(os.path.join(run.records, "standin")), [])
        self.assertEqual(run.ready_count(), 0)

    def test_NeverReadyDaemons_PhmAndUdpnmFailAfterThreeSeconds(self):
        runs = {"[LS_PHM]: phm_daemon is not ready\n":
                Run(self, "vm_java", "2", "--standin", "quor_phmd=ready=never;first=STATUS=warming up"),
                "[LS_UPDNM]: udpnm-daemon-1-container is not ready reached time out\n":
                Run(self, "vm_adaptive", "3", "--standin", "quor_udpnmd=ready=never;first=STATUS=warming up")}
        # Each end is taken when it happens, not when the other run has been looked at.
        deadline = time.monotonic() + 20
        while any(run.process.poll() is None for run in runs.values()) and time.monotonic() < deadline:
            for run in runs.values():
                if run.process.poll() is not None:
                    run.finish()
            time.sleep(0.01)
        for text, run in runs.items():
            self.assertStopped(run, 1)
            # From the daemon's start to the launcher's end.
            record = run.record("quor_phmd" if "PHM" in text else "quor_udpnmd")
            waited = run.ended - int(record.values("start")[0]) / 1e9
            self.assertGreater(waited, 3.0)
            self.assertLess(waited, 7.0)
            self.assertIn("Daemon_handler: Getting message :STATUS=warming up\n", run.stderr)
            self.assertIn(text + "Launcher: Starting failed. Terminating\n", run.stderr)
            self.assertIn(" Launcher: Shutting down... EXIT_FAILURE\n", run.stderr)
            # systemd is told READY even then; the launcher's end tells it the rest.
            self.assertEqual(run.ready_count(), 1)

    def test_ComDaemon_DyingBeforeReady_IsSeenAsTimeoutAfterFifteenSeconds(self):
        run = Run(self, "vm_java", "0", "--standin", "com_daemon=ready=never;exit_after=200")
        self.assertStopped(run, 1)
        waited = run.ended - int(run.record("com_daemon").values("start")[0]) / 1e9
        self.assertGreater(waited, 15.0)
        self.assertLess(waited, 30.0)
        self.assertIn("Launcher: Received SIGNAL17\n", run.stderr)
        self.assertIn("[Daemon_handler]: timeout reached for child_ready \n"
                      "[Daemon_handler]: get_child_ready =  0\n"
                      "[LS_COM_S]: com_daemon is not ready\n"
                      "Launcher: Starting failed. Terminating\n", run.stderr)

    def wait_for_records(self, run, name, count):
        run.wait_for(lambda: len(run.record(name).pids()) >= count, "%d %s started" % (count, name))


class UsageE2e(unittest.TestCase):
    """The binary itself, outside the sandbox: a bad argument never reaches the host name."""

    def test_BadArguments_PrintUsageAndFail(self):
        worst = 0.0
        for arguments in ([], ["abc"], ["7"], ["-1"], ["0", "1"], ["4294967296"]):
            started = time.monotonic()
            result = subprocess.run([LAUNCHER] + arguments, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                    stdin=subprocess.DEVNULL, timeout=10)
            elapsed = time.monotonic() - started
            worst = max(worst, elapsed)
            self.assertEqual(result.returncode, 1, arguments)
            self.assertEqual(result.stderr.decode(), USAGE, arguments)
            self.assertEqual(result.stdout, b"", arguments)
            # The empty termination pauses 100 ms like every shutdown of a pass.
            self.assertLess(elapsed, 0.3, arguments)
        print("\nslowest usage run: %.0f ms" % (worst * 1000), file=sys.stderr)


def main():
    global LAUNCHER, STANDIN
    parser = argparse.ArgumentParser(add_help=False)
    parser.add_argument("--launcher", required=True)
    parser.add_argument("--standin", required=True)
    known, rest = parser.parse_known_args()
    LAUNCHER, STANDIN = os.path.abspath(known.launcher), os.path.abspath(known.standin)
    names = [name for name in rest if not name.startswith("-")]
    if not all(name.startswith("UsageE2e") for name in names) or not names:
        reason = sandbox_usable()
        if reason is not None:
            print("SKIPPED: " + reason, file=sys.stderr)
            sys.exit(SKIP)
    unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)


if __name__ == "__main__":
    main()
