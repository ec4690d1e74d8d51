"""The native entry from outside: arguments, configuration items, periods, stop requests, a second run, Java's refusals."""

import os
import time
import unittest

from agent_home import ALL, DISK_SPACE, FEW, HEADING, AgentTest, Running, often, read, write

WORDS = ["../data/", "archive.txt", "../data/scratch.txt", "../log/analysis.log", "../config/resources.txt", "100", "0", "1",
         "50"]
CONFIG = "../config/AutoConfig.ini"


class Arguments(AgentTest):
    def test_argument_count_other_than_two_is_reported_and_the_agent_still_starts(self):
        for count in (0, 1, 3, -1):
            home = self.home()
            result = self.run_agent(home, "--args", count, "--cycles", 2, "--program", "Lumetra")
            self.assertEqual(result.fatal(), ["Improper Arguments"])
            self.assertIn("\n\nusage: Lumetra \t ..\\data\\AutoConfig.ini \n\n", result.output)
            self.assertIn("\n\nusage: Lumetra \t ..\\data\\AutoConfig.ini \n\n", home.log())
            self.assertEqual(len(home.archive_lines()), 2)

    def test_a_fatal_event_carries_type_text_zero_Null_and_no_culprit(self):
        result = self.run_agent(self.home(), "--args", 1, "--cycles", 1)
        self.assertEqual(result.events, [("fatal", "Improper Arguments", "0", "Null", "(null)")])

    def test_missing_configuration_file_gives_one_fatal_event_and_result_0(self):
        home = self.home()
        result = self.run_agent(home, "--config", "../config/none.ini")
        text = "Cannot open ../config/none.ini file. Use Configure Wizard."
        self.assertEqual(result.fatal(), [text])
        self.assertEqual(result.ended, [0])
        self.assertIn(f"\n{text}\n\n", home.log())
        self.assertTrue(home.log().endswith("Obrinagent main(): before return;\n"))

    def test_characters_that_java_did_not_copy_are_not_released(self):
        self.run_agent(self.home(), "--cycles", 1, "--no-copy")

    def test_absent_texts_do_not_end_the_process(self):
        result = self.run_agent(self.home(), "--null-texts")
        self.assertEqual(result.fatal(), ["Cannot open  file. Use Configure Wizard."])

    def test_a_path_of_any_length_and_per_cent_signs_is_told_as_it_is(self):
        for path in ("x" * 5000, "%n%n%s%s%d", "/tmp/" + "d/" * 2500):
            result = self.run_agent(self.home(), "--config", path)
            self.assertEqual(result.fatal(), [f"Cannot open {path} file. Use Configure Wizard."])

    def test_start_says_so_and_waits_a_second(self):
        home = self.home()
        result = self.run_agent(home, "--cycles", 1)
        self.assertIn("libObrinagent.so starting. Log file is open!\n", result.output)
        self.assertIn("agent locale(LC_ALL)=C\n", result.output)
        self.assertTrue(home.log().startswith("libObrinagent.so starting. Log file is open!\n"))
        self.assertEqual(result.pauses, [1])


