"""What is measured: each scene is a machine, on which the agent and its peers take turns. A scene gives {row: (agent's values,
peer's values)}, in seconds of processor time unless the row says otherwise, a value for each round; and curves of growth."""

import contextlib
import importlib.machinery
import importlib.util
import os
import shutil
import subprocess
import tempfile
import time

import machine
from machine import PERIOD, agent, crowd, disks, exporter, trend_writer
from agent_home import ALL, DESCRIPTORS, PROCESSES, SWAP, Home, umount
from suite import free_port


def _program(path):
    """The functions of a program whose name has no ending."""
    loader = importlib.machinery.SourceFileLoader(path.name, str(path))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(path.name, loader))
    loader.exec_module(module)
    return module


hostCost = _program(machine.ROOT / "bench" / "hostCost")

PS = ("ps", "-eo", "pid,ppid,rss,vsz,comm")
BEFORE_FORECASTS = ("sampling", "reports")
WHOLE = ("sampling", "forecasts", "writing", "publishing")  # the forecasts make the reports
SMALL = (PROCESSES, SWAP, DESCRIPTORS)


class Extent:
    """How much is measured."""

    def __init__(self, quick):
        self.quick = quick
        self.rounds = 5 if quick else 15
        self.few = 3 if quick else 5  # rounds of what takes long
        self.scrapes = 5 if quick else 10  # a round: the collector of the exporter's memory is to have its share
        self.periods = 8 if quick else 20  # of real time; see bytes_to_disk


def own(answer, *steps):
    return sum(answer[step][0] for step in steps)


def children(answer):
    return sum(times[1] for times in answer.values())


def both(answer):
    return own(answer, *answer) + children(answer)


