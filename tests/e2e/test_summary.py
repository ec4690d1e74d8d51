"""What the summary of a test run says of a failure."""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest
from xml.sax.saxutils import quoteattr

PROJECT = pathlib.Path(__file__).resolve().parents[2]


class Summary(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="lumetra-summary-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.tests = []

    @staticmethod
    def document(cases):
        return "<testsuites><testsuite>" + "".join(cases) + "</testsuite></testsuites>"

    def failed(self, name, *cases, file=None):
        """A test of CTest's that failed, and the XML that it left of its cases: group, title and whether it failed."""
        self.tests.append(f"<testcase name={quoteattr(name)} status='fail' time='1'><system-out>said</system-out></testcase>")
        if cases:
            path = self.folder / (file or f"{name}.xml")
            path.parent.mkdir(exist_ok=True)
            path.write_text(self.document(
                f"<testcase classname={quoteattr(group)} name={quoteattr(title)}>" + ("<failure message='no'/>" if bad else "") + "</testcase>"
                for group, title, bad in cases))

    def summary(self, **environment):
        (self.folder / "ctest.xml").write_text(self.document(self.tests))
        given = {name: value for name, value in os.environ.items() if name != "LUMETRA_LONG"}
        done = subprocess.run([sys.executable, PROJECT / "scripts" / "summarise-tests", self.folder], stdout=subprocess.PIPE, text=True,
                              env={**given, **environment}, check=False)
        self.assertEqual(done.returncode, 1)
        return done.stdout

    def repeats(self, **environment):
        begin = "-- to repeat it: "
        return [line.removeprefix(begin) for line in self.summary(**environment).splitlines() if line.startswith(begin)]

    def test_of_python_the_cases_that_failed_are_repeated(self):
        self.failed("e2e.entry", ("tests.e2e.test_entry.Entry", "test_usage", True), ("tests.e2e.test_entry.Entry", "test_other", False))
        self.assertEqual(self.repeats(), [r"PYTEST_ADDOPTS='-k test_usage' ctest --test-dir build -R '^e2e\.entry$' --output-on-failure"])

    def test_several_cases_of_python_are_repeated_by_one_command(self):
        self.failed("e2e.entry", ("E", "test_b", True), ("E", "test_a", True))
        command, = self.repeats()
        echoed = subprocess.run(["sh", "-c", command.replace(" ctest", " sh -c 'printf %s \"$PYTEST_ADDOPTS\"' #")],
                                stdout=subprocess.PIPE, text=True, check=True)
        self.assertEqual(echoed.stdout, "-k 'test_a or test_b'")

    def test_of_java_each_method_that_failed_is_repeated_once(self):
        self.failed("java.units", ("com.x.text.WordsTest", "ofBytes()", True), ("com.x.http.WebServerTest", "isRefused(String)[2]", True),
                    ("com.x.http.WebServerTest", "isRefused(String)[3]", True), ("com.x.text.WordsTest", "other()", False),
                    file="java.units/TEST-junit-jupiter.xml")
        self.assertEqual(self.repeats(), ["scripts/junit 'WebServerTest#isRefused'", "scripts/junit 'WordsTest#ofBytes'"])

    def test_of_java_where_too_much_failed_all_is_repeated(self):
        self.failed("java.units", *[("com.x.ATest", f"test{i}()", True) for i in range(11)], file="java.units/TEST-junit-jupiter.xml")
        self.assertEqual(self.repeats(), [r"ctest --test-dir build -R '^java\.units$' --output-on-failure"])

    def test_of_the_page_the_cases_that_failed_are_repeated(self):
        self.failed("web.overview", ("test", "is told (soon), and it's &quot;known&quot;", True), ("test", "another", False))
        command, = self.repeats()
        words = subprocess.run(["sh", "-c", f"printf '%s\\n' {command}"], stdout=subprocess.PIPE, text=True, check=True).stdout.splitlines()
        self.assertEqual(words, ["node", "--test", r"""--test-name-pattern=is told \(soon\), and it's "known"$""",
                                 "tests/web/overview.test.mjs"])

    def test_of_the_numbers_the_cases_that_failed_are_repeated(self):
        self.failed("numbers.reference", ("Median", "OfTwo", True), ("Fit", "OfOne", True))
        self.assertEqual(self.repeats(), [r"GTEST_FILTER=Median.OfTwo:Fit.OfOne ctest --test-dir build -R '^numbers\.reference$' "
                                          "--output-on-failure"])

    def test_what_left_no_failed_case_is_repeated_whole(self):
        self.failed("debug.Getdays.OfNothing")
        self.failed("e2e.crashes", ("E", "test_a", False))
        self.failed("e2e.storage", ("", "tests.e2e.test_storage", True))
        self.assertEqual(self.repeats(), [rf"ctest --test-dir build -R '^{name}$' --output-on-failure"
                                          for name in (r"debug\.Getdays\.OfNothing", r"e2e\.crashes", r"e2e\.storage")])

    def test_in_the_long_tier_it_is_repeated_as_that_runs_it(self):
        self.failed("java.units", ("com.x.text.WordsTest", "ofBytes()", True), file="java.units/TEST.xml")
        self.failed("e2e.entry", ("E", "test_usage", True))
        self.failed("debug.Getdays.OfNothing")
        self.assertEqual([command.split()[0] for command in self.repeats(LUMETRA_LONG="1")], ["LUMETRA_LONG=1"] * 3)

    def test_what_failed_is_counted(self):
        self.failed("e2e.entry", ("E", "test_usage", True), ("E", "test_other", False))
        self.assertEqual(self.summary().splitlines()[-1], "1 passed, 1 failed")


if __name__ == "__main__":
    unittest.main()
