// The list of resources, most urgent first, with the sentence above it.

import { arrange, byId, element, icon, setAttribute, setProgress, setText, setTitle, show, svgElement } from "./dom.js";
import * as words from "./words.js";

const FILTERS_FROM = 16;
const CURVE_WIDTH = 120;
const CURVE_HEIGHT = 28;
const GAP = 5; // times the median distance of two values
const LEAST_CURVE_SPAN = 2; // per cent; less would draw noise as a mountain

const rows = new Map();

/** `users` holds the report on the largest users of one resource, or is null. */
export function renderOverview(data, users, now) {
  renderHeadline(data, now);
  renderFilters(data.resources);
  const visible = data.resources.filter(isWanted());
  const byKey = new Map(visible.map((r) => [r.id, r]));
  const ordered = arrange(byId("rows"), rows, [...byKey.keys()], makeRow);
  ordered.forEach((row) => {
    updateRow(row, byKey.get(row.id), data.agent, now);
    setText(row.users, row.id === users?.id ? words.largestUsers(users.feed.data) : "");
  });
  renderCounts(visible.length, data.resources.length);
}

/** Puts the focus back on the row that a reader came from. */
export function focusRow(id) {
  rows.get(id)?.link.focus({ preventScroll: true });
}

function renderHeadline(data, now) {
  const { text, more, tone, collector } = words.headline(data, now);
  setText(byId("headline"), text);
  setText(byId("subline"), more);
  show(byId("subline"), more !== "");
  setAttribute(byId("headline").parentElement, "data-tone", tone);
  show(byId("progress"), Boolean(collector));
  if (collector) {
    setProgress(byId("progress"), collector.samples, data.agent.samplesForForecast);
  }
}

function renderFilters(resources) {
  const useful = resources.length >= FILTERS_FROM;
  show(byId("filters"), useful);
  if (!useful) {
    return;
  }
  const select = byId("state-filter");
  const counts = new Map();
  resources.forEach((r) => counts.set(r.state, (counts.get(r.state) ?? 0) + 1));
  const wanted = ["", ...Object.keys(words.STATES).filter((s) => counts.has(s) || s === select.value)];
  if (wanted.join() !== [...select.options].map((o) => o.value).join()) {
    const chosen = select.value;
    select.replaceChildren(...wanted.map((state) => element("option", { value: state })));
    select.value = chosen;
  }
  for (const option of select.options) {
    setText(option, option.value === "" ? `All states (${resources.length})`
      : `${words.STATES[option.value].words} (${counts.get(option.value) ?? 0})`);
  }
}

/** Tells whether a resource passes the search and the filter; all do while these are not shown. */
function isWanted() {
  if (byId("filters").hidden) {
    return () => true;
  }
  const state = byId("state-filter").value;
  const needles = byId("search").value.toLowerCase().split(/\s+/).filter(Boolean);
  return (r) => {
    if (state !== "" && r.state !== state) {
      return false;
    }
    if (needles.length === 0) {
      return true;
    }
    const text = [words.title(r), words.subtitle(r), r.instance, r.stateText, r.model ?? ""].join(" ");
    return needles.every((needle) => text.toLowerCase().includes(needle));
  };
}

function renderCounts(visible, all) {
  const total = words.count(all, "resource");
  setText(byId("shown"), visible === all ? total : `${visible} of ${total}`);
  show(byId("empty"), visible === 0);
  setText(byId("empty"), all === 0 ? "No resources yet." : "No resource matches the search.");
}

