"""Java machines with the real library in them: the bare probe, the shipped host, and what they tell."""

import hashlib
import http.client
import json
import os
import queue
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import unittest
import urllib.error
import urllib.request

TESTS = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path[:0] = [TESTS, os.path.join(TESTS, "e2e")]
import agent_home  # noqa: E402
import check_home  # noqa: E402
from agent_home import BUILD, LIBRARY, PROJECT  # noqa: E402
from class_archive import program_of  # noqa: E402
from suite import (LONG, await_end, die_with_parent, end_group, free_port, has_ended, long_only, often, remaining,  # noqa: E402
                   some, wait_until)

JAR = os.path.abspath(os.environ.get("LUMETRA_JAR", os.path.join(BUILD, "java", "lumetra-agent.jar")))
COMPLAINTS = ("WARNING in native method", "WARNING: JNI local refs", "FATAL ERROR in native method", "SIGSEGV",
              "A fatal error has been detected", "AddressSanitizer", "runtime error:")
# A small machine that starts fast.
FAST = ("-XX:+UseSerialGC", "-XX:TieredStopAtLevel=1", "-Xshare:auto")
JAVA_OPTIONS = ("-Xcheck:jni", *FAST, "-Xms16m", "-Xmx64m")
JAVAC = ("javac", *(f"-J{option}" for option in FAST))
PROGRAM = os.path.join(PROJECT, "lumetra")
HOST = program_of(JAR) if os.path.exists(JAR) else ("-jar", JAR)
# The program as ./lumetra starts it, but for what that finds out of the terminal, and with HOST's start.
LUMETRA = (shutil.which("java") or "java", *FAST, "-Xmx256m", f"-Dlumetra.library={LIBRARY}",
           f"-Dlumetra.home={os.path.join(PROJECT, 'var')}", *HOST)


def built_once(kind, sources, build):
    """A directory with what `build` makes of the sources in the directory that it is given. Kept beside the build until a
    source or the jar changes, and shared by all tests, also those that run at the same time."""
    digest = hashlib.sha256()
    for path in (*sources, JAR):
        with open(path, "rb") as file:
            digest.update(file.read())
    target = os.path.join(BUILD, "test-cache", f"{kind}-{digest.hexdigest()[:16]}")
    if not os.path.exists(target):
        os.makedirs(os.path.dirname(target), exist_ok=True)
        fresh = tempfile.mkdtemp(dir=os.path.dirname(target))
        build(fresh)
        try:
            os.rename(fresh, target)
        except OSError:  # another test was faster
            shutil.rmtree(fresh)
    return target


def classes_of(name):
    """The directory of the compiled classes of a source of the tests."""
    source = os.path.join(TESTS, "jvm", "java", name + ".java")
    return built_once(name, [source], lambda directory: subprocess.run(
        [*JAVAC, "-Xlint:all", "-Werror", "-cp", JAR, "-d", directory, source], check=True))


def ask(port, path, method="GET", **headers):
    """One request to the page: status, headers, body."""
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=remaining())
    try:
        connection.request(method, path, headers={name.replace("_", "-"): value for name, value in headers.items()})
        response = connection.getresponse()
        return response.status, response.headers, response.read()
    finally:
        connection.close()


def api(url, path):
    """An answer of the JSON interface of a page, which may have to start first."""

    def answer():
        try:
            with urllib.request.urlopen(f"{url}api/v1/{path}", timeout=remaining()) as response:
                return json.load(response)
        except urllib.error.HTTPError:
            raise
        except OSError:
            return None

    return wait_until(answer, f"an answer of {url}")


def host_command(home, library, *options, port=0, java=(), program=HOST):
    if "--port" not in options:
        options = ("--port", str(port), *options)
    return ["java", *JAVA_OPTIONS, *java, f"-Dlumetra.library={library}", *program, "run", "--home", home.path,
            "--config", "../config/AutoConfig.ini", *options]


def page_threads(pid):
    """The names of those that answer for the page, sorted."""
    names = [agent_home.read(f"/proc/{pid}/task/{task}/comm").strip() for task in os.listdir(f"/proc/{pid}/task")]
    return sorted(name for name in names if name.startswith("lumetra-web"))


