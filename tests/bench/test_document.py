"""What ./run-benchmarks makes of a document: its own parts anew, everything else as it was."""

import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "bench"))
from document import line, merged, part, table, with_part  # noqa: E402

TEXT = """# Title

written by hand <!-- begin elsewhere -->

<!-- begin table -->
| What | Ratio |
|---|---:|
| census | 0.37 |
| listing | 0.72 |
<!-- end table -->

more by hand
<!-- begin empty -->
<!-- end empty -->
"""


class Document(unittest.TestCase):
    def test_a_part_is_what_stands_between_its_marks(self):
        self.assertTrue(part(TEXT, "table").startswith("| What | Ratio |"))
        self.assertTrue(part(TEXT, "table").endswith("| listing | 0.72 |"))
        self.assertEqual(part(TEXT, "empty"), "")
        self.assertIsNone(part(TEXT, "missing"))

    def test_a_part_is_replaced_and_all_else_stays(self):
        changed = with_part(TEXT, "table", "new \\1 text")
        self.assertEqual(part(changed, "table"), "new \\1 text")
        self.assertEqual(changed.replace("new \\1 text", part(TEXT, "table")), TEXT)
        self.assertEqual(part(with_part(changed, "empty", "filled"), "table"), "new \\1 text")

    def test_a_part_that_the_document_does_not_have_is_no_reason_to_write_it_somewhere(self):
        with self.assertRaises(ValueError):
            with_part(TEXT, "missing", "text")

    def test_rows_that_were_not_measured_keep_their_line_in_the_order_of_all_rows(self):
        new = {"whole cycle": line(["whole cycle", "1.8"]), "listing": line(["listing", "0.60"])}
        lines = merged(part(TEXT, "table"), new, ["census", "whole cycle", "listing", "never measured"])
        self.assertEqual(lines, ["| census | 0.37 |", "| whole cycle | 1.8 |", "| listing | 0.60 |"])

    def test_rows_that_are_no_longer_known_go(self):
        self.assertEqual(merged(part(TEXT, "table"), {}, ["listing"]), ["| listing | 0.72 |"])

    def test_a_first_table_needs_no_old_one(self):
        self.assertEqual(merged(None, {}, ["a"]), [])
        self.assertEqual(merged("", {"a": "| a | 1 |"}, ["a"]), ["| a | 1 |"])
        self.assertEqual(table(["What", "Ratio"], ["| a | 1 |"]), "| What | Ratio |\n|---|---:|\n| a | 1 |")


if __name__ == "__main__":
    unittest.main()
