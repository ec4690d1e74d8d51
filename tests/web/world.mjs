// What a made-up machine looks like through the agent's interface.

const COUNTER_WORDS = { PercentProcessesUsed: "Process slots", PercentSwapSpaceUsed: "Swap",
  PercentFileDescriptorsUsed: "File descriptors", PercentFreeSpaceUsed: "space", PercentFreeInodesUsed: "inodes" };
export const STATE_WORDS = {
  "at-limit": "at its limit",
  forecast: "exhaustion forecast",
  pending: "notification pending",
  stale: "stale",
  unreadable: "unreadable",
  collecting: "collecting",
  "no-exhaustion": "no exhaustion within the horizon",
  "no-limit": "no limit",
  absent: "absent",
};

const HOUR = 3600;

const NO_RECORD = { announcements: 0, reached: 0, freed: 0, levelledOff: 0, levelledOffInARow: 0, medianErrorHours: null,
  trackRecord: null };
export const FALSE_ALARMS = { announcements: 6, freed: 1, levelledOff: 5, levelledOffInARow: 5,
  trackRecord: "announced 6 times in 14 days: reached 0, freed 1, levelled off 5" };

/** An event with all the members that the agent gives it. */
function whole(given, at) {
  return { time: new Date(at * 1000).toISOString(), epochSeconds: at, resource: null, instance: null,
    secondsToExhaustion: null, timeToExhaustion: null, limit: null, culprits: [], culpritText: null,
    trackRecord: null, episodeSince: null, message: null, ...given };
}

/** Those of one episode together, as the agent gives them. */
function grouped(events) {
  const groups = new Map();
  for (const event of events) {
    const key = JSON.stringify([event.type, event.resource, event.instance, event.message, event.episodeSince]);
    const group = groups.get(key) ?? { event, times: 0 };
    groups.set(key, { ...group, times: group.times + 1, since: event.epochSeconds });
  }
  return [...groups.values()];
}

export class World {
  constructor({ now = Math.floor(Date.now() / 1000), samples = 600 } = {}) {
    this.now = now;
    this.sampleCount = samples;
    this.agent = {
      version: "1.4.0", home: "/srv/lumetra", startedAt: now - 26 * HOUR, generatedAt: now, running: true, stale: false,
      cycles: 4680, newestCycleAt: now - 4, periodSeconds: 20, samplesForForecast: 200, minForecastHours: 0,
      maxForecastHours: 24, notice: null, resumedSamples: 0,
    };
    this.resources = [];
    this.leftOut = [];
    this.events = [];
    this.culprits = new Map();
    this.trends = new Map();
    this.announcements = new Map();
  }

  /** Adds a resource; what is not given is what a quiet disk has. */
  add(given) {
    const id = given.id ?? this.resources.length + 1;
    const state = given.state ?? "no-exhaustion";
    const value = given.value === undefined ? 40 : given.value;
    const runsOut = state === "forecast" || state === "pending";
    const seconds = runsOut ? given.seconds ?? 5 * HOUR + 1200 : null;
    const isForecast = given.isForecast ?? !["collecting", "absent", "no-limit"].includes(state);
    const forecastAt = isForecast ? this.now - 4 : null;
    const mountpoint = given.mountpoint ?? null;
    const counter = given.counter ?? given.resource ?? "PercentFreeSpaceUsed";
    const device = mountpoint === null ? null : given.device ?? "/dev/sda1";
    this.resources.push({
      id, resource: given.resource ?? "PercentFreeSpaceUsed",
      instance: given.instance ?? (mountpoint === null ? "" : `${device} ${mountpoint}`),
      device, mountpoint, counter, counterWords: COUNTER_WORDS[counter] ?? null, value, capacity: given.capacity === undefined ? "95.7 GiB" : given.capacity,
      state, stateText: given.stateText ?? STATE_WORDS[state], note: given.note ?? null,
      whyWatched: given.whyWatched ?? "It is watched because it is mounted.",
      samples: given.samples ?? (state === "collecting" ? 137 : 600),
      firstForecastAt: state === "collecting" ? given.firstForecastAt ?? this.now + 300 : null,
      secondsToExhaustion: seconds, exhaustionAt: seconds === null ? null : forecastAt + seconds,
      model: forecastAt === null ? null : given.model ?? "simple linear regression",
      notificationLevel: runsOut ? given.level ?? 70.5 : null,
      limit: state === "no-limit" || state === "absent" ? null : 100,
      ...NO_RECORD, ...given.track,
      forecastAt, recent: this.recent(value, given.slope ?? (runsOut ? 0.4 : 0.02), id),
    });
    return this.resources.at(-1);
  }

