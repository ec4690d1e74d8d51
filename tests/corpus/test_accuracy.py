"""The scores behind docs/accuracy.md, by replays made by hand, and the page and its pictures."""

import copy
import gzip
import importlib.machinery
import importlib.util
import json
import os
import re
import subprocess
import sys
import tempfile
import unittest
import unittest.mock
import xml.etree.ElementTree as ElementTree

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
import pictures  # noqa: E402
import report  # noqa: E402
from scores import EVENT, HOUR, MARKS, ONSET, RULES, WEEK, Score, beats, best_settings, disagreements, score_of, scores_of  # noqa: E402

LINE = RULES[2]
THRESHOLD = RULES[5]
NOW = 1_770_000_000
NOTHING = dict.fromkeys(MARKS)


def episode(onset, end, outcome="levelledOff", event=None, **errors):
    """Hours since NOW; `errors` as h24=1.5."""
    def at(value):
        return None if value is None else NOW + round(value * HOUR)
    return {"onset": at(onset), "firstEvent": at(event), "end": at(end), "outcome": outcome, "announcedAtOnset": None,
            "announcedAtEvent": None, "errorsHours": {**NOTHING, **{name[1:]: value for name, value in errors.items()}}}


def resource(episodes, reached=(), weeks=2.0, number=3, **others):
    """A resource of a replay; `others`: the episodes of further rules."""
    rules = [{"rule": name, "onsets": len(these), "events": 0, "episodes": these} for name, these in {"agent": episodes, **others}.items()]
    return {"id": number, "resource": "PercentFreeSpaceUsed", "instance": "/dev/s01 /s01", "reached": [NOW + round(one * HOUR) for one in reached],
            "rules": rules, "models": {"simple linear regression": 3, "hinge regression": 1, "hinge regression on log": 0}, "samples": 20160, "observedSeconds": weeks * WEEK}


def replay(*resources, last=14 * 24, farthest=48):
    return {"complete": True, "settings": {"periodSeconds": 60.0, "minForecastHours": 0, "maxForecastHours": farthest, "every": 1},
            "from": NOW, "to": NOW + last * HOUR, "cycles": 20160, "forecasts": 20000, "damage": [], "resources": list(resources), "timeline": []}


def agent(*episodes, reached=(), rule=ONSET, **how):
    return score_of(rule, resource(list(episodes), reached), how.get("horizon", 48) * HOUR, NOW + how.get("last", 14 * 24) * HOUR)


