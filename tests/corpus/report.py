"""docs/accuracy.md: its text, its tables, and what its pictures show, from the replays of a corpus."""

import os

import pictures
from scores import EVENT, HOUR, MARKS, ONSET, RULES, Score, beats, best_settings, rules_in, score_of, scores_of

KINDS = (
    ("disks that fill for days", "files, mails, data bases",
     ("steady-leak", "late-leak", "accelerating", "saturating", "slow-drift", "step", "resize")),
    ("logs and jobs of the night", "rotation, dumps, backups", ("rotation", "rotation-growing", "nightly-burst")),
    ("people at work", "sessions, scratch files, swap", ("daily-cycle", "daily-cycle-growing", "daily-cycle-filling", "weekly-cycle",
                                                         "weekly-cycle-growing", "weekly-cycle-filling")),
    ("things that run away", "programs in development, queries without an end", ("runaway", "noise", "reverting-walk")),
)


class Results:
    """What was measured, for each family: the replay with the rules it is compared with, the sweep over the same archive, and the
    sweep over a finer one. Without sweeps the two are empty."""

    def __init__(self):
        self.replays, self.sweeps, self.fine = {}, {}, {}
        self.recordings = {}  # of real work: a replay each

    def scores(self):
        """Family: {rule: score}."""
        return {name: scores_of(replay) for name, replay in self.replays.items()}


def swept(sweeps, families):
    """(settings, {rule: score}) for all settings of the sweeps, added up over these families, in the order of the first."""
    settings, totals = {}, {}
    for one in (one for name in families for one in sweeps.get(name, [])):
        key = settings_words(one["settings"])
        settings[key] = one["settings"]
        mine = totals.setdefault(key, {})
        for rule, score in scores_of(one).items():
            mine[rule] = mine.get(rule, Score()) + score
    return [(settings[key], totals[key]) for key in settings]


# Words and numbers.


def hours(value):
    """Hours in two figures, minutes below one."""
    if value is None:
        return "–"
    if value < 0.995:
        return f"{value * 60:.0f} min"
    return f"{value:.1f} h" if value < 9.95 else f"{value:.0f} h"


def found_of(score):
    return f"{score.found} of {score.reached}" if score.reached else "–"


def per_cent(share):
    return "–" if share is None else f"{100 * share:.0f} %"


def settings_words(settings):
    """The period counts the cycles that were taken, so `every` is in it."""
    return f"{settings['periodSeconds']:g} s, {settings['minForecastHours']} to {settings['maxForecastHours']} h"


def table(head, rows):
    """A Markdown table; all columns but the first stand to the right."""
    lines = ["| " + " | ".join(head) + " |", "|---|" + "---:|" * (len(head) - 1)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows])


def filling(results):
    return [name for name in results.replays if any(one["reached"] for one in results.replays[name]["resources"])]


def total(scores, rule, families=None):
    return sum((scores[name][rule] for name in families or scores), Score())


# The tables.


def overall_table(scores, rules):
    def row(rule):
        score = total(scores, rule)
        return [rule.title, found_of(score), str(score.found_an_hour_before), hours(score.median_lead), hours(score.worst_lead), f"{score.false_a_week:.2f}",
                str(score.alarms), str(score.withdrawn), str(score.undecided)]
    return table(["Rule", "Found", "an hour before", "Lead, median", "Lead, worst", "False a week", "Alarms", "Withdrawn", "Undecided"],
                 [row(rule) for rule in rules])


def family_table(scores, families, rules, cell):
    return table(["Family"] + [rule.title for rule in rules],
                 [[f"`{name}`"] + [cell(scores[name][rule]) for rule in rules] for name in families])


def error_table(scores, families, rule):
    def cell(score, mark):
        if not score.errors[mark]:
            return "–"
        return f"{hours(score.median_error(mark))} ({hours(score.worst_error(mark))}), {len(score.errors[mark])}"
    rows = [[f"`{name}`"] + [cell(scores[name][rule], mark) for mark in MARKS] for name in families]
    everything = total(scores, rule)
    return table(["Family"] + [f"{mark} h before" for mark in MARKS],
                 rows + [["**all**"] + [cell(everything, mark) for mark in MARKS]])


