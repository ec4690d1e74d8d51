"""Forecasts in a real Java machine, with nothing simulated: real file systems that really fill, real leaks."""

import json
import os
import resource
import subprocess
import sys
import threading
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import JavaTest  # noqa: E402
from agent_home import declaration, mount, needs_mounts, umount, wait_until  # noqa: E402
from log_follower import LogFollower  # noqa: E402

PERIOD = 900  # milliseconds: below a second there is no pause between cycles
HORIZON = 3600  # seconds: the shortest there is, as it is configured in whole hours
GRID_STEP = HORIZON / 199
SIZE = 64 << 20
ONSET = "Onset of exhaustion detected, setting notification level to "
PENDING = "Exhaustion notification pending, prediction is TRUE, will fire event at level "
FADING = "Exhaustion notification pending, prediction if FALSE, decrementing hysteresis count to "


def window(samples):
    """The analysis window, in hours, that holds so many samples."""
    return f"{samples * PERIOD / 3600000:.6f}"


def disks(samples):
    return declaration("LogicalDisk", "*", "PercentFreeSpaceUsed", window=window(samples))


class Filler(threading.Thread):
    """Fills a file system at a steady pace, a portion at the start of each second: the agent's clock counts whole
    seconds too, so what it sees is a line."""

    def __init__(self, directory, seconds):
        super().__init__(daemon=True)
        self.path = os.path.join(directory, "data")
        self.portion = bytes(SIZE // seconds)
        self.stopped = threading.Event()
        self.full_at = None
        self.start()

    def run(self):
        with open(self.path, "wb", buffering=0) as file:
            while not self.stopped.wait(1 - time.time() % 1):
                try:
                    if file.write(self.portion) < len(self.portion):
                        file.write(self.portion)
                except OSError:
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

    def fill(self, path, seconds):
        filler = Filler(path, seconds)
        self.addCleanup(filler.end)
        return filler

    def run_host(self, home):
        follower = LogFollower(home.layout.log)
        self.addCleanup(follower.end)
        return self.host(home), follower

    def events(self, home, instance=None, kind=None):
        """The whole records of the home's file of events, of one instance and kind."""
        try:
            with open(home.at("log", "events.jsonl"), encoding="utf-8") as file:
                records = [json.loads(line) for line in file.read().split("\n")[:-1]]
        except FileNotFoundError:
            return []
        return [event for event in records if instance in (None, event.get("instance")) and kind in (None, event["type"])]

    def stop(self, machine, home):
        machine.signal(15)
        self.assertEqual(machine.end(40), 0, machine.output()[-2000:])
        self.assert_clean(machine, home)
        self.assertEqual(self.events(home, kind="fatal"), [])


class Exhaustion(ForecastTest):
    @needs_mounts
    def test_a_disk_that_fills_steadily_is_announced_in_time_with_the_time_that_is_left(self):
        home = self.fresh_home(period=PERIOD)
        home.declare((disks(2000),))
        path, instance = self.disk(home)
        filler = self.fill(path, 90)
        machine, log = self.run_host(home)
        wait_until(lambda: log.holds(instance, ONSET), 80, "the onset")
        self.assertEqual(self.events(home, instance), [])
        level = log.number(instance, ONSET)
        wait_until(lambda: self.events(home, instance), 60, "the event")
        used = os.statvfs(path)
        filled = 100 * (1 - used.f_bfree / used.f_blocks)
        event = self.events(home, instance)[0]
        self.assertEqual((event["type"], event["resource"]), ("exhaustion", "PercentFreeSpaceUsed"))
        self.assertGreaterEqual(filled, level)
        self.assertLess(filled, level + 5, "the event came late")
        wait_until(lambda: filler.full_at, 60, "the end of the space")
        truth = filler.full_at - event["epochSeconds"]
        self.assertGreater(truth, 10)
        self.assertAlmostEqual(event["secondsToExhaustion"], truth, delta=GRID_STEP + 0.1 * truth)
        self.stop(machine, home)
        self.assertIn(f"FORECAST  PercentFreeSpaceUsed [{instance}] will be exhausted in ", machine.output())

    def test_a_process_that_leaks_descriptors_is_the_first_culprit(self):
        _, most = resource.getrlimit(resource.RLIMIT_NOFILE)
        leaks = min(36000, most - 100)  # more than the browsers of other tests take
        if leaks < 2000:
            self.skipTest(f"a process may have {most} descriptors only")
        with open("/proc/sys/fs/file-nr", encoding="ascii") as file:
            allocated = int(file.read().split()[0])
        home = self.fresh_home(period=PERIOD)
        home.declare((declaration("PercentFileDescriptorsUsed", window=window(2000), limit=allocated + leaks),))
        os.symlink(os.path.realpath(sys.executable), home.at("leaker"))
        program = ("import os, resource, sys, time\n"
                   f"resource.setrlimit(resource.RLIMIT_NOFILE, ({leaks + 100}, {most}))\n"
                   f"for _ in range(90):\n    time.sleep(1 - time.time() % 1)\n    for _ in range({leaks // 90}):\n"
                   "        os.open('/dev/null', os.O_RDONLY)\n"
                   "sys.stdin.read()\n")
        leaker = subprocess.Popen([home.at("leaker"), "-I", "-S", "-c", program], stdin=subprocess.PIPE)
        self.addCleanup(lambda: (leaker.stdin.close(), leaker.kill(), leaker.wait()))
        machine, log = self.run_host(home)
        wait_until(lambda: log.holds("_Total", ONSET), 80, "the onset")
        wait_until(lambda: self.events(home), 60, "the event")
        event = self.events(home)[0]
        self.assertEqual((event["type"], event["resource"], event["instance"]),
                         ("exhaustion", "PercentFileDescriptorsUsed", "_Total"))
        first = event["culprits"][0]
        self.assertEqual((first["name"], first["pid"]), ("leaker", leaker.pid))
        self.assertGreater(first["value"], leaks / 3)
        self.assertTrue(event["culpritText"].startswith(f" leaker({leaker.pid}){first['value']} "), event["culpritText"])
        self.stop(machine, home)
        self.assertIn(f"; largest users: leaker (pid {leaker.pid}) ", machine.output())

    @needs_mounts
    def test_a_disk_that_is_emptied_again_loses_its_intent_after_five_cycles_without_an_event(self):
        home = self.fresh_home(period=PERIOD)
        home.declare((disks(260),))
        path, instance = self.disk(home)
        filler = self.fill(path, 120)
        machine, log = self.run_host(home)
        wait_until(lambda: log.holds(instance, PENDING), 80, "an intent")
        filler.end()
        os.truncate(filler.path, 0)
        wait_until(lambda: log.holds(instance, "Clearing intent to notify"), 60, "its end")
        told = log.told(instance)
        end = told.index("Clearing intent to notify")
        self.assertEqual(told[end - 5:end], [FADING + str(left) for left in (4, 3, 2, 1, 0)])
        self.assertEqual(log.number(instance, ONSET) > 50, True)
        self.assertEqual(self.events(home, instance), [])
        self.stop(machine, home)


class Tolerance(ForecastTest):
    @needs_mounts
    def test_a_disk_already_full_at_the_start_is_told_once_with_its_first_sample_and_never_again(self):
        home = self.fresh_home(period=PERIOD)
        home.declare((disks(260),))
        path, instance = self.disk(home)
        self.fill(path, 2).join()
        machine, _ = self.run_host(home)
        self.lines(home, 210, 60)
        self.stop(machine, home)
        self.assertEqual(len(self.events(home, instance, "upperTolerance")), 1)

    @needs_mounts
    def test_a_disk_that_fills_to_the_brim_while_it_is_watched_gives_one_tolerance_event(self):
        home = self.fresh_home(period=PERIOD)
        home.declare((disks(260),))
        path, instance = self.disk(home)
        machine, _ = self.run_host(home)
        self.lines(home, 20, 30)
        self.assertEqual(self.events(home, instance), [])
        self.fill(path, 4).join()
        wait_until(lambda: self.events(home, instance, "upperTolerance"), 20, "the event")
        self.lines(home, len(home.archive_lines()) + 210, 60)
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
        wait_until(lambda: self.events(home, kind="fatal"), 30, "a record")
        with open(home.at("log", "ballast"), "wb", buffering=0) as file:
            try:
                while file.write(bytes(4096)):
                    pass
            except OSError:
                pass
        count = len(machine.lines)
        wait_until(lambda: len(machine.lines) > count + 50, 30, "events on a full disk")
        os.unlink(home.at("log", "ballast"))
        recorded = len(self.events(home))
        wait_until(lambda: len(self.events(home)) > recorded, 30, "records after it")  # each line is whole JSON
        machine.signal(15)
        machine.end(40)
        self.assert_clean(machine)


if __name__ == "__main__":
    unittest.main()
