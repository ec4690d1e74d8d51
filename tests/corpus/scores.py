"""What the replays of a corpus add up to: for each family and each rule how many reachings of the limit were found, how long
before, how many alarms were false, and how far the announced moments were off.

docs/accuracy.md defines every measure; these are its definitions in code.
"""

import collections
import math
import statistics

HOUR = 3600
WEEK = 7 * 24 * HOUR
MARKS = ("24", "12", "6", "3", "1")  # hours before the limit at which the announced moment is judged

# A rule that is scored: how the document calls it, whose episodes these are in a replay, where its alarm begins, and whether it
# announces a moment.
Rule = collections.namedtuple("Rule", "title name begins announces")
RULES = (
    Rule("agent (onset)", "agent", "onset", True),
    Rule("agent (event)", "agent", "firstEvent", False),  # the moments announced are those of the onset's row
    Rule("line 6 h, 24 h rule", "line6h24h", "onset", True),
    Rule("line 6 h, 4 h rule", "line6h4h", "onset", True),
    Rule("two points, 1 h", "twoPoints1h", "onset", True),
    Rule("threshold 90 %", "threshold90", "onset", False),
)
ONSET, EVENT = RULES[0], RULES[1]


class Score:
    """Counts of one rule over some resources; two of them add up."""

    def __init__(self):
        self.reached = self.alarms = self.false = self.withdrawn = self.undecided = 0
        self.leads = []  # hours, one for each reaching that was found
        self.weeks = 0.0
        self.errors = {mark: [] for mark in MARKS}  # hours off, without sign

    def __add__(self, other):
        total = Score()
        for one in (self, other):
            total.reached += one.reached
            total.alarms += one.alarms
            total.false += one.false
            total.withdrawn += one.withdrawn
            total.undecided += one.undecided
            total.leads += one.leads
            total.weeks += one.weeks
            for mark in MARKS:
                total.errors[mark] += one.errors[mark]
        return total

    @property
    def found(self):
        return len(self.leads)

    @property
    def found_an_hour_before(self):
        return sum(lead >= 1 for lead in self.leads)

    @property
    def share(self):
        """Found of reached, None where the limit never was."""
        return self.found / self.reached if self.reached else None

    @property
    def median_lead(self):
        return statistics.median(self.leads) if self.leads else None

    @property
    def worst_lead(self):
        return min(self.leads, default=None)

    @property
    def false_a_week(self):
        return self.false / self.weeks if self.weeks else 0.0

    def median_error(self, mark):
        return statistics.median(self.errors[mark]) if self.errors[mark] else None

    def worst_error(self, mark):
        return max(self.errors[mark], default=None)


def stands_at(begin, end, moment):
    """Whether an alarm that began and ended then (None: it is on) had begun before the moment and stood at it."""
    return begin < moment and (end is None or end >= moment)


def score_of(rule, resource, horizon, last):
    """One rule over one resource of a replay; `horizon` in seconds, `last` the end of the recording."""
    score = Score()
    score.reached = len(resource["reached"])
    score.weeks = resource["observedSeconds"] / WEEK
    episodes = next(each["episodes"] for each in resource["rules"] if each["rule"] == rule.name)
    found = {}
    for episode in episodes:
        begin, end = episode[rule.begins], episode["end"]
        if begin is None:
            continue
        score.alarms += 1
        met = [moment for moment in resource["reached"] if stands_at(begin, end, moment)]
        found.update((moment, begin) for moment in met[:1])
        if not met:
            if any(begin < moment <= begin + horizon for moment in resource["reached"]):
                score.withdrawn += 1
            elif end is None and begin + horizon > last:
                score.undecided += 1
            else:
                score.false += 1
        if rule.announces and episode["outcome"] == "reached":
            for mark in MARKS:
                error = episode["errorsHours"][mark]
                if error is not None:
                    score.errors[mark].append(abs(error))
    score.leads = [(moment - begin) / HOUR for moment, begin in found.items()]
    return score


def rules_in(replay):
    """The rules that a replay tells of."""
    names = {each["rule"] for resource in replay["resources"] for each in resource["rules"]}
    return [rule for rule in RULES if rule.name in names]


def scores_of(replay):
    """The score of every rule of a replay, over all its resources."""
    horizon = replay["settings"]["maxForecastHours"] * HOUR
    return {rule: sum((score_of(rule, resource, horizon, replay["to"]) for resource in replay["resources"]), Score())
            for rule in rules_in(replay)}


def disagreements(replay, truth):
    """Where a replay saw the limit reached at other moments than the truth has it, as sentences."""
    seen = {resource["id"]: resource["reached"] for resource in replay["resources"]}
    told = {resource["id"]: resource["reached"] for resource in truth["resources"]}
    return [f"{truth['family']}, resource {number}: the replay saw the limit reached at {seen.get(number)}, the truth has "
            f"{told.get(number)}" for number in sorted(seen.keys() | told.keys()) if seen.get(number) != told.get(number)]


# Where a rule beats the agent's event.

# In one measure of one family: the agent's value, those of the other rules, and which of these are better.
Beaten = collections.namedtuple("Beaten", "family measure ours theirs better")


def beats(family, scores):
    """The measures in which other rules do better than the agent's event in a family.

    More found is better. A longer median lead, or fewer false alarms, are better only with as many found.
    """
    ours, others = scores[EVENT], {rule: score for rule, score in scores.items() if rule.name != "agent"}
    level = {rule for rule, score in others.items() if score.found >= ours.found}

    def compared(measure, value, better):
        winners = {rule for rule, score in others.items() if better(rule, score)}
        return [Beaten(family, measure, value(ours), {rule: value(score) for rule, score in others.items()}, winners)] if winners else []

    return (compared("found", lambda score: score.found, lambda rule, score: score.found > ours.found)
            + compared("lead", lambda score: score.median_lead,
                       lambda rule, score: rule in level and score.leads and ours.leads and score.median_lead > ours.median_lead)
            + compared("false", lambda score: score.false_a_week,
                       lambda rule, score: rule in level and score.false_a_week < ours.false_a_week))


# Which settings suit which servers.


def merit(scores):
    """Orders settings by what they come to: more found by the event, fewer false events, a longer lead of the event, fewer false onsets.
    All but the last are rounded, so that chance decides little: to a fiftieth, to half an event a week, to half a doubling."""
    event, onset = scores[EVENT], scores[ONSET]
    lead = round(2 * math.log2(event.median_lead)) if event.median_lead else -math.inf
    return round((event.share or 0.0) * 50), -round(event.false_a_week * 2), lead, -onset.false_a_week


def best_settings(rows):
    """Of pairs of settings and {rule: score}, the best pair; the first of equals."""
    return max(rows, key=lambda pair: merit(pair[1]))
