"""Odd machines and long runs: kernel files, clock, locale, configurations and declarations of every kind, 10,000 cycles."""

import os
import random
import re
import shutil
import subprocess
import tempfile
import time
import unittest

from agent_home import (DESCRIPTORS, DISK_SPACE, FEW, HEADING, MS_BIND, PROCESSES, SWAP, AgentTest, Running, declaration,
                        declarations_text, is_sanitized, mount, needs_mounts, needs_tool, often, read, umount, write)

PARSE_FAILED = "Call To validateResourceText Failed"
HOME_MISSING = "Premature EOF Trying To Read Data Home Directory"


class MachineTest(AgentTest):
    def replace_kernel_file(self, path, text):
        """Binds a file with this text over a kernel file until undone."""
        directory = tempfile.mkdtemp(prefix="lumetra-kernel-")
        self.addCleanup(shutil.rmtree, directory, ignore_errors=True)
        write(os.path.join(directory, "file"), text)
        mount(os.path.join(directory, "file"), path, "", MS_BIND)
        self.addCleanup(umount, path)


class F_KernelFiles(MachineTest):
    @needs_mounts
    def test_F1_a_descriptor_maximum_of_63_bits_gives_0_per_cent_and_is_not_unreadable(self):
        self.replace_kernel_file("/proc/sys/fs/file-nr", "1024\t0\t9223372036854775807\n")
        home = self.home(inputs=(DESCRIPTORS,))
        self.run_agent(home, "--cycles", 2)
        self.assertEqual(set(self.values_of(home, 1)), {"0.00"})
        self.assertIn("UpperLimitCalc 9223372036854775807.000000\n".replace("807.", "808."), read(home.layout.declarations))

    @needs_mounts
    def test_the_share_of_descriptors_is_taken_of_the_maximum(self):
        self.replace_kernel_file("/proc/sys/fs/file-nr", "1024 100 8192\n")
        home = self.home(inputs=(DESCRIPTORS, declaration("PercentFileDescriptorsUsed", "own", limit=50.9)))
        self.run_agent(home, "--cycles", 1)
        self.assertEqual(home.archive_lines()[0][1], {1: "11.28", 2: "1848.00"})

    @needs_mounts
    def test_swap_in_use_is_taken_of_the_total(self):
        self.replace_kernel_file("/proc/meminfo", "MemTotal: 2000000 kB\nSwapTotal: 8000 kB\nSwapFree: 6000 kB\n")
        home = self.home(inputs=(SWAP,))
        self.run_agent(home, "--cycles", 1)
        self.assertEqual(home.archive_lines()[0][1], {1: "25.00"})

    @needs_mounts
    def test_F2_damaged_kernel_files_keep_the_value_as_it_was(self):
        damaged = {
            "/proc/loadavg": ("", "0.00 0.00 0.00 2 86 1\n", "0.00 0.00 0.00 2/", "x" * 2**20),
            "/proc/meminfo": ("", "MemTotal: 1 kB\n", "SwapTotal: 0 kB\nSwapFree: 0 kB\n", "SwapTotal: 100 kB\n",
                              "y" * 2**20, "SwapTotal:" + " " * 2**20),
            "/proc/sys/fs/file-nr": ("", "1", "a b c\n", "0 0 0\n", "\0" * 100),
        }
        good = {
            "/proc/loadavg": ("0.00 0.00 0.00 2/86 1\n", PROCESSES),
            "/proc/meminfo": ("MemTotal: 2000000 kB\nSwapTotal: 8000 kB\nSwapFree: 6000 kB\n", SWAP),
            "/proc/sys/fs/file-nr": ("1024 100 8192\n", DESCRIPTORS),
        }
        for path, texts in damaged.items():
            text, resource = good[path]
            with self.subTest(path=path):
                home = self.home(inputs=(resource,))
                self.replace_kernel_file(path, text)
                agent = self.running(home)
                agent.grows()
                for bad in texts:
                    self.replace_kernel_file(path, bad)
                    agent.grows(2)
                self.end(agent)
                self.assertEqual(len(set(self.values_of(home, 1))), 1)
                self.assertNotIn("0.00", self.values_of(home, 1))
            self.doCleanups()


