"""What an agent did, replayed from what it recorded: the same onsets, events and clearings in the same cycles."""

import contextlib
import glob
import json
import os
import signal
import subprocess
import sys
import unittest

import jsonschema

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import JavaTest, JAR, LIBRARY, LUMETRA, PROJECT, remaining, wait_until  # noqa: E402
from agent_home import declaration, mount, needs_mounts, umount, write  # noqa: E402
from log_follower import LogFollower  # noqa: E402
from test_jvm_forecast import fill  # noqa: E402
from test_strangers import STRANGER, needs_root  # noqa: E402
from turned_agent import TurnedAgent  # noqa: E402

PROGRAM = os.path.join(PROJECT, "lumetra")
PERIOD = 900  # milliseconds; the turned time goes by faster
CYCLE = 10
PORTION = 64 << 10
SIZE = 250 * PORTION  # so that every sample is a multiple of 0.4 %, which two decimals hold
START = 1_700_000_000
HAPPENINGS = {"Onset of exhaustion": "onset", "exhaustion imminent": "event", "Clearing intent to notify": "cleared"}


# The files of a home that a replay reads, and what strangers put in the place of one.
PLACES = {"archive": ("data", "archive.txt"), "scratch pad": ("data", "scratch.txt"), "declarations": ("config", "resources.txt"),
          "configuration": ("config", "AutoConfig.ini")}


def to_link(home, path):
    os.rename(path, home.at("elsewhere"))
    os.symlink(home.at("elsewhere"), path)


def to_strangers_link(home, path):
    to_link(home, path)
    os.lchown(path, STRANGER, STRANGER)
    os.chmod(os.path.dirname(path), 0o777)


def to_strangers(_, path):
    os.chown(path, STRANGER, STRANGER)
    os.chmod(os.path.dirname(path), 0o777)


def to_second_name(home, path):
    os.link(path, home.at("elsewhere"))
    os.chmod(os.path.dirname(path), 0o777)


PLANTS = {"link": to_strangers_link, "file": to_strangers, "second name": to_second_name}
PLANTED = [*(("archive", plant) for plant in PLANTS), *((name, "file") for name in PLACES if name != "archive")]


def has_thread(process, name):
    with contextlib.suppress(OSError):  # of a thread that ends meanwhile: whoever waits looks again
        return any(content(path).decode().strip() == name for path in glob.glob(f"/proc/{process}/task/*/comm"))
    return True


def content(path):
    with open(path, "rb") as file:
        return file.read()


def replay(*arguments, **more):
    return subprocess.run([*LUMETRA, "replay", *arguments], env={**os.environ, "LC_ALL": "C.UTF-8", "TZ": "UTC"},
                          stdin=subprocess.DEVNULL, capture_output=True, encoding="utf-8", timeout=remaining(), **more)


def bytes_read(process, path):
    """How far a program has come in a file that it reads; 0 when it does not."""
    folder = f"/proc/{process.pid}/fd"
    for name in os.listdir(folder):
        with contextlib.suppress(FileNotFoundError):  # closed meanwhile
            if os.path.realpath(os.path.join(folder, name)) == path:
                return int(content(f"/proc/{process.pid}/fdinfo/{name}").split()[1])
    return 0


class ReplayTest(JavaTest):
    def replayed(self, home, *options):
        result = replay("--home", home.path, "--json", *options)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return self.valid(result.stdout)

    def valid(self, text):
        told = json.loads(text)
        with open(os.path.join(PROJECT, "docs", "replay.schema.json"), encoding="utf-8") as file:
            jsonschema.Draft202012Validator(json.load(file)).validate(told)
        return told

    def recorded_home(self, values, period=60_000, name="small"):
        """A home with an archive of one disk, a sample each period."""
        home = self.fresh_home(period=period, maximum=48)
        home.declare((declaration("LogicalDisk", "*", "PercentFreeSpaceUsed", window="-1."),))
        write(home.layout.scratch_pad, "\nEvent: ResourceDefinition - Informational \n"
              f"2   1   (LogicalDisk)   (/dev/{name} /{name})   (PercentFreeSpaceUsed)   -2   \n")
        write(home.layout.archive, "".join(f"{START + i * period // 1000} 1 0 {value:.2f} \n" for i, value in enumerate(values)))
        return home


