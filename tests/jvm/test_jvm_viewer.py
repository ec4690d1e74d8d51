"""The trend viewer's native methods in a real Java machine: one call at a time, and many threads at any time."""

import os
import random
import sys
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import JavaTest  # noqa: E402
from test_jvm_sanitized import BUILD as ASAN_BUILD, runtime  # noqa: E402
from agent_home import FEW, declaration, enter_mount_namespace, mount, read, umount, wait_until, write  # noqa: E402
from viewers import EVERY_ANSWER, PERIOD, cycles_too_long, missing_answers, window  # noqa: E402

RUN = "run 2 ../config/AutoConfig.ini"
SWAP = "PercentSwapSpaceUsed none"
SCRIPT = ("limit(x) = 9.250000e+01\n set label '@ 1700000000, 12.35 hours to exhaustion, hinge regression, notif "
          "level=87.50' at graph .1,.5\nshow label\nplot 'a' with lines")
HEADLINE = [["AppendInt", "1700000000"],
            ["AppendCompUnicode", "Algorithm: hinge regression.      12.35 hours to exhaustion."], ["AppendFloat", "87.5"]]


class ViewerTest(JavaTest):
    def forecasting_home(self):
        """A home whose resources are forecast after two hundred quick cycles."""
        home = self.fresh_home(period=PERIOD)
        home.declare((declaration("PercentProcessesUsed", window=window(260)),
                      declaration("LogicalDisk", "*", "PercentFreeSpaceUsed", window=window(260))))
        return home

    def ask(self, machine, command):
        """One call: what it handed over, and its result or what it threw."""
        before = len(machine.lines)
        machine.say(command)
        wait_until(lambda: any(line.startswith(("result\t", "thrown\t")) for line in machine.lines[before:]), 20, command)
        lines = [line.split("\t") for line in machine.lines[before:]]
        answer = next(line for line in lines if line[0] in ("result", "thrown"))
        return [line[1:] for line in lines if line[0] == "append"], answer[1]

    def unview(self, machine):
        """Ends the reading threads; whatever was wrong is told."""
        machine.say("unview")
        machine.expect("unviewed", 30)
        self.assertEqual([line for line in machine.lines if line.startswith(("wrong\t", "unknown\t"))], [])

    def stop(self, machine):
        machine.say("stop")
        machine.expect("returned\t0", 40)


class OneCall(ViewerTest):
    def setUp(self):
        self.home = self.fresh_home(period=60000)
        self.home.declare(FEW + (declaration("PercentSwapSpaceUsed", "none"),))
        self.machine = self.probe(self.home)
        self.machine.say(RUN)
        wait_until(lambda: read(self.home.layout.declarations).startswith("/** Updated"), what="the end of a cycle")
        time.sleep(0.5)  # into the sleep, which a stop ends
        write(self.home.at("data", "PercentSwapSpaceUsednoneBM.ini"), SCRIPT)  # the agent's own ones take 200 samples
        write(self.home.at("data", "PercentSwapSpaceUsednoneBMPRD.gnp"), "1 10.5 \n2 11.5 \n")

    def end(self):
        self.stop(self.machine)
        self.finish(self.machine, self.home)

    def test_each_method_hands_over_what_it_should(self):
        names = ["PercentProcessesUsed", "_Total", "PercentFileDescriptorsUsed", "_Total", "PercentSwapSpaceUsed", "none"]
        self.assertEqual(self.ask(self.machine, "descriptors"), ([["AppendCompUnicode", name] for name in names], "0"))
        self.assertEqual(self.ask(self.machine, "label " + SWAP), (HEADLINE, "0"))
        self.assertEqual(self.ask(self.machine, "unlock"), ([], "0"))
        self.assertEqual(self.ask(self.machine, "limit " + SWAP), ([["AppendInt", "92"]], "0"))
        tokens = [["AppendCompUnicode", token] for token in ("1", "10.5", "2", "11.5")]
        self.assertEqual(self.ask(self.machine, "pairs PRD " + SWAP), (tokens, "4"))
        self.assertEqual(self.ask(self.machine, "pairs SMP " + SWAP), ([], "3"))
        self.assertEqual(self.ask(self.machine, "limit ../config x"), ([], "3"))
        self.end()
        self.assertEqual(self.machine.fatal(), [])

    def test_G2_a_callback_that_throws_reaches_its_caller_and_nothing_else_changes(self):
        told = "java.lang.IllegalStateException: this append was told to throw"
        for call, appends in (("descriptors", 6), ("limit " + SWAP, 1), ("pairs PRD " + SWAP, 4)):
            for count in range(1, appends + 1):
                self.machine.say(f"throw {count}")
                given, answer = self.ask(self.machine, call)
                self.assertEqual((len(given), answer), (count - 1, told), call)
            given, answer = self.ask(self.machine, call)
            self.assertEqual(len(given), appends, f"{call} after the throw: {answer}")
        for count in (1, 2, 3):
            self.machine.say(f"throw {count}")
            self.assertEqual(self.ask(self.machine, "label " + SWAP), (HEADLINE[:count - 1], told))
            if count == 2:
                self.assertEqual(self.ask(self.machine, "elsewhere label " + SWAP), ([], "5"),
                                 "the lock is held")
            self.assertEqual(self.ask(self.machine, "unlock"), ([], "0"))
            self.assertEqual(self.ask(self.machine, "elsewhere label " + SWAP), (HEADLINE, "0"))
        self.end()

    def test_unfit_objects_are_exceptions_and_leave_the_lock_free(self):
        for objects, thrown in (("null", ("NullPointerException: intOut must not be null",)),
                                ("bare", ("NoSuchMethodError: ", "AppendInt")),
                                ("foreign", ("IllegalArgumentException: floatOut must be of the class of textOut",))):
            self.machine.say("objects " + objects)
            given, answer = self.ask(self.machine, "label " + SWAP)
            self.assertEqual(given, [])
            for word in thrown:
                self.assertIn(word, answer)
            self.machine.say("objects values")
            self.assertEqual(self.ask(self.machine, "elsewhere label " + SWAP), (HEADLINE, "0"), objects)
        self.machine.say("objects null")
        for call in ("descriptors", "pairs PRD " + SWAP):
            self.assertEqual(self.ask(self.machine, call),
                             ([], "java.lang.NullPointerException: list must not be null"))
        self.machine.say("objects bare")
        for call in ("descriptors", "pairs PRD " + SWAP, "limit " + SWAP):
            self.assertIn("NoSuchMethodError", self.ask(self.machine, call)[1])
        self.end()

    def test_after_a_run_every_method_gives_1(self):
        self.stop(self.machine)
        self.machine.say("objects null")
        for call in ("descriptors", "label " + SWAP, "limit " + SWAP, "pairs PRD " + SWAP):
            self.assertEqual(self.ask(self.machine, call), ([], "1"))
        self.assertEqual(self.ask(self.machine, "unlock"), ([], "0"))
        self.finish(self.machine, self.home)


