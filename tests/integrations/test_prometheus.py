"""Metrics, rules and alerts, judged by Prometheus itself."""

import json
import os
import re
import subprocess
import sys
import time
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from monitoring import (OPEN_METRICS, PROJECT, PROMETHEUS, RULES, JavaTest, Prometheus, ask, content, dashboard_queries,  # noqa: E402
                        names_in, needs_prometheus, promtool, samples, wait_until)
from agent_home import DISK_SPACE, PROCESSES, SWAP, mount, needs_mounts, umount  # noqa: E402
from test_jvm_forecast import CYCLE, PERIOD, PORTION, SIZE, disks, fill  # noqa: E402
from turned_agent import TurnedAgent  # noqa: E402

LABELS = {"resource", "device", "mountpoint", "state", "model", "type", "version", "outcome", "rule"}
SOON = "LumetraExhaustionWithin4Hours"
STRICT = ("import json, sys\n"
          "from prometheus_client.openmetrics.parser import text_string_to_metric_families as parse\n"
          "print(json.dumps([[s.name, s.labels, str(s.value)] for f in parse(sys.stdin.read()) for s in f.samples]))\n")


def strict_python():
    """A Python that has the parser that accepts OpenMetrics to the letter only."""
    for python in (sys.executable, "/usr/bin/python3"):
        if subprocess.run([python, "-c", "import prometheus_client.openmetrics.parser"], capture_output=True).returncode == 0:
            return python
    return None


@needs_prometheus
class Rules(unittest.TestCase):
    def alerts(self):
        return re.findall(r"- alert: (\w+)", content(RULES))

    def test_promtool_finds_no_fault_in_rules_and_example(self):
        for kind, name in (("rules", "lumetra-rules.yml"), ("config", "prometheus.yml")):
            status, said = promtool("check", kind, os.path.join(PROMETHEUS, name))
            self.assertEqual(status, 0, said)

    def test_the_alerts_fire_and_end_as_their_tests_say(self):
        status, said = promtool("test", "rules", os.path.join(PROMETHEUS, "lumetra-rules-test.yml"))
        self.assertEqual(status, 0, said)
        tested = set(re.findall(r"alertname: (\w+)", content(os.path.join(PROMETHEUS, "lumetra-rules-test.yml"))))
        self.assertEqual(tested, set(self.alerts()))

    def test_every_alert_is_graded_explained_and_kept_for_a_while(self):
        parts = re.split(r"- alert: ", content(RULES))[1:]
        self.assertEqual(len(parts), 7)
        for part in parts:
            self.assertRegex(part, r"severity: ('\{\{ if .* \}\}notice\{\{ else \}\}(critical|warning)\{\{ end \}\}'|critical|warning)\n")
            for word in ("summary: ", "description: ", "keep_firing_for: ", "$labels.instance"):
                self.assertIn(word, part)

    def test_all_alerts_are_in_the_readme(self):
        self.assertEqual(re.findall(r"^\| `(Lumetra\w+)`", content(os.path.join(PROMETHEUS, "README.md")), re.MULTILINE),
                         self.alerts())


class MetricsTest(JavaTest):
    def agent(self, *inputs, **options):
        home = self.fresh_home(**options)
        home.declare(inputs)
        return home, *self.page(home)

    def metrics(self, port, accept="text/plain"):
        status, headers, body = ask(port, "/metrics", Accept=accept)
        self.assertEqual(status, 200)
        self.assertTrue(headers["Content-Type"].startswith(accept.partition(";")[0]), headers["Content-Type"])
        return body.decode()

    def await_cycles(self, machine, port, count):
        def cycles():
            return max((float(value) for name, _, value in samples(self.metrics(port)) if name == "lumetra_agent_cycles_total"),
                       default=0)

        machine.until(lambda: cycles() >= count, f"cycle {count}")


