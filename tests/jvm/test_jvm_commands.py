"""The commands lumetra status and lumetra plot against a running agent, as a user types them."""

import http.server
import itertools
import json
import os
import pathlib
import pty
import re
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import threading
import unittest
import zlib

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import (FAST, HOST, JAR, LIBRARY, LUMETRA, PROGRAM, JavaTest, Machine, ask, free_port, host_command, remaining,  # noqa: E402
                       some)
import agent_home  # noqa: E402
from agent_home import HEADING, declaration, mount, needs_mounts, umount, write  # noqa: E402

RESOURCES = "/api/v1/resources"
WAITING = re.compile(r"waiting for \S+ \.\.\.\r\x1b\[K")  # told and taken back when an answer takes its time


def lumetra(*arguments, cwd=None, **environment):
    """Runs the program; what it prints is text without a terminal."""
    program = [PROGRAM] if environment else LUMETRA  # the script makes something of its environment
    return subprocess.run([*program, *arguments], cwd=cwd, env={"LC_ALL": "C.UTF-8", **os.environ, "LUMETRA_JAR": JAR, **environment},
                          stdin=subprocess.DEVNULL, capture_output=True, encoding="utf-8", timeout=remaining())


def on_terminal(*arguments, columns=90, until=None, **environment):
    """Runs the program on a terminal, if need be until what it prints is enough; what it prints, escapes included."""
    control, terminal = pty.openpty()
    try:
        process = subprocess.Popen([PROGRAM, *arguments], stdin=terminal, stdout=terminal, stderr=terminal,
                                   env={**os.environ, "LUMETRA_JAR": JAR, "TERM": "xterm", "COLUMNS": str(columns),
                                        **environment}, start_new_session=True)
        os.close(terminal)
        text = b""
        while True:
            try:
                chunk = os.read(control, 65536)
            except OSError:
                break
            if not chunk:
                break
            text += chunk
            if until and until(text.decode("utf-8", "replace")):
                process.send_signal(signal.SIGINT)
                until = None
        process.wait(remaining())
        return process.returncode, WAITING.sub("", text.decode("utf-8").replace("\r\n", "\n"))
    finally:
        os.close(control)


class Stranger(http.server.BaseHTTPRequestHandler):
    """A server that is no agent; its answer is what the test says."""
    answer = (200, "text/html", b"")

    def do_GET(self):
        status, kind, body = self.answer
        self.send_response(status)
        self.send_header("Content-Type", kind)
        self.end_headers()
        try:
            if body is None:
                while True:
                    self.wfile.write(b" " * 1048576)
            self.wfile.write(body)
        except OSError:
            pass

    def log_message(self, *arguments):
        pass


class CommandTest(JavaTest):
    """One agent for all tests; its resources have forecasts. Its df is slow from then on, so that it leaves the machine to
    the tests."""

    home = None
    machine = None
    port = 0

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        if CommandTest.machine is None:
            CommandTest.start_agent()

    @classmethod
    def end_agent(cls):
        if cls.machine is not None:
            cls.machine.kill()
            cls.home.remove()

    @staticmethod
    def start_agent():
        CommandTest.home = home = agent_home.Home(period=900)
        home.declare((declaration("PercentProcessesUsed", window="0.5"),
                      declaration("LogicalDisk", "*", "PercentFreeSpaceUsed", window="0.5")))
        home.stub_df(HEADING + "/dev/a 100 50 50 50% /\n", before="[ ! -e ../slow ] || sleep 0.3")
        CommandTest.port = free_port()
        CommandTest.machine = Machine(home, host_command(home, LIBRARY, port=CommandTest.port))
        CommandTest.machine.expect("The page is at ")
        CommandTest.machine.until(CommandTest.is_forecast, "forecasts")
        write(home.at("slow"), "")

    @classmethod
    def is_forecast(cls):
        resources = cls.overview()["resources"]
        return len(resources) == 2 and all(r["model"] for r in resources)

    @classmethod
    def overview(cls):
        return json.loads(ask(cls.port, RESOURCES)[2])

    def directory(self):
        path = tempfile.mkdtemp(prefix="lumetra-plot-")
        self.addCleanup(shutil.rmtree, path, ignore_errors=True)
        return path

    def run_ok(self, *arguments, **options):
        result = lumetra(*arguments, "--port", str(self.port), **options)
        self.assertEqual((result.returncode, result.stderr), (0, ""), result.stdout)
        return result.stdout

    def run_bad(self, code, expected, *arguments, **options):
        result = lumetra(*arguments, **options)
        self.assertEqual(result.returncode, code, result.stderr)
        self.assertIn(expected, result.stderr)
        self.assertNotIn("Exception", result.stderr)
        self.assertNotIn("\tat ", result.stderr)
        return result


