"""The shipped host on a machine in trouble: too few processes, output that nobody reads, a small heap, two agents in one
home, disks that cannot be listed."""

import contextlib
import fcntl
import http.client
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import (JAR, LONG, PROJECT, JavaTest, api, ask, classes_of, free_port, host_command, long_only,  # noqa: E402
                       page_threads, remaining, wait_until)
from suite import die_with_parent, often  # noqa: E402
from test_jdks import JDKS  # noqa: E402
from agent_home import ALL, DISK_SPACE, FEW, HEADING, PROCESSES, Home, declaration, read, write  # noqa: E402

SHIPPED_HEAP = tuple(subprocess.check_output(
    ["bash", "-c", f"source '{PROJECT}/scripts/find-java'; echo \"${{agent_jvm_options[@]}}\""], text=True).split())
HOME_TAKEN, TOO_LITTLE = 5, 6
RESOURCES = "/api/v1/resources"
AWAITED = "The disks cannot be listed yet: df has not answered; they are taken up as soon as it does"


def shipped_command(home, library, *options, java="java", jar=JAR):
    """The host as it is shipped: with its heap, and without checks of every native call."""
    wants_access = any(version >= 22 and java.startswith(jdk) for version, jdk in JDKS.items())
    access = ("--enable-native-access=ALL-UNNAMED",) if wants_access else ()
    return [java, *SHIPPED_HEAP, *access, f"-Dlumetra.library={library}", "-jar", jar, "run", "--home", home.path,
            "--config", "../config/AutoConfig.ini", *options]


class TroubleTest(JavaTest):
    def small_home(self, inputs=FEW, period=100):
        home = Home(inputs=inputs, period=period)
        self.addCleanup(home.remove)
        return home

    def shipped(self, home, *options):
        return self.start(home, shipped_command(home, self.library, *options))


