#!/usr/bin/env python3
"""The installed package under a real service manager: each case boots systemd in a
container (systemd-nspawn on a copy-on-write view of this machine's root, with a private
network), installs the Debian package there, puts stand-in daemons at the daemons'
paths and drives the units with systemctl. Nothing of it stays on the host: the
container's writes live in a tmpfs of a private mount namespace, and the container runs
in a cgroup of its own that is killed at the end.

Usage: system_test.py --deb-dir DIR --partition-hostname BIN [unittest arguments]
Exit status 77 (skipped) without root, systemd-nspawn or the unified cgroup hierarchy.
"""

import argparse
import glob
import os
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

SKIP = 77
DEB = None
HOSTNAME_TOOL = None
# The container gets a cgroup of its own on the unified hierarchy, alone or beside v1.
UNIFIED = next((path for path in ("/sys/fs/cgroup/unified", "/sys/fs/cgroup")
                if os.path.exists(os.path.join(path, "cgroup.controllers"))), None)
STANDIN = "/usr/libexec/strata-launcher/strata-standin"
BOOT = r"""
set -e
store=$1; shift
mount -t tmpfs tmpfs /run
mount -t tmpfs tmpfs "$store"
mkdir "$store/upper" "$store/work" "$store/root"
mount -t overlay overlay -o "lowerdir=/,upperdir=$store/upper,workdir=$store/work" "$store/root"
exec systemd-nspawn -q -D "$store/root" -b --register=no --keep-unit --link-journal=no --private-network \
    --resolv-conf=off -M strata-system -- systemd.unit=basic.target "$@"
"""


def unusable():
    if os.geteuid() != 0:
        return "not root: booting a container needs root"
    if shutil.which("systemd-nspawn") is None:
        return "systemd-nspawn is not installed (Debian package systemd-container)"
    if UNIFIED is None:
        return "no unified cgroup hierarchy to give the container a cgroup of its own"
    return None


def read(path):
    with open(path) as handle:
        return handle.read()


def wait_for(what, condition, seconds):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        value = condition()
        if value:
            return value
        time.sleep(0.05)
    raise AssertionError("timed out after %.0f s waiting for %s" % (seconds, what))


class Container:
    """One booted systemd; `run` executes a command in all of its namespaces."""

    def __init__(self, test, *init_arguments):
        self.store = tempfile.mkdtemp(prefix="strata-system.")
        self.cgroup = os.path.join(UNIFIED, "strata-system-%d-%d" % (os.getpid(), id(self)))
        os.mkdir(self.cgroup)
        self.log = tempfile.TemporaryFile("w+")
        test.addCleanup(self.destroy)
        environment = dict(os.environ, SYSTEMD_NSPAWN_UNIFIED_HIERARCHY="1")
        self.nspawn = subprocess.Popen(["unshare", "-m", "--propagation", "private", "sh", "-c", BOOT, "boot",
                                        self.store, *init_arguments], env=environment, stdin=subprocess.DEVNULL,
                                       stdout=self.log, stderr=subprocess.STDOUT, preexec_fn=self.join_cgroup)
        procs = os.path.join(self.cgroup, "payload", "init.scope", "cgroup.procs")
        self.pid = wait_for("the container's init", lambda: os.path.exists(procs) and read(procs).split(), 20)[0]
        wait_for("the service manager's socket", lambda: os.path.exists(self.path("/run/systemd/private")), 20)
        state = self.run("systemctl", "is-system-running", "--wait", timeout=30).stdout.strip()
        test.assertIn(state, ("running", "degraded"), self.boot_log())

    def join_cgroup(self):
        with open(os.path.join(self.cgroup, "cgroup.procs"), "w") as procs:
            procs.write("0")

    def boot_log(self):
        self.log.seek(0)
        return self.log.read()[-3000:]

    def run(self, *command, timeout=20, check=False):
        result = subprocess.run(["nsenter", "-t", self.pid, "-a", *command], stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, universal_newlines=True, timeout=timeout,
                                env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "DEBIAN_FRONTEND": "noninteractive"})
        if check and result.returncode != 0:
            raise AssertionError("%s: status %d\n%s" % (" ".join(command), result.returncode, result.stdout))
        return result

    def path(self, path):
        return "/proc/%s/root%s" % (self.pid, path)

    def write(self, path, text):
        os.makedirs(os.path.dirname(self.path(path)), exist_ok=True)
        with open(self.path(path), "w") as handle:
            handle.write(text)

    def show(self, unit, *names):
        out = self.run("systemctl", "show", unit, *("-p" + name for name in names), check=True).stdout
        return dict(line.split("=", 1) for line in out.splitlines() if "=" in line)

    def standin(self, name, control):
        self.run("cp", STANDIN, "/usr/bin/" + name, check=True)
        self.write("/run/strata-standin/%s.conf" % name, control)

    def record(self, name):
        """Lines "pid key value..." of a stand-in's record, split."""
        path = self.path("/run/strata-standin/%s.record" % name)
        return [line.split() for line in read(path).splitlines()] if os.path.exists(path) else []

    def destroy(self):
        try:
            with open(os.path.join(self.cgroup, "cgroup.kill"), "w") as kill:
                kill.write("1")
            events = os.path.join(self.cgroup, "cgroup.events")
            wait_for("the container's end", lambda: "populated 0" in read(events), 10)
            self.nspawn.wait(timeout=10)
        finally:
            for directory, _, _ in sorted(os.walk(self.cgroup), key=lambda entry: -len(entry[0])):
                os.rmdir(directory)
            self.log.close()
            os.rmdir(self.store)


