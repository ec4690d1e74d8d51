"""The checker itself: it must notice each kind of damage, or the fault tests prove nothing."""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest

import check_home
from agent_home import FEW, Home, declarations_text, write

RECORD = "\nEvent: ResourceDefinition - Informational \n1   {}   ({})   (_Total)   ({})   -2   \n"
PROCESSES, DESCRIPTORS = "PercentProcessesUsed", "PercentFileDescriptorsUsed"


class Checking(unittest.TestCase):
    def setUp(self):
        self.home = Home()
        self.addCleanup(self.home.remove)
        write(self.home.layout.archive, "1000 1 0 0.50 2 0 1.25 \n1010 1 0 0.50 2 0 1.25 \n")
        write(self.home.layout.scratch_pad, RECORD.format(1, PROCESSES, PROCESSES) + RECORD.format(2, DESCRIPTORS, DESCRIPTORS))
        write(self.home.layout.log, "a log\n")
        self.before = self.home.snapshot()

    def problems(self, **how):
        return [problem.split()[0] for problem in check_home.check(self.home.layout, before=self.before, **how)]

    def replace(self, name, old, new):
        path = self.home.layout.files()[name]
        text = check_home.content(path).decode("latin-1")
        self.assertIn(old, text)
        write(path, text.replace(old, new, 1))

    def append(self, name, text):
        with open(self.home.layout.files()[name], "a", encoding="latin-1") as file:
            file.write(text)

    def test_a_home_in_order_has_no_problems(self):
        self.assertEqual(self.problems(), [])
        self.append("archive", "1020 1 0 0.50 2 0 1.25 \n")
        self.assertEqual(self.problems(), [])

    def test_archive_damage_is_noticed(self):
        for line in ("1020 1 0 0.5 \n", "1020 1 1 0.50 \n", "1020 1 0 0,50 \n", "1020 1 0 0.50\n", "1020 1 0 nan \n", "x\n",
                     "1020 1 0 0.50 "):
            self.append("archive", line)
            self.assertEqual(self.problems(), ["ARCH"], line)
            write(self.home.layout.archive, self.before["archive"])
        self.append("archive", "1020 1 0 0.50 1 0 0.50 \n")
        self.assertEqual(self.problems(), ["RID"])

    def test_changed_and_lost_lines_are_noticed(self):
        self.replace("archive", "1000 1 0 0.50", "1000 1 0 0.51")
        self.assertIn("ARCH", self.problems())
        write(self.home.layout.archive, "1010 1 0 0.50 2 0 1.25 \n1020 1 0 0.50 2 0 1.25 \n")
        self.assertIn("ARCH", self.problems())
        self.assertEqual(self.problems(trimmed=True), [])
        write(self.home.layout.archive, "1000 1 0 0.50 2 0 1.25 \n1020 1 0 0.50 2 0 1.25 \n")
        self.assertIn("ARCH", self.problems(trimmed=True))
        os.unlink(self.home.layout.archive)
        self.assertIn("ARCH", self.problems(trimmed=True))

    def test_declaration_damage_is_noticed(self):
        for change in (("UpperLimitAbs 0.0", "UpperLimitAbs 1.0"), ("EndResourceDeclaration", ""),
                       ("FindInstance (_Total)", "FindInstance (other)")):
            self.replace("declarations", *change)
            if change[1]:
                self.assertEqual(self.problems(), ["DECL"], change)
            write(self.home.layout.declarations, self.before["declarations"])
        write(self.home.layout.declarations, declarations_text(FEW[:1]))
        self.assertEqual(self.problems(), ["DECL"])
        write(self.home.layout.declarations, "")
        self.assertEqual(self.problems(), ["DECL"])
        write(self.home.layout.declarations, "/** Updated on x **/\n" + declarations_text(FEW)[:-5])
        self.assertEqual(self.problems(), ["DECL"])
        os.unlink(self.home.layout.declarations)
        self.assertEqual(self.problems(), ["DECL"])

    def test_number_mix_ups_are_noticed(self):
        self.append("scratch pad", RECORD.format(2, "Other", "Other"))
        self.assertEqual(self.problems(), ["RID"])
        write(self.home.layout.scratch_pad, self.before["scratch pad"])
        self.append("scratch pad", RECORD.format(3, PROCESSES, PROCESSES))
        self.assertEqual(self.problems(), ["RID"])
        write(self.home.layout.scratch_pad, RECORD.format(1, PROCESSES, PROCESSES))
        self.assertIn("RID", self.problems())

    def test_a_sample_of_an_unrecorded_number_is_noticed(self):
        self.append("archive", "1020 7 0 0.50 \n")
        self.assertEqual(self.problems(), ["RID"])
        self.assertEqual(self.problems(scratch_pad_lossy=True), [])

    def test_a_torn_last_record_is_no_record(self):
        self.append("scratch pad", RECORD.format(2, "Other", "Other")[:-6])
        self.assertEqual(self.problems(), [])

    def test_log_and_left_over_files_are_noticed(self):
        write(self.home.layout.log, "a\0b")
        self.assertEqual(self.problems(), ["LOG"])
        write(self.home.layout.log, "x" * (check_home.LOG_LIMIT + 1))
        self.assertEqual(self.problems(), ["LOG"])
        write(self.home.layout.log, "")
        for path, code in ((self.home.at("bin", "temp"), "ARCH"), (self.home.at("config", ".lumetra-0123456789abcdef"), "SIDE"),
                           (self.home.at("data", "xBMSMP.gnp"), "TREND"), (self.home.at("data", "x.cul"), "TREND"), (self.home.layout.log + ".2", "LOG")):
            write(path, "")
            self.assertEqual(self.problems(), [code], path)
            os.unlink(path)

    def test_half_trend_and_culprit_files_are_noticed_after_a_death_too(self):
        headlines = ("12.35 hours to exhaustion, hinge regression, notif level=87.50",
                     "no exhaustion within horizon, linear regression, notif level=-1.00")
        curves = ("'../data/xBMPRD.gnp' with lines, '../data/xBMSMP.gnp' with linespoints",
                  '"../data/\\170BMPRD.gnp" with lines, "../data/xBMSMP.gnp" with linespoints')
        whole = [("xBM.ini", f"limit(x) = 1.000000e+02\n set label '@ 1700000000, {headline}' at graph .1,.5\nshow label\n"
                             f"plot {plotted}, limit(x)") for headline in headlines for plotted in curves]
        line = "1.000000 -2.500000 \n"
        whole += [("xBMPRD.gnp", 200 * line), ("xBMSMP.gnp", 3 * line),
                  ("x.cul", "Top Consumers of FDs:\n\t(a) b) \tPID 7 \t#FDs 12\n\t() \tPID 8 \t#FDs 0\n"),
                  ("x.cul", "Top Consumers of Memory (Resident Set Size):\n\t(a) \tPID 7 \tRSS 210 MB\n"),
                  ("x.cul", "Top Consumers of Child Processes:\n\t(a) \tPID 7 \tChildren 2\n")]
        for name, text in whole:
            path = self.home.at("data", name)
            for length in (*range(0, len(text), 1 + len(text) // 60), len(text) - 1, len(text)):
                if text[length - 1:length] == "\n" and not name.endswith("PRD.gnp") or length == 0 and name != "xBM.ini":
                    continue  # whole lines
                write(path, text[:length])
                self.assertEqual(self.problems(killed=True), [] if length == len(text) else ["TREND"], (name, text[:length]))
            os.unlink(path)
        damaged = [("xBM.ini", whole[0][1] + "\n"), ("yBM.ini", whole[0][1]), ("xBM.ini", ""), ("xBMPRD.gnp", 199 * line),
                   ("xBMPRD.gnp", ""), ("xBMSMP.gnp", "1.000000 -2.500000\n"), ("xBMSMP.gnp", "1,000000 2,500000 \n"),
                   ("x.cul", "Top Consumers of FDs:\n\t(a) \tPID 7 \tRSS 210 MB\n"), ("x.cul", "\n"),
                   ("x.cul", "Top Consumers of FDs:\n" + 11 * "\t(a) \tPID 7 \t#FDs 1\n")]
        for name, text in damaged:
            write(self.home.at("data", name), text)
            self.assertEqual(self.problems(killed=True), ["TREND"], (name, text))
            os.unlink(self.home.at("data", name))

    def test_damaged_records_are_noticed(self):
        events, line = self.home.layout.records()["events"], '{"type": "start"}\n'
        write(events, line)
        self.assertEqual(self.problems(), [])
        self.before = self.home.snapshot()
        for text, expected in ((line + line, []), (line + '{"type": "st', ["EVT"]), (line + '{"ty\n' + line, ["EVT"]),
                               (line + "[]\n", ["EVT"]),
                               (line + '{"\xe4": 1}\n', ["EVT"]), ('{"type": "stop"}\n', ["EVT"]), ("", ["EVT"])):
            write(events, text)
            self.assertEqual(self.problems(), expected, text)
        write(events, line + '{"type": "st')
        self.assertEqual(self.problems(killed=True), [])
        self.before = self.home.snapshot()
        write(events, line + '{"type": "st\n' + line)
        self.assertEqual(self.problems(), [], "the torn line was ended")
        write(events, line + '{"type": "st' + line)
        self.assertEqual(self.problems(), ["EVT"], "the torn line has merged with the next")
        os.rename(events, events + ".1")
        write(events, line)
        write(events + ".1", line + '{"type": "st\n')
        self.assertEqual(self.problems(), [], "the file has turned over")
        os.unlink(events)
        self.assertEqual(self.problems(), ["EVT"])

    def test_the_command_tells_the_same(self):
        program = os.path.abspath(check_home.__file__)
        with tempfile.TemporaryDirectory() as copy:
            shutil.copytree(self.home.path, copy, dirs_exist_ok=True)
            command = [sys.executable, program, self.home.path, "--before", copy]
            self.assertEqual(subprocess.run(command, capture_output=True).returncode, 0)
            self.append("archive", "torn")
            done = subprocess.run(command, capture_output=True, text=True)
            self.assertEqual(done.returncode, 1)
            self.assertTrue(done.stdout.startswith("ARCH torn last line"))


if __name__ == "__main__":
    unittest.main()
