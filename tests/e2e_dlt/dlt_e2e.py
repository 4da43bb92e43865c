#!/usr/bin/env python3
# End-to-end passes of the DLT launcher (kind 1) in the partition sandbox, with
# strata-someip-offer beside it in the same namespaces playing the diagnostic data
# distribution service and the diagnostic manager; driven through the shared driver.
# Usage: dlt_e2e.py --launcher BIN --standin BIN --offer BIN [unittest arguments]
import json
import os
import shutil
import signal
import sys
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "e2e"))
import launcher_e2e as e2e  # noqa: E402

OFFER = None
MARKER = "/data/target/etc/adaptive/ara_DLT/DLTActivation"
QUIET = "/sys/devices/virtual/tty/hvc1/quiet"
DEPLOYMENT = os.path.join(os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))), "com",
                          "deployment", "strata-com.json")
DLT_NAMES = ("dlt-daemon", "dltproxyd", "dlt-system")
# Its init, the played service (name cut to 15 characters) and the launcher.
SANDBOX_OWN = ["bwrap", "strata-launcher", "strata-someip-o"]
ASKED = "request getDiagnosticDataValues 0 ids 1 -> value 0 returnCode 0"
OFFERED = "monitor offered 2e10.30a4 v1.0 @ 127.0.0.1:30502"


class Dlt:
    # A DLT launcher run, with the played service when given its arguments (commands
    # through a FIFO, its output in a file, on its own loopback address).
    def __init__(self, test, *options, service=None, hostname="vm_adaptive"):
        self.test, self.control = test, None
        records = e2e.tempfile.mkdtemp(prefix="strata-e2e-dlt.")
        self.directory = os.path.join(records, "standin")
        if service is not None:
            os.makedirs(self.directory)
            shutil.copy(OFFER, self.directory)
            os.mkfifo(os.path.join(self.directory, "ctl"))
            # A group command, so that the sandbox's stdin /dev/null does not replace the FIFO.
            options += ("--with", "{ STRATA_COM_UNICAST=127.0.0.2 /run/strata-standin/strata-someip-offer %s "
                        "< /run/strata-standin/ctl > /run/strata-standin/offer.log 2>&1; }" % " ".join(service))
        self.run = e2e.Run(test, hostname, "1", *options, records=records)
        test.addCleanup(self.close)
        if service is not None:
            self.run.wait_for(self.connect, "the played service opening its control FIFO")

    def connect(self):
        try:
            self.control = os.open(os.path.join(self.directory, "ctl"), os.O_WRONLY | os.O_NONBLOCK)
        except OSError:
            pass
        return self.control is not None

    def close(self):
        if self.control is not None:
            os.close(self.control)
        if self.run.process.poll() is None:  # a normal end lets the sandbox clean up
            self.run.signal(signal.SIGTERM)

    def send(self, line):
        os.write(self.control, (line + "\n").encode())

    def lines(self):
        path = os.path.join(self.directory, "offer.log")
        if not os.path.exists(path):
            return []
        with open(path) as handle:
            return handle.read().splitlines()

    def actions(self):
        return [line for line in self.lines() if line.startswith("MonitorAction ")]

    def wait_line(self, line, seconds=e2e.WAIT):
        self.run.wait_for(lambda: line in self.lines(), "%r from the played service" % line, seconds)

    def starts(self, name="dlt-daemon"):
        return len(self.run.record(name).pids())

    def names(self):
        return sorted(name for _, state, name in self.run.processes() if state != "Z")

    def open_inside(self, path):
        # Opened through the launcher's root, it outlives the sandbox's staging directory.
        self.run.wait_for(self.run.exec_done, "the launcher's pid")
        return os.open("/proc/%d/root%s" % (self.run.pid, path), os.O_RDWR)

    def stop(self, seconds):
        # SIGTERM; the seconds until the launcher ended and the last view of its namespace.
        self.run.wait_for(self.run.exec_done, "the launcher's pid")
        pid, last = self.run.pid, []
        namespace = os.readlink("/proc/%d/ns/pid" % pid)
        self.run.signal(signal.SIGTERM)
        started = time.monotonic()
        while True:
            found = e2e.processes_in_namespace(namespace)
            if pid not in [p for p, state, _ in found if state != "Z"]:
                break
            last = sorted((name, state) for _, state, name in found)
            if time.monotonic() - started > seconds:
                self.run.fail("the launcher still ran %.1f s after SIGTERM" % seconds)
            time.sleep(0.002)
        elapsed = time.monotonic() - started
        self.run.stopped()
        self.test.assertEqual([name for name, state in last if name not in SANDBOX_OWN or state == "Z"], [], last)
        self.test.assertIn("DTL launcher : Shutdown DTC\nDTL launcher : Stop COM \n", self.run.stderr)
        return elapsed