@unittest.skipUnless(os.geteuid() == 0, "only root can become a user without processes")
class FewProcesses(TroubleTest):
    """The limit is that of a user who has no other processes, so that those of the machine do not count."""

    next_user = 0x70000000 + os.getpid() * 64

    def new_user(self):
        FewProcesses.next_user += 1
        return FewProcesses.next_user

    def run_with(self, limit, jdk, *options):
        """The host of a user with so many processes and threads: the machine, and its home."""
        user = self.new_user()
        home = self.small_home(ALL, period=1000)
        os.mkdir(home.at("program"))
        for path in (JAR, self.library):  # another user may not be let into the checkout
            shutil.copy(path, home.at("program"))
        for directory, _, names in os.walk(home.path):
            for path in (directory, *(os.path.join(directory, name) for name in names)):
                os.chown(path, user, user)
        command = shipped_command(home, home.at("program", os.path.basename(self.library)), *options,
                                  java=os.path.join(jdk, "bin", "java"), jar=home.at("program", os.path.basename(JAR)))
        return self.start(home, [*self.limited(user, limit), *command]), home

    @staticmethod
    def limited(user, limit):
        """What starts a command as that user, with so many processes and threads."""
        return ("setpriv", f"--reuid={user}", f"--regid={user}", "--clear-groups", "prlimit", f"--nproc={limit}:{limit}")

    def look(self, limit, jdk, *options):
        """What becomes of the host: "works" or its exit code. Nothing else may: a machine that stays without a sample, or one
        that no signal ends."""
        machine, home = self.run_with(limit, jdk, *options)
        wait_until(lambda: len(home.archive_lines()) >= 3 or machine.process.poll() is not None,
                   f"a sample or an end with {limit} processes")
        if machine.process.poll() is None:
            self.terminate(machine)
            self.assertIn("The agent has stopped after", machine.output())
            return "works"
        code = machine.end()
        self.assertNotIn(code, (0, 2, 3), "the service does not start it again:\n" + machine.output())
        self.assertGreater(code, 0, machine.output())
        self.assertIn("unable to create native thread", machine.output())
        if "Failed to start the native thread for java.lang.Thread \"lumetra-" in machine.output():
            self.assertEqual(code, TOO_LITTLE, machine.output())
            self.assertIn("The agent cannot go on: ", machine.output())
        return code

    def test_the_agent_samples_or_the_process_ends_so_that_it_is_started_again(self):
        limits = range(10, 40) if LONG else (14, 19, 24)
        for version, jdk in JDKS.items() if LONG else [max(JDKS.items()), min(JDKS.items())][:len(JDKS)]:
            for page in ("0", str(free_port())):
                seen = {}
                for limit in limits:
                    with self.subTest(java=version, page=page, limit=limit):
                        seen[limit] = self.look(limit, jdk, "--port", page)
                with self.subTest(java=version, page=page):
                    self.assertEqual("works", seen[max(limits)])
                    self.assertNotEqual("works", seen[min(limits)])

    def test_a_page_that_nobody_asked_answers_when_all_processes_are_taken(self):
        """What answers was there from the start and stays, however long nobody asks."""
        limit = 80
        port = free_port()
        machine, home = self.run_with(limit, min(JDKS.items())[1], "--port", str(port))
        machine.expect("The page is at ")
        self.more_lines(machine, home, 1)
        threads = page_threads(machine.process.pid)
        self.assertEqual(threads, ["lumetra-web", *(f"lumetra-web-{number}" for number in range(1, 5))])
        self.allow(machine, home, 1, limit)
        for _ in range(8):
            for path in ("/", RESOURCES, "/metrics"):
                self.assertEqual(ask(port, path)[0], 200)
        self.more_lines(machine, home, 3)
        self.assertNotIn("Failed to start the native thread for java.lang.Thread \"lumetra-", machine.output())
        self.assertEqual(page_threads(machine.process.pid), threads)
        self.allow(machine, home, limit, limit)
        self.terminate(machine)

    @staticmethod
    def allow(machine, home, processes, most):
        """How many a running host and all else of its user may be from now on."""
        user = os.stat(home.path).st_uid
        subprocess.run(["setpriv", f"--reuid={user}", f"--regid={user}", "--clear-groups", "prlimit",
                        f"--pid={machine.process.pid}", f"--nproc={processes}:{most}"], check=True)

    def test_the_page_goes_before_the_agent(self):
        port = free_port()
        machine, home = self.run_with(25, min(JDKS.items())[1], "--port", str(port))
        self.assertIn("unable to create native thread", machine.expect("The page is not available: "))
        self.more_lines(machine, home, 3)
        with self.assertRaises(ConnectionRefusedError):
            ask(port, "/")
        self.terminate(machine)

    def test_a_program_for_events_that_finds_no_process_is_started_when_there_is_one(self):
        """It prints what it is told, with nothing but what its shell has."""
        limit = 60
        machine, home = self.run_with(limit, min(JDKS.items())[1], "--port", "0", "--on-event", self.teller())
        self.more_lines(machine, home, 3)

        self.allow(machine, home, 1, limit)
        self.spoil(home)
        machine.expect(f"{self.teller()} cannot be started for now, and is tried again every 10 s: ")
        self.allow(machine, home, limit, limit)
        machine.expect("on-event: told of Call To RawDataRetrievalAndArchive Failed")
        os.remove(home.layout.archive)
        self.more_lines(machine, home, 3)
        self.terminate(machine)

    def test_a_program_for_events_has_its_room_when_others_take_all_processes(self):
        limit = 60
        machine, home = self.run_with(limit, min(JDKS.items())[1], "--port", "0", "--on-event", self.teller())
        self.more_lines(machine, home, 3)
        user = os.stat(home.path).st_uid
        hog = self.start(home, [*self.limited(user, limit), sys.executable, "-c",
                                "import threading, time\n"
                                "while True:\n"
                                "    try:\n"
                                "        threading.Thread(target=time.sleep, args=(100000,), daemon=True).start()\n"
                                "    except RuntimeError:\n"
                                "        break\n"
                                "print('all taken', flush=True)\ntime.sleep(100000)"])
        hog.expect("all taken")
        self.spoil(home)
        machine.expect("on-event: told of Call To RawDataRetrievalAndArchive Failed")
        hog.kill()
        self.terminate(machine)
        self.assertNotIn("cannot be started for now", machine.output())

    def teller(self):
        """A program that every user may start."""
        if not hasattr(self, "told_by"):
            directory = tempfile.mkdtemp(prefix="lumetra-teller-")
            self.addCleanup(shutil.rmtree, directory)
            os.chmod(directory, 0o755)
            self.told_by = os.path.join(directory, "teller")
            write(self.told_by, '#!/bin/sh\necho "told of $LUMETRA_MESSAGE"\n')
            os.chmod(self.told_by, 0o755)
        return self.told_by

    @unittest.skipUnless(shutil.which("bash"), "there is no bash")
    def test_a_java_that_cannot_be_asked_for_is_not_taken_for_missing(self):
        """The installed program ends with 3 when there is no Java, and the service then stays down."""
        directory = tempfile.mkdtemp(prefix="lumetra-program-")
        self.addCleanup(shutil.rmtree, directory, ignore_errors=True)
        os.chmod(directory, 0o755)
        finder = shutil.copy(os.path.join(PROJECT, "scripts", "find-java"), directory)
        program = os.path.join(directory, "lumetra")
        with open(os.path.join(PROJECT, "debian", "lumetra"), encoding="utf-8") as shipped, open(program, "w", encoding="utf-8") as file:
            file.write(shipped.read().replace("/usr/share/lumetra-agent/find-java", finder))
        ended = subprocess.run([*self.limited(self.new_user(), 2), "bash", program, "run", "--home",
                                os.path.join(directory, "home")], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                               check=False)
        self.assertIn("fork: ", ended.stderr)
        self.assertNotIn("no Java", ended.stderr)
        self.assertNotIn(ended.returncode, (0, 2, 3), ended.stderr)


