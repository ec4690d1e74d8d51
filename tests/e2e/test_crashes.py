"""Death at any moment, and power cuts. Deaths in the place of every call that changes a file are in tests/faults."""

import os
import re
import shutil
import unittest

import check_home
from agent_home import DISK_SPACE, FEW, HEADING, AgentTest, Running, often, read, size, write

ROWS = "/dev/a 1000 250 750 25% /\n/dev/b 1000 500 500 50% /proc\n"
ROOM = "/dev/shm" if os.access("/dev/shm", os.W_OK) else "/tmp"


class CrashTest(AgentTest):
    def grown_home(self):
        """A home with a past: an archive, records, a rewritten declaration file."""
        home = self.home(inputs=FEW + (DISK_SPACE,), period=100, at=ROOM)
        home.stub_df(HEADING + ROWS)
        self.run_agent(home, "--cycles", 2)
        return home

    def copy_of(self, home):
        copy = self.home(at=ROOM)
        shutil.rmtree(copy.path)
        shutil.copytree(home.path, copy.path, symlinks=True)
        copy.stub_df(HEADING + ROWS)
        return copy


class C1_Killed(CrashTest):
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
            agent = self.running(home, clock="hurried")
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
            sections = re.split(rb"^(?=Event:)", content, flags=re.M)[1:]
            begun = [section for section in sections if not re.fullmatch(rb"[^\n]*\n\s*", section)]  # a heading alone says nothing
            torn = len(begun) - len(check_home.parse_scratch_pad(content))
            told = re.findall(r"(\d+) incomplete or contradicting records passed over", home.log())
            self.assertEqual(told, [str(torn)] if torn else [], f"the log says what was dropped of {content!r}")
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