class DltE2e(unittest.TestCase):
    maxDiff = None

    def test_Service_DrivesTheChainAndTheManager_StopWithdrawsTheMonitor(self):
        limited = dict(json.load(open(DEPLOYMENT)), request_timeout_ms=1000)
        mute = Dlt(self, "--file", "/etc/strata/strata-com.json=" + json.dumps(limited),
                   service=["--value", "1", "--no-answer"])
        gone = Dlt(self, "--file", MARKER + "=", service=["--value", "0"])
        dlt = Dlt(self, service=["--value", "1", "--monitor"])
        # A service that never answers: two requests are outstanding, and the stop waits
        # for the handlers running them, each up to its time limit.
        mute.wait_line("request getDiagnosticDataValues 0 ids 1 held")
        mute.run.wait_ready(1)
        mute.stop(2 * 1.0 + 1.0)
        self.assertEqual(mute.starts(), 0)
        self.assertIn("DLT Launcher: DDD DSA connection lost Timeout exception\n"
                      "Launcher: request from DSA :  DLT-flag = 0\n", mute.run.stderr)
        self.assertNotIn("DLT-flag = 1", mute.run.stderr)
        self.assertIn("DTL launcher : Unsubscribe from DSA notification\n", mute.run.stderr)

        dlt.run.wait_for(lambda: dlt.starts() == 1, "dlt-daemon started after the service said 1")
        dlt.run.wait_ready(2)
        dlt.wait_line(OFFERED)
        # The manager restarts: the launcher reports its current state again.
        dlt.send("init 1")
        dlt.wait_line("InitMonitor 1 done")
        dlt.run.wait_for(lambda: dlt.actions()[-1:] == ["MonitorAction 1"], "the state re-sent")
        dlt.send("value 0")
        dlt.run.wait_for(lambda: "dlt-daemon" not in dlt.names(), "dlt-daemon stopped after the service said 0")
        dlt.run.wait_for(lambda: dlt.actions()[-1:] == ["MonitorAction 0"], "the DTC cleared at the manager")
        dlt.run.wait_ready(3)
        # Re-enabling does not ask for a report; a clear does.
        before = len(dlt.actions())
        dlt.send("init 2")
        dlt.wait_line("InitMonitor 2 done")
        dlt.send("init 0")
        dlt.wait_line("InitMonitor 0 done")
        dlt.run.wait_for(lambda: len(dlt.actions()) > before, "the state re-sent after a clear")
        self.assertEqual(len(dlt.actions()), before + 1, dlt.lines())
        # Fifty quick changes each way: the launcher settles on the last value, one chain or none.
        for batch, last in enumerate((0, 1)):
            for value in [(index + last + 1) % 2 for index in range(50)]:
                dlt.send("value %d" % value)
                time.sleep(0.01)
            dlt.run.wait_for(lambda: len([x for x in dlt.lines() if x.startswith("value ")]) == 51 + 50 * batch,
                             "the changes at the service")
            expected = sorted(SANDBOX_OWN + (list(DLT_NAMES) if last else []))
            dlt.run.wait_for(lambda: dlt.names() == expected, "the launcher settling on %d" % last)
        elapsed = dlt.stop(5.0)
        print("\nSIGTERM to exit, service connected, DLT on: %.0f ms" % (elapsed * 1000), file=sys.stderr)
        self.assertLess(elapsed, 1.0, "the launcher took too long to end")
        self.assertIn("monitor stopped", dlt.lines())
        self.assertTrue(dlt.run.stderr.endswith("DTL launcher : Stop COM \nDLT_LAUNCHER Launcher: Terminating...\n"))
        for text in ("LAUD :LAUD_findServiceStart: Service offered for instance ID 1 \n",
                     "DLT Launcher LAUD_findServiceCallback : Subscribe dataValuesHash\n",
                     "Launcher: request_dlt_flag : flag_updated=true \n", "DLT Launcher: send DTC; flag = 0 DTC=CLEAR\n",
                     "DLT Launcher: send DTC; flag = 1 DTC=FAIL\n",
                     "+++++ DMSkeletonAdapter::InitMonitor( 2 = kReenabled) is called for 12452\n",
                     "+++++ DMSkeletonAdapter::InitMonitor( 0 = kClear) is called for 12452\n",
                     "DTL launcher : Unsubscribe from DSA notification\n",
                     "LAUD : StopConnectAsynchronously: Instance ID 1 \n"):
            self.assertIn(text, dlt.run.stderr)
        flags = [line for line in dlt.run.stderr.splitlines() if line.startswith("Launcher: request from DSA :  ")]
        self.assertEqual((flags[0], flags[-1]), ("Launcher: request from DSA :  DLT-flag = 1",) * 2)
        self.assertIn("Launcher: request from DSA :  DLT-flag = 0", flags)

        # The service gone: the last flag stays and the marker file counts again (within about 5 s).
        gone.wait_line(ASKED)
        gone.run.wait_for(lambda: "dlt-daemon" not in gone.names(), "no dlt-daemon while the service says 0")
        served = gone.starts()
        gone.send("stop")
        gone.wait_line("stopped")
        gone.run.wait_for(lambda: gone.starts() > served, "dlt-daemon started by the marker file")
        gone.stop(5.0)
        at = gone.run.stderr.index("LAUD :LAUD_findServiceStart: Service stopped for instance ID 1 \n")
        self.assertIn("Launcher: switch ON DLT logging by Debug file ; dlt_pm_flag/updated = true\n",
                      gone.run.stderr[at:])


    def test_MarkerFile_NoService_AndLogDaemonNeverReady(self):
        never = Dlt(self, "--file", MARKER + "=", *sum((["--standin", name + "=ready=never"] for name in DLT_NAMES), []))
        qemu = Dlt(self, "--file", MARKER + "=", "--file", QUIET + "=untouched\\n", hostname="qemu-arm64")
        adaptive = Dlt(self)
        alone = Dlt(self)
        alone.run.wait_ready(1)
        self.assertLess(alone.stop(2.0), 2.0)
        self.assertEqual((alone.starts(), alone.run.ready_count()), (0, 1))
        for text in ("DLT_LAUNCHER Launcher: start without DLT LOG...\n",
                     "DLT launcher : Proxy : NOT connected to DSA Diagnostic Data Distribution\n"):
            self.assertIn(text, alone.run.stderr)
        # The search's handler runs only once the service has been offered: the launcher's
        # own monitor offer, seen on the discovery group, must not call it.
        for text in ("switch ON DLT logging", "Callback for LAUD_startFindService", "Service stopped", "no proxy"):
            self.assertNotIn(text, alone.run.stderr)

        adaptive.run.wait_ready(1)
        quiet = adaptive.open_inside(QUIET)
        self.assertEqual(os.pread(quiet, 64, 0), b"0\n")
        created = time.monotonic_ns()
        os.close(os.open("/proc/%d/root%s" % (adaptive.run.pid, MARKER), os.O_CREAT | os.O_WRONLY))
        adaptive.run.wait_for(lambda: all(adaptive.starts(name) for name in DLT_NAMES), "the chain by the marker")
        adaptive.run.wait_for(lambda: os.pread(quiet, 64, 0) == b"1 \n", "the console quieted")
        delay = (min(int(t) for t in adaptive.run.record("dlt-daemon").values("start")) - created) / 1e9
        self.assertLess(delay, 6.5, "the marker file is consulted about every 5 s")
        adaptive.run.wait_ready(2)
        adaptive.stop(5.0)
        self.assertEqual((os.pread(quiet, 64, 0), adaptive.run.ready_count()), (b"0 \n", 2))
        os.close(quiet)
        for name, argv in (("dlt-daemon", ["-c", "/etc/dlt_ara_adaptive_vm.conf"]),
                           ("dltproxyd", ["-c", "/data/target/etc/adaptive/ara_DLT/dlt_proxy.json"]), ("dlt-system", [])):
            record = adaptive.run.record(name)
            self.assertEqual((len(record.pids()), record.values("argv"), record.values("env")),
                             (1, ["/usr/bin/" + name] + argv, e2e.env("/var/run/adaptive/ara_DLT/dlt_launch_daemon",
                                                                      "dlt-daemon-container")), name)
        e2e.in_order(self, adaptive.run.stderr, [
            "DLT_LAUNCHER Launcher: start without DLT LOG...\n",
            "Launcher: switch ON DLT logging by Debug file ; dlt_pm_flag/updated = true\n"
            "DLT Launcher: send DTC; flag = 1 DTC=FAIL\n", "STOP DLT LAUNCHER ...\n"])
        self.assertIn("Launcher: switch DLT logging by file ; DLT-flag = 1\n", adaptive.run.stderr)
        self.assertNotIn("DTL launcher : Unsubscribe from DSA notification", adaptive.run.stderr)

        # On the emulator: its own configuration, and the console is left alone.
        qemu.run.wait_ready(2)
        quiet = qemu.open_inside(QUIET)
        qemu.stop(5.0)
        self.assertEqual(os.pread(quiet, 64, 0), b"untouched\n")
        os.close(quiet)
        self.assertEqual(qemu.run.record("dlt-daemon").values("argv"),
                         ["/usr/bin/dlt-daemon", "-c", "/etc/dlt_ara_qemu.conf"])
        for run in (adaptive.run, qemu.run):
            self.assertNotIn("Cannot read virtual console file", run.stderr)

        # All three share the log daemon's notification socket, so none says READY: after
        # the fourth failed start the launcher waits for a flag change, with nothing running.
        never.run.wait_for(lambda: never.starts() == 4, "four starts of dlt-daemon", 40)
        never.run.wait_for(lambda: not set(DLT_NAMES) & set(never.names()), "the failed chain stopped")
        quiet_until = time.monotonic() + 1.0
        while time.monotonic() < quiet_until:
            self.assertEqual(never.starts(), 4, "a start after the fourth failure")
            time.sleep(0.05)
        never.stop(5.0)
        starts = sorted(int(t) for t in never.run.record("dlt-daemon").values("start"))
        gaps = [(later - earlier) / 1e9 - 3.0 for earlier, later in zip(starts, starts[1:])]
        self.assertTrue(all(0.1 < gap < 0.8 for gap in gaps), "pauses beyond the 3 s wait: %s" % gaps)
        text = never.run.stderr
        self.assertEqual([text.count("[LS_DLT]: dlt_daemon is not ready reached time out\n"),
                          text.count("Launcher: Starting failed. Terminating\n"),
                          text.count("DLT_LAUNCHER  DLT Launcher start procs had failed, but retry soon ...\n")],
                         [4, 4, 3], text[-1500:])
        self.assertGreater(text.index("but retry if dlt flag changes ...\n"), text.rindex("but retry soon ...\n"))


if __name__ == "__main__":
    known, rest = e2e.main(extra=["--offer"])
    OFFER = os.path.abspath(known.offer)
    e2e.run_cases(rest)
