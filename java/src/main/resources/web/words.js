// Times, durations, states and foreign names as a person reads them. Pure: no document, no clock of its own.

/** The states in the order of urgency, with the words for a filter and whether a person must act. */
export const STATES = {
  "at-limit": { words: "at its limit", urgent: true },
  forecast: { words: "exhaustion forecast", urgent: true },
  pending: { words: "notification pending", urgent: false },
  stale: { words: "stale", urgent: false },
  unreadable: { words: "unreadable", urgent: false },
  collecting: { words: "collecting", urgent: false },
  "no-exhaustion": { words: "no exhaustion within the horizon", urgent: false },
  "no-limit": { words: "no limit", urgent: false },
  absent: { words: "absent", urgent: false },
};

const MOST_SIGNS = 60;

const SHOWN_USERS = 3;
export function isUrgent(resource) {
  return Boolean(STATES[resource.state]?.urgent);
}

/** Whether there is a forecast that sees no exhaustion; without one the state says nothing of what is ahead. */
function isDecided(resource) {
  return resource.state === "no-exhaustion" && resource.forecastAt !== null;
}

/** Whether there is a forecast exhaustion to speak of. */
export function runsOut(resource) {
  return resource.exhaustionAt !== null && (resource.state === "forecast" || resource.state === "pending");
}

/**
 * Foreign text without anything that could start a line or reverse the reading order. The agent escapes such
 * characters already; a page that is read while things go wrong does not depend on it.
 */
export function printable(text) {
  return String(text ?? "").replace(/[\p{Cc}\p{Cf}\p{Cs}\p{Zl}\p{Zp}]/gu, (c) => {
    const code = c.codePointAt(0);
    return code < 0x100 ? `\\x${code.toString(16).padStart(2, "0")}` : `\\u${code.toString(16).padStart(4, "0")}`;
  });
}

/** Where a resource is, or what it is. */
function place(resource) {
  return printable(resource.mountpoint || resource.instance || resource.counterWords || resource.resource);
}

/** The large name of a resource, which also tells what is counted of a disk when it is not its space. */
export function title(resource) {
  const isOther = resource.mountpoint && resource.counterWords && resource.counterWords !== "space";
  return isOther ? `${place(resource)} (${printable(resource.counterWords)})` : place(resource);
}

/** The small name: the declared one and, for a disk, the device. */
export function subtitle(resource) {
  const parts = [printable(resource.resource)];
  if (resource.mountpoint && resource.device) {
    parts.push(printable(resource.device));
  }
  return parts.join(" · ");
}

/** The subject of a sentence: names that are not known here are told with their place. */
export function subject(resource) {
  const isPlain = !resource.instance || resource.resource === resource.counter;
  return fitted(isPlain ? title(resource) : `${title(resource)} (${printable(resource.resource)})`);
}

/** A name that leaves room for the rest of its sentence and, written from right to left, does not turn it. */
function fitted(name) {
  const signs = Array.from(name);
  const short = signs.length <= MOST_SIGNS ? name
    : `${signs.slice(0, MOST_SIGNS / 2).join("")}…${signs.slice(1 - MOST_SIGNS / 2).join("")}`;
  return /[\u0590-\u08ff\ufb1d-\ufefc]/.test(short) ? `\u2068${short}\u2069` : short;
}

export function perCent(value) {
  if (value === null || value === undefined) {
    return "–";
  }
  const digits = Number.isInteger(value) ? 0 : Math.abs(value) >= 10 ? 1 : 2;
  return `${value.toFixed(digits)} %`;
}

export function count(number, one, many = `${one}s`) {
  return `${number} ${number === 1 ? one : many}`;
}

/** A duration rounded to what matters at its size, as the status has it: "45 s", "33 min", "2 h 15 min", "3 days 4 h". */
export function duration(seconds) {
  const whole = Math.max(0, Math.floor(seconds));
  if (whole < 120) {
    return `${whole} s`;
  }
  const minutes = Math.round(whole / 60);
  if (minutes < 120) {
    return `${minutes} min`;
  }
  if (minutes < 48 * 60) {
    return withRest(`${Math.floor(minutes / 60)} h`, minutes % 60, "min");
  }
  const hours = Math.round(minutes / 60);
  return withRest(`${Math.floor(hours / 24)} days`, hours % 24, "h");
}

function withRest(main, rest, unit) {
  return rest === 0 ? main : `${main} ${rest} ${unit}`;
}

