#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
# End-to-end passes: the real strata-launcher in the partition sandbox (scripts/sandbox) with
# stand-in daemons and, for the DLT launcher, strata-someip-offer beside it playing the
# diagnostic data distribution service and the diagnostic manager. The scenarios of a case
# run in sandboxes of their own, all at once, and are judged on their transcripts, exit
# status, the daemons' records and the READY datagrams at the played service manager.
# Usage: launcher_e2e.py LAUNCHER STANDIN OFFER [unittest arguments];
# exit status 77 (skipped) when not root or when bubblewrap cannot create namespaces.
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
LAUNCHER = STANDIN = OFFER = None
RUNS = []
# Every wait is bounded; the bounds are more than twice the worst seen on a loaded 2-core machine.
WAIT = 20.0
PATH_ENTRY = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
USAGE = ("Launcher: main_launcher start : flag_updated=false \nUsage: Strata Launcher [daemon]\n"
         "0: COM, 1: DLT, 2: PHM, 3: UDPNM, 99: COM BRIDGE\nNo valid process type to initialize dlt. \n"
         " Launcher: Shutting down... TERMINATION\nLauncher: Terminating...\n")


def read(path):
    with open(path) if os.path.exists(path) else open(os.devnull) as handle:
        return handle.read()


def attempt(predicate):
    try:
        return predicate()
    except (OSError, ValueError, subprocess.TimeoutExpired):  # a file half written, a process gone: not yet
        return None


def processes_in_namespace(namespace):
    # (pid, state, name) of every process in the PID namespace named by a /proc/<pid>/ns/pid link.
    stats = [(int(p), attempt(lambda: os.readlink("/proc/%s/ns/pid" % p) == namespace and read("/proc/%s/stat" % p)))
             for p in filter(str.isdigit, os.listdir("/proc"))]
    return [(pid, st[st.rindex(")") + 2], st[st.index("(") + 1:st.rindex(")")]) for pid, st in stats if st]


