"""The families of the corpus: how resources of servers go, each a generator of levels that a seed decides.

A family is a function of a `Draw`, a `Span` and the cycle at which it begins. It draws its parameters and yields a level
in per cent for every cycle, None while the file system is not mounted. A level that would be shown as 99.95 or more ends it:
the resource is full then, at 100.00, for one to six hours (`hoursFull`), until somebody cleans it, and the family begins anew with
parameters drawn anew. What is said to last a share of the recording does, so that a short recording shows the same in little.

Levels are rounded to the two decimals of the archive. No other rounding is left in what an agent sees: the blocks
that `df` counts are finer than a hundredth of a per cent on any disk above ten megabytes.
"""

import itertools
import math
import random

FULL = 100.0
NEARLY_FULL = 99.945  # shown as 99.95, from which on the agent takes a resource to be at its limit

FAMILIES = {}


class Span:
    """A recording: how many cycles, a period in seconds apart."""

    def __init__(self, days, period):
        self.period = period
        self.day = 86400 // period  # cycles
        self.cycles = int(days * 86400) // period

    def hours(self, count):
        """That many hours in whole cycles, at least one."""
        return max(1, int(count * 3600 / self.period))


class Draw:
    """Draws the parameters of one resource and remembers them, a dictionary for each time that the family begins."""

    def __init__(self, name, seed):
        self.seed = seed
        self.random = random.Random(f"{name} {seed}")
        self.gauss = self.random.gauss
        self.parameters = []
        self.marks = {"steps": [], "resizes": []}

    def between(self, name, low, high):
        return self._keep(name, self.random.uniform(low, high))

    def spread(self, name, low, high):
        """As many between 1 and 2 as between 2 and 4."""
        return self._keep(name, math.exp(self.random.uniform(math.log(low), math.log(high))))

    def pick(self, name, choices):
        return self._keep(name, self.random.choice(choices))

    def mark(self, kind, cycle):
        """Remembers a moment of the truth, "steps" or "resizes"."""
        self.marks[kind].append(cycle)

    def _keep(self, name, value):
        self.parameters[-1][name] = value = round(value, 4)
        return value


class Family:
    """A family with its name, its levels and its clock."""

    def __init__(self, levels, fills, clock):
        self.name = levels.__name__.replace("_", "-")
        self.levels = levels
        self.fills = fills  # "always", "never", or "odd": the resources with an odd seed
        self.clock = clock

    def fills_with(self, seed):
        """Whether the limit is reached."""
        return self.fills == "always" or (self.fills == "odd" and seed % 2 == 1)

    def play(self, seed, span):
        """The levels of every cycle, None where there is none, and what was drawn."""
        draw, values = Draw(self.name, seed), []
        while len(values) < span.cycles:
            draw.parameters.append({})
            for level in itertools.islice(self.levels(draw, span, len(values)), span.cycles - len(values)):
                if level is not None and level >= NEARLY_FULL:
                    values += [FULL] * span.hours(draw.between("hoursFull", 1, 6))
                    break
                values.append(level if level is None else max(0.0, level))
        return values[:span.cycles], draw


# The clock: the time stamp of each cycle, None for a cycle without a line. One for all resources of a home.


def steady_clock(_seed, span, start):
    return [start + cycle * span.period for cycle in range(span.cycles)]


def clock_with_gaps(seed, span, start):
    """Every half to one and a half days the agent is stopped, for three minutes to six hours."""
    dice, stamps = random.Random(f"gaps {seed}"), steady_clock(seed, span, start)
    at = int(span.day * dice.uniform(0.2, 0.8))
    while at < span.cycles:
        away = max(1, int(math.exp(dice.uniform(math.log(180), math.log(21600))) / span.period))
        stamps[at:at + away] = [None] * len(stamps[at:at + away])
        at += away + int(span.day * dice.uniform(0.5, 1.5))
    return stamps