class LiveAgainstReplay(ReplayTest):
    def host_with_disk(self, home, path, now=None):
        turned = TurnedAgent(home, path, now)
        self.addCleanup(turned.close)
        return turned, self.host(home, environment=turned.environment())

    def happened(self, log):
        """What the agent's log tells, as the replay's timeline tells it."""
        log.look()
        found, announced = [], set()
        for when, instance, line in log.dated:
            what = next((word for start, word in HAPPENINGS.items() if line.startswith(start)), None)
            if what == "onset":
                announced.discard(instance)
            if what is None or what == "event" and instance in announced:
                continue
            if what == "event":
                announced.add(instance)
            found.append((when, instance, what))
        return found

    @needs_mounts
    def test_a_replay_tells_what_the_agent_told_also_over_a_restart(self):
        home = self.fresh_home(period=PERIOD)
        home.declare((declaration("LogicalDisk", "*", "PercentFreeSpaceUsed", window="-1."),))
        path = home.at("disk")
        os.mkdir(path)
        mount("small", path, "tmpfs", 0, f"size={SIZE}")
        self.addCleanup(umount, path)
        data = os.path.join(path, "data")
        log = LogFollower(home.layout.log)
        self.addCleanup(log.close)

        turned, machine = self.host_with_disk(home, path)
        for _ in range(230):
            turned.cycle(CYCLE, lambda: fill(path, PORTION))
            log.look()  # the log turns over, and keeps one older part
        os.truncate(data, 100 * PORTION)
        while not any(what == "cleared" for _, _, what in self.happened(log)):
            turned.cycle(CYCLE)
        turned.release()
        self.terminate(machine, home)
        first = self.happened(log)
        self.assertEqual([what for _, _, what in first], ["onset", "event", "cleared"])

        for name in ("asked", "go", "free"):
            os.unlink(home.at(name))
        turned, machine = self.host_with_disk(home, path, turned.now + 60)
        for _ in range(40):
            turned.cycle(CYCLE, lambda: fill(path, 2 * PORTION))
            log.look()
        turned.release()
        self.terminate(machine, home)

        told = self.replayed(home)
        instance = "small " + path
        timeline = [(h["time"], instance, h["what"]) for h in told["timeline"] if h["what"] != "limit"]
        self.assertEqual(timeline, self.happened(log))
        self.assert_same_score(home, told)

    def assert_same_score(self, home, told):
        with open(home.at("log", "score.jsonl"), encoding="utf-8") as file:
            lines = [json.loads(line) for line in file]
        kept = [line for line in lines if line["type"] == "episode"]
        episodes = [e for e in told["resources"][0]["rules"][0]["episodes"] if e["outcome"] != "open"]
        self.assertEqual([(e["onset"], e["firstEvent"] or None, e["end"], e["outcome"], e["announcedAtOnset"]) for e in kept],
                         [(e["onset"], e["firstEvent"], e["end"], e["outcome"], e["announcedAtOnset"]) for e in episodes])
        self.assertEqual(kept[0]["outcome"], "freed")
        self.assertEqual(len([line for line in lines if line["type"] == "start"]), 2)


