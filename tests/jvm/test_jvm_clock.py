"""A real agent whose time of day passes January 2038 and is set while it runs: archive, page, metrics and replay."""

import os
import re
import sys
import unittest
import urllib.request

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import api, remaining, wait_until  # noqa: E402
from agent_home import DESCRIPTORS, declaration  # noqa: E402
from test_jvm_replay import ReplayTest  # noqa: E402
from turned_agent import TurnedAgent  # noqa: E402

END_OF_32_BITS = 2**31 - 1
CYCLE = 10
CYCLES = 210  # the first forecast takes 200
DISK = declaration("LogicalDisk", "*", "PercentFreeSpaceUsed", window="1.")


class Clock(ReplayTest):
    def turned_page(self, home, now):
        turned = TurnedAgent(home, "/", now)
        self.addCleanup(turned.close)
        machine, port = self.page(home, environment=turned.environment())
        return turned, machine, f"http://127.0.0.1:{port}/"

    def metric(self, url, name):
        with urllib.request.urlopen(url + "metrics", timeout=remaining()) as response:
            return float(re.search(rf"^{name}(?:{{.*}})? (\S+)", response.read().decode(), re.M)[1])

    def test_G10_behind_2038_archive_page_metrics_and_replay_have_the_time(self):
        home = self.fresh_home(period=900, maximum=10)
        home.declare((DESCRIPTORS, DISK))
        turned, machine, url = self.turned_page(home, END_OF_32_BITS - 205 * CYCLE)
        for _ in range(CYCLES):
            turned.cycle(CYCLE)
        newest = home.archive_lines()[-1][0]
        told = wait_until(lambda: (told := api(url, "resources"))["agent"]["newestCycleAt"] >= newest and told, "the newest cycle")
        self.assertGreater(newest, END_OF_32_BITS)
        self.assertEqual({r["forecastAt"] for r in told["resources"]}, {told["agent"]["newestCycleAt"]})
        chart = api(url, f"resources/{told['resources'][0]['id']}/trend")
        self.assertGreater(max(chart["samples"]["times"]), END_OF_32_BITS)
        self.assertLess(min(chart["samples"]["times"]), END_OF_32_BITS)
        self.assertGreaterEqual(self.metric(url, "lumetra_agent_newest_cycle_timestamp_seconds"), newest)
        self.assertGreaterEqual(self.metric(url, "lumetra_forecast_timestamp_seconds"), newest)
        turned.release()
        self.terminate(machine, home)
        replayed = self.replayed(home)
        self.assertEqual(replayed["damage"], [])
        self.assertLess(replayed["from"], END_OF_32_BITS)
        self.assertGreater(replayed["to"], END_OF_32_BITS)
        self.assertGreaterEqual(replayed["cycles"], CYCLES)


if __name__ == "__main__":
    unittest.main()
