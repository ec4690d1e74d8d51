#!/usr/bin/env python3
"""Reads every file of an agent's home and tells what is wrong with it.

Knows the file formats on its own and shares nothing with the agent's code. The codes stand for promises:

  ARCH  archive: whole lines only, older lines byte for byte as they were, after a trim a run of whole lines to the newest
  DECL  declaration file: always one complete generation with the same declarations
  RID   identifiers: a resource keeps its number, a number never names two resources
  LOG   debug log: bounded, one backup, no holes
  EVT   events and score: one JSON object a line, older lines byte for byte as they were; a death tears at most its own line
  TREND trend and culprit files: each one complete generation, also after a death; none are left when the agent has ended
  SIDE  side files: none is left of a file that was replaced

As a command: check_home.py HOME [--config FILE] [--before DIR] [--trimmed] [--killed] [--faulty] [--scratch-pad-lossy]
A "before" directory is an earlier copy of the home. Exit status 0 when every promise holds.
"""

import argparse
import json
import os
import re
import sys

LOG_LIMIT = 1000000 + 2048
ARCHIVE_LINE = re.compile(rb"\d+( \d+ 0 -?\d+\.\d\d)* \Z")
NAME_IS_SIZE = 767

FORECAST_POINTS = 200
REAL = rb"-?(?:\d+\.\d{6}|inf|nan)"
CURVE = re.compile(rb"(?:%s %s \n)*" % (REAL, REAL))
PLOTTED = rb"(?:'([^'\0-\x1f\x7f]*)'|\"((?:\\[0-7]{3}|[^\"\\\0-\x1f\x7f])*)\")"
SCRIPT = re.compile(rb"limit\(x\) = -?(?:\d\.\d{6}e[+-]\d{2,3}|inf|nan)\n"
                    rb" set label '@ \d+, (?:\d+\.\d\d hours to exhaustion, [^,'\n]+, notif level=-?(?:\d+\.\d\d|inf|nan)"
                    rb"|no exhaustion within horizon, [^,'\n]+, notif level=-1\.00)' at graph \.1,\.5\n"
                    rb"show label\nplot %s with lines, %s with linespoints, limit\(x\)" % (PLOTTED, PLOTTED))
CONSUMERS = {b"Top Consumers of FDs:": rb"#FDs -?\d+", b"Top Consumers of Memory (Resident Set Size):": rb"RSS -?\d+ MB",
             b"Top Consumers of Child Processes:": rb"Children -?\d+"}


class Layout:
    """Where a home keeps its files, as its configuration says."""

    def __init__(self, home, config=None):
        self.home = home
        self.bin = os.path.join(home, "bin")
        self.config = config or os.path.join(home, "config", "AutoConfig.ini")
        with open(self.config, "rb") as file:
            words = file.read().decode("latin-1").split()
        self.data = self.at_bin(words[0])
        self.archive = self.at_bin(words[0] + words[1])
        self.scratch_pad = self.at_bin(words[2])
        self.declarations = self.at_bin(words[4])
        self.log = os.path.join(home, "log", "LumetraAgent.log")

    def at_bin(self, path):
        return os.path.normpath(os.path.join(self.bin, path))

    def files(self):
        return {"archive": self.archive, "scratch pad": self.scratch_pad, "declarations": self.declarations}

    def records(self):
        """The files of a line for each happening, which the Java half writes."""
        return {name: os.path.join(self.home, "log", name + ".jsonl") for name in ("events", "score")}


def content(path):
    """The file's bytes, None when there is no such regular file."""
    if not os.path.isfile(path):
        return None
    try:
        with open(path, "rb") as file:
            return file.read()
    except (FileNotFoundError, NotADirectoryError, ProcessLookupError):
        return None


def snapshot(layout):
    """The files as they are now: what a later check compares with."""
    return {name: content(path) for name, path in (*layout.files().items(), *layout.records().items())}


# Text of the declarations.


class Words:
    """White-space separated words and arguments between parentheses."""

    def __init__(self, text):
        self.text = text
        self.at = 0

    def word(self):
        match = re.compile(rb"[ \t\n\v\f\r]*([^ \t\n\v\f\r]+)").match(self.text, self.at)
        if not match:
            self.at = len(self.text)
            return None
        self.at = match.end()
        return match.group(1)

    def argument(self):
        begin = self.text.find(b"(", self.at)
        end = self.text.find(b")", begin) if begin >= 0 else -1
        if end < 0:
            return None
        self.at = end + 1
        return self.text[begin + 1:end]

    def find(self, keyword):
        """Moves behind the keyword, over comments; False when it does not come."""
        word = self.word()
        while word is not None and word != keyword:
            if word == b"/*":
                while word is not None and word != b"*/":
                    word = self.word()
            word = self.word() if word is not None else None
        return word is not None


