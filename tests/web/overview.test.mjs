// The overview: order, headline, states, filters, what arrives without a reload.
import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { after, before, describe, test } from "node:test";
import { fileURLToPath } from "node:url";
import { launch, look, open, screenshot, withPage } from "./browser.mjs";
import { until } from "./suite.mjs";
import { withAgent, withTurnedWorld, withWorld as inWorld } from "./support.mjs";
import { busyServer, FALSE_ALARMS, freshServer, largeServer, STATE_WORDS, World } from "./world.mjs";

const SCHEMA = fileURLToPath(new URL("../../docs/api.schema.json", import.meta.url));

const ROW = "#rows > tr";
let browser;

before(async () => {
  browser = await launch();
});
after(() => browser.close());

const withWorld = (...given) => inWorld(browser, ...given);
const headline = (page) => page.textContent("#headline");

async function headlineOf(world, options = {}) {
  let text;
  await withWorld(world, options, async (page) => {
    text = await headline(page);
  });
  return text;
}

describe("the overview", () => {
  test("what the mock answers is what the interface promises", () => {
    const world = busyServer();
    const answers = [["resources", "resources"], ["event-groups", "eventGroups"], ["resources/1/trend", "trend"],
      ["resources/4/trend", "trend"], ["resources/2/culprits", "culprits"], ["resources/1/culprits", "culprits"],
      ["resources/1/event-groups", "eventGroups"]].map(([name, kind]) => [kind, world.answer(name)]);
    const check = `
import json, sys, jsonschema
schema = json.load(open(sys.argv[1]))
for kind, answer in json.load(sys.stdin):
    jsonschema.Draft202012Validator({**schema, "$ref": "#/$defs/" + kind}).validate(answer)
`;
    const run = spawnSync("python3", ["-c", check, SCHEMA], { input: JSON.stringify(answers), encoding: "utf8" });
    assert.equal(run.status, 0, run.stderr);
  });

  test("names the largest users of the most urgent resource whose processes the agent names", async () => {
    await withWorld(busyServer(), {}, async (page) => {
      const row = page.locator(ROW).nth(1);
      await page.waitForFunction((rows) => document.querySelectorAll(`${rows} .users`)[1].textContent !== "", ROW);
      assert.match(await row.locator(".users").textContent(), /^largest users: .+ \(\d+\) \d+, .* descriptors$/);
      assert.equal(await page.locator(ROW).first().locator(".users").textContent(), "");
    });
  });

  test("lists the resources in the agent's order, with value, state, time to exhaustion, model and level", async () => {
    await withWorld(busyServer(), {}, async (page, agent) => {
      const names = await page.locator(`${ROW} .name`).allTextContents();
      assert.deepEqual(names.slice(0, 4), ["/data", "File descriptors", "/mnt/usb", "/srv/new"]);
      assert.equal(names.length, agent.world.resources.length);
      const first = page.locator(ROW).first();
      assert.match(await first.innerText(), /PercentFreeSpaceUsed · \/dev\/mapper\/vg0-data/);
      assert.equal(await first.locator(".value .number").textContent(), "78.4 %");
      assert.equal(await first.locator(".out").textContent(), "in about 5 h 20 min");
      assert.equal(await first.locator(".state-words").textContent(), "exhaustion forecast");
      assert.equal(await first.locator(".model").textContent(), "3-segment linear regression");
      assert.equal(await first.locator(".how .sub").textContent(), "notifies from 70.5 %");
      assert.match(await first.locator(".when").getAttribute("title"), /\d{4}, \d\d:\d\d:\d\d/);
      assert.ok((await first.locator("path.line").getAttribute("d")).length > 300, "the small curve has its points");
      assert.equal(await page.title(), "(1) Lumetra Agent");
    });
  });

  test("says beside a forecast how often earlier ones came true", async () => {
    const world = new World();
    const first = { ...FALSE_ALARMS, announcements: 0, freed: 0, levelledOff: 0, levelledOffInARow: 0,
      trackRecord: "announced for the first time here" };
    world.add({ mountpoint: "/often", state: "forecast", track: FALSE_ALARMS });
    world.add({ mountpoint: "/once", state: "pending", track: { ...FALSE_ALARMS, announcements: 1, reached: 1 } });
    world.add({ mountpoint: "/first", state: "pending", track: first });
    world.add({ mountpoint: "/unknown", state: "pending" });
    world.add({ mountpoint: "/quiet", track: FALSE_ALARMS });
    await withWorld(world, {}, async (page) => {
      assert.deepEqual(await page.locator(`${ROW} .when .record`).allTextContents(),
        ["reached 0 of 6 times", "reached 1 of 1 time", "announced for the first time", "", ""]);
    });
  });

  test("follows a new order in place, and keeps focus and scroll position", async () => {
    await withWorld(largeServer(40), {}, async (page, agent) => {
      await page.evaluate(() => {
        document.querySelector('a[href="#/resource/30"]').focus();
        window.kept = document.querySelector('a[href="#/resource/30"]');
      });
      const before = await page.evaluate(() => window.scrollY);
      assert.ok(before > 0);
      const [moved] = agent.world.resources.splice(34, 1);
      agent.world.resources.unshift(moved);
      const [gone] = agent.world.resources.splice(38, 1);
      await look(page);
      await page.waitForFunction(() => document.querySelector("#rows .name").textContent === "/export/volume034");
      assert.equal(await page.locator(`a[href="#/resource/${gone.id}"]`).count(), 0);
      assert.ok(await page.evaluate(() => document.activeElement === window.kept), "the focus stayed on the same element");
      const shift = await page.evaluate(() => window.scrollY) - before;
      assert.ok(Math.abs(shift) < 120, `the page moved by ${shift}`);
    });
  });

  test("keeps the focus on a row that itself moves", async () => {
    await withWorld(busyServer(), {}, async (page, agent) => {
      await page.focus('#rows a[href="#/resource/8"]');
      const [moved] = agent.world.resources.splice(7, 1);
      agent.world.resources.unshift(moved);
      await look(page);
      await page.waitForFunction(() => document.querySelector("#rows .name").textContent === "/boot");
      assert.equal(await page.evaluate(() => document.activeElement.getAttribute("href")), "#/resource/8");
    });
  });

  test("touches nothing when nothing is new, and asks with the ETag", async () => {
    await withTurnedWorld(browser, busyServer(), {}, async (page, agent, pass) => {
      await page.evaluate(() => {
        window.changes = 0;
        new MutationObserver((list) => { window.changes += list.length; })
          .observe(document.getElementById("rows"), { subtree: true, childList: true, attributes: true, characterData: true });
      });
      await pass();
      await pass();
      const later = agent.requests.filter((r) => r.name === "resources").slice(1);
      assert.ok(later.length >= 2, `${later.length} further questions`);
      assert.ok(later.every((r) => r.etag !== null && r.unchanged), "each was answered with 304");
      assert.ok(await page.evaluate(() => window.changes) <= 6, "at most the words of time changed");
    });
  });

  for (const [state, words] of Object.entries(STATE_WORDS)) {
    test(`says "${words}" with a shape of its own`, async () => {
      const world = new World();
      world.add({ mountpoint: "/x", state, value: state === "absent" ? null : 50 });
      await withWorld(world, {}, async (page) => {
        assert.equal(await page.textContent(`${ROW} .state-words`), words);
        const href = await page.getAttribute(`${ROW} .icon use`, "href");
        assert.equal(href, `#icon-${state}`);
        assert.equal(await page.locator(`symbol${href}`).count(), 1);
      });
    });
  }

  test("the small curve bridges the empty stretches of a young history, and breaks at a silence", async () => {
    const world = new World();
    const sparse = (at) => Array.from({ length: 60 }, (_, i) => (at(i) ? 40 + i / 10 : null));
    world.add({ mountpoint: "/young" }).recent.values = sparse((i) => i % 10 === 0);
    world.add({ mountpoint: "/silent" }).recent.values = sparse((i) => i < 20 || i > 40);
    await withWorld(world, {}, async (page) => {
      const paths = await page.$$eval("#rows path.line", (all) => all.map((p) => p.getAttribute("d").replace(/[^ML]/g, "")));
      assert.equal(paths[0], "MLLLLL");
      assert.equal(paths[1], `M${"L".repeat(19)}M${"L".repeat(18)}`);
    });
  });

  test("states have different shapes", async () => {
    await withWorld(busyServer(), {}, async (page) => {
      const shapes = await page.$$eval("symbol", (all) => all.map((s) => s.innerHTML));
      assert.equal(new Set(shapes).size, Object.keys(STATE_WORDS).length);
    });
  });

  test("search and filter appear from 16 resources on, and narrow the list", async () => {
    await withWorld(busyServer(), {}, async (page) => {
      assert.equal(await page.isVisible("#filters"), false);
    });
    await withWorld(largeServer(60), {}, async (page) => {
      await page.fill("#search", "volume01");
      assert.equal(await page.locator(ROW).count(), 10);
      assert.equal(await page.textContent("#shown"), "10 of 60 resources");
      await page.selectOption("#state-filter", "collecting");
      assert.equal(await page.locator(ROW).count(), 10);
      await page.selectOption("#state-filter", "forecast");
      assert.equal(await page.locator(ROW).count(), 0);
      assert.equal(await page.textContent("#empty"), "No resource matches the search.");
      await page.fill("#search", "");
      assert.deepEqual(await page.locator(`${ROW} .name`).allTextContents(),
        ["/export/volume000", "/export/volume001", "/export/volume002"]);
    });
  });

  test("a search finds the same in a browser whose language has an i of its own", async () => {
    const world = largeServer(30);
    world.add({ mountpoint: "/INFO" });
    await withAgent(world, (agent) => withPage(browser, agent.url, { own: true }, async (page) => {
      await page.addInitScript(() => {
        const lowered = String.prototype.toLocaleLowerCase;
        String.prototype.toLocaleLowerCase = function turkish() { return lowered.call(this, "tr"); };
      });
      await open(page, agent.url);
      assert.equal(await page.evaluate(() => "I".toLocaleLowerCase()), "ı", "the browser has the language");
      await page.fill("#search", "info");
      assert.deepEqual(await page.locator(`${ROW} .name`).allTextContents(), ["/INFO"]);
    }));
  });
});