class Score(ReplayTest):
    LEAK = [20.0] * 600 + [20 + 0.1 * i for i in range(801)] + [30.0] * 100

    def test_the_past_is_scored_once_when_there_is_no_score_yet(self):
        home = self.recorded_home(self.LEAK)
        machine = self.host(home)
        score = home.at("log", "score.jsonl")
        wait_until(lambda: os.path.exists(score) and '"history"' in content(score).decode(), "the score of the past")
        machine.until(lambda: content(home.layout.archive).count(b"\n") > len(self.LEAK), "a cycle")
        self.terminate(machine, home)
        lines = [json.loads(line) for line in content(score).decode().splitlines()]
        episodes = [line for line in lines if line["type"] == "episode"]
        self.assertEqual([(e["resource"], e["instance"], e["outcome"]) for e in episodes],
                         [("PercentFreeSpaceUsed", "/dev/small /small", "reached")])
        self.assertEqual([line["from"] for line in lines if line["type"] == "history"], [START])
        home.configure(period=1000, maximum=48)
        machine = self.host(home)
        self.more_lines(machine, home, 2)
        self.terminate(machine, home)
        self.assertEqual(content(score).decode().count('"episode"'), 1)

    def score_of_the_past(self, home):
        """What a run finds that has looked at all there was before it."""
        machine = self.host(home)
        machine.expect("Lumetra Agent ")  # by now the looking has begun
        wait_until(lambda: not has_thread(machine.process.pid, "lumetra-score"), "the score of the past")
        if machine.expect(("It announces an exhaustion", "The agent ended by itself")).startswith("It announces"):
            self.terminate(machine)
        machine.end()
        score = home.at("log", "score.jsonl")
        return {json.loads(line)["type"] for line in content(score).decode().splitlines()} if os.path.exists(score) else set()

    @needs_root
    def test_a_past_that_a_stranger_planted_is_not_scored(self):
        self.assertEqual(self.score_of_the_past(self.recorded_home(self.LEAK)), {"episode", "history", "start"})
        for name, plant in PLANTED:
            with self.subTest(name=name, plant=plant):
                home = self.recorded_home(self.LEAK)
                PLANTS[plant](home, home.at(*PLACES[name]))
                self.assertLessEqual(self.score_of_the_past(home), {"start"})

    def more_lines(self, machine, home, count):
        lines = content(home.layout.archive).count(b"\n")
        machine.until(lambda: content(home.layout.archive).count(b"\n") >= lines + count, "more cycles")


