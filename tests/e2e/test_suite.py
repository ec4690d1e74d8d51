"""What the tests themselves must not do to each other."""

import os
import subprocess
import sys
import unittest
from unittest import mock

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
from suite import await_end, end_group, has_ended, wait_until  # noqa: E402


class EndsOfPrograms(unittest.TestCase):
    @staticmethod
    def leader(script):
        return subprocess.Popen(["sh", "-c", script], stdout=subprocess.PIPE, text=True, start_new_session=True)

    def test_nobody_is_killed_by_a_number_that_may_be_anothers_by_now(self):
        with self.leader("exit 3") as process:
            self.assertTrue(await_end(process))
            self.assertTrue(has_ended(process))
            end_group(process)
            self.assertEqual(process.returncode, 3)
            with mock.patch("os.killpg") as kill:
                end_group(process)
            kill.assert_not_called()

    def test_what_a_program_left_in_its_group_ends_with_it(self):
        with self.leader("sleep 100000 >/dev/null & echo $!") as process:
            left = process.stdout.readline().strip()
            self.assertTrue(await_end(process))
            self.assertTrue(os.path.exists(f"/proc/{left}"))
            end_group(process)
            self.assertEqual(process.returncode, 0)

            def has_gone():
                try:
                    with open(f"/proc/{left}/stat", encoding="ascii") as file:
                        return file.read().split()[2] == "Z"
                except (FileNotFoundError, ProcessLookupError):
                    return True

            wait_until(has_gone)


if __name__ == "__main__":
    unittest.main()
