"""A plotting program draws the trend files as they are, whatever the resource is called."""

import os
import struct
import subprocess
import tempfile
import unittest
import zlib

from agent_home import BUILD, needs_tool

FORECAST, SAMPLES, LIMIT = (255, 0, 0), (0, 0, 255), (0, 160, 0)
# Colours that can be told apart, no key that would show them without a curve, and room above the limit. The
# last line is the file as it is: "load" executes what it holds.
DRAW = """set terminal png size 400,300
set output '{picture}'
set linetype 1 linecolor rgb '#ff0000'
set linetype 2 linecolor rgb '#0000ff'
set linetype 3 linecolor rgb '#00a000'
unset key
set yrange [0:120]
load "{script}"
"""
# "show label" prints it on the standard error; a warning or an error would be there too.
LABEL = ('label 1 "@ 1700000000, 12.35 hours to exhaustion, hinge regression, notif level=87.50" at (graph 0.1, 0.5, 0) '
         'left not rotated back  nopoint')


def rows_of(png):
    """The picture as rows of (red, green, blue)."""
    if png[:8] != b"\x89PNG\r\n\x1a\n":
        raise ValueError("no PNG")
    at, packed, palette = 8, b"", b""
    while at < len(png):
        length, kind = struct.unpack(">I4s", png[at:at + 8])
        body = png[at + 8:at + 8 + length]
        if kind == b"IHDR":
            width, height, depth, colour, _, _, interlaced = struct.unpack(">IIBBBBB", body)
        elif kind == b"PLTE":
            palette = body
        elif kind == b"IDAT":
            packed += body
        at += length + 12
    if interlaced or colour not in (2, 3, 6) or (depth != 8 and colour != 3):
        raise ValueError(f"a PNG of colour type {colour}, depth {depth} is not read here")
    channels = {2: 3, 3: 1, 6: 4}[colour]
    step = max(1, channels * depth // 8)
    stride = (width * channels * depth + 7) // 8
    data, before, rows = zlib.decompress(packed), bytes(stride), []
    for y in range(height):
        line = data[y * (stride + 1):(y + 1) * (stride + 1)]
        before = unfiltered(line[0], bytearray(line[1:]), before, step)
        if colour == 3:
            values = [before[x * depth // 8] >> (8 - depth - x * depth % 8) & ((1 << depth) - 1) for x in range(width)]
            rows.append([tuple(palette[3 * value:3 * value + 3]) for value in values])
        else:
            rows.append([tuple(before[x * channels:x * channels + 3]) for x in range(width)])
    return rows


def unfiltered(kind, line, before, step):
    for i, value in enumerate(line):
        left = line[i - step] if i >= step else 0
        corner = before[i - step] if i >= step else 0
        above = before[i]
        estimate = left + above - corner
        paeth = min((left, above, corner), key=lambda one: abs(estimate - one))
        line[i] = (value + (0, left, above, (left + above) // 2, paeth)[kind]) & 255
    return bytes(line)


class TrendPlot(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = directory.name
        written = subprocess.run(
            [os.path.join(BUILD, "tests", "tests_numbers"), "--gtest_filter=TrendFilesForPlotting.*"],
            env=dict(os.environ, LUMETRA_TREND_OUT=self.directory), capture_output=True, text=True)
        self.assertEqual(written.returncode, 0, written.stdout + written.stderr)

    def points(self, name):
        """Draws one resource's script; the places of each curve's pixels."""
        picture = os.path.join(self.directory, "drawn.png")
        script = os.path.join(self.directory, name + "noneBM.ini")
        self.assertTrue(os.path.exists(script), name)
        octal = "".join(f"\\{byte:03o}" for byte in os.fsencode(script))
        drawn = subprocess.run(["gnuplot", "-"], input=DRAW.format(picture=picture, script=octal), text=True,
                               capture_output=True, cwd=self.directory)
        self.assertEqual((drawn.returncode, drawn.stderr.strip().splitlines()), (0, [LABEL]), name)
        with open(picture, "rb") as file:
            rows = rows_of(file.read())
        os.unlink(picture)
        return {colour: [(x, y) for y, row in enumerate(rows) for x, pixel in enumerate(row) if pixel == colour]
                for colour in (FORECAST, SAMPLES, LIMIT)}

    def assert_drawn(self, name):
        points = self.points(name)
        for colour, what in ((FORECAST, "forecast"), (SAMPLES, "samples"), (LIMIT, "limit")):
            self.assertGreater(len(points[colour]), 60, f"{name}: {what}")
        heights = [y for _, y in points[LIMIT]]
        self.assertLessEqual(max(heights) - min(heights), 2, f"{name}: the limit is a level line")
        self.assertLess(min(x for x, _ in points[SAMPLES]), min(x for x, _ in points[FORECAST]),
                        f"{name}: the samples lie before the forecast")
        self.assertLess(max(heights), min(y for _, y in points[SAMPLES]), f"{name}: the samples lie below the limit")

    @needs_tool("gnuplot")
    def test_both_curves_and_the_limit_are_drawn(self):
        self.assert_drawn("Plain")

    @needs_tool("gnuplot")
    def test_a_name_with_a_blank_is_drawn(self):
        self.assert_drawn("Disk space")

    @needs_tool("gnuplot")
    def test_a_name_with_quotes_is_drawn(self):
        self.assert_drawn("it's ''quoted''")

    @needs_tool("gnuplot")
    def test_a_name_with_a_line_break_is_drawn(self):
        self.assert_drawn("two\nlines")

    @needs_tool("gnuplot")
    def test_a_name_with_backslash_per_cent_comma_and_braces_is_drawn(self):
        self.assert_drawn("50%\\, {a_b}")

    @needs_tool("gnuplot")
    def test_a_name_that_looks_like_a_command_is_drawn_and_not_executed(self):
        for name in ("<touch pwned;", "`touch pwned`'"):
            self.assert_drawn(name)
        self.assertEqual([name for name in os.listdir(self.directory) if "BM" not in name], [])

    @needs_tool("gnuplot")
    def test_a_missing_curve_is_noticed(self):
        os.unlink(os.path.join(self.directory, "PlainnoneBMSMP.gnp"))
        with self.assertRaises(AssertionError):
            self.assert_drawn("Plain")


if __name__ == "__main__":
    unittest.main()
