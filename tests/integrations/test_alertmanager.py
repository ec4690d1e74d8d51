"""From a disk that fills to the message that arrives: the agent, Prometheus, the Alertmanager, a mail server, a web hook."""

import email
import email.policy
import http.server
import json
import os
import re
import shutil
import socketserver
import subprocess
import sys
import threading
import unittest
import urllib.request

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from monitoring import PROJECT, RULES, JavaTest, Prometheus, content, needs_prometheus, wait_until  # noqa: E402
from agent_home import mount, needs_mounts, umount, write  # noqa: E402
from java_host import free_port, remaining  # noqa: E402
from test_jvm_forecast import CYCLE, PERIOD, PORTION, SIZE, disks, fill  # noqa: E402
from turned_agent import TurnedAgent  # noqa: E402

SHIPPED = os.path.join(PROJECT, "integrations", "alertmanager")
SOON, FULL = "LumetraExhaustionWithin4Hours", "LumetraResourceAtLimit"

# Debian's reads a template of its own from where it is installed. Unpacked elsewhere, it gets it put there in a mount namespace.
OWN_TEMPLATES = "/usr/share/prometheus/alertmanager"
UNPACKED = os.path.dirname(os.path.dirname(shutil.which("prometheus-alertmanager") or "/usr/bin/none"))
IN_ITS_PLACE = () if os.path.isdir(OWN_TEMPLATES) else (
    "unshare", "--mount", "--propagation", "private", "sh", "-c",
    'mount -t overlay -o "lowerdir=$1/share:/usr/share" share /usr/share && shift && exec "$@"', "sh", UNPACKED)


def why_not():
    """Why the Alertmanager cannot run here; nothing when it can."""
    if not shutil.which("prometheus-alertmanager") or not shutil.which("amtool"):
        return "prometheus-alertmanager is not installed"
    if subprocess.run([*IN_ITS_PLACE, "test", "-d", OWN_TEMPLATES], capture_output=True).returncode != 0:
        return "the Alertmanager is unpacked only, and its templates cannot be put in their place"
    return ""


needs_running = unittest.skipIf(why_not(), why_not())
needs_alertmanager = unittest.skipUnless(shutil.which("prometheus-alertmanager") and shutil.which("amtool"),
                                         "prometheus-alertmanager is not installed")


class Mailbox:
    """A mail server on loopback: (recipient, message) of each mail."""

    def __init__(self):
        self.mails = mails = []

        class Session(socketserver.StreamRequestHandler):
            def answer(self, text):
                self.wfile.write(text.encode() + b"\r\n")

            def handle(self):
                self.answer("220 here")
                to, lines = "", []
                for line in self.rfile:
                    word = line.split(b":")[0].split()[0].upper() if line.strip() else b""
                    if word == b"DATA":
                        self.answer("354 go on")
                        lines = iter(self.rfile.readline, b".\r\n")
                        mails.append((to, email.message_from_bytes(b"".join(lines), policy=email.policy.default)))
                    elif word == b"RCPT":
                        to = line.decode().split("<")[1].split(">")[0]
                    if word == b"QUIT":
                        self.answer("221 bye")
                        return
                    self.answer("250 done")

        self.server = socketserver.ThreadingTCPServer(("127.0.0.1", 0), Session)
        self.port = serve(self.server)

    def with_subject(self, pattern):
        return [(to, mail) for to, mail in list(self.mails) if re.search(pattern, mail["Subject"])]


class Hook:
    """A web hook on loopback: the JSON of each message."""

    def __init__(self):
        self.messages = messages = []

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                messages.append(json.loads(self.rfile.read(int(self.headers["Content-Length"]))))
                self.send_response(200)
                self.end_headers()

            def log_message(self, *arguments):
                pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.port = serve(self.server)

    def told(self, alert, status):
        return [message for message in list(self.messages) if message["status"] == status
                and message["commonLabels"].get("alertname") == alert]


def serve(server):
    server.daemon_threads = True
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return server.server_address[1]


class Alertmanager:
    """The shipped configuration and templates, with the addresses of a test, and seconds to wait instead of minutes."""

    def __init__(self, directory, mailbox, hook):
        self.port = free_port()
        shutil.copy(os.path.join(SHIPPED, "lumetra.tmpl"), directory)
        shipped = content(os.path.join(SHIPPED, "alertmanager.yml"))
        for old, new in (("localhost:25", f"127.0.0.1:{mailbox.port}"), ("127.0.0.1:9099", f"127.0.0.1:{hook.port}")):
            assert shipped.count(old) == 1, old
            shipped = shipped.replace(old, new)
        config = os.path.join(directory, "alertmanager.yml")
        write(config, re.sub(r"(group_wait|group_interval): .*", r"\1: 1s", shipped))
        with open(os.path.join(directory, "alertmanager.log"), "wb") as log:
            self.process = subprocess.Popen(
                [*IN_ITS_PLACE, "prometheus-alertmanager", "--config.file", config, "--storage.path", os.path.join(directory, "alerts"),
                 "--web.listen-address", f"127.0.0.1:{self.port}", "--cluster.listen-address", ""],
                stdin=subprocess.DEVNULL, stdout=log, stderr=subprocess.STDOUT)
        self.log = os.path.join(directory, "alertmanager.log")

    def end(self):
        self.process.kill()
        self.process.wait()

    def alerts(self):
        """The alerts that it has; waits for its start."""

        def answer():
            if self.process.poll() is not None:
                raise AssertionError("the Alertmanager has ended:\n" + content(self.log)[-3000:])
            try:
                with urllib.request.urlopen(f"http://127.0.0.1:{self.port}/api/v2/alerts", timeout=remaining()) as response:
                    return [json.load(response)]
            except OSError:
                return None

        return wait_until(answer, "an answer of the Alertmanager")[0]

    def amtool(self, *arguments):
        done = subprocess.run(["amtool", f"--alertmanager.url=http://127.0.0.1:{self.port}", *arguments], text=True,
                              capture_output=True, timeout=remaining())
        assert done.returncode == 0, done.stdout + done.stderr
        return done.stdout