class Configuration(AgentTest):
    PREMATURE = {
        0: "Premature EOF Trying To Read Data Home Directory",
        1: "Premature EOF Trying To Read Data File Name",
        2: "Premature EOF Trying To Read Scratchpad File Name",
        4: "Premature EOF Trying To Read Resource File Name",
        5: "Premature EOF Trying To Read Milliseconds Per Sample Parameter",
        6: "Premature EOF Trying To Read MinForecastHours Parameter",
        7: "Premature EOF Trying To Read MaxForecastHours Parameter",
        8: "Premature EOF Trying To Read maxfilesizeinMB Parameter",
    }
    ENDED = f"\n\nEOF has been prematurely reached in file {CONFIG}.\n\n"

    def run_with(self, words, *options):
        home = self.home()
        home.write_config("\n".join(words) + "\n")
        before = home.snapshot()
        return home, self.run_agent(home, *options, before=before)

    def test_each_premature_end_is_told_with_its_text_and_ends_the_run_in_order(self):
        for count, text in self.PREMATURE.items():
            with self.subTest(items=count):
                home, result = self.run_with(WORDS[:count])
                self.assertEqual(result.fatal(), [text])
                self.assertEqual(home.log().count(self.ENDED), 1)
                self.assertIn("Ending prediction. timeOfDay=", home.log())
                self.assertEqual(result.ended, [0])
                self.assertFalse(os.path.exists(home.layout.archive))

    def test_an_end_after_item_3_is_logged_and_sends_no_event(self):
        home, result = self.run_with(WORDS[:3])
        self.assertEqual(result.events, [])
        self.assertIn(self.ENDED, home.log())

    def test_nine_items_start_with_pool_tagging_off_and_no_grace_period(self):
        home, result = self.run_with(WORDS, "--cycles", 1)
        self.assertEqual(result.events, [])
        for name in ("enablepooltaggingflag", "grace_period"):
            self.assertIn(f"\n\nEOF has been prematurely reached in file {CONFIG} reading {name}.\n\n", home.log())
        self.assertIn("enablepooltaggingflag = 0\n", home.log())
        self.assertIn("Grace period = 0 hours\n", home.log())

    def test_items_10_and_11_are_logged(self):
        home, _ = self.run_with(WORDS + ["7", "12"], "--cycles", 1)
        self.assertIn("enablepooltaggingflag = 7\nGrace period = 12 hours\n", home.log())

    def test_a_word_that_is_no_number_stays_and_leaves_all_later_numbers_at_0(self):
        home, result = self.run_with(WORDS[:5] + ["often"] + WORDS[6:] + ["7", "12"], "--cycles", 2)
        self.assertIn("enablepooltaggingflag = 0\nGrace period = 0 hours\n", home.log())
        self.assertEqual(result.ended, [0])

    def test_a_home_directory_without_separator_is_glued_to_the_archive_name(self):
        home = self.home(home="../data/sub", scratch="../data/scratch.txt")
        self.run_agent(home, "--cycles", 1)
        self.assertTrue(os.path.exists(home.at("data", "subarchive.txt")))
        self.assertIn("Archive data will be stored in file ../data/subarchive.txt\n", home.log())

    def test_a_home_directory_with_separator_holds_the_archive_and_is_made(self):
        home = self.home(home="../data/deep/er/")
        self.run_agent(home, "--cycles", 1)
        self.assertTrue(os.path.exists(home.at("data", "deep", "er", "archive.txt")))
        self.assertIn("smart_mkdir: drive is \nsmart_mkdir: directory is ../data/deep/er/\n", home.log())


class Periods(AgentTest):
    def test_1500_ms_sleeps_one_second(self):
        home = self.home(period=1500)
        result = self.run_agent(home, "--cycles", 4)
        self.assertEqual(result.sleeps, [1, 1, 1])
        stamps = [stamp for stamp, _ in home.archive_lines()]
        self.assertEqual([stamp - stamps[0] for stamp in stamps], [0, 1, 2, 3])

    def test_999_ms_sleeps_not_at_all(self):
        self.assertEqual(self.run_agent(self.home(period=999), "--cycles", 4).sleeps, [0, 0, 0])

    def test_by_the_real_clock_too_it_pauses_at_the_start_and_sleeps(self):
        begin = time.monotonic()
        home = self.home(period=1000)
        self.run_agent(home, "--cycles", 2, clock="real")
        self.assertGreaterEqual(time.monotonic() - begin, 2)
        (first, _), (second, _) = home.archive_lines()
        self.assertGreaterEqual(second - first, 1)

    def test_period_minus_one_is_chosen_from_the_longest_window(self):
        home = self.home(period=-1, maximum=48)
        self.run_agent(home, "--cycles", 1)
        self.assertIn("minwindowsize = 4.800000, msecpersample = 57600\n", home.log())


