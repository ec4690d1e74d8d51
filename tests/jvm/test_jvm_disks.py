"""Which disks the shipped host watches: the rules of its options and of its file, and where it tells what they leave out."""

import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import PROJECT, JavaTest, ask  # noqa: E402
from test_jvm_commands import lumetra  # noqa: E402
from agent_home import DISK_INODES, DISK_SPACE, PROCESSES, declaration, mount, needs_mounts, needs_tool, umount, write  # noqa: E402
import jsonschema  # noqa: E402

CONTAINERS = 300


class DisksTest(JavaTest):
    def home_with(self, *inputs, rules=None, period=1000):
        home = self.fresh_home(period=period)
        home.declare(inputs or (PROCESSES, DISK_SPACE, DISK_INODES))
        if rules is not None:
            write(home.at("config", "skip.conf"), rules)
        return home

    def overview(self, port):
        status, _, body = ask(port, "/api/v1/resources")
        self.assertEqual(status, 200, body)
        return json.loads(body)

    def complete(self, machine, port):
        """The first answer after a cycle."""
        return machine.until(lambda: self.overview(port)["agent"]["newestCycleAt"] and self.overview(port), "a cycle")

    def ended(self, machine, home):
        machine.signal(signal.SIGTERM)
        self.assertEqual(machine.end(), 0, machine.output())
        self.assert_clean(machine, home)

    def watched(self, overview):
        return {r["mountpoint"] for r in overview["resources"] if r["mountpoint"] and r["state"] != "absent"}

    def metrics(self, port):
        _, _, body = ask(port, "/metrics")
        return {name: float(value) for name, value in
                re.findall(r"^(lumetra_agent_disks\S*) (\S+)$", body.decode(), re.MULTILINE)}


class Mounts(DisksTest):
    def setUp(self):
        self.base = tempfile.mkdtemp(prefix="lumetra-mounts-")
        self.addCleanup(shutil.rmtree, self.base, ignore_errors=True)

    def mounted(self, source, name, kind="tmpfs", options="size=64k"):
        point = os.path.join(self.base, name)
        os.makedirs(point)
        mount(source, point, kind, 0, options)
        self.addCleanup(umount, point)
        return point

    def snap(self):
        """A squashfs that is mounted; skips the test where none can be."""
        files = os.path.join(self.base, "files")
        os.makedirs(files)
        write(os.path.join(files, "file"), os.urandom(20000))
        image = os.path.join(self.base, "image")
        subprocess.run(["mksquashfs", files, image, "-quiet", "-no-progress"], check=True, capture_output=True)
        point = os.path.join(self.base, "snap")
        os.makedirs(point)
        done = subprocess.run(["mount", "-o", "loop,ro", image, point], capture_output=True, text=True)
        if done.returncode:
            self.skipTest(f"no squashfs can be mounted: {done.stderr.strip()}")
        self.addCleanup(umount, point)
        return point

    def below(self, texts):
        return {text for text in texts if f"{self.base}/" in text}

    @needs_mounts
    @needs_tool("mksquashfs")
    def test_a_container_host_of_300_mounts_and_a_snap_watches_its_disks_and_tells_the_rest_with_the_rules(self):
        snap = self.snap()
        disk = self.mounted("tmpfs", "disk")
        for number in range(CONTAINERS):
            self.mounted("shm", f"c/{number}/shm")
        home = self.home_with(rules=f"# containers\nmount {self.base}/c/*/shm\nmount relative/*\n")
        machine, port = self.page(home)
        overview = self.complete(machine, port)
        self.assertEqual(self.below(self.watched(overview)), {disk})
        left = [entry for entry in overview["leftOut"] if f"{self.base}/" in entry["what"]]
        self.assertEqual(len(left), CONTAINERS + 1)
        rules = {(entry["kind"], entry["rule"]) for entry in left}
        self.assertEqual(rules, {("nature", "squashfs, full by its nature"), ("pattern", f"rule mount {self.base}/c/*/shm")})
        image, = (entry for entry in left if entry["kind"] == "nature")
        self.assertTrue(image["what"].endswith(" " + snap), image)
        with open(os.path.join(PROJECT, "docs", "api.schema.json"), encoding="utf-8") as file:
            schema = json.load(file)
        jsonschema.Draft202012Validator({**schema, "$ref": "#/$defs/resources"}).validate(overview)
        # the same in numbers, at the terminal and on the console
        metrics = self.metrics(port)
        self.assertEqual(metrics['lumetra_agent_disks_left_out{rule="pattern"}'], CONTAINERS)
        self.assertEqual(metrics['lumetra_agent_disks_left_out{rule="type"}'], 0)
        self.assertEqual(metrics["lumetra_agent_disks_watched"], len(self.watched(overview)))
        counted = f"rule mount {self.base}/c/*/shm: {CONTAINERS}; "
        status = lumetra("status", "--port", str(port)).stdout
        self.assertIn(counted, status)
        skipped = lumetra("status", "--skipped", "--port", str(port)).stdout.splitlines()
        self.assertEqual(len(self.below(skipped[:-1])), CONTAINERS + 1)
        self.assertIn(counted, skipped[-1])
        listed = json.loads(lumetra("status", "--skipped", "--json", "--port", str(port)).stdout)
        self.assertEqual(listed, overview["leftOut"])
        self.assertIn(counted, machine.expect("The agent leaves out "))
        self.assertIn(f"{home.path}/config/skip.conf:3: warning: mount has \"relative/*\" behind it and is ignored; expected a "
                      "pattern that begins with a /, as in mount /run/user/* [skip-pattern-relative]",
                      machine.output().replace("../config", home.path + "/config"))
        self.ended(machine, home)
        numbered = [name[1] for name in home.numbers() if name[0] == "LogicalDisk" and name[3] == -2]
        self.assertEqual({name.partition(" ")[2] for name in self.below(numbered)}, {disk})

    @needs_mounts
    def test_options_are_rules_too_and_a_disk_says_why_it_is_watched(self):
        memory = self.mounted("memory", "memory")
        named = self.mounted("named", "named")
        self.mounted("other", "other")
        home = self.home_with(PROCESSES, DISK_SPACE, declaration("LogicalDisk", f"named {named}", "PercentFreeInodesUsed"))
        machine, port = self.page(home, "--skip-mount", f"{self.base}/na*", "--skip-mount", f"{self.base}/o?her",
                                  "--skip-fstype=nosuch")
        overview = self.complete(machine, port)
        self.assertEqual(self.below(self.watched(overview)), {memory, named})
        reasons = {r["mountpoint"]: r["whyWatched"] for r in overview["resources"]}
        self.assertEqual(reasons[None], "It is watched because the declarations name this counter of the whole system.")
        self.assertEqual(reasons[memory], "It is watched because it is mounted: the declarations want this counter of every disk.")
        self.assertEqual(reasons[named], "It is watched because the declarations name this disk; no rule leaves it out.")
        self.ended(machine, home)

    @needs_mounts
    @needs_tool("mksquashfs")
    def test_all_disks_are_all_whatever_the_file_says(self):
        snap = self.snap()
        disk = self.mounted("tmpfs", "disk")
        home = self.home_with(rules="fstype tmpfs\nnonsense\n")
        machine, port = self.page(home, "--all-disks")
        overview = self.complete(machine, port)
        self.assertEqual(self.below(self.watched(overview)), {disk, snap})
        self.assertEqual(overview["leftOut"], [])
        self.ended(machine, home)
        self.assertNotIn("nonsense", machine.output())
        self.assertNotIn("leaves out", machine.output())


