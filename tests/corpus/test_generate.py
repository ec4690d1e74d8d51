"""The corpus: its bytes, its homes, and that its truth is true of its archives."""

import hashlib
import json
import os
import statistics
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [HERE, os.path.join(os.path.dirname(HERE), "e2e")]
import check_home  # noqa: E402
from families import FAMILIES  # noqa: E402

FOLDERS = {}


def corpus(*arguments):
    """The folder of a corpus made with these arguments, made once."""
    if arguments not in FOLDERS:
        FOLDERS[arguments] = tempfile.TemporaryDirectory(prefix="lumetra-corpus-")
        generate(FOLDERS[arguments].name, *arguments)
    return FOLDERS[arguments].name


def generate(*arguments):
    subprocess.run([sys.executable, "-B", os.path.join(HERE, "generate"), *arguments], check=True)


def small(seeds="2"):
    return corpus("--days", "2", "--seeds", seeds)


class Home:
    """A home of a corpus, read without the code that wrote it."""

    def __init__(self, folder, family):
        self.path = os.path.join(folder, family)
        with open(os.path.join(self.path, "truth.json"), encoding="ascii") as file:
            self.truth = json.load(file)
        with open(os.path.join(self.path, "data", "LumetraArchive.txt"), encoding="ascii") as file:
            lines = [line.split() for line in file]
        self.stamps = [int(words[0]) for words in lines]
        self.lines = [dict(zip(map(int, words[1::3]), map(float, words[3::3]))) for words in lines]

    def resources(self):
        """Each resource's truth with its samples, (stamp, per cent)."""
        for resource in self.truth["resources"]:
            number = resource["id"]
            yield resource, [(stamp, line[number]) for stamp, line in zip(self.stamps, self.lines) if number in line]


def values(samples):
    return [value for _, value in samples]


def day_of(home):
    return 86400 // home.truth["periodSeconds"]


class Bytes(unittest.TestCase):
    def test_the_same_arguments_write_the_stored_bytes(self):
        with open(os.path.join(HERE, "checksums.sha256"), encoding="ascii") as file:
            expected = dict(reversed(line.split()) for line in file)
        found = {}
        for folder, _, names in os.walk(small()):
            for name in names:
                path = os.path.join(folder, name)
                with open(path, "rb") as file:
                    found[os.path.relpath(path, small())] = hashlib.sha256(file.read()).hexdigest()
        self.assertEqual(found, expected, "wanted otherwise? README.md says how the checksums are renewed")

    def test_every_seed_of_a_family_is_another_series(self):
        for family in FAMILIES:
            series = [values(samples) for folder in (small(), small("3-4")) for _, samples in Home(folder, family).resources()]
            self.assertEqual(len(series), 4)
            for one, other in zip(series, series[1:]):
                same = sum(a == b for a, b in zip(one, other))
                self.assertLess(same, len(one) / 2, family)

    def test_a_longer_recording_and_another_period_are_as_long_as_asked(self):
        home = Home(corpus("--days", "1.5", "--period", "300", "--seeds", "1", "--families", "noise,step"), "noise")
        self.assertEqual(home.stamps, list(range(home.truth["from"], home.truth["to"] + 1, 300)))
        self.assertEqual(len(home.stamps), 432)
        self.assertFalse(os.path.exists(os.path.join(home.path, "..", "late-leak")))

    def test_wrong_arguments_are_refused(self):
        for arguments in (["--days", "0.5"], ["--seeds", "0"], ["--seeds", "5-4"], ["--seeds", "100"], ["--families", "nonesuch"],
                          ["--period", "0"]):
            ended = subprocess.run([sys.executable, "-B", os.path.join(HERE, "generate"), small(), *arguments], capture_output=True)
            self.assertEqual(ended.returncode, 2, arguments)


class Homes(unittest.TestCase):
    def test_every_home_is_in_order(self):
        for family in FAMILIES:
            home = Home(small(), family)
            layout = check_home.Layout(home.path)
            problems = check_home.check(layout)
            if family == "clock-steps":  # its clock is set back once in two days
                self.assertEqual([problem.rpartition(" ")[0] for problem in problems], ["ARCH time runs back to"])
            else:
                self.assertEqual(problems, [], family)
            records = check_home.parse_scratch_pad(check_home.content(layout.scratch_pad))
            disks = {rid: name[2].decode() for name, rid in records if name[4] == -2}
            self.assertEqual(disks, {r["id"]: r["instance"] for r in home.truth["resources"]})
            declared = check_home.parse_declarations(check_home.content(layout.declarations))
            self.assertEqual(len(declared), 1)

    def test_the_configuration_says_the_period(self):
        home = Home(corpus("--days", "1.5", "--period", "300", "--seeds", "1", "--families", "noise,step"), "noise")
        with open(os.path.join(home.path, "config", "AutoConfig.ini"), encoding="ascii") as file:
            self.assertEqual(file.read().split()[5], "300000")