function makeRow(id) {
  const cell = (name, ...children) => element("td", { role: "cell", class: name }, ...children);
  const row = { id, seen: {} };
  row.link = element("a", { href: `#/resource/${id}`, class: "name", dir: "auto" });
  row.sub = element("span", { class: "sub", dir: "auto" });
  row.users = element("span", { class: "sub users", dir: "auto" });
  row.number = element("span", { class: "number" });
  row.fill = element("div", { class: "fill" });
  row.mark = element("div", { class: "mark" });
  row.capacity = element("span", { class: "sub" });
  row.path = svgElement("path", { class: "line", "vector-effect": "non-scaling-stroke" });
  row.curve = svgElement("svg", { class: "curve", viewBox: `0 0 ${CURVE_WIDTH} ${CURVE_HEIGHT}`,
    preserveAspectRatio: "none", role: "img" }, row.path);
  row.icon = icon("absent");
  row.state = element("span", { class: "state-words" });
  row.note = element("span", { class: "sub note" });
  row.out = element("span", { class: "out" });
  row.at = element("span", { class: "sub" });
  row.record = element("span", { class: "sub record" });
  row.model = element("span", { class: "model" });
  row.level = element("span", { class: "sub" });
  row.root = element("tr", { role: "row" },
    element("th", { role: "rowheader", scope: "row", class: "who" }, row.link, row.sub, row.users),
    cell("value", row.number, element("div", { class: "bar", "aria-hidden": "true" }, row.fill, row.mark), row.capacity),
    cell("recent", row.curve),
    cell("state", element("span", { class: "chip" }, row.icon, row.state), row.note),
    cell("when", row.out, row.at, row.record),
    cell("how", row.model, row.level));
  return row;
}

function updateRow(row, r, agent, now) {
  setAttribute(row.root, "data-state", r.state);
  setText(row.link, words.title(r));
  setText(row.sub, words.subtitle(r));
  updateValue(row, r);
  updateCurve(row, r);
  setAttribute(row.icon.firstElementChild, "href", `#icon-${r.state}`);
  setText(row.state, r.stateText);
  setText(row.note, words.printable(r.note));
  const out = words.exhaustion(r, agent, now);
  setText(row.out, out.words);
  setText(row.at, out.moment);
  setTitle(row.out.parentElement, out.exact);
  row.out.parentElement.classList.toggle("none", out.words === "–");
  setText(row.record, words.runsOut(r) ? words.shortRecord(r) : "");
  setText(row.model, r.model ?? "–");
  row.model.parentElement.classList.toggle("none", r.model === null);
  setText(row.level, r.notificationLevel === null ? "" : `notifies from ${words.perCent(r.notificationLevel)}`);
}

function updateValue(row, r) {
  setText(row.number, words.perCent(r.value));
  setText(row.capacity, r.capacity === null ? "" : `of ${words.printable(r.capacity)}`);
  if (row.seen.value !== r.value || row.seen.level !== r.notificationLevel) {
    row.seen.value = r.value;
    row.seen.level = r.notificationLevel;
    row.fill.style.width = `${clamp(r.value ?? 0, 0, 100)}%`;
    row.mark.hidden = r.notificationLevel === null;
    row.mark.style.left = `${clamp(r.notificationLevel ?? 0, 0, 100)}%`;
  }
}

function updateCurve(row, r) {
  const values = r.recent.values;
  const known = values.filter((v) => v !== null);
  const lowest = Math.min(...known);
  const highest = Math.max(...known);
  const path = known.length < 2 ? "" : curvePath(values, lowest, highest);
  if (row.seen.path === path) {
    return;
  }
  row.seen.path = path;
  row.path.setAttribute("d", path);
  row.curve.parentElement.classList.toggle("none", path === "");
  row.curve.setAttribute("aria-label", path === "" ? "no recent history"
    : `last ${words.duration(r.recent.to - r.recent.from)}: ${words.perCent(lowest)} to ${words.perCent(highest)}`);
}

function curvePath(values, lowest, highest) {
  const middle = (lowest + highest) / 2;
  const span = Math.max(highest - lowest, LEAST_CURVE_SPAN);
  const step = CURVE_WIDTH / Math.max(1, values.length - 1);
  const known = [...values.keys()].filter((i) => values[i] !== null);
  const distances = known.slice(1).map((at, i) => at - known[i]).sort((a, b) => a - b);
  const most = GAP * distances[distances.length >> 1]; // in a young history most stretches have no sample
  return known.map((at, i) => {
    const pen = i === 0 || at - known[i - 1] > most ? "M" : "L";
    const y = CURVE_HEIGHT / 2 - ((values[at] - middle) / span) * (CURVE_HEIGHT - 6);
    return `${pen}${(at * step).toFixed(1)} ${y.toFixed(1)}`;
  }).join("");
}

function clamp(value, least, most) {
  return Math.min(most, Math.max(least, value));
}
