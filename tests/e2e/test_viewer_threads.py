"""Many threads that read trend files while the agent runs, under the thread sanitizer."""

import os
import unittest
from unittest import mock

import agent_home
from agent_home import HEADING, AgentTest, declaration, often
from viewers import EVERY_ANSWER, missing_answers

BUILD = os.environ.get("LUMETRA_TSAN_BUILD", "")
DRIVER = os.path.join(os.path.abspath(BUILD), "tests", "nativeDriver")
SAMPLES = 260  # 200 of them are needed for a forecast
WINDOW = f"{SAMPLES / 3600:.6f}"  # hours
STAYS = "/dev/a 1000 250 750 25% /\n"
COMES_BACK = "/dev/b 1000 500 500 50% /proc\n"


@unittest.skipUnless(BUILD, "LUMETRA_TSAN_BUILD names no build with the thread sanitizer")
class ViewerThreads(AgentTest):
    def setUp(self):
        patch = mock.patch.object(agent_home, "DRIVER", DRIVER)
        patch.start()
        self.addCleanup(patch.stop)

    def test_E4_F3_eight_readers_while_disks_come_and_go(self):
        home = self.home(inputs=(declaration("PercentProcessesUsed", window=WINDOW),
                                 declaration("LogicalDisk", "*", "PercentFreeSpaceUsed", window=WINDOW)), period=1000)
        home.stub_df(HEADING + STAYS + COMES_BACK)
        self.run_agent(home, "--cycles", 205)  # from here on there are files, and some go with a disk
        before = len(home.archive_lines())
        agent = self.running(home, "--viewers", 8, "--resume", "--time", home.archive_lines()[-1][0],
                             clock="hurried")
        turn = 0
        while turn < often(2, 11) or self.unheard(agent.output()):  # some are given only while a disk is new
            turn += 1
            agent.grows(often(20, SAMPLES))
            home.stub_df(HEADING + STAYS + (f"/dev/new{turn} 1000 750 250 75% /dev\n" if turn % 2 else COMES_BACK))
        agent.stop()
        result = agent.finish()
        self.assertNotIn("ThreadSanitizer", result.output)
        self.assert_ended_well(result)
        self.assertEqual(result.ended, [0])
        self.assertEqual(result.fatal(), [])
        self.assert_in_order(home)
        self.assertEqual(self.cycles_too_long(home.archive_lines()[before:], result.output), [])

    def unheard(self, output):
        """The answers that no reader was given yet."""
        return missing_answers(output.replace("answer\t", "viewer\t").split("\n"), EVERY_ANSWER)

    def cycles_too_long(self, lines, output):
        """(cycle, pauses) of each cycle that paused for the lock more than it may: three times to forecast, and three times
        for each disk that it found gone."""
        numbers = [set(values) for _, values in lines]
        pauses = [cycle.count("pause\t") for cycle in output.split("sleep\t")]
        return [(cycle, paused) for cycle, (before, now, paused) in enumerate(zip(numbers, numbers[1:], pauses[1:]))
                if paused > 3 * (1 + len(before - now))]

if __name__ == "__main__":
    unittest.main()
