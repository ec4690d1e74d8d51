"""The agent in a real Java machine on the real machine: sampling, mounts, stopping, failures, signals."""

import contextlib
import os
import signal
import subprocess
import sys
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import LIBRARY, JavaTest, often, some  # noqa: E402
from agent_home import DISK_SPACE, FEW, HEADING, mount, needs_mounts, umount, write  # noqa: E402

RUN = "run 2 ../config/AutoConfig.ini"
DAY = 86400000  # milliseconds
EXPORTED = {
    "JNI_OnLoad",
    "Java_com_quorin_sysmgt_tavl_LumetraAgent_ExecPrediction_research_1main",
    "Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_javaThreadSyncPleaseStop",
    "Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerGetDescriptors",
    "Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerLockAndGetTimeStampLabel",
    "Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerGetLimit",
    "Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerGetXYPairs",
    "Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerUnlockFiles",
}


class AgentTest(JavaTest):
    @staticmethod
    def held_df(home):
        """Puts a df in the agent's PATH that the first cycle waits for until it is let go; what tells that it does."""
        home.stub_df(HEADING + "/dev/a 100 50 50 50% /\n", before="if grep -q TimeStamp ../log/LumetraAgent.log; then\n"
                     "touch ../in_df; while [ ! -e ../go ]; do sleep 0.02; done\nfi")
        return lambda: os.path.exists(home.at("in_df"))

    @staticmethod
    def let_df_go(home):
        write(home.at("go"), "")


class Library(JavaTest):
    def test_it_exports_exactly_the_native_methods(self):
        text = subprocess.run(["nm", "-D", "--defined-only", LIBRARY], capture_output=True, text=True, check=True).stdout
        self.assertEqual({line.split()[-1] for line in text.splitlines()}, EXPORTED)


class Sampling(JavaTest):
    def test_three_cycles_with_the_real_df(self):
        home = self.fresh_home()
        machine = self.probe(home)
        machine.say(RUN)
        self.lines(machine, home, 3)
        machine.say("stop")
        machine.expect_all("stopped\t0", "returned\t0")
        self.finish(machine, home)
        self.assertEqual(machine.fatal(), [])
        listed = subprocess.run(["df"], capture_output=True, text=True).stdout.splitlines()[1:]
        self.assertIsNotNone(home.number_of(listed[0].split()[-1]))
        self.assertEqual({len(values) for _, values in home.archive_lines()}, {3 + 2 * len(listed)})

    @needs_mounts
    def test_a_tmpfs_appears_with_a_new_identifier_disappears_and_returns_with_the_same(self):
        home = self.fresh_home()
        disk = home.at("disk")
        os.mkdir(disk)
        machine = self.probe(home)
        machine.say(RUN)
        self.lines(machine, home, 2)
        known = set(home.numbers().values())
        mount("tmpfs", disk, "tmpfs", 0, "size=100k")
        self.addCleanup(self.forget, disk)
        rid = machine.until(lambda: home.number_of(disk), "a new disk")
        self.assertNotIn(rid, known)
        machine.until(lambda: rid in home.archive_lines()[-1][1], "a sample of it")
        umount(disk)
        machine.until(lambda: rid not in home.archive_lines()[-1][1], "its end")
        mount("tmpfs", disk, "tmpfs", 0, "size=100k")
        machine.until(lambda: rid in home.archive_lines()[-1][1], "its return")
        machine.stop()
        self.finish(machine, home)
        self.assertEqual(home.number_of(disk), rid)

    @staticmethod
    def forget(disk):
        try:
            umount(disk)
        except OSError:
            pass

    def test_the_shipped_host_ends_by_itself_and_a_second_start_keeps_all_identifiers(self):
        home = self.fresh_home()
        machine = self.host(home, "--for", "1")
        self.assertEqual(machine.end(), 0, machine.output()[-2000:])
        self.assert_clean(machine, home)
        numbers, lines, before = home.numbers(), len(home.archive_lines()), home.snapshot()
        self.assertGreaterEqual(lines, 1)
        machine = self.host(home, "--for", "1")
        self.assertEqual(machine.end(), 0, machine.output()[-2000:])
        self.assert_clean(machine, home, before=before)
        self.assertEqual(home.numbers(), numbers)
        self.assertGreater(len(home.archive_lines()), lines)