class Scoring(unittest.TestCase):
    def test_an_alarm_that_stands_at_the_limit_found_it(self):
        score = agent(episode(10, 30, "reached", event=26), reached=[30])
        self.assertEqual((score.found, score.reached, score.leads, score.false), (1, 1, [20.0], 0))

    def test_the_event_is_an_alarm_of_its_own(self):
        with_event = agent(episode(10, 30, "reached", event=26), reached=[30], rule=EVENT)
        without = agent(episode(10, 30, "reached"), reached=[30], rule=EVENT)
        self.assertEqual((with_event.leads, with_event.alarms), ([4.0], 1))
        self.assertEqual((without.leads, without.alarms, without.reached), ([], 0, 1))

    def test_an_alarm_that_begins_at_the_limit_or_later_found_nothing(self):
        for onset in (30, 30.1):
            self.assertEqual(agent(episode(onset, 40), reached=[30]).found, 0)
        self.assertEqual(agent(episode(29.9, None), reached=[30]).found, 1)

    def test_an_alarm_that_ended_before_the_limit_is_withdrawn_and_not_false(self):
        score = agent(episode(10, 20), reached=[30])
        self.assertEqual((score.found, score.withdrawn, score.false), (0, 1, 0))

    def test_an_alarm_is_false_when_the_limit_is_farther_than_it_looks(self):
        for reached, false in ([58], 0), ([58.1], 1), ([], 1):
            score = agent(episode(10, 20), reached=reached)
            self.assertEqual((score.false, score.withdrawn), (false, 1 - false), reached)
        self.assertEqual(agent(episode(10, 20), reached=[58.1], horizon=168).false, 0)

    def test_an_alarm_that_is_on_at_the_end_is_undecided_unless_its_time_is_over(self):
        self.assertEqual(agent(episode(14 * 24 - 47, None, "open")).undecided, 1)
        over = agent(episode(14 * 24 - 49, None, "open"))
        self.assertEqual((over.undecided, over.false), (0, 1))

    def test_each_reaching_counts_once(self):
        score = agent(episode(10, 30, "reached"), episode(74, 90, "reached"), reached=[30, 90, 130])
        self.assertEqual((score.found, score.reached, score.median_lead, score.worst_lead), (2, 3, 18.0, 16.0))

    def test_an_alarm_in_the_last_hour_is_found_late(self):
        score = agent(episode(29.1, 30, "reached"), episode(69, 70, "reached"), reached=[30, 70])
        self.assertEqual((score.found, score.found_an_hour_before), (2, 1))

    def test_an_alarm_that_stands_through_two_reachings_found_the_first(self):
        self.assertEqual(agent(episode(10, 100), reached=[30, 90]).leads, [20.0])

    def test_false_alarms_are_counted_by_the_week_of_one_resource(self):
        one, other = agent(episode(10, 11), episode(20, 21), episode(30, 31)), agent()
        self.assertEqual((one.false_a_week, (one + other).false_a_week), (1.5, 0.75))

    def test_errors_have_no_sign_and_gaps_stay_gaps(self):
        score = agent(episode(10, 30, "reached", h12=-2.5, h6=1.0), episode(70, 90, "reached", h12=0.5), reached=[30, 90])
        self.assertEqual((score.median_error("12"), score.worst_error("12"), score.median_error("6")), (1.5, 2.5, 1.0))
        open_one = agent(episode(10, None, "open", h12=0.0), reached=[])
        self.assertEqual(open_one.errors["12"], [], "an error of an alarm whose limit was not reached")
        self.assertIsNone(score.median_error("24"))
        self.assertIsNone(score.worst_error("24"))

    def test_sums_hold_everything(self):
        one = agent(episode(10, 30, "reached", h1=0.1), episode(50, 51), reached=[30])
        both = one + agent(episode(10, 20), episode(14 * 24 - 1, None, "open"), reached=[30])
        self.assertEqual((both.reached, both.found, both.alarms, both.false, both.withdrawn, both.undecided, both.weeks),
                         (2, 1, 4, 1, 1, 1, 4.0))
        self.assertEqual(both.errors["1"], [0.1])
        self.assertEqual((one.reached, one.alarms), (1, 2), "a sum changed its part")

    def test_what_never_happened_has_no_number(self):
        score = Score()
        self.assertEqual((score.share, score.median_lead, score.worst_lead, score.false_a_week), (None, None, None, 0.0))

    def test_the_farthest_forecast_of_the_replay_is_how_far_an_alarm_looks(self):
        for farthest, false in (48, 1), (168, 0):
            told = replay(resource([episode(10, 20)], [110]), farthest=farthest)
            self.assertEqual(scores_of(told)[ONSET].false, false)

    def test_only_the_rules_of_the_replay_are_scored(self):
        self.assertEqual(set(scores_of(replay(resource([])))), {ONSET, EVENT})
        self.assertEqual(set(scores_of(replay(resource([], line6h24h=[])))), {ONSET, EVENT, LINE})

    def test_another_truth_is_noticed(self):
        truth = {"family": "noise", "resources": [{"id": 3, "reached": [NOW]}]}
        self.assertEqual(disagreements(replay(resource([], [0])), truth), [])
        self.assertEqual(len(disagreements(replay(resource([], [1])), truth)), 1)
        self.assertEqual(len(disagreements(replay(resource([], [0]), resource([], number=4)), truth)), 1)


def leads(*hours, false=0, reached=10):
    score = Score()
    score.leads, score.false, score.reached, score.weeks = list(hours), false, reached, 1.0
    return score


