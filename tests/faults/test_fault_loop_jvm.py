"""The fault loop in a real Java machine that checks every call of the native interface: what fails there are the calls of the
library, and no others."""

import os
import sys
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [HERE, os.path.join(os.path.dirname(HERE), "jvm")]
from failing_calls import (  # noqa: E402
    FOR_GOOD, HINDERING, KINDS, LONG, START, Calls, FaultTest, check_home, read, spread, write)
from java_host import JAR, JAVA_OPTIONS, JavaTest, classes_of  # noqa: E402

RUN = "run 2 ../config/AutoConfig.ini"
# Of the ordinary run; the others are tried in the driver alone.
TRIED = ("open", "write", "memory")


class FaultLoopInJava(JavaTest, FaultTest):
    def fresh_copy(self):
        """The home with a past that is as old as the machine's clock says."""
        home = self.copy()
        home.configure(period=100, megabytes=1)
        younger = START - int(time.time()) + 10
        lines = (line.split(" ", 1) for line in read(home.layout.archive).splitlines())
        write(home.layout.archive, "".join(f"{int(stamp) - younger} {rest}\n" for stamp, rest in lines))
        return home

    def begin(self, home, calls):
        environment = home.environment(**calls.variables(home, FAILING_LIBRARY="/libObrinagent.so"))
        machine = JavaTest.start(self, home, ["java", *JAVA_OPTIONS, "-cp", JAR + ":" + classes_of("Probe"), "Probe", self.library],
                                 environment)
        machine.expect("ready")
        machine.say(RUN)
        return machine

    def end(self, machine, calls):
        # What comes of closing the log is what the run gives.
        machine.stop(gives=(0, -1) if calls.kind == "close" else (0,))
        self.assertEqual(machine.end(), 0, machine.output()[-2000:])
        self.assert_clean(machine)

    def reference(self):
        """How many calls of each kind the library makes in a start and some cycles, and how many in three of these."""
        home = self.fresh_copy()
        before = home.snapshot()
        newest = home.archive_lines()[-1][0]
        calls = Calls()
        machine = self.begin(home, calls)
        cycles = machine.until(lambda: sum(stamp > newest for stamp, _ in home.archive_lines()), "a cycle")
        counts, failed = calls.counts(home)
        self.end(machine, calls)
        self.assertEqual(failed, 0)
        self.assert_clean(machine, home, before=before, trimmed=True)
        home.remove()
        return counts, 3 * sum(counts.values()) // cycles

    def assert_survives(self, calls, enough):
        home = self.fresh_copy()
        before = home.snapshot()
        machine = self.begin(home, calls)

        def has_survived():
            """After some cycles, and after the place, which may lie in a later one than in the run that was counted."""
            counts, failed = calls.counts(home)
            made = sum(counts.values())
            return made >= enough and (failed or made >= 20 * enough) or "returned\t" in machine.output()

        machine.until(has_survived, str(calls))
        self.end(machine, calls)
        calls.failed(home)
        self.assertEqual(check_home.check(home.layout, before=before, trimmed=True, faulty=calls.kind in HINDERING), [], str(calls))
        self.assert_next_start_is_clean(home, str(calls), int(time.time()) + 100)
        home.remove()

    def test_calls_of_the_library_that_fail_end_neither_its_run_nor_the_machine(self):
        counts, enough = self.reference()
        for kind in KINDS if LONG else TRIED:
            for number, place in enumerate(list(spread(counts[kind], 1, 0.3))[::10]):
                # A start without memory is made again after a second of the real clock, so that memory fails once only.
                last = FOR_GOOD if number % 2 == 0 and kind != "memory" else place
                with self.subTest(kind=kind, place=place):
                    self.assert_survives(Calls(kind, place, last), enough)


if __name__ == "__main__":
    unittest.main()
