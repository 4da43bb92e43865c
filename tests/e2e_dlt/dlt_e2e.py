#!/usr/bin/env python3
"""End-to-end cases of the DLT launcher: the real strata-launcher (kind 1) in the
partition sandbox, with strata-someip-offer beside it in the same namespaces playing the
diagnostic data distribution service and the diagnostic manager. Asserts what an
integrator sees: which daemons run, the DTC events the manager receives, the texts and
the exit status.

Usage: dlt_e2e.py --launcher BIN --standin BIN --offer BIN [unittest arguments]
Exit status 77 (skipped) when not root or when bubblewrap cannot create namespaces.
"""

import argparse
import json
import os
import shutil
import signal
import sys
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(os.path.dirname(HERE), "e2e"))
import launcher_e2e  # noqa: E402  (the sandbox driver shared with the other kinds)

OFFER = None
MARKER = "/data/target/etc/adaptive/ara_DLT/DLTActivation"
QUIET = "/sys/devices/virtual/tty/hvc1/quiet"
DEPLOYMENT = os.path.join(os.path.dirname(os.path.dirname(HERE)), "com", "deployment", "strata-com.json")
REQUEST_LIMIT_MS = 1000
DLT_NAMES = ("dlt-daemon", "dltproxyd", "dlt-system")
# What the sandbox itself runs in its PID namespace: its init, the played service (the
# name cut to 15 characters; its shell execs it) and the launcher.
SANDBOX_OWN = {"bwrap", "strata-someip-o", "strata-launcher"}


def children(pid):
    try:
        with open("/proc/%d/task/%d/children" % (pid, pid)) as handle:
            return [int(p) for p in handle.read().split()]
    except OSError:
        return []


def namespace_view(namespace):
    """(name, state) of every process in a PID namespace."""
    return sorted((name, state) for _, state, name in launcher_e2e.processes_in_namespace(namespace))


def gone_or_zombie(pid):
    try:
        with open("/proc/%d/stat" % pid) as handle:
            stat = handle.read()
    except OSError:
        return True
    return stat[stat.rindex(")") + 2] == "Z"
INNER_STANDIN_DIR = "/run/strata-standin"


class Service:
    """strata-someip-offer inside the sandbox: commands through a FIFO, its output in a
    file. It runs on its own loopback address so that its service discovery and the
    launcher's do not share one address and port."""

    def __init__(self, test, records, *arguments):
        self.test = test
        self.directory = os.path.join(records, "standin")
        os.makedirs(self.directory, exist_ok=True)
        shutil.copy(OFFER, os.path.join(self.directory, "strata-someip-offer"))
        self.fifo = os.path.join(self.directory, "ctl")
        os.mkfifo(self.fifo)
        self.log = os.path.join(self.directory, "offer.log")
        self.control = None
        # A group command: the sandbox gives every extra command stdin /dev/null, and that
        # must not replace the FIFO.
        self.command = ("{ STRATA_COM_UNICAST=127.0.0.2 %s/strata-someip-offer %s < %s/ctl > %s/offer.log 2>&1; }"
                        % (INNER_STANDIN_DIR, " ".join(arguments), INNER_STANDIN_DIR, INNER_STANDIN_DIR))
        test.addCleanup(self.close)

    def connect(self, seconds=10.0):
        """Opens the FIFO's writing end once the service has opened its reading end; the
        service's shell waits for this before it starts the program."""
        deadline = time.monotonic() + seconds
        while self.control is None:
            try:
                self.control = os.open(self.fifo, os.O_WRONLY | os.O_NONBLOCK)
            except OSError:
                if time.monotonic() >= deadline:
                    self.test.fail("the played service never opened its control FIFO")
                time.sleep(0.01)

    def send(self, line):
        os.write(self.control, (line + "\n").encode())

    def close(self):
        if self.control is not None:
            os.close(self.control)
            self.control = None

    def lines(self):
        if not os.path.exists(self.log):
            return []
        with open(self.log) as handle:
            return [line.rstrip("\n") for line in handle]

    def actions(self):
        return [line for line in self.lines() if line.startswith("MonitorAction ")]

    def saw(self, line):
        return line in self.lines()


