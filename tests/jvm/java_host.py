"""Java machines with the real library in them: the bare probe, the shipped host, and what they tell."""

import atexit
import http.client
import json
import os
import queue
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import urllib.error
import urllib.request

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "e2e"))
import agent_home  # noqa: E402
import check_home  # noqa: E402
from agent_home import BUILD, LIBRARY, PROJECT  # noqa: E402

JAR = os.path.abspath(os.environ.get("LUMETRA_JAR", os.path.join(BUILD, "java", "lumetra-agent.jar")))
COMPLAINTS = ("WARNING in native method", "WARNING: JNI local refs", "FATAL ERROR in native method", "SIGSEGV",
              "A fatal error has been detected", "AddressSanitizer", "runtime error:")
HEAP = ("-XX:+UseSerialGC", "-Xms16m", "-Xmx64m")
PROGRAM = os.path.join(PROJECT, "lumetra")
_classes = None


def probe_classes():
    """The directory of the compiled probe; compiled once a process."""
    global _classes
    if _classes is None:
        _classes = tempfile.mkdtemp(prefix="lumetra-classes-")
        atexit.register(shutil.rmtree, _classes, ignore_errors=True)
        source = os.path.join(os.path.dirname(os.path.abspath(__file__)), "java", "Probe.java")
        subprocess.run(["javac", "-Xlint:all", "-Werror", "-cp", JAR, "-d", _classes, source], check=True)
    return _classes


def free_port():
    """A port that nobody listens on."""
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def ask(port, path, method="GET", timeout=10, **headers):
    """One request to the page: status, headers, body."""
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=timeout)
    try:
        connection.request(method, path, headers={name.replace("_", "-"): value for name, value in headers.items()})
        response = connection.getresponse()
        return response.status, response.headers, response.read()
    finally:
        connection.close()


def api(url, path, seconds=20):
    """An answer of the JSON interface of a page, which may have to start first."""
    end = time.monotonic() + seconds
    while True:
        try:
            with urllib.request.urlopen(f"{url}api/v1/{path}", timeout=10) as response:
                return json.load(response)
        except urllib.error.HTTPError:
            raise
        except OSError:
            if time.monotonic() > end:
                raise
            time.sleep(0.1)


def host_command(home, library, *options, port=0):
    if "--port" not in options:
        options = ("--port", str(port), *options)
    return ["java", "-Xcheck:jni", *HEAP, f"-Dlumetra.library={library}", "-jar", JAR, "run", "--home", home.path,
            "--config", "../config/AutoConfig.ini", *options]


class Machine:
    """One Java machine at work in a home's bin directory."""

    def __init__(self, home, command, environment=None):
        self.lines = []
        self.arrived = queue.Queue()
        self.process = subprocess.Popen(command, cwd=home.at("bin"), env=environment or home.environment(),
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                        start_new_session=True)
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()

    def read(self):
        with self.process.stdout as stream:
            for line in stream:
                text = line.decode("utf-8", "replace").rstrip("\n")
                self.lines.append(text)
                self.arrived.put(text)
        self.arrived.put(None)

    def output(self):
        return "\n".join(self.lines)

    def say(self, line):
        self.process.stdin.write(line.encode() + b"\n")
        self.process.stdin.flush()

    def expect(self, start, seconds=60):
        """Reads on to the next line that starts so, or in one of these ways."""
        end = time.monotonic() + seconds
        while True:
            try:
                line = self.arrived.get(timeout=max(0.01, end - time.monotonic()))
            except queue.Empty:
                raise AssertionError(f"no line {start!r} within {seconds} s in:\n{self.output()[-3000:]}") from None
            if line is None:
                raise AssertionError(f"the machine ended before a line {start!r}:\n{self.output()[-3000:]}")
            if line.startswith(start):
                return line

    def expect_all(self, *starts, seconds=60):
        """Reads on until a line has started so for each of the texts, in any order: several threads write them."""
        missing = set(starts)
        while missing:
            line = self.expect(tuple(missing), seconds)
            missing = {start for start in missing if not line.startswith(start)}

    def signal(self, number):
        self.process.send_signal(number)

    def fatal(self):
        """Texts of the fatal events so far."""
        return [line.split("\t")[2] for line in self.lines if line.startswith("event\tfatal\t")]

    def end(self, seconds=30):
        """Waits for the end; the exit status."""
        if not self.process.stdin.closed:
            self.process.stdin.close()
        try:
            self.process.wait(seconds)
        except subprocess.TimeoutExpired:
            raise AssertionError("the machine did not end:\n" + self.output()[-3000:]) from None
        finally:
            self.kill()
        self.reader.join(5)
        return self.process.returncode

    def kill(self):
        try:
            self.process.stdin.close()
        except OSError:
            pass
        try:
            os.killpg(self.process.pid, signal.SIGKILL)
        except (ProcessLookupError, PermissionError):
            pass
        self.process.wait()


@unittest.skipUnless(shutil.which("java") and shutil.which("javac"), "no Java development kit is installed")
@unittest.skipUnless(os.path.exists(LIBRARY), f"{LIBRARY} is not built")
@unittest.skipUnless(os.path.exists(JAR), f"{JAR} is not built")
class JavaTest(unittest.TestCase):
    """A test in a real Java machine that checks every call of the native interface."""

    library = LIBRARY

    def fresh_home(self, period=100, **config):
        """A home as ./run-agent makes it: with the shipped declarations."""
        home = agent_home.Home(period=period, **config)
        self.addCleanup(home.remove)
        shutil.copy(os.path.join(PROJECT, "config", "resources.txt"), home.at("config", "resources.txt"))
        return home

    def start(self, home, command, environment=None):
        machine = Machine(home, command, environment)
        self.addCleanup(machine.kill)
        return machine

    def probe(self, home, *options, environment=None):
        machine = self.start(home, ["java", "-Xcheck:jni", *HEAP, *options, "-cp", JAR + ":" + probe_classes(), "Probe",
                                    self.library], environment)
        machine.expect("ready", 40)
        return machine

    def host(self, home, *options, port=0):
        """The shipped host program, on the home's own configuration; without the page unless a port is given."""
        return self.start(home, host_command(home, self.library, *options, port=port))

    def page(self, home, *options):
        """The same with its page; also the page's port."""
        port = free_port()
        machine = self.host(home, *options, port=port)
        machine.expect(f"The page is at http://127.0.0.1:{port}/", 40)
        return machine, port

    def lines(self, home, count, seconds=60):
        agent_home.wait_until(lambda: len(home.archive_lines()) >= count, seconds, f"archive line {count}")

    def assert_clean(self, machine, home=None, **check):
        for complaint in COMPLAINTS:
            self.assertNotIn(complaint, machine.output())
        if home is not None:
            self.assertEqual(check_home.check(home.layout, **check), [])

    def finish(self, machine, home, **check):
        """Ends the probe, whose run has returned, and checks everything."""
        self.assertEqual(machine.end(), 0, machine.output()[-2000:])
        self.assert_clean(machine, home, **check)