# Where the agent is beaten.

WHY = {
    "found": """**Missed.** An onset needs a forecast that meets the limit, an event a newest sample halfway between where it stood at the onset and
100 %. What jumps to the limit from below that passes both in one sample.""",
    "lead": """**Later.** That halfway is the price of the event's calm: of a straight leak half of the time that was left at the onset is gone
when it comes. The onset is not held back and stands on the page and in the log, and is wrong more often. The line through two points leads
where it does because it cries at everything: see its false alarms.""",
    "false": """**More false alarms.** A rise that goes more than halfway from the onset to 100 % and then stops or turns fools the event: a tall hump of
a day, a large dump, a tooth of logs near the top, a steep beginning below a ceiling. Nothing in a window of hours tells these from a leak. The
line that looks 4 hours ahead asks for 80 % used and an hour's patience, the threshold for 90 %: they are silent about all that turns below,
and say little in time of what does not.""",
}
MEASURES = {"found": ("reachings found", str), "lead": ("median lead", hours), "false": ("false alarms a week", "{:.2f}".format)}


def beaten(scores, rules):
    others = [rule for rule in rules if rule.name != "agent"]
    rows, measures = [], set()
    for one in (one for name, of_family in scores.items() for one in beats(name, of_family)):
        title, words = MEASURES[one.measure]
        cells = [f"**{words(one.theirs[rule])}**" if rule in one.better else words(one.theirs[rule]) for rule in others]
        rows.append([f"`{one.family}`", title, words(one.ours), *cells])
        measures.add(one.measure)
    if not rows:
        return "In no family of this run."
    return "\n\n".join([table(["Family", "Measure", "Agent (event)"] + [rule.title for rule in others], rows)]
                       + [WHY[measure] for measure in MEASURES if measure in measures])


# Settings.


def settings_table(rows, best):
    def row(settings, scores):
        onset, event = scores[ONSET], scores[EVENT]
        name = settings_words(settings)
        return [f"**{name}**" if settings is best else name, found_of(event), hours(event.median_lead), f"{event.false_a_week:.2f}",
                found_of(onset), hours(onset.median_lead), f"{onset.false_a_week:.2f}"]
    return table(["Settings", "Event: found", "lead", "false a week", "Onset: found", "lead", "false a week"],
                 [row(settings, scores) for settings, scores in rows])


def choice(rows, words):
    """A sentence on the best settings of a table, and the table."""
    best, scores = best_settings(rows)
    event = scores[EVENT]
    found = f"found {found_of(event)}, median lead {hours(event.median_lead)}, " if event.reached else ""
    return [f"**{words}: {settings_words(best)}**: {found}{event.false_a_week:.2f} false events a week.", settings_table(rows, best)]


def settings_section(results):
    parts = []
    for kind, examples, families in KINDS:
        names = ", ".join(f"`{name}`" for name in families if name in results.sweeps)
        if not names:
            continue
        parts += [f"### {kind[0].upper() + kind[1:]}", f"As {examples}; of the corpus {names}."]
        parts += choice(swept(results.sweeps, families), "Best with a sample a minute or fewer")
        if finer := swept(results.fine, families):
            parts += choice(finer, "Best with shorter periods, over the finer recordings")
    return "\n\n".join(parts) or "No sweep was made in this run."


# Real work.


def recordings_section(results):
    """A row for each resource of a recording that reached its limit or raised an alarm."""
    rows = []
    for name, replay in results.recordings.items():
        for resource in replay["resources"]:
            onset, event = (score_of(rule, resource, replay["settings"]["maxForecastHours"] * HOUR, replay["to"]) for rule in (ONSET, EVENT))
            if onset.reached or onset.alarms:
                rows.append([f"{name}: {resource['resource']} {place_of(resource)}", str(onset.reached)]
                            + [cell for score in (onset, event) for cell in (str(score.found), hours(score.median_lead), str(score.false))])
    return table(["Resource", "Reached", "Onset: found", "lead", "false", "Event: found", "lead", "false"], rows)