ARGUMENTS = (b"FindInstance", b"FindCounter")
LIMITS = (b"UpperLimitAbs", b"UpperLimitCalc", b"LowerLimitAbs", b"LowerLimitCalc")


def number(words):
    """The next word as a number; 0 when it is none, which then stays the next word."""
    begin = words.at
    try:
        return float(words.word() or b"")
    except ValueError:
        words.at = begin
        return 0.0


def parse_declarations(text):
    """The declared resources as a list of dictionaries, None when the text is no complete declaration."""
    words = Words(text)
    if not words.find(b"BeginResourceDeclaration"):
        return None
    resources = []
    while True:
        if not words.find(b"FindObject"):
            return None
        resource = {b"FindObject": words.argument()}
        for keyword in ARGUMENTS:
            if not words.find(keyword):
                return None
            resource[keyword] = words.argument()
        if not words.find(b"WindowSize"):
            return None
        resource[b"WindowSize"] = number(words)
        if not words.find(b"NameIs"):
            return None
        resource[b"NameIs"] = words.argument()
        for keyword in (b"AnalyticalMethod",) + LIMITS:
            if not words.find(keyword):
                return None
            resource[keyword] = number(words)
        if not words.find(b"CulpritMarker"):
            return None
        resource[b"CulpritMarker"] = words.argument()
        if None in resource.values():
            return None
        # Only the inputs with instances insist on their end.
        if not words.find(b"EndResourceInput") and resource[b"FindObject"] in (b"LogicalDisk", b"Process"):
            return None
        resources.append(resource)
        if words.word() != b"BeginResourceInput":
            return resources


def identity(resource):
    """What must survive a rewrite: everything but the window (always written as automatic) and the measured capacity."""
    kept = {key: value for key, value in resource.items() if key not in (b"WindowSize", b"UpperLimitCalc")}
    kept[b"NameIs"] = kept[b"NameIs"][:NAME_IS_SIZE]
    return tuple(sorted(kept.items()))


# Text of the scratch pad.


HEADER = b"Event: ResourceDefinition - Informational"

# The counter is the last argument; an instance name may hold parentheses of its own.
RECORD = re.compile(rb"\s+([12])\s+(\d+)\s+\((.*?)\)\s+\((.*)\)\s+\(([^()]*)\)\s+(-?\d+)(?:[ \t\r]*\n|[ ]+\Z)",
                    re.DOTALL)


def parse_scratch_pad(text):
    """Complete records in order: (type, object, instance, counter, identifier) and the number. A record ends where the
    next header begins, so a torn one never swallows its successor; without the blanks behind its identifier it was torn."""
    records = []
    for part in text.split(HEADER)[1:]:
        match = RECORD.match(part)
        if match:
            kind, rid, *descriptors, identifier = match.groups()
            records.append(((int(kind), *descriptors, int(identifier)), int(rid)))
    return records


def is_record(line):
    """Whether a line is one JSON object in ASCII."""
    try:
        return isinstance(json.loads(line.decode("ascii")), dict)
    except ValueError:
        return False


def side_files(directory):
    """Names of files there that were to take another's place."""
    return [name for name in os.listdir(directory) if re.fullmatch(r"\.lumetra-[0-9a-f]{16}", name)]


def plotted_path(single, double):
    """The path that a plot script names in single or double quotes."""
    return single if double is None else re.sub(rb"\\([0-7]{3})", lambda digits: bytes([int(digits.group(1), 8)]), double)


def is_script(text, name):
    """Whether this is a whole plot script of that name, with the curves that belong to it."""
    match = SCRIPT.fullmatch(text)
    if match is None:
        return False
    stem = os.fsencode(name).removesuffix(b".ini")
    paths = [plotted_path(*match.groups()[i:i + 2]) for i in (0, 2)]
    return [path.rpartition(b"/")[2] for path in paths] == [stem + b"PRD.gnp", stem + b"SMP.gnp"]


def is_curve(text, name):
    """Whether these are whole lines of two numbers each, and as many as a forecast has."""
    return CURVE.fullmatch(text) is not None and (not name.endswith("BMPRD.gnp") or text.count(b"\n") == FORECAST_POINTS)


def is_culprit_report(text, _):
    """Whether this is nothing yet, or a heading with up to ten whole lines of it."""
    heading, *lines = text.split(b"\n")
    if not text:
        return True
    if heading not in CONSUMERS or not lines or lines.pop() != b"":
        return False
    line = re.compile(rb"\t\([^\0-\x1f\x7f]*\) \tPID \d+ \t" + CONSUMERS[heading])
    return len(lines) <= 10 and all(line.fullmatch(each) for each in lines)