class Stopping(AgentTest):
    def test_a_stop_in_the_sleep_ends_the_call_at_once(self):
        home = self.fresh_home(period=DAY)
        machine = self.probe(home)
        machine.say(RUN)
        self.lines(machine, home, 1)
        machine.stop()
        self.assertEqual(len(home.archive_lines()), 1)
        self.finish(machine, home)

    def test_a_stop_during_a_cycle_ends_the_call_after_the_cycle_and_the_sleep(self):
        home = self.fresh_home(period=1000)
        home.declare(FEW + (DISK_SPACE,))
        in_cycle = self.held_df(home)
        machine = self.probe(home)
        machine.say(RUN)
        machine.until(in_cycle, "a cycle")
        machine.say("stop")
        machine.expect("stopped\t0")
        begin = time.monotonic()
        self.let_df_go(home)
        machine.expect("returned\t0")
        self.assertGreaterEqual(time.monotonic() - begin, 1)
        self.assertEqual(len(home.archive_lines()), 1)
        self.finish(machine, home)

    def test_further_runs_in_the_same_machine_work(self):
        home = self.fresh_home()
        machine = self.probe(home)
        for run in range(often(2, 4)):
            lines = len(home.archive_lines())
            machine.say(RUN)
            self.lines(machine, home, lines + 2)
            machine.say("stop")
            machine.say("stop")
            machine.expect("returned\t0")
            self.assertEqual(len({frozenset(values) for _, values in home.archive_lines()}), 1, f"run {run}")
        self.finish(machine, home)

    def test_a_stop_before_and_after_a_run_is_harmless(self):
        home = self.fresh_home()
        machine = self.probe(home)
        machine.say("stop")
        machine.expect("stopped\t0")
        machine.say(RUN)
        self.lines(machine, home, 2)
        machine.say("stop")
        machine.expect("returned\t0")
        machine.say("stop")
        machine.expect("stopped\t0")
        self.finish(machine, home)


class Failures(JavaTest):
    WORDS = ["../data/", "archive.txt", "../data/scratch.txt", "../log/analysis.log", "../config/resources.txt", "100", "0",
             "1", "50"]
    PREMATURE = {0: "Data Home Directory", 1: "Data File Name", 2: "Scratchpad File Name", 4: "Resource File Name",
                 5: "Milliseconds Per Sample Parameter", 6: "MinForecastHours Parameter", 7: "MaxForecastHours Parameter",
                 8: "maxfilesizeinMB Parameter"}

    def test_every_premature_end_arrives_in_java(self):
        home = self.fresh_home()
        machine = self.probe(home)
        premature = dict(some(self.PREMATURE.items(), 2))
        for count, text in premature.items():
            write(home.at("config", "short.ini"), "\n".join(self.WORDS[:count]) + "\n")
            machine.say("run 2 ../config/short.ini")
            event = machine.expect("event\t")
            self.assertEqual(event, f"event\tfatal\tPremature EOF Trying To Read {text}\t0.0\tNull\tnull")
            machine.expect("returned\t0")
        write(home.at("config", "short.ini"), "\n".join(self.WORDS[:3]) + "\n")
        machine.say("run 2 ../config/short.ini")
        machine.expect("returned\t0")
        self.assertEqual(len(machine.fatal()), len(premature))
        self.finish(machine, home)

    def test_every_other_fatal_text_of_the_start_and_the_cycle_arrives_in_java(self):
        home = self.fresh_home()
        machine = self.probe(home)
        machine.say("run 2 ../config/nöne.ini")
        self.assertEqual(machine.expect("event\t"), "event\tfatal\tCannot open ../config/nöne.ini file. "
                                                    "Use Configure Wizard.\t0.0\tNull\tnull")
        machine.expect("returned\t0")
        write(home.at("config", "other.ini"), "\n".join(self.WORDS).replace("resources.txt", "none.txt"))
        machine.say("run 1 ../config/other.ini")
        machine.expect("event\tfatal\tImproper Arguments")
        machine.expect("event\tfatal\tCall To validateResourceText Failed")
        machine.expect("returned\t0")
        home.declare(FEW)
        home.configure(period=1, maximum=2147483647, archive="none/archive.txt")
        machine.say(RUN)
        machine.expect("event\tfatal\tCall To allocatecircularbuffers Failed")
        machine.expect("event\tfatal\tCall To RawDataRetrievalAndArchive Failed")
        machine.expect("event\tfatal\tCannot Get Filesize of ../data/none/archive.txt")
        machine.say("stop")
        machine.expect("returned\t0")
        os.mkdir(home.at("bin", "temp"))
        home.configure(megabytes=0)
        machine.say(RUN)
        machine.expect("event\tfatal\tCannot Open Temp File For Database Trimming")
        machine.say("stop")
        machine.expect("returned\t0")
        os.rmdir(home.at("bin", "temp"))
        self.finish(machine, home)

    def test_an_events_side_that_throws_or_refuses_is_logged_and_ends_nothing(self):
        home = self.fresh_home(archive="none/archive.txt")
        home.declare(FEW)
        machine = self.probe(home)
        for mode in ("throw", "refuse"):
            with contextlib.suppress(FileNotFoundError):
                os.remove(home.layout.log + ".bak")  # a start empties the log alone
            machine.say("mode " + mode)
            machine.say(RUN)
            for _ in range(4):
                machine.expect("event\tfatal\tCall To RawDataRetrievalAndArchive Failed")
            machine.say("stop")
            machine.expect("returned\t0")
            self.assertEqual("the events side was told to throw" in home.log(), mode == "throw")
        self.finish(machine, home)

    def test_a_full_java_heap_counts_as_refusal_and_the_next_cycle_is_normal(self):
        home = self.fresh_home(archive="none/archive.txt")
        home.declare(FEW)
        machine = self.probe(home)
        machine.say(RUN)
        machine.expect("event\tfatal\tCall To RawDataRetrievalAndArchive Failed")
        machine.say("mode refuse")
        machine.say("hog")
        machine.until(lambda: "Java exception in " in home.log(), "an event that found no memory")
        machine.say("unhog")
        machine.expect("unhogged")
        machine.expect("event\tfatal\tCall To RawDataRetrievalAndArchive Failed")
        os.mkdir(home.at("data", "none"))
        self.lines(machine, home, 2)
        machine.stop()
        self.finish(machine, home)

    def test_without_descriptors_events_are_still_delivered_and_files_stay(self):
        home = self.fresh_home()
        home.declare(FEW)
        machine = self.probe(home)
        machine.say(RUN)
        self.lines(machine, home, 2)
        before = home.snapshot()
        subprocess.run(["prlimit", "--pid", str(machine.process.pid), "--nofile=3:"], check=True)
        for _ in range(3):
            machine.expect("event\tfatal\tCall To RawDataRetrievalAndArchive Failed")
        self.assertEqual(home.snapshot()["scratch pad"], before["scratch pad"])
        subprocess.run(["prlimit", "--pid", str(machine.process.pid), "--nofile=1000:"], check=True)
        self.more_lines(machine, home, 2)
        machine.stop()
        self.finish(machine, home, before=before)