def tearDownModule():
    CommandTest.end_agent()


class Help(JavaTest):
    def test_every_command_explains_itself_with_its_exit_codes(self):
        for arguments in some(((), ("status",), ("plot",)), 2):
            result = lumetra(*arguments, "--help")
            self.assertEqual((result.returncode, result.stderr), (0, ""))
            self.assertIn("Usage: " + " ".join(("lumetra", *arguments)), result.stdout)
            self.assertIn("Exit codes:", result.stdout)
        with open(os.path.join(agent_home.PROJECT, "CMakeLists.txt"), encoding="utf-8") as file:
            version = re.search(r"^project\(\w+ VERSION ([\d.]+)", file.read(), re.MULTILINE).group(1)
        git = ["git", "-C", agent_home.PROJECT, "rev-parse", "HEAD"]
        commit = r" \([0-9a-f]{12}\+?\)" if subprocess.run(git, capture_output=True, check=False).returncode == 0 else ""
        self.assertRegex(lumetra("--version").stdout, rf"^Lumetra Agent {re.escape(version)}{commit}\n$")
        run = subprocess.run(["java", *FAST, *HOST, "run", "--help"], capture_output=True, text=True)
        self.assertEqual(run.returncode, 0)
        through_the_script = lumetra("run", "--help").stdout
        for option in ("--home", "--config", "--for", "--port", "--listen", "--allow-host", "--fresh", "Exit codes:"):
            self.assertIn(option, run.stdout)
            if option.startswith("--"):
                self.assertIn(option, through_the_script)

    def test_a_wrong_command_line_is_one_line_and_a_hint(self):
        wrong = (("status", "--watch", "0"), ("status", "--url", "nowhere"), ("status", "--port", "0"),
                 ("status", "--port", "1", "--url", "http://a/"), ("plot", "--format", "gif"),
                 ("plot", "--output", "/no"), ("plot", "--report", "all.gif"), ("plot", "--report", "a.pdf", "--format", "svg"),
                 ("status", "more"), ("run", "--port", "x"),
                 ("run", "--port", "65536"), ("run", "--listen", ""))
        for arguments in some(wrong, 2):
            result = lumetra(*arguments)
            self.assertEqual((result.returncode, result.stdout), (2, ""), arguments)
            self.assertEqual(len(result.stderr.splitlines()), 2, result.stderr)
        self.assertEqual(lumetra().returncode, 2)
        self.assertEqual(lumetra("dance").returncode, 2)


    def test_help_is_coloured_where_everything_else_is(self):
        self.assertIn("\x1b[", on_terminal("status", "--help")[1])
        for environment in some(({"TERM": "dumb"}, {"NO_COLOR": "1"}), 1):
            self.assertNotIn("\x1b", on_terminal("status", "--help", **environment)[1])