def clock_with_steps(seed, span, start):
    """Every half to one and a half days the clock is set, by ten seconds to two hours, forward and back in turn."""
    dice, stamps = random.Random(f"clock {seed}"), steady_clock(seed, span, start)
    at, sign = int(span.day * dice.uniform(0.2, 0.8)), dice.choice((1, -1))
    while at < span.cycles:
        by = sign * int(math.exp(dice.uniform(math.log(10), math.log(7200))))
        stamps[at:] = [stamp + by for stamp in stamps[at:]]
        at, sign = at + int(span.day * dice.uniform(0.5, 1.5)), -sign
    return stamps


def family(fills, clock=steady_clock):
    """Enters a generator of levels into FAMILIES; `fills`: "always", "never" or "odd"."""

    def enter(levels):
        entered = Family(levels, fills, clock)
        FAMILIES[entered.name] = entered
        return levels

    return enter


# Leaks.


@family(fills="always")
def steady_leak(draw, span, _at):
    """A program that never frees, or a disk that nobody tidies: a straight line from a base to the limit.

    base 5 to 60 %, over 0.07 to 0.9 of the recording (1 to 12.6 of 14 days, as many short as long), jitter (a standard
    deviation) 0.01 to 0.3 %. The limit is always reached, and again after each cleaning if time allows.
    """
    base, share, jitter = draw.between("base", 5, 60), draw.spread("share", 0.07, 0.9), draw.between("jitter", 0.01, 0.3)
    slope = (FULL - base) / (span.cycles * share)
    for cycle in itertools.count():
        yield base + slope * cycle + draw.gauss(0, jitter)


@family(fills="always")
def late_leak(draw, span, _at):
    """Flat for days, then a leak to the limit: a new version, a job that began to fail.

    base 5 to 60 %, flat for 0.3 to 0.78 of the recording (4 to 11 of 14 days), then full after 0.05 to 0.18 of it (17 hours to 2.5
    days), jitter 0.01 to 0.3 %. The limit is always reached.
    """
    base, flat, leak = draw.between("base", 5, 60), draw.between("flatShare", 0.3, 0.78), draw.between("leakShare", 0.05, 0.18)
    jitter = draw.between("jitter", 0.01, 0.3)
    begin, slope = span.cycles * flat, (FULL - base) / (span.cycles * leak)
    for cycle in itertools.count():
        yield base + slope * max(0.0, cycle - begin) + draw.gauss(0, jitter)


@family(fills="always")
def runaway(draw, span, _at):
    """A core dump in a loop, a query without an end: calm, and then full within two hours.

    base 10 to 70 %, calm for 0.1 to 0.9 of the recording, then full after 15 to 115 minutes along a power of 1 to 2 of the
    time, jitter 0.01 to 0.3 %. The limit is always reached.
    """
    base, calm, minutes = draw.between("base", 10, 70), draw.between("calmShare", 0.1, 0.9), draw.between("minutes", 15, 115)
    power, jitter = draw.between("power", 1, 2), draw.between("jitter", 0.01, 0.3)
    begin, length = span.cycles * calm, minutes * 60 / span.period
    for cycle in itertools.count():
        yield base + (FULL - base) * (max(0.0, cycle - begin) / length) ** power + draw.gauss(0, jitter)


@family(fills="always")
def accelerating(draw, span, _at):
    """What grows with what is there already: tables that are copied, queues that feed on themselves.

    base 5 to 50 %, full after 0.4 to 0.9 of the recording along a power of 2 to 4 of the time, jitter 0.01 to 0.3 %. The limit is
    always reached.
    """
    base, share = draw.between("base", 5, 50), draw.between("share", 0.4, 0.9)
    power, jitter = draw.between("power", 2, 4), draw.between("jitter", 0.01, 0.3)
    length = span.cycles * share
    for cycle in itertools.count():
        yield base + (FULL - base) * (cycle / length) ** power + draw.gauss(0, jitter)


@family(fills="never")
def saturating(draw, span, _at):
    """A cache that fills up to the size it may have: steep at first, and flat below the limit.

    base 5 to 40 %, still for 0.05 to 0.2 of the recording, then towards a ceiling of 60 to 95 % with a time constant of 0.01 to 0.15
    of the recording (3 hours to 2 days), jitter 0.01 to 0.3 %. The limit is never reached.
    """
    base, calm, ceiling = draw.between("base", 5, 40), draw.between("calmShare", 0.05, 0.2), draw.between("ceiling", 60, 95)
    share, jitter = draw.spread("timeConstantShare", 0.01, 0.15), draw.between("jitter", 0.01, 0.3)
    begin, constant = span.cycles * calm, span.cycles * share
    for cycle in itertools.count():
        yield base + (ceiling - base) * (1 - math.exp(-max(0.0, cycle - begin) / constant)) + draw.gauss(0, jitter)