def timed(record, key, value=None):
    """Monotonic nanoseconds of the record lines with that key (and first value)."""
    return [int(fields[-1]) for fields in record if fields[1] == key and (value is None or fields[2] == value)]


class SystemTest(unittest.TestCase):
    def boot(self, *init_arguments):
        box = Container(self, *init_arguments)
        box.run("dpkg", "-i", DEB, check=True, timeout=60)
        return box

    def journal(self, box, unit):
        return box.run("journalctl", "-b", "-u", unit, "--no-pager", "-o", "cat").stdout

    def test_Package_InstallsDisabledUnits_VerifiesAndRemovesToConffiles(self):
        box = Container(self)
        box.run("apt-get", "install", "-y", DEB, check=True, timeout=90)
        self.assertEqual(box.run("systemctl", "is-enabled", "strata-launcher@0.service").stdout.strip(), "disabled")
        hostname_unit = box.run("systemctl", "is-enabled", "strata-partition-hostname.service")
        self.assertEqual(hostname_unit.stdout.strip(), "static")
        for kind in ("ara_Com", "ara_DLT", "ara_PHM", "ara_UdpNm"):
            self.assertEqual(box.run("test", "-d", "/var/run/adaptive/" + kind).returncode, 0, kind)
        verify = box.run("systemd-analyze", "verify", "strata-launcher@0.service", "strata-partition-hostname.service")
        # Units of this machine that come along (its dlt-daemon.service) may have their own remarks.
        remarks = [line for line in verify.stdout.splitlines() if "strata" in line]
        self.assertEqual((verify.returncode, remarks), (0, []))
        self.assertEqual(box.run("man", "--warnings", "-w", "strata-launcher").stdout.strip(),
                         "/usr/share/man/man8/strata-launcher.8.gz")
        files = [path for path in box.run("dpkg", "-L", "strata-launcher", check=True).stdout.split()
                 if os.path.isfile(box.path(path))]
        for daemon in ("com_daemon", "dlt-daemon", "dltproxyd", "dlt-system", "quor_phmd", "quor_udpnmd"):
            self.assertNotIn("/usr/bin/" + daemon, files)
        self.assertIn("/usr/bin/strata-launcher", files)
        box.run("dpkg", "-r", "strata-launcher", check=True, timeout=60)
        self.assertEqual([path for path in files if os.path.lexists(box.path(path))], ["/etc/strata/strata-com.json"])
        self.assertFalse(os.path.exists(box.path("/run/adaptive")))
        self.assertIn("deinstall ok config-files", box.run("dpkg", "-s", "strata-launcher").stdout)

    def test_ComUnit_ActiveAfterReady_RestartsAfterDeathsAndStops(self):
        box = self.boot()
        box.write("/etc/strata/partition", "# this partition\nvm_adaptive\n")
        box.standin("com_daemon", "ready = 1500\n")
        unit = "strata-launcher@0.service"
        begin = time.monotonic()
        box.run("systemctl", "start", unit, check=True)
        self.assertGreaterEqual(time.monotonic() - begin, 1.5, "active before the daemon was ready")
        self.assertEqual(box.run("hostname").stdout.strip(), "vm_adaptive")
        shown = box.show(unit, "ActiveEnterTimestampMonotonic", "MainPID")
        ready = timed(box.record("com_daemon"), "notify", "ready")
        ready_to_active = int(shown["ActiveEnterTimestampMonotonic"]) / 1e6 - ready[0] / 1e9
        self.assertTrue(0 <= ready_to_active < 1.0, ready_to_active)

        # The daemon dies, then the launcher is killed: each time the unit comes back,
        # and no daemon is left behind the killed launcher.
        box.write("/run/strata-standin/com_daemon.conf", "ready = now\n")
        delays = []
        for restarts, victim in ((1, "daemon"), (2, "launcher")):
            daemons = sorted({int(fields[0]) for fields in box.record("com_daemon")})
            target = daemons[-1] if victim == "daemon" else int(shown["MainPID"])
            killed = time.monotonic()
            box.run("kill", "-KILL", str(target), check=True)
            shown = wait_for("restart %d" % restarts, lambda: (lambda s: s["NRestarts"] == str(restarts) and
                                                               s["ActiveState"] == "active" and s)(
                box.show(unit, "NRestarts", "ActiveState", "MainPID", "ControlGroup")), 10)
            delays.append(time.monotonic() - killed)
            self.assertNotEqual(box.run("kill", "-0", str(daemons[-1])).returncode, 0, victim)
            procs = box.path("/sys/fs/cgroup" + shown["ControlGroup"] + "/cgroup.procs")
            self.assertEqual(len(read(procs).split()), 2, "launcher and one daemon")

        begin = time.monotonic()
        box.run("systemctl", "stop", unit, check=True)
        stop = time.monotonic() - begin
        self.assertLess(stop, 5.0)
        # The launcher's own stop: SIGTERM, then SIGKILL at its first check; it ends with 0.
        last = max(int(fields[0]) for fields in box.record("com_daemon"))
        self.assertNotEqual(box.run("kill", "-0", str(last)).returncode, 0)
        shown = box.show(unit, "ActiveState", "Result", "ExecMainStatus")
        self.assertEqual(shown, {"ActiveState": "inactive", "Result": "success", "ExecMainStatus": "0"})
        print("\nREADY to active %.1f ms, restart after daemon death %.2f s, after launcher SIGKILL %.2f s, "
              "stop %.2f s" % (ready_to_active * 1000, delays[0], delays[1], stop), file=sys.stderr)

    def test_DltUnit_LauncherAloneEndsItsThreeDaemons(self):
        box = self.boot()
        box.write("/etc/strata/partition", "vm_adaptive\n")
        box.write("/data/target/etc/adaptive/ara_DLT/DLTActivation", "")
        names = ("dlt-daemon", "dltproxyd", "dlt-system")
        for name in names:
            box.standin(name, "")
        unit = "strata-launcher@1.service"
        box.run("systemctl", "start", unit, check=True)
        wait_for("the DLT daemons", lambda: all(timed(box.record(name), "start") for name in names), 15)
        box.run("systemctl", "stop", unit, check=True, timeout=30)
        # The manager signalled the launcher alone and had nothing left to kill: the launcher
        # ended its daemons in its own order (SIGTERM to each, then SIGKILL at its checks).
        for name in names:
            pid = box.record(name)[0][0]
            self.assertNotEqual(box.run("kill", "-0", pid).returncode, 0, name)
        self.assertEqual(box.show(unit, "Result", "ExecMainStatus"), {"Result": "success", "ExecMainStatus": "0"})
        self.assertNotIn("Killing process", self.journal(box, unit))

    def test_PhmUnit_HostNameFromKernelCommandLine_DaemonIgnoringSigtermEndsAtStopLimit(self):
        box = self.boot("strata.partition=vm_java")
        box.standin("quor_phmd", "ignore_term = yes\n")
        unit = "strata-launcher@2.service"
        box.run("systemctl", "start", unit, check=True)
        self.assertEqual(box.run("hostname").stdout.strip(), "vm_java")
        cgroup = box.path("/sys/fs/cgroup" + box.show(unit, "ControlGroup")["ControlGroup"])
        begin = time.monotonic()
        box.run("systemctl", "stop", unit, timeout=30)
        stop = time.monotonic() - begin
        self.assertTrue(4.5 < stop < 8.0, "the stop limit of 5 s ends the wait: %.2f s" % stop)
        self.assertIn(["ignored", "15"], [fields[1:3] for fields in box.record("quor_phmd")])
        self.assertFalse(os.path.exists(cgroup) and read(cgroup + "/cgroup.procs").split())
        self.assertEqual(box.show(unit, "ActiveState")["ActiveState"], "failed")
        self.assertRegex(self.journal(box, unit), r"Killing process \d+ \(quor_phmd\) with signal SIGKILL")