class Stopping(AgentTest):
    def test_a_stop_in_the_sleep_ends_the_run_at_once(self):
        home = self.home(period=60000)
        agent = self.running(home, clock="held")
        agent.until(lambda: "sleep\t60\n" in agent.output(), "a sleep")
        result = self.end(agent)
        self.assertEqual((result.stops, result.sleeps, len(home.archive_lines())), ([0], [60], 1))

    def test_a_stop_during_the_first_cycle_lets_it_finish_and_sleeps_once(self):
        home = self.home(inputs=FEW + (DISK_SPACE,), period=2000)
        home.stub_df(HEADING + "/dev/a 100 50 50 50% /\n",
                     before="grep -q TimeStamp ../log/LumetraAgent.log && { touch ../in_cycle; "
                            "until [ -e ../go_on ]; do sleep 0.01; done; }")
        agent = self.running(home)
        agent.until(lambda: os.path.exists(home.at("in_cycle")), "a cycle")
        agent.stop()
        self.assertEqual(home.archive_lines(), [])
        write(home.at("go_on"), "")
        result = agent.finish()
        self.assert_ended_well(result)
        self.assert_in_order(home)
        self.assertEqual((result.stops, result.sleeps, len(home.archive_lines())), ([0], [2], 1))

    def test_a_second_stop_changes_nothing_and_returns_0(self):
        result = self.run_agent(self.home(period=60000), "--cycles", 1, "--extra-stops", 3)
        self.assertEqual(result.stops, [0, 0, 0, 0])

    def test_a_second_run_in_the_same_process_works_and_keeps_the_numbers(self):
        home = self.home(inputs=ALL)
        result = self.run_agent(home, "--cycles", 2, "--runs", 3)
        self.assertEqual(result.ended, [0, 0, 0])
        numbers = {frozenset(values) for _, values in home.archive_lines()}
        self.assertEqual(len(numbers), 1, "the same numbers in each line")

    def test_G3_stops_at_any_time_from_8_threads_then_a_next_run(self):
        home = self.home(inputs=FEW, period=1000)
        runs = often(20, 1000)
        result = self.run_agent(home, "--runs", runs, "--random-stop-ms", 25, "--stop-threads", 8, clock="held")
        self.assertEqual(result.ended, [0] * runs)
        self.assertEqual(result.fatal(), [])
        self.run_agent(home, "--cycles", 2)

    def test_the_end_removes_trend_and_culprit_files_and_nothing_else(self):
        home = self.home()
        for name in ("old.ini", "aBMPRD.gnp", "x.cul", "keep.txt"):
            write(home.at("data", name), "x")
        self.run_agent(home, "--cycles", 1)
        self.assertEqual(sorted(os.listdir(home.at("data"))), ["archive.txt", "keep.txt", "scratch.txt"])

    def test_configuration_and_state_files_in_the_data_directory_are_never_deleted(self):
        home = self.home(archive="archive.ini", scratch="../data/scratch.cul", resources="../data/resources.gnp")
        os.rename(home.at("config", "resources.txt"), home.at("data", "resources.gnp"))
        os.rename(home.at("config", "AutoConfig.ini"), home.at("data", "AutoConfig.ini"))
        result = Running(home, "--config", "../data/AutoConfig.ini", "--cycles", 2, "--runs", 2).finish()
        self.assert_ended_well(result)
        self.assertEqual(sorted(os.listdir(home.at("data"))),
                         ["AutoConfig.ini", "archive.ini", "resources.gnp", "scratch.cul"])
        self.assertGreaterEqual(read(home.at("data", "archive.ini")).count("\n"), 4)


class JavaSide(AgentTest):
    """A Java side that throws, lacks a method, refuses, is slow or has no memory."""

    def failing_start(self, *options, **how):
        home = self.home()
        result = self.run_agent(home, "--args", 1, "--cycles", 2, *options, **how)
        self.assertEqual(result.ended, [0])
        self.assertGreaterEqual(len(home.archive_lines()), 2)
        return home, result

    def test_a_callback_that_throws_is_logged_and_refused(self):
        for method in ("sendEvent", "getOs_support", "getPrev_time", "getPrev_tte"):
            home, _ = self.failing_start("--behaviour", method + "=throw")
            self.assertIn(method + " was told to throw", home.log())

    def test_a_missing_callback_is_logged_and_refused(self):
        for method in ("sendEvent", "getOs_support", "getPrev_time", "getPrev_tte"):
            home, _ = self.failing_start("--behaviour", method + "=missing")
            self.assertIn("NoSuchMethodError", home.log())

    def test_a_slow_callback_only_delays(self):
        _, result = self.failing_start("--behaviour", "sendEvent=block:10")
        self.assertEqual(result.pauses, [1, 10])
        self.assertEqual(result.fatal(), ["Improper Arguments"])

    def test_no_java_memory_counts_as_refusal(self):
        home, result = self.failing_start("--no-text-memory-from", 1)
        self.assertEqual(result.events, [])
        self.assertIn("OutOfMemoryError", home.log())
        self.failing_start("--no-frames")

    def test_an_accepted_event_keeps_the_log_that_led_to_it(self):
        home, _ = self.failing_start("--behaviour", "sendEvent=accept")
        self.assertIn("start sendEvent fatal 0.000000 Improper Arguments", read(home.layout.log + ".event"))
        self.assertTrue(home.log().startswith("LumetraAgent.log.event saved. Opening new log file.\n"))

    def test_a_refused_event_leaves_the_log(self):
        home, _ = self.failing_start()
        self.assertFalse(os.path.exists(home.layout.log + ".event"))


if __name__ == "__main__":
    unittest.main()
