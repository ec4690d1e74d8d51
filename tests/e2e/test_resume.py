"""Restarts: a run that resumes forecasts in its first cycle, and one that does not begins with nothing."""

import os
import re
import unittest

from agent_home import DISK_SPACE, HEADING, PROCESSES, AgentTest, mount, needs_mounts, umount, write

CYCLES = 260  # 200 of them are needed for a forecast
PERIOD = 1000
STEP = 137  # blocks of a million that are used more with each listing: values of more than two decimals
POINTS = re.compile(r"^LogicalDisk /dev/a / PercentFreeSpaceUsed: (\d+)/\d+ points ", re.M)
MODEL = re.compile(r"^Selected model:(.*)$", re.M)


class ResumeTest(AgentTest):
    def filling_home(self):
        """A home whose one disk fills steadily."""
        home = self.home(inputs=(DISK_SPACE,), period=PERIOD)
        row = f"/dev/a 1000000 $((100000 + n * {STEP})) $((900000 - n * {STEP})) 10% /"
        home.stub_df("")
        home.stub_script("#!/bin/sh\n{ read n <../listings; } 2>/dev/null || n=0; echo $((n + 1)) >../listings\n"
                         f"printf '%s' '{HEADING}'\necho \"{row}\"\n")
        return home

    def restart(self, home, *options, cycles=1, pause=60):
        """Another run that begins so many seconds after the newest sample; what its log says."""
        begin = home.archive_lines()[-1][0] + pause - 1  # a start takes a second
        self.run_agent(home, "--cycles", cycles, "--time", begin, *options)
        return home.log()


class Restart(ResumeTest):
    def test_a_run_that_resumes_forecasts_in_its_first_cycle_by_the_same_model(self):
        home = self.filling_home()
        self.run_agent(home, "--cycles", CYCLES)
        model = MODEL.findall(home.log())[-1]
        self.assertEqual(int(POINTS.findall(home.log())[-1]), CYCLES)
        log = self.restart(home, "--resume")
        self.assertIn(f"Resumed with {CYCLES} samples of 1 resources from ../data/archive.txt\n", log)
        self.assertEqual(POINTS.findall(log), [str(CYCLES + 1)])
        self.assertEqual(MODEL.findall(log), [model])
        self.assertNotIn("Not enough data", log)

    def test_a_run_that_does_not_resume_begins_with_nothing(self):
        home = self.filling_home()
        self.run_agent(home, "--cycles", 20)
        log = self.restart(home)
        self.assertEqual(POINTS.findall(log), ["1"])
        self.assertEqual(MODEL.findall(log), ["Not enough data: no model selected"])
        self.assertNotIn("Resumed", log)

    def test_samples_as_old_as_the_window_are_not_taken_over(self):
        home = self.filling_home()
        self.run_agent(home, "--cycles", 20)
        window = 360  # a tenth of the farthest forecast, an hour
        self.assertEqual(POINTS.findall(self.restart(home, "--resume", pause=window - 1)), ["2"])
        self.assertEqual(POINTS.findall(self.restart(home, "--resume", pause=window)), ["1"])

    def test_a_torn_archive_is_resumed_from_as_far_as_it_is_whole(self):
        home = self.filling_home()
        self.run_agent(home, "--cycles", 20)
        with open(home.layout.archive, "r+b") as file:
            file.truncate(os.path.getsize(home.layout.archive) - 3)  # of "10.05 \n": the newest value is not whole
        log = self.restart(home, "--resume", pause=2)
        self.assertIn("Unexpected EOF in refreshcircularbuffers.\n", log)
        self.assertEqual(POINTS.findall(log), ["20"])

    def test_what_stands_in_the_archives_place_holds_no_start_up(self):
        for make in (os.mkfifo, os.mkdir, lambda path: os.symlink("/dev/zero", path), lambda path: write(path, "\0" * 5000)):
            home = self.home(inputs=(PROCESSES,))
            self.run_agent(home, "--cycles", 1)  # from here on its number is known
            os.unlink(home.layout.archive)
            make(home.layout.archive)
            agent = self.running(home, "--cycles", 2, "--resume")
            self.assertEqual(agent.finish().status, 0)
            self.assertIn("Resumed with 0 samples of 0 resources from ../data/archive.txt\n", home.log())


class Remounting(ResumeTest):
    @needs_mounts
    def test_a_disk_that_is_mounted_again_gets_its_history_back(self):
        home = self.home(inputs=(DISK_SPACE,))
        disk = home.at("disk")
        os.mkdir(disk)
        mount("small", disk, "tmpfs", 0, "size=100k")
        home.stub_df("", before=f"exec /bin/df '{disk}' /")
        agent = self.running(home, "--resume")
        agent.grows(5)
        rid = home.number_of(disk)
        umount(disk)
        agent.until(lambda: rid not in home.archive_lines()[-1][1], "its end")
        held = sum(value is not None for value in self.values_of(home, rid))
        self.assertGreaterEqual(held, 5)
        mount("small", disk, "tmpfs", 0, "size=100k")
        self.addCleanup(umount, disk)
        agent.until(lambda: rid in home.archive_lines()[-1][1], "its return")
        agent.grows(2)
        self.end(agent)
        self.assertIn(f"Resumed with {held} samples of 1 resources from ", home.log())


if __name__ == "__main__":
    unittest.main()