class Truth(unittest.TestCase):
    """All twenty seeds over fourteen days, by the ten minutes."""

    def homes(self):
        folder = corpus("--period", "600")
        return [Home(folder, family) for family in FAMILIES]

    def home(self, family):
        return Home(corpus("--period", "600"), family)

    def test_the_limit_is_reached_at_the_stored_moments_and_at_no_other(self):
        for home in self.homes():
            for resource, samples in home.resources():
                crossings = [stamp for (stamp, value), (_, before) in zip(samples[1:], samples) if value >= 99.95 > before]
                self.assertEqual(crossings, resource["reached"], (home.truth["family"], resource["seed"]))
                self.assertEqual(bool(crossings), resource["fills"], (home.truth["family"], resource["seed"]))

    def test_a_full_resource_is_full_to_the_hundredth_until_it_is_cleaned(self):
        for home in self.homes():
            for _, samples in home.resources():
                self.assertTrue(all(value == 100 or value < 99.95 for value in values(samples)), home.truth["family"])

    def test_what_never_fills_keeps_a_distance(self):
        for home in self.homes():
            for resource, samples in home.resources():
                if not resource["fills"]:
                    self.assertLess(max(values(samples)), 99.5, (home.truth["family"], resource["seed"]))
                self.assertGreaterEqual(min(values(samples)), 0)

    def test_what_is_to_fill_and_what_not(self):
        fills = {home.truth["family"]: {resource["fills"] for resource in home.truth["resources"]} for home in self.homes()}
        self.assertEqual({name for name, how in fills.items() if how == {True}},
                         {"steady-leak", "late-leak", "runaway", "accelerating", "daily-cycle-filling", "weekly-cycle-filling",
                          "rotation-growing"})
        self.assertEqual({name for name, how in fills.items() if how == {True, False}}, {"restart-gaps", "clock-steps"})

    def test_a_leak_is_a_straight_line(self):
        for resource, samples in self.home("steady-leak").resources():
            first, parameters = resource["reached"][0], resource["parameters"][0]
            begin, length = samples[0][0], first - samples[0][0]
            for stamp, value in samples:
                if stamp < first:
                    line = parameters["base"] + (100 - parameters["base"]) * (stamp - begin) / length
                    self.assertAlmostEqual(value, line, delta=7 * parameters["jitter"] + 1)

    def test_a_late_leak_is_flat_for_days(self):
        for resource, samples in self.home("late-leak").resources():
            parameters, day = resource["parameters"][0], day_of(self.home("late-leak"))
            flat = values(samples)[:int(len(samples) * parameters["flatShare"])]
            self.assertGreater(len(flat), 4 * day)
            self.assertLess(max(flat) - min(flat), 12 * parameters["jitter"])
            leak = resource["reached"][0] - samples[len(flat)][0]
            self.assertTrue(0.04 * 14 * 86400 <= leak <= 0.19 * 14 * 86400, leak)

    def test_a_runaway_needs_less_than_two_hours(self):
        for resource, samples in self.home("runaway").resources():
            first, parameters = resource["reached"][0], resource["parameters"][0]
            before = [value for stamp, value in samples if stamp < first - 7200]
            self.assertLess(max(before), parameters["base"] + 7 * parameters["jitter"])

    def test_an_accelerating_resource_gains_more_in_the_later_half(self):
        for resource, samples in self.home("accelerating").resources():
            rise = [value for stamp, value in samples if stamp <= resource["reached"][0]]
            half = rise[len(rise) // 2]
            self.assertGreater(rise[-1] - half, 2 * (half - rise[0]))

    def test_a_saturating_resource_stays_at_its_ceiling(self):
        for resource, samples in self.home("saturating").resources():
            parameters = resource["parameters"][0]
            self.assertLess(max(values(samples)), parameters["ceiling"] + 7 * parameters["jitter"])
            self.assertGreater(statistics.fmean(values(samples)[-20:]), parameters["ceiling"] - 1)

    def test_days_repeat_and_weeks_have_an_end(self):
        for family in ("daily-cycle", "weekly-cycle"):
            home = self.home(family)
            day = day_of(home)
            for resource, samples in home.resources():
                parameters, series = resource["parameters"][0], values(samples)
                repeat = day if family == "daily-cycle" else 7 * day
                self.assertLess(statistics.fmean(abs(a - b) for a, b in zip(series, series[repeat:])), 2 * parameters["jitter"])
                self.assertGreater(max(series[:day]) - min(series[:day]), 0.8 * parameters["height"])
                weekend = max(series[5 * day + day // 8:7 * day - day // 8]) - parameters["base"]
                if family == "weekly-cycle":
                    self.assertLess(weekend, 0.4 * parameters["height"] + 7 * parameters["jitter"])
                else:
                    self.assertGreater(weekend, 0.9 * parameters["height"])

    def test_weekends_come_and_go_by_and_by(self):
        home = self.home("weekly-cycle")
        for resource, samples in home.resources():
            parameters, series = resource["parameters"][0], values(samples)
            most = max(abs(a - b) for a, b in zip(series, series[1:]))
            self.assertLess(most, 0.08 * parameters["height"] + 8 * parameters["jitter"], resource["seed"])

    def test_growing_days_grow(self):
        for family in ("daily-cycle-growing", "weekly-cycle-growing"):
            home = self.home(family)
            week = 7 * day_of(home)
            for resource, samples in home.resources():
                series, growth = values(samples), resource["parameters"][0]["growth"]
                gain = statistics.fmean(series[week:]) - statistics.fmean(series[:week])
                self.assertAlmostEqual(gain, growth / 2, delta=0.1 * growth + 0.2)

    def test_logs_grow_and_are_rotated(self):
        home = self.home("rotation")
        for resource, samples in home.resources():
            series, parameters = values(samples), resource["parameters"][0]
            falls = [cycle for cycle, (a, b) in enumerate(zip(series, series[1:]), 1) if b < a - 0.5 * parameters["volume"]]
            interval = int(day_of(home) * parameters["rotationDays"])
            self.assertEqual(falls, list(range(interval, len(series), interval)), resource["seed"])

    def test_there_is_one_step_where_the_truth_says(self):
        for resource, samples in self.home("step").resources():
            moment, parameters = resource["steps"][0], resource["parameters"][0]
            self.assertEqual(len(resource["steps"]), 1)
            before = [value for stamp, value in samples if stamp <= moment]
            after = [value for stamp, value in samples if stamp > moment + 3600]
            self.assertLess(max(before), parameters["base"] + 7 * parameters["jitter"])
            self.assertAlmostEqual(statistics.fmean(after), parameters["base"] + parameters["height"], delta=0.2)

    def test_there_is_a_burst_every_night_and_nothing_by_day(self):
        home = self.home("nightly-burst")
        day = day_of(home)
        for resource, samples in home.resources():
            parameters, series = resource["parameters"][0], values(samples)
            for begin in range(0, len(series), day):
                night, rest = series[begin:begin + day * 9 // 24], series[begin + day * 9 // 24:begin + day]
                self.assertGreater(max(night), parameters["base"] + 0.5 * parameters["height"], resource["seed"])
                self.assertLess(max(rest), parameters["base"] + 7 * parameters["jitter"])

    def test_noise_knows_nothing_of_its_past_and_a_walk_does(self):
        for family, related in (("noise", False), ("reverting-walk", True)):
            for resource, samples in self.home(family).resources():
                series = values(samples)
                mean = statistics.fmean(series)
                correlation = sum((a - mean) * (b - mean) for a, b in zip(series, series[1:])) / sum((a - mean) ** 2 for a in series)
                self.assertEqual(correlation > 0.5, related, (family, resource["seed"], correlation))
                if not related:
                    self.assertLess(abs(correlation), 0.12)

    def test_a_walk_is_drawn_back(self):
        deviations = []
        for resource, samples in self.home("reverting-walk").resources():
            parameters = resource["parameters"][0]
            deviations.append(statistics.pstdev(values(samples)) / parameters["deviation"])
            self.assertLess(max(abs(value - parameters["mean"]) for value in values(samples)), 6 * parameters["deviation"])
        self.assertAlmostEqual(statistics.fmean(deviations), 1, delta=0.2)

    def test_a_drift_is_slow(self):
        day = day_of(self.home("slow-drift"))
        for resource, samples in self.home("slow-drift").resources():
            series = values(samples)
            gain = statistics.fmean(series[-day:]) - statistics.fmean(series[:day])
            self.assertAlmostEqual(gain, resource["parameters"][0]["growth"] * 13 / 14, delta=0.3)
            self.assertLess(gain, 10)

    def test_a_doubled_disk_shows_half(self):
        away = 0
        for resource, samples in self.home("resize").resources():
            self.assertTrue(resource["resizes"])
            for moment in resource["resizes"]:
                index = next(index for index, (stamp, _) in enumerate(samples) if stamp == moment)
                self.assertAlmostEqual(samples[index][1], samples[index - 1][1] / 2, delta=2, msg=resource["seed"])
                away += samples[index][0] - samples[index - 1][0] > 600
        self.assertGreater(away, 0, "no disk was unmounted meanwhile")

    def test_lines_are_missing_in_the_gaps_and_nowhere_else(self):
        home = self.home("restart-gaps")
        missing = [[a, b] for a, b in zip(home.stamps, home.stamps[1:]) if b - a != 600]
        self.assertEqual(missing, home.truth["gaps"])
        self.assertGreater(len(missing), 7)
        self.assertTrue(all(0 < b - a <= 6 * 3600 + 600 for a, b in missing))
        self.assertEqual([len(other.truth["gaps"]) for other in self.homes() if other.truth["family"] != "restart-gaps"], [0] * 20)

    def test_the_clock_is_set_forward_and_back(self):
        home = self.home("clock-steps")
        steps = [[a, b] for a, b in zip(home.stamps, home.stamps[1:]) if b - a != 600]
        self.assertEqual(steps, home.truth["clockSteps"])
        sizes = [b - a - 600 for a, b in steps]
        self.assertGreater(len(sizes), 7)
        self.assertTrue(all(10 <= abs(size) <= 7200 and a * b < 0 for a, b, size in zip(sizes, sizes[1:], sizes)), sizes)
        self.assertLess(min(b - a for a, b in steps), 0, "no stamp lies before its predecessor")


if __name__ == "__main__":
    unittest.main()
