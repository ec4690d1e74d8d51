"""The disk listing under attack: damaged, missing, hanging, hostile, huge; and mounts that come and go."""

import os
import resource
import shutil
import signal
import subprocess
import time
import unittest

from agent_home import (DISK_INODES, DISK_SPACE, FEW, HEADING, INODE_HEADING, AgentTest, Running, declaration, mount,
                        needs_mounts, read, umount, wait_until, write)

ROW = "/dev/good 1000 250 750 25% /\n"
NOBODY = 200000 + os.getpid()  # a user of this run's own: limits count all processes of a user
NO_LISTING = "No disk listing can be had: the disks are taken up with the first one that comes\n"
PERIOD = 20  # seconds


class ListingTest(AgentTest):
    def disk_home(self, space=HEADING + ROW, inodes=None, inputs=FEW + (DISK_SPACE,), **config):
        home = self.home(inputs=inputs, **config)
        home.stub_df(space, inodes)
        return home


def become_nobody():
    os.setgroups([])
    os.setgid(NOBODY)
    os.setuid(NOBODY)


class A9_DamagedListings(ListingTest):
    def test_cut_lines_missing_numbers_and_nonsense_are_rejected(self):
        damaged = ("/dev/cut 1000 250 7\n"
                   "/dev/missing 1000 250 /proc\n"
                   "/dev/words one two three 25% /dev\n"
                   "\n"
                   "%n%n%n%s\n"
                   "/dev/nopoint 1000 250 750 25%\n"
                   "\xff\xfe\x01 1000 250 x 25% /sys\n"
                   "/dev/torn 1000 250 750 25")
        home = self.disk_home(HEADING + ROW + damaged)
        self.run_agent(home, "--cycles", 3)
        points = [name[1].partition(" ")[2] for name in home.numbers() if name[0] == "LogicalDisk" and name[3] == -2]
        self.assertEqual(points, ["/"])
        self.assertEqual(set(self.values_of(home, home.number_of("/"))), {"25.00"})

    def test_a_line_cut_in_a_later_listing_leaves_the_value_as_it_was(self):
        home = self.disk_home()
        agent = self.running(home)
        agent.grows()
        for cut in ("/dev/good 1000 2", "/dev/good 1000 250 9", "/dev/good 1000 990 10 99% ", ""):
            home.stub_df(HEADING + cut)
            agent.grows()
        self.end(agent)
        self.assertEqual(set(self.values_of(home, home.number_of("/"))), {"25.00"})

    def test_an_empty_listing_and_one_without_heading_end_nothing(self):
        for text in ("", "\n", "x"):
            home = self.disk_home(text)
            result = self.run_agent(home, "--cycles", 2)
            self.assertEqual(result.ended, [0])
            self.assertEqual(result.fatal(), [])
            self.assertEqual(home.log().count(NO_LISTING), 0 if text == "\n" else 1)


class B2_NoProcess(ListingTest):
    def limit_processes(self, agent, most):
        subprocess.run(["prlimit", "--pid", str(agent.pid), f"--nproc={most}:"], check=True, preexec_fn=become_nobody)

    @unittest.skipUnless(os.getuid() == 0, "only root may become another user")
    def test_G7_a_start_while_no_process_can_be_started_goes_on_and_takes_the_disks_up_later(self):
        home = self.disk_home(inputs=FEW + (DISK_SPACE,))
        self.run_agent(home, "--cycles", 2, clock="real")
        rid = home.number_of("/")
        subprocess.run(["chown", "-R", str(NOBODY), home.path], check=True)

        def become_limited():
            resource.setrlimit(resource.RLIMIT_NPROC, (3, 1000))  # the agent's thread and the driver's two
            become_nobody()

        lines = len(home.archive_lines())
        agent = self.running(home, "--rest", 50, preexec=become_limited)  # a log of many cycles would lose its first line
        agent.grows()
        self.assertEqual(set(home.archive_lines()[lines][1]), {1, 2}, "a line without the disk")
        self.limit_processes(agent, 1000)
        agent.until(lambda: rid in home.archive_lines()[-1][1], "the disk with the first listing that comes")
        result = self.end(agent)
        self.assertIn(f"retval={127 << 8}\n", home.log())
        self.assertEqual(home.log().count(NO_LISTING), 1)
        self.assertEqual(result.fatal(), [])
        self.assertEqual(home.number_of("/"), rid)
        self.assertEqual(self.values_of(home, rid)[-1], "25.00")

    @unittest.skipUnless(os.getuid() == 0, "only root may become another user")
    def test_a_limit_that_comes_while_running_costs_the_disk_readings_only(self):
        home = self.disk_home()
        subprocess.run(["chown", "-R", str(NOBODY), home.path], check=True)

        agent = self.running(home, preexec=become_nobody)
        agent.grows()
        self.limit_processes(agent, 3)
        agent.grows(2)  # a listing may have been under way
        home.stub_df(HEADING + "/dev/good 1000 500 500 50% /\n")
        agent.grows()
        self.assertEqual(self.values_of(home, home.number_of("/"))[-1], "25.00")
        self.limit_processes(agent, 1000)
        agent.grows()
        self.assertEqual(self.values_of(home, home.number_of("/"))[-1], "50.00")
        self.end(agent)


