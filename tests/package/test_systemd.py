"""The service under a real systemd, which boots as process 1 of a container that is a copy of this machine: it restarts an
agent that hangs, takes a clean stop for what it is, and shows what the agent sees."""

import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from test_package import HOME, PROJECT, package  # noqa: E402
sys.path.insert(0, os.path.join(PROJECT, "tests", "e2e"))
from agent_home import children_of  # noqa: E402
from suite import die_with_parent, long_only, remaining, wait_until  # noqa: E402

TOOLS = ("unshare", "nsenter", "systemd-nspawn", "dpkg-deb")

# Mounts a file system that never answers over the file that it is given, until it is killed.
UNANSWERED = """
import ctypes, os, sys, time
device = os.open("/dev/fuse", os.O_RDWR)
libc = ctypes.CDLL(None, use_errno=True)
options = f"fd={device},rootmode=100444,user_id=0,group_id=0,allow_other"
if libc.mount(b"unanswered", sys.argv[1].encode(), b"fuse", 0, options.encode()) != 0:
    sys.exit(os.strerror(ctypes.get_errno()))
print("mounted", flush=True)
sys.stdin.read()
libc.umount2(sys.argv[1].encode(), 2)
"""


class Container:
    """A copy of this machine that boots; what is changed in it lives in memory."""

    BOOT = """set -e
        mount -t tmpfs layers "$1" && mkdir "$1/upper" "$1/work" "$1/root"
        mount -t overlay -o "lowerdir=/,upperdir=$1/upper,workdir=$1/work" overlay "$1/root"
        rm -f "$1/root/usr/sbin/policy-rc.d"
        install -m 644 "$2" "$1/root/srv/agent.deb"
        exec systemd-nspawn --quiet -D "$1/root" --register=no --keep-unit --private-network --console=pipe --bind=/dev/fuse \
            --boot systemd.unit=basic.target"""

    def __init__(self, deb):
        self.folder = tempfile.mkdtemp(prefix="lumetra-systemd-")
        self.log = tempfile.TemporaryFile()
        self.process = subprocess.Popen(
            ["unshare", "-m", "--propagation", "private", "sh", "-c", self.BOOT, "sh", self.folder, deb],
            stdin=subprocess.DEVNULL, stdout=self.log, stderr=subprocess.STDOUT, preexec_fn=die_with_parent)
        self.leader = None

    def boot(self):
        """Waits until systemd has booted; why it has not, or None."""

        def booted():
            if self.process.poll() is not None:
                return "ended"
            self.leader = self.leader or self.first_process()
            return self.leader and self.state() in ("running", "degraded") and "booted"

        if wait_until(booted, "a booted systemd") == "booted":
            return None
        self.log.seek(0)
        return self.log.read().decode("utf-8", "replace").strip()[-300:] or "systemd-nspawn ended"

    def first_process(self):
        for child in children_of(self.process.pid):
            try:
                with open(f"/proc/{child}/comm", encoding="ascii") as comm:
                    if comm.read().strip() == "systemd":
                        return str(child)
            except OSError:
                pass  # it has ended
        return None

    def state(self):
        return self.run("systemctl", "is-system-running", expected=None).strip()

    def command(self, *words):
        return ["nsenter", "-t", self.leader, "-m", "-p", "-u", "-i", "-n", "env", "-i",
                "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "DEBIAN_FRONTEND=noninteractive", *words]

    def run(self, *words, expected=0):
        done = subprocess.run(self.command(*words), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True, timeout=remaining(), check=False)
        if expected is not None and done.returncode != expected:
            raise AssertionError(f"{words} ended with {done.returncode}:\n{done.stdout}")
        return done.stdout

    def write(self, path, text):
        subprocess.run(self.command("install", "-D", "-m", "755", "/dev/stdin", path), input=text, text=True, check=True)

    def end(self):
        self.process.send_signal(signal.SIGKILL)
        self.process.wait()
        self.log.close()
        shutil.rmtree(self.folder, ignore_errors=True)


@long_only
class SystemdTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        if os.geteuid() != 0:
            raise unittest.SkipTest("booting a container needs root")
        missing = [tool for tool in TOOLS if not shutil.which(tool)]
        if missing:
            raise unittest.SkipTest("these tools are missing: " + " ".join(missing))
        cls.container = Container(package())
        cls.addClassCleanup(cls.container.end)
        trouble = cls.container.boot()
        if trouble:
            raise unittest.SkipTest("no systemd boots here: " + trouble)
        cls.container.run("dpkg", "-i", "/srv/agent.deb")
        cls.container.run("sed", "-i", "6s/.*/1000/", "/etc/lumetra-agent/AutoConfig.ini")

    def setUp(self):
        self.adjust()
        self.container.run("systemctl", "restart", "lumetra-agent")

    def adjust(self, *settings):
        """Other settings of the service than the package's, for a shorter wait."""
        path = "/run/systemd/system/lumetra-agent.service.d/test.conf"
        self.container.write(path, "[Service]\n" + "".join(setting + "\n" for setting in settings))
        self.container.run("systemctl", "daemon-reload")

    def shown(self, name):
        return self.container.run("systemctl", "show", "-P", name, "lumetra-agent").strip()

    def restarted(self, than):
        """Waits for another process of the agent that is ready."""
        return wait_until(lambda: self.shown("ActiveState") == "active" and self.shown("MainPID") not in (than, "0")
                          and self.shown("MainPID"), "a new start")

    def archive(self):
        return self.container.run("cat", f"{HOME}/data/LumetraArchive.txt").splitlines()

    def test_a_start_ends_with_the_first_cycle_and_the_status_says_what_the_agent_sees(self):
        self.assertEqual(self.shown("ActiveState"), "active")
        self.assertRegex(self.shown("StatusText"), r"^\d+ resources; (collecting: \d+ of 200 samples|\S.* is at its limit)$")
        self.assertRegex(self.container.run("systemctl", "status", "lumetra-agent"), r'Status: "\d+ resources; ')
        self.assertEqual(self.shown("WatchdogUSec"), "5min")
        self.assertEqual(self.shown("NRestarts"), "0")

    def test_a_start_waits_for_a_cycle_that_hangs(self):
        self.container.run("systemctl", "stop", "lumetra-agent")
        before = self.archive()
        self.hang()
        self.container.run("systemctl", "start", "--no-block", "lumetra-agent")
        wait_until(self.hangs, "a first cycle that hangs")
        self.assertEqual(self.shown("ActiveState"), "activating")
        self.release()
        wait_until(lambda: self.shown("ActiveState") == "active", "the start")
        self.assertGreater(len(self.archive()), len(before))

    def test_a_clean_stop_is_no_failure(self):
        self.container.run("systemctl", "stop", "lumetra-agent")
        self.assertEqual([self.shown(name) for name in ("ActiveState", "Result", "ExecMainStatus")],
                         ["inactive", "success", "0"])

    def test_an_agent_that_is_killed_starts_again(self):
        self.adjust("RestartSec=1")
        before = self.shown("MainPID")
        self.container.run("kill", "-9", before)
        self.restarted(before)

    def test_an_agent_that_hangs_starts_again_and_the_journal_says_where_it_was(self):
        self.adjust("WatchdogSec=10", "RestartSec=1")
        self.container.run("systemctl", "restart", "lumetra-agent")
        before = self.shown("MainPID")
        samples = self.archive()
        self.hang()
        wait_until(lambda: self.shown("NRestarts") != "0", "the watchdog")
        self.release()
        self.restarted(before)
        journal = self.container.run("journalctl", "-u", "lumetra-agent", "--no-pager")
        self.assertIn("Watchdog timeout", journal)
        self.assertIn("Full thread dump", journal)
        self.assertRegex(journal, r'"lumetra-agent" .*')
        self.assertIn("ExecPrediction.research_main", journal)
        self.assertEqual(self.archive()[:len(samples)], samples)
        self.assertEqual(self.container.run("find", f"{HOME}/bin", "-name", "core*").strip(), "")

    def test_a_df_that_hangs_for_its_ten_seconds_in_each_cycle_does_not_trip_it(self):
        self.adjust("WatchdogSec=30")
        self.container.write("/usr/local/bin/df", "#!/bin/sh\nexec sleep 1000\n")
        self.addCleanup(self.container.run, "rm", "/usr/local/bin/df")
        self.container.run("systemctl", "restart", "lumetra-agent")
        before = len(self.archive())
        wait_until(lambda: len(self.archive()) >= before + 5, "five cycles")
        self.assertEqual((self.shown("NRestarts"), self.shown("ActiveState")), ("0", "active"))

    def test_a_start_that_fails_ends_and_is_tried_again(self):
        self.adjust("RestartSec=1")
        self.container.run("mv", f"{HOME}/config/resources.txt", f"{HOME}/config/away.txt")
        self.container.run("sh", "-c", f"echo nonsense > {HOME}/config/resources.txt")
        self.container.run("systemctl", "restart", "lumetra-agent", expected=1)
        wait_until(lambda: int(self.shown("NRestarts")) >= 2, "another attempt")
        self.container.run("mv", f"{HOME}/config/away.txt", f"{HOME}/config/resources.txt")
        self.restarted("0")

    def hang(self):
        """From now on nobody who reads the load of the machine gets an answer."""
        self.mounter = subprocess.Popen(
            self.container.command("python3", "-c", UNANSWERED, "/proc/loadavg"), stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, preexec_fn=die_with_parent)
        self.addCleanup(self.release)
        self.assertEqual(self.mounter.stdout.readline(), "mounted\n")

    def hangs(self):
        """Whether a thread of the agent waits for an answer."""
        found = self.container.run("sh", "-c", "cat /proc/$0/task/*/stack", self.shown("MainPID"), expected=None)
        return re.search(r"\bfuse_|request_wait_answer", found)

    def release(self):
        if self.mounter.poll() is None:
            self.mounter.communicate()


if __name__ == "__main__":
    unittest.main()