class CommandLine(DisksTest):
    def refused(self, *options):
        home = self.home_with(PROCESSES)
        machine = self.host(home, *options)
        self.assertEqual(machine.end(), 2, machine.output())
        self.assertIn("Try lumetra run --help", machine.output())
        self.assertEqual(home.archive_lines(), [])
        return machine.output()

    def test_a_rule_that_is_none_and_all_disks_with_rules_are_wrong_command_lines(self):
        self.assertIn("lumetra run: --skip-mount snap/*: expected a pattern that begins with a /",
                      self.refused("--skip-mount", "snap/*"))
        self.assertIn("lumetra run: --skip-fstype ext4 xfs: expected one name of a type", self.refused("--skip-fstype", "ext4 xfs"))
        self.assertIn("--all-disks leaves no disk out", self.refused("--all-disks", "--skip-fstype", "tmpfs"))
        self.assertIn("/a\\nfstype ext4: expected one line", self.refused("--skip-mount", "/a\nfstype ext4"))

    def test_rules_that_cannot_be_read_are_told_and_count_as_none(self):
        home = self.home_with(PROCESSES)
        os.mkfifo(home.at("config", "skip.conf"))
        machine, port = self.page(home)
        self.complete(machine, port)
        self.ended(machine, home)
        self.assertIn("config/skip.conf: warning: the skip rules cannot be read and count as none: it is a pipe or a device",
                      machine.output())

    def check(self, home, *options):
        return lumetra("check", "--home", home.path, *options, LUMETRA_LIBRARY=self.library).stdout

    def test_a_rule_that_is_no_line_of_the_shipped_file_is_none_and_all_its_examples_are_rules(self):
        with open(os.path.join(PROJECT, "config", "skip.conf"), encoding="utf-8") as file:
            shipped = file.read()
        home = self.home_with(PROCESSES, rules=shipped)
        shutil.copy(os.path.join(PROJECT, "config", "AutoConfig.ini"), home.at("config"))
        self.assertEqual(self.check(home), "Nothing found.\n")
        examples = re.findall(r"^#(\S.*)$", shipped, re.MULTILINE)
        self.assertGreater(len(examples), 8)
        write(home.at("config", "skip.conf"), "\n".join(examples) + "\n")
        findings = json.loads(self.check(home, "--json"))["findings"]
        self.assertLessEqual({finding["id"] for finding in findings}, {"skip-matches-nothing"}, findings)


if __name__ == "__main__":
    unittest.main()
