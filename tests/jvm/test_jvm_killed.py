"""The shipped host, killed at random moments and started again: nothing that a completed cycle has told is lost."""

import json
import os
import random
import sys
import time
import unittest
import urllib.request

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import JavaTest, check_home, free_port, often  # noqa: E402
from agent_home import DISK_SPACE, FEW, HEADING, write  # noqa: E402

DISKS = [f"/dev/{letter} 1000 {used} {1000 - used} {used // 10}% /{where}\n"
         for letter, used, where in (("a", 250, ""), ("b", 1000, "proc"), ("c", 500, "dev"), ("d", 990, "sys"), ("e", 1000, "run"))]


class Killed(JavaTest):
    def newest(self, port):
        """How many cycles an agent says that it has completed, and the time of the newest; None without an answer."""
        try:
            with urllib.request.urlopen(f"http://127.0.0.1:{port}/api/v1/resources", timeout=10) as response:
                agent = json.load(response)["agent"]
                return (agent["cycles"], agent["newestCycleAt"]) if agent["cycles"] else None
        except (OSError, ValueError):
            return None

    def life(self, home, chance, must_tell):
        """One start and its violent end, if so asked not before it has said something of its work; what it said last."""
        rows = [row for row in DISKS if chance.random() < 0.7]
        chance.shuffle(rows)
        home.stub_df(HEADING + "".join(rows))
        port = free_port()
        machine = self.host(home, port=port)
        told = machine.until(lambda: self.newest(port), "a cycle") if must_tell else None
        end = time.monotonic() + chance.uniform(0.1, often(2, 5))  # any moment will do
        while time.monotonic() < end:
            told = self.newest(port) or told
            time.sleep(0.02)
        machine.process.kill()
        machine.end()
        return told, machine

    def test_a_kill_at_any_moment_costs_nothing_that_was_complete(self):
        seed = random.randrange(1 << 32)
        print(f"seed {seed}")
        chance = random.Random(seed)
        home = self.fresh_home(period=100)
        home.declare((*FEW, DISK_SPACE))
        home.stub_df(HEADING + "".join(DISKS))
        until = time.monotonic() + often(0, 600)
        lives = told_of = 0
        while lives < 3 or time.monotonic() < until:
            before = home.snapshot()
            lines = len(home.archive_lines())
            told, machine = self.life(home, chance, must_tell=lives < 2)
            where = f"seed {seed}, life {lives}: {machine.output()[-800:]}"
            self.assertEqual(check_home.check(home.layout, before=before, killed=True), [], where)
            if told:
                cycles, newest = told
                now = home.archive_lines()[lines:]
                self.assertGreaterEqual(len(now), cycles, where)
                self.assertIn(newest, [stamp for stamp, _ in now], where)
                told_of += 1
            lives += 1
        home.stub_df(HEADING + "".join(DISKS))
        before = home.snapshot()
        machine = self.host(home)
        self.more_lines(machine, home, 1)
        machine.until(lambda: check_home.content(home.at("log", "events.jsonl")), "an event of a full disk, of this life or before")
        self.terminate(machine, home, before=before)
        starts = check_home.content(home.at("log", "score.jsonl")).count(b'"start"')
        self.assertGreaterEqual(told_of, 2)
        self.assertGreaterEqual(starts, told_of)


if __name__ == "__main__":
    unittest.main()
