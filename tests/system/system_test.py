#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
# The installed package under a real service manager: each case boots systemd in a
# container (systemd-nspawn on a copy-on-write view of this machine's root, private
# network), installs the Debian package, puts stand-in daemons at the daemons' paths and
# drives the units with systemctl. The container's writes live in a tmpfs of a private
# mount namespace and it runs in a cgroup of its own, killed at the end.
# Usage: system_test.py DEB_DIR PARTITION_HOSTNAME_BIN [unittest arguments]; exit
# status 77 (skipped) without root, systemd-nspawn or the unified cgroup hierarchy.
import glob
import os
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

DEB = NEXT = HOSTNAME_TOOL = None
UNIFIED = next((path for path in ("/sys/fs/cgroup/unified", "/sys/fs/cgroup")
                if os.path.exists(os.path.join(path, "cgroup.controllers"))), None)
STANDIN = "/usr/libexec/strata-launcher/strata-standin"
BOOT = r"""set -e
mount -t tmpfs tmpfs /run; mount -t tmpfs tmpfs "$1"; cd "$1"; mkdir upper work root
mount -t overlay overlay -o "lowerdir=/,upperdir=$1/upper,workdir=$1/work" root; shift
exec systemd-nspawn -q -D root -b --register=no --keep-unit --link-journal=no --private-network \
    --resolv-conf=off -M strata-system -- systemd.unit=basic.target "$@"
"""


def read(path):
    with open(path) if os.path.exists(path) else open(os.devnull) as handle:
        return handle.read()


