"""The table of faults in docs/reliability.md: every fault is there, with tests and mutants that exist."""

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


class Matrix(unittest.TestCase):
    def test_every_fault_has_one_row(self):
        self.assertEqual([code for code, *_ in rows()], [f"{letter}{n + 1}" for letter in LAST for n in range(LAST[letter])])

    def test_every_test_that_a_row_names_exists(self):
        names = set()
        for path in (ROOT / "tests").rglob("test_*.py"):
            text = path.read_text()
            names |= {f"{path.stem}.{name}" for name in re.findall(r"^class (\w+)", text, re.M)}
            names |= set(re.findall(r"def (test_\w+)", text))
        for path in (ROOT / "tests").rglob("*Test.cpp"):
            names |= {f"{suite}.{name}" for suite, name in re.findall(r"^TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\)", path.read_text(), re.M)}
        names |= {f"{path.stem}.{name}" for path in (ROOT / "java" / "src" / "test").rglob("*Test.java")
                  for name in re.findall(r"void (\w+)\(", path.read_text())}
        self.assertGreater(len(names), 1000)
        self.assertEqual([(code, name) for code, tests, _ in rows() for name in tests if name not in names], [])
        self.assertEqual([code for code, tests, _ in rows() if not tests], [])

    def test_every_mutant_that_a_row_names_exists(self):
        names = {mutant["name"] for path in (ROOT / "tests" / "mutants").glob("*.json") for mutant in json.loads(path.read_text())}
        self.assertEqual([(code, name) for code, _, mutants in rows() for name in mutants if name not in names], [])
        self.assertEqual([code for code, _, mutants in rows() if not mutants], [])


if __name__ == "__main__":
    unittest.main()
