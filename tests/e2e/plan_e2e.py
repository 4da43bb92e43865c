#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
# strata-launcher-plan against the launcher itself: every kind on every partition runs in the
# partition sandbox (scripts/sandbox) with stand-in daemons, and the plan made in the same
# sandbox must name exactly what the stand-ins recorded (argv, environment, readiness socket).
# A second case shows that a plan creates, binds and signals nothing (strace).
# Usage: plan_e2e.py PLAN LAUNCHER STANDIN OFFER [unittest arguments]; exit status 77 (skipped)
# when not root or when bubblewrap cannot create namespaces.
import json
import os
import re
import shutil
import signal
import stat
import subprocess
import sys
import tempfile
import unittest

import launcher_e2e as e2e

PLAN = None
INSIDE_PLAN = "/run/strata-standin/strata-launcher-plan"
MARKER = "/data/target/etc/adaptive/ara_DLT/DLTActivation"
ADAPTIVE = "/data/target/etc/adaptive"
# A batch of sandboxes at once: the machine is shared, and each sandbox runs a launcher.
BATCH = 6
PARTITIONS = ("vm_adaptive", "vm_java", "vm_housekeeping", "qemu-arm64")
DAEMONS = ("com_daemon", "dlt-daemon", "dltproxyd", "dlt-system", "quor_phmd", "quor_udpnmd")

# (host name, kind, sandbox options): every kind on every partition, the DLT launcher with
# its marker file so that it starts its daemons; then partitions without manifests, without
# a configuration file and without the watchdog.
ROWS = [(host, kind, ["--file", MARKER + "="] if kind == "1" else [])
        for kind in ("0", "1", "2", "3", "99") for host in PARTITIONS] + [
    ("vm_housekeeping", "99", ["--omit", ADAPTIVE + "/ara_COM/comManifests_HK"]),
    ("vm_java", "99", ["--omit", ADAPTIVE + "/ara_COM/comManifest"]),
    ("vm_java", "1", ["--file", MARKER + "=", "--omit", "/etc/dlt_ara_java_vm.conf"]),
    ("vm_adaptive", "2", ["--omit", "/dev/watchdog"]),
    ("vm_java", "0", ["--omit", "/usr/lib/libvosk1_iam.so.1", "--omit", "/usr/lib/libtls_manager_botan.so.1"]),
]


def plan_inside(run, kind):
    """The plan made on the partition itself: in the sandbox's namespaces, with its host name
    and its files, as an integrator would run it there."""
    shutil.copy(PLAN, run.directory)
    result = subprocess.run(["nsenter", "-t", str(run.launcher()), "-m", "-u", "-n", "-i", "-p", "--",
                             INSIDE_PLAN, kind, "--json"], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                            stdin=subprocess.DEVNULL, timeout=e2e.WAIT)
    run.test.assertEqual((result.returncode, result.stderr), (0, b""), run.label)
    return json.loads(result.stdout)


def plan_from_root(run, host, kind):
    """The plan made outside, from the sandbox's root as a partition image."""
    result = subprocess.run([PLAN, kind, "--hostname", host, "--root", "/proc/%d/root" % run.launcher(), "--json"],
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, stdin=subprocess.DEVNULL, timeout=e2e.WAIT)
    run.test.assertEqual((result.returncode, result.stderr), (0, b""), run.label)
    return json.loads(result.stdout)


def started(plan):
    return {name: [(d["argv"], d["envp"]) for d in plan["daemons"] if os.path.basename(d["path"]) == name]
            for name in DAEMONS}


