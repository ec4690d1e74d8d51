"""Death at any moment: SIGKILL at every write, rename, unlink, open and cut of the agent's own files; power cuts."""

import os
import shutil
import signal
import subprocess
import unittest

import check_home
from agent_home import DISK_SPACE, FEW, HEADING, AgentTest, Running, is_sanitized, needs_tool, often, read, size, write

ROWS = "/dev/a 1000 250 750 25% /\n/dev/b 1000 500 500 50% /proc\n"
# Makes the random names of side files known, so that the calls on them can be watched.
NOTHING_RANDOM = """
#include <string.h>
#include <sys/random.h>
ssize_t getrandom(void* buffer, size_t size, unsigned flags) {
    (void)flags;
    memset(buffer, 0, size);
    return (ssize_t)size;
}
"""
SIDE_FILE = ".lumetra-" + 16 * "0"
ROOM = "/dev/shm" if os.access("/dev/shm", os.W_OK) else "/tmp"


class CrashTest(AgentTest):
    def grown_home(self, trimming=False):
        """A home with a past: an archive (one that is due for trimming, if wanted), records, a rewritten declaration file."""
        home = self.home(inputs=FEW + (DISK_SPACE,), period=100, megabytes=1 if trimming else 50, at=ROOM)
        home.stub_df(HEADING + ROWS)
        self.run_agent(home, "--cycles", 2)
        if trimming:
            line = "%010d 1 0 12.00 2 0 3.00 \n"
            write(home.layout.archive, "".join(line % (1000000000 + i) for i in range(1200 * 1024 // 32)))
        return home

    def copy_of(self, home):
        copy = self.home(at=ROOM)
        shutil.rmtree(copy.path)
        shutil.copytree(home.path, copy.path, symlinks=True)
        copy.stub_df(HEADING + ROWS)
        return copy


class C1_Killed(CrashTest):
    # A call's place in the sequence is counted by call, so each kind has its own row of deaths.
    CALLS = ("write", "rename", "unlink", "openat", "ftruncate", "fsync", "close")

    @needs_tool("strace")
    @needs_tool("cc")
    def test_C1_a_kill_at_every_step_on_every_file_leaves_all_in_order_and_a_clean_next_start(self):
        model = self.grown_home(trimming=True)
        for name in ("space", "inodes"):  # a new disk, so that the scratch pad grows, too
            write(model.at("stub", name), HEADING + ROWS + "/dev/c 1000 750 250 75% /dev\n")
        # Edited, so that the first cycle replaces the declarations and the next one writes their date.
        write(model.layout.declarations, "my disks\n" + read(model.layout.declarations))
        self.made_known = self.shim()
        deaths = 0
        left = 0
        for call in self.CALLS:
            place = 1
            while True:
                home = self.copy_of(model)
                write(home.at("stub", "space"), read(model.at("stub", "space")))
                killed = self.kill_at(home, call, place)
                home.remove()
                if not killed:
                    break
                deaths += 1
                left += killed == "side file left"
                # Trimming copies block by block: its later blocks are all alike.
                place += often(1 + place // 2, 1 if place < 24 else 8)
        self.assertGreater(deaths, often(20, 40))
        if self.made_known:
            self.assertGreater(left, often(0, 2), "deaths between the making of a side file and its renaming")

    def shim(self):
        """Variables that make the names of side files known; none where nothing can be loaded before the agent."""
        if is_sanitized():
            return {}
        home = self.home()
        write(home.at("shim.c"), NOTHING_RANDOM)
        subprocess.run(["cc", "-shared", "-fPIC", "-o", home.at("shim.so"), home.at("shim.c")], check=True)
        return {"LD_PRELOAD": home.at("shim.so")}

    def kill_at(self, home, call, place):
        """One run that dies at the given call, and the next start. False when the run came to its end."""
        before = home.snapshot()
        watched = []
        side_file = home.at("config", SIDE_FILE)
        for file in (*home.layout.files().values(), side_file):
            watched += ["-P", file, "-P", os.path.relpath(file, home.layout.bin)]
        watched += ["-P", "temp", "-P", home.at("bin", "temp")]
        prefix = ["strace", "-f", "-qq", "-o", home.at("strace.txt"), *watched,
                  "-e", f"inject={call}:signal=KILL:when={place}"]
        result = Running(home, "--cycles", 2, prefix=prefix, environment=home.environment(**self.made_known)).finish()
        if result.status == 0:
            return False
        left = os.path.exists(side_file)
        self.assertEqual(result.status, -signal.SIGKILL, f"{call} {place}: {result.output[-500:]}")
        where = f"killed at {call} {place}: {read(home.at('strace.txt'))[-400:]}"
        self.assertEqual(check_home.check(home.layout, before=before, killed=True, trimmed=True), [], where)
        self.assertTrue(os.path.getsize(home.layout.archive) > 0, where)
        dead = home.snapshot()
        result = Running(home, "--cycles", 2).finish()
        self.assert_ended_well(result)
        self.assertEqual(result.fatal(), [], where)
        # Before the agent died, or after: nothing that was there is lost, and nothing torn is left.
        self.assertEqual(check_home.check(home.layout, before=dead, killed=True, trimmed=True), [], where)
        self.assertTrue(home.snapshot()["archive"].endswith(b"\n"), where)
        self.assertEqual(check_home.side_files(home.at("config")) + check_home.side_files(home.at("data")), [], where)
        self.assertIsNotNone(home.number_of("/dev"), where)
        return "side file left" if left else "killed"

    def test_C1_a_start_removes_what_a_death_left_of_replaced_files_and_nothing_of_others(self):
        home = self.home()
        os.mkdir(home.at("elsewhere"))
        os.rename(home.layout.declarations, home.at("elsewhere", "real.txt"))
        os.symlink("../elsewhere/real.txt", home.layout.declarations)
        places = ("data", "config", "elsewhere")
        others = [home.at("data", name) for name in ("BM.ini.new", "x.gnp.new", "x.cul.new")]
        others += [home.at(place, name) for place in places for name in (".lumetra-0123", ".lumetra-backup")]
        others += [home.layout.declarations + ".new", home.at("elsewhere", "real.txt.new"),
                   home.at("elsewhere", ".lumetra-0123456789ABCDEF")]
        for path in others:
            write(path, "somebody's")
        for place in ("data", "elsewhere"):
            write(home.at(place, ".lumetra-0123456789abcdef"), "half")
        self.run_agent(home, "--cycles", 2)
        for place in ("data", "elsewhere"):
            self.assertEqual(check_home.side_files(home.at(place)), [])
        for path in others:
            self.assertEqual(read(path), "somebody's", path)
        self.assertIn("Updated on", read(home.at("elsewhere", "real.txt")))

    def test_C1_a_kill_at_any_time_is_survived(self):
        home = self.grown_home()
        for step in range(often(5, 30)):
            before = home.snapshot()
            agent = self.running(home)
            agent.until(lambda step=step: size(home.layout.log) > step * 400, "a log that grows")
            agent.process.kill()
            agent.finish()
            self.assertEqual(check_home.check(home.layout, before=before, killed=True), [])
        self.run_agent(home, "--cycles", 2)


class C2_PowerCut(CrashTest):
    def start_after(self, model, name, content, where):
        """A start on a home one file of which has this content."""
        home = self.copy_of(model)
        write(home.layout.files()[name], content)
        result = Running(home, "--cycles", 1).finish()
        self.assert_ended_well(result)
        self.assertTrue(set(result.fatal()) <= {"Call To validateResourceText Failed"}, where)
        return home, result

    def cuts(self, content, step):
        return sorted({*range(0, len(content), step * often(7, 1)), len(content) - 1, 1, 2})

    def test_C2_an_archive_cut_or_zeroed_anywhere_keeps_its_whole_lines(self):
        model = self.grown_home()
        whole = model.snapshot()["archive"]
        damaged = [whole[:cut] for cut in self.cuts(whole, 3)]
        damaged += [whole[:-n] + b"\0" * n for n in (1, 5, 20, len(whole))] + [whole + b"\0" * 4096]
        for content in damaged:
            kept = content[:content.rfind(b"\n") + 1]
            home, result = self.start_after(model, "archive", content, content)
            now = home.snapshot()["archive"]
            self.assertTrue(now.startswith(kept), content)
            self.assertRegex(now[len(kept):], rb"\A(\d+ ([^\n\0]*) \n)+\Z", f"after {content!r}")
            self.assertEqual(result.fatal(), [])
            if len(kept) < len(content):
                self.assertRegex(home.log(), "dropped|unfinished", "the log says what was dropped")
            home.remove()

    def test_C2_a_scratch_pad_cut_or_zeroed_anywhere_keeps_the_numbers_of_its_whole_records(self):
        model = self.grown_home()
        whole = model.snapshot()["scratch pad"]
        damaged = [whole[:cut] for cut in self.cuts(whole, 11)]
        damaged += [whole[:-n] + b"\0" * n for n in (1, 30, 150, len(whole))] + [whole + b"\0" * 4096]
        for content in damaged:
            home, result = self.start_after(model, "scratch pad", content, content)
            self.assertEqual(result.fatal(), [])
            before = {"scratch pad": content, "archive": model.snapshot()["archive"]}
            self.assertEqual(check_home.check(home.layout, before=before), [], content)
            self.assertEqual(len(home.archive_lines()[-1][1]), 4)
            home.remove()

    def test_C2_a_declaration_file_cut_or_zeroed_anywhere_starts_or_is_refused_and_never_gets_worse(self):
        model = self.grown_home()
        whole = model.snapshot()["declarations"]
        damaged = [whole[:cut] for cut in self.cuts(whole, 13)]
        damaged += [whole[:-n] + b"\0" * n for n in (1, 30, 150, len(whole))] + [whole + b"\0" * 4096]
        for content in damaged:
            home, result = self.start_after(model, "declarations", content, content)
            now = home.snapshot()["declarations"]
            if result.fatal():
                self.assertEqual(now, content, "a refused file stays as it is")
            else:
                expected = check_home.parse_declarations(content)
                self.assertIsNotNone(expected, content)
                self.assertEqual(check_home.check(home.layout, expected_declarations=expected), [], content)
            home.remove()


if __name__ == "__main__":
    unittest.main()
