"""Measures what the agent costs beside other programs and how its costs grow, and keeps docs/performance.md. See
./run-benchmarks --help."""

import argparse
import dataclasses
import datetime
import os
import platform
import re
import statistics
import subprocess
import sys

import machine
import scenes
from document import line, merged, part, table, with_part

DOCUMENT = machine.ROOT / "docs" / "performance.md"
PICTURE = machine.ROOT / "docs" / "images" / "growth.svg"


@dataclasses.dataclass(frozen=True)
class Goal:
    """At most so much: of the peer's time, of a period, seconds, megabytes. Without a limit it is only measured."""

    limit: float | None
    of: str
    words: str = ""

    def value(self, agent, peer):
        return agent / {"peer": peer, "period": machine.PERIOD}.get(self.of, 1)

    def text(self, value):
        return {"peer": f"{value:.2f}", "period": f"{value * 100:.2f} %"}.get(self.of, "")

    def wanted(self):
        if self.limit is None:
            return ""
        plain = {"peer": f"{self.limit:.2g}", "period": f"{self.limit * 100:g} %", "seconds": f"{self.limit:g} s",
                 "megabytes": f"{self.limit:g} MB"}[self.of]
        return self.words or plain

    def reached(self, value):
        return "" if self.limit is None else "yes" if value <= self.limit else "**no**"


@dataclasses.dataclass(frozen=True)
class Row:
    key: str
    scene: str
    what: str  # unique: rows are told apart by it in the document
    peer: str
    goal: Goal
    when: str = "ordinary"  # or "full": not with --quick; "disk": only with --disk, or named


def beside(limit, words=""):
    return Goal(limit, "peer", words)


def share(limit):
    return Goal(limit, "period")


def measured_only():
    return Goal(None, "peer")


def seconds(limit):
    return Goal(limit, "seconds")


def faster(times):
    return beside(1 / times, f"{1 / times:.2f} ({times:g} times as fast)")


SCRAPE = "node_exporter, one scrape: filesystem, processes"
SMALL_SCRAPE = "node_exporter, one scrape: loadavg, meminfo, filefd"
PLAIN_FILES = "`fprintf` into a side file, and rename"
SCRAPED_PROGRAM = "node_exporter as it is installed, scraped each period"

ROWS = (
    Row("census", "census", "census of 1,000 processes, all three reports", "`ps -eo pid,ppid,rss,vsz,comm`", beside(0.5)),
    Row("census-descriptors", "census", "the same with 65 descriptors a process", "with 5 a process", beside(1.1)),
    Row("before-forecasts", "file-systems", "cycle before forecasts, 500 processes, 71 mounts, without `df`", SCRAPE, beside(0.9)),
    Row("whole-cycle", "file-systems", "whole cycle there, 1,440 samples, 339 files, without `df`", SCRAPE, beside(3)),
    Row("listing", "file-systems", "one listing there, with `df`", "`sh -c 'df > file'`", beside(0.65)),
    Row("listings-few-mounts", "few-mounts", "`df` of a cycle, the machine's own mounts", "", share(0.01)),
    Row("listings-71-mounts", "few-mounts", "`df` of a cycle, 71 mounts", "", share(0.01)),
    Row("listings-1000-mounts", "thousand-mounts", "`df` of a cycle, 1,000 mounts", "", share(0.01)),
    Row("listings-10000-mounts", "ten-thousand-mounts", "`df` of a cycle, 10,000 mounts", "", share(0.01)),
    Row("small-before", "small-cycle", "cycle of three counters, before forecasts and reports", SMALL_SCRAPE, beside(0.25)),
    Row("small-200", "small-cycle", "cycle of three counters, 200 samples", SMALL_SCRAPE, beside(1.2)),
    Row("small-1440", "small-cycle", "cycle of three counters, 1,440 samples", SMALL_SCRAPE, beside(1.2)),
    Row("trend-files-disk", "trend-files", "three trend files of 1,440 samples, on disk", PLAIN_FILES, faster(2.2)),
    Row("trend-files-memory", "trend-files", "three trend files of 1,440 samples, on tmpfs", PLAIN_FILES, faster(4)),
    Row("bytes-to-disk-ext4", "bytes-to-disk", "trend files of 20 resources, 1,440 samples, ext4: what reaches the disk in a period",
        PLAIN_FILES, beside(0.25), "disk"),
    Row("bytes-to-disk-xfs", "bytes-to-disk", "the same on XFS", PLAIN_FILES, measured_only(), "disk"),
    Row("cycle-1000-mounts", "thousand-mounts", "cycle before forecasts, 1,000 mounts, without `df`", "", share(0.03)),
    Row("cycle-10000-mounts", "ten-thousand-mounts", "cycle before forecasts, 10,000 mounts, without `df`", "", share(0.1)),
    Row("forecasts-10000-mounts", "forecasts-of-ten-thousand-mounts",
        "whole cycle, 10,000 mounts, space and inodes of each, 1,440 samples, without `df`", "", share(0.8)),
    Row("long-history", "long-history", "whole cycle, 2,000 resources, 10,080 samples", "", seconds(4)),
    Row("unmounted", "unmounted", "cycle after 3,000 disks were unmounted at once", "", seconds(1)),
    Row("start-10000-mounts", "ten-thousand-mounts", "start with 10,000 mounts and its first sampling, with `df`", "", seconds(2)),
    Row("whole-program", "whole-program", "whole program with Java and `df`, a period, 13 resources", SCRAPED_PROGRAM, beside(3)),
    Row("whole-program-scraped", "whole-program", "the same, its `/metrics` scraped too", SCRAPED_PROGRAM, measured_only()),
    Row("whole-program-five", "whole-program", "the same, beside fewer collectors",
        "node_exporter, scraped each period: filesystem, processes, loadavg, meminfo, filefd", measured_only()),
    Row("whole-program-collectd", "whole-program", "the same, not scraped", "collectd: df, processes, load, memory, swap, csv",
        measured_only()),
    Row("resident", "resident", "resident size of the program, 20 resources, page open", "", Goal(80, "megabytes")),
    Row("request-resources", "requests", "`/api/v1/resources`, 10,000 resources", "", seconds(0.25), "full"),
    Row("request-metrics", "requests", "`/metrics`, 10,000 resources", "", seconds(0.25), "full"),
)

