// Lists of events, and what is announced when one arrives.

import { arrange, byId, element, setText, setTitle, show } from "./dom.js";
import * as words from "./words.js";

const OWN_EVENTS = 10;
const QUIET_SECONDS = 600; // the agent repeats a forecast in every cycle; a reader hears it again after this long

const overviewItems = new Map();
const ownItems = new Map();
let heardUpTo = null;
let lastHeard = new Map(); // of the groups that are listed

/** Which resource an event is about. One of the whole system has no instance here, but its events tell the declared one. */
function resourceOf(event, resources) {
  const named = resources.filter((r) => r.resource === event.resource);
  return named.find((r) => r.instance === event.instance) ?? named.find((r) => r.instance === "") ?? null;
}

/** The same for as long as it is said again. */
function groupKey({ event, since }) {
  return JSON.stringify([event.type, event.resource ?? "", event.instance ?? "", event.message ?? "", since]);
}

/** Groups of events that repeat each other: {event, times, since}, the one with the newest event first. */
export function renderEvents(groups, resources, now) {
  renderList(byId("event-list"), overviewItems, groups, resources, now);
  show(byId("events-empty"), groups.length === 0);
  setText(byId("events-count"), groups.length === 0 ? "" : String(groups.length));
  setText(byId("to-events"), groups.length === 0 ? "Events" : `Events (${groups.length})`);
}

/** What was told of one resource, the newest of it. */
export function renderOwnEvents(groups, now) {
  const shown = groups.slice(0, OWN_EVENTS);
  renderList(byId("own-events"), ownItems, shown, null, now);
  const rest = groups.length - shown.length;
  setText(byId("own-events-rest"), groups.length === 0 ? "No events yet."
    : rest > 0 ? `And ${rest} earlier, since ${words.moment(groups.at(-1).since, now)}.` : "");
}

/** Without resources the events are those of one resource, and do not name it again. */
function renderList(list, items, groups, resources, now) {
  const byKey = new Map(groups.map((g) => [groupKey(g), g]));
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
export function announceNew(groups, resources, now) {
  const lastOld = groups.map((g) => lastHeard.get(groupKey(g)) === g.event.epochSeconds).lastIndexOf(true);
  const fresh = heardUpTo === null ? [] : groups.filter((g, i) => isNews(g, lastOld < 0 ? null : i < lastOld));
  lastHeard = new Map(groups.map((g) => [groupKey(g), g.event.epochSeconds]));
  heardUpTo = groups[0]?.event.epochSeconds ?? heardUpTo ?? 0;
  if (fresh.length === 0) {
    return;
  }
  const texts = fresh.slice(0, 3).map(({ event }) => {
    const who = event.type === "fatal" ? "" : `${words.eventSubject(event, resourceOf(event, resources))} `;
    return `${who}${words.eventWords(event, now)}.`;
  });
  setText(byId("announcer"), `New: ${texts.join(" ")}${fresh.length > 3 ? ` And ${fresh.length - 3} more.` : ""}`);
}

/**
 * What stands above a group that has not changed came after it, whatever its time says: the clock may have been set back.
 * Without one (null) there is but the time to go by.
 */
function isNews(group, isAboveOld) {
  const before = lastHeard.get(groupKey(group));
  return before === undefined ? isAboveOld ?? group.event.epochSeconds >= heardUpTo
    : group.event.epochSeconds - before >= QUIET_SECONDS;
}