class Run:
    # One sandbox run of the launcher (kind 1: with the played service when given its
    # arguments: commands through a FIFO, its output in a file, its own loopback address).
    # Its stderr goes to a file: a case can wait for a line, and the transcript is whole once
    # the sandbox has ended (it outlives the launcher and everything the launcher started).
    def __init__(self, test, hostname, kind, *options, service=None):
        self.test, self.label, self.pid, self.control = test, "%s kind %s %s" % (hostname, kind, options), None, None
        self.records = tempfile.mkdtemp(prefix="strata-e2e.")
        test.addCleanup(shutil.rmtree, self.records, True)
        self.directory = os.path.join(self.records, "standin")
        if service is not None:
            os.makedirs(self.directory)
            shutil.copy(OFFER, self.directory)
            os.mkfifo(os.path.join(self.directory, "ctl"))
            # A group command, so that the sandbox's stdin /dev/null does not replace the FIFO.
            options += ("--with", "{ STRATA_COM_UNICAST=127.0.0.2 /run/strata-standin/strata-someip-offer %s "
                        "< /run/strata-standin/ctl > /run/strata-standin/offer.log 2>&1; }" % " ".join(service))
        self.log = os.path.join(self.records, "stderr")
        with open(self.log, "w") as log:
            self.process = subprocess.Popen(
                [sys.executable, os.path.join(TOP, "scripts", "sandbox"), "--quiet", "--hostname", hostname, "--kind",
                 kind, "--record-dir", self.records, "--launcher", LAUNCHER, "--standin-binary", STANDIN, "--timeout",
                 "60", *options], stdout=subprocess.DEVNULL, stderr=log, stdin=subprocess.DEVNULL)
        RUNS.append(self)
        test.addCleanup(self.kill)
        if service is not None:
            self.wait_for(self.connect, "the played service opening its control FIFO")

    @property
    def stderr(self):
        return read(self.log)

    def kill(self):
        # A stop request that the sandbox passes on to the launcher; a second one ends the
        # sandbox at once, which still removes its files; SIGKILL, which leaves them, last.
        if self.control is not None:
            os.close(self.control)
        for number in (signal.SIGTERM, signal.SIGTERM, signal.SIGKILL):
            if self.process.poll() is None:
                self.process.send_signal(number)
                attempt(lambda: self.process.wait(timeout=5))

    def fail(self, what):
        self.test.fail("%s\n--- %s, stderr:\n%s" % (what, self.label, self.stderr[-1500:]))

    def wait_for(self, predicate, what, seconds=WAIT):
        deadline = time.monotonic() + seconds
        while not attempt(predicate):
            if self.process.poll() is not None and not attempt(predicate):
                self.fail("the sandbox ended (status %s) before %s" % (self.process.wait(), what))
            if time.monotonic() > deadline:
                self.fail("no %s within %.0f s" % (what, seconds))
            time.sleep(0.01)

    def ready_count(self):
        return read(os.path.join(self.records, "notify.log")).count("READY=1")

    def wait_ready(self, count=1):
        self.wait_for(lambda: self.ready_count() >= count, "READY=1 #%d at the sandbox's socket" % count)

    def launcher(self):
        # The pid file may be half written, and its pid may still be the sandbox's shell.
        def exec_done():
            text = read(os.path.join(self.records, "launcher.pid"))
            shell_gone = text.endswith("\n") and read("/proc/%d/comm" % int(text)) == "strata-launcher\n"
            self.pid = int(text) if shell_gone else None
            return self.pid
        if self.pid is None:
            self.wait_for(exec_done, "the launcher's pid")
        return self.pid

    def signal(self, *numbers):
        for number in numbers:  # a storm is spread over a second or so
            try:
                os.kill(self.launcher(), number)
            except ProcessLookupError:
                break
            time.sleep(0.005 if len(numbers) > 1 else 0)

    def stopped(self, status=0):
        if attempt(lambda: self.process.wait(timeout=40)) is None:
            self.fail("the launcher did not end within 40 s")
        self.test.assertEqual((self.process.returncode, read(os.path.join(self.records, "leftovers"))), (status, ""),
                              self.stderr[-1500:])

    def record(self, name):
        # What each start of a stand-in went through: {pid: {key: [values]}}.
        found = {}
        for line in read(os.path.join(self.directory, name + ".record")).splitlines():
            pid, key, value = (line.split(" ", 2) + [""])[:3]
            found.setdefault(int(pid), {}).setdefault(key, []).append(value)
        return found

    def names(self, state_wanted=lambda state: state != "Z"):
        namespace = os.readlink("/proc/%d/ns/pid" % self.launcher())
        return sorted(name for _, state, name in processes_in_namespace(namespace) if state_wanted(state))

    def inside(self, path, flags=os.O_RDONLY):
        # Opened through the launcher's root, a file outlives the sandbox's staging directory.
        return os.open("/proc/%d/root%s" % (self.launcher(), path), flags)

    def connect(self):
        self.control = os.open(os.path.join(self.directory, "ctl"), os.O_WRONLY | os.O_NONBLOCK)
        return True

    def send(self, *lines):
        for line in lines:
            os.write(self.control, (line + "\n").encode())
            time.sleep(0.01 if len(lines) > 1 else 0)

    def lines(self, prefix=""):
        lines = read(os.path.join(self.directory, "offer.log")).splitlines()
        return [line for line in lines if line.startswith(prefix)]

    def wait_line(self, line):
        self.wait_for(lambda: line in self.lines(), "%r from the played service" % line)

    def stop(self, seconds):
        # SIGTERM; the seconds until the launcher ended, having left only the sandbox's own.
        namespace, views, started = os.readlink("/proc/%d/ns/pid" % self.launcher()), [], time.monotonic()
        self.signal(signal.SIGTERM)
        self.wait_for(lambda: views.append(processes_in_namespace(namespace)) or self.pid not in [
            p for p, state, _ in views[-1] if state != "Z"], "the launcher's end after SIGTERM", seconds)
        elapsed = time.monotonic() - started
        self.stopped()
        last = views[-2] if len(views) > 1 else []  # the last view while the launcher still ran
        self.test.assertTrue(last and not [p for p in last if p[2] not in SANDBOX_OWN or p[1] == "Z"], last)
        self.test.assertIn("DTL launcher : Shutdown DTC\nDTL launcher : Stop COM \n", self.stderr)
        return elapsed


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
BRIDGE_ENV = env(" ", "com-daemon-1-container")
PHM_ENV = env(RUN + "ara_PHM/phm_launch_daemon", "phm-daemon-container")
BRIDGE = ["-e", RUN + "ara_Com/ara_com_sm"] + LOG + [
    "--iam_shared_lib", "/usr/lib/libvosk1_iam.so.1", "--tls_shared_lib", "/usr/lib/libtls_manager_botan.so.1",
    "--tls_manifest", "/etc/adaptive/ara_COM/com_conf/tls_manager_customer_configuration.json", "-m"]