/** "in about 5 h 20 min". */
export function ahead(seconds) {
  return seconds <= 0 ? "any moment now" : `in about ${duration(seconds)}`;
}

/** "just now", "12 min ago". */
export function ago(seconds) {
  return seconds < 60 ? "just now" : `${duration(seconds)} ago`;
}

const formats = new Map();

function format(options) {
  const key = JSON.stringify(options);
  if (!formats.has(key)) {
    formats.set(key, new Intl.DateTimeFormat("en-GB", options));
  }
  return formats.get(key);
}

const CLOCK = { hour: "2-digit", minute: "2-digit" };
const DAY = { year: "numeric", month: "2-digit", day: "2-digit" };

/** A moment as short as it is clear, seen from now: "14:05", "Sat 14:05", "Sat 28 Nov 14:05". */
export function moment(epochSeconds, now) {
  const date = new Date(epochSeconds * 1000);
  const clock = format(CLOCK).format(date);
  if (format(DAY).format(date) === format(DAY).format(new Date(now * 1000))) {
    return clock;
  }
  return `${dayOf(date, Math.abs(epochSeconds - now))} ${clock}`;
}

/** A moment with its weekday even today: "Sat 14:05". */
function weekdayMoment(epochSeconds, now) {
  const date = new Date(epochSeconds * 1000);
  return `${dayOf(date, Math.abs(epochSeconds - now))} ${format(CLOCK).format(date)}`;
}

function dayOf(date, distance) {
  const near = { weekday: "short" };
  const far = { weekday: "short", day: "numeric", month: "short" };
  const farthest = { day: "numeric", month: "short", year: "numeric" };
  const days = distance / 86400;
  return format(days < 6 ? near : days < 300 ? far : farthest).format(date).replace(",", "");
}

/** A moment with everything, zone included. */
export function exactMoment(epochSeconds) {
  return format({ weekday: "short", day: "numeric", month: "short", year: "numeric", hour: "2-digit", minute: "2-digit",
    second: "2-digit", timeZoneName: "short" }).format(new Date(epochSeconds * 1000)).replace(",", "");
}

/** A moment in a chart: weekday and clock, "Sat 14:05". */
export function chartMoment(epochSeconds, withSeconds = false) {
  return format({ weekday: "short", ...CLOCK, ...(withSeconds ? { second: "2-digit" } : {}) })
    .format(new Date(epochSeconds * 1000)).replace(",", "");
}

/** How far a resource is from its first forecast. */
export function collecting(resource, agent, now) {
  const samples = `${resource.samples} of ${agent.samplesForForecast} samples`;
  if (resource.firstForecastAt === null) {
    return samples;
  }
  return `${samples}; the first forecast comes ${ahead(resource.firstForecastAt - now)}`;
}

/** What the cell "runs out" says: the words, the moment under it and the exact moment. */
export function exhaustion(resource, agent, now) {
  if (resource.state === "at-limit") {
    return { words: "now", moment: "", exact: "" };
  }
  if (runsOut(resource)) {
    const at = resource.exhaustionAt;
    return { words: ahead(at - now), moment: weekdayMoment(at, now), exact: exactMoment(at) };
  }
  if (resource.state === "collecting") {
    const first = resource.firstForecastAt;
    return { words: `${resource.samples} of ${agent.samplesForForecast} samples`,
      moment: first === null ? "" : `forecast ${ahead(first - now)}`, exact: first === null ? "" : exactMoment(first) };
  }
  if (isDecided(resource)) {
    return { words: `not within ${horizon(agent)}`, moment: "", exact: "" };
  }
  return { words: "–", moment: "", exact: "" };
}

/** What came of the announcements before the present one, as a sentence; "" when there is nothing to say. */
export function trackRecord(resource) {
  const text = printable(resource.trackRecord);
  return text === "" ? "" : `${text[0].toUpperCase()}${text.slice(1)}.`;
}

/** The same in a few words. */
export function shortRecord({ announcements, reached, trackRecord: record }) {
  if (announcements > 0) {
    return `reached ${reached} of ${count(announcements, "time")}`;
  }
  return record ? "announced for the first time" : "";
}

function horizon(agent) {
  const hours = agent.maxForecastHours;
  return hours > 48 && hours % 24 === 0 ? `${hours / 24} days` : count(hours, "hour");
}

