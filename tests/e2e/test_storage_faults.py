"""Files that cannot be opened, written, renamed or held: archive, its trimming, declarations, scratch pad, log."""

import os
import shutil
import subprocess
import unittest

import check_home
from agent_home import (DISK_SPACE, FEW, HEADING, MS_BIND, MS_RDONLY, MS_REMOUNT, AgentTest, Running, declaration, is_sanitized,
                        mount, needs_mounts, needs_tool, read, size, umount, write)

SAMPLING_FAILED = "Call To RawDataRetrievalAndArchive Failed"
FAILED_LINE = "Failure of RawDataRetrievalAndArchive. Error Code -1...exiting.\n"
# Mount points that every machine has, so a made-up listing is not taken for unmounted.
REAL_POINTS = ("/", "/proc", "/dev", "/sys")


def rows(*points, used=50):
    return "".join(f"/dev/d{i} 100 {used} {100 - used} {used}% {point}\n" for i, point in enumerate(points))


def fill(directory, name="filler"):
    """Takes every free byte of the directory's file system."""
    path = os.path.join(directory, name)
    with open(path, "ab", buffering=0) as file:
        for size in (65536, 4096, 1):
            try:
                while file.write(b"x" * size) == size:
                    pass
            except OSError:
                pass
    return path


class StorageTest(AgentTest):
    def full_device(self, path):
        """Has a device that is always full in the place of a file."""
        write(path, "")
        mount("/dev/full", path, "", MS_BIND)
        self.addCleanup(umount, path)

    def cycles_go_on(self, agent, event=SAMPLING_FAILED, times=3):
        """Waits for further cycles with this event, which is told outside of the log, too: that one turns over."""
        begin = agent.output().count(event)
        agent.until(lambda: agent.output().count(event) >= begin + times, f"{times} times {event!r}")


class A1_ArchiveAppend(StorageTest):
    @needs_mounts
    def test_no_space_costs_only_its_own_lines_and_the_next_line_is_whole(self):
        directory = self.small_file_system("size=32k")
        home = self.home(home=directory + "/", period=100)
        write(home.layout.archive, "".join(f"{1000 + i} 1 0 1.00 2 0 2.00 \n" for i in range(150)))
        before = home.snapshot()
        filler = fill(directory)
        self.run_agent(home, "--cycles", 30, before=before)  # to its end: what is being written may be half there
        self.assertIn(FAILED_LINE, home.log())
        self.assertIn("No space left on device", home.log())
        self.assertIn(home.layout.archive, home.log())
        full = home.snapshot()
        self.assertTrue(full["archive"].endswith(b"\n"), "no torn line while the disk is full")
        agent = self.running(home)
        self.cycles_go_on(agent)
        begin = len(home.archive_lines())
        os.unlink(filler)
        agent.grows(begin=begin)
        result = self.end(agent, before=before)
        self.assertIn(SAMPLING_FAILED, result.fatal())
        self.assertTrue(home.snapshot()["archive"].startswith(full["archive"]))

    @needs_mounts
    def test_a_device_that_is_always_full_fails_each_cycle_and_nothing_else(self):
        home = self.home()
        self.full_device(home.layout.archive)
        agent = self.running(home)
        self.cycles_go_on(agent)
        self.end(agent)
        self.assertIn("archive.txt: cannot be opened: it is no regular file\n", home.log())

    @needs_tool("strace")
    def test_an_error_at_open_write_or_close_is_logged_and_the_next_line_is_whole(self):
        for call in ("openat", "write", "close"):
            home = self.home()
            write(home.layout.archive, "1000 1 0 1.00 \n")
            before = home.snapshot()
            prefix = ["strace", "-f", "-o", home.at("strace.txt"), "-P", home.layout.archive, "-P",
                      "../data/archive.txt", "-e", f"inject={call}:error=ENOSPC:when=2"]
            result = self.run_agent(home, "--cycles", 5, prefix=prefix, before=before)
            self.assertIn("INJECTED", read(home.at("strace.txt")))
            self.assertEqual(result.fatal(), [SAMPLING_FAILED], call)
            self.assertIn("No space left on device", home.log())
            self.assertGreater(len(home.archive_lines()), 3)

    def test_a_torn_tail_of_an_earlier_death_never_merges_with_the_next_line(self):
        home = self.home()
        whole = b"1000 1 0 1.00 \n1010 1 0 1.00 \n"
        write(home.layout.archive, whole + b"1020 1 0 1")
        self.run_agent(home, "--cycles", 2)
        self.assertTrue(home.snapshot()["archive"].startswith(whole))
        self.assertNotIn(b"1020", home.snapshot()["archive"])

    def test_an_archive_in_a_directory_that_is_not_there_is_told_each_cycle(self):
        home = self.home(archive="none/archive.txt")
        agent = self.running(home)
        self.cycles_go_on(agent)
        result = self.end(agent)
        self.assertIn("Cannot Get Filesize of ../data/none/archive.txt", result.fatal())
        self.assertIn(SAMPLING_FAILED, result.fatal())


