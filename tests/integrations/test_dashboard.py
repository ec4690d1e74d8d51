"""The dashboard asks for nothing that an agent does not tell, and can be imported over any data source."""

import json
import os
import re
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from monitoring import DASHBOARD, JavaTest, ask, content, dashboard_queries, names_in, samples  # noqa: E402

BUILT_IN = {"__rate_interval", "__range"}
ADDED_BY_PROMETHEUS = {"instance", "job"}


class Dashboard(unittest.TestCase):
    def setUp(self):
        self.text = content(DASHBOARD)
        self.dashboard = json.loads(self.text)
        self.panels = self.dashboard["panels"]

    def test_it_keeps_its_identity_and_can_be_imported(self):
        self.assertEqual(self.dashboard["uid"], "lumetra-agent")
        self.assertIsNone(self.dashboard["id"])
        ids = [panel["id"] for panel in self.panels]
        self.assertEqual(len(ids), len(set(ids)))

    def test_data_source_and_host_are_chosen_by_variables(self):
        variables = {variable["name"]: variable for variable in self.dashboard["templating"]["list"]}
        self.assertEqual(list(variables), ["datasource", "instance"])
        self.assertEqual((variables["datasource"]["type"], variables["datasource"]["query"]), ("datasource", "prometheus"))
        self.assertEqual(variables["instance"]["query"]["query"], "label_values(lumetra_agent_info, instance)")
        sources = re.findall(r'"uid": "([^"]*)"', self.text)
        self.assertEqual(set(sources), {"lumetra-agent", "${datasource}"})
        used = {name for query in dashboard_queries() for name in re.findall(r"\$\{?(\w+)", query)}
        self.assertEqual(used, {"instance"} | BUILT_IN)

    def test_every_panel_has_a_query_and_a_description_and_overlaps_no_other(self):
        taken = set()
        for panel in self.panels:
            grid = panel["gridPos"]
            cells = {(x, y) for x in range(grid["x"], grid["x"] + grid["w"]) for y in range(grid["y"], grid["y"] + grid["h"])}
            self.assertLessEqual(grid["x"] + grid["w"], 24, panel["title"])
            self.assertFalse(cells & taken, panel["title"])
            taken |= cells
            if panel["type"] != "row":
                self.assertTrue(panel["targets"] and panel["description"], panel["title"])

    def test_hosts_are_told_apart_everywhere_but_in_the_overview(self):
        begin = next(n for n, panel in enumerate(self.panels) if panel["title"] == "Resources of $instance")
        for panel in self.panels[begin:]:
            for target in panel.get("targets", []):
                for name in names_in(target["expr"]):
                    self.assertIn(name + '{instance="$instance"', target["expr"])


class Names(JavaTest):
    def test_every_metric_and_label_of_the_dashboard_is_one_of_a_real_agent(self):
        home = self.fresh_home(period=1000)
        machine, port = self.page(home)
        found = {}
        machine.until(lambda: found.update(page=samples(ask(port, "/metrics")[2].decode())) or any(
            name == "lumetra_resource_state" for name, _, _ in found["page"]), "a resource")
        exported = {name for name, _, _ in found["page"]}
        labels = {label for _, its, _ in found["page"] for label in its} | ADDED_BY_PROMETHEUS
        for query in dashboard_queries():
            self.assertTrue(names_in(query), query)
            self.assertLessEqual(names_in(query), exported, query)
            for listed in re.findall(r"(?:by|on) \(([^)]*)\)", query):
                self.assertLessEqual(set(listed.split(", ")), labels, query)
            self.assertLessEqual(set(re.findall(r"[{ ](\w+)=\"", query)), labels, query)
        legends = re.findall(r"\{\{(\w+)\}\}", content(DASHBOARD))
        self.assertTrue(legends)
        self.assertLessEqual(set(legends), labels)
        self.terminate(machine, home)


if __name__ == "__main__":
    unittest.main()
