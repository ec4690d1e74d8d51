"""The host as it is shipped, half an hour by the real clock, and what that leaves."""

import os
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import long_only  # noqa: E402
from test_jvm_soak import Soak  # noqa: E402
from test_jvm_trouble import shipped_command  # noqa: E402


class B5_HalfAnHour(Soak):
    @long_only
    def test_B5_half_an_hour_at_a_period_of_a_second_costs_no_more_at_its_end_than_in_its_middle(self):
        home = self.fresh_home(period=1000)
        machine = self.start(home, shipped_command(home, self.library, "--port", "0"))
        machine.expect("It announces an exhaustion")
        for cycles in range(60, 1801, 60):
            machine.until(lambda cycles=cycles: len(home.archive_lines()) >= cycles, f"cycle {cycles}")
            self.level(machine, home, cycles)
        self.terminate(machine, home)
        self.assert_flat(8192)


if __name__ == "__main__":
    unittest.main()
