"""Restarts of the shipped host by its start script: it goes on with the samples of the run before, unless told not to."""

import os
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import JavaTest, api, free_port, wait_until  # noqa: E402
import check_home  # noqa: E402
from agent_home import FEW, write  # noqa: E402

HORIZON = 240  # hours: the window of a tenth of it holds all samples at either period
ONE_CYCLE = 60000  # milliseconds: the second does not come while the test looks


class Restart(JavaTest):
    def lumetra(self, home, *options):
        """Starts the agent with the command of a checkout."""
        checkout = self.checkout()
        environment = home.environment(PATH=os.path.join(checkout, "bin") + os.pathsep + os.environ["PATH"])
        return self.start(home, [os.path.join(checkout, "lumetra"), "run", "--home", home.path, *options], environment)

    def first_cycle(self, home, *options):
        """What the page tells of a run after its first cycle, and what the console."""
        home.configure(period=ONE_CYCLE, maximum=HORIZON)
        port = free_port()
        machine = self.lumetra(home, "--port", str(port), *options)
        machine.expect(f"The page is at http://127.0.0.1:{port}/")
        machine.expect("It announces an exhaustion ")
        told = wait_until(lambda: self.after_a_cycle(f"http://127.0.0.1:{port}/"), "the first cycle")
        self.terminate(machine, home)
        return told, machine.lines

    @staticmethod
    def after_a_cycle(url):
        told = api(url, "resources")
        return told if told["agent"]["cycles"] == 1 else None

    def test_the_second_start_forecasts_in_its_first_cycle_and_a_fresh_one_does_not(self):
        home = self.fresh_home(maximum=HORIZON)
        home.declare(FEW)
        machine = self.lumetra(home, "--port", "0")
        self.lines(machine, home, 205)
        self.terminate(machine, home)
        # However many more there were: not more than the next run has room for.
        write(home.layout.archive, b"".join(check_home.content(home.layout.archive).splitlines(True)[-205:]))
        samples = len(home.archive_lines())

        told, lines = self.first_cycle(home)
        self.assertEqual(told["agent"]["resumedSamples"], samples * len(FEW))
        for resource in told["resources"]:
            self.assertEqual((resource["samples"], resource["forecastAt"]), (samples + 1, told["agent"]["newestCycleAt"]))
        self.assertIn(f"Resumed with {samples * len(FEW)} samples of {len(FEW)} resources from the archive.", lines)
        self.assertIn("It takes a sample every 60 s. There are samples enough for forecasts.", lines)

        told, lines = self.first_cycle(home, "--fresh")
        self.assertEqual(told["agent"]["resumedSamples"], 0)
        for resource in told["resources"]:
            self.assertEqual((resource["samples"], resource["forecastAt"]), (1, None))
        self.assertFalse([line for line in lines if line.startswith("Resumed")])


if __name__ == "__main__":
    unittest.main()
