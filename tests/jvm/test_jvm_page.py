"""The page of a real agent in a real browser."""

import os
import subprocess
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import JavaTest, api, remaining  # noqa: E402
from agent_home import PROJECT, declaration  # noqa: E402

WEB = os.path.join(PROJECT, "tests", "web")


class Page(JavaTest):
    def test_a_real_agent_and_its_forecast_in_a_real_browser(self):
        home = self.fresh_home()  # below a second there is no pause between cycles
        home.declare(tuple(declaration(name, window="0.45") for name in
                           ("PercentProcessesUsed", "PercentSwapSpaceUsed", "PercentFileDescriptorsUsed")))
        machine = self.host(home)
        self.lines(machine, home, 205)
        self.terminate(machine, home)
        home.configure(period=1000)  # not beside the browser
        machine, port = self.page(home)
        url = f"http://127.0.0.1:{port}/"
        machine.until(lambda: any(r["forecastAt"] for r in api(url, "resources")["resources"]), "a forecast")
        browser = subprocess.run(["node", "--test", "realPage.mjs"], cwd=WEB, capture_output=True, text=True,
                                 timeout=remaining(), env={**os.environ, "LUMETRA_PAGE_URL": url})
        self.assertEqual(browser.returncode, 0, browser.stdout[-4000:] + browser.stderr[-2000:])
        self.assertRegex(browser.stdout, "(#|ℹ) pass [1-9]")
        self.assertRegex(browser.stdout, "(#|ℹ) skipped 0")
        self.terminate(machine, home)


if __name__ == "__main__":
    unittest.main()
