// The view of one resource: chart, figures, culprits, events, collecting.
import assert from "node:assert/strict";
import { after, before, describe, test } from "node:test";
import { columnsOf, distinctPixels, drawn as settled, launch, look, open, pixelsOf, screenshot, turnedClock, withPage } from "./browser.mjs";
import { withAgent, withTurnedWorld, withWorld as inWorld } from "./support.mjs";
import { until } from "./suite.mjs";
import { busyServer, FALSE_ALARMS, freshServer, World } from "./world.mjs";

let browser;

before(async () => {
  browser = await launch();
});
after(() => browser.close());

const withWorld = (...given) => inWorld(browser, ...given);

async function drawn(page) {
  await page.waitForSelector("#chart canvas");
  await settled(page);
}

/** What the readout says with the pointer at a share of the chart's width. */
async function readAt(page, share) {
  const box = await page.locator("#chart .u-over").boundingBox();
  await page.mouse.move(box.x + box.width * share, box.y + box.height / 2);
  await settled(page);
  return page.textContent("#readout");
}

/** The time that a readout names, in seconds of its day. */
function secondsOf(readout) {
  const [hours, minutes, seconds] = /(\d\d):(\d\d):(\d\d)/.exec(readout).slice(1).map(Number);
  return (hours * 60 + minutes) * 60 + seconds;
}

/** Samples come every 20 s, and the pointer finds the nearest. */
function assertSameTime(readout, expected) {
  const apart = Math.abs(secondsOf(readout) - secondsOf(expected));
  assert.ok(Math.min(apart, 86400 - apart) <= 60, `${readout} instead of ${expected}`);
}

