"""What the agent tells a service manager: that it is ready, that it lives while cycles complete, that it ends."""

import os
import re
import shutil
import tempfile
import time
import unittest

from agent_home import AgentTest, needs_mounts, often
from service_manager import SELDOM, ServiceSocket, Unanswered

COLLECTING = re.compile(r"STATUS=2 resources; collecting: \d+ of 200 samples")


class Service(AgentTest):
    def manager(self, watchdog=400000, name=None):
        directory = tempfile.mkdtemp(prefix="lumetra-notify-")
        self.addCleanup(shutil.rmtree, directory, ignore_errors=True)
        manager = ServiceSocket(name or os.path.join(directory, "notify"), watchdog)
        self.addCleanup(manager.close)
        return manager

    def told(self, home, manager, *options):
        return self.running(home, "--notify", manager.name, "--watchdog", manager.watchdog, *options, clock="real")

    def test_it_is_ready_after_the_first_cycle_lives_and_stops(self):
        for name in (None, f"@lumetra-test-{os.getpid()}"):
            home = self.home(period=1000)
            manager = self.manager(SELDOM, name)
            agent = self.told(home, manager)
            agent.until(lambda manager=manager: manager.messages, "a message")
            self.assertGreaterEqual(len(home.archive_lines()), 1)
            self.assertEqual(manager.messages[0][:2], ["READY=1", "WATCHDOG=1"])
            self.assertEqual(manager.messages[0][2], "STATUS=2 resources; collecting: 1 of 200 samples")
            manager.await_signs(3)
            agent.grows()
            self.end(agent)
            manager.await_line("STOPPING=1")
            lines = manager.lines()
            self.assertEqual(lines.count("READY=1"), 1)
            self.assertEqual(manager.messages[-1], ["STOPPING=1"])
            self.assertEqual(lines.count("STOPPING=1"), 1)
            self.assertGreater(len([line for line in lines if COLLECTING.fullmatch(line)]), 3)
            self.assertEqual(manager.senders, {agent.pid})

    def test_it_tells_of_its_life_in_a_pause_of_hours(self):
        home = self.home(period=3600 * 1000)
        manager = self.manager()
        agent = self.told(home, manager)
        manager.await_signs(8)
        self.assertEqual(len(home.archive_lines()), 1)
        self.assertEqual(manager.messages[-1], ["WATCHDOG=1"])
        self.end(agent)

    @needs_mounts
    def test_a_cycle_that_hangs_tells_nothing_and_one_that_goes_on_does(self):
        if not os.access("/dev/fuse", os.R_OK | os.W_OK):
            self.skipTest("no /dev/fuse")
        home, other = self.home(period=100), self.home(period=3600 * 1000)
        manager, living = self.manager(), self.manager()
        agent = self.told(home, manager)
        manager.await_signs(3)
        healthy = self.told(other, living)
        living.await_signs(1)  # its only cycle is complete
        unanswered = Unanswered("/proc/loadavg")
        self.addCleanup(unanswered.end)
        agent.until(lambda: unanswered.is_awaited_by(agent.pid), "a cycle that hangs")
        manager.signs_so_far()
        hung = len(manager.messages)
        living.await_signs(often(8, 40))  # as long as the other takes for as many
        self.assertEqual(len(manager.messages), hung)
        self.end(healthy)
        unanswered.end()
        manager.await_signs(3)
        self.end(agent)

    def test_it_asks_for_more_time_while_it_reads_a_long_archive(self):
        home = self.home(period=1000, maximum=400000)
        self.run_agent(home, "--cycles", 1)
        now = int(time.time())
        with open(home.layout.archive, "w", encoding="ascii") as file:
            file.writelines(f"{now - 300000 + i} 1 0 12.00 2 0 3.00 \n" for i in range(300000))  # several reads
        manager = self.manager(watchdog=1000)
        agent = self.told(home, manager, "--resume")
        agent.until(lambda: "READY=1" in manager.lines(), "the first cycle")
        messages = manager.messages[:next(i for i, message in enumerate(manager.messages) if "READY=1" in message)]
        self.assertGreater(len(messages), 3)
        for message in messages:
            self.assertEqual(message[0], "EXTEND_TIMEOUT_USEC=1000")
            self.assertRegex(message[1], r"STATUS=reading the archive: \d+ %")
        self.assertNotEqual(messages[0][1], messages[-1][1])
        self.end(agent)

    def test_the_environment_alone_tells_nobody(self):
        home = self.home()
        manager = self.manager()
        self.run_agent(home, "--cycles", 3, environment=home.environment(**manager.environment()))
        self.assertEqual(manager.messages, [])

    def test_nobody_listening_ends_nothing(self):
        home = self.home()
        manager = self.manager()
        os.unlink(manager.name)
        agent = self.told(home, manager)
        agent.grows(5)
        self.end(agent)


if __name__ == "__main__":
    unittest.main()