def median_of(values):
    return sorted(values)[len(values) // 2]


def add(results, **values):
    for name, value in values.items():
        results.setdefault(name.replace("_", "-"), []).append(value)


def paired(results, **rows):
    """{row: (agent's values, peer's values)} from the names that they were added under."""
    return {row.replace("_", "-"): tuple(results.get(side, []) for side in sides) for row, sides in rows.items()}


def settle(served, samples, cycles=2):
    """Rings full, files made, room for everything taken."""
    served.ask("start")
    served.ask(f"fill {samples}")
    for _ in range(cycles):
        served.ask("cycle")


# Processes.


def census(extent):
    taken = {}
    with agent(SMALL) as served:
        settle(served, 1)
        for _ in range(extent.few):
            for descriptors in (5, 65):
                with crowd(1000, descriptors):
                    for _ in range(extent.few):
                        add(taken, **{f"census{descriptors}": own(served.ask("reports"), "reports")})
                        if descriptors == 5:
                            add(taken, ps=machine.cost_of_running(*PS))
    return paired(taken, census=("census5", "ps"), census_descriptors=("census65", "census5")), {}


def growth_with_processes(extent):
    curve = []
    with agent(SMALL) as served:
        settle(served, 1)
        for processes in (30, 100, 300, 1000) + (() if extent.quick else (3000,)):
            with crowd(processes):
                taken = [(own(served.ask("reports"), "reports"), machine.cost_of_running(*PS)) for _ in range(extent.few)]
            curve.append((processes, *map(median_of, zip(*taken))))
    return {}, {"processes": curve}


# Mounts.


def file_systems(extent):
    """500 processes and 71 mounts: as many file systems as a large server has."""
    taken, steps = {}, []
    with crowd(500), disks(71), exporter("filesystem", "processes") as scraped, agent(samples=1440) as served:
        settle(served, 1440)
        for _ in range(extent.rounds):
            answer = served.ask("cycle")
            steps.append(answer)
            add(taken, before=own(answer, *BEFORE_FORECASTS), whole=own(answer, *WHOLE),
                scrape=scraped.cost_of_scrape(extent.scrapes), listing=both(served.ask("listing")),
                shell=both(served.ask("shell-listing")))
    rows = paired(taken, before_forecasts=("before", "scrape"), whole_cycle=("whole", "scrape"), listing=("listing", "shell"))
    medians = {step: tuple(median_of([answer[step][side] for answer in steps]) for side in (0, 1)) for step in steps[0]}
    return rows, {"steps": medians}


def many_mounts(mounts, extent):
    """A start with so many mounts, and cycles before forecasts: with a single sample there is none."""
    taken = {}
    with disks(mounts), exporter("filesystem", "processes") as scraped:
        for _ in range(2 if mounts > 1000 else extent.few):
            with agent(samples=1440) as served:
                add(taken, start=both(served.ask("start")))
                for _ in range(2):
                    served.ask("fill 1")
                    answer = served.ask("cycle")
                    add(taken, before=own(answer, *BEFORE_FORECASTS), children=children(answer), scrape=scraped.cost_of_scrape())
    return taken


def thousand_mounts(extent):
    return paired(many_mounts(1000, extent), cycle_1000_mounts=("before", ""), listings_1000_mounts=("children", "")), {}


def ten_thousand_mounts(extent):
    return paired(many_mounts(10000, extent), cycle_10000_mounts=("before", ""), listings_10000_mounts=("children", ""),
                  start_10000_mounts=("start", "")), {}


def few_mounts(extent):
    taken = {}
    for name, mounts in (("few", 0), ("some", 71)):
        with disks(mounts), agent(samples=1440) as served:
            settle(served, 1)
            for _ in range(extent.rounds):
                add(taken, **{name: children(served.ask("cycle"))})
    return paired(taken, listings_few_mounts=("few", ""), listings_71_mounts=("some", "")), {}


def growth_with_mounts(extent):
    curve = []
    for mounts in (30, 100, 300, 1000) + (() if extent.quick else (3000, 10000)):
        taken = machine.alone(many_mounts, mounts, extent)
        curve.append((mounts, *(median_of(taken[name]) for name in ("before", "children", "scrape"))))
    return {}, {"mounts": curve}


def forecasts_of_ten_thousand_mounts(extent):
    taken = {}
    with disks(10000), agent(samples=1440) as served:
        settle(served, 1440, cycles=1)
        for _ in range(extent.few):
            add(taken, whole=own(served.ask("cycle"), *WHOLE))
    return paired(taken, forecasts_10000_mounts=("whole", "")), {}


def unmounted(extent):
    taken = {}
    for _ in range(extent.few):
        with disks(3000 + machine.mount_count()) as mounted, agent(samples=300) as served:
            settle(served, 300, cycles=1)
            mounted.unmount_all()
            add(taken, whole=own(served.ask("cycle"), *WHOLE))
    return paired(taken, unmounted=("whole", "")), {}


# Samples and resources.


def small_cycle(extent):
    taken = {}
    with exporter("loadavg", "meminfo", "filefd") as scraped, contextlib.ExitStack() as stack:
        agents = {samples: stack.enter_context(agent(SMALL, samples=samples)) for samples in (200, 1440)}
        for samples, served in agents.items():
            settle(served, samples)
        for _ in range(extent.rounds):
            for samples, served in agents.items():
                answers = [served.ask("cycle") for _ in range(extent.scrapes)]
                add(taken, **{f"whole{samples}": sum(own(answer, *WHOLE) for answer in answers) / len(answers),
                              f"before{samples}": sum(own(answer, "sampling") for answer in answers) / len(answers)})
            add(taken, scrape=scraped.cost_of_scrape(extent.scrapes))
    return paired(taken, small_before=("before200", "scrape"), small_200=("whole200", "scrape"),
                  small_1440=("whole1440", "scrape")), {}


def long_history(extent):
    taken = {}
    with disks(machine.mount_count() + 1000 - machine.listed_disks()), agent(samples=10080) as served:
        settle(served, 10080, cycles=1)
        for _ in range(extent.few):
            add(taken, whole=own(served.ask("cycle"), *WHOLE))
    return paired(taken, long_history=("whole", "")), {}


def growth_with_samples(extent):
    """Of the forecast of one resource with its files."""
    curve = []
    with disks(71):
        for samples in (200, 500, 1440, 3600) + (() if extent.quick else (10080,)):
            with agent(samples=samples) as served:
                settle(served, samples)
                count = served.ask("resources")["resources"][0]
                taken = [own(answer, "forecasts") - own(answer, "reports")
                         for answer in (served.ask("cycle") for _ in range(extent.few))]
            curve.append((samples, median_of(taken) / count))
    return {}, {"samples": curve}


def growth_with_resources(extent):
    curve = []
    for wanted in (10, 50, 150, 500) + (() if extent.quick else (1500,)):
        with disks(machine.mount_count() + wanted - machine.listed_disks()), agent(samples=300) as served:
            settle(served, 300)
            count = int(served.ask("resources")["resources"][0])
            taken = [(own(answer, *WHOLE), own(answer, *BEFORE_FORECASTS))
                     for answer in (served.ask("cycle") for _ in range(extent.few))]
        curve.append((count, *map(median_of, zip(*taken))))
    return {}, {"resources": curve}


# Trend files.


def trend_files(extent):
    taken = {}
    with disks(0) as memory, trend_writer(tempfile.gettempdir(), 1, 1440) as on_disk, trend_writer(memory.path, 1, 1440) as in_memory:
        for _ in range(extent.rounds):
            for place, writer in (("disk", on_disk), ("memory", in_memory)):
                add(taken, **{f"agent-{place}": both(writer.ask("agent 50")) / 50, f"plain-{place}": both(writer.ask("plain 50")) / 50})
    return paired(taken, trend_files_disk=("agent-disk", "plain-disk"), trend_files_memory=("agent-memory", "plain-memory")), {}


def _loop_device(kind, folder):
    """Mounts a new file system of that kind at the folder; the file that counts what is written to its device."""
    with tempfile.NamedTemporaryFile(dir=machine.BUILD, prefix="image-") as image:
        os.truncate(image.name, 1 << 30)
        subprocess.run([f"mkfs.{kind}", "-q", image.name], check=True)
        device = subprocess.check_output(["losetup", "--find", "--show", image.name], text=True).strip()
    machine.mount(device, folder, kind)
    subprocess.run(["losetup", "--detach", device], check=True)  # as soon as it is unmounted
    return f"/sys/block/{os.path.basename(device)}/stat"


def _written(counter):
    with open(counter) as file:
        return int(file.read().split()[6]) * 512


def _bytes_to_disk(kind, extent):
    with tempfile.TemporaryDirectory() as ours, tempfile.TemporaryDirectory() as theirs:
        counters = [_loop_device(kind, folder) for folder in (ours, theirs)]
        with trend_writer(ours, 20, 1440) as agents, trend_writer(theirs, 20, 1440) as plain:
            def cycle():
                agents.ask("agent 1")
                plain.ask("plain 1")

            cycle()
            os.sync()
            before = [_written(counter) for counter in counters]
            for _ in range(extent.periods):
                cycle()
                time.sleep(PERIOD)
            written = [(_written(counter) - begin) / extent.periods for counter, begin in zip(counters, before)]
        for folder in (ours, theirs):
            umount(folder)
    return tuple([amount] for amount in written)


def bytes_to_disk(extent):
    """Of 20 full resources a cycle, on a file system of the agent's own and one of the peer's. Takes real time, in whole rounds
    of the kernel's: what is changed in place it writes after half a minute, so before the fourth period from then on."""
    return {f"bytes-to-disk-{kind}": _bytes_to_disk(kind, extent) for kind in ("ext4", "xfs") if shutil.which(f"mkfs.{kind}")}, {}


# The whole program.


def _java():
    return ["java", *hostCost.shipped_options().split(), f"-Dlumetra.library={machine.BUILD / 'libObrinagent.so'}", "-jar",
            str(machine.BUILD / "java" / "lumetra-agent.jar")]


def whole_program(extent):
    """A Java machine that runs the agent beside exporters that are scraped once a period. Takes real time."""
    homes = [Home(ALL, period=PERIOD * 1000, maximum=48) for _ in range(2)]
    ports = [free_port() for _ in homes]
    with contextlib.ExitStack() as stack:
        quiet, scraped = (stack.enter_context(hostCost.host_of(_java(), home, port)).pid for home, port in zip(homes, ports))
        exporters = [stack.enter_context(exporter()),
                     stack.enter_context(exporter("filesystem", "processes", "loadavg", "meminfo", "filefd", port=9101))]
        collector = stack.enter_context(machine.collectd("df", "processes", "load", "memory", "swap"))

        def used():
            return ([machine.used_by(pid) + machine.used_by_children_of(pid) for pid in (quiet, scraped)]
                    + [one.used() for one in exporters] + [machine.used_by(collector)])

        def go_on(periods):
            for _ in range(periods):
                time.sleep(PERIOD)
                for one in exporters:
                    one.scrape()
                hostCost.ask(ports[1], "/metrics", **{"Accept-Encoding": "gzip"})

        go_on(max(3, extent.periods // 3))
        before = used()
        go_on(extent.periods)
        shares = [[(after - begin) / extent.periods] for begin, after in zip(before, used())]
    for home in homes:
        home.remove()
    return {"whole-program": (shares[0], shares[2]), "whole-program-scraped": (shares[1], shares[2]),
            "whole-program-five": (shares[1], shares[3]), "whole-program-collectd": (shares[0], shares[4])}, {}


def resident(extent):
    home, _ = hostCost.home_with(20, 1000)
    megabytes = hostCost.measured(_java(), home, free_port(), 10 if extent.quick else 60, True)[2]
    home.remove()
    return {"resident": ([megabytes], [])}, {}


def requests(extent):
    rows = {}
    home, _ = hostCost.home_with(10000, 8000)
    for row, path in (("request-resources", "/api/v1/resources"), ("request-metrics", "/metrics")):
        _, later, _ = hostCost.cost_of_requests(_java(), home, free_port(), path, 6 if extent.quick else 20)
        rows[row] = ([later / 1000], [])
        os.remove(home.layout.archive)
    home.remove()
    return rows, {}


SCENES = {scene.__name__.replace("_", "-"): scene for scene in (
    census, file_systems, few_mounts, thousand_mounts, ten_thousand_mounts, forecasts_of_ten_thousand_mounts, unmounted, small_cycle,
    long_history, trend_files, bytes_to_disk, whole_program, resident, requests, growth_with_processes, growth_with_mounts,
    growth_with_samples, growth_with_resources)}