def place_of(resource):
    """The mount point of a disk without the folders that a recording made for it."""
    return os.path.basename(resource["instance"].rpartition(" ")[2]) or "/"


# The pictures.


def found_and_false(title, names, scores, subject):
    """Bars of what was found and of what was false; all but the worst determine the scale of the latter."""
    false = [score.false_a_week for score in scores]
    most = max(sorted(false)[:-1], default=0) * 1.25 or 1.0
    return pictures.bars(title, names, [
        ("Found, per cent of all reachings", [score.share for score in scores], [per_cent(score.share) for score in scores], 1.0),
        (f"False {subject.lower()}, a week and resource", false, [f"{value:.2f}" for value in false], most)])


def rules_picture(scores, rules):
    return found_and_false("Of each rule what was found and what was false", [rule.title for rule in rules],
                           [total(scores, rule) for rule in rules], "Alarms")


def leads_picture(scores, families, rules):
    rows = [(name, [scores[name][rule].median_lead for rule in rules]) for name in families]
    return pictures.dots("How long before the limit each rule's alarm began, median of what was found", rows, [rule.title for rule in rules],
                         (0.1, 0.5, 1, 3, 6, 12, 24, 48, 96), ("6 min", "30 min", "1 h", "3 h", "6 h", "12 h", "24 h", "2 d", "4 d"))


def sweep_picture(rows):
    return found_and_false("Of the event under each setting what was found and what was false",
                           [settings_words(settings) for settings, _ in rows], [scores[EVENT] for _, scores in rows], "Events")


def example_picture(replay, samples_of):
    """The first resource whose first reaching was announced by an event; None without one."""
    for resource in replay["resources"]:
        for episode in next(each["episodes"] for each in resource["rules"] if each["rule"] == "agent"):
            if episode["outcome"] == "reached" and episode["firstEvent"]:
                limit = episode["end"]
                samples = [pair for pair in samples_of(resource["id"]) if pair[0] <= limit + 12 * HOUR]
                moments = [(episode["onset"], f"onset, {hours((limit - episode['onset']) / HOUR)} before", 2),
                           (episode["firstEvent"], f"event, {hours((limit - episode['firstEvent']) / HOUR)} before", 3), (limit, "full", 4)]
                return pictures.series(f"{resource['instance']} with onset, event and limit", samples, moments)
    return None


def samples_of_home(home):
    """A function from an identifier to the samples of the home's archive."""
    def samples(number):
        found, word = [], str(number)
        with open(os.path.join(home, "data", "LumetraArchive.txt"), encoding="ascii") as file:
            for line in file:
                words = line.split()
                if word in words[1::3]:
                    found.append((int(words[0]), float(words[3 + 3 * words[1::3].index(word)])))
        return found
    return samples


def all_pictures(results, folder):
    """{file name: SVG} for docs/images."""
    scores, rules = results.scores(), rules_of(results)
    made = {"accuracy-rules.svg": rules_picture(scores, rules), "accuracy-leads.svg": leads_picture(scores, filling(results), rules)}
    if rows := swept(results.sweeps, results.sweeps):
        made["accuracy-settings.svg"] = sweep_picture(rows)
    if "late-leak" in results.replays:
        example = example_picture(results.replays["late-leak"], samples_of_home(os.path.join(folder, "late-leak")))
        if example:
            made["accuracy-example.svg"] = example
    return made


# The document.


def rules_of(results):
    return [rule for rule in RULES if all(rule in rules_in(replay) for replay in results.replays.values())]


def picture(made, name, words):
    return f"![{words}](images/{name})" if name in made else ""