class A2_Trim(StorageTest):
    LINES = 1200 * 1024 // 32

    def big_home(self, **config):
        home = self.home(megabytes=1, **config)
        line = "%010d 1 0 12.00 2 0 3.00 %s\n"
        write(home.layout.archive, "".join((line % (1000000000 + i, "")) for i in range(self.LINES + 3000)))
        self.assertGreater(os.path.getsize(home.layout.archive), 1.1 * 2**20)
        return home

    def untouched(self, home, before):
        self.assertTrue(home.snapshot()["archive"].startswith(before["archive"]))

    def test_a_grown_archive_is_cut_to_the_newest_whole_lines(self):
        home = self.big_home()
        before = home.snapshot()
        self.run_agent(home, "--cycles", 5, before=before, trimmed=True)
        size = os.path.getsize(home.layout.archive)
        self.assertTrue(2**20 - 64 < size < 1.1 * 2**20, size)

    def test_no_work_file_is_told_with_the_fixed_text_and_the_archive_stays(self):
        home = self.big_home()
        os.mkdir(home.at("bin", "temp"))
        write(home.at("bin", "temp", "x"), "x")
        before = home.snapshot()
        agent = self.running(home)
        self.cycles_go_on(agent, "Cannot Open Temp File For Database Trimming")
        agent.stop()
        self.assert_ended_well(agent.finish())
        self.untouched(home, before)
        os.unlink(home.at("bin", "temp", "x"))
        os.rmdir(home.at("bin", "temp"))
        self.assert_in_order(home, before=before)

    @needs_mounts
    def test_a_working_directory_without_room_keeps_no_archive_from_being_trimmed(self):
        home = self.big_home()
        mount("tmpfs", home.at("bin"), "tmpfs", 0, "size=64k")
        self.addCleanup(umount, home.at("bin"))
        before = home.snapshot()
        result = self.run_agent(home, "--cycles", 5, before=before, trimmed=True)
        self.assertLess(os.path.getsize(home.layout.archive), 1.1 * 2**20)
        self.assertNotIn("No space left on device", home.log())
        self.assertEqual(os.listdir(home.at("bin")), [])
        self.assertEqual(result.ended, [0])

    @needs_tool("strace")
    def test_a_rename_that_fails_leaves_the_archive_and_no_work_file(self):
        home = self.big_home()
        before = home.snapshot()
        prefix = ["strace", "-f", "-o", home.at("strace.txt"), "-P", "temp", "-P", home.at("bin", "temp"), "-e",
                  "inject=rename,renameat,renameat2:error=EIO"]
        self.run_agent(home, "--cycles", 5, prefix=prefix, before=before)
        self.assertIn("INJECTED", read(home.at("strace.txt")))
        self.untouched(home, before)

    @needs_mounts
    def test_an_archive_on_another_file_system_is_trimmed_all_the_same(self):
        directory = self.small_file_system("size=4m")
        home = self.big_home(home=directory + "/")
        before = home.snapshot()
        self.run_agent(home, "--cycles", 5, before=before, trimmed=True)
        self.assertLess(os.path.getsize(home.layout.archive), 1.1 * 2**20)

    @needs_mounts
    def test_an_archive_alone_on_a_disk_without_room_for_a_second_one_stays(self):
        directory = self.small_file_system("size=1400k")
        home = self.big_home(home=directory + "/")
        before = home.snapshot()
        self.run_agent(home, "--cycles", 5, before=before)
        self.untouched(home, before)


