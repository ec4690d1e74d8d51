// Lists of events, and what is announced when one arrives.

import { arrange, byId, element, setText, setTitle, show } from "./dom.js";
import * as words from "./words.js";

const OWN_EVENTS = 10;
const QUIET_SECONDS = 600; // the agent repeats a forecast in every cycle; a reader hears it again after this long

const overviewItems = new Map();
const ownItems = new Map();
let heardUpTo = null;
const lastHeard = new Map();

/** Which resource an event is about. One of the whole system has no instance here, but its events tell the declared one. */
function resourceOf(event, resources) {
  const named = resources.filter((r) => r.resource === event.resource);
  return named.find((r) => r.instance === event.instance) ?? named.find((r) => r.instance === "") ?? null;
}

function subjectKey(event) {
  return JSON.stringify([event.type, event.resource ?? "", event.instance ?? "", event.message ?? ""]);
}

/** The events with repetitions gathered under the newest: {key, event, times, since}, newest first. */
function gather(events) {
  const groups = new Map();
  for (const event of events) {
    const key = subjectKey(event);
    const group = groups.get(key);
    if (group) {
      group.times += 1;
      group.since = event.epochSeconds;
    } else {
      groups.set(key, { key, event, times: 1, since: event.epochSeconds });
    }
  }
  return [...groups.values()];
}

export function renderEvents(events, resources, now) {
  const groups = gather(events);
  renderList(byId("event-list"), overviewItems, groups, resources, now);
  show(byId("events-empty"), groups.length === 0);
  setText(byId("events-count"), groups.length === 0 ? "" : String(groups.length));
  setText(byId("to-events"), groups.length === 0 ? "Events" : `Events (${groups.length})`);
}

/** The newest events of one resource, each by itself. */
export function renderOwnEvents(events, now) {
  const single = events.slice(0, OWN_EVENTS).map((event) => (
    { key: event.time + subjectKey(event), event, times: 1, since: event.epochSeconds }));
  renderList(byId("own-events"), ownItems, single, null, now);
  const rest = events.length - single.length;
  setText(byId("own-events-rest"), events.length === 0 ? "No events yet."
    : rest > 0 ? `And ${rest} earlier, since ${words.moment(events.at(-1).epochSeconds, now)}.` : "");
}

/** Without resources the events are those of one resource, and do not name it again. */
function renderList(list, items, groups, resources, now) {
  const byKey = new Map(groups.map((g) => [g.key, g]));
  arrange(list, items, [...byKey.keys()], makeItem)
    .forEach((item) => updateItem(item, byKey.get(item.key), resources, now));
}

function makeItem(key) {
  const item = { key };
  item.who = element("a", { class: "event-who", dir: "auto" });
  item.text = element("span", { class: "event-text", dir: "auto" });
  item.time = element("time", { class: "sub" });
  item.users = element("span", { class: "sub users", dir: "auto" });
  item.record = element("span", { class: "sub record" });
  item.root = element("li", {}, element("p", {}, item.who, " ", item.text), item.record, item.users, item.time);
  return item;
}

function updateItem(item, group, resources, now) {
  const { event, times, since } = group;
  const resource = resources && resourceOf(event, resources);
  item.root.dataset.type = event.type;
  const subject = event.type === "fatal" || !resources ? "" : words.eventSubject(event, resource);
  setText(item.who, subject);
  show(item.who, subject !== "");
  if (resource) {
    item.who.setAttribute("href", `#/resource/${resource.id}`);
  } else {
    item.who.removeAttribute("href");
  }
  const text = words.eventWords(event, now);
  setText(item.text, subject === "" ? asSentence(text) : text);
  const repeated = times > 1 ? ` · ${times} times since ${words.moment(since, now)}` : "";
  setText(item.time, `${words.moment(event.epochSeconds, now)}, ${words.ago(now - event.epochSeconds)}${repeated}`);
  item.time.setAttribute("datetime", event.time);
  setTitle(item.time, words.exactMoment(event.epochSeconds));
  setText(item.record, words.trackRecord(event));
  show(item.record, item.record.textContent !== "");
  setText(item.users, words.eventCulprits(event));
  show(item.users, item.users.textContent !== "");
}

function asSentence(text) {
  const bare = text.replace(/^is /, "");
  return bare.charAt(0).toUpperCase() + bare.slice(1);
}

/** Tells a listener what came since the last time; says nothing about what was there at the start. */
export function announceNew(events, resources, now) {
  const newest = events.length > 0 ? events[0].epochSeconds : 0;
  const groups = gather(events);
  const fresh = heardUpTo === null ? [] : groups.filter(isNews);
  groups.forEach((g) => lastHeard.set(g.key, g.event.epochSeconds));
  heardUpTo = Math.max(heardUpTo ?? 0, newest);
  if (fresh.length === 0) {
    return;
  }
  const texts = fresh.slice(0, 3).map(({ event }) => {
    const who = event.type === "fatal" ? "" : `${words.eventSubject(event, resourceOf(event, resources))} `;
    return `${who}${words.eventWords(event, now)}.`;
  });
  setText(byId("announcer"), `New: ${texts.join(" ")}${fresh.length > 3 ? ` And ${fresh.length - 3} more.` : ""}`);
}

function isNews(group) {
  const before = lastHeard.get(group.key);
  return before === undefined ? group.event.epochSeconds >= heardUpTo
    : group.event.epochSeconds - before >= QUIET_SECONDS;
}