@needs_alertmanager
class Configuration(unittest.TestCase):
    def test_amtool_finds_no_fault(self):
        done = subprocess.run(["amtool", "check-config", os.path.join(SHIPPED, "alertmanager.yml")], text=True,
                              capture_output=True, timeout=remaining())
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertIn("1 templates", done.stdout)

    def test_each_severity_goes_to_its_receiver(self):
        for severity, receiver in (("critical", "urgent"), ("warning", "mail"), ("notice", "digest")):
            done = subprocess.run(["amtool", "config", "routes", "test", "--config.file",
                                   os.path.join(SHIPPED, "alertmanager.yml"), f"severity={severity}"], text=True,
                                  capture_output=True, timeout=remaining())
            self.assertEqual(done.stdout.strip(), receiver, done.stderr)


@needs_prometheus
@needs_running
class Messages(JavaTest):
    @needs_mounts
    def test_the_disk_that_fills_is_told_to_those_on_call_silenced_and_over(self):
        home = self.fresh_home(period=PERIOD)
        home.declare((disks(2000),))
        path = home.at("disk")
        os.mkdir(path)
        mount("small", path, "tmpfs", 0, f"size={SIZE}")
        self.addCleanup(umount, path)
        turned = TurnedAgent(home, path)
        self.addCleanup(turned.close)
        machine, port = self.page(home, environment=turned.environment())
        mailbox, hook = Mailbox(), Hook()
        for server in (mailbox.server, hook.server):
            self.addCleanup(server.server_close)
            self.addCleanup(server.shutdown)
        manager = Alertmanager(home.path, mailbox, hook)
        self.addCleanup(manager.end)
        rules = re.sub(r"(?m)^( +(?:for|keep_firing_for)): .*", r"\1: 1s", content(RULES))
        prometheus = Prometheus(home.path, [f"127.0.0.1:{port}"], rules, manager.port)
        self.addCleanup(prometheus.end)
        instance = f"127.0.0.1:{port}"
        what = f"PercentFreeSpaceUsed of {path} on {instance}"
        for _ in range(210):  # until it is forecast
            turned.cycle(CYCLE, lambda: fill(path, PORTION))

        def until(condition, what, meanwhile=lambda: None):
            """Waits while the agent's time goes on a second a look."""
            wait_until(lambda: (turned.cycle(1, meanwhile), condition())[1], what)

        until(lambda: mailbox.with_subject("runs out in"), "the mail")
        (to, mail), *_ = mailbox.with_subject("runs out in")
        self.assertEqual(to, "oncall@example.org")
        self.assertRegex(mail["Subject"], rf"^{re.escape(what)} runs out in \d+m \d+s$")
        text = mail.get_body(("plain",)).get_content()
        for part in (mail["Subject"], f"forecasts that PercentFreeSpaceUsed of the file system {path} (small)",
                     "Severity: critical", f"Page:     http://{instance}/\n"):
            self.assertIn(part, text.replace("\r", ""))
        until(lambda: hook.told(SOON, "firing"), "the message to the hook")
        self.assertEqual(hook.told(SOON, "firing")[0]["commonLabels"]["mountpoint"], path)

        manager.amtool("silence", "add", "--author", "test", "--comment", "test", f"alertname={SOON}", f"mountpoint={path}")
        until(lambda: [alert for alert in manager.alerts() if alert["labels"]["alertname"] == SOON
                       and alert["status"]["state"] == "suppressed" and alert["status"]["silencedBy"]], "the silence")
        until(lambda: hook.told(FULL, "firing"), "the limit", lambda: fill(path, SIZE))
        until(lambda: mailbox.with_subject("is at its limit"), "the mail on the limit")
        self.assertIn(f"{what} is at its limit", [mail["Subject"] for _, mail in mailbox.mails])
        os.truncate(os.path.join(path, "data"), 0)
        until(lambda: mailbox.with_subject("^over: "), "the mail that it is over")
        until(lambda: hook.told(FULL, "resolved"), "the same to the hook")
        (to, mail), *_ = mailbox.with_subject("^over: ")
        self.assertEqual((to, mail["Subject"]), ("oncall@example.org", f"over: {what} is at its limit"))
        self.assertIn("No longer true:", mail.get_body(("plain",)).get_content())
        self.assertEqual(hook.told(SOON, "resolved"), [], "it is silenced")
        turned.release()
        self.terminate(machine, home)


if __name__ == "__main__":
    unittest.main()
