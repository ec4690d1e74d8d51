"""Many cycles in a Java machine, and what they leave: descriptors, threads, memory, references, files."""

import itertools
import os
import re
import signal
import sys
import threading
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import JavaTest, check_home, often  # noqa: E402
from agent_home import (MS_BIND, declaration, mount, needs_mounts, size, umount,  # noqa: E402
                        write)
from viewers import window  # noqa: E402

RUN = "run 2 ../config/AutoConfig.ini"
SAMPLES = 260  # of a window, 200 of which are needed for a forecast
RESOURCES = often(30, 200)
DISKS = often(10, 30)
FIELDS = ("cycles", "seconds", "descriptors", "threads", "resident kB", "Java references", "log kB", "processor share")


def slope(points):
    """The least squares slope of (x, y) points."""
    mean_x, mean_y = (sum(column) / len(points) for column in zip(*points))
    spread = sum((x - mean_x) ** 2 for x, _ in points)
    return sum((x - mean_x) * (y - mean_y) for x, y in points) / spread if spread else 0.0


class Soak(JavaTest):
    def setUp(self):
        self.begun = time.monotonic()
        self.levels = []

    @staticmethod
    def references_of(machine):
        """All that was told so far; what Java prints meanwhile may stand before it on its line, or break it."""
        return [int(told) for told in re.findall(r"refs: (\d+), weak", machine.output())]

    def level(self, machine, home, cycles):
        """Looks at the machine, and keeps and prints what it sees."""
        pid = machine.process.pid
        seen, looks = len(self.references_of(machine)), itertools.count()

        def told():
            if next(looks) % 200 == 0:
                machine.signal(signal.SIGQUIT)
            return self.references_of(machine)[seen:]

        references = machine.until(told, "the number of references")[0]
        with open(f"/proc/{pid}/status", encoding="ascii", errors="replace") as file:
            status = dict(line.split(":", 1) for line in file)
        with open(f"/proc/{pid}/stat", "rb") as file:
            ticks = sum(int(word) for word in file.read().rpartition(b")")[2].split()[11:13])
        seconds = time.monotonic() - self.begun
        self.levels.append((cycles, round(seconds), len(os.listdir(f"/proc/{pid}/fd")), int(status["Threads"]),
                            int(status["VmRSS"].split()[0]), references, size(home.layout.log) // 1024,
                            round(ticks / os.sysconf("SC_CLK_TCK") / seconds, 4)))
        print(*(f"{name} {value}" for name, value in zip(FIELDS, self.levels[-1])), sep=", ", flush=True)

    def assert_flat(self, most_kilobytes):
        """Of the second half: by then everything has been done once. Memory may not grow by more than so much in all."""
        half = self.levels[len(self.levels) // 2:]
        for place, slack in ((2, 3), (3, 3), (5, 8)):
            values = [level[place] for level in half]
            self.assertLessEqual(max(values) - min(values), slack, f"{FIELDS[place]}: {values}")
        grown = slope([(level[0], level[4]) for level in half]) * (half[-1][0] - half[0][0])
        print(f"resident memory: {grown:.0f} kB over {half[-1][0] - half[0][0]} cycles")
        self.assertLess(grown, most_kilobytes, self.levels)
        self.assertLessEqual(max(level[6] for level in self.levels) * 1024, check_home.LOG_LIMIT)


class B5_Soak(Soak):
    """Flat out: many resources, mounts that come and go, readers, descriptors that run out over and over again."""

    def churn(self, base, limits):
        """Mounts, unmounts and lets descriptors fill, until it is told to end."""
        turn = -1
        while not self.is_over.wait(0.05):
            turn += 1
            point = os.path.join(base, f"come{turn % 10}")
            if turn // 10 % 2:
                umount(point)
            else:
                mount("tmpfs", point, "tmpfs", 0, "size=64k")
            write(limits, f"{turn % 400 * 25} 0 10000\n")

    @needs_mounts
    def test_B5_cycles_flat_out_leave_descriptors_threads_memory_and_references_flat(self):
        at = "/dev/shm" if os.access("/dev/shm", os.W_OK) else "/tmp"
        home = self.fresh_home(period=100, megabytes=1, at=at)
        base, limits = home.at("mounts"), home.at("file-nr")
        os.mkdir(base)
        for name in [f"stay{i}" for i in range(DISKS)] + [f"come{i}" for i in range(10)]:
            os.mkdir(os.path.join(base, name))
            if name.startswith("stay"):
                mount("tmpfs", os.path.join(base, name), "tmpfs", 0, "size=64k")
                self.addCleanup(umount, os.path.join(base, name))
        write(limits, "0 0 10000\n")
        mount(limits, "/proc/sys/fs/file-nr", "", MS_BIND)
        self.addCleanup(umount, "/proc/sys/fs/file-nr")
        counters = [declaration("PercentFileDescriptorsUsed", window=window(SAMPLES))]
        counters += [declaration(name, f"copy {i}", window=window(SAMPLES)) for i in range(RESOURCES - DISKS - 1)
                     for name in (("PercentProcessesUsed", "PercentSwapSpaceUsed", "PercentFileDescriptorsUsed")[i % 3],)]
        home.declare(counters + [declaration("LogicalDisk", "*", "PercentFreeSpaceUsed", window=window(SAMPLES))])
        machine = self.probe(home)
        machine.say(f"viewers {often(3, 8)}")
        machine.say(RUN)
        self.is_over = threading.Event()
        churning = threading.Thread(target=self.churn, args=(base, limits))
        churning.start()
        cycles = often(220, 20000)
        try:
            for step in range(1, 11):
                self.await_cycles(machine, home, cycles * step // 10)
                self.level(machine, home, cycles * step // 10)
        finally:
            self.is_over.set()
            churning.join()
            for name in os.listdir(base):
                if name.startswith("come") and os.path.ismount(os.path.join(base, name)):
                    umount(os.path.join(base, name))
        machine.stop()
        machine.say("unview")
        machine.expect("unviewed")
        events = sum(line.startswith("event\t") and not line.startswith("event\tfatal\t") for line in machine.lines)
        print(f"{events} events")
        self.assertEqual([line for line in machine.lines if line.startswith("wrong")], [])
        self.finish(machine, home, trimmed=True, clock_jumped=True)
        if cycles > 1000:
            self.assertGreater(events, cycles // 100)
            self.assert_flat(4096)

    def await_cycles(self, machine, home, count):
        """The archive is trimmed, so its lines are counted as they come: each cycle has one."""
        def counted():
            with open(home.layout.archive, "rb") as file:
                stat = os.fstat(file.fileno())
                if stat.st_ino != self.archive_of:
                    self.archive_of, self.read_to = stat.st_ino, self.place_of_newest(file)
                file.seek(self.read_to)
                text = file.read()
            whole = text.rfind(b"\n") + 1
            self.cycles += text[:whole].count(b"\n")
            self.read_to += whole
            if whole:
                self.newest = text[:whole].rsplit(b"\n", 2)[-2]
            return self.cycles >= count

        machine.until(lambda: os.path.exists(home.layout.archive) and counted(), f"cycle {count}")

    cycles, archive_of, read_to, newest = 0, None, 0, b""

    def place_of_newest(self, file):
        """Just behind the newest line that was counted, in an archive that has been trimmed."""
        file.seek(0)
        at = file.read().rfind(self.newest + b"\n") if self.newest else -1
        return at + len(self.newest) + 1 if at >= 0 else 0


if __name__ == "__main__":
    unittest.main()