class Comparing(unittest.TestCase):
    def found_beaten(self, event, line, threshold):
        scores = {ONSET: leads(99, 99, 99), EVENT: event, LINE: line, THRESHOLD: threshold}
        return [(one.measure, one.ours, one.theirs, one.better) for one in beats("noise", scores)]

    def test_more_found_beats(self):
        self.assertEqual(self.found_beaten(leads(5), leads(4, 4), leads(1)), [("found", 1, {LINE: 2, THRESHOLD: 1}, {LINE})])

    def test_earlier_beats_only_with_as_many_found(self):
        self.assertEqual(self.found_beaten(leads(5, 5), leads(6, 6), leads(9)), [("lead", 5, {LINE: 6, THRESHOLD: 9}, {LINE})])

    def test_calmer_beats_only_with_as_many_found(self):
        self.assertEqual(self.found_beaten(leads(5, 5, false=3), leads(5, 5, false=2), leads(1, false=0)),
                         [("false", 3, {LINE: 2, THRESHOLD: 0}, {LINE})])

    def test_several_may_beat_in_one_measure(self):
        self.assertEqual(self.found_beaten(leads(5), leads(6), leads(7)), [("lead", 5, {LINE: 6, THRESHOLD: 7}, {LINE, THRESHOLD})])

    def test_the_agents_own_onset_is_no_other_rule(self):
        self.assertEqual(self.found_beaten(leads(5, 5), leads(5), leads(5)), [])

    def test_the_best_settings_find_more_then_are_calmer_then_earlier_then_have_fewer_false_onsets(self):
        def best(*rows):
            return best_settings([(name, {EVENT: event, ONSET: onset}) for name, event, onset in rows])[0]
        plain, onset = leads(5, 5, 5, false=1), leads(9, false=5)
        self.assertEqual(best(("plain", plain, onset), ("more", leads(1, 1, 1, 1, false=9), onset), ("calm", leads(false=0), onset)), "more")
        self.assertEqual(best(("plain", plain, onset), ("calm", leads(4, 4, 4, false=0), onset)), "calm")
        self.assertEqual(best(("plain", plain, onset), ("hardly calmer", leads(1, 1, 1, false=0.9), onset)), "plain")
        self.assertEqual(best(("plain", plain, onset), ("earlier", leads(8, 8, 8, false=1), onset)), "earlier")
        self.assertEqual(best(("plain", plain, onset), ("hardly earlier", leads(5.1, 5.1, 5.1, false=1), leads(9, false=6))), "plain")
        self.assertEqual(best(("plain", plain, onset), ("quiet", leads(4.9, 4.9, 4.9, false=1), leads(9, false=4))), "quiet")
        self.assertEqual(best(("plain", plain, onset), ("same", copy.deepcopy(plain), onset)), "plain")
        self.assertEqual(best(("never", leads(reached=1000), onset), ("once", leads(5, reached=1000), onset)), "once")
        self.assertEqual(best(("silent", leads(reached=0), onset), ("same", leads(reached=0), onset)), "silent")


def results():
    made = report.Results()
    leak = resource([episode(10, 30, "reached", event=26, h12=-2.5)], [30], line6h24h=[episode(20, 30, "reached", h12=1)],
                    threshold90=[episode(29, 33)])
    calm = resource([episode(10, 11, event=10.5)], line6h24h=[], threshold90=[])
    made.replays = {"late-leak": replay(leak), "noise": replay(calm)}
    for name, found in (("late-leak", leak), ("noise", calm)):
        longer = replay(found, farthest=168)
        made.sweeps[name] = [replay(found), longer]
    return made