  recent(value, slope, seed) {
    const values = value === null ? [] : Array.from({ length: 60 }, (_, i) =>
      round(Math.max(0, value - (59 - i) * slope + wave(i, seed) * 0.6)));
    return { from: this.now - 2 * HOUR, to: this.now - 4, values };
  }

  event(given) {
    const at = given.at ?? this.now;
    const { at: _, ...rest } = given;
    this.events.unshift(whole({ type: "exhaustion", ...rest }, at));
  }

  trend(resource) {
    if (this.trends.has(resource.id)) {
      return this.trends.get(resource.id);
    }
    const count = resource.state === "collecting" ? resource.samples : this.sampleCount;
    const end = this.now - 4;
    const slope = resource.exhaustionAt === null ? 0.001
      : (100 - resource.value) / resource.secondsToExhaustion * this.agent.periodSeconds;
    const times = Array.from({ length: count }, (_, i) => end - (count - 1 - i) * this.agent.periodSeconds);
    const values = times.map((_, i) => round(Math.max(0, Math.min(100,
      resource.value - (count - 1 - i) * slope + wave(i, resource.id) * 0.8))));
    return {
      id: resource.id, source: resource.forecastAt === null ? "history" : "forecast", forecastAt: resource.forecastAt,
      model: resource.model, secondsToExhaustion: resource.secondsToExhaustion,
      notificationLevel: resource.notificationLevel, limit: resource.limit, samples: { times, values },
      forecast: resource.forecastAt === null ? null : this.forecast(resource, end, slope),
      announcements: this.announcements.get(resource.id) ?? null,
    };
  }

  /** Gives a resource an announcement every five minutes; its moment recedes by a share of the time that passes. */
  announce(resource, count, receding) {
    const times = Array.from({ length: count }, (_, i) => this.now - 4 - (count - 1 - i) * 300);
    const values = times.map((t) => Math.round(resource.exhaustionAt - (times.at(-1) - t) * receding));
    this.announcements.set(resource.id, { times, values });
  }

  forecast(resource, end, slope) {
    const span = resource.secondsToExhaustion === null ? 24 * HOUR : resource.secondsToExhaustion * 1.15;
    const times = Array.from({ length: 60 }, (_, i) => end + (i * span) / 59);
    const perSecond = slope / this.agent.periodSeconds;
    return { times, values: times.map((t) => round(Math.min(100, resource.value + (t - end) * perSecond))) };
  }

  /** The answer to a path below /api/v1/, undefined for none. */
  answer(name) {
    if (name === "resources") {
      return { agent: this.agent, resources: this.resources, leftOut: this.leftOut };
    }
    if (name === "event-groups") {
      return { groups: grouped(this.events) };
    }
    const match = /^resources\/(\d+)\/(trend|culprits|event-groups)$/.exec(name);
    const resource = match && this.resources.find((r) => r.id === Number(match[1]));
    if (!resource) {
      return undefined;
    }
    if (match[2] === "trend") {
      return this.trend(resource);
    }
    if (match[2] === "culprits") {
      return this.culprits.get(resource.id)
        ?? { id: resource.id, measure: null, measureText: null, writtenAt: null, processes: [] };
    }
    return { groups: grouped(this.events.filter((e) => e.resource === resource.resource
      && (e.instance ?? "") === resource.instance)) };
  }
}

function wave(i, seed) {
  return Math.sin(i * 0.7 + seed) + Math.sin(i * 0.23 + seed * 2);
}

function round(value) {
  return Math.round(value * 100) / 100;
}

