"""Every call of the agent that can fail does, once and from then on, or is the one in whose place it dies; each time the next
start finds everything in order. See failingCalls.c for what is a call of the agent."""

import os
import signal
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from failing_calls import (  # noqa: E402
    FOR_GOOD, HINDERING, KINDS, LONG, START, Calls, FaultTest, check_home, is_sanitized, often, some, spread)
from service_manager import ServiceSocket  # noqa: E402

LATER = START + 100
# A start that memory is refused to is made again after a second, for ever; so that one succeeds at last.
LONGEST = {"memory": 300}
# Calls whose number is up to the machine: how long a program takes is looked at until it has ended.
VARYING = ("poll",)


class LoopTest(FaultTest):
    def assert_survived(self, home, before, result, calls, killed=False, where=""):
        where += str(calls)
        self.assertEqual((result.status, result.misuses, result.limited), (0, [], False), where + "\n" + result.output[-3000:])
        # What comes of closing the log is what the run gives.
        self.assertIn(result.ended, ([0], [-1]) if calls.kind == "close" else ([0],), where)
        self.assertEqual(check_home.check(home.layout, before=before, trimmed=True, killed=killed, faulty=calls.kind in HINDERING),
                         [], where)

    def survives(self, calls):
        """Whether any call failed."""
        home = self.copy()
        before = home.snapshot()
        result, failed = self.run_failing(home, calls)
        self.assert_survived(home, before, result, calls)
        if failed:
            self.assert_next_start_is_clean(home, str(calls), LATER)
        home.remove()
        return failed > 0

    def loop(self, kind, places, last):
        """Every place of the kind, or one, until nothing fails any more."""
        for place in places:
            self.survives(Calls(kind, place, last(place)))
        if LONG and places and kind not in VARYING:
            self.assertFalse(self.survives(Calls(kind, 2 * len(places) + 100)), "there are more calls than were counted")


class FaultLoop(LoopTest):
    def kinds(self):
        """The kinds, and how often the run makes such a call. A sanitizer has an allocator of its own."""
        counts = self.reference()
        return [(kind, counts[kind]) for kind in KINDS if not (kind == "memory" and is_sanitized())]

    def test_a_call_that_fails_once_costs_the_step_in_hand_and_the_next_start_is_clean(self):
        for kind, count in self.kinds():
            with self.subTest(kind=kind):
                self.loop(kind, spread(count, 1), lambda place: place)

    def test_calls_of_a_kind_that_fail_from_one_on_end_nothing_and_the_next_start_is_clean(self):
        for kind, count in self.kinds():
            with self.subTest(kind=kind):
                self.loop(kind, spread(count, 1, 0.5), lambda place, kind=kind: place + LONGEST.get(kind, FOR_GOOD))

    def test_a_pipe_at_which_a_reading_would_wait_starts_no_program(self):
        home = self.copy()
        before = home.snapshot()
        calls = Calls("flags", 1, FOR_GOOD)
        result, _ = self.run_failing(home, calls)
        self.assert_survived(home, before, result, calls)
        self.assertFalse(os.path.exists(home.at("turn")), "df has run")
        self.assertEqual(len(home.archive_lines()[-1][1]), 1, "the descriptors alone")

    def test_faults_in_the_start_after_a_fault_or_a_death_are_survived_alike(self):
        counts = dict(self.kinds())
        for number, how in enumerate(some(("kill write", "kill rename", "kill unlink", "fail write", "fail open"), 2)):
            how, kind = how.split()
            first = Calls(kind, counts[kind] // 2, FOR_GOOD if how == "fail" else None, how)
            model = self.copy()
            before = model.snapshot()
            self.run_failing(model, first)
            self.assertEqual(check_home.check(model.layout, before=before, trimmed=True, killed=True), [])
            kinds = [kind for kind in counts if counts[kind]]
            for kind in some(kinds, 2):
                for place in (spread(counts[kind], 1, 0.1 + number / 5) if not LONG else some(range(1, counts[kind] + 1), 12)):
                    home = self.copy(model)
                    before = home.snapshot()
                    second = Calls(kind, place)
                    result, _ = self.run_failing(home, second, begin=LATER)
                    self.assert_survived(home, before, result, second, killed=True, where=f"{first}, then ")
                    self.assert_next_start_is_clean(home, f"{first}, then {second}", LATER + 100)
                    home.remove()


class ServiceFaultLoop(LoopTest):
    """As a service without any standard descriptor: the manager is told, and what the agent opens may get their numbers."""

    KINDS = ("socket", "send", "dup")

    def setUp(self):
        manager = ServiceSocket(f"@lumetra-faults-{os.getpid()}")
        self.addCleanup(manager.close)
        self.manager = manager
        # A sign of life ends a sleep, and so counts as a cycle: none is due in these.
        self.OPTIONS = ("--notify", manager.name, "--watchdog", 10**10, "--without-standard")

    def test_calls_that_only_a_service_makes_cost_the_step_in_hand_and_the_next_start_is_clean(self):
        counts = self.reference()
        self.manager.await_line("READY=1")
        for kind in self.KINDS:
            self.assertGreater(counts[kind], 0, kind)
            with self.subTest(kind=kind):
                self.loop(kind, spread(counts[kind], 1), lambda place: place)
                self.loop(kind, spread(counts[kind], 1, 0.5), lambda _: FOR_GOOD)


class KillLoop(FaultTest):
    # Those after which something else stands on the disk.
    KINDS = ("write", "log", "rename", "unlink", "open", "truncate", "sync", "close", "mkdir")

    def test_C1_a_death_in_the_place_of_any_call_that_changes_a_file_leaves_all_in_order_and_a_clean_next_start(self):
        counts = self.reference()
        deaths = left = 0
        for kind in self.KINDS:
            for place in spread(counts[kind], 8 if kind == "write" else 2, 0.4):
                home = self.copy()
                before = home.snapshot()
                calls = Calls(kind, place, how="kill")
                result, _ = self.run_failing(home, calls)
                self.assertEqual(result.status, -signal.SIGKILL, f"{calls}: {result.output[-500:]}")
                self.assertEqual(check_home.check(home.layout, before=before, trimmed=True, killed=True), [], str(calls))
                deaths += 1
                left += bool(check_home.side_files(home.at("config")) or check_home.side_files(home.at("data")))
                self.assert_next_start_is_clean(home, str(calls), LATER)
                home.remove()
        self.assertGreater(deaths, often(12, 300))
        self.assertGreater(left, often(0, 5), "deaths between the making of a side file and its renaming")


if __name__ == "__main__":
    unittest.main()
