// One resource: its chart, what the agent forecasts of it, who eats it, and its events.

import { AnnouncementChart } from "./announcements.js";
import { canDraw, Chart } from "./chart.js";
import { byId, element, icon, setAttribute, setProgress, setText, setTitle, show } from "./dom.js";
import { renderOwnEvents } from "./events.js";
import { Feed, Refusal } from "./feed.js";
import * as words from "./words.js";

const TABLE_SAMPLES = 50;

export class Detail {
  #chart = new Chart();
  #announcementChart = new AnnouncementChart();
  #id = null;
  #feeds = null;
  #refused = false;
  #loaded = false;
  #facts = new Map();

  constructor() {
    byId("as-table").addEventListener("click", () => {
      const open = byId("sample-table").hidden;
      show(byId("sample-table"), open);
      byId("as-table").setAttribute("aria-pressed", String(open));
      this.#renderSamples();
    });
  }

  /** Turns to a resource; what was shown of another one is gone at once. */
  open(id) {
    if (this.#id === id) {
      return;
    }
    this.close();
    this.#id = id;
    const base = `api/v1/resources/${id}`;
    this.#feeds = {
      trend: new Feed(`${base}/trend`, (d) => Array.isArray(d?.samples?.times) && Array.isArray(d.samples.values)),
      culprits: new Feed(`${base}/culprits`, (d) => Array.isArray(d?.processes)),
      events: new Feed(`${base}/event-groups?limit=50`, (d) => Array.isArray(d?.groups)),
    };
  }

  close() {
    this.#id = null;
    this.#feeds = null;
    this.#refused = false;
    this.#loaded = false;
    this.#chart.clear();
    this.#announcementChart.clear();
    byId("sample-rows").replaceChildren();
  }

  /** Asks for everything; a refusal of one is no silence of the agent: it may be busy, or the resource just gone. */
  async load() {
    if (!this.#feeds) {
      return;
    }
    const { trend, culprits, events } = this.#feeds;
    const outcomes = await Promise.allSettled([trend.load(), culprits.load(), events.load()]);
    this.#loaded = true;
    const silence = outcomes.find((o) => o.status === "rejected" && !(o.reason instanceof Refusal));
    if (silence) {
      throw silence.reason;
    }
    this.#refused = outcomes[0].status === "rejected";
  }

  render(resource, data, now) {
    setText(byId("detail-title"), words.title(resource));
    const capacity = resource.capacity === null ? "" : ` · ${words.printable(resource.capacity)}`;
    setText(byId("detail-sub"), words.subtitle(resource) + capacity);
    setAttribute(byId("detail"), "data-state", resource.state);
    renderNeighbours(resource, data.resources);
    this.#renderLead(resource, data.agent, now);
    this.#renderCollecting(resource, data.agent, now);
    this.#renderFacts(resource, data.agent, now);
    const { trend, culprits, events } = this.#feeds;
    this.#renderSamples();
    show(byId("beside"), this.#loaded); // what is above them may come with the first answers only
    renderCulprits(culprits.data, now);
    renderOwnEvents(events.data?.groups ?? [], now);
    this.#renderCharts(trend.data, resource, now);
  }

  /** Comes last: a browser that cannot draw them shows all that is in words. */
  #renderCharts(trend, resource, now) {
    if (!trend) {
      setText(byId("chart-summary"), this.#refused ? "The agent cannot give the samples now; the page goes on asking."
        : "Loading the samples…");
      return;
    }
    const summary = words.chartSummary(trend, resource, now);
    setText(byId("chart-summary"), canDraw() ? summary
      : `The chart's program has not been delivered; the page goes on asking for it. ${summary}`);
    this.#chart.draw(trend);
    this.#announcementChart.draw(trend.announcements, now);
  }

  #renderLead(resource, agent, now) {
    const lead = byId("detail-lead");
    if (!lead.firstElementChild) {
      lead.append(icon("absent"), element("span", { class: "state-words" }), element("span", { class: "lead-rest" }));
    }
    const [sign, state, rest] = lead.children;
    setAttribute(sign.firstElementChild, "href", `#icon-${resource.state}`);
    setText(state, words.runsOut(resource) ? `${resource.stateText}:` : resource.stateText);
    const out = words.exhaustion(resource, agent, now);
    setText(rest, words.runsOut(resource) ? `runs out ${out.words} (${out.moment})` : "");
    setTitle(lead, out.exact);
    const record = words.runsOut(resource) ? words.trackRecord(resource) : "";
    setText(byId("detail-record"), record);
    show(byId("detail-record"), record !== "");
    setText(byId("detail-note"), words.printable(resource.note));
    show(byId("detail-note"), Boolean(resource.note));
    const why = words.whyWatched(resource);
    setText(byId("detail-why"), why);
    show(byId("detail-why"), why !== "");
  }

  #renderCollecting(resource, agent, now) {
    const collects = resource.state === "collecting";
    show(byId("detail-collecting"), collects);
    if (collects) {
      setText(byId("detail-collecting-text"), `${words.collecting(resource, agent, now)}.`);
      setProgress(byId("detail-bar"), resource.samples, agent.samplesForForecast);
    }
  }

  #renderFacts(r, agent, now) {
    const out = words.exhaustion(r, agent, now);
    this.#fact("In use now", words.perCent(r.value));
    const isTold = words.runsOut(r) || r.state === "at-limit" || r.state === "no-exhaustion";
    this.#fact("Runs out", isTold ? out.words : "–", words.runsOut(r) ? out.exact : "");
    this.#fact("Model", r.model ?? "–");
    this.#fact("Notification level", words.perCent(r.notificationLevel));
    this.#fact("Limit", words.perCent(r.limit));
    const made = r.forecastAt;
    this.#fact("Forecast made", made === null ? "–" : `${words.moment(made, now)}, ${words.ago(now - made)}`,
      made === null ? "" : words.exactMoment(made));
    this.#fact("Samples", String(r.samples));
  }

  #fact(name, value, exact = "") {
    if (!this.#facts.has(name)) {
      const made = { value: element("dd"), exact: element("dd", { class: "sub" }) };
      byId("facts").append(element("div", {}, element("dt", {}, name), made.value, made.exact));
      this.#facts.set(name, made);
    }
    const fact = this.#facts.get(name);
    setText(fact.value, value);
    setText(fact.exact, exact);
    show(fact.exact, exact !== "");
  }

  #renderSamples() {
    const trend = this.#feeds?.trend.data;
    if (!trend || byId("sample-table").hidden) {
      return;
    }
    const { times, values } = trend.samples;
    const shown = Math.min(TABLE_SAMPLES, times.length);
    const body = byId("sample-rows");
    setText(byId("sample-count"), String(shown));
    while (body.rows.length > shown) {
      body.deleteRow(-1);
    }
    for (let i = 0; i < shown; i++) {
      const row = body.rows[i] ?? body.appendChild(element("tr", {}, element("td"), element("td", { class: "number" })));
      const at = times.length - 1 - i;
      setText(row.cells[0], words.exactMoment(times[at]));
      setText(row.cells[1], words.perCent(values[at]));
    }
  }
}

