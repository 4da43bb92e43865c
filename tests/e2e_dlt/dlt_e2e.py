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

    def run_launcher(self, *options, service_arguments=None):
        """Starts the DLT launcher on vm_adaptive, with the played service if asked."""
        records = launcher_e2e.tempfile.mkdtemp(prefix="strata-e2e-dlt.")
        self.addCleanup(shutil.rmtree, records, True)
        service = None
        extra = list(options)
        if service_arguments is not None:
            service = Service(self, records, *service_arguments)
            extra += ["--with", service.command]
        run = launcher_e2e.Run(self, "vm_adaptive", "1", "--record-dir", records, *extra)
        # Runs before the driver's own clean-up (SIGKILL to the sandbox): a launcher that
        # ends normally lets the sandbox remove its temporary directory.
        self.addCleanup(self.stop_gracefully, run)
        # Run made a record directory of its own; ours is the one given last and wins.
        run.records = records
        if service is not None:
            service.connect()
        return run, service

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

    def test_MarkerFile_SwitchesLoggingOnWhileNoServiceAnswers(self):
        run, _ = self.run_launcher("--file", MARKER + "=")
        self.wait_for(run, lambda: self.daemon_starts(run) == 1, "dlt-daemon started by the marker file")
        run.wait_ready(2)
        self.assertEndsOnSigterm(run)
        self.assertIn("Launcher: switch ON DLT logging by Debug file ; dlt_pm_flag/updated = true\n"
                      "DLT Launcher: send DTC; flag = 1 DTC=FAIL\n", run.stderr)
        self.assertIn("Launcher: switch DLT logging by file ; DLT-flag = 1\n", run.stderr)
        self.assertNotIn("DTL launcher : Unsubscribe from DSA notification", run.stderr)

    def test_NoServiceNoMarker_StaysWithoutDaemonsAndEndsPromptly(self):
        run, _ = self.run_launcher()
        run.wait_ready(1)
        self.assertEndsOnSigterm(run, seconds=2.0)
        self.assertEqual(self.daemon_starts(run), 0)
        self.assertEqual(run.ready_count(), 1)
        self.assertIn("DLT_LAUNCHER Launcher: start without DLT LOG...\n", run.stderr)
        self.assertIn("DLT launcher : Proxy : NOT connected to DSA Diagnostic Data Distribution\n", run.stderr)
        self.assertNotIn("switch ON DLT logging", run.stderr)

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
