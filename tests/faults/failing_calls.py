"""Runs of the agent some calls of which fail, or in which it dies in the place of a call; a home with everything that a run
touches."""

import os
import shutil
import struct
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [os.path.join(os.path.dirname(HERE), "e2e")]
import check_home  # noqa: E402, F401
from agent_home import (BUILD, DESCRIPTORS, DISK_SPACE, HEADING, AgentTest, Home, Running, is_sanitized, read, write)  # noqa: E402
from suite import LONG, often, some  # noqa: E402, F401

KINDS = ("open", "log", "opendir", "read", "readdir", "write", "sync", "close", "truncate", "rename", "unlink", "mkdir", "stat",
         "chmod", "realpath", "seek", "spawn", "pipe", "wait", "memory", "random", "dup", "flags", "poll", "socket", "send")
# Those whose failing can keep a file that should go: the agent does not see it, or may not remove it.
HINDERING = ("open", "opendir", "read", "readdir", "stat", "unlink", "memory")
FOR_GOOD = 1 << 40
ROOM = "/dev/shm" if os.access("/dev/shm", os.W_OK) else "/tmp"
START = 1900000000  # the time of day at which a run of a ModelHome begins


def spread(count, tried, first=0.0):
    """Of the places 1 to `count` all in the long run, otherwise so many, the first of them that far into its part of the whole."""
    if LONG or count <= tried:
        return range(1, count + 1)
    return [int((i + first) * count / tried) + 1 for i in range(tried)]


def shim():
    """The library that makes calls fail, built once a build directory and source."""
    source = os.path.join(HERE, "failingCalls.c")
    target = os.path.join(BUILD, "test-cache", f"failingCalls-{int(os.stat(source).st_mtime_ns):x}.so")
    if not os.path.exists(target):
        os.makedirs(os.path.dirname(target), exist_ok=True)
        fresh = f"{target}.{os.getpid()}"
        subprocess.run(["cc", "-O1", "-Wall", "-Wextra", "-Werror", "-shared", "-fPIC", "-o", fresh, source], check=True)
        os.rename(fresh, target)
    return target


class Calls:
    """Which calls fail: those of a kind from the first to the last of these places."""

    def __init__(self, kind="open", first=0, last=None, how="fail"):
        self.kind, self.first, self.last, self.how = kind, first, first if last is None else last, how

    def __str__(self):
        if self.first == 0:
            return "no call"
        places = str(self.first) + {self.first: "", FOR_GOOD: " and all later ones"}.get(self.last, f" to {self.last}")
        return f"{self.how} {self.kind} {places}"

    def variables(self, home, **more):
        """What to put into the agent's environment."""
        return dict(LD_PRELOAD=shim(), FAILING=f"{self.how} {self.kind} {self.first} {self.last}",
                    FAILING_COUNTS=self.counts_file(home), **more)

    @staticmethod
    def counts_file(home):
        return home.at("failing-counts")

    def counts(self, home):
        """How many calls of each kind there were, and how many of all failed."""
        with open(self.counts_file(home), "rb") as file:
            numbers = struct.unpack(f"={len(KINDS) + 1}q", file.read())
        return dict(zip(KINDS, numbers)), numbers[-1]

    def failed(self, home):
        """How many failed; none is right only when the run, which may take time for more or fewer, did not come so far."""
        counts, failed = self.counts(home)
        assert failed or self.how == "kill" or counts[self.kind] < self.first, f"{self}: nothing failed"
        os.unlink(self.counts_file(home))
        return failed


def disk(name, point, used):
    return f"/dev/{name} 1000 {used} {1000 - used} {used // 10}% {point}\n"


