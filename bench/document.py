"""A document with parts that a program makes, between <!-- begin NAME --> and <!-- end NAME -->, in text that people write."""

import re


def part(text, name):
    """What stands between the marks; None when there are none."""
    found = _marked(name).search(text)
    return found and found.group("body").strip("\n")


def with_part(text, name, body):
    """The text with another body between the marks. Everything outside of them stays."""
    if part(text, name) is None:
        raise ValueError(f"the document has no part {name}")
    return _marked(name).sub(lambda found: f"{found.group('begin')}\n{body}\n{found.group('end')}", text)


def _marked(name):
    return re.compile(rf"(?P<begin><!-- begin {re.escape(name)} -->)\n(?P<body>.*?)(?P<end><!-- end {re.escape(name)} -->)", re.S)


def table(heading, lines):
    """A table in Markdown; every cell but the first is a number or short."""
    return "\n".join(["| " + " | ".join(heading) + " |", "|---" + "|---:" * (len(heading) - 1) + "|", *lines])


def line(cells):
    return "| " + " | ".join(cells) + " |"


def merged(old, new, order):
    """The lines of a table in that order of their first cells: the new ones, and the old ones of rows that are not among them.
    `new`: {first cell: line}. Rows that are not in `order` go."""
    lines = {_first_cell(text): text for text in (old or "").split("\n")[2:]}
    lines.update(new)
    return [lines[name] for name in order if name in lines]


def _first_cell(text):
    return text.strip("|").split(" | ")[0].strip()
