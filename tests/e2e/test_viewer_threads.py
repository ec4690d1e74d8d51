"""Many threads that read trend files while the agent runs, under the thread sanitizer."""

import os
import time
import unittest
from unittest import mock

import agent_home
from agent_home import HEADING, AgentTest, Running, declaration, wait_until
from viewers import EVERY_ANSWER, PERIOD, cycles_too_long, missing_answers, window

BUILD = os.environ.get("LUMETRA_TSAN_BUILD", "")
DRIVER = os.path.join(os.path.abspath(BUILD), "tests", "nativeDriver")
SECONDS = 60
STAYS = "/dev/a 1000 250 750 25% /\n"
COME_AND_GO = ("/dev/b 1000 500 500 50% /proc\n", "/dev/c 1000 750 250 75% /dev\n")


@unittest.skipUnless(BUILD, "LUMETRA_TSAN_BUILD names no build with the thread sanitizer")
class ViewerThreads(AgentTest):
    def setUp(self):
        patch = mock.patch.object(agent_home, "DRIVER", DRIVER)
        patch.start()
        self.addCleanup(patch.stop)

    def test_E4_F3_eight_readers_for_a_minute_while_disks_come_and_go(self):
        home = self.home(inputs=(declaration("PercentProcessesUsed", window=window(260)),
                                 declaration("LogicalDisk", "*", "PercentFreeSpaceUsed", window=window(260))), period=PERIOD)
        home.stub_df(HEADING + STAYS + COME_AND_GO[0])
        agent = Running(home, "--viewers", 8, "--limit-ms", (SECONDS + 60) * 1000, clock="real")
        self.addCleanup(agent.clean)
        end = time.monotonic() + SECONDS
        wait_until(home.archive_lines, 20, "a cycle")
        for turn in range(1, 100):
            time.sleep(min(12, max(0.1, end - time.monotonic())))  # until the disk has files that go with it
            if time.monotonic() >= end:
                break
            self.assertIsNone(agent.process.poll(), agent.output()[-3000:])
            home.stub_df(HEADING + STAYS + COME_AND_GO[turn % 2])
        agent.stop()
        result = agent.finish(60)
        self.assertNotIn("ThreadSanitizer", result.output)
        self.assert_ended_well(result)
        self.assertEqual(result.ended[0][1], 0)
        self.assertEqual(result.fatal(), [])
        self.assert_in_order(home)
        self.assertEqual(cycles_too_long(home.archive_lines()), [])
        self.assertEqual(missing_answers(result.output.split("\n"), EVERY_ANSWER), [])


if __name__ == "__main__":
    unittest.main()
