"""The pictures of docs/accuracy.md: plain SVG that can be read on light and on dark paper."""

import math
from html import escape

STYLE = """<style>
text { font: 12px sans-serif; fill: #24292f }
.small { font-size: 11px; fill: #57606a }
.head { font-weight: bold }
.rule { stroke: #afb8c1; stroke-width: 1; fill: none }
.c0 { fill: #0969da; stroke: #0969da } .c1 { fill: #8250df; stroke: #8250df } .c2 { fill: #1a7f37; stroke: #1a7f37 }
.c3 { fill: #9a6700; stroke: #9a6700 } .c4 { fill: #bf3989; stroke: #bf3989 } .c5 { fill: #6e7781; stroke: #6e7781 }
.line { fill: none; stroke-width: 1.5 }
@media (prefers-color-scheme: dark) {
text { fill: #d0d7de } .small { fill: #9198a1 } .rule { stroke: #484f58 }
.c0 { fill: #58a6ff; stroke: #58a6ff } .c1 { fill: #bc8cff; stroke: #bc8cff } .c2 { fill: #3fb950; stroke: #3fb950 }
.c3 { fill: #d29922; stroke: #d29922 } .c4 { fill: #f778ba; stroke: #f778ba } .c5 { fill: #9ea7b3; stroke: #9ea7b3 }
}
</style>"""


def svg(width, height, title, parts):
    return "\n".join([f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" height="{height}" '
                      f'role="img" aria-label="{escape(title)}">', STYLE, *parts, "</svg>", ""])


def text(x, y, words, kind="", anchor="start"):
    return f'<text x="{x:.1f}" y="{y:.1f}" class="{kind}" text-anchor="{anchor}">{escape(words)}</text>'


def rule(x1, y1, x2, y2, dashes=""):
    return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" class="rule" stroke-dasharray="{dashes}"/>'


def bars(title, names, panels):
    """A row for each name, a panel for each (heading, values, the values as words, where bars are cut); None has no bar."""
    left, width, row, top = 190, 250, 24, 34
    parts = []
    for index, name in enumerate(names):
        parts.append(text(left - 8, top + index * row + 14, name, anchor="end"))
    for number, (heading, values, words, most) in enumerate(panels):
        x = left + number * (width + 70)
        parts += [text(x, 20, heading, "head"), rule(x, top, x, top + row * len(names))]
        for index, (value, word) in enumerate(zip(values, words)):
            y, length = top + index * row, min(1.0, (value or 0) / most) * width
            word += "  (cut)" if value is not None and value > most else ""
            parts.append(f'<rect x="{x}" y="{y + 4}" width="{length:.1f}" height="{row - 10}" class="c{number}"/>')
            parts.append(text(x + length + 5, y + 15, word, "small"))
    return svg(left + len(panels) * (width + 70) + 40, top + row * len(names) + 10, title, parts)


MARKS = ("circle", "diamond", "square", "triangle", "cross", "ring")


def mark(x, y, kind, series):
    """One of six shapes, so that nobody needs to tell the colours apart."""
    shapes = {
        "circle": f'<circle cx="{x:.1f}" cy="{y:.1f}" r="4.5" class="c{series}"/>',
        "diamond": f'<path d="M{x:.1f} {y - 6:.1f}l6 6l-6 6l-6 -6z" class="c{series}"/>',
        "square": f'<rect x="{x - 4:.1f}" y="{y - 4:.1f}" width="8" height="8" class="c{series}"/>',
        "triangle": f'<path d="M{x:.1f} {y - 5:.1f}l5 9l-10 0z" class="c{series}"/>',
        "cross": f'<path d="M{x - 4:.1f} {y - 4:.1f}l8 8m0 -8l-8 8" class="c{series} line"/>',
        "ring": f'<circle cx="{x:.1f}" cy="{y:.1f}" r="4.5" class="c{series} line"/>',
    }
    return shapes[kind]


def dots(title, rows, legend, ticks, tick_words):
    """A row for each (name, values), a mark for each value on a logarithmic axis; None has none, too small stands at the left."""
    left, width, row, top = 190, 560, 24, 62
    low, high = math.log(ticks[0]), math.log(ticks[-1])
    bottom = top + row * len(rows)

    def place(value):
        return left + width * min(1.0, max(0.0, (math.log(max(value, ticks[0])) - low) / (high - low)))

    parts = []
    for number, name in enumerate(legend):
        x, y = left + number % 3 * 190, 16 + number // 3 * 20
        parts += [mark(x, y, MARKS[number], number), text(x + 10, y + 4, name)]
    for tick, words in zip(ticks, tick_words):
        parts += [rule(place(tick), top, place(tick), bottom, "2 3"), text(place(tick), bottom + 16, words, "small", "middle")]
    for index, (name, values) in enumerate(rows):
        y = top + index * row + row / 2
        parts += [text(left - 12, y + 4, name, anchor="end"), rule(left, y, left + width, y)]
        parts += [mark(place(value), y, MARKS[number], number) for number, value in enumerate(values) if value is not None]
    return svg(left + width + 30, bottom + 28, title, parts)


def series(title, samples, moments):
    """Samples (time in seconds, per cent) with moments (time, words, number of a colour) marked in them."""
    left, width, top, height = 50, 700, 70, 220
    begin, end = samples[0][0], samples[-1][0]

    def x_of(time):
        return left + width * (time - begin) / (end - begin)

    def y_of(value):
        return top + height * (1 - value / 100)

    step = max(1, len(samples) // 700)
    points = " ".join(f"{x_of(time):.1f},{y_of(value):.1f}" for time, value in samples[::step])
    parts = [f'<polyline points="{points}" class="c0 line"/>']
    for value in (0, 50, 100):
        parts += [rule(left, y_of(value), left + width, y_of(value), "2 3"), text(left - 6, y_of(value) + 4, f"{value} %", "small", "end")]
    for day in range(int((end - begin) / 86400) + 1):
        parts.append(text(x_of(begin + day * 86400), top + height + 16, f"{day}", "small", "middle"))
    parts.append(text(left + width, top + height + 30, "days", "small", "end"))
    for number, (time, words, colour) in enumerate(moments):
        x, y = x_of(time), top - 10 - number * 18  # the earliest lowest, so that no line crosses words
        side, gap = ("end", -4) if x > left + width / 2 else ("start", 4)
        parts.append(f'<line x1="{x:.1f}" y1="{y - 10}" x2="{x:.1f}" y2="{top + height}" class="c{colour}" stroke-dasharray="4 3"/>')
        parts.append(text(x + gap, y, words, "small", side))
    return svg(left + width + 20, top + height + 40, title, parts)