class A3_Declarations(StorageTest):
    def home_on(self, directory):
        home = self.home(inputs=FEW + (DISK_SPACE,), resources=directory + "/resources.txt")
        home.layout = check_home.Layout(home.path)
        shutil.move(home.at("config", "resources.txt"), home.layout.declarations)
        home.stub_df(HEADING + rows("/"))
        return home

    @needs_mounts
    def test_no_space_leaves_the_old_file_and_the_next_start_works(self):
        directory = self.small_file_system("size=16k")
        home = self.home_on(directory)
        filler = fill(directory)
        before = home.snapshot()
        self.run_agent(home, "--cycles", 3, before=before)
        self.assertEqual(home.snapshot()["declarations"], before["declarations"])
        self.assertIn("No space left on device", home.log())
        os.unlink(filler)
        self.run_agent(home, "--cycles", 2)
        self.assertTrue(read(home.layout.declarations).startswith("/** Updated on"))

    @needs_mounts
    def test_a_read_only_disk_leaves_the_old_file(self):
        directory = self.small_file_system("size=64k")
        home = self.home_on(directory)
        before = home.snapshot()
        mount("tmpfs", directory, "", MS_REMOUNT | MS_RDONLY, "")
        self.run_agent(home, "--cycles", 3, before=before)
        self.assertEqual(home.snapshot()["declarations"], before["declarations"])
        self.assertIn("Read-only file system", home.log())

    @needs_tool("prlimit")
    def test_no_descriptor_left_leaves_all_files_and_ends_with_their_return(self):
        if is_sanitized():
            self.skipTest("the sanitizer's own checks need descriptors")
        home = self.home(inputs=FEW + (DISK_SPACE,))
        home.stub_df(HEADING + rows("/"))
        before = home.snapshot()
        agent = self.running(home)
        agent.grows()
        subprocess.run(["prlimit", "--pid", str(agent.pid), "--nofile=3:1024"], check=True)
        agent.until(lambda: SAMPLING_FAILED in agent.output(), "a cycle without descriptors")
        self.assertEqual(check_home.check(home.layout, before=before, killed=True), [])
        subprocess.run(["prlimit", "--pid", str(agent.pid), "--nofile=1024:1024"], check=True)
        agent.grows()
        self.end(agent, before=before)