def write(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w") as handle:
        handle.write(text)


def wait_for(what, condition, seconds):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        value = condition()
        if value:
            return value
        time.sleep(0.05)
    raise AssertionError("timed out after %.0f s waiting for %s" % (seconds, what))


class Container:
    # One booted systemd with the package installed; `run` executes a command in all its namespaces.
    def __init__(self, test, *init_arguments):
        self.store = tempfile.mkdtemp(prefix="strata-system.")
        self.cgroup = os.path.join(UNIFIED, "strata-system-%d-%d" % (os.getpid(), id(self)))
        os.mkdir(self.cgroup)
        self.log = tempfile.TemporaryFile("w+")
        test.addCleanup(self.destroy)
        environment = dict(os.environ, SYSTEMD_NSPAWN_UNIFIED_HIERARCHY="1")
        self.nspawn = subprocess.Popen(["unshare", "-m", "--propagation", "private", "sh", "-c", BOOT, "boot",
                                        self.store, *init_arguments], stdin=subprocess.DEVNULL, stdout=self.log,
                                       stderr=subprocess.STDOUT, env=environment,
                                       preexec_fn=lambda: write(self.cgroup + "/cgroup.procs", "0"))
        procs = os.path.join(self.cgroup, "payload", "init.scope", "cgroup.procs")
        self.pid = wait_for("the container's init", lambda: os.path.exists(procs) and read(procs).split(), 30)[0]
        wait_for("the service manager's socket", lambda: os.path.exists(self.path("/run/systemd/private")), 30)
        state = self.run("systemctl", "is-system-running", "--wait", timeout=60).stdout.strip()
        self.log.seek(0)
        test.assertIn(state, ("running", "degraded"), self.log.read()[-3000:])
        self.install(DEB)

    def install(self, deb, *options):
        # The container's service manager mounts its own /tmp, so the host's path of the
        # package (a clone under /tmp) may not exist in there: the package is copied in.
        inside = "/var/cache/strata-system/" + os.path.basename(deb)
        os.makedirs(os.path.dirname(self.path(inside)), exist_ok=True)
        shutil.copyfile(deb, self.path(inside))
        return self.run("apt-get", "install", "-y", *options, inside, check=True, timeout=120).stdout

    def run(self, *command, timeout=30, check=False):
        result = subprocess.run(["nsenter", "-t", self.pid, "-a", *command], stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, universal_newlines=True, timeout=timeout,
                                env={"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "DEBIAN_FRONTEND": "noninteractive"})
        if check and result.returncode != 0:
            raise AssertionError("%s: status %d\n%s" % (" ".join(command), result.returncode, result.stdout))
        return result

    def path(self, path):
        return "/proc/%s/root%s" % (self.pid, path)

    def show(self, unit, *names):
        out = self.run("systemctl", "show", unit, *("-p" + name for name in names), check=True).stdout
        return dict(line.split("=", 1) for line in out.splitlines() if "=" in line)

    def standin(self, control, *names):
        for name in names:
            # Through a new file and a rename: the program may be running.
            self.run("cp", STANDIN, "/usr/bin/%s.new" % name, check=True)
            self.run("mv", "/usr/bin/%s.new" % name, "/usr/bin/" + name, check=True)
            write(self.path("/run/strata-standin/%s.conf" % name), control)

    def record(self, name):
        # Lines "pid key value..." of a stand-in's record, split.
        return [line.split() for line in read(self.path("/run/strata-standin/%s.record" % name)).splitlines()]

    def alive(self, pid):
        return self.run("kill", "-0", str(pid)).returncode == 0

    def journal(self, unit):
        return self.run("journalctl", "-b", "-u", unit, "--no-pager", "-o", "cat").stdout

    def destroy(self):
        try:
            write(self.cgroup + "/cgroup.kill", "1")
            wait_for("the container's end", lambda: "populated 0" in read(self.cgroup + "/cgroup.events"), 20)
            self.nspawn.wait(timeout=20)
        finally:
            for directory, _, _ in sorted(os.walk(self.cgroup), key=lambda entry: -len(entry[0])):
                os.rmdir(directory)
            self.log.close()
            os.rmdir(self.store)


class SystemTest(unittest.TestCase):
    def test_Package_UnitsOfComDltAndPhm_Remove(self):
        # The partition named on the kernel command line wins over the file.
        box = Container(self, "strata.partition=vm_java")
        self.assertEqual(box.run("systemctl", "is-enabled", "strata-launcher@0.service",
                                 "strata-partition-hostname.service").stdout.split(), ["disabled", "static"])
        self.assertEqual(sorted(os.listdir(box.path("/run/adaptive"))), ["ara_Com", "ara_DLT", "ara_PHM", "ara_UdpNm"])
        verify = box.run("systemd-analyze", "verify", "strata-launcher@0.service", "strata-partition-hostname.service")
        # Units of this machine that come along (its dlt-daemon.service) may have their own remarks.
        self.assertEqual((verify.returncode, [x for x in verify.stdout.splitlines() if "strata" in x]), (0, []))
        self.assertEqual(box.run("man", "--warnings", "-w", "strata-launcher").stdout.strip(),
                         "/usr/share/man/man8/strata-launcher.8.gz")
        files = [path for path in box.run("dpkg", "-L", "strata-launcher", check=True).stdout.split()
                 if os.path.isfile(box.path(path))]
        programs = {path[9:] for path in files if path.startswith("/usr/bin/")}
        self.assertIn("strata-launcher", programs)
        self.assertFalse(programs & {"com_daemon", "dlt-daemon", "dltproxyd", "dlt-system", "quor_phmd", "quor_udpnmd"})

        write(box.path("/etc/strata/partition"), "# this partition\nvm_adaptive\n")
        box.standin("ready = 1500\n", "com_daemon")
        unit = "strata-launcher@0.service"
        begin = time.monotonic()
        box.run("systemctl", "start", unit, check=True)
        self.assertGreaterEqual(time.monotonic() - begin, 1.5, "active before the daemon was ready")
        self.assertEqual(box.run("hostname").stdout.strip(), "vm_java")
        shown = box.show(unit, "ActiveEnterTimestampMonotonic", "MainPID")
        ready = [int(fields[-1]) for fields in box.record("com_daemon") if fields[1:3] == ["notify", "ready"]]
        ready_to_active = int(shown["ActiveEnterTimestampMonotonic"]) / 1e6 - ready[0] / 1e9
        self.assertTrue(0 <= ready_to_active < 1.0, ready_to_active)
        # The daemon dies, then the launcher is killed: each time the unit comes back, and
        # no daemon is left behind the killed launcher.
        write(box.path("/run/strata-standin/com_daemon.conf"), "ready = now\n")
        for restarts, victim in ((1, "daemon"), (2, "launcher")):
            daemon = max(int(fields[0]) for fields in box.record("com_daemon"))
            box.run("kill", "-KILL", str(daemon if victim == "daemon" else shown["MainPID"]), check=True)
            shown = wait_for("restart %d" % restarts, lambda: (lambda s: s["NRestarts"] == str(restarts) and
                                                               s["ActiveState"] == "active" and s)(
                box.show(unit, "NRestarts", "ActiveState", "MainPID", "ControlGroup")), 20)
            self.assertFalse(box.alive(daemon), victim)
            procs = box.path("/sys/fs/cgroup" + shown["ControlGroup"] + "/cgroup.procs")
            self.assertEqual(len(read(procs).split()), 2, "launcher and one daemon")
        begin = time.monotonic()
        box.run("systemctl", "stop", unit, check=True)
        self.assertLess(time.monotonic() - begin, 5.0)
        # The launcher's own stop: SIGTERM, then SIGKILL at its first check; it ends with 0.
        self.assertFalse(box.alive(max(int(fields[0]) for fields in box.record("com_daemon"))))
        self.assertEqual(box.show(unit, "ActiveState", "Result", "ExecMainStatus"),
                         {"ActiveState": "inactive", "Result": "success", "ExecMainStatus": "0"})

        # The manager signals the DLT launcher alone and has nothing left to kill: the
        # launcher ends its three daemons in its own order.
        write(box.path("/data/target/etc/adaptive/ara_DLT/DLTActivation"), "")
        names = ("dlt-daemon", "dltproxyd", "dlt-system")
        box.standin("", *names)
        box.run("systemctl", "start", "strata-launcher@1.service", check=True)
        wait_for("the DLT daemons", lambda: all(box.record(name) for name in names), 30)
        box.run("systemctl", "stop", "strata-launcher@1.service", check=True)
        self.assertEqual([box.alive(box.record(name)[0][0]) for name in names], [False] * 3)
        self.assertEqual(box.show("strata-launcher@1.service", "Result", "ExecMainStatus"),
                         {"Result": "success", "ExecMainStatus": "0"})
        self.assertNotIn("Killing process", box.journal("strata-launcher@1.service"))

        # A daemon ignoring SIGTERM: the manager's stop limit of 5 s ends the wait.
        box.standin("ignore_term = yes\n", "quor_phmd")
        unit = "strata-launcher@2.service"
        box.run("systemctl", "start", unit, check=True)
        shown = box.show(unit, "ControlGroup", "MainPID")
        cgroup = box.path("/sys/fs/cgroup" + shown["ControlGroup"])
        begin = time.monotonic()
        box.run("systemctl", "stop", unit)
        stop = time.monotonic() - begin
        self.assertTrue(4.5 < stop < 10.0, "the stop limit of 5 s ends the wait: %.2f s" % stop)
        self.assertIn(["ignored", "15"], [fields[1:3] for fields in box.record("quor_phmd")])
        # Only the launcher signals its daemon: the manager's SIGTERM went to the launcher alone.
        self.assertEqual({fields[2] for fields in box.record("quor_phmd") if fields[1] == "sender"}, {shown["MainPID"]})
        self.assertFalse(os.path.exists(cgroup) and read(cgroup + "/cgroup.procs").split())
        self.assertEqual(box.show(unit, "ActiveState")["ActiveState"], "failed")
        self.assertRegex(box.journal(unit), r"Killing process \d+ \(quor_phmd\) with signal SIGKILL")
        # The next start gets past the socket that the killed launcher left; a clean stop removes it.
        write(box.path("/run/strata-standin/quor_phmd.conf"), "")
        for action in ("start", "stop"):
            box.run("systemctl", action, unit, check=True)

        box.run("dpkg", "-r", "strata-launcher", check=True, timeout=60)
        self.assertEqual([path for path in files if os.path.lexists(box.path(path))],
                         ["/etc/strata/strata-com.json"])
        self.assertFalse(os.path.exists(box.path("/run/adaptive")), box.run("find", "/run/adaptive").stdout)
        self.assertIn("deinstall ok config-files", box.run("dpkg", "-s", "strata-launcher").stdout)


    def test_Upgrade_RestartsRunningInstancesOnly_PolicyRcDDefers(self):
        box = Container(self, "strata.partition=vm_adaptive")
        box.standin("ready = now\n", "com_daemon", "quor_phmd")
        running, stopped = "strata-launcher@0.service", "strata-launcher@2.service"
        box.run("systemctl", "start", running, stopped, check=True)
        box.run("systemctl", "stop", stopped, check=True)
        old = box.show(running, "MainPID")["MainPID"]
        old_daemon = box.record("com_daemon")[-1][0]

        # Version N+1 over N: the running instance gets the new program and starts its
        # daemon again after a clean stop; the stopped one stays stopped. The machine the
        # container is made from may have a policy-rc.d of its own (container images
        # often refuse every start): without one, everything is allowed.
        box.run("rm", "-f", "/usr/sbin/policy-rc.d", check=True)
        box.install(NEXT)
        self.assertIn("Version: 0.1.0-2", box.run("dpkg", "-s", "strata-launcher").stdout)
        shown = box.show(running, "MainPID", "ActiveState", "Result", "NRestarts")
        self.assertNotEqual(shown["MainPID"], old)
        self.assertEqual((shown["ActiveState"], shown["Result"], shown["NRestarts"]), ("active", "success", "0"))
        self.assertEqual(box.run("readlink", "/proc/%s/exe" % shown["MainPID"]).stdout.strip(),
                         "/usr/bin/strata-launcher")
        self.assertFalse(box.alive(old_daemon))
        new_daemon = list(dict.fromkeys(fields[0] for fields in box.record("com_daemon")))[-1]
        self.assertNotEqual(new_daemon, old_daemon)
        self.assertTrue(box.alive(new_daemon))
        # The launcher stopped its daemon itself: the manager had nothing left to kill.
        self.assertNotIn("Killing process", box.journal(running))
        self.assertEqual(box.show(stopped, "ActiveState")["ActiveState"], "inactive")

        # An integrator's policy-rc.d that defers to the next boot: nothing restarts, and
        # the running launcher is the replaced program.
        write(box.path("/usr/sbin/policy-rc.d"), "#!/bin/sh\nexit 101\n")
        os.chmod(box.path("/usr/sbin/policy-rc.d"), 0o755)
        output = box.install(DEB, "--allow-downgrades")
        self.assertIn("policy-rc.d returned 101, not running", output)
        self.assertEqual(box.show(running, "MainPID")["MainPID"], shown["MainPID"])
        self.assertEqual(box.run("readlink", "/proc/%s/exe" % shown["MainPID"]).stdout.strip(),
                         "/usr/bin/strata-launcher (deleted)")
        self.assertTrue(box.alive(new_daemon))

    def test_Units_DltConflictNetworkOrderConfigurationErrors(self):
        box = Container(self, "strata.partition=vm_adaptive")
        # The COM kinds wait for the network, the others do not.
        for unit, ordered in (("strata-launcher@0.service", True), ("strata-launcher@99.service", True),
                              ("strata-launcher@2.service", False)):
            after = box.show(unit, "After", "Wants")
            self.assertEqual(["network-online.target" in after[name].split() for name in ("After", "Wants")],
                             [ordered] * 2, unit)

        # The distribution's dlt-daemon.service and the DLT kind stop each other.
        dlt = "strata-launcher@1.service"
        box.run("systemctl", "start", "dlt-daemon.service", check=True)
        write(box.path("/data/target/etc/adaptive/ara_DLT/DLTActivation"), "")
        box.standin("", "dlt-daemon", "dltproxyd", "dlt-system")
        box.run("systemctl", "start", dlt, check=True)
        self.assertEqual(box.run("systemctl", "is-active", "dlt-daemon.service").stdout.strip(), "inactive")
        wait_for("the DLT daemons", lambda: all(box.record(name) for name in ("dlt-daemon", "dltproxyd")), 30)
        box.run("systemctl", "start", "dlt-daemon.service", check=True)
        self.assertEqual(box.show(dlt, "ActiveState", "Result"), {"ActiveState": "inactive", "Result": "success"})

        # A host name that is no partition and a kind that does not exist: status 78 after
        # one try, no restart, and the journal says why.
        box.run("hostname", "ecu-unknown", check=True)
        for unit, cause in (("strata-launcher@0.service", "Unknown partition. hostname = ecu-unknown"),
                            ("strata-launcher@7.service", 'no launcher kind "7"')):
            self.assertNotEqual(box.run("systemctl", "start", unit).returncode, 0)
            # Three times the restart delay: a restart would have come by then.
            time.sleep(3.0)
            self.assertEqual(box.show(unit, "ActiveState", "ExecMainStatus", "NRestarts"),
                             {"ActiveState": "failed", "ExecMainStatus": "78", "NRestarts": "0"})
            self.assertIn(cause, box.journal(unit))


class PartitionHostnameTest(unittest.TestCase):
    def test_NameFromKernelCommandLineFirstThenFile_RefusesOthers(self):
        # The host-name tool in a UTS namespace of its own.
        directory = tempfile.mkdtemp(prefix="strata-hostname.")
        self.addCleanup(shutil.rmtree, directory)
        for cmdline, config, status, expected in [
                ("ro strata.partition=vm_java quiet", "vm_adaptive\n", 0, "vm_java"),
                ("strata.partition=vm_java strata.partition=qemu-arm64", "", 0, "qemu-arm64"),
                ("ro quiet", "\n# comment\n  vm_housekeeping  \n", 0, "vm_housekeeping"),
                ("ro", "vm_adaptive.example\n", 1, "is no partition"),
                ("strata.partition=VM_JAVA", "vm_java\n", 1, "is no partition"),
                ("ro", "# nothing\n", 1, "no partition name")]:
            for name, text in (("cmdline", cmdline), ("partition", config)):
                write(os.path.join(directory, name), text)
            result = subprocess.run(["unshare", "--uts", "sh", "-c", '"$0" "$@" && hostname', HOSTNAME_TOOL,
                                     "--cmdline", directory + "/cmdline", "--config", directory + "/partition"],
                                    stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=10)
            last = (result.stdout.splitlines() or [""])[-1]
            self.assertEqual((result.returncode, expected in (result.stdout if status else last)), (status, True),
                             (cmdline, config, result.stdout))


if __name__ == "__main__":
    DEB_DIR, HOSTNAME_TOOL, *rest = sys.argv[1:]
    containers = "SystemTest" in " ".join(rest)
    if os.geteuid() != 0 or containers and not (shutil.which("systemd-nspawn") and UNIFIED):
        sys.exit(print("skipped: needs root, systemd-nspawn and a unified cgroup hierarchy", file=sys.stderr) or 77)
    DEB = (sorted(glob.glob(os.path.join(DEB_DIR, "strata-launcher_*.deb"))) or [None])[-1]
    NEXT = (sorted(glob.glob(os.path.join(DEB_DIR, "next", "strata-launcher_*.deb"))) or [None])[-1]
    sys.exit(not unittest.main(argv=[sys.argv[0]] + rest, exit=False, verbosity=2).result.wasSuccessful())