class Page(MetricsTest):
    @needs_prometheus
    def test_promtool_finds_no_fault_in_the_metrics_of_a_real_agent(self):
        home, machine, port = self.agent(PROCESSES, SWAP, DISK_SPACE, period=1000)
        self.await_cycles(machine, port, 2)
        text = self.metrics(port)
        self.assertEqual(promtool("check", "metrics", text=text.encode()), (0, ""))
        exported = {name for name, _, _ in samples(text)}
        documented = set(re.findall(r"^\| `(\w+)`", content(os.path.join(PROJECT, "docs", "metrics.md")), re.MULTILINE))
        self.assertEqual({re.sub("_(sum|count)$", "", name) for name in exported}, documented)
        self.assertLessEqual(names_in("\n".join(re.findall(r"expr: .*?for:", content(RULES), re.DOTALL))), exported)
        self.terminate(machine, home)

    def test_both_forms_tell_the_same_and_the_agent_measures_its_cycles(self):
        home, machine, port = self.agent(PROCESSES, SWAP, period=1000)
        self.await_cycles(machine, port, 3)

        def of_one_moment():  # no cycle between the two questions, nor between them and the look at the file
            classic, file = samples(self.metrics(port)), os.path.getsize(home.layout.archive)
            values = {name: float(value) for name, labels, value in classic if not labels}
            same = samples(self.metrics(port, OPEN_METRICS)) == classic and values["lumetra_agent_archive_bytes"] == file
            return same and os.path.getsize(home.layout.archive) == file and values

        values = machine.until(of_one_moment, "the same told twice")
        self.assertEqual(values["lumetra_agent_cycle_seconds_count"], values["lumetra_agent_cycles_total"])
        self.assertGreater(values["lumetra_agent_cycle_seconds_sum"], 0)
        times = [at for at, _ in home.archive_lines()]
        lasted = time.time() - times[0] + 1  # with a pause of a second between two cycles, which does not count
        self.assertLess(values["lumetra_agent_cycle_seconds_sum"], lasted - (values["lumetra_agent_cycle_seconds_count"] - 1))
        self.assertIn(values["lumetra_agent_newest_cycle_timestamp_seconds"], times)
        self.assertEqual(ask(port, "/-/healthy")[::2], (200, b"Lumetra Agent is healthy.\n"))
        machine.until(lambda: ask(port, "/-/ready")[::2] == (200, b"Lumetra Agent is ready.\n"), "readiness")
        self.terminate(machine, home)

    def test_an_agent_whose_df_hangs_is_healthy_but_not_ready_until_its_cycles_go_on(self):
        home = self.fresh_home(period=1000)
        home.stub_df("Filesystem 1K-blocks Used Available Use% Mounted on\n/dev/a 1000 500 500 50% /\n",
                     before="while [ -e ../hang ]; do sleep 0.05; done")
        home.declare((DISK_SPACE, PROCESSES))
        machine, port = self.page(home)
        machine.until(lambda: ask(port, "/-/ready")[0] == 200, "readiness")

        def stale():
            return {value for name, labels, value in samples(self.metrics(port))
                    if name == "lumetra_resource_state" and labels["state"] == "stale"}

        machine.until(lambda: stale() == {"0"}, "live states")
        open(home.at("hang"), "wb").close()

        def is_told():
            status, _, body = ask(port, "/-/ready")
            return (status == 503 and b"The newest cycle is more than three periods old." in body and stale() == {"1"}
                    and ask(port, "/-/healthy")[0] == 200)

        machine.until(is_told, "an agent that is healthy, not ready and stale")
        os.remove(home.at("hang"))
        machine.until(lambda: ask(port, "/-/ready")[0] == 200, "readiness again")
        machine.until(lambda: stale() == {"0"}, "live states again")
        self.terminate(machine, home)

    @unittest.skipIf(strict_python() is None, "python3-prometheus-client is not installed")
    @needs_mounts
    def test_a_mount_point_that_tries_to_be_a_metric_stays_a_label(self):
        home = self.fresh_home(period=1000)
        path = home.at('x"} 1\nlumetra_evil 1\n# EOF\n\\')
        os.makedirs(path)
        mount("small", path, "tmpfs", 0, "size=1m")
        self.addCleanup(umount, path)
        home.declare((DISK_SPACE, PROCESSES))
        machine, port = self.page(home)
        self.await_cycles(machine, port, 2)
        text = self.metrics(port, OPEN_METRICS)
        parsed = json.loads(subprocess.run([strict_python(), "-c", STRICT], input=text, capture_output=True, text=True,
                                           check=True).stdout)
        self.assertEqual([(name, labels) for name, labels, _ in parsed],
                         [(name, labels) for name, labels, _ in samples(text)])
        self.assertEqual(len({json.dumps(sample[:2]) for sample in parsed}), len(parsed))
        self.assertNotIn("lumetra_evil", {name for name, _, _ in parsed})
        points = {labels["mountpoint"] for _, labels, _ in parsed if "mountpoint" in labels}
        self.assertEqual(len([point for point in points if 'x"} 1' in point]), 1, points)
        self.assertLessEqual({label for _, labels, _ in parsed for label in labels}, LABELS)
        self.terminate(machine, home)