GROWTH = {
    "processes": ("processes", ("reports of a cycle", "ps -eo …")),
    "mounts": ("mounts", ("cycle before forecasts, without df", "its df", "scrape of node_exporter")),
    "samples": ("samples of a resource", ("forecast and files of one resource",)),
    "resources": ("resources, 300 samples each", ("whole cycle, without df", "before forecasts")),
}

# Programs with tables of their own.
FURTHER = {
    "toolkit": (machine.BUILD / "bench" / "lumetra_bench",),
    "host": (machine.ROOT / "bench" / "hostCost", machine.BUILD / "java/lumetra-agent.jar", machine.BUILD / "libObrinagent.so"),
}


# Numbers for people.


def time_text(value):
    return f"{value:.2f} s" if value >= 1 else f"{value * 1e3:.3g} ms" if value >= 1e-3 else f"{value * 1e6:.3g} µs"


def amount_text(row, values):
    """The median and half of the distance between the quartiles."""
    middle = statistics.median(values)
    unit = f"{middle:.0f} MB" if row.goal.of == "megabytes" else f"{middle / 1e6:.2f} MB" if row.when == "disk" else time_text(middle)
    if len(values) < 3:
        return unit
    low, _, high = statistics.quantiles(values, n=4, method="inclusive")
    return f"{unit} ± {(high - low) / 2 / middle * 100:.0f} %"


def row_line(row, agent, peer):
    value = row.goal.value(statistics.median(agent), statistics.median(peer) if peer else 0)
    beside_it = f"{amount_text(row, peer)}: {row.peer}" if peer else ""
    return line([row.what, amount_text(row, agent), beside_it, row.goal.text(value), row.goal.wanted(),
                 row.goal.reached(value)])


# Measuring.


def measure(rows, growth, extent):
    """{row: (agent's values, peer's values)} and curves. What fails is told, and the rest goes on."""
    measured, curves = {}, {}
    for scene in dict.fromkeys([row.scene for row in rows] + [f"growth-with-{name}" for name in growth]):
        print(f"measuring: {scene}", file=sys.stderr, flush=True)
        work = scenes.SCENES[scene]
        try:
            # This one makes a machine of its own for each size.
            found, grown = work(extent) if scene == "growth-with-mounts" else machine.alone(work, extent)
        except RuntimeError as failure:
            print(f"left out: {scene}: {failure}", file=sys.stderr)
            continue
        measured.update(found)
        curves.update(grown)
    return measured, curves


def selected(chosen):
    """The rows, the curves of growth and the further parts that the command line asks for."""
    def wanted(name):
        return any(re.search(pattern, name) for pattern in chosen.only)

    if chosen.only:
        rows = [row for row in ROWS if wanted(row.key) or wanted(row.scene)]
        return rows, [name for name in GROWTH if wanted(f"growth-{name}")], [name for name in FURTHER if wanted(name)]
    with_time = {"ordinary"} | (set() if chosen.quick else {"full"}) | ({"disk"} if chosen.disk else set())
    return [row for row in ROWS if row.when in with_time], list(GROWTH), ["toolkit"] if chosen.quick else list(FURTHER)


# The document.


def measured_on():
    with open("/proc/cpuinfo") as file:
        model = re.search(r"model name\s*: (.*)", file.read())
    with open("/etc/os-release") as file:
        system = re.search(r'PRETTY_NAME="(.*)"', file.read())
    compiler = subprocess.check_output(["c++", "-dumpfullversion"], text=True).strip()
    return (f"Measured last on {datetime.date.today()}: {os.cpu_count()} × {model.group(1) if model else platform.machine()}, "
            f"{system.group(1) if system else platform.system()}, Linux {platform.release()}, gcc {compiler}.")