HK = "/data/target/etc/adaptive/ara_COM/comManifests_HK/"
ENDS = {kind: name + "_LAUNCHER Launcher: Terminating...\n"
        for kind, name in (("0", "COM"), ("2", "PHM"), ("3", "UDPMN"), ("99", "COM_BRIDGE"))}
# host, kind, sandbox options, daemon, signals ending the pass, [argv and environment of each
# start], lines in the transcript in their order, the last one ending it
KINDS = [
    ("vm_adaptive", "0", [], "com_daemon", [signal.SIGTERM],
     [(["-d", "-e", RUN + "ara_Com/ara_com_sm", "-g", RUN + "ara_Com/ara_com_gw_1_"] + LOG,
       env(RUN + "ara_Com/com_management_daemon", "com-daemon-1-container"))],
     ["COM_LAUNCHER Launcher: Running...\nLauncher: app= NoStop Update needed = NoUpdate Termination = NoTermination\n",
      "Launcher: Received SIGNAL15\n", "[Daemon_handler]: send_termination signal to the PID :",
      "COM_LAUNCHER  Launcher: Shutting down... STOP\n" + ENDS["0"]]),
    ("qemu-arm64", "99", [], "com_daemon", [signal.SIGINT],
     [(["-c", "255", "-i", "fd00:5354:5241::3", "-n", "netns0", "-e", RUN + "ara_Com/ara_com_sm"] + LOG +
       ["-m", "/data/target/etc/adaptive/ara_COM/comManifest/sample_service_manifest.json"], BRIDGE_ENV)],
     ["Launcher: Received SIGNAL2\n", ENDS["99"]]),
    # Daemons ignoring SIGTERM, and a storm of stop requests and child signals while the
    # launcher waits for them to end.
    ("vm_housekeeping", "99", ["--standin", "com_daemon=ignore_term=yes"], "com_daemon",
     [signal.SIGTERM] + [signal.SIGTERM, signal.SIGINT, signal.SIGCHLD] * 30,
     [(["-c", "255", "-i", "fd4e:91a2:5c0:3::8:10", "-n", "eth0.3"] + BRIDGE +
       [HK + "VLAN_INFOTAINMENT/infotainment_manifest.json"], BRIDGE_ENV),
      (["-c", "255", "-i", "fd4e:91a2:5c0:4::8:10", "-n", "eth0.4"] + BRIDGE +
       [HK + "VLAN_CONNECT/connect_manifest.json"], env(None, "com-daemon-1-container"))],
     ["Launcher: Received SIGNAL15\n", "[LS_COM_C]: Time out, but child still running...\n",
      "[LS_COM_C]: Sending Kill signal to com_vlan0_daemon...\n",
      "[LS_COM_C]: Sending Kill signal to com_vlan1_daemon...\n", ENDS["99"]]),
    ("vm_java", "2", [], "quor_phmd", [signal.SIGTERM], [(["--autostart"], PHM_ENV)],
     ["Launcher: Received SIGNAL15\n", ENDS["2"]]),
    ("vm_adaptive", "2", ["--omit", "/dev/watchdog"], "quor_phmd", [signal.SIGINT],
     [(["--autostart", "--dummy_watchdog"], PHM_ENV)], ["Launcher: Received SIGNAL2\n", ENDS["2"]]),
    # Child signals during the readiness wait neither cut it short nor hide the READY; they end the pass.
    ("vm_adaptive", "3", ["--standin", "quor_udpnmd=ready=1000"], "quor_udpnmd", [],
     [(["-c", "/data/target/etc/adaptive/ara_UdpNm/quor_udpnm_vosk1_sys01.json"],
       env(RUN + "ara_UdpNm/udpnm-daemon-1-container", "udpnm-daemon-1-container"))],
     ["[Daemon_handler]: get child_ready from /var/run/adaptive/ara_UdpNm/udpnm-daemon-1-container\n"
      "[Daemon_handler]: get_child_ready =  1\n", ENDS["3"]]),
    ("vm_housekeeping", "3", ["--standin", "sibling=ready=never", "--with", "/usr/bin/sibling"], "quor_udpnmd",
     [signal.SIGTERM], [], ["[LS_UDPNM]: Not starting UdpNM daemon on HK partition, but keep strata-launcher "
                            "running...\n", "Launcher: Received SIGNAL15\n", ENDS["3"]]),
    # Passes that end by themselves: a COM BRIDGE whose daemon binary is missing (the
    # child's exec fails) and a daemon that dies.
    ("vm_adaptive", "99", ["--omit", "/usr/bin/com_daemon"], "com_daemon", [], [],
     ["COM_BRIDGE_LAUNCHER Launcher: Starting Launcher... EXIT_SUCCESS \n",
      "COM_BRIDGE_LAUNCHER Launcher: Running...\n",
      "COM_BRIDGE_LAUNCHER  Launcher: Shutting down... STOP\n" + ENDS["99"]]),
    ("vm_adaptive", "2", ["--standin", "quor_phmd=exit_after=300;exit_code=3"], "quor_phmd", [],
     [(["--autostart"], PHM_ENV)], ["Launcher: Received SIGNAL17\n", "PHM_LAUNCHER  Launcher: Shutting down... STOP\n" +
                                    ENDS["2"]]),
]