class F4_Clock(MachineTest):
    def test_F4_a_clock_that_jumps_a_day_in_the_sleep_leaves_the_period_as_it_is(self):
        for day in (-86400, 86400):
            home = self.home(period=5000)
            agent = self.running(home, clock="held")
            for sleep in range(1, 4):
                agent.until(lambda sleep=sleep: agent.output().count("sleep\t5\n") == sleep, f"sleep {sleep}")
                if sleep == 2:
                    agent.jump(day)
                if sleep < 3:
                    agent.turn(5)
            result = self.end(agent, clock_jumped=True)
            self.assertEqual(result.sleeps, [5, 5, 5], "the jump ended no sleep")
            stamps = [stamp for stamp, _ in home.archive_lines()]
            self.assertEqual([after - before for before, after in zip(stamps, stamps[1:])], [5, day + 5])


class SummerTime(MachineTest):
    ZONE = "CET-1CEST,M3.5.0,M10.5.0/3"  # as in Berlin; a machine without the table of zones knows it, too
    PERIOD = 600
    CHANGES = ((1774746000, 3600, 7200), (1792890000, 7200, 3600))  # 2026: when, and the offsets before and after it

    def test_neither_hour_of_change_is_a_step_of_the_clock_and_all_times_are_shown_as_they_are(self):
        for change, before, after in self.CHANGES:
            home = self.home(period=self.PERIOD * 1000)
            result = self.run_agent(home, "--cycles", 14, "--time", change - 7 * self.PERIOD + 7,
                                    environment=home.environment(TZ=self.ZONE))
            stamps = [stamp for stamp, _ in home.archive_lines()]
            self.assertEqual({later - earlier for earlier, later in zip(stamps, stamps[1:])}, {self.PERIOD})
            self.assertLess(stamps[0], change - 3600)
            self.assertGreater(stamps[-1], change + 3600)
            self.assertEqual(result.fatal(), [])
            log = home.log()
            self.assertNotIn("The clock has stepped", log)
            shown = [(stamp, time.asctime(time.gmtime(stamp + (before if stamp < change else after)))) for stamp in stamps]
            self.assertEqual(re.findall(r"TimeStamp = (\d+) = (.*)", log), [(str(stamp), text) for stamp, text in shown])
            self.assertTrue(read(home.layout.declarations).startswith(f"/** Updated on {shown[-1][1]}\n"))


class G10_Clock(MachineTest):
    STEPS = (-3600, 86400, 2**31)
    HORIZON = 3600  # seconds, and a window of a tenth of it

    def filling_home(self):
        """A home whose one disk fills, so that an exhaustion is in sight from the first forecast on."""
        home = self.home(inputs=(DISK_SPACE,), period=1000)
        home.stub_df("")
        home.stub_script("#!/bin/sh\n{ read n <../listings; } 2>/dev/null || n=0; echo $((n + 1)) >../listings\n"
                         f"printf '%s' '{HEADING}'\n"
                         "echo \"/dev/a 1000000 $((100000 + n * 137)) $((900000 - n * 137)) 10% /\"\n")
        return home

    def forecasts(self, log):
        """Of each cycle, whether an exhaustion was in sight, from the onset on."""
        return re.findall(r"prediction (is TRUE|if FALSE)|(No exhaustion imminent)", log.partition("Onset of exhaustion")[2])

    def test_G10_a_clock_that_is_set_in_mid_run_costs_no_forecast_and_the_log_says_it_once(self):
        home = self.filling_home()
        agent = self.running(home)
        agent.until(lambda: "Onset of exhaustion" in home.log(), "a forecast")
        before = home.snapshot()
        for number, step in enumerate(self.STEPS, 1):
            agent.jump(step)
            agent.until(lambda number=number: home.log().count("The clock has stepped by ") == number, f"step {step}")
            agent.grows(15)
        self.end(agent, before=before, clock_jumped=True)
        log = home.log()
        told = [int(step) for step in re.findall(r"The clock has stepped by ([+-]\d+) seconds", log)]
        self.assertEqual(len(told), len(self.STEPS))
        for step, wanted in zip(told, self.STEPS):
            self.assertLessEqual(abs(step - wanted), 1)
        self.assertGreater(len(self.forecasts(log)), 45)
        self.assertEqual(set(self.forecasts(log)), {("is TRUE", "")})
        self.assertGreater(home.archive_lines()[-1][0], 2**31)

    def test_G10_an_archive_that_ends_ahead_of_the_clock_costs_no_forecast_and_the_log_says_it_once(self):
        home = self.filling_home()
        self.run_agent(home, "--cycles", 260)
        newest = home.archive_lines()[-1][0]
        for ahead in (3600, 86400):
            copy = self.home(inputs=(DISK_SPACE,), period=1000)
            shutil.copytree(home.path, copy.path, dirs_exist_ok=True)
            self.run_agent(copy, "--cycles", 3, "--resume", "--time", newest - ahead, clock_jumped=True)
            log = copy.log()
            self.assertEqual(len(re.findall(r"ends \d+ seconds ahead of the clock", log)), 1)
            self.assertIn("Resumed with 260 samples of 1 resources", log)
            self.assertIn("261/360 points", log)
            self.assertIn("Onset of exhaustion", log, "the first cycle has a forecast")
            self.assertEqual(set(self.forecasts(log)), {("is TRUE", "")})
            self.assertEqual(len(copy.archive_lines()), 263)