@unittest.skipUnless(shutil.which("bash"), "there is no bash")
class Completion(JavaTest):
    """What a shell offers when Tab is pressed, by the file that is made from the commands."""

    FILE = os.path.join(os.path.dirname(JAR), "lumetra-completion")
    ASK = """compopt() { :; } # which works while Tab is pressed only
        source "$0" && COMP_WORDS=(lumetra "$@") && COMP_CWORD=$# && COMP_LINE="lumetra $*" && COMP_POINT=${#COMP_LINE}
        _complete_lumetra && printf '%s\\n' "${COMPREPLY[@]}" """

    def offered(self, *words):
        asked = subprocess.run(["bash", "-c", self.ASK, self.FILE, *words], capture_output=True, text=True, check=True)
        self.assertEqual("", asked.stderr)
        return {word.strip() for word in asked.stdout.splitlines()} - {""}

    def test_every_command_and_option_is_offered(self):
        commands = self.offered("")
        self.assertEqual({"run", "status", "plot", "check", "doctor", "replay"},
                         {word for word in commands if not word.startswith("-")})
        self.assertEqual({"status"}, self.offered("st"))
        for command in commands:
            told = subprocess.run(["java", *FAST, *HOST, command, "--help"], capture_output=True, text=True, check=True).stdout
            options = set(re.findall(r"(?<![\w-])--[a-z-]+", told))
            self.assertLessEqual({"--help", "--version"}, options)
            self.assertEqual(options, {word for word in self.offered(command, "-") if word.startswith("--")}, command)

    def test_the_values_of_an_option_are_offered(self):
        self.assertEqual({"png", "svg"}, self.offered("plot", "--format", ""))
        self.assertEqual({"svg"}, self.offered("plot", "--format", "s"))

    def test_directories_are_offered_where_one_is_wanted_and_files_where_one_is(self):
        with tempfile.TemporaryDirectory() as directory:
            for name in ("one", "other place"):
                os.mkdir(os.path.join(directory, name))
            inside = directory + "/o"
            pathlib.Path(inside + "penly.ini").touch()
            directories = {directory + "/one", directory + "/other place"}
            for command, option in (("run", "--home"), ("check", "--home"), ("doctor", "--home"),
                                    ("plot", "--output"), ("replay", "--plot")):
                self.assertEqual(directories, self.offered(command, option, inside), command)
            for command in ("run", "check", "doctor"):
                self.assertEqual(directories | {inside + "penly.ini"}, self.offered(command, "--config", inside), command)


class Status(CommandTest):
    def test_all_resources_and_the_agent_are_told(self):
        lines = self.run_ok("status").splitlines()
        self.assertTrue(lines[0].startswith("RESOURCE "))
        rows = [line for line in lines[1:] if not line.startswith("  ")]  # and not the record of announcements below one
        self.assertEqual({line.split()[0] for line in rows[:2]}, {"PercentProcessesUsed", "PercentFreeSpaceUsed"})
        for resource in self.overview()["resources"]:
            line = next(line for line in lines if line.startswith(resource["resource"]))
            self.assertRegex(line, r" \d+\.\d\d % ")
        self.assertRegex(lines[-1], rf"^Lumetra Agent \S+ at http://127.0.0.1:{self.port}/: \d+ cycles, the newest \d+ s ago, "
                                    "samples without a pause.$")

    def test_asking_begins_nothing_of_what_https_takes(self):
        result = subprocess.run(["java", *FAST, "-Xlog:class+load", "-jar", JAR, "status", "--port", str(self.port)],
                                capture_output=True, text=True)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("AgentClient", result.stdout)
        self.assertNotIn("sun.security.ssl", result.stdout)

    def test_the_json_is_the_interfaces_own(self):
        told = json.loads(self.run_ok("status", "--json"))
        # in any order: a cycle may have come in between
        self.assertEqual(sorted(r["id"] for r in told["resources"]), sorted(r["id"] for r in self.overview()["resources"]))
        self.assertEqual(set(told["resources"][0]), set(self.overview()["resources"][0]))
        self.assertEqual(set(told["agent"]), set(self.overview()["agent"]))

    def test_watching_goes_on_until_it_is_interrupted(self):
        process = subprocess.Popen([PROGRAM, "status", "--watch", "1", "--port", str(self.port)], stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True, env={**os.environ, "LUMETRA_JAR": JAR})
        self.addCleanup(process.kill)
        headings = 0
        for line in process.stdout:
            self.assertNotIn("\x1b", line)
            headings += line.startswith("RESOURCE ")
            if headings == 2:
                break
        process.send_signal(signal.SIGINT)
        process.stdout.read()
        self.assertEqual(process.wait(), 0)
        self.assertEqual(process.stderr.read(), "")
        process.stdout.close()
        process.stderr.close()

    def test_output_that_cannot_be_written_is_a_failure(self):
        with open("/dev/full", "w", encoding="ascii") as full:
            result = subprocess.run([PROGRAM, "status", "--port", str(self.port)], stdout=full, stderr=subprocess.PIPE,
                                    text=True, env={**os.environ, "LUMETRA_JAR": JAR})
        self.assertEqual((result.returncode, result.stderr), (1, "lumetra status: standard output cannot be written\n"))