class PlanE2e(unittest.TestCase):
    maxDiff = None

    def check_row(self, run, host, kind):
        plan = plan_inside(run, kind)
        expected = started(plan)
        for name, starts in expected.items():
            run.wait_for(lambda: len(run.record(name)) == len(starts), "%d starts of %s" % (len(starts), name))
        recorded = {name: [(r["argv"], r["env"]) for _, r in sorted(run.record(name).items())] for name in expected}
        self.assertEqual(recorded, expected, run.label)
        self.assertEqual((plan["hostname"], plan["kind"]), (host, int(kind)))
        # The sockets the plan names are those the launcher bound, and it waited where the plan says.
        for path in plan["bound_sockets"]:
            self.assertTrue(stat.S_ISSOCK(os.stat("/proc/%d/root%s" % (run.launcher(), path)).st_mode), path)
        for daemon in plan["daemons"]:
            awaited = "[Daemon_handler]: get child_ready from %s\n" % daemon["readiness"]["socket"]
            self.assertEqual(awaited in run.stderr, daemon["readiness"]["awaited"], (run.label, daemon["path"]))
        if host != "qemu-arm64":  # its address table is only readable inside its network namespace
            self.assertEqual(plan_from_root(run, host, kind)["daemons"], plan["daemons"], run.label)
        return plan

    def test_Table_EveryKindOnEveryPartition_PlanEqualsTheRecords(self):
        plans = {}
        for first in range(0, len(ROWS), BATCH):
            batch = ROWS[first:first + BATCH]
            runs = [e2e.Run(self, host, kind, *options) for host, kind, options in batch]
            for run, (host, kind, options) in zip(runs, batch):
                # The DLT launcher tells systemd once before its marker file is seen, once after.
                run.wait_ready(2 if kind == "1" else 1)
                plans[(host, kind, tuple(options))] = self.check_row(run, host, kind)
                run.signal(signal.SIGTERM)
            for run in runs:
                run.stopped()
        # The rows that show the fallbacks: the dummy manifest, no -c, the dummy watchdog.
        argv = {key: [d["argv"] for d in plan["daemons"]] for key, plan in plans.items()}
        for key, wanted in [(ROWS[-5], ["-m", "/etc/adaptive/someip_dummy.json"]),
                            (ROWS[-4], ["-m", "/etc/adaptive/someip_dummy.json"]),
                            (ROWS[-2], ["--dummy_watchdog"])]:
            for daemon in argv[(key[0], key[1], tuple(key[2]))]:
                self.assertEqual(daemon[-len(wanted):], wanted, key)
        missing = plans[(ROWS[-3][0], ROWS[-3][1], tuple(ROWS[-3][2]))]
        self.assertEqual(argv[(ROWS[-3][0], ROWS[-3][1], tuple(ROWS[-3][2]))][0], ["/usr/bin/dlt-daemon"])
        self.assertIn("Launcher_strategy_DLT : config file= /etc/dlt_ara_java_vm.conf is NOT available",
                      missing["console"])
        self.assertEqual(plans[("vm_housekeeping", "3", ())]["daemons"], [])

    def test_NothingCreatedBoundOrSignalled_CheckOneLine(self):
        if shutil.which("strace") is None:
            self.skipTest("strace is not installed")
        scratch = tempfile.mkdtemp(prefix="strata-plan-e2e.")
        self.addCleanup(shutil.rmtree, scratch, True)
        for kind in ("0", "1", "2", "3", "99"):
            for host in PARTITIONS:
                trace = os.path.join(scratch, "trace")
                result = subprocess.run(["strace", "-f", "-qq", "-o", trace, "-e", "trace=process,network,%file,kill",
                                         PLAN, kind, "--hostname", host], stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE, stdin=subprocess.DEVNULL, timeout=e2e.WAIT)
                self.assertEqual(result.returncode, 0, result.stderr)
                calls = [re.sub(r"^\d+\s+", "", line) for line in e2e.read(trace).splitlines()]
                acting = [c for c in calls if re.match(r"(socket|bind|connect|send|kill|tgkill|unlink|rename|mkdir|"
                                                       r"rmdir|chmod|chown|link|symlink|fork|vfork)", c)
                          or (c.startswith("clone") and "CLONE_THREAD" not in c)
                          or (c.startswith("execve") and PLAN not in c)
                          or (re.search(r"O_WRONLY|O_RDWR|O_CREAT", c) and not c.startswith('openat(AT_FDCWD, "",'))]
                self.assertTrue(calls and calls[0].startswith("execve("), calls[:1])  # the trace saw the plan
                self.assertEqual(acting, [], (kind, host))
                self.assertNotIn('"/dev/watchdog", O_', "\n".join(calls))
        # This machine has no platform files: both VLAN daemons fall back to the dummy manifest.
        result = subprocess.run([PLAN, "99", "--hostname", "vm_housekeeping"], stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, timeout=e2e.WAIT)
        self.assertEqual(result.returncode, 0)
        self.assertEqual(result.stdout.decode().count("-m /etc/adaptive/someip_dummy.json\n"), 2, result.stdout)
        for arguments, line in ((["0", "--hostname", "vm_java.local"], "Launcher configuration: Unknown partition. "
                                 "hostname = vm_java.local\n"),
                                (["4", "--hostname", "vm_java"], 'strata-launcher-plan: no launcher kind "4" (0: COM, '
                                 '1: DLT, 2: PHM, 3: UDPNM, 99: COM BRIDGE)\n')):
            result = subprocess.run([PLAN] + arguments + ["--check"], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                    timeout=e2e.WAIT)
            self.assertEqual((result.returncode, result.stderr.decode(), result.stdout), (78, line, b""))


if __name__ == "__main__":
    PLAN, e2e.LAUNCHER, e2e.STANDIN, e2e.OFFER, *rest = [os.path.abspath(a) for a in sys.argv[1:5]] + sys.argv[5:]
    probe = ["bwrap", "--unshare-uts", "--unshare-pid", "--ro-bind", "/", "/", "true"]
    if os.geteuid() != 0 or not shutil.which("bwrap") or subprocess.run(probe, stderr=subprocess.PIPE).returncode:
        sys.exit(print("SKIPPED: needs root and a bwrap that can create namespaces", file=sys.stderr) or 77)
    program = unittest.main(argv=[sys.argv[0]] + rest, verbosity=2, exit=False)
    for run in e2e.RUNS if not program.result.wasSuccessful() else []:
        print("--- %s: status %s\n%s" % (run.label, run.process.poll(), run.stderr[-800:]), file=sys.stderr)
    sys.exit(not program.result.wasSuccessful())
