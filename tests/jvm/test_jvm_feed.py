"""What the shipped host shows is what the library knows: where the two could differ, and where the first has no door to the
second."""

import json
import os
import re
import signal
import subprocess
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import JAR, JAVAC, PROJECT, JavaTest, ask, built_once, free_port, host_command  # noqa: E402
from agent_home import DISK_SPACE, HEADING, PROCESSES, declaration, write  # noqa: E402

RESOURCES = "/api/v1/resources"
HOST_FEED = os.path.join(PROJECT, *"java/src/main/java/com/quorin/sysmgt/tavl/LumetraAgent/HostFeed.java".split("/"))
KIB = {"bytes": 1 / 1024, "KiB": 1, "MiB": 1024, "GiB": 1024 ** 2, "TiB": 1024 ** 3, "PiB": 1024 ** 4}


class FeedTest(JavaTest):
    def home_with(self, *inputs, period=1000):
        home = self.fresh_home(period=period)
        home.declare(inputs)
        return home

    def overview(self, port):
        status, _, body = ask(port, RESOURCES)
        self.assertEqual(status, 200, body)
        return json.loads(body)

    def listed(self, machine, port):
        """The first answer with resources."""
        return machine.until(lambda: self.overview(port)["resources"] and self.overview(port), "resources")


class OneKnowledge(FeedTest):
    def test_capacities_are_the_librarys_whatever_the_hosts_environment_says(self):
        home = self.home_with(DISK_SPACE)
        machine, port = self.page(home, environment=home.environment(POSIXLY_CORRECT="1", DF_BLOCK_SIZE="512"))
        shown = {r["mountpoint"]: r["capacity"] for r in self.listed(machine, port)["resources"]}
        rows = subprocess.run(["df", "-k", "--output=used,avail,target"], capture_output=True, text=True,
                              env={"PATH": os.environ["PATH"], "LC_ALL": "C"}).stdout.splitlines()[1:]
        checked = 0
        for used, available, target in (row.split(maxsplit=2) for row in rows):
            if shown.get(target) and "-" not in (used, available):
                number, unit = shown[target].split()
                self.assertAlmostEqual(float(number) * KIB[unit] / (int(used) + int(available)), 1, delta=0.2, msg=target)
                checked += 1
        self.assertGreater(checked, 0, shown)
        self.terminate(machine, home)

    def test_a_line_of_df_that_the_agent_rejects_is_left_out_with_the_reason(self):
        home = self.home_with(DISK_SPACE)
        rejected = "/dev/b 100 50 fifty 50% /b"
        home.stub_df(HEADING + f"/dev/a 100 50 50 50% /\n{rejected}\n")
        machine, port = self.page(home)
        overview = self.listed(machine, port)
        self.assertEqual([r["mountpoint"] for r in overview["resources"]], ["/"])
        self.assertEqual([left["what"] for left in overview["leftOut"]], [rejected])
        self.assertIn("cannot be read", overview["leftOut"][0]["why"])
        self.terminate(machine, home)

    def test_a_number_that_the_scratch_pad_gives_twice_is_the_one_whose_resource_the_agent_watches(self):
        home = self.home_with(DISK_SPACE)
        home.stub_df(HEADING + "/dev/a 100 50 50 50% /\n")
        record = "\nEvent: ResourceDefinition - Informational \n2   7   (LogicalDisk)   ({})   (PercentFreeSpaceUsed)   -2   \n"
        write(home.at("data", "scratch.txt"), record.format("/dev/a /") + record.format("/dev/b /b"))
        machine, port = self.page(home)
        only, = self.listed(machine, port)["resources"]
        self.assertEqual((only["id"], only["mountpoint"]), (7, "/"))
        self.terminate(machine)

    def test_samples_are_collected_until_there_are_enough_and_the_forecast_is_shown_in_the_cycle_that_makes_it(self):
        home = self.home_with(declaration("PercentProcessesUsed", window="0.5"), period=900)
        machine, port = self.page(home)
        states = {}

        def is_forecast():
            overview = self.overview(port)
            for r in overview["resources"]:
                fresh = r["forecastAt"] == overview["agent"]["newestCycleAt"] if r["samples"] >= 200 else r["forecastAt"] is None
                self.assertTrue(fresh, r)
                states[r["samples"] >= 200] = r["state"]
            return True in states

        machine.until(is_forecast, "a forecast")
        self.assertEqual(states.get(False, "collecting"), "collecting")
        self.assertNotEqual(states[True], "collecting")
        self.terminate(machine, home)

    def test_every_cycle_is_counted_the_last_one_too(self):
        home = self.home_with(PROCESSES)
        machine = self.host(home)
        self.lines(machine, home, 5)
        self.terminate(machine, home)
        told = re.search(r"The agent has stopped after (\d+) cycles\.", machine.output())
        self.assertEqual(int(told.group(1)), len(home.archive_lines()))

    def test_nobody_has_the_disks_listed_but_the_agent_which_needs_no_inodes_here(self):
        home = self.home_with(DISK_SPACE)
        home.stub_df(HEADING + "/dev/a 100 50 50 50% /\n", before='echo "$*" >> ../calls')
        machine, port = self.page(home)
        self.lines(machine, home, 3)
        self.listed(machine, port)
        machine.signal(signal.SIGTERM)
        self.assertEqual(machine.end(), 0, machine.output())
        with open(home.at("calls"), encoding="ascii") as file:
            calls = file.read().splitlines()
        self.assertEqual(set(calls), {""})


class NoDoor(FeedTest):
    def other_host(self):
        """The host with a door of another version before the shipped one."""
        with open(HOST_FEED, encoding="utf-8") as file:
            source = file.read()
        self.assertIn("VERSION = 5;", source)

        def build(directory):
            write(os.path.join(directory, "HostFeed.java"), source.replace("VERSION = 5;", "VERSION = 6;"))
            subprocess.run([*JAVAC, "-cp", JAR, "-d", directory, os.path.join(directory, "HostFeed.java")], check=True)

        return built_once("HostFeed5", [HOST_FEED], build)

    def test_a_host_of_another_version_runs_the_agent_without_page_and_ends_it_in_order(self):
        home = self.home_with(PROCESSES)
        port = free_port()
        classes = self.other_host() + ":" + JAR
        command = host_command(home, self.library, port=port, program=("-cp", classes, "com.quorin.sysmgt.tavl.LumetraAgent.host.Lumetra"))
        machine = self.start(home, command)
        self.assertEqual(machine.expect("There is no page"),
                         "There is no page and no report on the agent's work: the native library has version 5 of its interface "
                         "for the host, and this program is made for version 6.")
        self.lines(machine, home, 3)
        with self.assertRaises(ConnectionRefusedError):
            ask(port, "/")
        self.terminate(machine, home)
        self.assertIn("The agent has stopped.", machine.lines)


if __name__ == "__main__":
    unittest.main()
