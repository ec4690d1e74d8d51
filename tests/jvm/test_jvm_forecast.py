"""Forecasts in a real Java machine: real file systems that really fill, real leaks. Only the time of day is turned, and in
the long run not even that."""

import json
import os
import resource
import subprocess
import sys
import threading
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import JavaTest, long_only, wait_until  # noqa: E402
from agent_home import MS_REMOUNT, declaration, mount, needs_mounts, umount  # noqa: E402
from log_follower import LogFollower  # noqa: E402
from turned_agent import TurnedAgent  # noqa: E402

PERIOD = 900  # milliseconds: below a second there is no pause between cycles
HORIZON = 3600  # seconds: the shortest there is, as it is configured in whole hours
GRID_STEP = HORIZON / 199
CYCLES = 260  # in which a turned disk fills; the first forecast takes 200
CYCLE = 10  # seconds of turned time: all cycles lie within the horizon, which is counted from the first sample
PORTION = 64 << 10
SIZE = CYCLES * PORTION
ROUNDING = 1e-5  # of a percentage: a sample is a 32-bit float
ONSET = "Onset of exhaustion detected, setting notification level to "
PENDING = "Exhaustion notification pending, prediction is TRUE, will fire event at level "
FADING = "Exhaustion notification pending, prediction if FALSE, decrementing hysteresis count to "


def window(samples):
    """The analysis window, in hours, that holds so many samples."""
    return f"{samples * PERIOD / 3600000:.6f}"


def disks(samples):
    return declaration("LogicalDisk", "*", "PercentFreeSpaceUsed", window=window(samples))


def fill(path, size):
    """Writes so much, or what there is space for, to a file of a file system."""
    with open(os.path.join(path, "data"), "ab", buffering=0) as file:
        while size > 0:
            try:
                size -= file.write(bytes(min(size, PORTION)))
            except OSError:
                return


class RealFiller(threading.Thread):
    """Fills a file system at a steady pace, a portion at the start of each second: the agent's clock counts whole
    seconds too, so what it sees is a line."""

    def __init__(self, directory, seconds):
        super().__init__(daemon=True)
        self.directory = directory
        self.portion = SIZE // seconds
        self.stopped = threading.Event()
        self.full_at = None
        self.start()

    def run(self):
        while not self.stopped.wait(1 - time.time() % 1):
            fill(self.directory, self.portion)
            if os.statvfs(self.directory).f_bfree == 0:
                self.full_at = time.time()
                return

    def end(self):
        self.stopped.set()
        self.join()


class ForecastTest(JavaTest):
    def disk(self, home):
        """A small file system of the test's own, and the instance under which the agent knows it."""
        path = home.at("disk")
        os.mkdir(path)
        mount("small", path, "tmpfs", 0, f"size={SIZE}")
        self.addCleanup(umount, path)
        return path, "small " + path

    def turned(self, home, path):
        """An agent that sees this file system alone and whose cycles the test turns, and its log."""
        turned = TurnedAgent(home, path)
        self.addCleanup(turned.close)
        return turned, self.host(home, environment=turned.environment()), self.follow(home)

    def follow(self, home):
        follower = LogFollower(home.layout.log)
        self.addCleanup(follower.close)
        return follower

    def events(self, home, instance=None, kind=None):
        """The whole records of the home's file of events, of one instance and kind."""
        try:
            with open(home.at("log", "events.jsonl"), encoding="utf-8") as file:
                records = [json.loads(line) for line in file.read().split("\n")[:-1]]
        except FileNotFoundError:
            return []
        return [event for event in records if instance in (None, event.get("instance")) and kind in (None, event["type"])]

    def stop(self, machine, home):
        self.terminate(machine, home)
        self.assertEqual(self.events(home, kind="fatal"), [])