/** Those before and behind it in the overview, most urgent first. */
function renderNeighbours(resource, all) {
  const place = all.indexOf(resource);
  renderWay(byId("previous"), "More urgent", all[place - 1]);
  renderWay(byId("next"), "Less urgent", all[place + 1]);
}

function renderWay(link, label, neighbour) {
  show(link, neighbour !== undefined);
  if (neighbour) {
    setAttribute(link, "href", `#/resource/${neighbour.id}`);
    setText(link, `${label}: ${words.subject(neighbour)}`);
  }
}

function renderCulprits(report, now) {
  const table = byId("culprits");
  const processes = report?.measure ? report.processes : [];
  show(table, processes.length > 0);
  setText(byId("culprits-text"), culpritsText(report, now));
  setText(byId("culprits-unit"), report?.measure ? words.printable(report.measureText) : "Value");
  const body = byId("culprit-rows");
  while (body.rows.length > processes.length) {
    body.deleteRow(-1);
  }
  processes.forEach((process, i) => {
    const row = body.rows[i] ?? body.appendChild(element("tr", {}, element("th", { scope: "row", dir: "auto" }),
      element("td", { class: "number" }), element("td", { class: "number" })));
    setText(row.cells[0], words.printable(process.name));
    setText(row.cells[1], String(process.pid));
    setText(row.cells[2], process.value.toLocaleString("en-GB"));
  });
}

function culpritsText(report, now) {
  if (!report) {
    return "Loading…";
  }
  if (report.measure === null) {
    return "The agent names processes for descriptors, memory and child processes only.";
  }
  if (report.processes.length === 0) {
    return "No report yet: the agent writes it with the first forecast of an exhaustion.";
  }
  const written = report.writtenAt;
  return written === null ? "" : `As of ${words.moment(written, now)}, ${words.ago(now - written)}.`;
}