def lead_sentence(scores):
    event, onset = total(scores, EVENT), total(scores, ONSET)
    return (f"Of {event.reached} times that a resource of the corpus reached its limit the agent's event had announced **{event.found}** "
            f"({per_cent(event.share)}), half of them more than **{hours(event.median_lead)}** before, and its onset {onset.found} "
            f"({per_cent(onset.share)}), half of them more than {hours(onset.median_lead)} before. It raised **{event.false_a_week:.2f}** false "
            f"events a week and resource, and {onset.false_a_week:.2f} false onsets.")


def shipped_sentence(results):
    """What the shipped period does, beside the minute of the rest of the page; empty without a finer corpus."""
    totals = {settings_words(settings): scores for settings, scores in swept(results.fine, results.fine)}
    if not {"10 s, 0 to 48 h", "60 s, 0 to 48 h"} <= set(totals):
        return ""
    def words(scores):
        event, onset = scores[EVENT], scores[ONSET]
        return (f"the event found {found_of(event)}, half of them more than {hours(event.median_lead)} before, with {event.false_a_week:.2f} false "
                f"events and {onset.false_a_week:.2f} false onsets a week")
    return (f"That is with a sample a minute. With the **shipped period of ten seconds**, over a finer and smaller corpus, "
            f"{words(totals['10 s, 0 to 48 h'])}; over the same with a minute, {words(totals['60 s, 0 to 48 h'])}.")


def corpus_sentence(results, arguments):
    replays = list(results.replays.values())
    resources = sum(len(replay["resources"]) for replay in replays)
    return (f"{len(replays)} families, {resources} resources, {sum(replay['cycles'] for replay in replays):,} cycles and "
            f"{sum(replay['forecasts'] for replay in replays):,} forecasts; made with `tests/corpus/accuracy{arguments}`.")


def models_sentence(results):
    counts = {}
    for replay in results.replays.values():
        for resource in replay["resources"]:
            for name, count in resource["models"].items():
                counts[name] = counts.get(name, 0) + count
    everything = sum(counts.values()) or 1
    shares = sorted(((name, count) for name, count in counts.items() if count), key=lambda pair: (-pair[1], pair[0]))
    return "The models chosen: " + ", ".join(f"{name} {100 * count / everything:.1f} %" for name, count in shares) + "."