class DltE2e(unittest.TestCase):
    maxDiff = None

    def run_launcher(self, *options, service_arguments=None, hostname="vm_adaptive", keep=False):
        """Starts the DLT launcher (on vm_adaptive unless told), with the played service if
        asked. With keep the sandbox's staging directory outlives the launcher, so that
        what the launcher wrote at its stop can still be read."""
        records = launcher_e2e.tempfile.mkdtemp(prefix="strata-e2e-dlt.")
        self.addCleanup(shutil.rmtree, records, True)
        service = None
        extra = list(options)
        if service_arguments is not None:
            service = Service(self, records, *service_arguments)
            extra += ["--with", service.command]
        if keep:
            extra.append("--keep")
        run = launcher_e2e.Run(self, hostname, "1", "--record-dir", records, *extra)
        # Runs before the driver's own clean-up (SIGKILL to the sandbox): a launcher that
        # ends normally lets the sandbox remove its temporary directory.
        self.addCleanup(self.stop_gracefully, run)
        # Run made a record directory of its own; ours is the one given last and wins.
        run.records = records
        if keep:
            run.stage = self.staging_directory(run)
            self.addCleanup(self.remove_stage, run)
        if service is not None:
            service.connect()
        return run, service

    def staging_directory(self, run):
        """The host directory whose fs/ subtree the sandbox binds over its fixed paths,
        read from bubblewrap's command line."""
        found = []

        def look():
            for child in children(run.process.pid):
                try:
                    with open("/proc/%d/cmdline" % child, "rb") as handle:
                        words = handle.read().decode().split("\0")
                except OSError:
                    continue
                for index in range(1, len(words) - 1):
                    if words[index - 1] == "--bind" and words[index + 1] == "/sys":
                        found.append(os.path.dirname(os.path.dirname(words[index])))
                        return True
            return False

        run.wait_for(look, "the sandbox's bubblewrap", seconds=5.0)
        return found[0]

    def remove_stage(self, run):
        self.stop_gracefully(run)
        run.kill()
        shutil.rmtree(run.stage, True)

    @staticmethod
    def host_path(run, path):
        return os.path.join(run.stage, "fs", path.lstrip("/"))

    def quiet_file(self, run):
        with open(self.host_path(run, QUIET)) as handle:
            return handle.read()

    def create_marker(self, run):
        with open(self.host_path(run, MARKER), "w"):
            pass

    @staticmethod
    def stop_gracefully(run):
        if run.process.poll() is not None:
            return
        try:
            run.signal(signal.SIGTERM)
            run.process.wait(timeout=10)
        except Exception:  # the driver's SIGKILL follows in any case
            pass

    def wait_for(self, run, predicate, what, seconds=10.0):
        run.wait_for(predicate, what, seconds)

    def daemon_starts(self, run):
        return len(run.record("dlt-daemon").pids())

    def daemon_running(self, run):
        # A daemon killed outright leaves no exit record, so ask the process table.
        return any(name == "dlt-daemon" and state != "Z" for _, state, name in run.processes())

    def assertEndsOnSigterm(self, run, seconds=5.0):
        run.signal(signal.SIGTERM)
        started = time.monotonic()
        self.assertEqual(run.finish(), 0, run.stderr)
        self.assertLess(time.monotonic() - started, seconds, "the launcher took too long to end")
        self.assertEqual(run.leftovers(), [], "files left below /run/adaptive")
        self.assertIn("DTL launcher : Shutdown DTC\nDTL launcher : Stop COM \n", run.stderr)

    def test_ServiceActivation_StartsDaemonsAndTheManagerSeesEveryChange(self):
        run, service = self.run_launcher(service_arguments=["--value", "1", "--monitor"])
        self.wait_for(run, lambda: self.daemon_starts(run) == 1, "dlt-daemon started after the service said 1")
        run.wait_ready(2)
        self.wait_for(run, lambda: service.saw("monitor offered 2e10.30a4 v1.0 @ 127.0.0.1:30502"),
                      "the manager finding the monitor")

        # The manager restarts: the launcher reports its current state again.
        service.send("init 1")
        self.wait_for(run, lambda: service.saw("InitMonitor 1 done") and service.actions(), "re-sent state")
        self.assertEqual(service.actions()[-1], "MonitorAction 1")

        # The service switches logging off: daemons stop, the DTC clears.
        service.send("value 0")
        self.wait_for(run, lambda: not self.daemon_running(run), "dlt-daemon stopped after the service said 0")
        self.wait_for(run, lambda: service.actions()[-1:] == ["MonitorAction 0"], "DTC cleared at the manager")
        run.wait_ready(3)

        # Re-enabling does not ask for a report; a clear does.
        before = len(service.actions())
        service.send("init 2")
        self.wait_for(run, lambda: service.saw("InitMonitor 2 done"), "InitMonitor 2 answered")
        service.send("init 0")
        self.wait_for(run, lambda: service.saw("InitMonitor 0 done") and len(service.actions()) > before,
                      "state re-sent after a clear")

        self.assertEndsOnSigterm(run)
        self.assertEqual(len(service.actions()), before + 1, service.lines())
        self.assertEqual(self.daemon_starts(run), 1)
        for text in ("LAUD :LAUD_findServiceStart: Service offered for instance ID 1 \n",
                     "DLT Launcher LAUD_findServiceCallback : Subscribe dataValuesHash\n",
                     "Launcher: request_dlt_flag : flag_updated=true \n",
                     "Launcher: request from DSA :  DLT-flag = 1\n",
                     "Launcher: request from DSA :  DLT-flag = 0\n",
                     "DLT Launcher: send DTC; flag = 0 DTC=CLEAR\n",
                     "DLT Launcher: send DTC; flag = 1 DTC=FAIL\n",
                     "+++++ DMSkeletonAdapter::InitMonitor( 2 = kReenabled) is called for 12452\n",
                     "+++++ DMSkeletonAdapter::InitMonitor( 0 = kClear) is called for 12452\n",
                     "DTL launcher : Unsubscribe from DSA notification\n",
                     "LAUD : StopConnectAsynchronously: Instance ID 1 \n"):
            self.assertIn(text, run.stderr)
        requests = [line for line in service.lines() if line.startswith("request getDiagnosticDataValues 0 ids 1 ")]
        self.assertGreaterEqual(len(requests), 2, service.lines())

    def started_ns(self, run, name):
        """CLOCK_MONOTONIC start times of every stand-in `name`, in start order."""
        return sorted(int(value) for value in run.record(name).values("start"))

    def all_started(self, run):
        return all(run.record(name).pids() for name in DLT_NAMES)

    def stop_and_watch(self, run, seconds):
        """SIGTERM to the launcher; returns the seconds until it ended and the last view of
        its PID namespace while it still ran (names and states)."""
        pid = run.launcher_pid()
        namespace = os.readlink("/proc/%d/ns/pid" % pid)
        last = []
        run.signal(signal.SIGTERM)
        started = time.monotonic()
        while True:
            view = namespace_view(namespace)
            if gone_or_zombie(pid):
                break
            last = view
            if time.monotonic() - started > seconds:
                self.fail("the launcher still ran %.1f s after SIGTERM" % seconds)
            time.sleep(0.002)
        return time.monotonic() - started, last

    def assertOnlySandboxLeft(self, view):
        self.assertTrue(view, "no view of the namespace while the launcher stopped")
        self.assertEqual(sorted({name for name, _ in view} - SANDBOX_OWN), [], view)
        self.assertEqual([entry for entry in view if entry[1] == "Z"], [], view)

    def test_MarkerFile_CreatedWhileRunning_StartsTheChainAndQuietsTheConsole(self):
        run, _ = self.run_launcher(keep=True)
        run.wait_ready(1)
        self.assertEqual(self.quiet_file(run), "0\n")
        created = time.monotonic_ns()
        self.create_marker(run)
        self.wait_for(run, lambda: self.all_started(run), "the DLT chain started by the marker file", seconds=8.0)
        self.wait_for(run, lambda: self.quiet_file(run) == "1 \n", "the console quieted after the start", seconds=2.0)
        delay = (self.started_ns(run, "dlt-daemon")[0] - created) / 1e9
        print("\nmarker file to dlt-daemon start: %.2f s" % delay, file=sys.stderr)
        self.assertLess(delay, 6.5, "the marker file is consulted about every 5 s")
        run.wait_ready(2)
        self.assertEndsOnSigterm(run)
        self.assertEqual(self.quiet_file(run), "0 \n", "the console verbose again after the stop")
        self.assertEqual(run.ready_count(), 2, "READY once per pass")
        self.assertEqual(run.record("dlt-daemon").argv(),
                         ["/usr/bin/dlt-daemon", "-c", "/etc/dlt_ara_adaptive_vm.conf"])
        self.assertEqual(run.record("dltproxyd").argv(),
                         ["/usr/bin/dltproxyd", "-c", "/data/target/etc/adaptive/ara_DLT/dlt_proxy.json"])
        self.assertEqual(run.record("dlt-system").argv(), ["/usr/bin/dlt-system"])
        for name in DLT_NAMES:
            record = run.record(name)
            self.assertEqual(len(record.pids()), 1, name)
            self.assertEqual(record.env(), [launcher_e2e.PATH_ENTRY,
                                            "NOTIFY_SOCKET=/var/run/adaptive/ara_DLT/dlt_launch_daemon",
                                            "APP_INSTANCE_ID=dlt-daemon-container"], name)
        without = run.stderr.index("DLT_LAUNCHER Launcher: start without DLT LOG...\n")
        switched = run.stderr.index("Launcher: switch ON DLT logging by Debug file ; dlt_pm_flag/updated = true\n"
                                    "DLT Launcher: send DTC; flag = 1 DTC=FAIL\n")
        self.assertLess(without, switched)
        self.assertIn("Launcher: switch DLT logging by file ; DLT-flag = 1\n", run.stderr)
        self.assertIn("STOP DLT LAUNCHER ...\n", run.stderr)
        self.assertNotIn("Cannot read virtual console file", run.stderr)
        self.assertNotIn("DTL launcher : Unsubscribe from DSA notification", run.stderr)

    def test_MarkerFile_OnEmulator_UsesItsConfigurationAndLeavesTheConsoleAlone(self):
        run, _ = self.run_launcher("--file", MARKER + "=", "--file", QUIET + "=untouched\\n",
                                   hostname="qemu-arm64", keep=True)
        self.wait_for(run, lambda: self.all_started(run), "the DLT chain started by the marker file")
        run.wait_ready(2)
        self.assertEndsOnSigterm(run)
        self.assertEqual(self.quiet_file(run), "untouched\n")
        self.assertEqual(run.record("dlt-daemon").argv(), ["/usr/bin/dlt-daemon", "-c", "/etc/dlt_ara_qemu.conf"])
        self.assertIn("STOP DLT LAUNCHER ...\n", run.stderr)
        self.assertNotIn("Cannot read virtual console file", run.stderr)

    def test_LogDaemonNeverReady_RetriesThriceThenWaitsForAFlagChange(self):
        # All three share the log daemon's notification socket, so none may say READY.
        run, _ = self.run_launcher("--file", MARKER + "=", "--standin", "dlt-daemon=ready=never",
                                   "--standin", "dltproxyd=ready=never", "--standin", "dlt-system=ready=never")
        self.wait_for(run, lambda: len(run.record("dlt-daemon").pids()) == 4, "four starts of dlt-daemon",
                      seconds=20.0)
        # After the fourth failure the launcher waits for a change of the flag: no start
        # for a while, and nothing of the failed start left running.
        self.wait_for(run, lambda: not any(name in DLT_NAMES for _, _, name in run.processes()),
                      "the failed chain stopped", seconds=6.0)
        quiet_until = time.monotonic() + 1.0
        while time.monotonic() < quiet_until:
            self.assertEqual(len(run.record("dlt-daemon").pids()), 4, "a start after the fourth failure")
            time.sleep(0.05)
        self.assertEndsOnSigterm(run)
        starts = self.started_ns(run, "dlt-daemon")
        gaps = [(later - earlier) / 1e9 - 3.0 for earlier, later in zip(starts, starts[1:])]
        print("\npauses between failed starts beyond the 3 s wait: %s s" % ", ".join("%.2f" % g for g in gaps),
              file=sys.stderr)
        for gap in gaps:
            self.assertGreater(gap, 0.1)
            self.assertLess(gap, 0.8, "a quick retry took too long")
        self.assertEqual(run.stderr.count("[LS_DLT]: dlt_daemon is not ready reached time out\n"), 4)
        self.assertEqual(run.stderr.count(
            "DLT_LAUNCHER  DLT Launcher start procs had failed, but retry soon ...\n"), 3, run.stderr)
        self.assertEqual(run.stderr.count(
            "DLT_LAUNCHER  DLT Launcher start procs had failed, but retry if dlt flag changes ...\n"), 1)
        last_soon = run.stderr.rindex("but retry soon ...\n")
        self.assertLess(last_soon, run.stderr.index("but retry if dlt flag changes ...\n"))
        self.assertEqual(run.stderr.count("Launcher: Starting failed. Terminating\n"), 4)

    def test_Sigterm_WithServiceAndLogging_EndsWithinASecondAndWithdrawsTheMonitor(self):
        run, service = self.run_launcher(service_arguments=["--value", "1", "--monitor"])
        self.wait_for(run, lambda: self.all_started(run), "the DLT chain started after the service said 1")
        run.wait_ready(2)
        self.wait_for(run, lambda: service.saw("monitor offered 2e10.30a4 v1.0 @ 127.0.0.1:30502"),
                      "the manager finding the monitor")
        elapsed, last_view = self.stop_and_watch(run, 5.0)
        print("\nSIGTERM to launcher exit, service connected, DLT on: %.0f ms" % (elapsed * 1000), file=sys.stderr)
        self.assertEqual(run.finish(), 0, run.stderr)
        self.assertLess(elapsed, 1.0, "the launcher took too long to end")
        self.assertTrue(service.saw("monitor stopped"), service.lines())
        self.assertEqual(run.leftovers(), [])
        self.assertOnlySandboxLeft(last_view)
        for name in DLT_NAMES:
            self.assertEqual(len(run.record(name).pids()), 1, name)
        self.assertIn("DTL launcher : Unsubscribe from DSA notification\n", run.stderr)
        self.assertTrue(run.stderr.endswith("DTL launcher : Shutdown DTC\nDTL launcher : Stop COM \n"
                                            "DLT_LAUNCHER Launcher: Terminating...\n"), run.stderr[-400:])

    def flip_flag_fifty_times(self, last):
        run, service = self.run_launcher(service_arguments=["--value", "0"])
        self.wait_for(run, lambda: service.saw("request getDiagnosticDataValues 0 ids 1 -> value 0 returnCode 0"),
                      "the launcher asking the service")
        values = [(index + last + 1) % 2 for index in range(50)]
        self.assertEqual(values[-1], last)
        for value in values:
            service.send("value %d" % value)
            time.sleep(0.02)
        self.wait_for(run, lambda: service.saw("value %d" % last) and len(
            [line for line in service.lines() if line.startswith("value ")]) == 50, "the 50 changes sent")

        expected = sorted(SANDBOX_OWN | (set(DLT_NAMES) if last else set()))
        seen = []

        def settled():
            seen[:] = sorted((name, state) for _, state, name in run.processes())
            return [name for name, state in seen] == expected and all(state != "Z" for _, state in seen)

        try:
            self.wait_for(run, settled, "the launcher settling on the last value %d" % last, seconds=10.0)
        except AssertionError as error:
            raise AssertionError("%s; processes: %s" % (error, seen)) from None
        # Still so a little later: no pass is left to run.
        time.sleep(0.5)
        self.assertTrue(settled(), seen)
        elapsed, last_view = self.stop_and_watch(run, 3.0)
        self.assertEqual(run.finish(), 0, run.stderr)
        self.assertEqual(run.leftovers(), [])
        self.assertOnlySandboxLeft(last_view)
        flags = [line for line in run.stderr.splitlines()
                 if line.startswith("Launcher: request from DSA :  DLT-flag = ")]
        self.assertEqual(flags[-1], "Launcher: request from DSA :  DLT-flag = %d" % last)
        print("\n50 flag changes: %d answers, %d dlt-daemon starts; SIGTERM to exit %.0f ms"
              % (len(flags), len(run.record("dlt-daemon").pids()), elapsed * 1000), file=sys.stderr)

    def test_FiftyQuickFlagChanges_EndingOn1_LeaveOneChainRunning(self):
        self.flip_flag_fifty_times(1)

    def test_FiftyQuickFlagChanges_EndingOn0_LeaveNothingRunning(self):
        self.flip_flag_fifty_times(0)

    def test_ServiceNeverAnswers_SigtermStillEndsTheLauncher(self):
        # The installed deployment with a shorter request time limit, so that the case
        # stays short; both the launcher and the service read it from /etc in the sandbox.
        with open(DEPLOYMENT) as handle:
            deployment = json.load(handle)
        deployment["request_timeout_ms"] = REQUEST_LIMIT_MS
        run, service = self.run_launcher("--file", "/etc/strata/strata-com.json=" + json.dumps(deployment),
                                         service_arguments=["--value", "1", "--no-answer"])
        self.wait_for(run, lambda: service.saw("request getDiagnosticDataValues 0 ids 1 held"),
                      "the launcher asking the service")
        run.wait_ready(1)
        # Two requests are outstanding: the one made when the service was found and the one
        # its field's first notification triggers, serialised behind each other. The stop
        # waits for the handlers running them, so each may take its full time limit.
        elapsed, last_view = self.stop_and_watch(run, 2 * REQUEST_LIMIT_MS / 1000 + 1.0)
        print("\nSIGTERM to launcher exit with a request unanswered (limit %d ms): %.0f ms"
              % (REQUEST_LIMIT_MS, elapsed * 1000), file=sys.stderr)
        self.assertEqual(run.finish(), 0, run.stderr)
        self.assertEqual(run.leftovers(), [])
        self.assertOnlySandboxLeft(last_view)
        self.assertEqual(self.daemon_starts(run), 0)
        self.assertIn("DLT Launcher: DDD DSA connection lost Timeout exception\n"
                      "Launcher: request from DSA :  DLT-flag = 0\n", run.stderr)
        self.assertNotIn("DLT-flag = 1", run.stderr)
        self.assertIn("DTL launcher : Unsubscribe from DSA notification\n", run.stderr)
        self.assertIn("DTL launcher : Stop COM \n", run.stderr)

    def test_NoServiceNoMarker_StaysWithoutDaemonsAndEndsPromptly(self):
        run, _ = self.run_launcher()
        run.wait_ready(1)
        self.assertEndsOnSigterm(run, seconds=2.0)
        self.assertEqual(self.daemon_starts(run), 0)
        self.assertEqual(run.ready_count(), 1)
        self.assertIn("DLT_LAUNCHER Launcher: start without DLT LOG...\n", run.stderr)
        self.assertIn("DLT launcher : Proxy : NOT connected to DSA Diagnostic Data Distribution\n", run.stderr)
        self.assertNotIn("switch ON DLT logging", run.stderr)
        # The search's handler runs only once the service has been offered: the
        # launcher's own monitor offer, seen on the discovery group, must not call it.
        for text in ("Callback for LAUD_startFindService", "Service stopped", "no proxy"):
            self.assertNotIn(text, run.stderr)

    def test_ServiceGone_LastFlagStaysAndFileIsConsultedAgain(self):
        run, service = self.run_launcher("--file", MARKER + "=", service_arguments=["--value", "0"])
        # The marker file may switch logging on before the service is found; the
        # service's answer 0 then switches it off again.
        self.wait_for(run, lambda: service.saw("request getDiagnosticDataValues 0 ids 1 -> value 0 returnCode 0"),
                      "the launcher asking the service")
        self.wait_for(run, lambda: not self.daemon_running(run), "no dlt-daemon running")
        started_while_served = self.daemon_starts(run)
        service.send("stop")
        self.wait_for(run, lambda: service.saw("stopped"), "the service withdrawn")
        # Without an answering service the marker file counts again and switches logging
        # on at its next check (about 5 s later at most).
        self.wait_for(run, lambda: self.daemon_starts(run) > started_while_served,
                      "dlt-daemon started by the marker file after the service went away", seconds=15.0)
        self.assertEndsOnSigterm(run)
        self.assertIn("LAUD :LAUD_findServiceStart: Service stopped for instance ID 1 \n", run.stderr)
        self.assertIn("Launcher: request from DSA :  DLT-flag = 0\n", run.stderr)
        gone = run.stderr.index("LAUD :LAUD_findServiceStart: Service stopped for instance ID 1 \n")
        self.assertIn("Launcher: switch ON DLT logging by Debug file ; dlt_pm_flag/updated = true\n",
                      run.stderr[gone:])


def main():
    global OFFER
    parser = argparse.ArgumentParser(add_help=False)
    parser.add_argument("--launcher", required=True)
    parser.add_argument("--standin", required=True)
    parser.add_argument("--offer", required=True)
    known, rest = parser.parse_known_args()
    launcher_e2e.LAUNCHER = os.path.abspath(known.launcher)
    launcher_e2e.STANDIN = os.path.abspath(known.standin)
    OFFER = os.path.abspath(known.offer)
    reason = launcher_e2e.sandbox_usable()
    if reason is not None:
        print("SKIPPED: " + reason, file=sys.stderr)
        sys.exit(launcher_e2e.SKIP)
    unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)


if __name__ == "__main__":
    main()