class F5_Locale(MachineTest):
    @needs_tool("localedef")
    def test_F5_under_a_decimal_comma_every_file_has_points_and_reads_back(self):
        home = self.home(inputs=(PROCESSES, DESCRIPTORS, declaration("PercentSwapSpaceUsed", limit=0.5), DISK_SPACE))
        home.stub_df(HEADING + "/dev/a 1000 333 667 34% /\n")
        locales = os.environ.get("LOCPATH", "")
        if not os.path.isdir(os.path.join(locales, "de_DE.UTF-8")):
            locales = home.at("locales")
            os.mkdir(locales)
            made = subprocess.run(["localedef", "-i", "de_DE", "-f", "UTF-8", os.path.join(locales, "de_DE.UTF-8")],
                                  capture_output=True, text=True)
            if made.returncode != 0:
                self.skipTest("localedef cannot make de_DE: " + made.stderr[-200:])
        environment = home.environment(LOCPATH=os.path.abspath(locales))
        for _ in range(2):
            result = self.run_agent(home, "--cycles", 3, "--locale", "de_DE.UTF-8", environment=environment)
            self.assertIn("agent locale(LC_ALL)=de_DE.UTF-8\n", result.output)
            for path in home.layout.files().values():
                self.assertNotRegex(read(path), r"\d,\d")
            self.assertIn("UpperLimitAbs 0.500000\n", read(home.layout.declarations))
            self.assertEqual(set(self.values_of(home, home.number_of("/"))), {"33.30"})
            self.assertNotRegex(home.log(), r"WindowSize = \d+,|minwindowsize = \d+,")