class PartitionHostnameTest(unittest.TestCase):
    """The host-name tool in a UTS namespace of its own."""

    def test_NameFromKernelCommandLineFirstThenFile_RefusesOthers(self):
        directory = tempfile.mkdtemp(prefix="strata-hostname.")
        self.addCleanup(shutil.rmtree, directory)
        cases = [  # kernel command line, configuration file, status, host name or message
            ("ro strata.partition=vm_java quiet", "vm_adaptive\n", 0, "vm_java"),
            ("strata.partition=vm_java strata.partition=qemu-arm64", "", 0, "qemu-arm64"),
            ("ro quiet", "\n# comment\n  vm_housekeeping  \n", 0, "vm_housekeeping"),
            ("ro", "vm_adaptive.example\n", 1, "is no partition"),
            ("strata.partition=VM_JAVA", "vm_java\n", 1, "is no partition"),
            ("ro", "# nothing\n", 1, "no partition name"),
        ]
        for cmdline, config, status, expected in cases:
            for name, text in (("cmdline", cmdline), ("partition", config)):
                with open(os.path.join(directory, name), "w") as handle:
                    handle.write(text)
            result = subprocess.run(["unshare", "--uts", "sh", "-c", '"$0" "$@" && hostname', HOSTNAME_TOOL,
                                     "--cmdline", directory + "/cmdline", "--config", directory + "/partition"],
                                    stdout=subprocess.PIPE, stderr=subprocess.STDOUT, universal_newlines=True,
                                    timeout=10)
            self.assertEqual(result.returncode, status, (cmdline, config, result.stdout))
            self.assertIn(expected, result.stdout.splitlines()[-1] if status == 0 else result.stdout)


def main():
    global DEB, HOSTNAME_TOOL
    parser = argparse.ArgumentParser()
    parser.add_argument("--deb-dir", required=True)
    parser.add_argument("--partition-hostname", required=True)
    options, rest = parser.parse_known_args()
    reason = unusable() if "SystemTest" in " ".join(rest) else \
        (None if os.geteuid() == 0 else "not root: the host-name tool needs a UTS namespace of its own")
    if reason:
        print("skipped: " + reason, file=sys.stderr)
        return SKIP
    debs = sorted(glob.glob(os.path.join(options.deb_dir, "strata-launcher_*.deb")))
    DEB, HOSTNAME_TOOL = (debs[-1] if debs else None), options.partition_hostname
    program = unittest.main(argv=[sys.argv[0]] + rest, exit=False, verbosity=2)
    return 0 if program.result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
