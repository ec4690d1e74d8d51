// The page: asks the agent again and again, and shows the view that the address names.

import { Detail } from "./detail.js";
import { byId, element, setAttribute, setText, setTitle, show } from "./dom.js";
import { announceNew, renderEvents } from "./events.js";
import { Feed, Refusal } from "./feed.js";
import { focusRow, renderOverview } from "./overview.js";
import * as words from "./words.js";

const VISIBLE_MS = 2000;
const HIDDEN_MS = 30000;
const LONGEST_MS = 30000;
const MOST_LEFT_OUT = 500; // a list that nobody reads to its end
const FAILURES_BEFORE_WORDS = 2; // one lost answer is no news
const EVENTS = "#/events";

const resources = new Feed("api/v1/resources", (d) => Array.isArray(d?.resources) && typeof d.agent === "object");
const events = new Feed("api/v1/event-groups?limit=100", (d) => Array.isArray(d?.groups));
const detail = new Detail();

let users = null; // who eats the most urgent of the resources whose processes the agent names
let failures = 0;
let lastAnswer = null;
let asking = false;
let askAgain = false;
let timer = null;
let view = { name: "overview", id: null };
let overviewScroll = 0;
let undrawn = null; // why the view could not be drawn the last time

function now() {
  return Date.now() / 1000 + resources.clockSkew;
}

function route() {
  const match = /^#\/resource\/(\d{1,9})$/.exec(location.hash);
  return match ? { name: "resource", id: Number(match[1]) } : { name: "overview", id: null };
}

async function ask() {
  if (asking) {
    askAgain = true; // the round under way may be for another view
    return;
  }
  asking = true;
  askAgain = false;
  clearTimeout(timer);
  let pause = document.hidden ? HIDDEN_MS : VISIBLE_MS;
  try {
    await Promise.all([resources.load(), events.load()]);
    await loadUsers();
    await loadDetail();
    failures = 0;
    lastAnswer = now();
  } catch (failure) {
    failures += 1;
    pause = Math.max(pause, Math.min(LONGEST_MS, VISIBLE_MS * 2 ** (failures - 1)), (failure.retryAfter ?? 0) * 1000);
  }
  asking = false;
  timer = setTimeout(ask, askAgain && failures === 0 ? 0 : pause); // before the drawing, whatever becomes of that
  render();
}

async function loadUsers() {
  const first = resources.data.resources.find((r) => r.mountpoint === null && (words.isUrgent(r) || words.runsOut(r)));
  if (users?.id !== first?.id) {
    users = first ? { id: first.id, feed: new Feed(`api/v1/resources/${first.id}/culprits`, (d) => Array.isArray(d?.processes)) }
      : null;
  }
  await users?.feed.load().catch((failure) => {
    if (!(failure instanceof Refusal)) {
      throw failure;
    }
  });
}

async function loadDetail() {
  if (view.name === "resource" && findResource(view.id)) {
    detail.open(view.id);
    await detail.load();
  }
}

function findResource(id) {
  return resources.data?.resources.find((r) => r.id === id) ?? null;
}

/** Brings the document up to date; what did not change is not touched. What cannot be drawn is said, and tried again. */
function render() {
  performance.clearMarks("lumetra-render");
  performance.clearMeasures("lumetra-render");
  performance.mark("lumetra-render");
  try {
    renderPage();
    undrawn = null;
  } catch (failure) {
    if (undrawn !== String(failure)) {
      console.error(failure);
    }
    undrawn = String(failure);
  }
  renderBanner();
  performance.measure("lumetra-render", "lumetra-render");
}

function renderPage() {
  renderFrame();
  if (resources.data) {
    renderView();
    document.documentElement.dataset.ready = "true";
  } else if (failures > 0) {
    setText(byId("headline"), "The agent does not answer.");
    setText(byId("subline"), "The page tries again every few seconds.");
    show(byId("overview"), true);
  }
}

function isSilent() {
  return failures >= FAILURES_BEFORE_WORDS && lastAnswer !== null;
}

function renderFrame() {
  const data = resources.data;
  const urgent = data ? data.resources.filter(words.isUrgent).length : 0;
  const shown = view.name === "resource" ? findResource(view.id) : null;
  const title = `${urgent > 0 ? `(${urgent}) ` : ""}${shown ? `${words.subject(shown)} – ` : ""}Lumetra Agent`;
  if (document.title !== title) {
    document.title = title;
  }
  setAttribute(document.body, "data-silent", String(isSilent()));
  renderPulse(data, isSilent());
}

/** It is never hidden, only empty: screen readers pass over what a hidden place was given before it was shown. */
function renderBanner() {
  const data = resources.data;
  const silence = isSilent()
    ? `The agent does not answer since ${words.moment(lastAnswer, now())}; the page shows what was known then.` : "";
  const failure = undrawn === null ? "" : `This view could not be drawn whole (${words.printable(undrawn)}). The page goes on trying.`;
  setText(byId("banner"), silence || failure || oldNews(data) || words.printable(data?.agent.notice ?? ""));
}

