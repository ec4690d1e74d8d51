"""The trend viewer's native methods in a real Java machine: one call at a time, and many threads at any time."""

import os
import random
import sys
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import JavaTest, often  # noqa: E402
from sanitized import NEEDS_ASAN, library, sanitized  # noqa: E402
from agent_home import FEW, declaration, mount, needs_mounts, read, umount, write  # noqa: E402
from viewers import EVERY_ANSWER, PERIOD, missing_answers, window  # noqa: E402

OUTSIDE_A_RUN = {"descriptors": ("1",), "label": ("1",), "limit": ("1",), "PRD": ("1",), "SMP": ("1",)}
WITHIN_A_RUN = {"descriptors": ("0",), "label": ("0", "3"), "limit": ("0", "3"), "PRD": ("3", "read"), "SMP": ("3", "read"),
                "unlock": ("0",)}
RUN = "run 2 ../config/AutoConfig.ini"
SWAP = "PercentSwapSpaceUsed none"
SCRIPT = ("limit(x) = 9.250000e+01\n set label '@ 1700000000, 12.35 hours to exhaustion, hinge regression, notif "
          "level=87.50' at graph .1,.5\nshow label\nplot 'a' with lines")
HEADLINE = [["AppendInt", "1700000000"],
            ["AppendCompUnicode", "Algorithm: hinge regression.      12.35 hours to exhaustion."], ["AppendFloat", "87.5"]]


class ViewerTest(JavaTest):
    def forecasting_home(self):
        """A home whose resources are forecast after two hundred quick cycles: processes, and a disk that it has a place for."""
        home = self.fresh_home(period=PERIOD)
        home.declare((declaration("PercentProcessesUsed", window=window(260)),
                      declaration("LogicalDisk", "*", "PercentFreeSpaceUsed", window=window(260))))
        os.mkdir(home.at("disk"))
        home.stub_df("", before="unset LD_PRELOAD\n"
                     f"PATH=${{PATH#*:}} df \"$@\" | grep -e ^Filesystem -e ' {home.at('disk')}$'\nexit")
        return home

    def run_to_forecasts(self, machine, home, what):
        """A run whose readers come when there is something to read: from the start, one that has locked out the agent again
        and again would cost it a second each time."""
        machine.say(RUN)
        machine.until(lambda: any(what in name and name.endswith("BM.ini") for name in os.listdir(home.at("data"))),
                      "a forecast")
        machine.say("viewers 8")
        self.await_answers(machine, WITHIN_A_RUN)

    def ask(self, machine, command):
        """One call: what it handed over, and its result or what it threw."""
        before = len(machine.lines)
        machine.say(command)
        machine.until(lambda: any(line.startswith(("result\t", "thrown\t")) for line in machine.lines[before:]), command)
        lines = [line.split("\t") for line in machine.lines[before:]]
        answer = next(line for line in lines if line[0] in ("result", "thrown"))
        return [line[1:] for line in lines if line[0] == "append"], answer[1]

    def unview(self, machine):
        """Ends the reading threads; whatever was wrong is told."""
        machine.say("unview")
        machine.expect("unviewed")
        self.assertEqual([line for line in machine.lines if line.startswith(("wrong\t", "unknown\t"))], [])

    def await_answers(self, machine, expected):
        """Waits until the reading threads have been given all these."""

        def has_come():
            machine.say("answers")
            machine.expect("answered")
            return not missing_answers(machine.lines, expected)

        machine.until(has_come, f"one of {expected}")


class OneCall(ViewerTest):
    def setUp(self):
        self.home = self.fresh_home(period=86400000)
        self.home.declare(FEW + (declaration("PercentSwapSpaceUsed", "none"),))
        self.machine = self.probe(self.home)
        self.machine.say(RUN)
        self.machine.until(lambda: read(self.home.layout.declarations).startswith("/** Updated"), "the end of a cycle")
        write(self.home.at("data", "PercentSwapSpaceUsednoneBM.ini"), SCRIPT)  # the agent's own ones take 200 samples
        write(self.home.at("data", "PercentSwapSpaceUsednoneBMPRD.gnp"), "1 10.5 \n2 11.5 \n")

    def end(self):
        self.machine.stop()
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
        self.machine.stop()
        self.machine.say("objects null")
        for call in ("descriptors", "label " + SWAP, "limit " + SWAP, "pairs PRD " + SWAP):
            self.assertEqual(self.ask(self.machine, call), ([], "1"))
        self.assertEqual(self.ask(self.machine, "unlock"), ([], "0"))
        self.finish(self.machine, self.home)


class ManyThreads(ViewerTest):
    def test_G3_readers_before_during_and_after_runs_that_end_at_random(self):
        home = self.forecasting_home()
        machine = self.probe(home)
        self.run_to_forecasts(machine, home, "PercentProcessesUsed")
        machine.stop()
        self.await_answers(machine, OUTSIDE_A_RUN)
        for _ in range(often(2, 100)):
            machine.say(RUN)
            self.more_lines(machine, home, random.randint(1, 20))
            machine.stop()
        self.unview(machine)
        self.finish(machine, home)
        self.assertEqual(machine.fatal(), [])


@NEEDS_ASAN
class ManyThreadsSanitized(ViewerTest):
    library = library()
    SECONDS = often(0, 60)

    @needs_mounts
    def test_E4_F3_eight_readers_while_mounts_come_and_go_and_one_keeps_the_lock(self):
        home = self.forecasting_home()
        disk = home.at("disk")
        machine = self.probe(home, environment=sanitized(home))
        mount("tmpfs", disk, "tmpfs", 0, "size=100k")
        self.run_to_forecasts(machine, home, "_disk")
        machine.say("keep")
        machine.expect("kept")
        self.more_lines(machine, home, 2)
        self.await_answers(machine, {"label": ("5",)})
        machine.say("unkeep")
        rid = home.number_of(disk)
        self.go_and_come(machine, home, disk, rid)
        end = time.monotonic() + self.SECONDS
        while time.monotonic() < end:
            self.go_and_come(machine, home, disk, rid)
        umount(disk)
        machine.stop()
        self.await_answers(machine, OUTSIDE_A_RUN)
        self.unview(machine)
        self.finish(machine, home)
        self.assertEqual(missing_answers(machine.lines, dict(EVERY_ANSWER, kept=())), [])
        self.assertEqual(machine.fatal(), [])

    @staticmethod
    def go_and_come(machine, home, disk, rid):
        umount(disk)
        machine.until(lambda: rid not in home.archive_lines()[-1][1], "the disk's end")
        mount("tmpfs", disk, "tmpfs", 0, "size=100k")
        machine.until(lambda: rid in home.archive_lines()[-1][1], "the disk's return")


if __name__ == "__main__":
    unittest.main()
