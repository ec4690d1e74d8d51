"""The shipped host as a service: a service manager is told by the agent's own thread, and not of a cycle that hangs."""

import os
import shutil
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import JavaTest, often  # noqa: E402
from agent_home import FEW, needs_mounts  # noqa: E402
from service_manager import SELDOM, ServiceSocket, Unanswered  # noqa: E402


class Service(JavaTest):
    def manager(self, watchdog=400000):
        directory = tempfile.mkdtemp(prefix="lumetra-notify-")
        self.addCleanup(shutil.rmtree, directory, ignore_errors=True)
        manager = ServiceSocket(os.path.join(directory, "notify"), watchdog)
        self.addCleanup(manager.close)
        return manager

    def few_home(self, **config):
        home = self.fresh_home(**config)
        home.declare(FEW)
        return home

    def host_of(self, home, manager, **environment):
        return self.host(home, environment=home.environment(**manager.environment(), **environment))

    def test_the_host_hands_on_what_its_environment_says(self):
        home, manager = self.few_home(period=1000), self.manager(SELDOM)
        machine = self.host_of(home, manager)
        manager.await_line("READY=1")
        self.assertEqual(manager.await_line("STATUS="), "STATUS=2 resources; collecting: 1 of 200 samples")
        manager.await_signs(5)
        self.assertEqual(manager.senders, {machine.process.pid})
        self.terminate(machine, home)
        manager.await_line("STOPPING=1")

    def test_the_start_scripts_leave_the_process_that_the_service_manager_knows(self):
        home, manager, checkout = self.few_home(), self.manager(), self.checkout()
        environment = home.environment(**manager.environment(), PATH=os.path.join(checkout, "bin") + ":" + os.environ["PATH"])
        machine = self.start(home, [os.path.join(checkout, "lumetra"), "run", "--home", home.path, "--port", "0"], environment)
        manager.await_line("READY=1")
        self.assertEqual(manager.senders, {machine.process.pid})
        self.terminate(machine, home)

    def test_a_watchdog_for_another_process_and_a_socket_of_another_kind_are_left_alone(self):
        home, manager = self.few_home(period=60000), self.manager()
        machine = self.host_of(home, manager, WATCHDOG_PID="1")
        manager.await_line("READY=1")
        self.terminate(machine, home)
        machine = self.host(home, environment=home.environment(NOTIFY_SOCKET="vsock:2:1234"))
        machine.expect("The service manager cannot be told how the agent is: its socket vsock:2:1234 cannot be used.")
        self.lines(machine, home, 2)
        self.terminate(machine, home)

    def test_another_program_with_the_library_tells_nobody(self):
        home, manager = self.few_home(), self.manager()
        machine = self.probe(home, environment=home.environment(**manager.environment()))
        machine.say("run 2 ../config/AutoConfig.ini")
        self.lines(machine, home, 3)
        machine.stop()
        self.finish(machine, home)
        self.assertEqual(manager.messages, [])

    @needs_mounts
    def test_a_cycle_that_hangs_tells_nothing(self):
        if not os.access("/dev/fuse", os.R_OK | os.W_OK):
            self.skipTest("no /dev/fuse")
        home, manager = self.few_home(), self.manager()
        other, living = self.few_home(period=3600 * 1000), self.manager()
        machine = self.host_of(home, manager)
        manager.await_signs(3)
        healthy = self.host_of(other, living)
        living.await_signs(1)
        unanswered = Unanswered("/proc/loadavg")
        self.addCleanup(unanswered.end)
        machine.until(lambda: unanswered.is_awaited_by(machine.process.pid), "a cycle that hangs")
        hung = manager.signs_so_far()
        living.await_signs(often(8, 40))
        self.assertEqual(manager.signs(), hung)
        self.terminate(healthy, other)
        unanswered.end()
        manager.await_signs(3)
        self.terminate(machine, home)


if __name__ == "__main__":
    unittest.main()