class Page(unittest.TestCase):
    def test_numbers_are_rounded_to_what_they_tell(self):
        self.assertEqual([report.hours(value) for value in (None, 0.5, 0.994, 1, 9.94, 12.4)],
                         ["–", "30 min", "60 min", "1.0 h", "9.9 h", "12 h"])

    def test_settings_are_named_by_the_period_and_the_hours(self):
        settings = {"periodSeconds": 0.5, "minForecastHours": 1, "maxForecastHours": 48, "every": 5}
        self.assertEqual(report.settings_words(settings), "0.5 s, 1 to 48 h")

    def test_the_page_says_what_was_measured(self):
        text = report.document(results(), {"accuracy-rules.svg": ""}, " --seeds 1", "generate --few")
        self.assertIn("Of 1 times that a resource of the corpus reached its limit the agent's event had announced **1** (100 %)", text)
        self.assertIn("half of them more than **4.0 h** before", text)
        self.assertIn("It raised **0.25** false", text)
        self.assertIn("2 families, 2 resources, 40,320 cycles and 40,000 forecasts; made with `tests/corpus/accuracy --seeds 1`.", text)
        self.assertIn("| line 6 h, 24 h rule | 1 of 1 | 1 | 10 h | 10 h | 0.00 | 1 | 0 | 0 |", text)
        self.assertIn("| `late-leak` | – | 2.5 h (2.5 h), 1 | – | – | – |", text)
        self.assertIn("| `late-leak` | median lead | 4.0 h | **10 h** | 1.0 h |", text)
        self.assertIn("| `noise` | false alarms a week | 0.50 | **0.00** | **0.00** |", text)
        self.assertIn("simple linear regression 75.0 %, hinge regression 25.0 %.", text)
        self.assertIn("images/accuracy-rules.svg", text)
        self.assertNotIn("images/accuracy-leads.svg", text)

    def test_a_false_alarm_of_the_shipped_settings_may_be_right_of_others(self):
        text = report.document(results(), {}, "", "generate --few")
        self.assertIn("**Best with a sample a minute or fewer: 60 s, 0 to 48 h**: found 1 of 1, median lead 4.0 h, 0.00 false events a week.",
                      text)
        self.assertIn("| 60 s, 0 to 168 h | 1 of 1 | 4.0 h | 0.00 | 1 of 1 | 20 h | 0.00 |", text)
        things = text[text.index("### Things that run away"):]
        self.assertIn("**Best with a sample a minute or fewer: 60 s, 0 to 48 h**: 0.50 false events a week.", things)

    def test_finer_recordings_have_a_table_of_their_own(self):
        made = results()
        self.assertNotIn("finer recordings**", report.settings_section(made))
        finer = replay(resource([]))
        finer["settings"]["periodSeconds"] = 10.0
        made.fine = {"noise": [*made.sweeps["noise"][:1], finer]}
        text = report.settings_section(made)
        self.assertIn("**Best with shorter periods, over the finer recordings: 10 s, 0 to 48 h**: 0.00 false events a week.", text)
        self.assertEqual(text.count("Best with shorter periods"), 1)
        self.assertIn("| **10 s, 0 to 48 h** | – | – | 0.00 | – | – | 0.00 |", text)

    def test_a_sweep_adds_up_its_families(self):
        rows = report.swept(results().sweeps, ["late-leak", "noise", "step"])
        self.assertEqual([(report.settings_words(settings), scores[EVENT].found, scores[EVENT].false, scores[EVENT].weeks)
                          for settings, scores in rows], [("60 s, 0 to 48 h", 1, 1, 4.0), ("60 s, 0 to 168 h", 1, 1, 4.0)])

    def test_the_shipped_period_is_told_of_first(self):
        made = results()
        self.assertEqual(report.shipped_sentence(made), "")
        shipped = replay(resource([episode(10, 30, "reached", event=26), episode(100, 101)], [30]))
        shipped["settings"]["periodSeconds"] = 10.0
        made.fine = {"late-leak": [made.sweeps["late-leak"][0], shipped]}
        self.assertIn("the event found 1 of 1, half of them more than 4.0 h before, with 0.00 false events and 0.50 false onsets a week; over "
                      "the same with a minute, the event found 1 of 1", report.shipped_sentence(made))
        self.assertIn("**shipped period of ten seconds**", report.document(made, {}, "", "generate --few"))

    def test_recordings_count_their_alarms(self):
        made = results()
        full = resource([episode(10, 11, event=10.5), episode(28, 30, "reached", event=29)], [30])
        full["instance"] = "recorded /tmp/lumetra-recording.abc/disk"
        silent = resource([])
        made.recordings = {"disk-fills": replay(full, silent, farthest=4)}
        text = report.recordings_section(made)
        self.assertIn("| disk-fills: PercentFreeSpaceUsed disk | 1 | 1 | 2.0 h | 1 | 1 | 1.0 h | 1 |", text)
        self.assertEqual(text.count("\n"), 2, "a resource without limit and alarms has a row")
        silent["instance"] = "/dev/sda1 /"
        silent["reached"] = [NOW]
        self.assertIn("| disk-fills: PercentFreeSpaceUsed / | 1 | 0 | – | 0 | 0 | – | 0 |", report.recordings_section(made))

    def test_every_table_has_as_many_cells_in_each_row(self):
        width = None
        for line in report.document(results(), {}, "", "generate --few").split("\n"):
            cells = line.count("|") if line.startswith("|") else None
            self.assertIn(cells, (width, None) if width else (cells,), line)
            width = cells

    def test_only_families_that_fill_stand_in_the_table_of_what_was_found(self):
        text = report.document(results(), {}, "", "generate --few")
        found = text[text.index("## Found"):text.index("## Lead")]
        self.assertIn("`late-leak`", found)
        self.assertNotIn("`noise`", found)

    def test_the_kinds_of_servers_hold_every_family_whose_archive_is_whole(self):
        from families import FAMILIES
        named = [name for _, _, families in report.KINDS for name in families]
        self.assertEqual(len(named), len(set(named)))
        self.assertEqual(set(FAMILIES) - set(named), {"restart-gaps", "clock-steps"})