TREND_FILES = {"BM.ini": is_script, "BMPRD.gnp": is_curve, "BMSMP.gnp": is_curve, ".cul": is_culprit_report}


class Checker:
    """Collects what is wrong. Every method adds lines "CODE what" to `problems`."""

    def __init__(self, layout, before=None, trimmed=False, killed=False, scratch_pad_lossy=False, clock_jumped=False,
                 expected_declarations=None, faulty=False):
        self.layout = layout
        self.before = before or {}
        self.trimmed = trimmed
        self.killed = killed
        self.faulty = faulty
        self.scratch_pad_lossy = scratch_pad_lossy
        self.clock_jumped = clock_jumped
        self.expected_declarations = expected_declarations
        self.problems = []

    def wrong(self, code, text):
        self.problems.append(f"{code} {text}")

    def run(self):
        self.check_archive()
        self.check_declarations()
        self.check_scratch_pad()
        self.check_log()
        for name, path in self.layout.records().items():
            self.check_records(name, path)
        self.check_trend_files()
        if not self.killed and not self.faulty:
            self.check_left_overs()
        return self.problems

    # ARCH

    def check_archive(self):
        now = content(self.layout.archive)
        old = self.before.get("archive")
        if now is None:
            if old:
                self.wrong("ARCH", "the archive is gone")
            return
        if now and not now.endswith(b"\n") and not self.killed:
            self.wrong("ARCH", f"torn last line {now[-60:]!r}")
        whole = now[:now.rfind(b"\n") + 1]
        known = set(old.split(b"\n")) if old else set()
        stamp = 0
        for line in whole.split(b"\n")[:-1]:
            if line in known:
                continue
            if not ARCHIVE_LINE.match(line):
                self.wrong("ARCH", f"no archive line: {line[:120]!r}")
                continue
            numbers = line.split()
            rids = numbers[1::3]
            if len(set(rids)) != len(rids):
                self.wrong("RID", f"a number stands twice in {line[:120]!r}")
            if int(numbers[0]) < stamp and not self.clock_jumped:
                self.wrong("ARCH", f"time runs back to {numbers[0]!r}")
            stamp = int(numbers[0])
        if old:
            self.check_kept_lines(old, whole)

    def check_kept_lines(self, old, whole):
        kept = old[:old.rfind(b"\n") + 1]
        if not self.trimmed:
            if not whole.startswith(kept):
                self.wrong("ARCH", "older lines have changed")
            return
        first = whole[:whole.find(b"\n") + 1]
        begin = kept.find(first)
        while begin > 0 and kept[begin - 1:begin] != b"\n":
            begin = kept.find(first, begin + 1)
        if begin < 0:
            if kept and whole:
                self.wrong("ARCH", "nothing of the older lines is left, or the first line is no whole line")
        elif not whole.startswith(kept[begin:]):
            self.wrong("ARCH", "the kept part is no run of whole lines up to the newest")

    # DECL

    def check_declarations(self):
        now = content(self.layout.declarations)
        old = self.before.get("declarations")
        if now is None:
            if old is not None:
                self.wrong("DECL", "the declaration file is gone")
            return
        expected = self.expected_declarations
        if expected is None and old is not None:
            expected = parse_declarations(old)
            if expected is None:
                # What could not be read must not be replaced either.
                if now != old:
                    self.wrong("DECL", "a file that cannot be read was rewritten")
                return
        resources = parse_declarations(now)
        if resources is None:
            self.wrong("DECL", "the file is no complete declaration")
            return
        if expected is not None and sorted(map(identity, resources)) != sorted(set(map(identity, expected))):
            self.wrong("DECL", "the declarations have changed")
        if now.startswith(b"/** Updated on") and not now.endswith(b"EndResourceDeclaration\n"):
            self.wrong("DECL", "half a generation")

    # RID

    def check_scratch_pad(self):
        now = content(self.layout.scratch_pad)
        old = self.before.get("scratch pad")
        if now is None:
            if old:
                self.wrong("RID", "the scratch pad is gone")
            return
        records = parse_scratch_pad(now)
        numbers, names = {}, {}
        for name, rid in records:
            if numbers.setdefault(name, rid) != rid:
                self.wrong("RID", f"{name} has the numbers {numbers[name]} and {rid}")
            if names.setdefault(rid, name) != name:
                self.wrong("RID", f"{rid} names {names[rid]} and {name}")
        for name, rid in parse_scratch_pad(old or b""):
            if numbers.get(name) != rid:
                self.wrong("RID", f"{name} lost its number {rid}")
        self.check_archive_numbers(set(names))

    def check_archive_numbers(self, known):
        if self.scratch_pad_lossy:
            return
        archive = content(self.layout.archive) or b""
        old = set((self.before.get("archive") or b"").split(b"\n"))
        for line in archive.split(b"\n")[:-1]:
            if line not in old and ARCHIVE_LINE.match(line):
                for rid in line.split()[1::3]:
                    if int(rid) not in known:
                        self.wrong("RID", f"the archive knows {rid!r}, the scratch pad does not")
                        return

    # LOG

    def check_log(self):
        directory = os.path.dirname(self.layout.log)
        if not os.path.isdir(directory):
            return
        for name in os.listdir(directory):
            if not name.startswith("LumetraAgent.log"):
                continue
            path = os.path.join(directory, name)
            if name not in ("LumetraAgent.log", "LumetraAgent.log.bak", "LumetraAgent.log.event"):
                self.wrong("LOG", f"unknown file {name}")
            if not os.path.isfile(path) or os.path.islink(path):
                continue
            text = content(path)
            if text is None:  # turned over meanwhile
                continue
            if len(text) > LOG_LIMIT:
                self.wrong("LOG", f"{name} has {len(text)} bytes")
            if b"\0" in text:
                self.wrong("LOG", f"{name} has holes of NULs")

    # EVT

    def check_records(self, name, path):
        now = content(path)
        old = self.before.get(name)
        if now is None:
            if old:
                self.wrong("EVT", f"{name} are gone")
            return
        if old and not now.startswith(old):
            # It may have turned over meanwhile.
            now = (content(path + ".1") or b"") + now
            if not now.startswith(old):
                self.wrong("EVT", f"older lines of {name} have changed")
        begin = old.rfind(b"\n") + 1 if old else 0
        *lines, rest = now[begin:].split(b"\n")
        torn = [line for line in lines if not is_record(line)]
        # What an earlier death tore, the next line has ended.
        if torn and old and old[begin:] and torn[0] == old[begin:]:
            torn.pop(0)
        if torn:
            self.wrong("EVT", f"no line of {name}: {torn[0][:120]!r}")
        if rest and not self.killed:
            self.wrong("EVT", f"torn last line of {name} {rest[-60:]!r}")

    # TREND

    def check_trend_files(self):
        """At no time, and so not after a death either, is there half of one. What leads elsewhere is nobody's trend file."""
        for name in os.listdir(self.layout.data) if os.path.isdir(self.layout.data) else ():
            path = os.path.join(self.layout.data, name)
            text = None if os.path.islink(path) or path in self.layout.files().values() else content(path)
            for end, is_whole in TREND_FILES.items():
                if text is not None and name.endswith(end) and not is_whole(text, name):
                    self.wrong("TREND", f"half of {name}, or none of it: ...{text[-60:]!r}")

    def check_left_overs(self):
        places = {os.path.dirname(path) for path in self.layout.files().values()} | {self.layout.bin, self.layout.data}
        for place in places:
            if not os.path.isdir(place):
                continue
            for name in os.listdir(place):
                path = os.path.join(place, name)
                if path in self.layout.files().values():
                    continue
                if name in side_files(place) or (place == self.layout.bin and name == "temp"):
                    self.wrong("ARCH" if name == "temp" else "SIDE", f"a work file is left: {path}")
                if place == self.layout.data and name.endswith((".ini", ".gnp", ".cul")):
                    self.wrong("TREND", f"a trend file is left: {path}")


def check(layout, **how):
    """What is wrong with the home: a list of lines, empty when all is well."""
    return Checker(layout, **how).run()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("home")
    parser.add_argument("--config", help="the configuration (default: config/AutoConfig.ini in the home)")
    parser.add_argument("--before", help="an earlier copy of the home")
    parser.add_argument("--trimmed", action="store_true", help="the archive may have been trimmed since")
    parser.add_argument("--killed", action="store_true", help="the agent was killed: torn tails and work files are fine")
    parser.add_argument("--faulty", action="store_true", help="calls of the agent failed: files that it could not remove are fine")
    parser.add_argument("--scratch-pad-lossy", action="store_true", help="the scratch pad could not be written")
    arguments = parser.parse_args()
    layout = Layout(os.path.abspath(arguments.home), arguments.config)
    before = snapshot(Layout(os.path.abspath(arguments.before))) if arguments.before else None
    problems = check(layout, before=before, trimmed=arguments.trimmed, killed=arguments.killed, faulty=arguments.faulty,
                     scratch_pad_lossy=arguments.scratch_pad_lossy)
    for problem in problems:
        print(problem)
    print("the home is in order" if not problems else f"{len(problems)} problems")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