class UnreadOutput(TroubleTest):
    """Standard output is a pipe that is full before the host starts, and that nobody reads."""

    def full_pipe(self):
        reader, writer = os.pipe()
        for end in (reader, writer):
            self.addCleanup(self.close, end)
        fcntl.fcntl(writer, fcntl.F_SETPIPE_SZ, 4096)
        os.set_blocking(writer, False)
        try:
            while True:
                os.write(writer, b"." * 4096)
        except BlockingIOError:
            pass
        os.set_blocking(writer, True)
        return reader, writer

    @staticmethod
    def close(end):
        try:
            os.close(end)
        except OSError:
            pass

    def start_into(self, writer, home, *options):
        process = subprocess.Popen(host_command(home, self.library, *options), cwd=home.at("bin"), stdin=subprocess.DEVNULL,
                                   stdout=writer, stderr=writer, start_new_session=True, preexec_fn=die_with_parent)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def test_the_agent_samples_and_a_signal_ends_it(self):
        _, writer = self.full_pipe()
        home = self.small_home()
        process = self.start_into(writer, home)
        wait_until(lambda: len(home.archive_lines()) >= 20, "a series of samples")
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.wait(remaining()), 0)

    def test_an_end_by_itself_is_not_held_up_either(self):
        _, writer = self.full_pipe()
        home = self.small_home()
        os.remove(home.at("config", "AutoConfig.ini"))
        self.assertEqual(self.start_into(writer, home).wait(remaining()), 1)

    def test_what_waited_is_shown_when_somebody_reads_again(self):
        reader, writer = self.full_pipe()
        home = self.small_home()
        process = self.start_into(writer, home)
        os.close(writer)
        wait_until(lambda: len(home.archive_lines()) >= 3, "samples")
        text = b""
        while b"The agent watches" not in text:
            text += os.read(reader, 65536)
        self.assertIn(b"Lumetra Agent ", text)
        process.send_signal(signal.SIGTERM)
        while block := os.read(reader, 65536):
            text += block
        self.assertIn(b"The agent has stopped after", text)
        self.assertEqual(process.wait(remaining()), 0)