class Elsewhere(CommandTest):
    """What answers is not an agent, or nothing is there."""

    def stranger(self, answer):
        handler = type("Handler", (Stranger,), {"answer": answer})
        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
        server.daemon_threads = True
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        return f"http://127.0.0.1:{server.server_address[1]}"

    def test_without_an_agent_the_way_to_start_one_is_told(self):
        port = free_port()
        for command in ("status", "plot"):
            result = self.run_bad(1, f"lumetra {command}: no agent answers at http://127.0.0.1:{port}/: Connection refused; "
                                     "start it with ./run-agent", command, "--port", str(port))
            self.assertEqual((len(result.stderr.splitlines()), result.stdout), (1, ""))
        self.run_bad(1, "no machine has this name", "status", "--url", "http://no-such-name.invalid/")

    def test_other_servers_are_told_apart(self):
        strangers = (((200, "text/html", b"<html>"), "no JSON"),
                     ((200, "application/json", b'{"a": 1}'), "not the list of resources"),
                     ((200, "application/json", b"[1"), "no JSON object"),
                     ((404, "text/html", b"no"), "status 404"), ((302, "text/html", b""), "status 302"),
                     ((200, "application/json", None), "longer than 64 MiB"))
        for answer, expected in some(strangers, 2):
            url = self.stranger(answer)
            result = self.run_bad(1, f"what answers at {url}/ is no Lumetra Agent: ", "status", "--url", url)
            self.assertIn(expected, result.stderr)
            self.assertEqual(len(result.stderr.splitlines()), 1)

    def test_watched_json_stays_json_while_no_agent_answers(self):
        good = (200, "application/json", json.dumps(self.overview()).encode())
        answers = itertools.chain([good, (503, "text/html", b"")], itertools.repeat(good))
        url = self.stranger(property(lambda handler: next(answers)))
        process = subprocess.Popen([PROGRAM, "status", "--json", "--watch", "1", "--url", url], stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True, env={**os.environ, "LUMETRA_JAR": JAR})
        self.addCleanup(process.kill)
        text = ""
        for line in process.stdout:
            text += line
            if text.count("\n}\n") == 2:
                break
        process.send_signal(signal.SIGINT)
        said = process.communicate()[1]
        self.assertRegex(said, r"^lumetra status: .*status 503.*\n$")
        first, end = json.JSONDecoder().raw_decode(text)
        self.assertEqual(json.loads(text[end:]), first)

    def test_colours_and_widths_are_a_terminals(self):
        overview = self.overview()
        overview["resources"][0].update(state="at-limit", stateText="at its limit", instance="/dev/" + "x" * 200)
        url = self.stranger((200, "application/json", json.dumps(overview).encode()))
        code, text = on_terminal("status", "--url", url, columns=150)
        self.assertEqual(code, 0, text)
        self.assertRegex(text, "\x1b\\[1m\x1b\\[31mat its limit\x1b\\[[0-9;]*m")
        self.assertRegex(text, "/dev/x+…x+ ")
        for environment in some(({"NO_COLOR": "1"}, {"TERM": "dumb"}), 1):
            text = on_terminal("status", "--url", url, columns=150, **environment)[1]
            self.assertNotIn("\x1b", text)
            self.assertLessEqual(max(map(len, text.splitlines()[:-1])), 150)
        plain = lumetra("status", "--url", url).stdout
        self.assertNotIn("\x1b", plain)
        self.assertIn("/dev/" + "x" * 200, plain)

    def test_watching_on_a_terminal_redraws_what_fits_into_it(self):
        overview = self.overview()
        overview["resources"] = [dict(overview["resources"][0], instance=f"number {i}", trackRecord=None) for i in range(30)]
        url = self.stranger((200, "application/json", json.dumps(overview).encode()))
        code, text = on_terminal("status", "--url", url, "--watch", "1", until=lambda said: said.count("\x1b[H") > 2,
                                 LINES="12", columns=200)
        self.assertEqual(code, 0)
        pictures = text.split("\x1b[H")[1:]
        self.assertGreaterEqual(len(pictures), 2)
        for picture in pictures[:-1]:
            self.assertEqual(len(picture.splitlines()), 11 + picture.endswith("\x1b[J") * 1)
            self.assertIn("… and 24 more lines", picture)
            self.assertIn("Lumetra Agent", picture)

    def test_names_from_elsewhere_cannot_reach_the_terminal(self):
        overview = self.overview()
        for text, name in (("agent", "version"), ("resources", "instance")):
            part = overview[text] if text == "agent" else overview[text][0]
            part[name] = "\x1b[2J\x9b1m\u202e\nnext"
        url = self.stranger((200, "application/json", json.dumps(overview).encode()))
        for arguments in (("status",), ("status", "--json")):
            result = lumetra(*arguments, "--url", url)
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertFalse(set(result.stdout) & set("\x1b\x9b\u202e"), arguments)
            code, text = on_terminal(*arguments, "--url", url, NO_COLOR="1")
            self.assertEqual(code, 0)
            self.assertFalse(set(text) & set("\x1b\x9b\u202e"), arguments)