/** The sentence at the top of the overview and the one below it. */
export function headline(data, now) {
  const { agent, resources } = data;
  const known = agent.newestCycleAt;
  if (!agent.running) {
    return known === null
      ? { text: "The agent is starting.", more: "Its first cycle is under way.", tone: "calm" }
      : { text: `The agent ended; its newest cycle was at ${moment(known, now)}.`, more: then(resources, now),
        tone: "old" };
  }
  if (agent.stale && known !== null) {
    return { text: `No new cycle since ${moment(known, now)}.`,
      more: `The page shows what was known then. ${then(resources, now)}`.trim(), tone: "old" };
  }
  if (resources.length === 0) {
    return { text: "No resources yet.", more: "The agent lists them after its first cycle.", tone: "calm" };
  }
  return urgentHeadline(resources, now) ?? quietHeadline(resources, agent, now);
}

/** What was forecast when the agent was last heard. */
function then(resources, now) {
  const first = resources.find((r) => r.exhaustionAt !== null);
  return first ? `Forecast then: ${subject(first)} runs out at ${moment(first.exhaustionAt, now)}.` : "";
}

function urgentHeadline(resources, now) {
  const full = resources.filter((r) => r.state === "at-limit");
  const soon = resources.filter(runsOut);
  if (full.length > 0) {
    const text = full.length === 1 ? `${subject(full[0])} is at its limit.`
      : `${full.length} resources are at their limit: ${enumerate(full)}.`;
    const next = soon.length > 0 ? sentence(soon[0], now) : "";
    return { text, more: next, tone: "full" };
  }
  if (soon.length === 0) {
    return null;
  }
  const parts = [];
  if (soon[0].state === "pending") {
    parts.push(`Events go out once it reaches ${perCent(soon[0].notificationLevel)}.`);
  }
  parts.push(trackRecord(soon[0]));
  if (soon.length > 1) {
    parts.push(`After it: ${soon.slice(1, 4).map((r) => `${subject(r)} ${ahead(r.exhaustionAt - now)}`).join(", ")}`
      + `${soon.length > 4 ? ` and ${soon.length - 4} more` : ""}.`);
  }
  return { text: sentence(soon[0], now), more: parts.filter(Boolean).join(" "), tone: soon[0].state };
}

function sentence(resource, now) {
  const at = resource.exhaustionAt;
  return `${subject(resource)} runs out ${ahead(at - now)} (${weekdayMoment(at, now)}).`;
}

function enumerate(resources) {
  const shown = resources.slice(0, 3).map(subject).join(", ");
  return resources.length > 3 ? `${shown} and ${resources.length - 3} more` : shown;
}

function quietHeadline(resources, agent, now) {
  const collectors = resources.filter((r) => r.state === "collecting");
  const decided = resources.some(isDecided);
  const unreadable = resources.filter((r) => r.state === "unreadable").length;
  const notes = unreadable > 0 ? [`${count(unreadable, "resource")} could not be read.`] : [];
  if (collectors.length > 0 && !decided) {
    const first = nearest(collectors);
    return { text: `Collecting: ${collecting(first, agent, now)}.`, more: notes.join(" "), tone: "calm",
      collector: first };
  }
  if (!decided) {
    return { text: "Nothing here has a forecast.", more: notes.join(" "), tone: "calm" };
  }
  if (collectors.length > 0) {
    const verb = collectors.length === 1 ? "collects" : "collect";
    notes.unshift(`${count(collectors.length, "resource")} still ${verb} samples.`);
  }
  const text = agent.minForecastHours > 0
    ? `Nothing runs out between ${agent.minForecastHours} and ${count(agent.maxForecastHours, "hour")} from now.`
    : `Nothing runs out within the next ${agent.maxForecastHours === 1 ? "hour" : horizon(agent)}.`;
  return { text, more: notes.join(" "), tone: "good" };
}

function nearest(collectors) {
  return collectors.reduce((best, r) => (r.samples > best.samples ? r : best));
}

/** The first few processes of a report, in one line. */
export function largestUsers(report) {
  if (!report?.measure || report.processes.length === 0) {
    return "";
  }
  const named = report.processes.slice(0, SHOWN_USERS).map((p) => `${printable(p.name)} (${p.pid}) ${p.value}`);
  return `largest users: ${named.join(", ")} ${printable(report.measureText)}`;
}

/** Who an event is about. Without its resource: the place of a disk, else the name. */
export function eventSubject(event, resource) {
  if (resource) {
    return subject(resource);
  }
  const place = event.instance?.includes("/") ? event.instance : event.resource;
  return fitted(printable(place || event.instance || "A resource"));
}