class Command(ReplayTest):
    LEAK = Score.LEAK

    def test_the_table_tells_the_timeline_and_the_score(self):
        home = self.recorded_home(self.LEAK)
        before = {name: os.stat(os.path.join(folder, name)).st_mtime_ns for folder, _, names in os.walk(home.path) for name in names}
        result = replay("--home", home.path, "--against")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        lines = result.stdout.splitlines()
        self.assertTrue(lines[0].startswith("1,501 cycles of 1 resources, 2023-11-14 22:13 to "), lines[0])
        self.assertRegex(result.stdout, r"\n2023-11-15 \d\d:\d\d  onset    PercentFreeSpaceUsed \[/dev/small /small\]: exhausted at ")
        self.assertRegex(result.stdout, r"\n2023-11-15 21:33  limit    PercentFreeSpaceUsed \[/dev/small /small\]\n")
        self.assertRegex(result.stdout, r"\nagent, from the event +1 of 1 ")
        self.assertRegex(result.stdout, r"\n90 % used +1 of 1 ")
        after = {name: os.stat(os.path.join(folder, name)).st_mtime_ns for folder, _, names in os.walk(home.path) for name in names}
        self.assertEqual(before, after, "a replay changes nothing")

    def test_damage_is_told_with_its_place_and_has_a_code_of_its_own(self):
        home = self.recorded_home(self.LEAK)
        text = content(home.layout.archive)
        write(home.layout.archive, text[:3000] + b"\x00rubbish" + text[3000:])
        result = replay("--home", home.path)
        self.assertEqual(result.returncode, 3, result.stderr)
        self.assertRegex(result.stdout, r"archive.txt:\d+: passed over: ")

    def test_the_json_is_as_its_schema_says(self):
        told = self.replayed(self.recorded_home(self.LEAK), "--against")
        self.assertEqual([rule["rule"] for rule in told["resources"][0]["rules"]],
                         ["agent", "line6h24h", "line6h4h", "twoPoints1h", "threshold90"])
        self.assertEqual([e["outcome"] for e in told["resources"][0]["rules"][0]["episodes"]], ["reached"])

    def test_what_is_missing_or_no_archive_is_named(self):
        home = self.recorded_home(self.LEAK)
        for arguments, code, words in (
                (("--home", "/none"), 1, "/none/config/AutoConfig.ini, the configuration: there is no such file"),
                (("--home", home.path, "/none/archive"), 1, "/none/archive, the archive: there is no such file"),
                (("--home", home.path, home.path), 1, "the archive: it is a directory"),
                (("--home", home.path, "--every", "0"), 2, "'--every': expected a number from 1 to 100000, got 0"),
                (("--home", home.path, "--horizon", "0"), 2, "'--horizon': expected hours from 1 to 100000, got 0"),
                (("--home", home.path, "--plot", "/none"), 2, "'--plot': expected a directory")):
            result = replay(*arguments)
            self.assertEqual((result.returncode, result.stdout), (code, ""), arguments)
            self.assertIn(words, result.stderr)
        os.unlink(home.layout.scratch_pad)
        self.assertIn("the scratch pad: there is no such file", replay("--home", home.path).stderr)
        write(home.at("config", "AutoConfig.ini"), "rubbish")
        self.assertIn("is no configuration of the agent", replay("--home", home.path).stderr)

    @needs_root
    def test_what_a_stranger_planted_is_read_only_where_it_is_named(self):
        for name, plant in PLANTED:
            with self.subTest(name=name, plant=plant):
                home = self.recorded_home(self.LEAK)
                path = home.at(*PLACES[name])
                PLANTS[plant](home, path)
                result = replay("--home", home.path)
                self.assertEqual((result.returncode, result.stdout), (1, ""), result.stderr)
                self.assertIn(f"{path}, the {name}: it ", result.stderr)
                named = {"archive": (path,), "configuration": ("--config", path)}.get(name)
                if named:
                    result = replay("--home", home.path, *named)
                    self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_what_people_give_may_be_a_link_and_what_the_agent_writes_may_not(self):
        for name, where in PLACES.items():
            with self.subTest(name=name):
                home = self.recorded_home(self.LEAK)
                to_link(home, home.at(*where))
                result = replay("--home", home.path)
                self.assertEqual(result.returncode, 1 if where[0] == "data" else 0, result.stderr)
                self.assertEqual("it is a symbolic link" in result.stderr, where[0] == "data", result.stderr)

    def test_ctrl_c_prints_what_is_known_and_says_that_it_is_a_part(self):
        home = self.recorded_home([50 + i % 7 for i in range(200_000)])
        process = subprocess.Popen([PROGRAM, "replay", "--home", home.path], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   env={**os.environ, "LUMETRA_JAR": JAR, "LUMETRA_LIBRARY": LIBRARY}, encoding="utf-8")
        self.addCleanup(process.kill)
        part = os.path.getsize(home.layout.archive) / 8
        wait_until(lambda: bytes_read(process, home.layout.archive) > part, "a replay that is under way")
        process.send_signal(signal.SIGINT)
        out, err = process.communicate(timeout=remaining())
        self.assertEqual(err, "")
        self.assertTrue(out.startswith("Interrupted, so this is a part: "), out[:200])

    def test_a_sweep_shows_settings_side_by_side(self):
        home = self.recorded_home(self.LEAK)
        result = replay("--home", home.path, "--sweep")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertRegex(result.stdout, r"\n\*? +48 h +60 s +1 of 1 ")
        self.assertRegex(result.stdout, r"\n[* ] +168 h +5 min ")
        told = self.valid(replay("--home", home.path, "--sweep", "--json").stdout)["sweep"]
        self.assertEqual((told[0]["settings"]["maxForecastHours"], told[0]["settings"]["every"]), (48, 1))
        self.assertEqual(told[0]["timeline"], [])

    def test_a_picture_is_drawn_of_each_resource(self):
        home = self.recorded_home(self.LEAK)
        folder = home.at("pictures")
        os.mkdir(folder)
        result = replay("--home", home.path, "--plot", folder)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertTrue(content(os.path.join(folder, "replay-1.png")).startswith(b"\x89PNG"))


if __name__ == "__main__":
    unittest.main()