class B3_NoListing(ListingTest):
    def after(self, script):
        """Runs with a good listing first, then with the script in its place; the log and the archived values."""
        home = self.disk_home()
        agent = self.running(home)
        agent.grows()
        if script is None:
            os.unlink(home.at("stub", "df"))
        else:
            home.stub_script(script)
        agent.grows(4)
        result = self.end(agent)
        self.assertEqual(result.fatal(), [])
        return home

    def test_a_missing_df_leaves_the_values(self):
        home = self.disk_home()
        path = home.at("stub") + ":" + home.at("nowhere")
        agent = self.running(home, environment=dict(os.environ, PATH=path))
        agent.until(lambda: home.number_of("/") is not None, "a disk")
        agent.grows()
        value = self.values_of(home, home.number_of("/"))[-1]
        os.unlink(home.at("stub", "df"))
        agent.grows(4)
        self.end(agent)
        self.assertEqual(value, "25.00")
        self.assertEqual(self.values_of(home, home.number_of("/"))[-1], "25.00")
        self.assertIn(f"retval={127 << 8}\n", home.log())

    def test_a_df_that_is_not_executable_or_is_killed_leaves_the_values(self):
        for script in ("#!/nowhere\n", "#!/bin/sh\nkill -9 $$\n", "#!/bin/sh\nexit 1\n"):
            home = self.after(script)
            self.assertEqual(set(self.values_of(home, home.number_of("/"))), {"25.00"}, script)

    def test_rows_are_used_though_df_ends_with_1(self):
        home = self.after(f"#!/bin/sh\nprintf %s '{HEADING}/dev/good 1000 750 250 75% /\n'\nexit 1\n")
        self.assertEqual(self.values_of(home, home.number_of("/"))[-1], "75.00")
        self.assertIn(f"retval={1 << 8}\n", home.log())

    def test_an_endless_listing_is_given_up(self):
        home = self.disk_home()
        agent = self.running(home)
        agent.grows()
        home.stub_script("#!/bin/sh\nexec cat /dev/zero\n")
        agent.grows(2)
        agent.until(lambda: os.path.getsize(home.at("tempdata", "LumetraDisks.txt")) < 1 << 30, "a listing that is given up")
        home.stub_df(HEADING + ROW)
        # What was killed may write once more into the file that the next listing has emptied.
        agent.until(lambda: os.path.getsize(home.at("tempdata", "LumetraDisks.txt")) < 10000, "a short listing")
        agent.grows()
        self.end(agent)


HOSTILE = ("a b", "%n%s", "$(touch pwn)", "`touch pwn`", ";touch pwn;", "it's", "quo\"te", "x)y", "(", "line\nfeed",
           "tab\there", "\xff\xfe", "esc\x1b[31m", "back\\slash", "*", "-rf")