class Exhaustion(ForecastTest):
    @needs_mounts
    def test_a_disk_that_fills_steadily_is_announced_in_time_with_the_time_that_is_left(self):
        home = self.fresh_home(period=PERIOD)
        home.declare((disks(2000),))
        path, instance = self.disk(home)
        turned, machine, log = self.turned(home, path)
        while not log.holds(instance, ONSET):
            turned.cycle(CYCLE, lambda: fill(path, PORTION))
        self.assertEqual(self.events(home, instance), [])
        while not self.events(home, instance):
            turned.cycle(CYCLE, lambda: fill(path, PORTION))
        told_at, used = turned.now, os.statvfs(path)
        event = self.events(home, instance)[0]
        self.assert_announced(event, log.number(instance, ONSET), used)
        self.assertLessEqual(abs(told_at - event["epochSeconds"]), 2 * CYCLE)
        truth = used.f_bfree * used.f_bsize / PORTION * CYCLE
        self.assertAlmostEqual(event["secondsToExhaustion"], truth, delta=GRID_STEP + CYCLE)
        turned.release()
        self.stop(machine, home)
        self.assertIn(f"FORECAST  PercentFreeSpaceUsed [{instance}] will be exhausted in ", machine.output())

    def assert_announced(self, event, level, used):
        filled = 100 * (1 - used.f_bfree / used.f_blocks)
        self.assertEqual((event["type"], event["resource"]), ("exhaustion", "PercentFreeSpaceUsed"))
        self.assertLess(0, event["episodeSince"], "the onset is known")
        self.assertLess(event["episodeSince"], event["epochSeconds"])
        self.assertGreaterEqual(filled, level - ROUNDING)
        self.assertLess(filled, level + 5, "the event came late")

    @long_only
    @needs_mounts
    def test_with_nothing_simulated_a_disk_that_fills_steadily_is_announced_in_time(self):
        home = self.fresh_home(period=PERIOD)
        home.declare((disks(2000),))
        path, instance = self.disk(home)
        filler = RealFiller(path, 90)
        self.addCleanup(filler.end)
        machine, log = self.host(home), self.follow(home)
        machine.until(lambda: log.holds(instance, ONSET) or filler.full_at, "the onset")
        self.assertEqual(self.events(home, instance), [])
        machine.until(lambda: self.events(home, instance) or filler.full_at, "the event")
        event = self.events(home, instance)[0]
        self.assert_announced(event, log.number(instance, ONSET), os.statvfs(path))
        wait_until(lambda: filler.full_at, "the end of the space")
        truth = filler.full_at - event["epochSeconds"]
        self.assertAlmostEqual(event["secondsToExhaustion"], truth, delta=GRID_STEP + 0.1 * truth)
        self.stop(machine, home)

    def leaker(self, home, most):
        """A process that opens as many files as each line that it is sent says."""
        os.symlink(os.path.realpath(sys.executable), home.at("leaker"))
        program = ("import os, resource, sys\n"
                   f"resource.setrlimit(resource.RLIMIT_NOFILE, ({most}, {most}))\n"
                   "for line in sys.stdin:\n    for _ in range(int(line)):\n        os.open('/dev/null', os.O_RDONLY)\n"
                   "    print(flush=True)\n")
        leaker = subprocess.Popen([home.at("leaker"), "-I", "-S", "-c", program], stdin=subprocess.PIPE,
                                  stdout=subprocess.PIPE, text=True)
        self.addCleanup(lambda: (leaker.stdin.close(), leaker.stdout.close(), leaker.kill(), leaker.wait()))
        return leaker

    @needs_mounts
    def test_a_process_that_leaks_descriptors_is_the_first_culprit(self):
        _, most = resource.getrlimit(resource.RLIMIT_NOFILE)
        leaks = min(20000, most - 100)  # more than the browsers of other tests take
        if leaks < 2000:
            self.skipTest(f"a process may have {most} descriptors only")
        with open("/proc/sys/fs/file-nr", encoding="ascii") as file:
            allocated = int(file.read().split()[0])
        home = self.fresh_home(period=PERIOD)
        home.declare((declaration("PercentFileDescriptorsUsed", window=window(2000), limit=allocated + leaks), disks(2000)))
        path, _ = self.disk(home)
        leaker = self.leaker(home, leaks + 100)

        def leak():
            if not self.events(home):
                leaker.stdin.write(f"{leaks // CYCLES}\n")
                leaker.stdin.flush()
                leaker.stdout.readline()

        turned, machine, log = self.turned(home, path)
        while not log.holds("_Total", ONSET):
            turned.cycle(CYCLE, leak)
        while not self.events(home):
            turned.cycle(CYCLE, leak)
        event = self.events(home)[0]
        self.assertEqual((event["type"], event["resource"], event["instance"]),
                         ("exhaustion", "PercentFileDescriptorsUsed", "_Total"))
        first = event["culprits"][0]
        self.assertEqual((first["name"], first["pid"]), ("leaker", leaker.pid))
        self.assertGreater(first["value"], leaks / 3)
        self.assertTrue(event["culpritText"].startswith(f" leaker({leaker.pid}){first['value']} "), event["culpritText"])
        turned.release()
        self.stop(machine, home)
        self.assertIn(f"; largest users: leaker (pid {leaker.pid}) ", machine.output())

    @needs_mounts
    def test_a_disk_that_is_emptied_again_loses_its_intent_after_five_cycles_without_an_event(self):
        home = self.fresh_home(period=PERIOD)
        home.declare((disks(CYCLES),))
        path, instance = self.disk(home)
        turned, machine, log = self.turned(home, path)
        while not log.holds(instance, PENDING):
            turned.cycle(CYCLE, lambda: fill(path, PORTION))
        os.truncate(os.path.join(path, "data"), 0)
        while not log.holds(instance, "Clearing intent to notify"):
            turned.cycle(CYCLE)
        told = log.told(instance)
        end = told.index("Clearing intent to notify")
        self.assertEqual(told[end - 5:end], [FADING + str(left) for left in (4, 3, 2, 1, 0)])
        self.assertGreater(log.number(instance, ONSET), 50)
        self.assertEqual(self.events(home, instance), [])
        turned.release()
        self.stop(machine, home)