def document(results, made, arguments, fine):
    """The text of docs/accuracy.md; `made`: the pictures; `arguments`: as they were given, with a blank in front of each; `fine`:
    those of the finer corpus."""
    scores, rules, fills = results.scores(), rules_of(results), filling(results)
    settings = settings_words(next(iter(results.replays.values()))["settings"])
    errors = "\n\n".join(f"#### {'agent' if rule is ONSET else rule.title}\n\n{error_table(scores, fills, rule)}"
                         for rule in rules if rule.announces)
    return "\n".join(line.rstrip() for line in f"""# How right the forecasts are

{lead_sentence(scores)}

{shipped_sentence(results)}

{picture(made, 'accuracy-rules.svg', 'What each rule found, and what was false')}

This page is written by one command, which makes the corpus, lets the agent's own forecast run over it, and scores it beside five simple rules
that an operator could have instead:

```
tests/corpus/accuracy
```

{corpus_sentence(results, arguments)} The same command writes the same bytes. The numbers are those of the corpus and of nothing else: it is
made to hold what deceives a forecast in about the same measure as what rewards it, and a server of yours is neither.

## What is measured

The corpus (`tests/corpus/`, explained there) is series whose end is known: each family is a documented function of a seed, recorded as an
agent's archive, one sample a minute for two weeks. [`lumetra replay`](command-line.md#replay) feeds an archive to the library cycle by cycle: the rings, the
fits, the choice of the model and the notification state are those of a run, and the settings those of the home ({settings}). No rule sees
a sample before its time. A sample a minute is what most servers are watched by, and not the ten seconds that the agent is shipped with: a
window of 4.8 hours then holds 288 samples and not 1,728, and the models with hinges, which need 300 and 500, have no say. What ten seconds
give is in the tables of the [settings](#which-settings-to-choose).

| Rule | Its alarm begins | and ends |
|---|---|---|
| agent (onset) | when a forecast meets the limit in the alert window: the intent to notify, seen in the log and on the page | when the intent is dropped (five cycles without such a forecast), or at the limit |
| agent (event) | when the first event of that episode goes out | with the episode |
| line 6 h, 24 h rule | when a straight line by least squares through the last 6 hours has met 100 % within 24 hours, at 60 % used or more, for an hour without a break | when it does so no longer |
| line 6 h, 4 h rule | the same within 4 hours, at 80 % or more, for an hour | the same |
| two points, 1 h | when the straight line through the newest sample and the one an hour before meets 100 % within the farthest forecast | the same |
| threshold 90 % | at 90 % or more | below 90 % |

## Words

- **Reached**: a sample at 99.95 % or more whose predecessor was below it. `truth.json` of each family lists these moments, and a run whose
  replay sees others ends without a page.
- **Found**: of the times that a limit was reached, those at which the rule's alarm stood and had begun before.
- **Lead**: from the beginning of that alarm to the limit, in hours, over what was found. The worst is the shortest.
- **False**: an alarm that did not stand when a limit was reached, and whose resource reached none within the farthest forecast
  (48 hours as shipped) of its beginning. One that is still on when the recording ends before that time is over is **undecided**.
- **Withdrawn**: an alarm that was right in that the limit was reached within that time, and was not on any more when it was.
- **A week**: false alarms over the weeks of all resources together, so a week of one resource.
- **Error**: how far the moment that the rule announced 24, 12, 6, 3 and 1 hours before the limit was from the true one; of alarms that stood
  when it was reached. Behind the median stands the worst in brackets, and how many there were. Where nothing was announced at a mark there is
  no error; what was announced for something else, the peak of yesterday or the last time that the same disk was full, counts as what it is.
- A disk that is doubled before it is full (`resize`) never reaches its limit, so the alarm that made somebody double it counts as false here.

## All families together

{overall_table(scores, rules)}

{models_sentence(results)}

{picture(made, 'accuracy-example.svg', 'A late leak with the onset, the event and the limit')}

## Found

{family_table(scores, fills, rules, found_of)}

## Lead

Median, and the worst in brackets.

{family_table(scores, fills, rules, lambda score: f"{hours(score.median_lead)} ({hours(score.worst_lead)})" if score.leads else "–")}

{picture(made, 'accuracy-leads.svg', 'The median lead of each rule in each family that reaches its limit')}

## False alarms a week

{family_table(scores, list(scores), rules, lambda score: f"{score.false_a_week:.2f}")}

## The announced moment

{errors}

## Where the agent is beaten

Every family in which another rule does better than the agent's event: finds more; or finds as many, and earlier or with fewer false alarms. What is
better is bold.

{beaten(scores, rules)}

## Real work

What the agent itself recorded on a machine at work, a sample a second, forecasts up to 4 hours ahead (`tests/corpus/recordings/`, with the story of
each). A handful of episodes prove nothing; they show that what is true of made series is not wrong of others. Here false alarms are counted,
not reckoned by the week.

{recordings_section(results)}

## Which settings to choose

`lumetra replay --sweep` runs the same archives under other settings of [AutoConfig.ini](configuration.md#autoconfigini): longer periods, and
other farthest forecasts, a tenth of which is the window of the fit; each is named by the items 6 to 8 of that file. The best are those whose event finds most (to the nearest fiftieth), then
raises fewest false alarms (to the nearest half a week), then comes earliest (to the nearest half of a doubling), and then those with the
fewest false onsets. An alarm is false here by the farthest forecast of its own settings.
Periods below the corpus's minute are tried on finer and fewer recordings of the same families (`{fine}`); their numbers are to be compared with
each other only, and the 60 s among them are the bridge. Try it on archives of your own: they know your servers, and the corpus does not.

{picture(made, 'accuracy-settings.svg', 'What the event found under each setting, and what was false')}

{settings_section(results)}
""".split("\n"))