class Machine:
    """One Java machine at work in a home's bin directory."""

    def __init__(self, home, command, environment=None):
        self.lines = []
        self.arrived = queue.Queue()
        self.process = subprocess.Popen(command, cwd=home.at("bin"), env=environment or home.environment(),
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                        start_new_session=True, preexec_fn=die_with_parent)
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

    def expect(self, start):
        """Reads on to the next line that starts so, or in one of these ways."""
        while True:
            try:
                line = self.arrived.get(timeout=remaining())
            except queue.Empty:
                raise AssertionError(f"no line {start!r} in:\n{self.output()[-3000:]}") from None
            if line is None:
                raise AssertionError(f"the machine ended before a line {start!r}:\n{self.output()[-3000:]}")
            if line.startswith(start):
                return line

    def expect_all(self, *starts):
        """Reads on until a line has started so for each of the texts, in any order: several threads write them."""
        missing = set(starts)
        while missing:
            line = self.expect(tuple(missing))
            missing = {start for start in missing if not line.startswith(start)}

    def until(self, condition, what="it"):
        """Waits for something that only a living machine can bring about."""

        def happened():
            ended = has_ended(self.process)
            value = condition()
            if not value and ended:
                raise AssertionError(f"the machine ended before {what}:\n{self.output()[-3000:]}")
            return value

        return wait_until(happened, what)

    def stop(self, gives=(0,)):
        """Asks the probe's run to stop until it has, and given one of these: a request in a cycle is heeded after the pause
        that follows."""
        while True:
            self.say("stop")
            try:
                while "returned\t" not in (line := self.arrived.get(timeout=0.2) or ""):  # half a line of Java's may stand before
                    pass
                if int(line.partition("returned\t")[2]) not in gives:
                    raise AssertionError(f"the run gave {line}:\n{self.output()[-3000:]}")
                return
            except queue.Empty:
                self.until(lambda: True)

    def signal(self, number):
        self.process.send_signal(number)

    def fatal(self):
        """Texts of the fatal events so far."""
        return [line.split("\t")[2] for line in self.lines if line.startswith("event\tfatal\t")]

    def end(self):
        """Waits for the end; the exit status."""
        if not self.process.stdin.closed:
            self.process.stdin.close()
        ended = await_end(self.process)
        self.kill()
        if not ended:
            raise AssertionError("the machine did not end:\n" + self.output()[-3000:])
        self.reader.join()
        return self.process.returncode

    def kill(self):
        try:
            self.process.stdin.close()
        except OSError:
            pass
        end_group(self.process)


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
        machine = self.start(home, ["java", *JAVA_OPTIONS, *options, "-cp", JAR + ":" + classes_of("Probe"), "Probe",
                                    self.library], environment)
        machine.expect("ready")
        return machine

    def checkout(self):
        """A directory with the start scripts over what is built already, and a cmake that has nothing to do."""
        directory = tempfile.mkdtemp(prefix="lumetra-checkout-")
        self.addCleanup(shutil.rmtree, directory, ignore_errors=True)
        for name in ("build/release/java", "bin"):
            os.makedirs(os.path.join(directory, name))
        for name in ("run-agent", "lumetra"):
            shutil.copy(os.path.join(PROJECT, name), directory)
        for name in ("scripts", "config"):
            shutil.copytree(os.path.join(PROJECT, name), os.path.join(directory, name))
        os.symlink(self.library, os.path.join(directory, "build/release/libObrinagent.so"))
        os.symlink(JAR, os.path.join(directory, "build/release/java/lumetra-agent.jar"))
        os.symlink("/bin/true", os.path.join(directory, "bin/cmake"))
        return directory

    def host(self, home, *options, port=0, java=(), environment=None):
        """The shipped host program, on the home's own configuration; without the page unless a port is given."""
        return self.start(home, host_command(home, self.library, *options, port=port, java=java), environment)

    def page(self, home, *options, **more):
        """The same with its page; also the page's port."""
        port = free_port()
        machine = self.host(home, *options, port=port, **more)
        machine.expect(f"The page is at http://127.0.0.1:{port}/")
        return machine, port

    def lines(self, machine, home, count):
        """Waits until the archive has so many lines."""
        machine.until(lambda: len(home.archive_lines()) >= count, f"archive line {count}")

    def more_lines(self, machine, home, count):
        self.lines(machine, home, len(home.archive_lines()) + count)

    @staticmethod
    def spoil(home):
        """From the next cycle on, each ends with the same failure. In one step: an agent makes an archive that is missing."""
        os.mkfifo(home.at("fifo"))
        os.chmod(home.at("fifo"), 0o666)
        os.rename(home.at("fifo"), home.layout.archive)

    def assert_clean(self, machine, home=None, **check):
        for complaint in COMPLAINTS:
            self.assertNotIn(complaint, machine.output())
        if home is not None:
            self.assertEqual(check_home.check(home.layout, **check), [])

    def finish(self, machine, home, **check):
        """Ends the probe, whose run has returned, and checks everything."""
        self.assertEqual(machine.end(), 0, machine.output()[-2000:])
        self.assert_clean(machine, home, **check)

    def terminate(self, machine, home=None, **check):
        """Ends the host in order and checks everything."""
        machine.signal(signal.SIGTERM)
        self.assertEqual(machine.end(), 0, machine.output()[-2000:])
        self.assert_clean(machine, home, **check)


__all__ = ["BUILD", "COMPLAINTS", "FAST", "HOST", "JAR", "JAVAC", "JAVA_OPTIONS", "LIBRARY", "LONG", "LUMETRA", "PROGRAM", "PROJECT", "TESTS", "JavaTest",
           "Machine", "api", "ask", "built_once", "classes_of", "free_port", "host_command", "long_only", "often", "page_threads",
           "remaining", "some", "wait_until"]