class F6_Configurations(MachineTest):
    def run_with(self, text, cycles=2):
        home = self.home()
        home.write_config(text)
        agent = Running(home, "--cycles", cycles)
        result = agent.finish()
        self.assertEqual(result.status, 0, result.output[-500:])
        self.assertEqual(result.ended, [0])
        return home, result

    def words(self, **changed):
        words = {"home": "../data/", "archive": "archive.txt", "scratch": "../data/scratch.txt", "analysis": "../log/a.log",
                 "resources": "../config/resources.txt", "period": "100", "minimum": "0", "maximum": "1", "megabytes": "50",
                 "tagging": "0", "grace": "0"}
        words.update(changed)
        return "\n".join(words.values()) + "\n"

    def test_an_empty_file_a_directory_and_a_fifo_end_with_the_fixed_text(self):
        _, result = self.run_with("")
        self.assertEqual(result.fatal(), [HOME_MISSING])
        _, result = self.run_with(" \n\t \n")
        self.assertEqual(result.fatal(), [HOME_MISSING])
        home = self.home()
        os.mkdir(home.at("config", "directory"))
        os.mkfifo(home.at("config", "fifo"))
        for name in ("directory", "fifo"):
            result = Running(home, "--config", "../config/" + name, "--cycles", 2).finish()
            self.assert_ended_well(result)
            self.assertIn(result.fatal(), ([HOME_MISSING], [f"Cannot open ../config/{name} file. Use Configure Wizard."]))

    @unittest.skipUnless(os.getuid() == 0, "only root may become another user")
    def test_a_file_without_permission_cannot_be_opened(self):
        home = self.home()
        os.chmod(home.at("config", "AutoConfig.ini"), 0)
        subprocess.run(["chown", "-R", "65534", home.path], check=True)
        os.chown(home.at("config", "AutoConfig.ini"), 0, 0)

        def become_nobody():
            os.setgroups([])
            os.setgid(65534)
            os.setuid(65534)

        result = Running(home, preexec=become_nobody).finish()
        self.assert_ended_well(result)
        self.assertEqual(result.fatal(), ["Cannot open ../config/AutoConfig.ini file. Use Configure Wizard."])

    def test_numbers_of_every_kind_end_in_order(self):
        kinds = ("0", "-1", "-2147483648", "2147483647", "99999999999999999999", "-99999999999999999999", "1e9", "0x10",
                 "nan", "--5", "+7", "%n")
        for item in ("minimum", "maximum", "megabytes", "period", "tagging", "grace"):
            for kind in kinds:
                if item == "period" and kind not in ("0", "-1", "-2147483648", "1e9", "%n"):
                    continue  # a long period is a test of its own
                with self.subTest(item=item, kind=kind):
                    self.run_with(self.words(**{item: kind}))

    def test_a_period_of_weeks_is_ended_by_a_stop_in_the_sleep(self):
        for period in ("2147483647", "99999999999999999999"):
            home, _ = self.run_with(self.words(period=period), cycles=1)
            self.assertEqual(len(home.archive_lines()), 1)
            home = self.home()
            home.write_config(self.words(period=period))
            agent = self.running(home, clock="held")
            agent.until(lambda: "sleep\t2147483\n" in agent.output(), "a sleep of weeks")
            self.end(agent)
            self.assertEqual(len(home.archive_lines()), 1)

    def test_windows_that_no_memory_holds_are_told_and_the_samples_are_archived(self):
        home, result = self.run_with(self.words(period="1", maximum="2147483647"))
        self.assertIn("Call To allocatecircularbuffers Failed", result.fatal())
        self.assertIn("Fatal error in malloc circular buffer\n", home.log())
        self.assertGreater(len(home.archive_lines()), 0)

    def test_long_and_binary_words_end_in_order(self):
        for word in ("x" * 2**20, "x" * 255, "x" * 256, "x" * 5000, "\xff\xfe\x80", "%n%s%n%s", "/", "//", "a\0b"):
            for item in ("home", "archive", "scratch", "analysis", "resources"):
                with self.subTest(item=item, word=word[:20]):
                    self.run_with(self.words(**{item: word}))
        self.run_with(os.urandom(100000))
        self.run_with("\0" * 5000)

    def test_special_files_in_the_place_of_each_file_hold_nobody_up(self):
        for item in ("archive", "scratch", "resources"):
            for kind in ("fifo", "directory", "/dev/null", "/dev/full", "loop"):
                with self.subTest(item=item, kind=kind):
                    home = self.home()
                    path = home.at("data", "special")
                    if kind == "fifo":
                        os.mkfifo(path)
                    elif kind == "directory":
                        os.mkdir(path)
                    else:
                        os.symlink(kind if kind != "loop" else path, path)
                    home.write_config(self.words(**{item: "special" if item == "archive" else "../data/special"}))
                    result = Running(home, "--cycles", 2).finish()
                    self.assert_ended_well(result)
                    if item == "resources":
                        self.assertEqual(result.fatal(), [PARSE_FAILED])