@needs_prometheus
class Scrape(MetricsTest):
    def prometheus(self, directory, ports):
        """The shipped rules, in seconds instead of minutes."""
        rules = re.sub(r"(?m)^( +(?:for|keep_firing_for)): .*", r"\1: 1s", content(RULES))
        self.assertEqual(rules.count("for: 1s"), 13)
        server = Prometheus(directory, [f"127.0.0.1:{port}" for port in ports], rules)
        self.addCleanup(server.end)
        return server

    def disk(self, home):
        path = home.at("disk")
        os.mkdir(path)
        mount("small", path, "tmpfs", 0, f"size={SIZE}")
        self.addCleanup(lambda: os.path.ismount(path) and umount(path))
        return path

    def assert_dashboard_is_answered(self, server, instance):
        for query in dashboard_queries():
            asked = (query.replace("$instance", instance).replace("$__rate_interval", "15s").replace("$__range", "5m"))
            if query.startswith("increase(lumetra_events_total{instance=\"$instance\"}["):  # events may not be due yet
                server.query(asked)
            else:
                wait_until(lambda asked=asked: server.query(asked), asked)  # a scrape that came too late leaves nothing

    def assert_in_every_scrape(self, server, instance, series):
        """From the first sample of a series on, every scrape has one."""
        (samples_of,) = server.query(f"{series}[5m]")
        (scrapes,) = server.query(f'up{{instance="{instance}"}}[5m]')
        times = [time for time, _ in samples_of["values"]]
        self.assertGreater(len(times), 5)
        expected = [time for time, up in scrapes["values"] if up == "1" and times[0] <= time <= times[-1]]
        self.assertEqual(times, expected)

    @needs_mounts
    def test_the_disk_that_fills_is_alerted_on_and_its_series_outlive_it(self):
        home = self.fresh_home(period=PERIOD)
        home.declare((disks(2000),))
        path = self.disk(home)
        turned = TurnedAgent(home, path)
        self.addCleanup(turned.close)
        machine, port = self.page(home, environment=turned.environment())
        others = [self.agent(PROCESSES, SWAP, period=period) for period in (1000, 2000)]
        ports = [port] + [its_port for _, _, its_port in others]
        server = self.prometheus(home.path, ports)
        instance = f"127.0.0.1:{port}"
        of_disk = f'{{instance="{instance}", mountpoint="{path}"}}'
        for _ in range(210):  # until it is forecast
            turned.cycle(CYCLE, lambda: fill(path, PORTION))
        seen = []

        def has_come(condition):
            """Whether it has, while the agent's time goes on a second a look."""
            turned.cycle(1)
            alerts = server.alerts(SOON, instance=instance, mountpoint=path)
            seen.extend(alert["state"] for alert in alerts if alert["state"] not in seen)
            return condition()

        wait_until(lambda: has_come(lambda: "firing" in seen), "the alert")
        self.assertIn(seen, (["pending", "firing"], ["firing"]))
        wait_until(lambda: has_come(lambda: server.values("sum(up)") == ["3"]), "scrapes of all")
        (alert,) = wait_until(lambda: has_come(lambda: server.alerts(SOON, instance=instance, mountpoint=path)), "the alert")
        self.assertEqual((alert["labels"]["device"], alert["labels"]["severity"]), ("small", "critical"))
        self.assertIn(f"PercentFreeSpaceUsed of {path} on {instance} runs out in ", alert["annotations"]["summary"])
        self.assertLessEqual({its["labels"]["instance"] for its in server.alerts(SOON)}, {instance})
        (metadata,) = server.ask("targets/metadata", metric="lumetra_resource_time_to_exhaustion_seconds",
                                 match_target=f'{{instance="{instance}"}}')
        self.assertEqual((metadata["type"], metadata["unit"]), ("gauge", "seconds"))  # a unit tells OpenMetrics
        self.assert_dashboard_is_answered(server, instance)

        os.truncate(os.path.join(path, "data"), 0)
        wait_until(lambda: has_come(lambda: server.values("lumetra_resource_used_ratio" + of_disk + " < 0.01")), "the empty disk")
        umount(path)
        absent = of_disk.replace("}", ', state="absent"}')
        wait_until(lambda: has_come(lambda: server.values("lumetra_resource_state" + absent) == ["1"]), "the absence")
        for series, value in (("lumetra_resource_used_ratio" + of_disk, "NaN"),
                              ("lumetra_resource_time_to_exhaustion_seconds" + of_disk, "NaN"),
                              ("sum(lumetra_resource_state" + of_disk + ")", "1")):
            self.assertEqual(wait_until(lambda: has_come(lambda series=series: server.values(series)), series), [value])
        wait_until(lambda: has_come(lambda: not server.alerts(SOON, instance=instance, mountpoint=path)), "the alert's end")
        for series in ("lumetra_resource_used_ratio" + of_disk, "lumetra_resource_state" + absent):
            self.assert_in_every_scrape(server, instance, series)
        turned.release()
        for its_machine, its_home in ((machine, home), *((other, its) for its, other, _ in others)):
            self.terminate(its_machine, its_home)


if __name__ == "__main__":
    unittest.main()