MARKER = "/data/target/etc/adaptive/ara_DLT/DLTActivation"
QUIET = "/sys/devices/virtual/tty/hvc1/quiet"
DLT_NAMES = ("dlt-daemon", "dltproxyd", "dlt-system")
# Its init, the played service (name cut to 15 characters) and the launcher.
SANDBOX_OWN = ["bwrap", "strata-launcher", "strata-someip-o"]


class LauncherE2e(unittest.TestCase):
    maxDiff = None

    def test_EveryKind_OnItsPartitions_AndPassesEndingByThemselves(self):
        runs = [Run(self, host, kind, *options) for host, kind, options, *_ in KINDS]
        unknown = Run(self, "vm_java.local", "0")
        com, _, bridge, phm, _, udpnm, sibling, missing, _ = runs
        udpnm.wait_for(lambda: udpnm.record("quor_udpnmd"), "quor_udpnmd started")
        udpnm.signal(*[signal.SIGCHLD] * 100)
        for run, (_, _, _, daemon, numbers, starts, _) in zip(runs, KINDS):
            run.wait_ready()
            run.wait_for(lambda: len(run.record(daemon)) == len(starts), "%d starts" % len(starts))
            if numbers:
                # A signal before the main loop's first status line would show in it.
                run.wait_for(lambda: "Termination = NoTermination\n" in run.stderr, "the main loop")
                self.assertEqual(run.names(lambda state: state == "Z") if run is com else [], [])
                run.signal(*numbers)
        sibling.wait_for(lambda: sibling.record("sibling"), "the sibling started")
        for run, (_, _, _, daemon, _, starts, lines) in zip(runs, KINDS):
            run.stopped()
            records = [record for _, record in sorted(run.record(daemon).items())]
            clean = ["SigBlk:\t0000000000000000", "SigIgn:\t0000000000000000"]  # nothing blocked or ignored
            self.assertEqual([(r["argv"], r["env"], r.get("fd"), r["mask"]) for r in records],
                             [(["/usr/bin/" + daemon] + argv, environ, None, clean) for argv, environ in starts])
            self.assertEqual((run.ready_count(), run.stderr.count("Launcher: Running...\n")), (1, 1), run.label)
            in_order(self, run.stderr, lines)
            self.assertTrue(run.stderr.endswith(lines[-1]), run.stderr[-1500:])
        self.assertEqual([(r["ignored"][:1], r.get("exit")) for r in bridge.record("com_daemon").values()],
                         [(["15"], None)] * 2, "a daemon ignoring SIGTERM ended by itself")
        # PHM stops with SIGTERM alone, so the daemon lives to record it.
        self.assertEqual(list(phm.record("quor_phmd").values())[0]["signal"][0].split()[0], "15")
        self.assertNotIn("signal", list(sibling.record("sibling").values())[0], "the stop reached a stranger")
        # The child's lines and the reaping thread's interleave freely with the main thread's;
        # a child that returned from its failed exec would run a second launcher (Running... twice).
        for line in ("LAUNCHER Process_factory: execve returns FAILURE -1\n", " terminated. Exit code: 127\n",
                     "Launcher: Received SIGNAL17\n"):
            self.assertIn(line, missing.stderr)
        unknown.stopped(1)
        self.assertEqual((unknown.stderr, os.listdir(unknown.directory), unknown.ready_count()),
                         ("Launcher: main_launcher start : flag_updated=false \nLauncher configuration: Unknown "
                          "partition. hostname = vm_java.local\nCOM_LAUNCHER Launcher: Configuration failed. "
                          "Terminating\n", [], 0))
        # Outside the sandbox: a bad argument never reaches the host name.
        for arguments in ([], ["abc"], ["7"], ["-1"], ["0", "1"], ["4294967296"]):
            result = subprocess.run([LAUNCHER] + arguments, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                    stdin=subprocess.DEVNULL, timeout=10)
            self.assertEqual((result.returncode, result.stderr.decode(), result.stdout), (1, USAGE, b""), arguments)

    def test_ReadinessLimits_Com15sOnDeath_PhmAndUdpnm3s(self):
        for run, daemon, limit, text in [
                (Run(self, "vm_java", "0", "--standin", "com_daemon=ready=never;exit_after=200"), "com_daemon", 15,
                 "Launcher: Received SIGNAL17\n[Daemon_handler]: timeout reached for child_ready \n"
                 "[Daemon_handler]: get_child_ready =  0\n[LS_COM_S]: com_daemon is not ready\n"),
                (Run(self, "vm_java", "2", "--standin", "quor_phmd=ready=never;first=STATUS=warming up"), "quor_phmd",
                 3, "Daemon_handler: Getting message :STATUS=warming up\n[LS_PHM]: phm_daemon is not ready\n"),
                (Run(self, "vm_adaptive", "3", "--standin", "quor_udpnmd=ready=never;first=STATUS=warming up"),
                 "quor_udpnmd", 3, "Daemon_handler: Getting message :STATUS=warming up\n"
                 "[LS_UPDNM]: udpnm-daemon-1-container is not ready reached time out\n")]:
            run.stopped(1)
            # From the daemon's start (monotonic) to the launcher's last line (the transcript's mtime).
            started = int(list(run.record(daemon).values())[0]["start"][0]) / 1e9 + time.time() - time.monotonic()
            waited = os.stat(run.log).st_mtime - started
            in_order(self, run.stderr, text.splitlines(True) + ["Launcher: Starting failed. Terminating\n",
                                                                 " Launcher: Shutting down... EXIT_FAILURE\n"])
            # systemd is told READY even then; the launcher's end tells it the rest.
            self.assertEqual((limit < waited < 2 * limit + 1, run.ready_count()), (True, 1), "waited %.1f s" % waited)

    def test_DltService_DrivesTheChainAndTheManager_StopWithdrawsTheMonitor(self):
        gone = Run(self, "vm_adaptive", "1", "--file", MARKER + "=", service=["--value", "0"])
        dlt = Run(self, "vm_adaptive", "1", service=["--value", "1", "--monitor"])
        dlt.wait_for(lambda: len(dlt.record("dlt-daemon")) == 1, "dlt-daemon started after the service said 1")
        dlt.wait_ready(2)
        dlt.wait_line("monitor offered 2e10.30a4 v1.0 @ 127.0.0.1:30502")
        # The manager restarts: the launcher reports its current state again.
        dlt.send("init 1")
        dlt.wait_for(lambda: dlt.lines("MonitorAction ")[-1:] == ["MonitorAction 1"], "the state re-sent")
        dlt.send("value 0")
        dlt.wait_for(lambda: "dlt-daemon" not in dlt.names(), "dlt-daemon stopped after the service said 0")
        dlt.wait_for(lambda: dlt.lines("MonitorAction ")[-1:] == ["MonitorAction 0"], "the DTC cleared at the manager")
        dlt.wait_ready(3)
        # Re-enabling does not ask for a report; a clear does.
        before = len(dlt.lines("MonitorAction "))
        for value in (2, 0):
            dlt.send("init %d" % value)
            dlt.wait_line("InitMonitor %d done" % value)
        dlt.wait_for(lambda: len(dlt.lines("MonitorAction ")) > before, "the state re-sent after a clear")
        self.assertEqual(len(dlt.lines("MonitorAction ")), before + 1, dlt.lines())
        # Fifty quick changes each way: the launcher settles on the last value, one chain or none.
        for batch, last in enumerate((0, 1)):
            dlt.send(*["value %d" % ((index + last + 1) % 2) for index in range(50)])
            dlt.wait_for(lambda: len(dlt.lines("value ")) == 51 + 50 * batch, "the changes at the service")
            dlt.wait_for(lambda: dlt.names() == sorted(SANDBOX_OWN + list(DLT_NAMES) * last), "settling on %d" % last)
        self.assertLess(dlt.stop(5.0), 1.0, "the launcher took too long to end")
        self.assertIn("monitor stopped", dlt.lines())
        self.assertTrue(dlt.stderr.endswith("DTL launcher : Stop COM \nDLT_LAUNCHER Launcher: Terminating...\n"))
        in_order(self, dlt.stderr, ["LAUD :LAUD_findServiceStart: Service offered for instance ID 1 \n",
                                    "DLT Launcher LAUD_findServiceCallback : Subscribe dataValuesHash\n",
                                    "+++++ DMSkeletonAdapter::InitMonitor( 2 = kReenabled) is called for 12452\n",
                                    "+++++ DMSkeletonAdapter::InitMonitor( 0 = kClear) is called for 12452\n",
                                    "DTL launcher : Unsubscribe from DSA notification\n"])

        # The service gone: the last flag stays and the marker file counts again (within about 5 s).
        gone.wait_line("request getDiagnosticDataValues 0 ids 1 -> value 0 returnCode 0")
        gone.wait_for(lambda: "dlt-daemon" not in gone.names(), "no dlt-daemon while the service says 0")
        served = len(gone.record("dlt-daemon"))
        gone.send("stop")
        gone.wait_for(lambda: len(gone.record("dlt-daemon")) > served, "dlt-daemon started by the marker file")
        gone.stop(5.0)
        in_order(self, gone.stderr, ["LAUD :LAUD_findServiceStart: Service stopped for instance ID 1 \n",
                                     "Launcher: switch ON DLT logging by Debug file ; dlt_pm_flag/updated = true\n"])

    def test_DltMarkerFile_NoService_AndLogDaemonNeverReady(self):
        never = Run(self, "vm_adaptive", "1", "--file", MARKER + "=",
                    *sum((["--standin", name + "=ready=never"] for name in DLT_NAMES), []))
        qemu = Run(self, "qemu-arm64", "1", "--file", MARKER + "=", "--file", QUIET + "=untouched\\n")
        adaptive, alone = Run(self, "vm_adaptive", "1"), Run(self, "vm_adaptive", "1")
        alone.wait_ready(1)
        alone.stop(2.0)
        self.assertEqual((alone.record("dlt-daemon"), alone.ready_count()), ({}, 1))
        in_order(self, alone.stderr, ["DLT launcher : Proxy : NOT connected to DSA Diagnostic Data Distribution\n",
                                      "DLT_LAUNCHER Launcher: start without DLT LOG...\n"])
        # The search's handler runs only once the service has been offered: the launcher's
        # own monitor offer, seen on the discovery group, must not call it.
        for text in ("switch ON DLT logging", "Callback for LAUD_startFindService", "Service stopped", "no proxy"):
            self.assertNotIn(text, alone.stderr)

        adaptive.wait_ready(1)
        quiet = adaptive.inside(QUIET)
        self.assertEqual(os.pread(quiet, 64, 0), b"0\n")
        created = time.monotonic_ns()
        os.close(adaptive.inside(MARKER, os.O_CREAT | os.O_WRONLY))
        adaptive.wait_for(lambda: all(adaptive.record(name) for name in DLT_NAMES), "the chain by the marker")
        adaptive.wait_for(lambda: os.pread(quiet, 64, 0) == b"1 \n", "the console quieted")
        delay = (int(list(adaptive.record("dlt-daemon").values())[0]["start"][0]) - created) / 1e9
        self.assertLess(delay, 6.5, "the marker file is consulted about every 5 s")
        adaptive.wait_ready(2)
        adaptive.stop(5.0)
        self.assertEqual((os.pread(quiet, 64, 0), adaptive.ready_count()), (b"0 \n", 2))
        os.close(quiet)
        for name, argv in (("dlt-daemon", ["-c", "/etc/dlt_ara_adaptive_vm.conf"]), ("dlt-system", []),
                           ("dltproxyd", ["-c", "/data/target/etc/adaptive/ara_DLT/dlt_proxy.json"])):
            self.assertEqual([(r["argv"], r["env"]) for r in adaptive.record(name).values()],
                             [(["/usr/bin/" + name] + argv, env(RUN + "ara_DLT/dlt_launch_daemon",
                                                                "dlt-daemon-container"))])
        in_order(self, adaptive.stderr, [
            "DLT_LAUNCHER Launcher: start without DLT LOG...\n",
            "Launcher: switch ON DLT logging by Debug file ; dlt_pm_flag/updated = true\nDLT Launcher: send DTC; "
            "flag = 1 DTC=FAIL\n", "STOP DLT LAUNCHER ...\n"])
        self.assertIn("Launcher: switch DLT logging by file ; DLT-flag = 1\n", adaptive.stderr)
        self.assertNotIn("DTL launcher : Unsubscribe from DSA notification", adaptive.stderr)

        # On the emulator: its own configuration, and the console is left alone.
        qemu.wait_ready(2)
        quiet = qemu.inside(QUIET)
        qemu.stop(5.0)
        self.assertEqual((os.pread(quiet, 64, 0), [r["argv"] for r in qemu.record("dlt-daemon").values()]),
                         (b"untouched\n", [["/usr/bin/dlt-daemon", "-c", "/etc/dlt_ara_qemu.conf"]]))
        os.close(quiet)
        for run in (adaptive, qemu):
            self.assertNotIn("Cannot read virtual console file", run.stderr)

        # All three share the log daemon's notification socket, so none says READY: after
        # the fourth failed start the launcher waits for a flag change, with nothing running.
        never.wait_for(lambda: len(never.record("dlt-daemon")) == 4, "four starts of dlt-daemon", 40)
        never.wait_for(lambda: not set(DLT_NAMES) & set(never.names()), "the failed chain stopped")
        time.sleep(1.0)  # no event marks a start that does not come: none after the fourth failure
        never.stop(5.0)
        starts = sorted(int(r["start"][0]) for r in never.record("dlt-daemon").values())
        gaps = [(later - earlier) / 1e9 - 3.0 for earlier, later in zip(starts, starts[1:])]
        self.assertTrue(all(0.1 < gap < 0.8 for gap in gaps), "pauses beyond the 3 s wait: %s" % gaps)
        text = never.stderr
        self.assertEqual([len(starts), text.count("[LS_DLT]: dlt_daemon is not ready reached time out\n"),
                          text.count("Launcher: Starting failed. Terminating\n"),
                          text.count("DLT_LAUNCHER  DLT Launcher start procs had failed, but retry soon ...\n")],
                         [4, 4, 4, 3], text[-1500:])
        self.assertGreater(text.index("but retry if dlt flag changes ...\n"), text.rindex("but retry soon ...\n"))


if __name__ == "__main__":
    LAUNCHER, STANDIN, OFFER, *rest = [os.path.abspath(a) for a in sys.argv[1:4]] + sys.argv[4:]
    probe = ["bwrap", "--unshare-uts", "--unshare-pid", "--ro-bind", "/", "/", "true"]
    if os.geteuid() != 0 or not shutil.which("bwrap") or subprocess.run(probe, stderr=subprocess.PIPE).returncode:
        sys.exit(print("SKIPPED: needs root and a bwrap that can create namespaces", file=sys.stderr) or 77)
    program = unittest.main(argv=[sys.argv[0]] + rest, verbosity=2, exit=False)
    for run in RUNS if not program.result.wasSuccessful() else []:  # what each sandbox printed, briefly
        print("--- %s: status %s\n%s" % (run.label, run.process.poll(), run.stderr[-800:]), file=sys.stderr)
    sys.exit(not program.result.wasSuccessful())
