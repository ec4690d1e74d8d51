"""What the tests of the trend viewer's readers have in common, with and without a Java machine."""

PERIOD = 100  # milliseconds: below a second there is no pause between cycles
LOCK_WAIT = 3  # seconds: the three pauses of one attempt at the lock

# Before and after a run there are no resources, before the two hundredth sample of one it has no files.
EVERY_ANSWER = {"descriptors": ("0", "1"), "label": ("0", "1", "3", "5"), "limit": ("0", "1", "3"),
                "PRD": ("1", "3", "read"), "SMP": ("1", "3", "read"), "unlock": ("0",), "kept": ("0",)}


def window(samples):
    """The analysis window, in hours, that holds so many samples."""
    return f"{samples * PERIOD / 3600000:.6f}"


def missing_answers(lines, expected):
    """The answers that the readers, by their "viewer" lines, were never given."""
    given = {tuple(line.split("\t")[1:3]) for line in lines if line.startswith("viewer\t")}
    return [(method, answer) for method, answers in expected.items() for answer in answers if (method, answer) not in given]


def cycles_too_long(archive_lines, slack=2):
    """(time, seconds) of each cycle that took longer than its waits for the lock: one to forecast, one for each disk
    that it found gone."""
    found = []
    for (_, before), (time, now), (following, _) in zip(archive_lines, archive_lines[1:], archive_lines[2:]):
        gone = len(set(before) - set(now))
        if following - time > LOCK_WAIT * (1 + gone) + slack:
            found.append((time, following - time))
    return found