class E_Mounts(ListingTest):
    def mounted(self, name, options="size=4k"):
        """A tmpfs below the small file system of this test."""
        target = os.path.join(os.fsencode(self.base), name.encode("latin-1"))
        os.makedirs(target)
        mount("tmpfs", target, "tmpfs", 0, options)
        self.addCleanup(self.unmounted, target)
        return target

    def unmounted(self, target):
        try:
            umount(target)
        except OSError:
            pass

    @needs_mounts
    def test_E1_hostile_mount_names_are_watched_or_left_out_never_flapping_never_executed(self):
        self.base = self.small_file_system("size=1m,nr_inodes=1000")
        names = list(HOSTILE) + ["/".join(["long" * 50] * 2), "/".join(["deep" * 60] * 12)]
        for name in names:
            self.mounted(name)
        home = self.home(inputs=FEW + (DISK_SPACE, DISK_INODES))
        result = self.run_agent(home, "--cycles", 4)
        self.assertEqual(result.fatal(), [])
        lines = [frozenset(values) for _, values in home.archive_lines()]
        self.assertEqual(len(set(lines)), 1, "the same resources in each cycle")
        records = home.numbers()
        self.run_agent(home, "--cycles", 3)
        self.assertEqual(home.numbers(), records, "no new record for a known disk")
        self.assertEqual({frozenset(values) for _, values in home.archive_lines()}, set(lines))
        for place in (home.path, self.base):
            for _, directories, files in os.walk(place):
                self.assertNotIn("pwn", directories + files)
        newest = home.archive_lines()[-1][1]
        for name in ("a b", "%n%s", "it's", "long" * 50 + "/" + "long" * 50):
            for counter in ("PercentFreeSpaceUsed", "PercentFreeInodesUsed"):
                # A disk that is taken up and dropped in each cycle has a number, and never a sample.
                self.assertIn(home.number_of(os.path.join(self.base, name), counter), newest, f"{name!r} is not watched")

    @needs_mounts
    def test_E2_a_thousand_mounts_are_sampled_within_the_period(self):
        self.base = self.small_file_system("size=1m,nr_inodes=5000")
        for number in range(1000):
            self.mounted(f"m{number}")
        home = self.home(inputs=FEW + (DISK_SPACE,), period=PERIOD * 1000)
        home.stub_script(f"#!/bin/sh\necho >>../starts\nn=$(wc -l <../starts)\n"
                         f"until [ -e ../go$n ]; do sleep 0.01; done\nexec {shutil.which('df')} \"$@\"\n")
        agent = self.running(home, "--cycles", 3)
        starts = 0
        while agent.process.poll() is None:
            if read(home.at("starts")).count("\n") > starts:
                starts += 1
                agent.turn(1)  # which each listing takes
                write(home.at(f"go{starts}"), "")
            time.sleep(0.002)
        self.assert_ended_well(agent.finish())
        self.assert_in_order(home)
        stamps = [stamp for stamp, _ in home.archive_lines()]
        self.assertLess(max(after - before for before, after in zip(stamps, stamps[1:])), 2 * PERIOD,
                        "a cycle outlives its period")
        self.assertLess(starts, 20, "a listing for each disk")
        watched = {rid for name, rid in home.numbers().items() if f" {self.base}/m" in name[1]}
        self.assertEqual(len(watched), 1000)
        first, *_, newest = (set(values) for _, values in home.archive_lines())
        self.assertEqual((len(newest & watched), {1, 2} - newest), (1000, set()), "each disk has its sample, and so have the others")
        self.assertEqual(first, newest)

    @needs_mounts
    def test_E4_a_disk_that_comes_goes_and_returns_keeps_its_number(self):
        self.base = self.small_file_system("size=1m")
        home = self.home(inputs=FEW + (DISK_SPACE,))
        agent = self.running(home)
        agent.grows()
        target = self.mounted("disk", "size=100k")
        point = os.fsdecode(target)
        agent.until(lambda: home.number_of(point), "a new disk")
        rid = home.number_of(point)
        agent.until(lambda: rid in home.archive_lines()[-1][1], "a sample of it")
        umount(target)
        agent.until(lambda: rid not in home.archive_lines()[-1][1], "its end")
        mount("tmpfs", target, "tmpfs", 0, "size=100k")
        agent.until(lambda: rid in home.archive_lines()[-1][1], "its return")
        self.end(agent)
        self.assertEqual(home.number_of(point), rid)

    @needs_mounts
    def test_E5_a_disk_of_3_TiB_is_read_from_the_real_df(self):
        self.base = self.small_file_system("size=1m")
        target = self.mounted("big", "size=3t")
        write(os.path.join(target, b"file"), b"x" * 1000)
        home = self.home(inputs=FEW + (DISK_SPACE,))
        self.run_agent(home, "--cycles", 2)
        rid = home.number_of(os.fsdecode(target))
        self.assertIsNotNone(rid)
        self.assertEqual(set(self.values_of(home, rid)), {"0.00"})