describe("the view of a resource", () => {
  test("the chart has drawn samples, forecast, limit and notification level", async () => {
    await withWorld(busyServer(), {}, async (page) => {
      await drawn(page);
      assert.ok(await distinctPixels(page) > 30, "the canvas is not blank");
      const samples = await columnsOf(page, "--samples");
      const forecast = await columnsOf(page, "--forecast");
      assert.ok(samples.length > 300, `${samples.length} columns of samples`);
      assert.ok(forecast.length > 300, `${forecast.length} columns of forecast`);
      assert.ok(samples.at(-1) < forecast[Math.floor(forecast.length / 2)], "the forecast is later than the samples");
      const ticked = await columnsOf(page, "--limit");
      assert.ok(ticked.length > 1000, `the limit goes across: ${ticked.length}`);
      assert.ok((await columnsOf(page, "--level")).length > 300);
    }, "#/resource/1");
  });

  test("its figures, its sentence and its summary in words are there", async () => {
    await withWorld(busyServer(), { timezoneId: "Europe/Berlin" }, async (page, agent) => {
      await drawn(page);
      assert.equal(await page.textContent("#detail-title"), "/data");
      assert.match(await page.textContent("#detail-lead"), /exhaustion forecast:runs out in about 5 h 20 min \(\w{3} \d\d:\d\d\)/);
      assert.equal(await page.innerText("#detail-why:visible"), "It is watched because it is mounted.");
      const facts = await page.innerText("#facts");
      for (const expected of ["78.4 %", "3-segment linear regression", "70.5 %", "100 %", "just now"]) {
        assert.ok(facts.includes(expected), `${expected} in ${facts}`);
      }
      const zone = new Intl.DateTimeFormat("en-GB", { timeZone: "Europe/Berlin", timeZoneName: "short" })
        .formatToParts(new Date(agent.world.now * 1000)).find((p) => p.type === "timeZoneName").value;
      assert.ok(facts.includes(zone), `${zone} in ${facts}`);
      const summary = await page.textContent("#chart-summary");
      assert.match(summary, /^600 samples from .* newest \d\d\.\d %\. The forecast reaches the limit at .*The limit is 100 %\./);
      assert.equal(await page.getAttribute("#chart", "aria-describedby"), "chart-summary");
      assert.equal(await page.locator("#legend li:visible").count(), 5);
    }, "#/resource/1");
  });

  test("a silence of the agent is a gap in the curve", async () => {
    const world = new World();
    const r = world.add({ mountpoint: "/x" });
    const trend = world.trend(r);
    const kept = trend.samples.times.map((_, i) => i < 200 || i > 400);
    const { times, values } = trend.samples;
    trend.samples = { times: times.filter((_, i) => kept[i]), values: values.filter((_, i) => kept[i]) };
    trend.forecast = null;
    world.trends.set(r.id, trend);
    await withWorld(world, {}, async (page) => {
      await drawn(page);
      const columns = await columnsOf(page, "--samples");
      const widest = Math.max(...columns.slice(1).map((c, i) => c - columns[i]));
      assert.ok(widest > 0.28 && widest < 0.4, `the widest gap is ${widest.toFixed(2)} of the width`);
      assert.equal(await page.isVisible("#key-forecast"), false);
    }, "#/resource/1");
  });

  test("several samples in the same second are one curve", async () => {
    const world = new World();
    const r = world.add({ mountpoint: "/x" });
    const trend = world.trend(r);
    trend.samples.times = trend.samples.times.map((_, i) => world.now - 100 + Math.floor(i / 6));
    world.trends.set(r.id, { ...trend, source: "history", forecast: null });
    await withWorld(world, {}, async (page) => {
      await drawn(page);
      const columns = await columnsOf(page, "--samples");
      assert.ok(columns.at(-1) - columns[0] > 0.85 && columns.length > 800, `${columns.length} columns`);
      assert.match(await page.textContent("#chart-summary"), /The forecast's curve is not at hand now\./);
    }, "#/resource/1");
  });

  test("zooms by drag and by button, keeps the zoom when samples arrive, and comes back", async () => {
    const world = busyServer();
    await withWorld(world, {}, async (page) => {
      await drawn(page);
      const first = await readAt(page, 0.01);
      assert.match(first, /^\w{3} \d\d:\d\d:\d\d: sample \d+/);
      assert.match(await readAt(page, 0.8), /: forecast \d+/);
      const box = await page.locator("#chart .u-over").boundingBox();
      await page.mouse.move(box.x + box.width * 0.1, box.y + 50);
      await page.mouse.down();
      await page.mouse.move(box.x + box.width * 0.3, box.y + 60, { steps: 5 });
      await page.mouse.up();
      assert.equal(await page.isEnabled("#zoom-reset"), true);
      const zoomed = await readAt(page, 0.01);
      const moved = secondsOf(zoomed) - secondsOf(first);
      assert.ok((moved + 86400) % 86400 > 1800, `${first}, then ${zoomed}`);
      await page.click("#as-table");
      const newest = await page.textContent("#sample-rows tr");
      world.now += 20; // from here on the page may ask by itself
      Object.assign(world.agent, { newestCycleAt: world.now - 4, cycles: world.agent.cycles + 1 });
      world.resources[0].forecastAt = world.now - 4;
      await look(page);
      await page.waitForFunction((old) => document.querySelector("#sample-rows tr").textContent !== old, newest);
      assertSameTime(await readAt(page, 0.01), zoomed);
      await page.click("#zoom-reset");
      assertSameTime(await readAt(page, 0.01), first);
      assert.equal(await page.isEnabled("#zoom-reset"), false);
      await page.click("#zoom-in");
      assert.equal(await page.isEnabled("#zoom-out"), true);
      await page.click("#zoom-out");
      assert.equal(await page.isEnabled("#zoom-out"), false);
    }, "#/resource/1");
  });

  test("a button that has done all it can hands the focus on", async () => {
    await withWorld(busyServer(), {}, async (page) => {
      await drawn(page);
      for (const button of ["#zoom-out", "#zoom-reset", "#whole"]) {
        await page.click("#zoom-in");
        await settled(page);
        await page.focus(button);
        for (let presses = 0; presses < 10 && await page.isEnabled(button); presses++) {
          await page.keyboard.press("Enter");
          await settled(page);
        }
        assert.equal(await page.isEnabled(button), false, button);
        assert.equal(await page.evaluate(() => document.activeElement.id), "zoom-in", `after ${button}`);
      }
    }, "#/resource/1");
  });

  test("a chart's program that is not delivered is asked for again, and all the rest is shown meanwhile", async () => {
    const world = busyServer();
    world.announce(world.resources[0], 24, 0.5);
    await withAgent(world, (agent) => withPage(browser, agent.url, { own: true, lossExpected: true }, async (page) => {
      let asked = 0;
      await page.route("**/uPlot.iife.min.js", (route) => {
        asked += 1;
        return asked < 3 ? route.abort() : route.continue();
      });
      const pass = await turnedClock(page, new Date(world.now * 1000));
      await open(page, agent.url, "#/resource/1");
      assert.match(await page.textContent("#chart-summary"),
        /^The chart's program has not been delivered; the page goes on asking for it\. 600 samples from /);
      assert.ok((await page.innerText("#facts")).includes("78.4 %"));
      assert.ok(await page.isVisible("#beside"));
      assert.equal(await page.textContent("#banner"), "");
      await until(async () => await page.locator("#chart canvas").count() > 0 || assert.equal(await pass(), 2000), "the chart");
      assert.equal(asked, 3);
      assert.match(await page.textContent("#chart-summary"), /^600 samples from /);
      assert.ok(await distinctPixels(page) > 30);
      assert.ok(await distinctPixels(page, "#announcement-chart canvas") > 5);
    }));
  });

  test("a browser that cannot draw shows all that is in words, and says what it could not", async () => {
    const world = busyServer();
    await withAgent(world, (agent) => withPage(browser, agent.url, { own: true, failure: /^Error: no canvas/ }, async (page) => {
      await page.addInitScript(() => {
        HTMLCanvasElement.prototype.getContext = () => { throw new Error("no canvas"); };
      });
      const pass = await turnedClock(page, new Date(world.now * 1000));
      await page.goto(`${agent.url}#/resource/1`);
      await page.waitForSelector("#banner:not(:empty)");
      assert.equal(await page.textContent("#banner"), "This view could not be drawn whole (Error: no canvas). The page goes on trying.");
      assert.match(await page.textContent("#chart-summary"), /^600 samples from /);
      assert.ok((await page.innerText("#facts")).includes("78.4 %"));
      assert.ok(await page.isVisible("#beside"));
      assert.equal(await pass(), 2000);
    }));
  });

  test("shows first what is worth seeing, and the whole forecast on demand", async () => {
    const world = new World();
    world.add({ mountpoint: "/soon", state: "forecast", seconds: 3600 });
    world.add({ mountpoint: "/quiet" });
    for (const r of world.resources) {
      const trend = world.trend(r);
      const at = trend.samples.times.at(-1);
      trend.forecast = { times: [0, 3600, 48 * 3600].map((t) => at + t), values: [r.value, r.id === 1 ? 100 : r.value, 100] };
      world.trends.set(r.id, trend);
    }
    for (const id of [1, 2]) {
      await withWorld(world, {}, async (page) => {
        await drawn(page);
        const share = async () => {
          await settled(page);
          const columns = await columnsOf(page, "--samples");
          return columns.at(-1) - columns[0];
        };
        const first = await share();
        assert.ok(first > 0.35, `the samples have ${first.toFixed(2)} of the width`);
        await page.click("#whole");
        assert.ok(await share() < 0.1);
        assert.equal(await page.isEnabled("#whole"), false);
        await page.click("#zoom-reset");
        assert.ok(Math.abs(await share() - first) < 0.01);
        const box = await page.locator("#chart .u-over").boundingBox();
        await page.click("#zoom-out");
        assert.ok(await share() < first);
        await page.mouse.dblclick(box.x + 100, box.y + 50);
        assert.ok(Math.abs(await share() - first) < 0.01, "a double click resets too");
      }, `#/resource/${id}`);
    }
  });

  test("the values fill the chart on demand", async () => {
    await withWorld(busyServer(), {}, async (page) => {
      await drawn(page);
      const height = () => page.evaluate(() => {
        const canvas = document.querySelector("#chart canvas");
        const { data, width } = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height);
        const rows = new Set();
        for (let i = 0; i < data.length; i += 4) {
          if (data[i] === 11 && data[i + 1] === 92 && data[i + 2] === 138) {
            rows.add(Math.floor(i / 4 / width));
          }
        }
        return rows.size;
      });
      const before = await height();
      await page.click("#scale");
      assert.equal(await page.getAttribute("#scale", "aria-pressed"), "true");
      await settled(page);
      assert.ok(await height() > before * 4, `${before} rows of pixels before, ${await height()} after`);
    }, "#/resource/6");
  });

  test("the table has the last 50 samples, newest first", async () => {
    await withWorld(busyServer(), {}, async (page, agent) => {
      await drawn(page);
      assert.equal(await page.isVisible("#sample-table"), false);
      await page.click("#as-table");
      assert.equal(await page.locator("#sample-rows tr").count(), 50);
      const newest = agent.world.trend(agent.world.resources[0]).samples.values.at(-1);
      assert.equal(await page.locator("#sample-rows td.number").first().textContent(), `${newest.toFixed(1)} %`);
    }, "#/resource/1");
  });

  test("names the largest users, or says why it names none", async () => {
    await withWorld(busyServer(), {}, async (page) => {
      await page.waitForSelector("#culprit-rows tr");
      assert.equal(await page.locator("#culprit-rows tr").first().innerText(), "postgres\t2211\t48,210");
      assert.equal(await page.textContent("#culprits-unit"), "descriptors");
      await page.goto(page.url().replace("resource/2", "resource/1"));
      await page.waitForFunction(() => document.getElementById("culprits-text").textContent
        === "The agent names processes for descriptors, memory and child processes only.");
      assert.equal(await page.isVisible("#culprits"), false);
    }, "#/resource/2");
  });

  test("has its own events, those of an episode as one, newest first", async () => {
    const world = busyServer();
    const { resource, instance } = world.resources[0];
    for (let i = 1; i <= 11; i++) {
      world.events.push({ ...world.events[0], resource, instance, epochSeconds: world.now - i * 86400, episodeSince: i });
    }
    await withWorld(world, {}, async (page) => {
      await page.waitForSelector("#own-events li");
      assert.equal(await page.locator("#own-events li").count(), 10);
      const newest = page.locator("#own-events li").first();
      assert.match(await newest.innerText(), /Forecast to run out in about 5 h 20 min .*just now · 13 times since/s);
      assert.doesNotMatch(await page.locator("#own-events li").nth(1).innerText(), /times/);
      assert.match(await page.textContent("#own-events-rest"), /^And 2 earlier, since \w{3} \d+ \w{3} \d\d:\d\d\.$/);
      assert.match(await page.locator("#own-events time").first().getAttribute("title"), /\d{4}, \d\d:\d\d:\d\d/);
    }, "#/resource/1");
  });

  test("links to its neighbours in the overview", async () => {
    await withWorld(busyServer(), {}, async (page) => {
      assert.equal(await page.isVisible("#previous"), false);
      assert.equal(await page.textContent("#next"), "Less urgent: File descriptors");
      await page.click("#next");
      await page.waitForFunction(() => document.getElementById("detail-title").textContent === "File descriptors");
      assert.equal(await page.getAttribute("#previous", "href"), "#/resource/1");
      assert.equal(await page.textContent("#next"), "Less urgent: /mnt/usb");
      await page.goto(page.url().replace("resource/2", "resource/10"));
      await page.waitForFunction(() => document.getElementById("detail-title").textContent === "Swap");
      assert.equal(await page.isVisible("#next"), false);
      assert.equal(await page.textContent("#previous"), "More urgent: /snap/core");
    }, "#/resource/1");
  });

  test("can be linked, left by link and by Escape, and lands where the reader was", async () => {
    await withWorld(busyServer(), { viewport: { width: 800, height: 500 } }, async (page) => {
      const link = page.locator('a[href="#/resource/8"]').first();
      await link.scrollIntoViewIfNeeded();
      const before = await page.evaluate(() => window.scrollY);
      await link.click();
      await page.waitForSelector("#detail:not([hidden])");
      assert.equal(await page.evaluate(() => window.scrollY), 0);
      assert.equal(await page.evaluate(() => document.activeElement.id), "detail-title");
      await page.keyboard.press("Escape");
      await page.waitForSelector("#overview:not([hidden])");
      assert.equal(await page.evaluate(() => window.scrollY), before);
      assert.equal(await page.evaluate(() => document.activeElement.getAttribute("href")), "#/resource/8");
      await link.click();
      await page.click("#back");
      await page.waitForSelector("#overview:not([hidden])");
    });
  });

  test("of a number that is none says so", async () => {
    await withWorld(busyServer(), {}, async (page) => {
      assert.equal(await page.textContent("#missing-title"), "There is no resource 999.");
    }, "#/resource/999");
  });

  test("shows the history while it collects, with the progress", async () => {
    await withWorld(freshServer(), {}, async (page, agent) => {
      await drawn(page);
      assert.ok((await columnsOf(page, "--samples")).length > 600);
      assert.equal(await page.textContent("#detail-collecting-text"),
        "137 of 200 samples; the first forecast comes in about 5 min.");
      const bar = page.locator("#detail-bar");
      assert.equal(await bar.getAttribute("role"), "progressbar");
      assert.equal(await bar.getAttribute("aria-valuenow"), "137");
      assert.equal(await bar.getAttribute("aria-valuemax"), "200");
      Object.assign(agent.world.resources[1], { samples: 200, firstForecastAt: null, state: "no-exhaustion",
        stateText: "no exhaustion within the horizon", forecastAt: agent.world.now, model: "simple linear regression" });
      await look(page);
      await page.waitForSelector("#detail-collecting", { state: "hidden" });
      await page.waitForFunction(() => !document.getElementById("key-forecast").hidden);
    }, "#/resource/2");
  });

  test("works from the first sample on, and before it", async () => {
    const world = new World();
    const r = world.add({ mountpoint: "/x", state: "collecting", samples: 0 });
    r.recent.values = [];
    await withWorld(world, {}, async (page) => {
      await page.waitForFunction(() => document.getElementById("chart-summary").textContent === "No samples yet.");
      r.samples = 1;
      r.recent.values = [40];
      await look(page);
      await page.waitForFunction(() => document.getElementById("chart-summary").textContent.startsWith("1 sample from "));
      await drawn(page);
      const columns = await columnsOf(page, "--samples");
      assert.ok(columns.length > 2 && columns.length < 20, `one point, ${columns.length} columns`);
    }, "#/resource/1");
  });

  test("says so when the agent cannot give the samples, and does not call it silent", async () => {
    await withTurnedWorld(browser, busyServer(), { lossExpected: true }, async (page, agent, pass) => {
      agent.refused = /trend/;
      agent.refuse = 503;
      await page.click("#rows .name >> nth=1");
      await page.waitForFunction(() => document.getElementById("chart-summary").textContent
        === "The agent cannot give the samples now; the page goes on asking.");
      await page.waitForSelector("#culprit-rows tr");
      await pass();
      await pass();
      assert.equal(await page.isVisible("#banner"), false);
      agent.refuse = 0;
      await pass();
      await page.waitForSelector("#chart canvas");
    });
  });

  test("follows the colour scheme while it is open", async () => {
    await withWorld(busyServer(), { own: true, colorScheme: "light" }, async (page) => {
      await drawn(page);
      const light = await columnsOf(page, "--samples");
      await page.emulateMedia({ colorScheme: "dark" });
      await settled(page);
      const dark = await columnsOf(page, "--samples");
      assert.ok(light.length > 300 && dark.length > 300, `${light.length} and ${dark.length} columns`);
    }, "#/resource/1");
  });
});

describe("the announcements of a resource", () => {
  const CANVAS = "#announcement-chart canvas";
  const announced = async (page) => {
    await page.waitForSelector(CANVAS);
    await settled(page);
  };
  const oneDisk = (count, receding) => {
    const world = new World();
    world.announce(world.add({ mountpoint: "/x", state: "forecast", track: FALSE_ALARMS }), count, receding);
    return world;
  };
  const isShown = (page) => page.isVisible("#announcements");

  /** By which share of the canvas's height a colour climbs from the left to the right. */
  async function climb(page, property) {
    const pixels = await pixelsOf(page, property, CANVAS);
    const columns = pixels.map(([x]) => x);
    const [left, right] = [Math.min(...columns), Math.max(...columns)];
    const rowsAt = (column) => pixels.filter(([x]) => x === column).map(([, y]) => y);
    return Math.max(...rowsAt(left)) - Math.min(...rowsAt(right));
  }

  test("their record stands below the headline, as long as there is a forecast", async () => {
    const world = oneDisk(3, 0);
    await withWorld(world, {}, async (page) => {
      assert.equal(await page.innerText("#detail-record:visible"),
        "Announced 6 times in 14 days: reached 0, freed 1, levelled off 5.");
      world.resources[0].trackRecord = null;
      await look(page);
      await page.waitForSelector("#detail-record", { state: "hidden" });
      Object.assign(world.resources[0], { ...FALSE_ALARMS, state: "no-exhaustion", exhaustionAt: null });
      await look(page);
      await page.waitForFunction(() => document.getElementById("detail").dataset.state === "no-exhaustion");
      assert.equal(await page.isVisible("#detail-record"), false);
    }, "#/resource/1");
  });

  test("a receding one runs along the present, a steady one is level", async () => {
    for (const [receding, least, most] of [[1, 0.3, 0.8], [0, -0.05, 0.05]]) {
      await withWorld(oneDisk(289, receding), {}, async (page) => {
        await announced(page);
        assert.ok((await columnsOf(page, "--forecast", CANVAS)).length > 800);
        const moved = await climb(page, "--forecast");
        assert.ok(moved > least && moved < most, `receding by ${receding} climbs by ${moved.toFixed(2)} of the height`);
        assert.match(await page.textContent("#announcement-summary"), receding === 1
          ? /^289 announcements since \w{3} \d\d:\d\d\. The first named .*\d\d:\d\d, the newest names .*\d\d:\d\d: 24 h later, within 24 h\.$/
          : /: the same within 24 h\.$/);
      }, "#/resource/1");
    }
  });

  test("the present is the diagonal, in sight however far away the exhaustion is", async () => {
    for (const seconds of [600, 47 * 3600]) {
      const world = new World();
      world.announce(world.add({ mountpoint: "/x", state: "forecast", seconds }), 289, 1);
      await withWorld(world, {}, async (page) => {
        await announced(page);
        const dots = (await pixelsOf(page, "--ink-soft", CANVAS)).filter(([x, y]) => x > 0.3 && x < 0.5 && y < 0.76);
        assert.ok(dots.length > 20, `${dots.length} pixels of the diagonal, ${seconds} s ahead`);
        const rows = dots.map(([, y]) => y);
        assert.ok(Math.max(...rows) - Math.min(...rows) > 0.03, "and it climbs");
      }, "#/resource/1");
    }
  });

  test("fewer than two are no chart, and the next one makes it", async () => {
    const world = oneDisk(1, 0);
    await withWorld(world, {}, async (page) => {
      await drawn(page);
      assert.equal(await isShown(page), false);
      world.now += 300;
      world.agent.newestCycleAt = world.now - 4;
      world.announce(world.resources[0], 2, 1);
      await look(page);
      await announced(page);
      assert.match(await page.textContent("#announcement-summary"), /^2 announcements since .*: 5 min later, within 5 min\.$/);
      const before = (await columnsOf(page, "--forecast", CANVAS)).length;
      world.announce(world.resources[0], 30, 1);
      await look(page);
      await page.waitForFunction(() => document.getElementById("announcement-summary").textContent.startsWith("30 "));
      await settled(page);
      assert.notEqual((await columnsOf(page, "--forecast", CANVAS)).length, before, "the curve was drawn anew");
      world.announcements.clear();
      await look(page);
      await page.waitForSelector("#announcements", { state: "hidden" });
    }, "#/resource/1");
  });

  test("a silence of announcements is a gap", async () => {
    const world = oneDisk(100, 0);
    const { times, values } = world.announcements.get(1);
    const isKept = (_, i) => i < 30 || i >= 70;
    world.announcements.set(1, { times: times.filter(isKept), values: values.filter(isKept) });
    await withWorld(world, {}, async (page) => {
      await announced(page);
      const columns = await columnsOf(page, "--forecast", CANVAS);
      const widest = Math.max(...columns.slice(1).map((c, i) => c - columns[i]));
      assert.ok(widest > 0.3 && widest < 0.45, `the widest gap is ${widest.toFixed(2)} of the width`);
    }, "#/resource/1");
  });

  test("another resource does not show them", async () => {
    await withWorld(busyServer(), { own: true }, async (page) => {
      await announced(page);
      let answer;
      const held = new Promise((resolve) => { answer = resolve; });
      await page.route("**/resources/2/trend", (route) => held.then(() => route.continue()));
      await page.evaluate(() => { location.hash = "#/resource/2"; });
      await page.waitForFunction(() => document.getElementById("detail-title").textContent === "File descriptors");
      assert.equal(await isShown(page), false);
      answer();
      await page.waitForSelector("#culprit-rows tr");
      assert.equal(await isShown(page), false);
    }, "#/resource/1");
  });

  test("nothing below them is shown before it is known whether they are", async () => {
    await withWorld(busyServer(), { own: true }, async (page) => {
      let answer;
      const held = new Promise((resolve) => { answer = resolve; });
      await page.route("**/resources/1/trend", (route) => held.then(() => route.continue()));
      const others = page.waitForResponse("**/resources/1/culprits");
      await page.click("#rows .name >> nth=0");
      await others;
      await settled(page);
      assert.deepEqual([await isShown(page), await page.isVisible("#beside")], [false, false]);
      answer();
      await page.waitForSelector("#beside");
      assert.equal(await isShown(page), true);
    });
  });

  test("moments are the reader's, in both schemes", async () => {
    await withAgent(oneDisk(289, 1), (agent) => withPage(browser, agent.url,
      { own: true, timezoneId: "Asia/Kolkata", colorScheme: "light" }, async (page) => {
        await page.addInitScript(() => {
          window.written = [];
          const write = CanvasRenderingContext2D.prototype.fillText;
          CanvasRenderingContext2D.prototype.fillText = function note(text, ...rest) {
            if (this.canvas.closest("#announcement-chart")) {
              window.written.push(text);
            }
            return write.call(this, text, ...rest);
          };
        });
        await open(page, agent.url, "#/resource/1");
        await announced(page);
        const clocks = (await page.evaluate(() => window.written)).filter((text) => /\d\d:\d\d/.test(text));
        assert.ok(clocks.length > 6, clocks.join());
        assert.deepEqual(clocks.filter((text) => !text.endsWith(":00")), [], "half past in Europe is no half past in India");
        const first = new Date(agent.world.announcements.get(1).times[0] * 1000);
        const clock = new Intl.DateTimeFormat("en-GB", { timeZone: "Asia/Kolkata", hour: "2-digit", minute: "2-digit" }).format(first);
        assert.ok((await page.textContent("#announcement-summary")).includes(clock), clock);
        const light = (await columnsOf(page, "--forecast", CANVAS)).length;
        await page.emulateMedia({ colorScheme: "dark" });
        await settled(page);
        const dark = (await columnsOf(page, "--forecast", CANVAS)).length;
        assert.ok(light > 800 && dark > 800, `${light} and ${dark} columns`);
      }));
  });
});

describe("screenshots", () => {
  for (const [name, id, options] of [["detail-light", 1, {}], ["detail-dark", 2, { colorScheme: "dark" }],
    ["detail-narrow", 1, { viewport: { width: 390, height: 844 }, hasTouch: true, deviceScaleFactor: 2 }]]) {
    test(name, async () => {
      await withWorld(busyServer(), options, async (page) => {
        await drawn(page);
        await screenshot(page, name, true);
      }, `#/resource/${id}`);
    });
  }

  test("detail-collecting", async () => {
    await withWorld(freshServer(), {}, async (page) => {
      await drawn(page);
      await screenshot(page, "detail-collecting", true);
    }, "#/resource/2");
  });
});