class Plot(CommandTest):
    def picture(self, path):
        """The lines of pixels of a picture, unfiltered no further than that blank paper shows."""
        with open(path, "rb") as file:
            data = file.read()
        self.assertTrue(data.startswith(b"\x89PNG\r\n\x1a\n"))
        position, pixels = 8, b""
        while position < len(data):
            length, kind = struct.unpack(">I4s", data[position:position + 8])
            if kind == b"IDAT":
                pixels += data[position + 8:position + 8 + length]
            position += 12 + length
        return zlib.decompress(pixels)

    def test_all_resources_are_drawn_when_none_is_named(self):
        directory = self.directory()
        files = self.run_ok("plot", "--output", directory).splitlines()
        self.assertEqual(sorted(files), sorted(os.path.join(directory, name) for name in os.listdir(directory)))
        self.assertEqual(len(files), 2)
        for path in files:
            self.assertRegex(os.path.basename(path), r"^\d+-[A-Za-z0-9._-]+\.png$")
            self.assertGreater(len(set(self.picture(path))), 20, "blank paper")

    def test_one_is_drawn_as_svg_by_number_and_by_a_part_of_its_name(self):
        directory = self.directory()
        rid = next(r["id"] for r in self.overview()["resources"] if r["resource"] == "PercentProcessesUsed")
        for word in (str(rid), "processes"):
            path = self.run_ok("plot", "--format", "svg", word, cwd=directory).strip()
            with open(os.path.join(directory, path), encoding="utf-8") as file:
                text = file.read()
            self.assertTrue(text.startswith("<?xml"))
            self.assertTrue(text.rstrip().endswith("</svg>"))
            for part in ("PercentProcessesUsed", "samples", "forecast", "limit 100.00 %", "now"):
                self.assertIn(part, text)
            curves = [path for path in re.findall(r"<path[^>]* d='([^']*)'", text) if path.count("L") + path.count(",") > 50]
            self.assertTrue(curves, "no curve of many points")
        self.assertEqual(len(os.listdir(directory)), 1)

    def test_all_resources_are_one_report_a_page_each_or_in_one_picture(self):
        directory = self.directory()
        self.assertEqual("all.pdf\n", self.run_ok("plot", "--report", "all.pdf", cwd=directory))
        with open(os.path.join(directory, "all.pdf"), "rb") as file:
            report = file.read()
        self.assertTrue(report.startswith(b"%PDF-"))
        self.assertEqual(2, int(re.search(rb"/Count (\d+)", report).group(1)), "pages")
        path = self.run_ok("plot", "--report", os.path.join(directory, "all.png")).strip()
        self.assertGreater(len(set(self.picture(path))), 20, "blank paper")
        with open(path, "rb") as file:
            self.assertEqual((2000, 560), struct.unpack(">II", file.read()[16:24]))
        self.assertEqual(["all.pdf", "all.png"], sorted(os.listdir(directory)))
        self.run_bad(1, "/nowhere: no such directory", "plot", "--report", "/nowhere/all.pdf", "--port", str(self.port))

    def test_an_unknown_resource_is_named_with_the_known_ones(self):
        result = self.run_bad(1, 'no resource has the number or the text "nothing"; there are ', "plot", "nothing", "--port",
                              str(self.port), cwd=self.directory())
        self.assertIn("PercentProcessesUsed", result.stderr)

    @needs_mounts
    def test_a_directory_that_cannot_be_written_is_told_for_each_file(self):
        directory = self.directory()
        mount("readonly", directory, "tmpfs", 1, "size=64k")
        self.addCleanup(umount, directory)
        result = self.run_bad(1, "Read-only file system", "plot", "--output", directory, "--port", str(self.port))
        self.assertEqual((len(result.stderr.splitlines()), result.stdout), (2, ""))
        self.assertEqual(os.listdir(directory), [])

    @needs_mounts
    def test_a_full_disk_leaves_no_half_picture(self):
        directory = self.directory()
        mount("small", directory, "tmpfs", 0, "size=4k")
        self.addCleanup(umount, directory)
        self.run_bad(1, "No space left on device", "plot", "--output", directory, "--port", str(self.port))
        self.assertEqual(os.listdir(directory), [])

    def test_without_gnuplot_its_package_is_named(self):
        result = subprocess.run([shutil.which("java"), *FAST, "-jar", JAR, "plot", "--port", str(self.port)], capture_output=True,
                                text=True, cwd=self.directory(), env={**os.environ, "PATH": "/nonexistent"})
        self.assertEqual((result.returncode, result.stdout), (1, ""))
        self.assertIn("gnuplot cannot be started; it is in the package gnuplot-nox", result.stderr)
        self.assertEqual(len(result.stderr.splitlines()), 1)

    def test_a_gnuplot_that_fails_is_told_with_what_it_says(self):
        tools = self.directory()
        with open(os.path.join(tools, "gnuplot"), "w", encoding="ascii") as file:
            file.write("#!/bin/sh\ncat >/dev/null\necho 'out of \033[2J paper' >&2\nexit 3\n")
        os.chmod(file.name, 0o755)
        directory = self.directory()
        result = self.run_bad(1, "gnuplot failed with exit code 3: out of \\x1b[2J paper", "plot", "--output", directory,
                              "--port", str(self.port), PATH=f"{tools}:{os.environ['PATH']}")
        self.assertEqual(len(result.stderr.splitlines()), 2)
        self.assertEqual(os.listdir(directory), [])


if __name__ == "__main__":
    unittest.main()