class A4_ScratchPad(StorageTest):
    @needs_mounts
    def test_a_disk_is_watched_though_its_record_cannot_be_written_and_its_number_is_given_to_no_other(self):
        directory = self.small_file_system("size=4k")
        home = self.home(inputs=FEW + (DISK_SPACE,), scratch=directory + "/scratch.txt")
        disk = self.small_file_system("size=100k")
        home.stub_df(HEADING + rows("/", "/proc"))
        self.run_agent(home, "--cycles", 1)
        fill(os.path.dirname(home.layout.scratch_pad), "scratch.txt.filler")
        with open(home.layout.scratch_pad, "ab") as pad:  # the page of the pad itself is full, too
            pad.write(b"\n" * (4096 - pad.tell()))
        before = home.snapshot()
        agent = self.running(home)
        agent.grows()
        home.stub_df(HEADING + rows("/", "/proc", disk))
        agent.grows(5)
        known = set(home.archive_lines()[0][1])
        first = set(home.archive_lines()[-1][1]) - known
        self.assertEqual(len(first), 1, "the new disk has a number in the archive")
        umount(disk)
        home.stub_df(HEADING + rows("/", "/proc"))
        agent.grows(5)
        self.assertEqual(set(home.archive_lines()[-1][1]), known)
        mount("tmpfs", disk, "tmpfs", 0, "size=8k")
        home.stub_df(HEADING + rows("/", "/proc", "/dev"))
        agent.grows(5)
        second = set(home.archive_lines()[-1][1]) - known
        self.assertEqual(len(second), 1)
        self.assertNotEqual(first, second, "one number for two disks")
        self.end(agent, before=before, scratch_pad_lossy=True)
        self.assertIn("No space left on device", home.log())

    def test_A4_a_number_that_only_the_archive_knows_is_not_given_to_another_disk_by_the_next_run(self):
        home = self.home(inputs=FEW + (DISK_SPACE,))
        home.stub_df(HEADING + rows("/"))
        self.run_agent(home, "--cycles", 1)
        pad = read(home.layout.scratch_pad)
        home.stub_df(HEADING + rows("/", "/proc"))
        self.run_agent(home, "--cycles", 1)
        lost = home.number_of("/proc")
        write(home.layout.scratch_pad, pad)  # as if its record could not have been written
        home.stub_df(HEADING + rows("/", "/dev"))
        self.run_agent(home, "--cycles", 1, before={}, scratch_pad_lossy=True)
        self.assertEqual(home.number_of("/"), lost - 1)
        self.assertEqual(home.number_of("/dev"), lost + 1)

    def test_a_scratch_pad_that_is_a_directory_gives_every_resource_a_number_of_its_own(self):
        home = self.home(inputs=FEW + (DISK_SPACE,))
        os.mkdir(home.layout.scratch_pad)
        home.stub_df(HEADING + rows("/", "/proc"))
        self.run_agent(home, "--cycles", 3, scratch_pad_lossy=True)
        self.assertEqual({len(values) for _, values in home.archive_lines()}, {4})

    def test_a_torn_last_record_is_ignored_and_the_next_record_is_whole(self):
        home = self.home(inputs=FEW + (DISK_SPACE,))
        home.stub_df(HEADING + rows("/"))
        self.run_agent(home, "--cycles", 1)
        numbers = home.numbers()
        with open(home.layout.scratch_pad, "ab") as pad:
            pad.write(b"\nEvent: ResourceDefinition - Informational \n2   99   (LogicalDisk)   (/dev/d1 /pr")
        home.stub_df(HEADING + rows("/", "/proc"))
        self.run_agent(home, "--cycles", 2)
        self.assertEqual({name: home.numbers().get(name) for name in numbers}, numbers)
        self.assertIsNotNone(home.number_of("/proc"))


class A7_Log(StorageTest):
    def many_lines(self, home):
        home.declare([declaration("PercentFileDescriptorsUsed", f"copy {i}") for i in range(500)])

    def test_without_a_log_directory_everything_else_runs_and_logging_resumes_with_it(self):
        home = self.home()
        os.rmdir(home.at("log"))
        agent = self.running(home)
        agent.grows()
        os.mkdir(home.at("log"))
        agent.until(lambda: "TimeStamp = " in home.log(), "a log that resumes")
        self.end(agent)

    @needs_mounts
    def test_a_log_that_is_always_full_loses_lines_only(self):
        home = self.home()
        self.full_device(home.layout.log)
        result = self.run_agent(home, "--cycles", 3)
        self.assertEqual(result.fatal(), [])

    @needs_tool("prlimit")
    def test_a_log_that_cannot_grow_loses_lines_only(self):
        home = self.home()
        result = self.run_agent(home, "--cycles", 3, prefix=["prlimit", "--fsize=2000"])
        self.assertEqual(result.fatal(), [])
        self.assertEqual(os.path.getsize(home.layout.log), 2000)
        self.assertEqual(len(home.archive_lines()), 3)

    @needs_mounts
    def test_a_full_disk_loses_lines_and_logging_resumes_by_itself(self):
        home = self.home()
        mount("tmpfs", home.at("log"), "tmpfs", 0, "size=16k")
        self.addCleanup(umount, home.at("log"))
        filler = fill(home.at("log"))
        agent = self.running(home)
        agent.grows(20)
        os.unlink(filler)
        agent.until(lambda: "TimeStamp = " in home.log(), "a log that resumes")
        agent.stop()
        self.assert_ended_well(agent.finish())
        self.assert_in_order(home)

    def test_a_log_truncated_by_others_has_no_hole(self):
        home = self.home()
        agent = self.running(home)
        agent.grows()
        for _ in range(5):
            os.truncate(home.layout.log, 0)
            agent.grows(2)
        self.end(agent)

    def test_a_backup_that_cannot_be_made_does_not_let_the_log_grow(self):
        home = self.home()
        self.many_lines(home)
        os.makedirs(home.layout.log + ".bak/x")
        before = home.snapshot()
        agent = self.running(home)
        agent.until(lambda: size(home.layout.log) > 300000, "a log that grows")
        for _ in range(200):
            self.assertLessEqual(os.path.getsize(home.layout.log), check_home.LOG_LIMIT)
            if len(home.archive_lines()) > 25:
                break
            agent.grows(1)
        self.end(agent, before=before)

    def test_a_full_log_becomes_the_only_backup(self):
        home = self.home()
        write(home.layout.log + ".bak", "an older backup")
        self.many_lines(home)
        agent = self.running(home)
        agent.until(lambda: size(home.layout.log + ".bak") > 1000, "a backup")
        result = self.end(agent)
        self.assertEqual(result.ended, [0])
        self.assertGreater(os.path.getsize(home.layout.log + ".bak"), 1000000)
        self.assertEqual(sorted(os.listdir(home.at("log"))), ["LumetraAgent.log", "LumetraAgent.log.bak"])