class SmallHeap(TroubleTest):
    """The page in the heap that the agent is shipped with."""

    def crowd(self, port, count):
        """So many connections that stay open."""
        connections = [http.client.HTTPConnection("127.0.0.1", port, timeout=remaining()) for _ in range(count)]
        for connection in connections:
            self.addCleanup(connection.close)
        return connections

    def fill_events(self, home, count=1000, size=750):
        record = {"time": "2026-11-21T06:00:00.000Z", "epochSeconds": 1, "type": "fatal", "resource": None, "instance": None,
                  "secondsToExhaustion": None, "timeToExhaustion": None, "limit": None, "culprits": [], "culpritText": None,
                  "message": "m" * size}
        write(home.at("log", "events.jsonl"), (json.dumps(record) + "\n") * count)

    def status_of(self, connection, path):
        """The status of an answer on a connection that stays open, or "closed"."""
        try:
            connection.request("GET", path)
            response = connection.getresponse()
            response.read()
            return response.status
        except (ConnectionError, http.client.HTTPException):
            return "closed"

    def test_sixty_clients_that_stay_cost_the_page_no_memory(self):
        """The list of many resources is megabytes, of which no connection may keep any."""
        home = self.small_home([declaration(f"Counter{i}", "x" * 100, f"Counter{i}") for i in range(4000)], period=1000)
        self.fill_events(home)
        port = free_port()
        machine = self.shipped(home, "--port", str(port))
        machine.expect("The page is at ")
        wait_until(lambda: len(ask(port, RESOURCES)[2]) > 2_000_000, "a list of megabytes")
        connections = self.crowd(port, 60)
        statuses = [self.status_of(connection, path) for path in (RESOURCES, "/api/v1/events?limit=1000")
                    for connection in connections]
        self.more_lines(machine, home, 3)
        self.assertNotIn("OutOfMemoryError", machine.output())
        self.assertEqual(set(statuses[:60]), {200})
        self.assertLessEqual(set(statuses[60:]), {200, "closed"})  # for having said nothing for so long, on a busy machine
        for connection in connections:
            connection.close()
        self.assertEqual(ask(port, RESOURCES)[0], 200)
        self.terminate(machine)

    def test_G11_two_thousand_resources_in_the_shipped_heap_are_sampled_and_asked_for(self):
        self.sample_and_ask(resources=2000, clients=4, cycles=3)

    @long_only
    def test_G11_ten_thousand_resources_in_the_shipped_heap_are_sampled_and_asked_for(self):
        self.sample_and_ask(resources=10000, clients=16, cycles=10)

    def sample_and_ask(self, resources, clients, cycles):
        """The page and the metrics of all of them, asked by several at once, while the agent goes on."""
        home = self.small_home([declaration("PercentFileDescriptorsUsed", f"copy {i}") for i in range(resources)], period=2000)
        port = free_port()
        machine = self.shipped(home, "--port", str(port))
        machine.expect("The page is at ")
        self.more_lines(machine, home, 1)
        self.assertEqual(len(home.archive_lines()[0][1]), resources)
        before = page_threads(machine.process.pid)
        is_over = threading.Event()
        seen = []

        def look(number):
            asked = 0
            while not is_over.wait(0.1) or asked < 3:
                for path in (RESOURCES, "/metrics", "/api/v1/events"):
                    encoding = {"Accept_Encoding": "gzip"} if number % 2 else {}
                    seen.append((path, ask(port, path, **encoding)[0]))
                asked += 1

        threads = [threading.Thread(target=look, args=(number,), daemon=True) for number in range(clients)]
        for thread in threads:
            thread.start()
        try:
            self.more_lines(machine, home, cycles)
        finally:
            is_over.set()
            for thread in threads:
                thread.join()
        self.assertLessEqual({status for _, status in seen}, {200, 503})
        self.assertLessEqual({(path, 200) for path in (RESOURCES, "/metrics", "/api/v1/events")}, set(seen))
        self.assertGreaterEqual(len(seen), 9 * clients, "a client that gave up")
        self.assertEqual(page_threads(machine.process.pid), before)
        self.more_lines(machine, home, 1)
        self.assertEqual(len(json.loads(ask(port, RESOURCES)[2])["resources"]), resources)
        self.assertEqual(ask(port, "/metrics")[2].count(b"\nlumetra_resource_used_ratio{"), resources)
        self.terminate(machine)

    def hog(self, home, port):
        """The host in a machine whose heap this test can fill."""
        machine = self.start(home, ["java", *SHIPPED_HEAP, f"-Dlumetra.library={self.library}", "-cp",
                                    f"{JAR}:{classes_of('Hog')}", "Hog", "run", "--home", home.path, "--port", str(port)])
        machine.expect("The page is at ")
        return machine

    def test_a_full_heap_stops_neither_the_samples_nor_the_page_that_follows_nor_the_end(self):
        home = self.small_home()
        self.fill_events(home)
        port = free_port()
        machine = self.hog(home, port)
        machine.expect("It announces an exhaustion")  # before it has asked itself, memory may cost a class for ever
        for _ in range(often(2, 3)):
            machine.say("fill")
            machine.expect("the heap is full")
            for connection in self.crowd(port, 20):
                with contextlib.suppress(OSError):  # of a page that has lost a part and is about to be started anew
                    connection.request("GET", "/api/v1/events?limit=1000")
            self.more_lines(machine, home, 3)
            machine.say("free")
            machine.expect("the heap is free")
            self.more_lines(machine, home, 3)
            machine.until(lambda: self.page_answers(port), "an answer of the page")
        self.terminate(machine)

    def test_no_class_that_an_answer_needs_begins_only_when_somebody_asks(self):
        """One that begins while memory is short is lost, and all answers that need it."""
        home = self.small_home()
        port = free_port()
        log = home.at("classes")
        java, *rest = shipped_command(home, self.library, "--port", str(port))
        machine = self.start(home, [java, f"-Xlog:class+init=info:file={log}", *rest])

        def begun():
            return set(re.findall(r"Initializing '((?:(?:sun|java)/n(?:io|et)|java/util/zip|com/fasterxml|.*/LumetraAgent/"
                                  r"(?:http|api|metrics|text|watch))/[\w/$]+)'", read(log)))

        machine.expect("It announces an exhaustion")  # once it has asked itself
        before = begun()
        self.assertIn("com/fasterxml/jackson/databind/node/ArrayNode", before, "an episode may end at any time")
        number = json.loads(ask(port, RESOURCES)[2])["resources"][0]["id"]
        for path in ("/", "/metrics", "/nothing", "/api/v1/events", "/api/v1/event-groups", f"{RESOURCES}/{number}/trend",
                     f"{RESOURCES}/{number}/culprits"):
            for encoding in ({}, {"Accept_Encoding": "gzip"}):
                ask(port, path, **encoding)
        self.assertEqual(begun() - before, set())
        self.assertGreater(len(before), 100)
        self.terminate(machine)

    def page_answers(self, port):
        try:
            return ask(port, RESOURCES)[0] == 200
        except OSError:
            return False