class E3_HangingListing(ListingTest):
    def test_E3_a_hanging_df_is_given_up_with_its_children_and_its_return_is_noticed(self):
        home = self.disk_home(period=1000)
        agent = self.running(home)
        agent.grows(2)
        home.stub_script("#!/bin/sh\nsleep 1000 &\necho $$ $! >>../pids\nwait\n")
        agent.until(lambda: read(home.at("pids")), "a hanging df")
        lines = len(home.archive_lines())
        agent.turn(10)
        agent.until(lambda: read(home.at("pids")).count("\n") == 2, "the next cycle's df")
        self.assertGreater(len(home.archive_lines()), lines, "a cycle waits for one deadline, not for one a disk")
        first, second = ([int(pid) for pid in line.split()] for line in read(home.at("pids")).splitlines())
        agent.until(lambda: not any(is_alive(pid) for pid in first), "the end of the whole group")
        self.assertTrue(all(is_alive(pid) for pid in second))
        home.stub_df(HEADING + "/dev/good 1000 500 500 50% /\n")
        agent.turn(10)
        agent.until(lambda: self.values_of(home, home.number_of("/"))[-1] == "50.00", "a reading again")
        self.end(agent)
        wait_until(lambda: not any(is_alive(pid) for pid in second), what="the end of the second group")

    def test_G7_a_start_while_df_hangs_goes_on_and_takes_the_disks_up_with_the_first_listing_that_comes(self):
        home = self.disk_home(inputs=FEW + (DISK_SPACE, DISK_INODES))
        before = home.snapshot()
        home.stub_script("#!/bin/sh\necho $$ >>../pids\nexec sleep 1000\n")
        agent = self.running(home)
        for hanging in (1, 2, 3):  # at the start, and in each of the first two cycles
            agent.until(lambda hanging=hanging: read(home.at("pids")).count("\n") == hanging, "a hanging df")
            # While what was killed is not gone, a cycle goes without a df.
            self.assertGreaterEqual(len(home.archive_lines()), hanging - 2, "a cycle waits for one deadline")
            agent.turn(10)
        agent.until(lambda: len(home.archive_lines()) >= 2, "two cycles")
        self.assertEqual(set(home.archive_lines()[-1][1]), {1, 2})
        self.assertEqual([name[3] for name in home.numbers() if name[0] == "LogicalDisk"], [-1, -1], "the templates stand")
        agent.until(lambda: read(home.at("pids")).count("\n") == 4, "the last hanging df")
        home.stub_df(HEADING + ROW, INODE_HEADING + "/dev/good 1000 100 900 10% /\n")
        agent.turn(10)
        agent.until(lambda: home.number_of("/", "PercentFreeInodesUsed") in home.archive_lines()[-1][1], "the disk's counters")
        rids = [home.number_of("/"), home.number_of("/", "PercentFreeInodesUsed")]
        self.assertEqual([home.archive_lines()[-1][1][rid] for rid in rids], ["25.00", "10.00"])
        result = self.end(agent)
        self.assertEqual(result.fatal(), [])
        self.assertEqual(home.log().count(NO_LISTING), 1)
        self.assertEqual(read(home.layout.declarations).count("FindObject (LogicalDisk)"), 2)
        self.assertNotEqual(home.snapshot()["declarations"], before["declarations"], "rewritten, the disks with it")

    def test_a_start_without_a_df_goes_on_and_takes_the_disks_up_when_there_is_one(self):
        home = self.disk_home()
        os.unlink(home.at("stub", "df"))
        agent = self.running(home, "--rest", 50, environment=dict(os.environ, PATH=home.at("stub") + ":" + home.at("nowhere")))
        agent.grows(2)
        home.stub_df(HEADING + ROW)
        agent.until(lambda: home.number_of("/") in home.archive_lines()[-1][1], "the disk")
        result = self.end(agent)
        self.assertEqual(result.fatal(), [])
        self.assertEqual(home.log().count(NO_LISTING), 1)

    def test_a_stop_during_a_hanging_df_ends_after_the_cycle_and_the_sleep(self):
        home = self.disk_home(period=7000)
        agent = self.running(home)
        agent.grows(1)
        home.stub_script("#!/bin/sh\ntouch ../hangs\nexec sleep 1000\n")
        agent.until(lambda: os.path.exists(home.at("hangs")), "a hanging df")
        cycles = len(home.archive_lines())
        agent.stop()
        agent.turn(10)
        result = agent.finish()
        self.assert_ended_well(result)
        self.assertEqual((len(home.archive_lines()), len(result.sleeps)), (cycles + 1, cycles + 1))