class A8_FullWorkDisk(StorageTest):
    @needs_mounts
    def test_the_full_disk_that_holds_the_work_file_is_still_seen_as_full(self):
        home = self.home(inputs=FEW + (DISK_SPACE,))
        mount("tmpfs", home.at("tempdata"), "tmpfs", 0, "size=64k")
        self.addCleanup(umount, home.at("tempdata"))
        agent = self.running(home)
        agent.grows(2)
        rid = home.number_of(home.at("tempdata"))
        self.assertIsNotNone(rid)
        self.assertLess(float(self.values_of(home, rid)[-1]), 50)
        # Each new listing gives the old one's block back for a moment, until that one is taken, too.
        agent.until(lambda: fill(home.at("tempdata")) and self.values_of(home, rid)[-1] == "100.00", "a full disk")
        begin = len(home.archive_lines())
        agent.grows(5)
        self.assertEqual(set(self.values_of(home, rid)[begin:]), {"100.00"})
        os.unlink(home.at("tempdata", "filler"))
        agent.grows(3)
        self.assertLess(float(self.values_of(home, rid)[-1]), 50)
        self.end(agent)

    def test_without_the_work_directory_disks_are_read_all_the_same(self):
        home = self.home(inputs=FEW + (DISK_SPACE,))
        os.rmdir(home.at("tempdata"))
        home.stub_df(HEADING + rows("/", used=25))
        self.run_agent(home, "--cycles", 2)
        self.assertEqual(self.values_of(home, home.number_of("/")), ["25.00"] * len(home.archive_lines()))


class A10_OtherLimits(StorageTest):
    @needs_mounts
    def test_without_inodes_every_file_stays_as_it_was_and_all_return_with_them(self):
        directory = self.small_file_system("size=1m,nr_inodes=16")
        home = self.home(directory=os.path.join(directory, "home"))
        self.run_agent(home, "--cycles", 1)
        fillers = []
        try:
            while True:
                path = os.path.join(directory, f"f{len(fillers)}")
                write(path, "")
                fillers.append(path)
        except OSError:
            pass
        before = home.snapshot()
        self.run_agent(home, "--cycles", 3, before=before)
        self.assertEqual(home.snapshot()["declarations"], before["declarations"])
        self.assertGreater(len(home.archive_lines()), 3, "an archive that is there needs no inode")
        for path in fillers:
            os.unlink(path)
        home.configure(period=1000)  # the last generation bears another time
        self.run_agent(home, "--cycles", 2)
        self.assertNotEqual(home.snapshot()["declarations"], before["declarations"])

    @needs_mounts
    def test_a_read_only_home_ends_in_order(self):
        directory = self.small_file_system("size=1m")
        home = self.home(directory=os.path.join(directory, "home"))
        self.run_agent(home, "--cycles", 1)
        before = home.snapshot()
        mount("tmpfs", directory, "", MS_REMOUNT | MS_RDONLY, "")
        result = self.run_agent(home, "--cycles", 5, before=before)
        self.assertEqual(home.snapshot(), before)
        self.assertIn(SAMPLING_FAILED, result.fatal())

    @needs_tool("prlimit")
    def test_a_limit_on_file_sizes_costs_lines_and_nothing_older(self):
        home = self.home()
        self.run_agent(home, "--cycles", 3)
        write(home.layout.declarations, "my own\n" + read(home.layout.declarations))  # to be written anew, not only its date
        size = os.path.getsize(home.layout.archive)
        self.assertLess(size + 10, os.path.getsize(home.layout.declarations) - 100)
        before = home.snapshot()
        prefix = ["prlimit", f"--fsize={size + 10}"]  # in the middle of the next line
        result = self.run_agent(home, "--cycles", 5, prefix=prefix, before=before)
        self.assertIn(SAMPLING_FAILED, result.fatal())
        self.assertEqual(home.snapshot(), before)
        self.run_agent(home, "--cycles", 1)
        self.assertNotIn("my own", read(home.layout.declarations))


