"""The examples for lumetra run --on-event, as they are shipped: a mail, a web hook, a line in the system log."""

import email
import email.policy
import http.server
import os
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import unittest

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
from suite import remaining  # noqa: E402

EXAMPLES = os.path.join(os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))), "integrations", "on-event")
NAMES = ("mail", "webhook", "syslog")
HOSTILE = ["$(touch evil) `touch evil`", "'\"\\; touch evil #", "=?UTF-8?B?ZXZpbA==?= %s%n", "Bcc: evil@example.org", "-t --help",
           "Ä€😀" * 60, "x" * 1000, "/mnt/a b\\n.\\n"]


class Examples(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.mkdtemp(prefix="lumetra-on-event-")
        self.addCleanup(shutil.rmtree, self.directory)

    def at(self, name):
        return os.path.join(self.directory, name)

    def put(self, name, text, mode=0o644):
        with open(self.at(name), "w", encoding="utf-8") as file:
            file.write(text)
        os.chmod(self.at(name), mode)

    def run_example(self, name, text, line=b"{}\n", **variables):
        """Runs it as the agent does, but for the path of programs, where a test may have put its own, and the configuration."""
        named = {"EVENT": "exhaustion", "TEXT": text, "CULPRITS": "", "TRACK_RECORD": "", "PAGE": "", "TIME": "2026-11-22T10:00:00Z",
                 **variables}
        environment = {"PATH": self.directory + ":/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C.UTF-8", "LUMETRA_CONFIG": self.directory,
                       **{"LUMETRA_" + key: value for key, value in named.items()}}
        return subprocess.run([os.path.join(EXAMPLES, name)], input=line, env=environment, cwd=self.directory, capture_output=True,
                              timeout=remaining())

    def assert_silent(self, done):
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, b"", b""))
        self.assertFalse(os.path.exists(self.at("evil")))

    def test_they_are_programs_and_shellcheck_finds_no_fault(self):
        self.assertEqual(sorted(os.listdir(EXAMPLES)), sorted((*NAMES, "README.md")))
        for name in NAMES:
            self.assertEqual(os.stat(os.path.join(EXAMPLES, name)).st_mode & 0o777, 0o755)
        if shutil.which("shellcheck") is None:
            self.skipTest("shellcheck is not installed")
        done = subprocess.run(["shellcheck", *(os.path.join(EXAMPLES, name) for name in NAMES)], capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, done.stdout)

    def mailed(self):
        with open(self.at("mailed"), "rb") as file:
            return file.read()

    def sendmail(self):
        self.put("sendmail", f"#!/bin/sh\necho \"$*\" >'{self.at('arguments')}'\ncat >'{self.at('mailed')}'\n", 0o755)

    def test_the_mail_has_the_text_as_its_subject_and_what_else_is_known(self):
        self.sendmail()
        self.put("mail.to", "one@example.org, two@example.org\nthree@example.org\n")
        self.assert_silent(self.run_example("mail", "box: Space [/dev/ä] will be exhausted in 2 h", CULPRITS="a (pid 1) 40",
                                            TRACK_RECORD="announced once", PAGE="http://127.0.0.1:8642/#/resource/3"))
        mail = email.message_from_bytes(self.mailed(), policy=email.policy.default)
        self.assertEqual(mail["Subject"], "box: Space [/dev/ä] will be exhausted in 2 h")
        self.assertEqual([address.addr_spec for address in mail["To"].addresses],
                         ["one@example.org", "two@example.org", "three@example.org"])
        self.assertEqual(mail.get_content(), "box: Space [/dev/ä] will be exhausted in 2 h.\n\nLargest users: a (pid 1) 40\n"
                         "Track record: announced once\nPage: http://127.0.0.1:8642/#/resource/3\nTold at: 2026-11-22T10:00:00Z\n")
        with open(self.at("arguments"), encoding="utf-8") as file:
            self.assertEqual(file.read(), "-i -t\n")

    def test_whatever_a_name_is_it_stays_text_in_the_mail(self):
        self.sendmail()
        for text in HOSTILE:
            with self.subTest(text=text):
                self.assert_silent(self.run_example("mail", text))
                mail = email.message_from_bytes(self.mailed(), policy=email.policy.default)
                self.assertEqual(mail["Subject"], text if len(text) <= 160 else text[:160] + "...")
                self.assertEqual(mail.keys(), ["To", "Subject", "MIME-Version", "Content-Type", "Content-Transfer-Encoding"])
                self.assertEqual(mail["To"], "root")
                self.assertEqual(mail.get_content().split("\n")[0], text + ".")
                self.assertLess(max(map(len, self.mailed().split(b"\n"))), 79)

    def test_the_hook_gets_the_line_and_a_refusal_is_told(self):
        got = []

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                got.append((self.path, dict(self.headers), self.rfile.read(int(self.headers["Content-Length"]))))
                self.send_response(500 if self.path == "/no" else 200)
                self.end_headers()
                self.wfile.write(b"an answer")

            def log_message(self, *arguments):
                pass

        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        line = b'{"text": "' + b"x" * 100_000 + b'"}\n'
        url = f"http://127.0.0.1:{server.server_address[1]}"
        self.put("webhook.curl", f'url = "{url}/yes"\nheader = "Authorization: Bearer secret"\n')
        self.assert_silent(self.run_example("webhook", "text", line))
        ((path, headers, body),) = got
        self.assertEqual((path, headers["Authorization"], headers["Content-Type"], body),
                         ("/yes", "Bearer secret", "application/json", line))
        self.put("webhook.curl", f'url = "{url}/no"\n')
        done = self.run_example("webhook", "text")
        self.assertNotEqual(done.returncode, 0)
        self.assertIn(b"500", done.stderr)
        os.remove(self.at("webhook.curl"))
        self.assertNotEqual(self.run_example("webhook", "text").returncode, 0)

    def test_the_system_log_gets_a_line_with_a_level(self):
        log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(log.close)
        log.bind(self.at("log"))
        self.put("logger", f"#!/bin/sh\nexec /usr/bin/logger --socket '{self.at('log')}' \"$@\"\n", 0o755)
        levels = (("upperTolerance", 2), ("innerTolerance", 2), ("fatal", 3), ("exhaustion", 4), ("ended", 5))
        for event, level in levels:
            self.assert_silent(self.run_example("syslog", "box: text", EVENT=event))
            said = log.recv(65536).decode()
            self.assertTrue(said.startswith(f"<{3 * 8 + level}>"), said)
            self.assertIn("lumetra-event: box: text", said)
        for text in HOSTILE:
            self.assert_silent(self.run_example("syslog", text))
            self.assertIn("lumetra-event: " + text[:100], log.recv(65536).decode())


if __name__ == "__main__":
    unittest.main()