/** What an event says, as one sentence after its subject. */
export function eventWords(event, now) {
  switch (event.type) {
    case "exhaustion":
      return exhaustionWords(event, now);
    case "upperTolerance":
      return `reached its limit${ofLimit(event)}`;
    case "innerTolerance":
      return `reached its inner limit${ofLimit(event)}`;
    case "fatal":
      return `A step failed: ${printable(event.message)}`;
    default:
      return printable(event.type);
  }
}

function ofLimit(event) {
  return event.limit === null || event.limit === undefined ? "" : ` of ${perCent(event.limit)}`;
}

function exhaustionWords(event, now) {
  if (event.secondsToExhaustion === null || event.secondsToExhaustion === undefined) {
    return "is forecast to run out";
  }
  const at = event.epochSeconds + event.secondsToExhaustion;
  return at > now ? `is forecast to run out ${ahead(at - now)} (${weekdayMoment(at, now)})`
    : `was forecast to run out at ${weekdayMoment(at, now)}`;
}

/** The largest users that an event names. */
export function eventCulprits(event) {
  const all = event.culprits ?? [];
  if (all.length === 0) {
    return "";
  }
  const shown = all.slice(0, SHOWN_USERS).map((c) => `${printable(c.name)} (${c.pid})`).join(", ");
  const rest = all.length - SHOWN_USERS;
  return `Largest users: ${shown}${rest > 0 ? ` and ${rest} more` : ""}`;
}

/** The summary of a chart for those who do not see it. */
export function chartSummary(trend, resource, now) {
  const { times, values } = trend.samples;
  if (times.length === 0) {
    return "No samples yet.";
  }
  const last = values.length - 1;
  const lowest = values.reduce((a, b) => Math.min(a, b));
  const highest = values.reduce((a, b) => Math.max(a, b));
  const parts = [`${count(times.length, "sample")} from ${moment(times[0], now)} to ${moment(times[last], now)}: `
    + `lowest ${perCent(lowest)}, highest ${perCent(highest)}, newest ${perCent(values[last])}.`];
  if (trend.secondsToExhaustion !== null && trend.forecastAt !== null) {
    parts.push(`The forecast reaches the limit at ${moment(trend.forecastAt + trend.secondsToExhaustion, now)}.`);
  } else if (trend.forecast && trend.forecast.times.length > 0) {
    const end = trend.forecast.times.length - 1;
    const verb = trend.forecast.values[end] >= values[last] ? "rises" : "falls";
    const by = moment(trend.forecast.times[end], now);
    parts.push(`The forecast ${verb} to ${perCent(trend.forecast.values[end])} by ${by}.`);
  } else {
    parts.push(resource.forecastAt === null ? "There is no forecast yet." : "The forecast's curve is not at hand now.");
  }
  if (trend.limit !== null) {
    parts.push(`The limit is ${perCent(trend.limit)}.`);
  }
  if (trend.notificationLevel !== null) {
    parts.push(`Events go out from ${perCent(trend.notificationLevel)}.`);
  }
  return parts.join(" ");
}

/** The summary of the announced moments: whether the newest is nearer than the first, or recedes. */
export function announcementSummary({ times, values }, now) {
  const shift = values.at(-1) - values[0];
  const passed = duration(times.at(-1) - times[0]);
  const moved = Math.abs(shift) < 60 ? `the same within ${passed}`
    : `${duration(Math.abs(shift))} ${shift > 0 ? "later" : "earlier"}, within ${passed}`;
  return `${count(times.length, "announcement")} since ${moment(times[0], now)}. The first named ${moment(values[0], now)}, `
    + `the newest names ${moment(values.at(-1), now)}: ${moved}.`;
}

/** What the agent leaves out, and by what, in a few words. */
export function leftOutSummary(leftOut) {
  const counts = new Map();
  for (const { rule } of leftOut) {
    counts.set(rule ?? "other", (counts.get(rule ?? "other") ?? 0) + 1);
  }
  const rules = [...counts].sort((a, b) => b[1] - a[1]);
  const named = rules.slice(0, 5).map(([rule, number]) => `${printable(rule)}: ${number}`);
  const more = rules.length > 5 ? [count(rules.length - 5, "more rule")] : [];
  const noun = leftOut.every(({ kind }) => kind && kind !== "other") ? "disk" : "thing";
  return `The agent leaves out ${count(leftOut.length, noun)} (${[...named, ...more].join("; ")})`;
}

/** Why a resource is watched; nothing where an older agent does not say. */
export function whyWatched(resource) {
  return printable(resource.whyWatched);
}
