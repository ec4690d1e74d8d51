"""The table of faults in docs/reliability.md: every fault is there, with tests and mutants that exist, and the tests of a row are
those that its mutants make fail."""

import ast
import fnmatch
import json
import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
LAST = {"A": 10, "B": 5, "C": 3, "D": 5, "E": 5, "F": 8, "G": 11}


def rows():
    """Of each fault the names in the columns of its tests and of its mutants."""
    text = (ROOT / "docs" / "reliability.md").read_text()
    found = re.findall(r"^\| ([A-G]\d+) \| [^|]+ \| ([^|]+) \| ([^|]+) \|$", text, re.M)
    return [(code, re.findall(r"`([^`]+)`", shown), re.findall(r'"([^"]+)"', taken)) for code, shown, taken in found]


def read_tests():
    """Of each suite its tests, and of each name that a row may have the tests that it stands for."""
    suites, named = {}, {}
    for path in (ROOT / "tests").rglob("test_*.py"):
        tests = suites.setdefault(path.parent.name, set())
        for group in ast.parse(path.read_text()).body:
            if isinstance(group, ast.ClassDef):
                own = {one.name for one in group.body if isinstance(one, ast.FunctionDef) and one.name.startswith("test_")}
                tests |= own
                named[f"{path.stem}.{group.name}"] = own
                named.update((test, {test}) for test in own)
    for path in (ROOT / "tests").rglob("*Test.cpp"):
        own = {f"{group}.{name}" for group, name in re.findall(r"^TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\)", path.read_text(), re.M)}
        suites.setdefault(f"tests_{path.parent.name}", set()).update(own)
        named.update((test, {test}) for test in own)
    for path in (ROOT / "java" / "src" / "test").rglob("*Test.java"):
        own = {f"{path.stem}.{name}" for name in re.findall(r"void (\w+)\(", path.read_text())}
        suites.setdefault("junit", set()).update(own)
        named.update((test, {test}) for test in own)
    return suites, named


def taken_by(tests, suite, chosen):
    """Of the tests of a suite those that a mutant's filter takes."""
    if suite.startswith("tests_"):
        return {test for test in tests for pattern in chosen.split(":") if fnmatch.fnmatchcase(test, pattern)}
    if suite == "junit":
        chosen = chosen.replace("#", ".")
        return {test for test in tests if test == chosen or test.startswith(chosen + ".")}
    return {test for test in tests if chosen in test}


def filters_of(mutant):
    """As (suite, filter)."""
    tests = [mutant["test"]] if isinstance(mutant["test"], str) else mutant["test"]
    return [tuple(test.partition(":")[::2]) for test in tests]


class Matrix(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.suites, cls.named = read_tests()
        cls.mutants = {mutant["name"]: mutant for path in (ROOT / "tests" / "mutants").glob("*.json")
                       for mutant in json.loads(path.read_text())}

    def test_every_fault_has_one_row(self):
        self.assertEqual([code for code, *_ in rows()], [f"{letter}{n + 1}" for letter in LAST for n in range(LAST[letter])])

    def test_every_test_that_a_row_names_exists(self):
        self.assertGreater(len(self.named), 1000)
        self.assertEqual([(code, name) for code, tests, _ in rows() for name in tests if not self.named.get(name)], [])
        self.assertEqual([code for code, tests, _ in rows() if not tests], [])

    def test_every_mutant_that_a_row_names_exists(self):
        self.assertEqual([(code, name) for code, _, mutants in rows() for name in mutants if name not in self.mutants], [])
        self.assertEqual([code for code, _, mutants in rows() if not mutants], [])

    def test_every_mutant_of_a_row_makes_a_test_of_that_row_fail(self):
        for code, tests, mutants in rows():
            shown = set().union(*(self.named[name] for name in tests))
            for name in mutants:
                taken = [taken_by(self.suites[suite], suite, chosen) for suite, chosen in filters_of(self.mutants[name])]
                self.assertTrue(any(some and some <= shown for some in taken), f"{code}: \"{name}\" only fails {taken}")


if __name__ == "__main__":
    unittest.main()