class Pictures(unittest.TestCase):
    def drawn(self, text):
        self.assertIn("prefers-color-scheme: dark", text)
        return ElementTree.fromstring(text)

    def words(self, picture):
        return [element.text for element in picture.iter("{http://www.w3.org/2000/svg}text")]

    def test_bars_are_as_long_as_their_values(self):
        picture = self.drawn(pictures.bars("a title", ["one", "<two>", "none"], [("share", [0.9, 0.4, None], ["90 %", "40 %", "–"], 0.8)]))
        widths = [float(bar.get("width")) for bar in picture.iter("{http://www.w3.org/2000/svg}rect")]
        self.assertEqual(widths, [250, 125, 0])
        self.assertEqual(self.words(picture), ["one", "<two>", "none", "share", "90 %  (cut)", "40 %", "–"])

    def test_the_worst_rule_does_not_flatten_the_others(self):
        def widths(*false):
            picture = self.drawn(report.found_and_false("a title", ["one"] * len(false), [leads(false=one) for one in false], "Alarms"))
            return [float(bar.get("width")) for bar in picture.iter("{http://www.w3.org/2000/svg}rect")][len(false):]
        self.assertEqual(widths(390, 2, 4), [250, 100, 200])
        self.assertEqual(widths(0, 0), [0, 0])

    def test_a_mark_stands_where_its_value_is(self):
        rows = [("leak", [20.0, None, None, None, None, 2.0])]
        picture = self.drawn(pictures.dots("a title", rows, ["r"] * 6, (2, 20, 200), ("2", "20", "200")))
        placed = [float(mark.get("cx")) for mark in picture.iter("{http://www.w3.org/2000/svg}circle")][2:]  # behind the legend
        ticks = [float(text.get("x")) for text in picture.iter("{http://www.w3.org/2000/svg}text") if text.text in ("2", "20", "200")]
        self.assertEqual((ticks, placed), ([190, 470, 750], [470, 190]))

    def test_the_example_shows_an_episode_with_its_samples(self):
        def samples(number):
            self.assertEqual(number, 3)
            return [(NOW + hour * HOUR, float(hour)) for hour in range(60)]
        found = results().replays["late-leak"]
        picture = self.drawn(report.example_picture(found, samples))
        for words in ("onset, 20 h before", "event, 4.0 h before", "full"):
            self.assertIn(words, self.words(picture))
        line = next(picture.iter("{http://www.w3.org/2000/svg}polyline"))
        self.assertEqual(len(line.get("points").split()), 43, "twelve hours after the limit are shown")
        self.assertIsNone(report.example_picture(results().replays["noise"], samples))


