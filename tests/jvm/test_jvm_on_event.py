"""The shipped host tells a program: of a disk that fills to its end, of failures, and what it tells when the program does not
do its part."""

import json
import os
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import JavaTest, ask, wait_until  # noqa: E402
from agent_home import FEW, Home, needs_mounts, read, write  # noqa: E402
from test_jvm_forecast import CYCLE, PERIOD, PORTION, ForecastTest as Forecast, disks, fill  # noqa: E402
from turned_agent import TurnedAgent  # noqa: E402

# Takes nothing but a file for each run: the line that it reads, and a variable a line.
RECORDER = """#!/bin/sh
cd '{directory}' || exit 9
read -r line
printf '%s\\n' "$line" >"$$.json"
printf '%s\\n' "$LUMETRA_EVENT" "$LUMETRA_OUTCOME" "$LUMETRA_TEXT" "$LUMETRA_PAGE" "$LUMETRA_SECONDS_TO_EXHAUSTION" >"$$.part"
mv "$$.part" "$$.env"
echo "$$" >>order
"""

FAILURE = "Call To RawDataRetrievalAndArchive Failed"


def program(home, script, name="program"):
    """An executable file of the home's."""
    path = home.at(name)
    write(path, script)
    os.chmod(path, 0o755)
    return path


def recorder(home):
    directory = home.at("told")
    os.mkdir(directory)
    return program(home, RECORDER.format(directory=directory))


def told(home):
    """What the recorder was told so far: of each run the members of the line and the variables."""
    try:
        runs = read(home.at("told", "order")).split("\n")[:-1]
    except FileNotFoundError:
        return []
    return [(json.loads(read(home.at("told", run + ".json"))), read(home.at("told", run + ".env")).split("\n")[:-1])
            for run in runs]


class Told(JavaTest):
    disk = Forecast.disk

    @needs_mounts
    def test_a_disk_that_fills_is_told_once_and_its_end_and_its_limit(self):
        home = self.fresh_home(period=PERIOD)
        home.declare((disks(2000),))
        path, instance = self.disk(home)
        turned = TurnedAgent(home, path)
        self.addCleanup(turned.close)
        machine, port = self.page(home, "--on-event", recorder(home), environment=turned.environment())

        def cycle():
            turned.cycle(CYCLE, lambda: fill(path, PORTION))
            return told(home)

        while not (first := cycle()):
            pass
        ((line, variables),) = first
        self.assertEqual((line["type"], line["resource"], line["instance"]), ("exhaustion", "PercentFreeSpaceUsed", instance))
        self.assertEqual(line["trackRecord"], "announced for the first time here")
        self.assertEqual(line["host"], read("/proc/sys/kernel/hostname").strip())
        self.assertRegex(line["page"], rf"^http://127\.0\.0\.1:{port}/#/resource/\d+$")
        self.assertRegex(line["text"], rf"^{line['host']}: PercentFreeSpaceUsed \[small [^\]]*\] will be exhausted in \d+ min$")
        self.assertEqual(variables, ["exhaustion", "", line["text"], line["page"], str(round(line["secondsToExhaustion"]))])
        while os.statvfs(path).f_bfree:
            cycle()
        while len(told(home)) < 3:
            cycle()
        self.assertEqual([(line["type"], line["outcome"]) for line, _ in told(home)],
                         [("exhaustion", None), ("ended", "reached"), ("upperTolerance", None)])
        self.assertEqual(told(home)[1][1][:2], ["ended", "reached"])
        self.assertIn("announced once", told(home)[1][0]["trackRecord"])
        for _ in range(5):
            turned.cycle(CYCLE)
        turned.release()
        self.terminate(machine, home)
        self.assertEqual(len(told(home)), 3, told(home)[3:])
        self.assertGreater(read(home.at("log", "events.jsonl")).count('"exhaustion"'), 5, "events of the same episode")

    def small_home(self):
        home = Home(inputs=FEW, period=100)
        self.addCleanup(home.remove)
        return home

    @staticmethod
    def messages(home):
        return [line["message"] for line, _ in told(home)]

    @staticmethod
    def failures(machine):
        return sum("  FATAL     " in line for line in machine.lines)

    def test_a_failure_that_lasts_is_told_once_and_told_again_when_it_comes_back(self):
        home = self.small_home()
        machine, port = self.page(home, "--on-event", recorder(home))

        def cycles():
            return json.loads(ask(port, "/api/v1/resources")[2])["agent"]["cycles"]

        self.lines(machine, home, 2)
        for count in (1, 2):
            self.spoil(home)
            machine.until(lambda: self.messages(home).count(FAILURE) == count, "the failure")
            failures = self.failures(machine)
            machine.until(lambda: self.failures(machine) > failures + 20, "further failures")
            os.remove(home.layout.archive)
            self.more_lines(machine, home, 1)
            for _ in range(3):  # the page is the last that a cycle comes to: who tells has seen that it is over
                seen = cycles()
                machine.until(lambda seen=seen: cycles() > seen, "a newer cycle")
        self.terminate(machine)
        self.assertEqual(self.messages(home).count(FAILURE), 2, self.messages(home))

    def test_a_failure_at_the_end_is_told_before_the_host_ends(self):
        home = self.small_home()
        os.remove(home.at("config", "AutoConfig.ini"))
        machine = self.host(home, "--on-event", recorder(home))
        self.assertEqual(machine.end(), 1, machine.output())
        ((line, _),) = told(home)
        self.assertIn("Cannot open ../config/AutoConfig.ini file.", line["message"])

    def test_a_program_that_hangs_holds_up_neither_samples_nor_page_nor_the_end(self):
        home = self.small_home()
        hangs = program(home, f"#!/bin/sh\necho $$ >'{home.at('own')}'\nexec sleep 100000\n")
        machine, port = self.page(home, "--on-event", hangs)
        self.lines(machine, home, 2)
        self.spoil(home)
        pid = int(machine.until(lambda: os.path.exists(home.at("own")) and read(home.at("own")), "the program"))
        os.remove(home.layout.archive)
        self.more_lines(machine, home, 10)
        self.terminate(machine)
        self.assertIn(f"{hangs} is ended with the agent, in the middle of: ", machine.output())
        wait_until(lambda: read(f"/proc/{pid}/stat").split()[2:3] in ([], ["Z"]), "its end")

    def test_what_the_program_says_and_its_status_stand_in_the_output(self):
        home = self.small_home()
        machine = self.host(home, "--on-event", program(home, "#!/bin/sh\nprintf 'no \\033[31mhost\\n' >&2\nexit 5\n"))
        self.lines(machine, home, 1)
        self.spoil(home)
        self.assertEqual(machine.expect("on-event: "), "on-event: no \\x1b[31mhost")
        self.assertEqual(machine.expect(home.path), f"{home.at('program')} has ended with status 5, told of: "
                         + FAILURE)
        self.terminate(machine)

    def test_a_program_that_is_none_is_a_wrong_command_line(self):
        home = self.small_home()
        machine = self.host(home, "--on-event", home.at("missing"))
        self.assertEqual(machine.end(), 2)
        self.assertIn("--on-event", machine.output())


if __name__ == "__main__":
    unittest.main()