class TwoAgents(TroubleTest):
    def files(self, home):
        """Every file's content and time of change."""
        found = {}
        for directory, _, names in os.walk(home.path):
            for name in names:
                path = os.path.join(directory, name)
                found[os.path.relpath(path, home.path)] = (read(path), os.stat(path).st_mtime_ns)
        return found

    def test_the_second_says_so_and_touches_nothing(self):
        home = self.small_home(period=3600 * 1000)
        first = self.shipped(home, "--port", "0")
        first.expect("It announces an exhaustion")
        first.signal(signal.SIGSTOP)  # it holds its lock, and writes no more
        os.waitpid(first.process.pid, os.WUNTRACED)
        before = self.files(home)
        second = self.shipped(home, "--port", "0")
        second.expect(("Another agent works in ", "It announces an exhaustion"))
        self.assertNotIn("It announces an exhaustion", second.output())
        self.assertEqual(second.end(), HOME_TAKEN, second.output())
        self.assertEqual(second.lines, [f"Another agent works in the home {home.path}; a home is for one agent."])
        self.assertEqual(self.files(home), before)
        first.signal(signal.SIGKILL)
        first.end()
        lines = len(home.archive_lines())
        third = self.shipped(home, "--port", "0")
        self.lines(third, home, lines + 1)
        self.terminate(third)

    def test_a_home_that_cannot_be_locked_is_worked_in_with_a_warning(self):
        home = self.small_home()
        os.mkdir(home.at("bin", "agent.lock"))
        machine = self.shipped(home, "--port", "0")
        machine.expect("The home cannot be locked against a second agent: ")
        self.more_lines(machine, home, 1)
        self.terminate(machine)


class AwaitedDisks(TroubleTest):
    """The disks cannot be listed at the start."""

    ROOT = HEADING + "/dev/vda1 1000 400 600 40% /\n"

    def start_with_page(self, home, *options):
        port = free_port()
        machine = self.shipped(home, "--port", str(port), *options)
        machine.expect("The page is at ")
        return machine, f"http://127.0.0.1:{port}/"

    def notice(self, url):
        return api(url, "resources")["agent"]["notice"]

    def test_a_df_that_is_missing_is_told_until_it_is_there(self):
        home = self.small_home((PROCESSES, DISK_SPACE), period=1000)
        home.stub_script("#!/bin/sh\nexit 1\n")
        machine, url = self.start_with_page(home)
        machine.expect(AWAITED + ".")
        wait_until(lambda: self.notice(url) == AWAITED + ".", "the notice on the page")
        home.stub_df(self.ROOT)
        self.assertEqual(machine.expect("The disks are listed now: "),
                         "The disks are listed now: the agent watches 1 resource of them.")
        wait_until(lambda: self.notice(url) is None, "an end of the notice")
        self.terminate(machine)

    def test_a_df_that_hangs_holds_up_neither_the_start_nor_the_page(self):
        home = self.small_home((PROCESSES, DISK_SPACE), period=1000)
        home.stub_script("#!/bin/sh\nexec sleep 100000\n")
        machine, url = self.start_with_page(home)
        self.notice(url)  # an answer, before there is any cycle
        machine.expect(AWAITED + ".")
        wait_until(lambda: self.notice(url) == AWAITED + ".", "the notice on the page")
        self.terminate(machine)


if __name__ == "__main__":
    unittest.main()
