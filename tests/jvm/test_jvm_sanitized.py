"""The library built with the address and undefined-behaviour sanitizers, in a real Java machine."""

import os
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import JavaTest  # noqa: E402
from sanitized import NEEDS_ASAN, library, sanitized  # noqa: E402
from agent_home import mount, needs_mounts, umount, write  # noqa: E402


@NEEDS_ASAN
class Sanitized(JavaTest):
    library = library()

    @needs_mounts
    def test_two_runs_with_failures_and_a_disk_that_comes_and_goes_give_no_report(self):
        home = self.fresh_home()
        disk = home.at("disk %n")
        os.mkdir(disk)
        machine = self.probe(home, environment=sanitized(home))
        write(home.at("config", "short.ini"), "../data/\n")
        machine.say("run 1 ../config/short.ini")
        machine.expect("event\tfatal\tPremature EOF Trying To Read Data File Name")
        machine.expect("returned\t0")
        for _ in range(2):
            machine.say("run 2 ../config/AutoConfig.ini")
            self.more_lines(machine, home, 2)
            mount("tmpfs", disk, "tmpfs", 0, "size=100k")
            rid = machine.until(lambda: home.number_of(disk), "a new disk")
            machine.until(lambda rid=rid: rid in home.archive_lines()[-1][1], "a sample of it")
            umount(disk)
            machine.until(lambda rid=rid: rid not in home.archive_lines()[-1][1], "its end")
            machine.stop()
        self.finish(machine, home)


if __name__ == "__main__":
    unittest.main()