class F7_Declarations(MachineTest):
    GOOD = declarations_text(FEW)

    def refused(self, text, line=None):
        home = self.home()
        write(home.layout.declarations, text)
        before = home.snapshot()
        result = self.run_agent(home, before=before)
        self.assertEqual(result.fatal(), [PARSE_FAILED])
        self.assertIn("validateResourceText failed...exiting\n", home.log())
        self.assertIn("Ending prediction. timeOfDay=", home.log())
        self.assertEqual(home.snapshot()["declarations"], before["declarations"], "never rewritten after a failed parse")
        if line:
            self.assertIn(line, home.log())

    def test_what_cannot_be_parsed_is_told_with_the_fixed_text_and_stays_as_it_is(self):
        name = "../config/resources.txt"
        begin = self.GOOD.index("BeginResourceInput")
        self.refused("", f"\n\nStr 'BeginResourceDeclaration' not found res.txt {name}.\n\n")
        self.refused("BeginResourceDeclaration\n", f"\n\nThe string 'FindObject' not found in resource text {name}.\n")
        self.refused("/* never closed " + self.GOOD)
        self.refused(self.GOOD.replace("FindObject (", "FindObject ", 1).replace(")", ""),
                     f"\n\nArgument post 'FindObject' not found resource.txt {name}.\n\n")
        self.refused(self.GOOD[:begin] + "\xff" * 100)
        self.refused(self.GOOD.replace("PercentProcessesUsed)", "Percent\xffProcessesUsed)", 1))
        self.refused("\0" * 4096)
        for keyword, line in (("FindInstance", "Error parsing for 'FindInstance' in resource text"),
                              ("FindCounter", "Error parsing for 'FindCounter' in resource test"),
                              ("WindowSize", "Error parsing for 'WindowSize' in resource text"),
                              ("NameIs", "Error parsing for 'NameIs' in resource text"),
                              ("AnalyticalMethod", "Failure parsing for 'AnalyticalMethod' in resource text"),
                              ("UpperLimitAbs", "Failure parsing for 'UpperLimitAbs' in resource text"),
                              ("CulpritMarker", "Error parsing for 'CulpritMarker' in resource text")):
            self.refused(self.GOOD.replace(keyword, "Missing"), line)
        self.refused(declarations_text([DISK_SPACE]).replace("EndResourceInput", "Missing"),
                     "Failure parsing for 'EndResourceInput' in resource.txt")

    def test_ten_megabytes_are_refused(self):
        self.refused("word " * 2**21)
        self.refused("BeginResourceDeclaration FindObject (" + "x" * 10 * 2**20)

    def test_a_missing_file_is_told(self):
        home = self.home()
        os.unlink(home.layout.declarations)
        result = self.run_agent(home)
        self.assertEqual(result.fatal(), [PARSE_FAILED])
        self.assertIn("Error opening Resource text file ../config/resources.txt\n", home.log())
        self.assertFalse(os.path.exists(home.layout.declarations))

    def test_long_arguments_are_bounded_and_end_nothing(self):
        home = self.home(inputs=(declaration("PercentFileDescriptorsUsed", "i" * 5000, "c" * 500, "n" * 5000, marker="%n" * 900),))
        Running(home, "--cycles", 2).finish()
        self.assert_ended_well(Running(home, "--cycles", 2).finish())

    def test_per_cent_signs_in_the_declarations_are_text(self):
        home = self.home(inputs=(declaration("PercentFileDescriptorsUsed", "%n%s", "%d%n", "100% of %n", marker="%s"),))
        self.run_agent(home, "--cycles", 2)
        self.assertIn("\tNameIs (100% of %n)\n", read(home.layout.declarations))

    def test_a_process_declaration_has_a_template_and_no_instances(self):
        home = self.home(inputs=FEW + (declaration("Process", "java", "PercentProcessorTime"),))
        self.run_agent(home, "--cycles", 2)
        self.assertEqual(set(home.archive_lines()[0][1]), {1, 2})
        self.run_agent(home, "--cycles", 1)

    def test_a_rewritten_file_parses_back_and_is_rewritten_alike(self):
        home = self.home(inputs=FEW + (DISK_SPACE, declaration("PercentSwapSpaceUsed", "a b\nc", "x y", limit=12.5)))
        home.stub_df(HEADING + "/dev/a 1000 333 667 34% /\n")
        self.run_agent(home, "--cycles", 2)
        first = read(home.layout.declarations)
        self.run_agent(home, "--cycles", 2)
        self.assertEqual(read(home.layout.declarations).partition("**/")[2], first.partition("**/")[2])
        self.assertTrue(first.startswith("/** Updated on "))
        self.assertEqual(first.split("\n")[1], " **/")