# Cycles of people at work.


def day_shape(draw, span):
    """The shape of a day, from 0 to 1: a hump at an hour of its own, of a width of its own."""
    peak, sharpness = draw.between("peakHour", 0, 24), draw.between("sharpness", 1, 4)
    return [((1 + math.cos(2 * math.pi * (cycle / span.day - peak / 24))) / 2) ** sharpness for cycle in range(span.day)]


def week_shape(draw, span):
    """The shape of a week from Monday on: working days with their humps, and little on Saturday and Sunday. What goes on at midnight
    fades out from three hours before the weekend to three hours into it, and comes back likewise."""
    day, rest = day_shape(draw, span), draw.between("weekend", 0.05, 0.4)
    shape = []
    for cycle in range(7 * span.day):
        hour = (cycle * 24 / span.day + 24) % 168 - 24  # from Sunday's midnight on
        at_work = min(1.0, max(0.0, (min(hour, 120 - hour) + 3) / 6))
        shape.append(day[cycle % span.day] * (rest + (1 - rest) * at_work))
    return shape


def cycle_with_trend(draw, span, at, shape, slope):
    """A base, a cycle above it and a trend in per cent a cycle."""
    base, height, jitter = (draw.parameters[-1][name] for name in ("base", "height", "jitter"))
    for cycle in itertools.count():
        yield base + slope * cycle + height * shape[(at + cycle) % len(shape)] + draw.gauss(0, jitter)


def still_cycle(draw, span, at, shape):
    base = draw.between("base", 10, 50)
    draw.between("height", 5, min(40, 92 - base))
    draw.between("jitter", 0.05, 0.8)
    return cycle_with_trend(draw, span, at, shape(draw, span), 0.0)


def growing_cycle(draw, span, at, shape):
    base, height = draw.between("base", 5, 30), draw.between("height", 5, 30)
    draw.between("jitter", 0.05, 0.6)
    growth = draw.between("growth", 5, 94 - base - height)
    return cycle_with_trend(draw, span, at, shape(draw, span), growth / span.cycles)


def filling_cycle(draw, span, at, shape):
    base = draw.between("base", 5, 40)
    draw.between("height", 5, 30)
    draw.between("jitter", 0.05, 0.6)
    share = draw.between("share", 0.5, 0.95)
    return cycle_with_trend(draw, span, at, shape(draw, span), (FULL - base) / (span.cycles * share))


@family(fills="never")
def daily_cycle(draw, span, at):
    """A day like every other: sessions, scratch files, swap of the working hours.

    base 10 to 50 %, a hump every day of 5 to 40 % (never above 92 %) at an hour of its own, a raised cosine to the power of 1 to 4,
    jitter 0.05 to 0.8 %. The limit is never reached.
    """
    return still_cycle(draw, span, at, day_shape)


@family(fills="never")
def daily_cycle_growing(draw, span, at):
    """Days that grow, and have room enough.

    base 5 to 30 %, humps of 5 to 30 %, and a growth over the recording of 5 % up to what leaves the highest hump below 94 %; jitter
    0.05 to 0.6 %. The limit is never reached.
    """
    return growing_cycle(draw, span, at, day_shape)


@family(fills="always")
def daily_cycle_filling(draw, span, at):
    """Days that grow until a hump meets the limit.

    base 5 to 40 %, humps of 5 to 30 %, and a growth that would bring the base alone to the limit after 0.5 to 0.95 of the recording;
    jitter 0.05 to 0.6 %. The limit is always reached, mostly at a hump.
    """
    return filling_cycle(draw, span, at, day_shape)