class Program(unittest.TestCase):
    def test_it_writes_the_page_from_what_replays_left(self):
        with tempfile.TemporaryDirectory(prefix="lumetra-accuracy-") as folder:
            self.prepare(folder)
            ended = self.run_it(folder)
            self.assertEqual((ended.returncode, ended.stderr), (0, ""))
            with open(os.path.join(folder, "docs", "accuracy.md"), encoding="utf-8") as file:
                page = file.read()
            shown = re.findall(r"\(images/([^)]*)\)", page)
            self.assertEqual(sorted(shown), sorted(os.listdir(os.path.join(folder, "docs", "images"))))
            self.assertIn("accuracy-example.svg", shown)
            self.assertIn("No sweep was made in this run.", page)

    def test_it_refuses_a_replay_that_is_no_result(self):
        for broken, words in (({"complete": False}, "did not come to the end"), ({"resources": []}, "the truth has")):
            with tempfile.TemporaryDirectory(prefix="lumetra-accuracy-") as folder:
                self.prepare(folder, **broken)
                ended = self.run_it(folder)
                self.assertEqual(ended.returncode, 1)
                self.assertIn(words, ended.stderr)
                self.assertFalse(os.path.exists(os.path.join(folder, "docs")))

    def test_it_says_which_replay_failed(self):
        program = self.program()
        with tempfile.TemporaryDirectory(prefix="lumetra-accuracy-") as folder:
            program.PROJECT = folder
            with open(os.path.join(folder, "lumetra"), "w", encoding="ascii") as file:
                file.write('#!/bin/sh\n[ "$*" = "replay --home good --json --against" ] && echo "{}" && exit 0\necho "no archive" >&2; exit 3\n')
            os.chmod(file.name, 0o755)
            self.assertEqual(program.replay("good", "--against"), "{}\n")
            with self.assertRaisesRegex(RuntimeError, "replay --home bad --json --sweep ended with 3:\nno archive"):
                program.replay("bad", "--sweep")

    def program(self):
        loader = importlib.machinery.SourceFileLoader("accuracy", os.path.join(HERE, "accuracy"))
        program = importlib.util.module_from_spec(importlib.util.spec_from_loader("accuracy", loader))
        loader.exec_module(program)
        return program

    def test_it_makes_both_corpora_and_replays_each_as_it_should(self):
        with tempfile.TemporaryDirectory(prefix="lumetra-accuracy-") as folder:
            program, told = self.program(), []
            program.RECORDINGS = os.path.join(folder, "recorded")
            os.makedirs(os.path.join(program.RECORDINGS, "a-disk", "data"))
            with open(os.path.join(program.RECORDINGS, "a-disk", "story.txt"), "w", encoding="ascii") as file:
                file.write("1000 it begins\n")
            with gzip.open(os.path.join(program.RECORDINGS, "a-disk", "data", "LumetraArchive.txt.gz"), "wb") as file:
                file.write(b"1000 1 0 5.00 \n")
            program.replay = lambda home, *options: told.append((os.path.relpath(home, folder), *options)) or "{}"
            program.FINE = ["--days", "1", "--seeds", "1", "--period", "3600"]
            program.measure_all(folder, ["noise", "step"], ["--days", "1", "--seeds", "2", ], True)
            self.assertEqual(sorted(told), [("fine/noise", "--sweep", "--every", "6"), ("fine/step", "--sweep", "--every", "6"),
                                            ("noise", "--against"), ("noise", "--sweep"), ("recordings/a-disk", "--against"),
                                            ("step", "--against"), ("step", "--sweep")])
            with open(os.path.join(folder, "recordings", "a-disk", "data", "LumetraArchive.txt"), encoding="ascii") as file:
                self.assertEqual(file.read(), "1000 1 0 5.00 \n")
            for home, seeds in (("noise", 2), ("fine/step", 1)):
                with open(os.path.join(folder, home, "truth.json"), encoding="ascii") as file:
                    self.assertEqual(len(json.load(file)["resources"]), seeds)
            self.assertTrue(os.path.exists(os.path.join(folder, "fine", "noise", "sweep.json")))

    def test_a_replay_that_failed_ends_the_measuring(self):
        with tempfile.TemporaryDirectory(prefix="lumetra-accuracy-") as folder:
            program = self.program()
            program.measure = unittest.mock.Mock(side_effect=RuntimeError("no"))
            with self.assertRaises(RuntimeError):
                program.measure_all(folder, ["noise"], ["--days", "1", "--seeds", "1"], False)

    def prepare(self, folder, **broken):
        """A corpus of one family with the replay that a perfect rule would leave."""
        subprocess.run([sys.executable, "-B", os.path.join(HERE, "generate"), folder, "--days", "2", "--seeds", "2", "--families", "late-leak"],
                       check=True)
        with open(os.path.join(folder, "late-leak", "truth.json"), encoding="ascii") as file:
            truth = json.load(file)
        resources = []
        for one in truth["resources"]:
            hours = [(moment - NOW) / HOUR for moment in one["reached"]]
            resources.append(resource([episode(hour - 2, hour, "reached", event=hour - 1) for hour in hours], hours, number=one["id"]))
        with open(os.path.join(folder, "late-leak", "replay.json"), "w", encoding="ascii") as file:
            json.dump({**replay(*resources), **broken}, file)
        for name in self.program().recordings():
            os.makedirs(os.path.join(folder, "recordings", name))
            with open(os.path.join(folder, "recordings", name, "replay.json"), "w", encoding="ascii") as file:
                json.dump(replay(*resources, farthest=4), file)

    def run_it(self, folder):
        return subprocess.run([sys.executable, "-B", os.path.join(HERE, "accuracy"), "--again", "--no-sweep", "--families", "late-leak",
                               "--folder", folder, "--docs", os.path.join(folder, "docs")], capture_output=True, text=True)


if __name__ == "__main__":
    unittest.main()