class Tolerance(ForecastTest):
    @needs_mounts
    def test_a_disk_already_full_at_the_start_is_told_once_with_its_first_sample_and_never_again(self):
        home = self.fresh_home(period=PERIOD)
        home.declare((disks(CYCLES),))
        path, instance = self.disk(home)
        fill(path, SIZE)
        turned, machine, _ = self.turned(home, path)
        for _ in range(210):  # and with forecasts
            turned.cycle(CYCLE)
        turned.release()
        self.stop(machine, home)
        self.assertEqual(len(self.events(home, instance, "upperTolerance")), 1)

    @needs_mounts
    def test_a_disk_that_fills_to_the_brim_while_it_is_watched_gives_one_tolerance_event(self):
        home = self.fresh_home(period=PERIOD)
        home.declare((disks(CYCLES),))
        path, instance = self.disk(home)
        turned, machine, _ = self.turned(home, path)
        for _ in range(20):
            turned.cycle(CYCLE)
        self.assertEqual(self.events(home, instance), [])
        turned.cycle(CYCLE, lambda: fill(path, SIZE))
        for _ in range(210):
            turned.cycle(CYCLE)
        turned.release()
        self.stop(machine, home)
        told = self.events(home, instance, "upperTolerance")
        self.assertEqual([(event["resource"], event["limit"]) for event in told], [("PercentFreeSpaceUsed", 100.0)])
        line = f"LIMIT     PercentFreeSpaceUsed [{instance}] has reached its limit of 100.00 %"
        self.assertEqual(machine.output().count(line), 1)


class Records(ForecastTest):
    @needs_mounts
    def test_events_are_accepted_while_the_log_directory_is_full_and_recorded_whole_afterwards(self):
        home = self.fresh_home(period=PERIOD, archive="none/archive.txt")  # every cycle tells of a failure
        home.declare((declaration("PercentProcessesUsed"),))
        mount("small", home.at("log"), "tmpfs", 0, "size=256k")
        self.addCleanup(umount, home.at("log"))
        machine = self.host(home)
        machine.until(lambda: self.events(home, kind="fatal"), "a record")
        with open(home.at("log", "ballast"), "wb", buffering=0) as file:
            try:
                while file.write(bytes(4096)):
                    pass
            except OSError:
                pass
        count = len(machine.lines)
        machine.until(lambda: len(machine.lines) > count + 50, "events on a full disk")
        recorded = len(self.events(home))
        mount("small", home.at("log"), "tmpfs", MS_REMOUNT, "size=64m")  # more than is written until somebody looks
        machine.until(lambda: len(self.events(home)) > recorded, "records after it")  # each line is whole JSON
        machine.signal(15)
        machine.end()
        self.assert_clean(machine)


if __name__ == "__main__":
    unittest.main()