@family(fills="never")
def weekly_cycle(draw, span, at):
    """Five working days and a weekend: `daily-cycle` with humps of 0.05 to 0.4 of their height on Saturday and Sunday.

    The limit is never reached.
    """
    return still_cycle(draw, span, at, week_shape)


@family(fills="never")
def weekly_cycle_growing(draw, span, at):
    """`daily-cycle-growing` with weekends. The limit is never reached."""
    return growing_cycle(draw, span, at, week_shape)


@family(fills="always")
def weekly_cycle_filling(draw, span, at):
    """`daily-cycle-filling` with weekends. The limit is always reached."""
    return filling_cycle(draw, span, at, week_shape)


# Logs.


def rotated(draw, span, at, base, slope):
    """Logs that grow by uneven lines over a base and are rotated at whole intervals since the recording began."""
    days, kept = draw.pick("rotationDays", (0.25, 0.5, 1, 2, 7)), draw.between("kept", 0.02, 0.2)
    volume = draw.between("volume", 5, min(40, (95 - base) / 1.8))
    interval, logs, dice = int(span.day * days), 0.0, draw.random
    rate = volume / interval
    for cycle in itertools.count():
        if (at + cycle) % interval == 0:
            logs, rate = logs * kept, volume / interval * dice.uniform(0.8, 1.2)
        logs += rate * dice.expovariate(1)
        yield base + slope * cycle + logs


@family(fills="never")
def rotation(draw, span, at):
    """Log rotation over a still base: a saw that looks like a leak between two rotations.

    base 10 to 50 %; a volume of 5 to 40 % is written between two rotations, 6, 12, 24, 48 hours or a week apart, each time 0.8 to 1.2
    of it, in lines of uneven size; compressed, 0.02 to 0.2 of it is kept. Together below 97 %. The limit is never reached.
    """
    return rotated(draw, span, at, draw.between("base", 10, 50), 0.0)


@family(fills="always")
def rotation_growing(draw, span, at):
    """Log rotation over a growing base, until a tooth of the saw meets the limit.

    base 5 to 40 %, which alone would be at the limit after 0.5 to 0.95 of the recording, and the saw of `rotation` above it. The
    limit is always reached.
    """
    base, share = draw.between("base", 5, 40), draw.between("share", 0.5, 0.95)
    return rotated(draw, span, at, base, (FULL - base) / (span.cycles * share))


# What looks like a trend and is none.


@family(fills="never")
def step(draw, span, at):
    """One step: a database is restored, an image unpacked, and that was all.

    base 10 to 60 %, after 0.2 to 0.8 of the recording up by 5 % or more to at most 94 %, within 1 to 60 minutes; jitter 0.01 to
    0.5 %. The truth names the beginning of the step. The limit is never reached.
    """
    base, share = draw.between("base", 10, 60), draw.between("stepShare", 0.2, 0.8)
    height, minutes = draw.between("height", 5, 94 - base), draw.between("minutes", 1, 60)
    jitter, begin = draw.between("jitter", 0.01, 0.5), int(span.cycles * share)
    length = max(1.0, minutes * 60 / span.period)
    draw.mark("steps", at + begin)
    for cycle in itertools.count():
        yield base + height * min(1.0, max(0.0, (cycle - begin) / length)) + draw.gauss(0, jitter)


@family(fills="never")
def nightly_burst(draw, span, at):
    """A dump or a backup every night that removes its files when it has done.

    base 10 to 60 %; at an hour of its own between 0 and 5, for 20 to 180 minutes, up in a straight line by 10 % or more to at most
    95 %, 0.8 to 1 of that each night, and back at once; jitter 0.01 to 0.5 %. The limit is never reached.
    """
    base, hour, minutes = draw.between("base", 10, 60), draw.between("hour", 0, 5), draw.between("minutes", 20, 180)
    height, jitter = draw.between("height", 10, 95 - base), draw.between("jitter", 0.01, 0.5)
    begin, length, tonight = int(hour * span.day / 24), max(1, int(minutes * 60 / span.period)), height
    for cycle in itertools.count(at):
        into = cycle % span.day - begin
        if into == 0:
            tonight = height * draw.random.uniform(0.8, 1)
        yield base + (tonight * into / length if 0 <= into <= length else 0.0) + draw.gauss(0, jitter)


