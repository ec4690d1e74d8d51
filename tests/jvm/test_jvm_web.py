"""The page's server in the shipped host: the JSON interface, and clients that mean no good."""

import gzip
import http.client
import json
import os
import select
import shutil
import signal
import socket
import subprocess
import sys
import threading
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from java_host import LONG, PROJECT, JavaTest, Machine, ask, free_port, host_command, often, page_threads  # noqa: E402
import agent_home  # noqa: E402
from agent_home import HEADING, declaration  # noqa: E402

try:
    import jsonschema
except ImportError:
    jsonschema = None

RESOURCES = "/api/v1/resources"
DESCRIPTORS = "PercentFileDescriptorsUsed"


def listeners(pid):
    """The (address, port) pairs on which a process listens, addresses as the kernel spells them."""
    sockets = set()
    for name in os.listdir(f"/proc/{pid}/fd"):
        try:
            sockets.add(os.readlink(f"/proc/{pid}/fd/{name}"))
        except OSError:
            pass
    found = []
    for table in ("tcp", "tcp6"):
        with open(f"/proc/{pid}/net/{table}", encoding="ascii") as file:
            for fields in (line.split() for line in list(file)[1:]):
                if fields[3] == "0A" and f"socket:[{fields[9]}]" in sockets:
                    address, port = fields[1].split(":")
                    found.append((address, int(port, 16)))
    return found


def is_loopback(address):
    return address in ("0100007F", "00000000000000000000000001000000", "0000000000000000FFFF00000100007F")


def memory(pid):
    """Resident megabytes."""
    with open(f"/proc/{pid}/status", encoding="ascii") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("VmRSS")) / 1024


def processor_seconds(pid):
    with open(f"/proc/{pid}/stat", encoding="ascii") as file:
        fields = file.read().rpartition(")")[2].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def descriptors(pid):
    return len(os.listdir(f"/proc/{pid}/fd"))


class Schema:
    """The answers as docs/api.schema.json describes them."""

    def __init__(self):
        with open(os.path.join(PROJECT, "docs", "api.schema.json"), encoding="utf-8") as file:
            self.text = json.load(file)

    def check(self, name, body):
        value = json.loads(body)
        whole = {"$ref": f"#/$defs/{name}", "$defs": self.text["$defs"]}
        jsonschema.Draft202012Validator(whole).validate(value)
        return value


class WebTest(JavaTest):
    def json(self, port, path):
        status, _, body = ask(port, path)
        self.assertEqual(status, 200, body)
        return json.loads(body)

    def raw(self, port, request):
        """What comes back for bytes as they are, after which nothing more is sent, until the server closes."""
        with socket.create_connection(("127.0.0.1", port)) as connection:
            answer = b""
            try:
                connection.sendall(request)
                connection.shutdown(socket.SHUT_WR)
                while chunk := connection.recv(65536):
                    answer += chunk
            except OSError:  # it has closed before all was sent
                pass
            return answer

    def await_resources(self, machine, port):
        return machine.until(lambda: self.json(port, RESOURCES)["resources"], "resources")


