"""The library built with the address and undefined-behaviour sanitizers, in a real Java machine."""

import os
import subprocess
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import JavaTest  # noqa: E402
from agent_home import mount, needs_mounts, umount, wait_until, write  # noqa: E402

BUILD = os.environ.get("LUMETRA_ASAN_BUILD", "")


def runtime():
    """The sanitizer's run-time library, which must come before everything else in the process."""
    name = subprocess.run(["g++", "-print-file-name=libasan.so"], capture_output=True, text=True).stdout.strip()
    return os.path.realpath(name)


@unittest.skipUnless(BUILD, "LUMETRA_ASAN_BUILD names no build with the address sanitizer")
class Sanitized(JavaTest):
    library = os.path.join(os.path.abspath(BUILD), "libObrinagent.so")

    @needs_mounts
    def test_two_runs_with_failures_and_a_disk_that_comes_and_goes_give_no_report(self):
        home = self.fresh_home()
        disk = home.at("disk %n")
        os.mkdir(disk)
        environment = home.environment(
            LD_PRELOAD=runtime(), ASAN_OPTIONS="handle_segv=0:detect_leaks=0:exitcode=77",
            UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1")
        machine = self.probe(home, environment=environment)
        write(home.at("config", "short.ini"), "../data/\n")
        machine.say("run 1 ../config/short.ini")
        machine.expect("event\tfatal\tPremature EOF Trying To Read Data File Name", 40)
        machine.expect("returned\t0")
        for _ in range(2):
            count = len(home.archive_lines())
            machine.say("run 2 ../config/AutoConfig.ini")
            self.lines(home, count + 2)
            mount("tmpfs", disk, "tmpfs", 0, "size=100k")
            wait_until(lambda: home.number_of(disk), 30, "a new disk")
            rid = home.number_of(disk)
            wait_until(lambda rid=rid: rid in home.archive_lines()[-1][1], 30, "a sample of it")
            umount(disk)
            wait_until(lambda rid=rid: rid not in home.archive_lines()[-1][1], 30, "its end")
            machine.say("stop")
            machine.expect("returned\t0")
        self.finish(machine, home)


if __name__ == "__main__":
    unittest.main()