class F8_Garbage(MachineTest):
    RECORD = "\nEvent: ResourceDefinition - Informational \n"

    def home_with_a_past(self):
        home = self.home(inputs=FEW + (DISK_SPACE,))
        home.stub_df(HEADING + "/dev/a 1000 330 670 33% /\n")
        self.run_agent(home, "--cycles", 3, "--time", 2000000000)
        return home

    def garbage(self, chance, whole):
        """What may stand in a file, beside what the agent wrote."""
        flipped = bytearray(whole)
        for _ in range(20):
            flipped[chance.randrange(len(flipped))] ^= 1 << chance.randrange(8)
        return (chance.randbytes(5000), b"\0" * 5000, b"9" * 5000, b"\n" * 5000, b"1 0 " * 1000, bytes(flipped),
                self.RECORD.encode() * 200, self.RECORD.encode() + b"2   7   (" + b"x" * 5000, b"nan inf -1e999 0x1p9 \n" * 100)

    def test_F8_garbage_in_every_file_of_a_home_gives_no_wrong_number(self):
        chance = random.Random(8)
        model = self.home_with_a_past()
        numbers = model.numbers()
        for name, path in model.layout.files().items():
            if name == "declarations":
                continue  # which a start refuses as a whole
            whole = model.snapshot()[name]
            for text in self.garbage(chance, whole):
                with self.subTest(file=name, text=text[:20]):
                    write(path, whole + text + b"\n")
                    result = Running(model, "--cycles", 2, "--resume", "--time", 2000000100).finish()
                    self.assert_ended_well(result)
                    self.assertEqual(result.fatal(), [])
                    if name == "archive" or text.count(b"Resource") == 0:
                        self.assertEqual({key: model.numbers().get(key) for key in numbers}, numbers)
                    newest = read(path=model.layout.archive).splitlines()[-1].split()[1:]
                    values = dict(zip(map(int, newest[::3]), newest[2::3]))
                    self.assertEqual(len(values), 3)
                    self.assertIn("33.00", values.values())
                    if name == "archive":
                        self.assertEqual(values[numbers[("LogicalDisk", "/dev/a /", "PercentFreeSpaceUsed", -2)]], "33.00")
                write(path, whole)


class B5_LongRuns(MachineTest):
    def test_B5_many_cycles_leave_descriptors_threads_memory_and_references_flat(self):
        at = "/dev/shm" if os.access("/dev/shm", os.W_OK) else "/tmp"
        home = self.home(inputs=FEW, period=100, megabytes=1, at=at)
        cycles = often(1000, 10000)
        result = self.run_agent(home, "--cycles", cycles, "--levels", trimmed=True)
        self.assert_flat(result)
        self.assertEqual(len(home.archive_lines()), cycles)

    def test_B5_cycles_with_disks_leave_everything_flat(self):
        at = "/dev/shm" if os.access("/dev/shm", os.W_OK) else "/tmp"
        home = self.home(inputs=FEW + (DISK_SPACE,), period=100, at=at)
        home.stub_df(HEADING + "/dev/a 100 50 50 50% /\n")
        # By half of them every model has been fitted once and its work arrays are there.
        self.assert_flat(self.run_agent(home, "--cycles", often(500, 1200), "--levels"))

    def assert_flat(self, result):
        self.assertEqual(len(result.levels), 10)
        half = result.levels[len(result.levels) // 2]
        last = result.levels[-1]
        self.assertEqual(last[1:3], half[1:3], result.levels)
        if not is_sanitized():  # a sanitizer keeps freed memory for a while
            self.assertLessEqual(last[3], half[3] + 300, f"resident kB: {result.levels}")
        self.assertEqual(result.references[0][:2], (0, 0))


if __name__ == "__main__":
    unittest.main()