class Signals(AgentTest):
    def test_sigquit_gives_a_thread_dump_and_the_agent_goes_on(self):
        home = self.fresh_home()
        machine = self.probe(home)
        machine.say(RUN)
        self.lines(machine, home, 2)
        machine.signal(signal.SIGQUIT)
        machine.expect("Full thread dump")
        self.more_lines(machine, home, 2)
        machine.stop()
        self.finish(machine, home)

    def test_sigquit_during_df_is_not_swallowed(self):
        home = self.fresh_home()
        home.declare(FEW + (DISK_SPACE,))
        in_df = self.held_df(home)
        machine = self.probe(home)
        machine.say(RUN)
        machine.until(in_df, "a df that is waited for")
        machine.signal(signal.SIGQUIT)
        machine.expect("Full thread dump")
        self.assertEqual(home.archive_lines(), [], "the dump waited for df")
        self.let_df_go(home)
        machine.stop()
        self.finish(machine, home)

    def assert_ends_in_order(self, how):
        home = self.fresh_home(period=DAY)
        machine = self.host(home)
        self.lines(machine, home, 1)
        machine.signal(how)
        self.assertEqual(machine.end(), 0, machine.output()[-2000:])
        self.assertIn("Ending prediction. timeOfDay=", home.log())
        self.assert_clean(machine, home)

    def test_sigterm_ends_the_shipped_host_in_order(self):
        self.assert_ends_in_order(signal.SIGTERM)

    def test_sigint_ends_the_shipped_host_in_order(self):
        self.assert_ends_in_order(signal.SIGINT)

    def test_a_sudden_end_at_any_time_leaves_the_files_in_order(self):
        home = self.fresh_home()
        begun = ("in the first cycle", lambda lines: "TimeStamp" in home.log()[lines[1]:])
        first = ("after the first line", lambda lines: len(home.archive_lines()) > lines[0])
        third = ("after the third line", lambda lines: len(home.archive_lines()) > lines[0] + 2)
        cases = [(when, how) for when in (begun, first, third) for how in (signal.SIGTERM, signal.SIGKILL, None)]
        for (name, is_time), how in often(cases[::4], cases):  # each moment and each way once
            with self.subTest(when=name, how=how):
                before = home.snapshot()
                so_far = len(home.archive_lines()), len(home.log())
                machine = self.probe(home)
                machine.say(RUN)
                machine.until(lambda: is_time(so_far), name)
                if how is None:
                    machine.say("exit 5")
                else:
                    machine.signal(how)
                self.assertEqual(machine.end(), {None: 5, signal.SIGTERM: 143}.get(how, -9))
                self.assert_clean(machine, home, before=before, killed=True)
        before = home.snapshot()
        machine = self.probe(home)
        machine.say(RUN)
        self.more_lines(machine, home, 2)
        machine.stop()
        self.finish(machine, home, before=before)


if __name__ == "__main__":
    unittest.main()
