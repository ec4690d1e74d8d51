"""What ./lumetra check says, and that it refuses exactly what the agent refuses."""

import json
import os
import random
import re
import shutil
import socket
import subprocess
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import FAST, JAR, LUMETRA, PROGRAM, agent_home, classes_of, often, remaining, some, wait_until  # noqa: E402
from agent_home import (DISK_SPACE, DRIVER, LIBRARY, PROCESSES, PROJECT, Home, Running, declaration,  # noqa: E402
                        declarations_text)

CASES = os.path.join(PROJECT, "java", "src", "test", "resources", "check")
KEYWORDS = ["BeginResourceDeclaration", "BeginResourceInput", "FindObject", "FindInstance", "FindCounter", "WindowSize",
            "NameIs", "AnalyticalMethod", "UpperLimitAbs", "UpperLimitCalc", "LowerLimitAbs", "LowerLimitCalc",
            "CulpritMarker", "EndResourceInput", "EndResourceDeclaration"]
ODD = KEYWORDS + ["/*", "*/", "/*x", "x*/", "(", ")", "()", "(a b)", "(File)", "(Process)", "(BeginResourceInput)",
                  "(LogicalDisk", "12", "-", "+5", "1e400", "nan", "0x1p3", "many", "\0", "\xff", "(\xff)", "(a\0b)",
                  "\xef\xbb\xbf", "\r\n", "\v", "(" + "n" * 128 + ")", "/* FindObject (x) */", "findobject", "FindObject(x)"]
NUMBERS = ["", "x", "1.5", "-", "+", "+-1", "--1", "99999999999", "-99999999999999999999", "0", "-1", "7\0", "\xff", "\x1c",
           "1,2", "5h", "\r\n", "#"]
ACCEPTED = "Before setInitialEventStates()"


def shipped_home():
    """A home as ./run-agent makes it."""
    home = Home()
    for name in ("AutoConfig.ini", "resources.txt"):
        shutil.copy(os.path.join(PROJECT, "config", name), home.at("config", name))
    return home


def prepare(home, steps):
    """Follows the lines of a case: remove PATH, file PATH, pipe PATH, line PATH WORDS, size PATH BYTES, mode PATH BITS, owner
    PATH USER (only by root)."""
    for step in steps.splitlines():
        what, path, *more = step.split()
        path = os.path.normpath(home.at(path))
        if what in ("remove", "pipe") and os.path.isdir(path):
            shutil.rmtree(path)
        elif what in ("remove", "pipe") and os.path.exists(path):
            os.remove(path)
        if what == "file":
            agent_home.write(path, "")
        elif what == "pipe":
            os.mkfifo(path)
        elif what == "line":
            with open(path, "a", encoding="utf-8") as file:
                file.write(" ".join(more) + "\n")
        elif what == "mode":
            os.chmod(path, int(more[0], 8))
        elif what == "owner" and os.geteuid() == 0:
            os.chown(path, int(more[0]), -1)
        elif what == "size":
            os.truncate(path, int(more[0]))


def agent_refuses(home):
    """Whether the agent ends by itself before its first cycle."""
    running = Running(home, "--cycles", 1)
    log = home.at("log", "LumetraAgent.log")

    def is_accepted():
        return ACCEPTED in agent_home.read(log) or os.path.exists(home.at("data", "LumetraArchive.txt"))

    try:
        wait_until(lambda: is_accepted() or running.process.poll() is not None, "a decision of the agent")
        return not is_accepted()
    finally:
        running.clean()


def forget_run(home):
    """Removes what the run before left, its log above all."""
    for left in ("log/LumetraAgent.log", "data/LumetraArchive.txt", "data/ScratchPad.txt"):
        if os.path.exists(home.at(left)):
            os.remove(home.at(left))


class Checker:
    """The check in one long-lived Java machine."""

    def __init__(self):
        self.process = subprocess.Popen(["java", *FAST, "-Xmx256m", f"-Dlumetra.library={LIBRARY}", "-cp",
                                         JAR + ":" + classes_of("CheckMany"),
                                         "com.quorin.sysmgt.tavl.LumetraAgent.check.CheckMany"], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, env=dict(os.environ, LC_ALL="C.UTF-8"))
        self.kinds = dict(line.split() for line in iter(self.line, "ready"))

    def line(self):
        line = self.process.stdout.readline()
        if not line:
            raise AssertionError("the checker ended")
        return line.decode().rstrip("\n")

    def check(self, home):
        """The number of errors, and the identifiers."""
        self.process.stdin.write(os.fsencode(home.path) + b"\n")
        self.process.stdin.flush()
        errors, *ids = self.line().split()
        return int(errors), ids

    def close(self):
        self.process.stdin.close()
        self.process.wait()
        self.process.stdout.close()


