"""What the tests of the metrics share: the text form, the dashboard's queries, a Prometheus of the test's own."""

import json
import os
import re
import shutil
import subprocess
import sys
import unittest
import urllib.error
import urllib.parse
import urllib.request

sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "jvm"))
from java_host import PROJECT, JavaTest, ask, free_port, remaining, wait_until  # noqa: E402
from agent_home import write  # noqa: E402

PROMETHEUS = os.path.join(PROJECT, "integrations", "prometheus")
DASHBOARD = os.path.join(PROJECT, "integrations", "grafana", "dashboard.json")
RULES = os.path.join(PROMETHEUS, "lumetra-rules.yml")
OPEN_METRICS = "application/openmetrics-text; version=1.0.0"
SAMPLE = re.compile(r'(\w+)(?:\{((?:\w+="(?:[^"\\]|\\.)*",?)*)\})? (\S+)')
LABEL = re.compile(r'(\w+)="((?:[^"\\]|\\.)*)"')

needs_prometheus = unittest.skipUnless(shutil.which("prometheus") and shutil.which("promtool"),
                                       "prometheus is not installed")


def content(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def samples(text):
    """(name, labels, value text) of each sample of a text form; a line that is none fails."""
    found = []
    for line in text.split("\n"):
        if line and not line.startswith("#"):
            match = SAMPLE.fullmatch(line)
            if match is None:
                raise AssertionError(f"no sample: {line!r}")
            labels = {name: re.sub(r"\\(.)", lambda m: "\n" if m[1] == "n" else m[1], value)
                      for name, value in LABEL.findall(match[2] or "")}
            found.append((match[1], labels, match[3]))
    return found


def names_in(query):
    """The metrics that a query names."""
    return set(re.findall(r"\blumetra_\w+", query))


def dashboard_queries():
    """The queries of all panels."""
    panels = json.loads(content(DASHBOARD))["panels"]
    return [target["expr"] for panel in panels for target in panel.get("targets", [])]


def promtool(*arguments, text=None):
    """Runs promtool; its status and all that it says."""
    result = subprocess.run(["promtool", *arguments], input=text, capture_output=True, timeout=remaining())
    return result.returncode, (result.stdout + result.stderr).decode()


class Prometheus:
    """A server on loopback that scrapes four times a second, with its data below a directory of the caller's; its alerts go to
    an Alertmanager at that port."""

    def __init__(self, directory, targets, rules, alertmanager=None):
        self.port = free_port()
        self.directory = directory
        write(os.path.join(directory, "rules.yml"), rules)
        write(os.path.join(directory, "prometheus.yml"), json.dumps({
            "global": {"scrape_interval": "250ms", "scrape_timeout": "250ms", "evaluation_interval": "250ms"},
            "rule_files": ["rules.yml"],
            "alerting": {"alertmanagers": [{"static_configs": [{"targets": [f"127.0.0.1:{alertmanager}"]}]}] if alertmanager else []},
            "scrape_configs": [{"job_name": "lumetra", "static_configs": [{"targets": targets}]}]}))
        with open(os.path.join(directory, "prometheus.log"), "wb") as log:
            self.process = subprocess.Popen(
                ["prometheus", "--config.file", os.path.join(directory, "prometheus.yml"),
                 "--storage.tsdb.path", os.path.join(directory, "tsdb"), "--web.listen-address", f"127.0.0.1:{self.port}",
                 "--log.level", "warn"], stdin=subprocess.DEVNULL, stdout=log, stderr=subprocess.STDOUT)

    def end(self):
        self.process.kill()
        self.process.wait()

    def log(self):
        return content(os.path.join(self.directory, "prometheus.log"))

    def ask(self, path, **parameters):
        """The data of an answer of its interface; waits for its start."""
        url = f"http://127.0.0.1:{self.port}/api/v1/{path}?{urllib.parse.urlencode(parameters)}"

        def answer():
            try:
                with urllib.request.urlopen(url, timeout=remaining()) as response:
                    return json.load(response)
            except urllib.error.HTTPError as error:
                if error.code != 503:
                    raise AssertionError(f"{parameters}: {error.read().decode()}") from None
            except OSError:
                pass
            if self.process.poll() is not None:
                raise AssertionError("Prometheus does not answer:\n" + self.log()[-3000:])
            return None

        return wait_until(answer, "an answer of Prometheus")["data"]

    def query(self, query):
        return self.ask("query", query=query)["result"]

    def values(self, query):
        """The value texts of all series of an instant query."""
        return [series["value"][1] for series in self.query(query)]

    def alerts(self, name, **labels):
        """The pending and firing alerts of this name with these labels."""
        return [alert for alert in self.ask("alerts")["alerts"] if alert["labels"]["alertname"] == name
                and labels.items() <= alert["labels"].items()]


__all__ = ["DASHBOARD", "OPEN_METRICS", "PROJECT", "PROMETHEUS", "RULES", "JavaTest", "Prometheus", "ask", "content",
           "dashboard_queries", "names_in", "needs_prometheus", "promtool", "samples", "wait_until"]