class FaultTest(AgentTest):
    """A run that starts over a home with a past, has three cycles and ends: a third disk appears and vanishes, the archive is
    trimmed, the declarations are rewritten, an exhaustion is forecast and told, descriptors have their report of consumers."""

    CYCLES = 3
    OPTIONS = ()  # of the driver, for the runs whose calls fail
    # Up to which listing, what is mounted, and what is used of the first disk. Time stands in a cycle, so that each look at a
    # disk takes a listing of its own: two at the start, four in the first cycle, six in the one with a new disk.
    TURNS = (("[0-5]", ("/", "/proc"), 910), ("[6-9]|1[01]", ("/", "/proc", "/dev"), 970), ("*", ("/", "/proc"), 971))

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.model = cls.make_model()
        cls.addClassCleanup(cls.model.remove)

    @classmethod
    def make_model(cls):
        home = Home(inputs=(DESCRIPTORS, DISK_SPACE), period=1000, megabytes=1, at=ROOM)
        cls.put_stub(home)
        Running(home, "--cycles", 1, "--mounts", home.at("mounts"), "--time", START - 5000).finish()
        os.unlink(home.at("turn"))
        numbers = {instance: rid for (_, instance, _, identifier), rid in home.numbers().items() if identifier == -2}
        disk_a, total = numbers["/dev/a /"], numbers["_Total"]
        # Long lines, of which few make an archive that is due for trimming, and then those that a forecast goes on from.
        lines = [f"{START - 2000000 + i} " + f"{total} 0 12.00 {disk_a} 0 50.00 " * 40 + "\n" for i in range(1600)]
        lines += [f"{START - 300 + i} {total} 0 12.00 {disk_a} 0 {60 + i / 10:.2f} \n" for i in range(300)]
        write(home.layout.archive, "".join(lines))
        # Edited, so that the first cycle replaces the declarations and the next one writes their date.
        write(home.layout.declarations, "my disks\n" + read(home.layout.declarations))
        for name, text in (("PercentFileDescriptorsUsed_TotalBMSMP.gnp", "0.000000 12.000000 \n"), ("PercentFileDescriptorsUsed.cul", ""),
                           (".lumetra-0123456789abcdef", "of an earlier run")):
            write(home.at("data", name), text)
        return home

    @classmethod
    def put_stub(cls, home):
        """A df without a further program in it; what is mounted changes with each listing."""
        steps = ""
        for pattern, mounted, used in cls.TURNS:
            rows = disk("a", "/", used) + "".join(disk(point[1:], point, 500) for point in mounted[1:])
            table = "".join(f"/dev/{point[1:] or 'a'} {point} ext4 rw 0 0\n" for point in mounted)
            steps += f"{pattern}) printf '{table}' >../mounts; printf '%s' '{HEADING}{rows}';;\n"
        home.stub_df("")
        home.stub_script("#!/bin/sh\nread -r n 2>/dev/null <../turn || n=0\necho $((n + 1)) >../turn\n"
                         f"case $n in\n{steps}esac\n")
        write(home.at("mounts"), "/dev/a / ext4 rw 0 0\n/dev/proc /proc ext4 rw 0 0\n")

    def copy(self, model=None):
        home = self.home(at=ROOM)
        shutil.rmtree(home.path)
        shutil.copytree((model or self.model).path, home.path, symlinks=True)
        self.put_stub(home)
        return home

    def run_failing(self, home, calls, cycles=CYCLES, begin=START):
        """One run with these calls failing; what it told, and how many failed."""
        return self.run_counted(home, calls, cycles, begin), calls.failed(home)

    def run_counted(self, home, calls, cycles=CYCLES, begin=START):
        return Running(home, "--cycles", cycles, "--resume", "--mounts", home.at("mounts"), "--time", begin, *self.OPTIONS,
                       refuse=False, environment=home.environment(**calls.variables(home))).finish()

    def reference(self):
        """How many calls of each kind the run makes; it does what it is to do."""
        home = self.copy()
        before = home.snapshot()
        calls = Calls()
        result = self.run_counted(home, calls)
        counts, failed = calls.counts(home)
        self.assert_ended_well(result)
        self.assertEqual(failed, 0)
        self.assertEqual(result.fatal(), [])
        self.assertEqual(check_home.check(home.layout, before=before, trimmed=True), [])
        self.assertLess(os.path.getsize(home.layout.archive), 2**20 + 1000)
        self.assertEqual([len(values) for _, values in home.archive_lines()[-self.CYCLES:]], [3, 4, 3])
        self.assertTrue([event for event in result.events if event[0] != "fatal"], "an exhaustion is told")
        home.remove()
        return counts

    def assert_next_start_is_clean(self, home, where, begin):
        """A start without a fault finds its way from whatever there is."""
        before = home.snapshot()
        write(home.at("turn"), "99\n")  # what came has gone
        result = Running(home, "--cycles", 2, "--mounts", home.at("mounts"), "--time", begin).finish()
        self.assertEqual((result.status, result.misuses, result.fatal()), (0, [], []), where + result.output[-2000:])
        self.assertEqual(check_home.check(home.layout, before=before, trimmed=True), [], where)
        newest = read(home.layout.archive).splitlines()[-1].split()
        self.assertEqual(len(newest), 1 + 3 * 3, where)