describe("the headline", () => {
  const zoned = { timezoneId: "UTC" };

  test("names what runs out first, in how long and when", async () => {
    const world = busyServer();
    const clock = new Date(world.resources[0].exhaustionAt * 1000).toISOString().slice(11, 16);
    const text = await headlineOf(world, zoned);
    assert.match(text, /^\/data runs out in about 5 h 20 min \((Mon|Tue|Wed|Thu|Fri|Sat|Sun) \d\d:\d\d\)\.$/);
    assert.ok(text.includes(clock), text);
  });

  test("tells what came of earlier announcements of it", async () => {
    await withWorld(busyServer(), {}, async (page) => {
      assert.equal(await page.textContent("#subline"), "Announced 6 times in 14 days: reached 0, freed 1, levelled off 5. "
        + "After it: File descriptors in about 14 h.");
    });
  });

  test("says that nothing runs out", async () => {
    const world = new World();
    world.add({ mountpoint: "/" });
    assert.equal(await headlineOf(world), "Nothing runs out within the next 24 hours.");
  });

  test("says nothing of the future without a forecast", async () => {
    const world = new World();
    world.add({ mountpoint: "/", isForecast: false, stateText: "no forecast", note: "no model could be fitted" });
    await withWorld(world, {}, async (page) => {
      assert.equal(await headline(page), "Nothing here has a forecast.");
      const row = page.locator(ROW).first();
      assert.equal(await row.locator(".state-words").textContent(), "no forecast");
      assert.equal(await row.locator(".note").textContent(), "no model could be fitted");
      assert.equal(await row.locator(".out").textContent(), "–");
    });
  });

  test("says how far the collecting is", async () => {
    assert.equal(await headlineOf(freshServer()),
      "Collecting: 137 of 200 samples; the first forecast comes in about 5 min.");
  });

  test("says that something is at its limit, and what is next", async () => {
    const world = busyServer();
    world.resources.unshift(world.add({ id: 50, mountpoint: "/var", state: "at-limit", value: 100 }));
    world.resources.pop();
    await withWorld(world, {}, async (page) => {
      assert.equal(await headline(page), "/var is at its limit.");
      assert.match(await page.textContent("#subline"), /^\/data runs out in about 5 h 20 min/);
      assert.equal(await page.title(), "(2) Lumetra Agent");
    });
  });

  test("says when a pending exhaustion will be notified", async () => {
    const world = new World();
    world.add({ resource: "PercentFreeInodesUsed", mountpoint: "/mail", state: "pending", seconds: 95, level: 80 });
    await withWorld(world, {}, async (page) => {
      assert.match(await headline(page), /^\/mail \(inodes\) runs out in about \d+ s \(/);
      assert.equal(await page.textContent("#subline"), "Events go out once it reaches 80 %.");
    });
  });

  test("says that the agent is starting, has ended, or stands still", async () => {
    const starting = new World();
    Object.assign(starting.agent, { running: false, newestCycleAt: null, cycles: 0 });
    assert.equal(await headlineOf(starting), "The agent is starting.");
    const ended = busyServer();
    ended.agent.running = false;
    assert.match(await headlineOf(ended), /^The agent ended; its newest cycle was at .*\d\d:\d\d\.$/);
    const stale = busyServer();
    stale.agent.stale = true;
    stale.agent.newestCycleAt = stale.now - 600;
    stale.resources.forEach((r) => Object.assign(r, { state: "stale", stateText: "stale" }));
    await withWorld(stale, {}, async (page) => {
      assert.match(await headline(page), /^No new cycle since .*\d\d:\d\d\.$/);
      assert.match(await page.textContent("#pulse"), /^stale/);
      stale.agent.stale = false;
      Object.assign(stale.resources[0], { state: "forecast", stateText: "exhaustion forecast" });
      await look(page);
      await page.waitForFunction(() => document.getElementById("headline").textContent.startsWith("/data runs out"));
    });
  });

  test("shows what the agent cannot do for now, as long as it cannot", async () => {
    const world = busyServer();
    world.agent.notice = "The disks cannot be listed yet.";
    await withWorld(world, {}, async (page) => {
      await page.waitForSelector("#banner:not(:empty)");
      assert.equal(await page.textContent("#banner"), "The disks cannot be listed yet.");
      world.agent.notice = null;
      await page.waitForSelector("#banner", { state: "hidden" });
    });
  });

  test("has the place for what it cannot do ready before there is anything to say, as screen readers want it", async () => {
    const world = busyServer();
    await withWorld(world, {}, async (page) => {
      const banner = page.locator("#banner");
      assert.equal(await banner.getAttribute("role"), "status");
      assert.equal(await banner.evaluate((e) => getComputedStyle(e).display), "block");
      assert.equal(await banner.evaluate((e) => e.getBoundingClientRect().height), 0);
      world.agent.notice = "The disks cannot be listed yet.";
      await look(page);
      await page.waitForSelector("#banner:not(:empty)");
      assert.ok(await banner.evaluate((e) => e.getBoundingClientRect().height) > 20);
    });
  });

  test("says at its foot how many samples of earlier runs the agent goes on from", async () => {
    const world = busyServer();
    await withWorld(world, {}, async (page) => {
      assert.doesNotMatch(await page.textContent("#about"), /resumed/);
      world.agent.resumedSamples = 1234;
      await page.waitForFunction(() => document.getElementById("about").textContent.endsWith(" · resumed with 1234 samples"));
    });
  });

  test("shows what the agent leaves out and why, for as long as it does", async () => {
    const world = busyServer();
    world.leftOut = [{ what: "/dev/x\u202e 1 2", why: "its line cannot be read" }, { what: "Space", why: "no memory" }];
    await withWorld(world, {}, async (page) => {
      await page.click("#left-out-summary");
      assert.equal(await page.textContent("#left-out-summary"), "The agent leaves out 2 things (other: 2)");
      assert.deepEqual(await page.locator("#left-out-list li").allTextContents(),
        ["/dev/x\\u202e 1 2: its line cannot be read", "Space: no memory"]);
      world.leftOut = [];
      await look(page);
      await page.waitForSelector("#left-out", { state: "hidden" });
    });
  });

  test("says by which rules disks are left out, and does not list thousands", async () => {
    const world = busyServer();
    world.leftOut = Array.from({ length: 503 }, (_, i) => ({ what: `overlay /c/${i}`, why: "a rule", kind: i < 2 ? "nature" : "type",
      rule: i < 2 ? "squashfs, full by its nature" : "rule fstype over\u202elay" }));
    await withWorld(world, {}, async (page) => {
      await page.click("#left-out-summary");
      assert.equal(await page.textContent("#left-out-summary"),
        "The agent leaves out 503 disks (rule fstype over\\u202elay: 501; squashfs, full by its nature: 2)");
      const items = page.locator("#left-out-list li");
      assert.equal(await items.count(), 501);
      assert.equal(await items.last().textContent(), "and 3 more, which lumetra status --skipped lists");
    });
  });

  test("speaks in the zone of the reader", async () => {
    const world = new World();
    const r = world.add({ mountpoint: "/data", state: "forecast", seconds: 7200 });
    for (const timeZone of ["Asia/Kolkata", "America/St_Johns"]) {
      const expected = new Intl.DateTimeFormat("en-GB", { timeZone, weekday: "short", hour: "2-digit", minute: "2-digit" })
        .format(new Date(r.exhaustionAt * 1000)).replace(",", "");
      const text = await headlineOf(world, { timezoneId: timeZone });
      assert.ok(text.endsWith(`(${expected}).`), `${text} in ${timeZone}, not ${expected}`);
    }
  });

  test("a wrong clock of the reader does not change the countdown", async () => {
    await withAgent(busyServer(), (agent) => withPage(browser, agent.url, { own: true }, async (page) => {
      await page.clock.install({ time: Date.now() + 3 * 3600 * 1000 });
      await open(page, agent.url);
      assert.match(await headline(page), /in about 5 h 20 min/);
    }));
  });
});

describe("events", () => {
  test("an event arrives without a reload, is announced, and its repetition is not", async () => {
    const world = busyServer();
    const r = world.resources[5];
    await withWorld(world, {}, async (page) => {
      assert.equal(await page.textContent("#announcer"), "");
      assert.equal(await page.getAttribute("#announcer", "aria-live"), "polite");
      await page.evaluate(() => { window.sameDocument = true; });
      const event = { resource: r.resource, instance: r.instance, type: "upperTolerance", limit: 100 };
      world.event({ ...event, at: world.now });
      await look(page);
      await page.waitForFunction(() => document.querySelector("#event-list li").dataset.type === "upperTolerance");
      assert.match(await page.textContent("#event-list li"), /^\/ reached its limit of 100 %/);
      assert.equal(await page.textContent("#announcer"), "New: / reached its limit of 100 %.");
      await page.evaluate(() => { document.getElementById("announcer").textContent = ""; });
      world.event({ ...event, at: world.now + 1 });
      await look(page);
      await page.waitForFunction(() => document.querySelector("#event-list time").textContent.includes("2 times"));
      assert.equal(await page.textContent("#announcer"), "");
      assert.ok(await page.evaluate(() => window.sameDocument));
      assert.equal(await page.getAttribute("#event-list a", "href"), `#/resource/${r.id}`);
    });
  });

  test("what comes after the clock was set back is announced, and what was known is not", async () => {
    const world = busyServer();
    const event = (r, at) => ({ resource: r.resource, instance: r.instance, type: "upperTolerance", limit: 100, at });
    const [, , , , , first, second] = world.resources;
    world.events = [];
    world.event(event(first, world.now));
    await withWorld(world, {}, async (page) => {
      world.event(event(second, world.now - 3600));
      await look(page);
      await page.waitForFunction(() => document.querySelectorAll("#event-list li").length === 2);
      const name = await page.locator("#event-list li:first-child .event-who").textContent();
      assert.equal(await page.textContent("#announcer"), `New: ${name} reached its limit of 100 %.`);
      await page.evaluate(() => { document.getElementById("announcer").textContent = ""; });
      world.events.push(...world.events.map((e) => ({ ...e, type: "innerTolerance" }))); // older ones come into the list again
      await look(page);
      await page.waitForFunction(() => document.querySelectorAll("#event-list li").length === 4);
      assert.equal(await page.textContent("#announcer"), "");
    });
  });

  test("the way to them leads there the second time too", async () => {
    await withWorld(busyServer(), { viewport: { width: 390, height: 600 } }, async (page) => {
      await page.click("#to-events");
      const focused = () => page.evaluate(() => document.activeElement.id);
      await page.waitForFunction(() => document.activeElement.id === "events");
      await page.evaluate(() => { document.activeElement.blur(); window.scrollTo(0, 0); });
      await page.locator("#events-fold summary").evaluate((e) => e.click());
      await page.click("#to-events");
      assert.equal(await focused(), "events");
      assert.equal(await page.locator("#events-fold").evaluate((e) => e.open), true);
      assert.ok(await page.evaluate(() => window.scrollY) > 100);
    });
  });

  test("each type has its words", async () => {
    const world = new World();
    world.add({ resource: "PercentSwapSpaceUsed" });
    world.add({ resource: "PercentProcessesUsed" });
    world.event({ type: "fatal", message: "df did not answer" });
    world.event({ type: "innerTolerance", resource: "Own", instance: null, limit: 90 });
    world.event({ type: "exhaustion", resource: "PercentSwapSpaceUsed", instance: "_Total", secondsToExhaustion: 3600,
      culprits: [{ name: "java", pid: 7, value: 900 }, { name: "b", pid: 8, value: 9 }, { name: "c", pid: 9, value: 8 },
        { name: "d", pid: 10, value: 7 }], trackRecord: "announced twice in 3 days: reached 2" });
    world.event({ type: "exhaustion", at: world.now - 7200, resource: "PercentProcessesUsed", instance: "_Total",
      secondsToExhaustion: 60 });
    await withWorld(world, {}, async (page) => {
      const texts = await page.locator("#event-list li").allTextContents();
      assert.match(texts[0], /^Process slots was forecast to run out at /);
      assert.match(texts[1], /^Swap is forecast to run out in about 60 min .*Announced twice in 3 days: reached 2\..*Largest users: java \(7\), b \(8\), c \(9\) and 1 more/);
      assert.match(texts[2], /^Own reached its inner limit of 90 %/);
      assert.deepEqual(await page.locator("#event-list .record").evaluateAll((all) => all.map((e) => e.hidden)),
        [true, false, true, true]);
      assert.match(texts[3], /A step failed: df did not answer/);
    });
  });

  test("an event of the whole system leads to its resource", async () => {
    const world = new World();
    world.add({ resource: "Files", mountpoint: null });
    world.event({ resource: "Files", instance: "_Total", secondsToExhaustion: 3600 });
    await withWorld(world, {}, async (page) => {
      assert.match(await page.textContent("#event-list li"), /^Files is forecast to run out /);
      assert.equal(await page.getAttribute("#event-list a", "href"), "#/resource/1");
    });
  });

  test("the list folds away, and stays folded when an event arrives", async () => {
    const world = busyServer();
    await withWorld(world, {}, async (page) => {
      await page.click("#events summary");
      assert.equal(await page.isVisible("#event-list"), false);
      world.event({ type: "fatal", message: "archive: no space" });
      await look(page);
      await page.waitForFunction(() => document.getElementById("events-count").textContent === "4");
      assert.equal(await page.isVisible("#event-list"), false);
    });
  });
});

describe("the asking", () => {
  test("is rare while the page is hidden, and comes at once when it is seen again", async () => {
    await withTurnedWorld(browser, busyServer(), {}, async (page, agent, pass) => {
      const hide = (hidden) => page.evaluate((value) => {
        Object.defineProperty(document, "hidden", { configurable: true, get: () => value });
        document.dispatchEvent(new Event("visibilitychange"));
      }, hidden);
      await hide(true);
      assert.equal(await pass(), 30000); // after the question that was due already
      const from = agent.requests.length;
      await page.clock.runFor(29000);
      assert.equal(agent.requests.length, from);
      await hide(false);
      await until(() => agent.requests.length > from, "a question");
    });
  });
});

describe("a view that cannot be drawn", () => {
  const failure = /^TypeError: /;

  test("is told, asked for again as before, and shown once it can be", async () => {
    await withTurnedWorld(browser, busyServer(), { failure }, async (page, agent, pass) => {
      const { resources } = agent.world;
      const { recent } = resources[0];
      resources[0].recent = null;
      resources[0].value = 12.5;
      assert.equal(await pass(), 2000);
      assert.match(await page.textContent("#banner"), /^This view could not be drawn whole \(TypeError: .*\)\. The page goes on trying\.$/);
      assert.equal(await pass(), 2000);
      resources[0].recent = recent;
      assert.equal(await pass(), 2000);
      assert.equal(await page.textContent("#banner"), "");
      assert.equal(await page.locator(`${ROW} .value .number`).first().textContent(), "12.5 %");
    });
  });

  test("does not keep what the agent says from being heard", async () => {
    await withTurnedWorld(browser, busyServer(), { failure, lossExpected: true }, async (page, agent, pass) => {
      agent.world.resources[0].recent = null;
      await pass();
      await agent.vanish();
      await pass();
      await pass();
      assert.match(await page.textContent("#banner"), /^The agent does not answer since /);
    });
  });
});

describe("an agent that does not answer", () => {
  test("is told, with what was known kept, and its return is noticed", async () => {
    await withTurnedWorld(browser, busyServer(), { lossExpected: true }, async (page, agent, pass) => {
      await agent.vanish();
      await pass();
      assert.equal(await page.isVisible("#banner"), false, "one lost answer is no news");
      await pass();
      assert.match(await page.textContent("#banner"),
        /^The agent does not answer since (\w{3} )?\d\d:\d\d; the page shows what was known then\.$/);
      assert.match(await page.textContent("#pulse"), /^no answer/);
      assert.equal(await page.locator(ROW).count(), 10);
      agent.world.resources[0].value = 79.9;
      await agent.start(agent.port);
      await pass();
      assert.equal(await page.isVisible("#banner"), false);
      assert.equal(await page.locator(`${ROW} .value .number`).first().textContent(), "79.9 %");
    });
  });

  test("a refusing one is asked less and less often", async () => {
    await withTurnedWorld(browser, busyServer(), { lossExpected: true }, async (page, agent, pass) => {
      agent.refuse = 503;
      const pauses = [];
      for (let i = 0; i < 6; i++) {
        pauses.push(await pass());
      }
      assert.deepEqual(pauses, [2000, 4000, 8000, 16000, 30000, 30000]);
      agent.refuse = 0;
      assert.equal(await pass(), 2000);
      assert.equal(await page.isVisible("#banner"), false);
    });
  });

  test("from the start is told too", async () => {
    await withAgent(busyServer(), async (agent) => {
      agent.refuse = 503;
      await withPage(browser, agent.url, { lossExpected: true }, async (page) => {
        await page.goto(agent.url);
        await page.waitForFunction(() => document.getElementById("headline").textContent === "The agent does not answer.");
        agent.refuse = 0;
        await look(page);
        await page.waitForSelector(ROW);
      });
    });
  });

  test("a slow cycle is told in the view of a resource as well", async () => {
    const world = busyServer();
    world.agent.stale = true;
    await withWorld(world, {}, async (page) => {
      assert.match(await page.textContent("#banner"), /^No new cycle since/);
    }, "#/resource/1");
  });
});

describe("hostile names", () => {
  const NASTY = [`<script>document.title="owned"</script>`, `"'\`&lt;b&gt;</a><img src=x onerror=alert(1)>`,
    "/mnt/\u202egnp.exe", "/mnt/\ud83d\ude80 space", `/${"n".repeat(299)}`, "/a\\nb\\x1b[31m", "/raw\nline\u0007"];

  test("are shown as the text they are, in rows, events and culprits", async () => {
    const world = new World();
    NASTY.forEach((name) => world.add({ mountpoint: name, device: `/dev/${name}`, state: "forecast" }));
    const first = world.resources[0];
    world.culprits.set(1, { id: 1, measure: "residentMegabytes", measureText: "MB resident", writtenAt: world.now, processes:
      NASTY.map((name, i) => ({ name, pid: i + 1, value: 10 })) });
    world.event({ resource: first.resource, instance: first.instance, secondsToExhaustion: 100,
      culprits: NASTY.slice(0, 3).map((name) => ({ name, pid: 1, value: 1 })) });
    world.event({ type: "fatal", message: NASTY.join(" ") });
    const shown = [...NASTY];
    shown[2] = "/mnt/\\u202egnp.exe";
    shown[6] = "/raw\\x0aline\\x07";
    await withWorld(world, { viewport: { width: 390, height: 844 } }, async (page) => {
      assert.deepEqual(await page.locator(`${ROW} .name`).allTextContents(), shown);
      assert.equal(await page.locator("main script, main img").count(), 0);
      assert.ok((await page.textContent("#event-list")).includes(shown[0]));
      const overflow = await page.evaluate(() => document.documentElement.scrollWidth - window.innerWidth);
      assert.ok(overflow <= 0, `${overflow} px too wide`);
      await page.locator(`${ROW} .name`).first().click();
      await page.waitForSelector("#culprit-rows tr");
      assert.deepEqual(await page.locator("#culprit-rows th").allTextContents(), shown);
      assert.equal(await page.textContent("#detail-title"), shown[0]);
      assert.equal(await page.title(), `(${NASTY.length}) ${shown[0]} – Lumetra Agent`);
    });
  });
});

test("a long name leaves the sentence readable, and one from right to left does not turn it", async () => {
  const world = new World();
  world.add({ mountpoint: `/${"n".repeat(200)}/end`, state: "forecast" });
  world.add({ mountpoint: "/\u05d0\u05d1\u05d2", state: "forecast" });
  await withWorld(world, {}, async (page) => {
    assert.match(await headline(page), /^\/n{29}…n{25}\/end runs out in about/);
    assert.match(await page.textContent("#subline"), /^After it: \u2068\/\u05d0\u05d1\u05d2\u2069 in about/);
  });
});

describe("screenshots", () => {
  for (const [name, options] of [["overview-light", {}], ["overview-dark", { colorScheme: "dark" }],
    ["overview-narrow", { viewport: { width: 390, height: 844 } }]]) {
    test(name, async () => {
      await withWorld(busyServer(), options, (page) => screenshot(page, name, true));
    });
  }

  test("collecting", async () => {
    await withWorld(freshServer(), {}, (page) => screenshot(page, "collecting"));
  });
});