def steps_table(steps):
    lines = [line([step, time_text(own), time_text(children) if children else ""]) for step, (own, children) in steps.items()]
    return table(["Step", "Its processor time", "Of `df`"], lines)


def gnuplot_script(curves):
    """One picture of each curve, both axes logarithmic."""
    text = [f"set terminal svg noenhanced size 900,640 font 'sans,12' background 'white'\nset output '{PICTURE}'",
            "set multiplot layout 2,2\nset logscale xy\nset key right bottom\nset grid\nset ylabel 'processor time, ms'\nset format y '%g'"]
    for name, (axis, titles) in GROWTH.items():
        rows = curves.get(name, [])
        text.append(f"${name} << END\n" + "\n".join(" ".join(f"{value:.9g}" for value in row) for row in rows) + "\nEND")
        lines = (f"${name} using 1:(${column}*1000) with linespoints lw 2 title '{title}'" for column, title in enumerate(titles, 2))
        text.append(f"set xlabel '{axis}'\nplot " + ", ".join(lines))
    return "\n".join(text + ["unset multiplot"]) + "\n"


def growth_table(curves):
    lines = [line([f"{row[0]:,} {GROWTH[name][0]}: {title}", time_text(value)])
             for name in GROWTH for row in curves.get(name, []) for title, value in zip(GROWTH[name][1], row[1:])]
    return table(["What", "Processor time"], lines)


def draw(curves):
    """False when there is no gnuplot."""
    PICTURE.parent.mkdir(exist_ok=True)
    try:
        subprocess.run(["gnuplot"], input=gnuplot_script(curves), text=True, check=True)
    except OSError:
        return False
    return True


def parts_made(text, rows, measured, curves):
    """{part: body} of the document that this run has made anew; rows that were not measured as they stand in the text, if it is given."""
    parts = {}
    new = {row.what: row_line(row, *measured[row.key]) for row in rows if row.key in measured}
    if new:
        lines = merged(text and part(text, "table"), new, [row.what for row in ROWS])
        parts["table"] = table(["What", "Agent", "Peer", "Ratio", "Goal", "Reached?"], lines)
        parts["measured"] = measured_on()
    if "steps" in curves:
        parts["steps"] = steps_table(curves["steps"])
    if any(name in curves for name in GROWTH):
        parts["growth"] = growth_table(curves)
    return parts


def printed_by(name):
    print(f"measuring: {name}", file=sys.stderr, flush=True)
    return subprocess.check_output([str(word) for word in FURTHER[name]], text=True).strip("\n")


def main():
    parser = argparse.ArgumentParser(prog="run-benchmarks", description="Measures what the agent costs, as ratios of processor time "
                                     "taken in one run, prints the tables and puts them into docs/performance.md.")
    parser.add_argument("--quick", action="store_true", help="fewer rounds and smaller sizes, and none of what takes minutes")
    parser.add_argument("--disk", action="store_true", help="also what reaches a disk, which takes minutes of real time")
    parser.add_argument("--only", action="append", default=[], metavar="REGEX",
                        help="rows and scenes, growth-… curves, toolkit, host: those that match; may be given again")
    parser.add_argument("--list", action="store_true", help="says what --only can name")
    parser.add_argument("--no-docs", action="store_true", help="prints only")
    chosen = parser.parse_args()
    if chosen.list:
        print("\n".join([f"{row.key:24} {row.what}" for row in ROWS] + [f"growth-{name}" for name in GROWTH] + list(FURTHER)))
        return
    rows, growth, further = selected(chosen)
    if (rows or growth) and not machine.may_be_alone():
        print("left out: all that needs a machine of its own, as there is no right to make namespaces (run it as root)")
        rows, growth = [], []
    for package, _ in (machine.NODE_EXPORTER, machine.COLLECTD) if rows or growth else ():
        if not machine.unpacked(package):  # now: later there is no network
            print(f"left out: all beside {package}, which apt-get cannot download")
    measured, curves = measure(rows, growth, scenes.Extent(chosen.quick))
    printed = {name: printed_by(name) for name in further}
    for body in (parts_made(None, rows, measured, curves) | printed).values():
        print(f"{body}\n")
    if chosen.no_docs:
        return
    text = DOCUMENT.read_text()
    parts = parts_made(text, rows, measured, curves) | printed
    if "growth" in parts and not all(name in curves for name in GROWTH):
        print("left out of the document: the growth, which is renewed as a whole")
        del parts["growth"]
    if "growth" in parts and not draw(curves):
        print("left out: the picture, as there is no gnuplot")
    for name, body in parts.items():
        text = with_part(text, name, body)
    DOCUMENT.write_text(text)


if __name__ == "__main__":
    main()