class ManyThreads(ViewerTest):
    def test_G3_readers_before_during_and_after_runs_that_end_at_random(self):
        home = self.forecasting_home()
        machine = self.probe(home)
        machine.say("viewers 8 0")
        time.sleep(0.5)
        for run in range(4):
            machine.say(RUN)
            if run == 1:
                wait_until(lambda: any(name.endswith("BM.ini") for name in os.listdir(home.at("data"))), 60, "a forecast")
            time.sleep(1 + random.random())
            self.stop(machine)
        time.sleep(0.5)
        self.unview(machine)
        self.finish(machine, home)
        expected = dict(EVERY_ANSWER, kept=(), label=("0", "1", "3"))
        self.assertEqual(missing_answers(machine.lines, expected), [])
        self.assertEqual(machine.fatal(), [])


@unittest.skipUnless(ASAN_BUILD, "LUMETRA_ASAN_BUILD names no build with the address sanitizer")
class ManyThreadsSanitized(ViewerTest):
    library = os.path.join(os.path.abspath(ASAN_BUILD), "libObrinagent.so")
    SECONDS = 60

    def test_E4_F3_eight_readers_for_a_minute_while_mounts_come_and_go(self):
        mounts = enter_mount_namespace() is None  # before the machine starts, which lives in it, too
        home = self.forecasting_home()
        disk = home.at("disk")
        os.mkdir(disk)
        machine = self.probe(home, environment=home.environment(
            LD_PRELOAD=runtime(), ASAN_OPTIONS="handle_segv=0:detect_leaks=0:exitcode=77",
            UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"))
        machine.say("viewers 8 4000")
        machine.say(RUN)
        end = time.monotonic() + self.SECONDS
        while time.monotonic() < end:
            self.turn(disk if mounts else None, min(12, max(0.1, end - time.monotonic())))
            self.assertIsNone(machine.process.poll(), machine.output()[-3000:])
        self.stop(machine)
        time.sleep(0.5)
        self.unview(machine)
        self.finish(machine, home)
        self.assertEqual(cycles_too_long(home.archive_lines()), [])
        self.assertEqual(missing_answers(machine.lines, EVERY_ANSWER), [])
        self.assertEqual(machine.fatal(), [])
        if mounts:
            self.assertIsNotNone(home.number_of(disk))

    @staticmethod
    def turn(disk, seconds):
        """A disk that is there until it has files that go with it, and then is gone."""
        if disk is None:
            time.sleep(seconds)
            return
        mount("tmpfs", disk, "tmpfs", 0, "size=100k")
        try:
            time.sleep(seconds)
        finally:
            umount(disk)
        time.sleep(0.5)


if __name__ == "__main__":
    unittest.main()