class G7_StartOnAFullDisk(StorageTest):
    @needs_mounts
    def test_G7_a_start_on_a_full_disk_samples_and_archives_once_there_is_room(self):
        directory = self.small_file_system("size=256k")
        home = self.home(directory=os.path.join(directory, "home"))
        filler = fill(directory)
        before = home.snapshot()
        agent = self.running(home)
        agent.until(lambda: agent.output().count(SAMPLING_FAILED) >= 3, "cycles on a full disk")
        self.assertEqual(home.snapshot()["declarations"], before["declarations"])
        os.unlink(filler)
        agent.grows(begin=0)
        self.end(agent, before=before)
        self.assertEqual(set(home.archive_lines()[-1][1]), {1, 2})


class C3_BigFiles(StorageTest):
    def test_an_archive_over_2_GiB_has_its_size_and_is_trimmed(self):
        home = self.home(megabytes=1)
        lines = "".join(f"{1000000000 + i} 1 0 1.00 2 0 2.00 \n" for i in range(3000))
        with open(home.layout.archive, "wb") as archive:
            archive.truncate(2300 * 2**20)
            archive.seek(0, os.SEEK_END)
            archive.write(b"\n" + lines.encode())
        before = {"archive": lines.encode()}
        result = self.run_agent(home, "--cycles", 5, before=before, trimmed=True)
        self.assertEqual(result.fatal(), [])
        self.assertTrue(read(home.layout.archive).startswith(lines))
        self.assertGreaterEqual(len(home.archive_lines()), 3001)

    def test_an_archive_over_2_GiB_within_its_limit_is_left_alone(self):
        home = self.home(megabytes=4000)
        with open(home.layout.archive, "wb") as archive:
            archive.truncate(2300 * 2**20)
            archive.seek(0, os.SEEK_END)
            archive.write(b"\n")
        result = Running(home, "--cycles", 5).finish()
        self.assert_ended_well(result)
        self.assertEqual(result.fatal(), [])
        self.assertGreater(os.path.getsize(home.layout.archive), 2300 * 2**20 + 20)

    def test_a_scratch_pad_of_100000_records_finds_the_right_numbers(self):
        home = self.home(inputs=FEW + (DISK_SPACE,))
        home.stub_df(HEADING + "/dev/d77777 100 50 50 50% /\n/dev/new 100 50 50 50% /proc\n")
        record = "\nEvent: ResourceDefinition - Informational \n{}   {}   ({})   ({})   ({})   {}   \n"
        with open(home.layout.scratch_pad, "w", encoding="ascii") as pad:
            pad.write(record.format(1, 1, "PercentFileDescriptorsUsed", "_Total", "PercentFileDescriptorsUsed", "-2"))
            pad.write(record.format(2, 2, "LogicalDisk", "*", "PercentFreeSpaceUsed", "-1"))
            for number in range(3, 100000):
                point = "/" if number == 77777 else f"/mnt/{number}"
                pad.write(record.format(2, number, "LogicalDisk", f"/dev/d{number} {point}", "PercentFreeSpaceUsed", "-2"))
            pad.write(record.format(1, 100000, "PercentProcessesUsed", "_Total", "PercentProcessesUsed", "-2"))
        self.run_agent(home, "--cycles", 1)
        self.assertEqual(set(home.archive_lines()[0][1]), {1, 77777, 100000, 100001})


if __name__ == "__main__":
    unittest.main()