def is_alive(pid):
    try:
        with open(f"/proc/{pid}/stat", "rb") as file:
            return file.read().rpartition(b")")[2].split()[0] not in (b"Z", b"X")
    except OSError:
        return False


class E5_UnusualNumbers(ListingTest):
    def value(self, row, inodes=False, **options):
        counter = "PercentFreeInodesUsed" if inodes else "PercentFreeSpaceUsed"
        limit = options.pop("limit", 0.0)
        template = declaration("LogicalDisk", "*", counter, limit=limit)
        heading = INODE_HEADING if inodes else HEADING
        home = self.disk_home(HEADING + ROW if inodes else heading + row, heading + row if inodes else None,
                              inputs=(template,))
        self.run_agent(home, "--cycles", 2)
        return self.values_of(home, home.number_of("/", counter))[-1]

    def test_disks_over_2_TiB_have_the_right_percentage(self):
        self.assertEqual(self.value("/dev/good 4294967296 3221225472 1073741824 75% /\n"), "75.00")
        self.assertEqual(self.value("/dev/good 18014398509481984 4503599627370496 13510798882111488 25% /\n"), "25.00")

    def test_total_0_reads_as_100(self):
        self.assertEqual(self.value("/dev/good 0 0 0 - /\n"), "100.00")
        self.assertEqual(self.value("/dev/good 0 0 0 - /\n", inodes=True), "100.00")

    def test_capacity_0_reads_as_100(self):
        self.assertEqual(self.value("/dev/good 100 0 0 0% /\n"), "100.00")

    def test_blocks_reserved_for_the_superuser_do_not_count_as_free(self):
        self.assertEqual(self.value("/dev/good 1000 450 450 50% /\n"), "50.00")

    def test_values_are_not_clamped(self):
        self.assertEqual(self.value("/dev/good 1000 450 450 50% /\n", limit=100.0), "450.00")

    def test_a_mount_point_with_blanks_is_the_rest_of_the_line(self):
        home = self.disk_home(HEADING + "/dev/good 1000 450 450 50% /mnt/My Disk Nr 1\n", inputs=(DISK_SPACE,))
        self.run_agent(home, "--cycles", 1)
        self.assertIsNotNone(home.number_of("/mnt/My Disk Nr 1"))


class G5_IgnoredChildren(ListingTest):
    def test_G5_disks_are_read_though_the_launcher_ignored_SIGCHLD(self):
        home = self.home(inputs=FEW + (DISK_SPACE,))
        self.run_agent(home, "--cycles", 2, preexec=lambda: signal.signal(signal.SIGCHLD, signal.SIG_IGN))
        root = home.number_of("/")
        self.assertIsNotNone(root)
        self.assertNotIn("0.00", self.values_of(home, root))

    def test_disks_are_read_though_the_launcher_blocked_all_signals(self):
        home = self.disk_home()
        self.run_agent(home, "--cycles", 2,
                       preexec=lambda: signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGCHLD, signal.SIGTERM}))
        self.assertEqual(self.values_of(home, home.number_of("/"))[-1], "25.00")


if __name__ == "__main__":
    unittest.main()