@family(fills="never")
def noise(draw, _span, _at):
    """Noise around a level: descriptors and swap of a busy server. Neighbouring samples have nothing to do with each other.

    deviation 0.3 to 4 %, level from 10 % up to what keeps five and a half deviations below 98 %. The limit is never reached.
    """
    deviation = draw.between("deviation", 0.3, 4)
    level = draw.between("level", 10, 98 - 5.5 * deviation)
    for _ in itertools.count():
        yield min(99.0, draw.gauss(level, deviation))


@family(fills="never")
def reverting_walk(draw, span, _at):
    """A walk that is drawn back to its mean: pools and caches under a changing load. For hours it looks like a trend.

    deviation 1 to 8 % in the long run, which a disturbance takes 1 to 24 hours to fall to a third of, mean from 20 % up to what keeps
    five deviations below 95 %. The limit is never reached.
    """
    deviation, hours = draw.between("deviation", 1, 8), draw.spread("hours", 1, 24)
    mean = draw.between("mean", 20, 95 - 5 * deviation)
    back = math.exp(-span.period / (hours * 3600))
    push = deviation * math.sqrt(1 - back * back)
    away = draw.gauss(0, deviation)
    while True:
        yield min(98.0, mean + away)
        away = away * back + draw.gauss(0, push)


@family(fills="never")
def slow_drift(draw, span, _at):
    """A drift so slow that it is next month's matter.

    base 10 to 80 %, up by 1 to 10 % over the recording, jitter 0.05 to 1 %. The limit is never reached, nor would it be within another
    such recording.
    """
    base, growth, jitter = draw.between("base", 10, 80), draw.between("growth", 1, 10), draw.between("jitter", 0.05, 1)
    for cycle in itertools.count():
        yield base + growth * cycle / span.cycles + draw.gauss(0, jitter)


# What happens to machines.


@family(fills="never")
def resize(draw, span, at):
    """A disk that fills and is doubled before it is full: the used per cent halve, and it goes on filling, half as fast.

    base 20 to 60 %, reaching the level at which it is doubled, 75 to 97 %, after 0.2 to 0.7 of the recording; again and again. It is
    unmounted for 0 to 30 minutes meanwhile. Jitter 0.01 to 0.2 %. The truth names the first sample after each doubling. The limit is
    never reached.
    """
    base, doubled = draw.between("base", 20, 60), draw.between("doubledAt", 75, 97)
    share, minutes = draw.between("share", 0.2, 0.7), draw.between("minutesUnmounted", 0, 30)
    jitter, level, cycle = draw.between("jitter", 0.01, 0.2), base, at
    slope, pause = (doubled - base) / (span.cycles * share), int(minutes * 60 / span.period)
    while True:
        if level >= doubled:
            level, slope = level / 2, slope / 2
            yield from [None] * pause
            cycle += pause
            draw.mark("resizes", cycle)
        yield level + draw.gauss(0, jitter)
        level += slope
        cycle += 1


def leak_or_day(draw, span, at):
    return (steady_leak if draw.seed % 2 else daily_cycle)(draw, span, at)


@family(fills="odd", clock=clock_with_gaps)
def restart_gaps(draw, span, at):
    """The agent is restarted: lines are missing for minutes to hours, while the resources go on.

    Odd seeds are leaks as in `steady-leak`, even ones days as in `daily-cycle`. Gaps of 3 minutes to 6 hours, as many short as
    long, half a day to one and a half days apart; the truth names the last stamp before and the first after each. A limit that was
    reached in a gap counts from the first sample after it; one that was cleaned in the same gap was never seen and counts for nothing.
    """
    return leak_or_day(draw, span, at)


@family(fills="odd", clock=clock_with_steps)
def clock_steps(draw, span, at):
    """The clock is set, forward and back in turn, by ten seconds to two hours, every half to one and a half days.

    Odd seeds are leaks as in `steady-leak`, even ones days as in `daily-cycle`. Time stamps are those of the clock as it was set, so some
    occur twice; the truth names the stamps before and after each setting, and all its moments are such stamps.
    """
    return leak_or_day(draw, span, at)