@unittest.skipUnless(shutil.which("javac"), "no Java development kit is installed")
@unittest.skipUnless(os.path.exists(JAR), f"{JAR} is not built")
class CheckTest(unittest.TestCase):
    longMessage = True

    @classmethod
    def setUpClass(cls):
        cls.checker = Checker()

    @classmethod
    def tearDownClass(cls):
        cls.checker.close()

    def home(self):
        home = shipped_home()
        self.addCleanup(home.remove)
        return home


@unittest.skipUnless(os.path.exists(DRIVER), f"{DRIVER} is not built")
class SameJudgement(CheckTest):
    """An error is what the agent refuses, by the agent itself."""

    def compare(self, home, what):
        """True when both refuse; they must agree."""
        errors, ids = self.checker.check(home)
        refused = agent_refuses(home)
        self.assertEqual(errors > 0, refused, f"{what}: the check says {ids}, the agent {'refuses' if refused else 'accepts'}")
        return refused

    def compare_texts(self, name, texts):
        """Of both kinds there must be many, or the comparison would prove little."""
        home = self.home()
        refused = 0
        texts = some(texts, 30)
        for text in texts:
            forget_run(home)
            agent_home.write(home.at("config", name), text)
            refused += self.compare(home, repr(text))
        least = often(0, len(texts) // 20)
        self.assertGreater(refused, least)
        self.assertGreater(len(texts) - refused, least)

    def test_the_files_that_provoke_the_findings(self):
        names = sorted({name.rpartition(".")[0] for name in os.listdir(CASES)} - {"base"})
        self.assertGreater(len(names), 50)
        refused = 0
        errors = [name for name in names if self.checker.kinds.get(name) == "error"]
        for name in some(errors, 5) + some([name for name in names if name not in errors], 15):
            with self.subTest(name):
                home = case_home(name)
                self.addCleanup(home.remove)
                refused += self.compare(home, name)
        self.assertGreater(refused, 1)

    def test_declarations_that_are_cut_off_anywhere(self):
        text = declarations_text((PROCESSES, declaration("Other", "i", "c", "n")))
        ends = [match.end() for match in re.finditer(r"\S+", text)]
        self.compare_texts("resources.txt", [text[:end] for end in ends] + [text[:end - 1] for end in ends])

    def test_declarations_with_a_word_less(self):
        text = declarations_text((PROCESSES, DISK_SPACE))
        words = list(re.finditer(r"\S+", text))
        self.compare_texts("resources.txt", [text[:word.start()] + text[word.end():] for word in words])

    def test_declarations_with_something_odd_in_them(self):
        chance = random.Random(20)
        texts = []
        for _ in range(250):
            words = re.findall(r"\S+|\s+", declarations_text((PROCESSES, DISK_SPACE, declaration("Other"))))
            for _ in range(chance.randint(1, 3)):
                at = chance.randrange(len(words))
                odd = chance.choice(ODD)
                words[at:at + chance.choice((0, 0, 1))] = [chance.choice(("", " ")) + odd + chance.choice(("", " "))]
            texts.append("".join(words))
        self.compare_texts("resources.txt", texts)

    def test_declarations_whose_parts_are_shuffled(self):
        chance = random.Random(21)
        texts = []
        for _ in range(120):
            lines = declarations_text((PROCESSES, declaration("Other", "i", "c", "n"))).splitlines()
            for _ in range(chance.randint(1, 2)):
                line = lines.pop(chance.randrange(len(lines)))
                if chance.random() < 0.7:
                    lines.insert(chance.randrange(len(lines)), line)
            texts.append("\n".join(lines) + "\n")
        self.compare_texts("resources.txt", texts)

    def test_declarations_whose_judgement_hangs_on_a_detail(self):
        begin = "BeginResourceDeclaration\n"
        home = self.home()
        for text, refused in ((begin + "FindObject (File)", False),
                              (begin + "FindObject (file)", True),
                              (begin + "FindObject (File\0)", False),
                              (begin + "FindObject (File\xff)", True),
                              (begin + declaration("Other").replace("EndResourceInput", ""), False),
                              (begin + declaration("BeginResourceInput").replace("EndResourceInput", ""), True),
                              (begin + declaration("Process\0").replace("EndResourceInput", ""), True),
                              (begin + declaration("Other") + "BeginResourceInput", True),
                              (begin + declaration("Other") + "/* BeginResourceInput", False)):
            agent_home.write(home.at("config", "resources.txt"), text)
            forget_run(home)
            self.assertEqual(self.compare(home, repr(text)), refused, text)

    def test_configurations_with_something_odd_in_them(self):
        chance = random.Random(22)
        texts = []
        for _ in range(200):
            words = "../data/ a.txt ../data/p.txt ../log/A.log ../config/resources.txt 10000 0 48 50 0 0".split()
            for _ in range(chance.randint(0, 2)):
                words[chance.randrange(5, len(words))] = chance.choice(NUMBERS)
            text = " ".join(words[:chance.randint(4, 14)])
            texts.append(text + chance.choice(("", "\n", "\0", " \0", "x")))
        self.compare_texts("AutoConfig.ini", texts)


def case_home(name):
    """The home of a case: the base with the case's own files in place of it."""
    home = Home()
    for ending, target in (("ini", "AutoConfig.ini"), ("txt", "resources.txt")):
        own = os.path.join(CASES, f"{name}.{ending}")
        shutil.copy(own if os.path.exists(own) else os.path.join(CASES, f"base.{ending}"), home.at("config", target))
    steps = os.path.join(CASES, name + ".home")
    if os.path.exists(steps):
        prepare(home, agent_home.read(steps))
    return home


class AsTyped(CheckTest):
    """The command as a user types it."""

    def lumetra(self, *options, cwd=None):
        result = subprocess.run([*LUMETRA, "check", *options], cwd=cwd, capture_output=True, timeout=remaining(),
                                env=dict(os.environ, LC_ALL="C.UTF-8"))
        return result.returncode, result.stdout.decode(), result.stderr.decode()

    def test_the_shipped_configuration_gives_nothing(self):
        self.assertEqual(self.lumetra("--home", self.home().path), (0, "Nothing found.\n", ""))

    def test_an_error_names_file_line_and_identifier(self):
        home = self.home()
        agent_home.write(home.at("config", "AutoConfig.ini"), "../data/\na.txt\n../data/p.txt\n")
        code, out, _ = self.lumetra("--home", home.path)
        self.assertEqual(code, 1)
        self.assertEqual(out.splitlines(), [
            f"{home.path}/config/AutoConfig.ini:3: error: the file ends before item 4, the analysis log; "
            "expected at least 9 items [item-missing]", "1 error, 0 warnings."])

    def test_warnings_alone_have_a_code_of_their_own_unless_they_count_as_errors(self):
        home = self.home()
        home.configure(period=10000, maximum=48, megabytes=0)
        code, out, _ = self.lumetra("--home", home.path)
        self.assertEqual(code, 3)
        self.assertIn("[archive-limit-empty]", out)
        self.assertEqual(self.lumetra("--home", home.path, "--strict")[0], 1)

    def test_the_findings_as_json(self):
        home = self.home()
        home.configure(home="../data", period=10000, maximum=48)
        code, out, _ = self.lumetra("--home", home.path, "--json")
        report = json.loads(out)
        self.assertEqual(code, 3)
        self.assertEqual((report["errors"], report["warnings"]), (0, 1))
        self.assertEqual(list(report["findings"][0]),
                         ["id", "severity", "file", "line", "column", "found", "expected", "message"])
        finding = report["findings"][0]
        self.assertEqual((finding["id"], finding["severity"], finding["line"], finding["column"], finding["found"]),
                         ("home-without-separator", "warning", 1, 1, '"../data"'))
        self.assertEqual(finding["expected"], '"../data/"')

    def test_another_configuration_is_relative_to_where_one_stands(self):
        home = self.home()
        os.rename(home.at("config", "AutoConfig.ini"), home.at("config", "other.ini"))
        self.assertEqual(self.lumetra("--home", home.path)[0], 1)
        self.assertEqual(self.lumetra("--home", "..", "--config", "other.ini", cwd=home.at("config"))[0], 0)

    def test_a_home_under_any_name(self):
        home = self.home()
        shutil.rmtree(home.at("data"))  # the agent makes it
        self.assertEqual(self.lumetra("--home", ".", cwd=home.path), (0, "Nothing found.\n", ""))
        os.rename(home.at("bin"), home.at("other"))
        os.symlink("other", home.at("bin"))
        self.assertEqual(self.lumetra("--home", home.path + "/data/..", cwd="/")[0], 1)
        self.assertEqual(self.lumetra("--home", home.path + "/config/..", cwd="/"), (0, "Nothing found.\n", ""))

    @unittest.skipUnless(os.path.exists(DRIVER), f"{DRIVER} is not built")
    def test_the_files_named_for_deletion_are_those_that_a_start_deletes(self):
        home = self.home()
        home.configure(period=10000, maximum=48, archive="archive.gnp")
        for name in ("my.ini", "who.cul", "curve.gnp", "half.ini.new", ".hidden.ini", "keep.txt", "archive.gnp"):
            agent_home.write(home.at("data", name), "")
        os.mkdir(home.at("data", "directory.ini"))
        before = set(os.listdir(home.at("data")))
        report = json.loads(self.lumetra("--home", home.path, "--json")[1])
        self.assertEqual([finding["id"] for finding in report["findings"]], ["deletion-at-start"])
        running = Running(home)
        self.addCleanup(running.clean)
        wait_until(lambda: agent_home.size(home.at("data", "archive.gnp")) > 0, "a cycle")
        gone = before - set(os.listdir(home.at("data")))
        self.assertEqual(report["findings"][0]["found"].split(", "), sorted(gone))

    def test_without_its_library_it_says_so(self):
        result = subprocess.run([PROGRAM, "check", "--home", self.home().path], capture_output=True, timeout=remaining(),
                                env=dict(os.environ, LUMETRA_JAR=JAR, LUMETRA_LIBRARY="/nowhere/libObrinagent.so"))
        self.assertEqual((result.returncode, result.stdout), (1, b""))
        self.assertIn(b"lumetra check: Cannot load the native library /nowhere/libObrinagent.so", result.stderr)

    def test_a_wrong_command_line(self):
        for options in some((("--unknown",), ("--home",), ("--home", ""), ("--config", ""), ("stray",)), 2):
            code, out, err = self.lumetra(*options)
            self.assertEqual((code, out), (2, ""), options)
            self.assertIn("lumetra check", err)

    def test_it_changes_nothing_and_follows_no_pipe(self):
        home = self.home()
        shutil.rmtree(home.at("data"))
        os.remove(home.at("config", "resources.txt"))
        os.mkfifo(home.at("config", "resources.txt"))
        before = sorted(os.walk(home.path))
        self.assertEqual(self.lumetra("--home", home.path)[0], 1)
        self.assertEqual(sorted(os.walk(home.path)), before)

    def test_a_socket_in_the_place_of_a_file_is_an_error(self):
        home = self.home()
        os.remove(home.at("config", "AutoConfig.ini"))
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(home.at("config", "AutoConfig.ini"))
            self.assertEqual(self.lumetra("--home", home.path)[0], 1)

    def test_files_without_permission(self):
        home = self.home()
        os.chmod(home.path, 0o755)
        os.chmod(home.at("config", "resources.txt"), 0)
        os.chmod(home.at("log"), 0o555)
        if os.geteuid() == 0:
            options = {"user": 65534, "group": 65534, "extra_groups": []}
        else:
            options = {}
        # another user may not be let into the checkout
        jar, library = (shutil.copy(file, home.path) for file in (JAR, LIBRARY))
        os.chmod(jar, 0o644)
        os.chmod(library, 0o644)
        result = subprocess.run(["java", *FAST, f"-Dlumetra.library={library}", "-jar", jar, "check", "--home", home.path],
                                capture_output=True, cwd="/", timeout=remaining(), **options)
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertIn("permission denied; expected a readable file [declarations-unopenable]", result.stdout.decode())
        self.assertIn("/log: warning: the directory", result.stdout.decode())


class Documented(CheckTest):
    def test_every_identifier_is_in_the_documentation_with_its_severity(self):
        text = agent_home.read(os.path.join(PROJECT, "docs", "command-line.md"))
        listed = dict(re.findall(r"^\| `([a-z0-9-]+)` \| (error|warning) \|", text, re.M))
        self.assertEqual(listed, self.checker.kinds)


if __name__ == "__main__":
    unittest.main()