/** A resource's view has no headline, so it is told there that the agent stands still. */
function oldNews(data) {
  const { agent } = data ?? {};
  if (!agent || view.name !== "resource" || agent.newestCycleAt === null || (agent.running && !agent.stale)) {
    return "";
  }
  return words.headline(data, now()).text;
}

function renderPulse(data, silent) {
  if (!data) {
    return;
  }
  const { agent } = data;
  const newest = agent.newestCycleAt;
  const state = silent ? "no answer" : !agent.running && newest !== null ? "ended" : agent.stale ? "stale"
    : newest === null ? "starting" : "live";
  setAttribute(byId("pulse"), "data-live", String(state === "live"));
  setText(byId("pulse"), newest === null ? state : `${state} · ${words.moment(newest, now())}`);
  setTitle(byId("pulse"), newest === null ? "" : `newest cycle: ${words.exactMoment(newest)}`);
  setText(byId("about"), [`Lumetra Agent ${words.printable(agent.version)}`, words.printable(agent.home),
    agent.periodSeconds > 0 ? `a sample every ${words.duration(agent.periodSeconds)}` : "",
    words.count(agent.cycles, "cycle"), `started ${words.moment(agent.startedAt, now())}`,
    agent.resumedSamples > 0 ? `resumed with ${words.count(agent.resumedSamples, "sample")}` : ""].filter(Boolean).join(" · "));
  renderLeftOut(data.leftOut ?? []);
}

function renderLeftOut(leftOut) {
  show(byId("left-out"), leftOut.length > 0);
  setText(byId("left-out-summary"), words.leftOutSummary(leftOut));
  const list = byId("left-out-list");
  const lines = leftOut.slice(0, MOST_LEFT_OUT).map(({ what, why }) => `${words.printable(what)}: ${words.printable(why)}`);
  if (leftOut.length > MOST_LEFT_OUT) {
    lines.push(`and ${leftOut.length - MOST_LEFT_OUT} more, which lumetra status --skipped lists`);
  }
  while (list.children.length > lines.length) {
    list.lastElementChild.remove();
  }
  lines.forEach((line, i) => setText(list.children[i] ?? list.appendChild(element("li", { dir: "auto" })), line));
}

function renderView() {
  const resource = view.name === "resource" ? findResource(view.id) : null;
  show(byId("overview"), view.name === "overview");
  show(byId("detail"), resource !== null);
  show(byId("missing"), view.name === "resource" && resource === null);
  if (view.name === "overview") {
    renderOverview(resources.data, users, now());
  } else if (resource) {
    detail.open(view.id);
    detail.render(resource, resources.data, now());
  } else {
    setText(byId("missing-title"), `There is no resource ${view.id}.`);
  }
  if (events.data) {
    renderEvents(events.data.groups, resources.data.resources, now());
    announceNew(events.data.groups, resources.data.resources, now());
  }
}

/** Follows the address. Going back lands where the reader left. */
function turn() {
  const before = view;
  if (before.name === "overview") {
    overviewScroll = scrollBeforeTurn;
  }
  view = route();
  if (view.name !== "resource") {
    detail.close();
  }
  render();
  if (view.name === "resource") {
    window.scrollTo(0, 0);
    byId(findResource(view.id) ? "detail-title" : "missing-title").focus({ preventScroll: true });
    ask();
  } else if (before.name === "resource") {
    window.scrollTo(0, overviewScroll);
    focusRow(before.id);
  }
  if (location.hash === EVENTS) {
    showEvents();
  }
}

function showEvents() {
  byId("events-fold").open = true;
  byId("events").scrollIntoView();
  byId("events").focus({ preventScroll: true });
}

// A browser may scroll to the top before it tells of the new address.
let scrollBeforeTurn = 0;
window.addEventListener("scroll", () => {
  if (view.name === "overview" && route().name === "overview") {
    scrollBeforeTurn = window.scrollY;
  }
}, { passive: true });

function onKey(event) {
  const typing = /^(INPUT|SELECT|TEXTAREA)$/.test(document.activeElement?.tagName ?? "");
  if (event.ctrlKey || event.metaKey || event.altKey || event.defaultPrevented) {
    return;
  }
  if (event.key === "/" && !typing && view.name === "overview" && !byId("filters").hidden) {
    event.preventDefault();
    byId("search").focus();
  } else if (event.key === "Escape" && view.name === "resource") {
    location.hash = "#/";
  } else if (event.key === "Escape" && document.activeElement === byId("search")) {
    byId("search").value = "";
    render();
  }
}

byId("skip").addEventListener("click", (event) => {
  event.preventDefault();
  byId("main").focus();
});
byId("to-events").addEventListener("click", () => {
  if (location.hash === EVENTS) {
    showEvents(); // the address does not change, so nobody else is told
  }
});
byId("search").addEventListener("input", render);
byId("state-filter").addEventListener("change", render);
window.addEventListener("hashchange", turn);
document.addEventListener("keydown", onKey);
document.addEventListener("visibilitychange", () => {
  if (!document.hidden) {
    ask();
  }
});
history.scrollRestoration = "manual";
view = route();
ask();