class SharedAgentTest(WebTest):
    """One agent for all tests of the class. It must end in order after them."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.home = cls.new_home()
        cls.addClassCleanup(cls.home.remove)
        cls.port = free_port()
        cls.machine = Machine(cls.home, host_command(cls.home, cls.library, "--allow-host", "watch.example", port=cls.port))
        cls.addClassCleanup(cls.machine.kill)
        cls.machine.expect("The page is at ")

    @classmethod
    def tearDownClass(cls):
        cls().terminate(cls.machine, cls.home)
        super().tearDownClass()


@unittest.skipIf(jsonschema is None, "python3-jsonschema is not installed")
class Interface(WebTest):
    def test_every_path_keeps_its_schema_from_the_first_second_to_the_forecast(self):
        schema = Schema()
        home = self.fresh_home(period=900)
        home.stub_df(HEADING + "/dev/a 100 50 50 50% /\n")
        home.declare((declaration("PercentProcessesUsed", window="0.5"), declaration("PercentSwapSpaceUsed", window="0.5"),
                      declaration(DESCRIPTORS, window="0.5"),
                      declaration("LogicalDisk", "*", "PercentFreeSpaceUsed", window="0.5")))
        machine, port = self.page(home)
        schema.check("resources", ask(port, RESOURCES)[2])
        self.await_resources(machine, port)
        overview = schema.check("resources", ask(port, RESOURCES)[2])
        self.assertEqual(overview["agent"]["home"], os.path.realpath(home.path))
        self.assertTrue("collecting" in {r["state"] for r in overview["resources"]} or overview["agent"]["cycles"] >= 200)
        ids = [r["id"] for r in overview["resources"]]
        for rid in ids:
            self.assertEqual(schema.check("trend", ask(port, f"{RESOURCES}/{rid}/trend")[2])["id"], rid)
            self.assertEqual(schema.check("culprits", ask(port, f"{RESOURCES}/{rid}/culprits")[2])["id"], rid)
            schema.check("events", ask(port, f"{RESOURCES}/{rid}/events")[2])
            schema.check("eventGroups", ask(port, f"{RESOURCES}/{rid}/event-groups")[2])
        rid = next(r["id"] for r in overview["resources"] if r["resource"] == DESCRIPTORS)
        machine.until(lambda: all(r["forecastAt"] for r in self.json(port, RESOURCES)["resources"] if r["id"] == rid),
                      "a forecast")  # a chart asks the agent for its lock, which holds it up
        machine.until(lambda: self.json(port, f"{RESOURCES}/{rid}/trend")["source"] == "forecast", "its chart")
        trend = schema.check("trend", ask(port, f"{RESOURCES}/{rid}/trend")[2])
        self.assertGreaterEqual(len(trend["samples"]["times"]), 200)
        self.assertEqual(len(trend["forecast"]["times"]), len(trend["forecast"]["values"]))
        schema.check("resources", ask(port, RESOURCES)[2])
        schema.check("events", ask(port, "/api/v1/events?limit=1000")[2])
        for path, status in ((f"{RESOURCES}/999999/trend", 404), ("/api/v1/events?limit=0", 400), ("/nowhere", 404)):
            got, _, body = ask(port, path)
            self.assertEqual((got, schema.check("error", body)["error"]["status"]), (status, status))
        self.terminate(machine, home)

    def test_a_failure_of_the_agent_arrives_as_an_event_while_it_runs(self):
        home = self.fresh_home(period=1000, archive="none/archive.txt")
        home.declare((declaration("PercentProcessesUsed"),))
        machine, port = self.page(home)
        machine.until(lambda: self.json(port, "/api/v1/events?limit=1")["events"], "an event")
        events = Schema().check("events", ask(port, "/api/v1/events")[2])["events"]
        self.assertIn("Call To RawDataRetrievalAndArchive Failed", {event["message"] for event in events})
        self.assertEqual({event["type"] for event in events}, {"fatal"})
        machine.until(lambda: self.json(port, "/api/v1/event-groups?limit=1")["groups"][0]["times"] > 1, "its repetition")
        groups = Schema().check("eventGroups", ask(port, "/api/v1/event-groups")[2])["groups"]
        self.assertEqual(len(groups), len({group["event"]["message"] for group in groups}))
        machine.signal(signal.SIGTERM)
        machine.end()


class Listening(WebTest):
    def test_everyone_may_be_let_in_and_the_machine_has_its_own_name_then(self):
        home = self.fresh_home()
        port = free_port()
        machine = self.host(home, "--listen", "0.0.0.0", port=port)
        line = machine.expect("The page is at http://")
        self.assertIn(f":{port}/, for everyone who can reach this address", line)
        self.assertFalse(is_loopback(listeners(machine.process.pid)[0][0]))
        with open("/proc/sys/kernel/hostname", encoding="ascii") as file:
            own = file.read().strip()
        for host, expected in ((own, 200), (f"{own}:{port}", 200), ("evil.example", 403)):
            self.assertEqual(ask(port, RESOURCES, Host=host)[0], expected, host)
        self.lines(machine, home, 1)  # from here on a signal ends it in order
        self.terminate(machine)

    def test_with_port_0_nothing_listens(self):
        home = self.fresh_home()
        machine = self.host(home, port=0)
        self.lines(machine, home, 1)
        self.assertEqual(listeners(machine.process.pid), [])
        self.assertNotIn("page", machine.output())
        self.terminate(machine, home)

    def test_a_taken_port_or_a_foreign_address_costs_the_page_and_not_the_agent(self):
        with socket.socket() as holder:
            holder.bind(("127.0.0.1", 0))
            holder.listen()
            port = holder.getsockname()[1]
            addresses = (("127.0.0.1", "Address already in use"), ("192.0.2.1", "Cannot assign requested address"),
                         ("no-such-name.invalid", "this machine knows no such name"))
            for address, why in often(addresses[:1], addresses):
                home = self.fresh_home()
                machine = self.host(home, "--listen", address, port=port)
                line = machine.expect("The page is not available: ")
                self.assertIn(f"cannot listen on {address}:{port} ({why}", line)
                self.assertIn("; --port names another port", line)
                self.lines(machine, home, 1)
                self.terminate(machine, home)

    def test_the_end_waits_for_no_client_and_the_port_is_free_at_once(self):
        home = self.fresh_home()
        port = free_port()
        for _ in range(2):
            lines = len(home.archive_lines())
            machine = self.host(home, port=port)
            machine.expect(f"The page is at http://127.0.0.1:{port}/")
            connection = http.client.HTTPConnection("127.0.0.1", port)
            connection.request("GET", RESOURCES)
            self.assertEqual(connection.getresponse().status, 200)
            before = descriptors(machine.process.pid)
            with socket.create_connection(("127.0.0.1", port)) as slow:
                slow.sendall(b"GET / HT")
                machine.until(lambda: descriptors(machine.process.pid) > before, "the slow client's acceptance")
                self.lines(machine, home, lines + 1)
                self.terminate(machine, home)
            connection.close()


class Served(SharedAgentTest):
    @staticmethod
    def new_home():
        home = agent_home.Home(period=1000)
        shutil.copy(os.path.join(PROJECT, "config", "resources.txt"), home.at("config", "resources.txt"))
        return home

    def test_a_tag_saves_the_body_and_gzip_shrinks_it(self):
        self.await_resources(self.machine, self.port)

        def is_unchanged():  # until a cycle comes between two questions no more
            _, headers, body = ask(self.port, RESOURCES)
            status, _, nothing = ask(self.port, RESOURCES, If_None_Match=headers["ETag"])
            _, headers, small = ask(self.port, RESOURCES, Accept_Encoding="gzip")
            self.assertEqual(headers["Content-Encoding"], "gzip")
            return (status, nothing) == (304, b"") and gzip.decompress(small) == body

        self.machine.until(is_unchanged, "the same answer three times")

    def test_only_the_loopback_address_is_listened_on(self):
        found = listeners(self.machine.process.pid)
        self.assertEqual([p for _, p in found], [self.port])
        self.assertTrue(is_loopback(found[0][0]), found)

    def test_a_name_that_is_not_this_machine_is_refused(self):
        port = self.port
        for host, expected in (("evil.example", 403), (f"evil.example:{port}", 403), ("localhost", 200),
                               (f"127.0.0.1:{port}", 200), ("[::1]", 200), ("Watch.Example:80", 200), ("", 403)):
            self.assertEqual(ask(port, RESOURCES, Host=host)[0], expected, host)
        self.assertIn(b" 403 ", self.raw(port, b"GET / HTTP/1.1\r\nConnection: close\r\n\r\n"))
        self.assertIn(b" 403 ", self.raw(port, b"GET / HTTP/1.1\r\nHost: a\r\nHost: localhost\r\nConnection: close\r\n\r\n"))

    def test_no_path_leads_to_a_file_and_nothing_malformed_to_a_failure(self):
        port = self.port
        paths = ("/../../etc/passwd", "/%2e%2e/%2e%2e/etc/passwd", "/..%2f..%2fetc/passwd", "//etc/passwd", "/etc/passwd",
                 "/\\..\\etc\\passwd", "/%00", "/\0", "/%", "/%c0%ae%c0%ae/", "*", "http://evil/", "file:///etc/passwd",
                 "/api/v1/resources/../events", "/api/v1/resources/1e1/trend", "/api/v1/resources/%31/trend", "/" + "a" * 15000)
        for path in paths:
            answer = self.raw(port, f"GET {path} HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n".encode("latin-1"))
            self.assertNotIn(b"root:", answer, path)
            status = answer.split(b" ", 2)[1:2]
            self.assertIn(status, ([b"400"], [b"404"]), path)
        for request in (b"GET /" + b"a" * 100 * 1024 + b" HTTP/1.1\r\nHost: localhost\r\n\r\n", b"\0" * 20000,
                        b"GET / HTTP/1.1\r\n" + b"x: y\r\n" * 100000, b"GET / HTTP/1.1\r\nHost: localhost\r\n x\r\n\r\n",
                        b"GET /\r\n\r\n", b"\r\n" * 5000 + b"\xff\xfe\r\n\r\n", b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n",
                        b"GET / HTTP/1.1\r\nHost: localhost\r\nContent-Length: -1\r\n\r\n"):
            answer = self.raw(port, request)
            self.assertNotIn(b" 200 ", answer[:20], request[:60])
            self.assertNotIn(b" 500 ", answer[:20], request[:60])
        status, headers, _ = ask(port, RESOURCES, "POST")
        self.assertEqual((status, headers["Allow"]), (405, "GET, HEAD"))
        self.assertEqual(self.json(port, RESOURCES)["agent"]["running"], True)
        self.assertNotIn("The web server could not", self.machine.output())

    def test_a_flood_stops_no_cycle_and_leaves_nothing_behind(self):
        pid = self.machine.process.pid
        ids = [r["id"] for r in self.await_resources(self.machine, self.port)]
        paths = [RESOURCES, "/", "/api/v1/events", f"{RESOURCES}/{ids[0]}/trend", f"{RESOURCES}/{ids[0]}/culprits", "/nowhere"]
        before = descriptors(pid)
        enough = often(100, 2000)
        is_over = threading.Event()
        counts = []

        def flood(number):
            good = asked = 0
            connection = http.client.HTTPConnection("127.0.0.1", self.port)
            while asked < enough or not is_over.wait(0.02):
                asked += 1
                try:
                    if asked % 10 == 0:  # the next request opens a new one
                        connection.close()
                    connection.request("GET", paths[(asked + number) % len(paths)])
                    response = connection.getresponse()
                    response.read()
                    good += response.status in (200, 404, 503)
                except (OSError, http.client.HTTPException):
                    connection.close()
            connection.close()
            counts.append((good, asked))

        threads = [threading.Thread(target=flood, args=(number,)) for number in range(8)]
        for thread in threads:
            thread.start()
        try:
            self.more_lines(self.machine, self.home, 3)
        finally:
            is_over.set()
            peak = memory(pid)
            for thread in threads:
                thread.join()
        peak = max(peak, memory(pid))
        good, asked = (sum(column) for column in zip(*counts))
        self.assertGreater(good, 0.99 * asked)
        self.assertLess(peak, 400)
        self.machine.until(lambda: descriptors(pid) <= before + 3, "the descriptors' return")

    def test_clients_that_crawl_hold_up_neither_the_agent_nor_others(self):
        machine, home, port = self.machine, self.home, self.port
        threads = page_threads(machine.process.pid)
        before = descriptors(machine.process.pid)
        is_over = threading.Event()
        connections = []
        request = b"GET /uPlot.iife.min.js HTTP/1.1\r\nHost: localhost\r\n\r\n"
        for number in range(64):
            connection = socket.socket()
            if number % 2:
                connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            connection.bind(("127.0.0.2", 0))
            connection.connect(("127.0.0.1", port))
            connection.setblocking(False)
            connections.append(connection)
            self.addCleanup(connection.close)
        machine.until(lambda: descriptors(machine.process.pid) >= before + 60, "the crawling clients' acceptance")
        refused = set()

        def crawl():
            for position in range(len(request) - 1):  # no request is ever whole
                for number, connection in enumerate(connections):
                    try:
                        if number % 2:  # asks again and again and never reads
                            connection.send(request * 20)
                        else:
                            connection.send(request[position:position + 1])
                    except BlockingIOError:
                        pass
                    except OSError:
                        refused.add(number)
                if is_over.wait(1):
                    return

        crawler = threading.Thread(target=crawl, daemon=True)
        crawler.start()

        for _ in range(3):
            self.more_lines(machine, home, 1)
            self.assertEqual(ask(port, RESOURCES)[0], 200)
        # Those that never finish a request have only its time.
        readers = set(range(1, len(connections), 2))
        self.assertGreater(len(readers - refused), 0, "some of those that do not read were to be there all the time")
        if LONG:
            machine.until(lambda: len(refused) == len(connections), "the end of all that crawl")
        is_over.set()
        crawler.join()
        self.assertEqual(ask(port, RESOURCES)[0], 200)
        self.assertEqual(page_threads(machine.process.pid), threads)

    def test_a_client_that_cannot_be_accepted_costs_no_processor_time(self):
        machine, port, pid = self.machine, self.port, self.machine.process.pid
        self.await_resources(machine, port)
        subprocess.run(["prlimit", "--pid", str(pid), "--nofile=3:"], check=True)
        with socket.create_connection(("127.0.0.1", port)) as waiting:
            waiting.sendall(b"GET /api/v1/events HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n")
            before = processor_seconds(pid)
            lines = len(machine.lines)
            machine.until(lambda: sum("RawDataRetrievalAndArchive" in line for line in machine.lines[lines:]) > 2,
                          "three cycles, which fail without descriptors")
            self.assertLess(processor_seconds(pid) - before, 1)
            self.assertEqual(select.select([waiting], [], [], 0)[0], [], "it was accepted")
            subprocess.run(["prlimit", "--pid", str(pid), "--nofile=1000:"], check=True)
            self.assertIn(b" 200 ", waiting.recv(100))


if __name__ == "__main__":
    unittest.main()