/** A server in the middle of its day: one disk runs out, another may, the rest is quiet. */
export function busyServer(options) {
  const world = new World(options);
  const data = world.add({ mountpoint: "/data", device: "/dev/mapper/vg0-data", value: 78.42, state: "forecast",
    model: "3-segment linear regression", capacity: "1.8 TiB", track: FALSE_ALARMS });
  world.announce(data, 289, 0.97);
  world.add({ resource: "PercentFileDescriptorsUsed", value: 61.2, state: "pending", seconds: 14 * HOUR, level: 80.6,
    capacity: "1048576 descriptors", model: "simple linear regression on log" });
  world.add({ mountpoint: "/mnt/usb", device: "/dev/sdc1", value: 12.5, state: "unreadable", capacity: "28.6 GiB",
    note: "The agent could not read it in its newest cycle; the value is an older one." });
  world.add({ mountpoint: "/srv/new", device: "/dev/sdd1", value: 3.1, state: "collecting", capacity: "465.8 GiB" });
  world.add({ resource: "PercentProcessesUsed", value: 0.87, capacity: "32768 tasks" });
  world.add({ mountpoint: "/", device: "/dev/sda2", value: 43.18 });
  world.add({ resource: "PercentFreeInodesUsed", mountpoint: "/", device: "/dev/sda2", value: 11.02,
    capacity: "6406144 inodes" });
  world.add({ mountpoint: "/boot", device: "/dev/sda1", value: 27.9, capacity: "471.7 MiB" });
  world.add({ mountpoint: "/snap/core", device: "/dev/loop3", value: 100, state: "no-limit", capacity: "63.9 MiB",
    note: "It is sampled only and never forecast." });
  world.add({ resource: "PercentSwapSpaceUsed", value: null, state: "absent", capacity: null,
    note: "This machine has no swap." });
  const descriptors = world.resources[1];
  world.culprits.set(descriptors.id, { id: descriptors.id, measure: "descriptors", measureText: "descriptors", writtenAt: world.now - 4, processes: [
    { name: "postgres", pid: 2211, value: 48210 }, { name: "java", pid: 1874, value: 20312 },
    { name: "nginx", pid: 990, value: 8120 }, { name: "node", pid: 4123, value: 2048 }] });
  for (let i = 12; i >= 0; i--) {
    world.event({ at: world.now - 4 - i * 20, resource: data.resource, instance: data.instance,
      secondsToExhaustion: data.secondsToExhaustion + i * 20, timeToExhaustion: "5 hours 20 minutes", limit: null,
      culprits: [], culpritText: "", episodeSince: world.now - 9000, message: null });
  }
  world.events.push(whole({ type: "upperTolerance", resource: "PercentFreeSpaceUsed", instance: "/dev/loop3 /snap/core",
    limit: 100 }, world.now - 7200),
  whole({ type: "fatal", message: "diskListing: df did not answer within 30 s" }, world.now - 30000));
  return world;
}

/** The first minutes: everything still collects. */
export function freshServer(options) {
  const world = new World(options);
  Object.assign(world.agent, { startedAt: world.now - 1370, cycles: 137, periodSeconds: 10 });
  const common = { state: "collecting", samples: 137, firstForecastAt: world.now + 300 };
  world.add({ ...common, mountpoint: "/", device: "/dev/sda2", value: 43.18 });
  world.add({ ...common, mountpoint: "/data", device: "/dev/sdb1", value: 61.7, slope: 0.1 });
  world.add({ ...common, resource: "PercentProcessesUsed", value: 0.87, capacity: "32768 tasks" });
  world.add({ resource: "PercentSwapSpaceUsed", value: null, state: "absent", capacity: null,
    note: "This machine has no swap." });
  return world;
}

/** A machine with very many disks. */
export function largeServer(count = 300, options) {
  const world = new World({ samples: 1728, ...options });
  for (let i = 0; i < count; i++) {
    const state = i < 3 ? "forecast" : i < 6 ? "pending" : i < 20 ? "collecting" : "no-exhaustion";
    world.add({ mountpoint: `/export/volume${String(i).padStart(3, "0")}`, device: `/dev/mapper/vg1-lv${i}`,
      value: round(90 - i * 0.25), state, seconds: 3600 * (i + 1) });
  }
  return world;
}
