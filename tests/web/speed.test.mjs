// A machine with very many disks, and resources with the longest history: how much the page does for them. Work is counted;
// times, which are another on every machine, are only told.
import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import { distinctPixels, drawn, launch, look, open, withPage } from "./browser.mjs";
import { withAgent, withWorld } from "./support.mjs";
import { largeServer } from "./world.mjs";

const RESOURCES = 300;
const SAMPLES = 1728;

let browser;

before(async () => {
  browser = await launch();
});
after(() => browser.close());

/** Gives a function that returns what the page's process has done since: layouts, style runs, milliseconds of processor time. */
async function meter(page) {
  const devtools = await page.context().newCDPSession(page);
  await devtools.send("Performance.enable", { timeDomain: "threadTicks" });
  const read = async () => {
    const { metrics } = await devtools.send("Performance.getMetrics");
    const value = Object.fromEntries(metrics.map((m) => [m.name, m.value]));
    return { layouts: value.LayoutCount, styles: value.RecalcStyleCount,
      script: value.ScriptDuration * 1000, layout: (value.LayoutDuration + value.RecalcStyleDuration) * 1000 };
  };
  const first = await read();
  return async () => {
    const now = await read();
    return Object.fromEntries(Object.entries(now).map(([name, amount]) => [name, amount - first[name]]));
  };
}

function tell(t, what, spent) {
  t.diagnostic(`${what}: ${spent.script.toFixed(0)} ms of script, ${spent.layout.toFixed(0)} ms in ${spent.layouts} layouts `
    + `and ${spent.styles} style runs`);
}

/** The page's pause does not end, however long a slow machine draws. */
function askOnce(page) {
  return page.addInitScript(() => {
    const start = window.setTimeout;
    window.setTimeout = (action, ...rest) => (action.name === "ask" ? 0 : start(action, ...rest));
  });
}

/** Counts what changes in the list from now on. */
function countChanges(page) {
  return page.evaluate(() => {
    window.changes = { attributes: 0, childList: 0, characterData: 0 };
    new MutationObserver((list) => list.forEach((m) => { window.changes[m.type] += 1; }))
      .observe(document.getElementById("rows"), { subtree: true, childList: true, attributes: true, characterData: true });
  });
}

/** Lets the page ask, waits until it shows this in its first row, and returns the changes that this took. */
async function update(page, selector, text) {
  await page.evaluate(() => Object.keys(window.changes).forEach((kind) => { window.changes[kind] = 0; }));
  await look(page);
  await page.waitForFunction(([where, expected]) => document.querySelector(where).textContent === expected, [selector, text]);
  await drawn(page);
  return page.evaluate(() => window.changes);
}

test(`${RESOURCES} resources are there after one answer and few layouts`, async (t) => {
  await withAgent(largeServer(RESOURCES), (agent) => withPage(browser, agent.url, { own: true }, async (page) => {
    await askOnce(page);
    const asked = [];
    page.on("request", (r) => asked.push(new URL(r.url()).pathname));
    const spent = await meter(page);
    await open(page, agent.url);
    await drawn(page);
    const used = await spent();
    tell(t, `${asked.length} requests`, used);
    assert.equal(await page.locator("#rows > tr").count(), RESOURCES);
    const answers = asked.filter((path) => path.startsWith("/api/"));
    assert.equal(answers.filter((path) => path === "/api/v1/resources").length, 1);
    assert.ok(answers.length <= 3, answers.join());
    assert.equal(new Set(asked).size, asked.length, `something is asked for twice: ${asked}`);
    assert.ok(used.layouts <= 10, `${used.layouts} layouts`);
  }));
});

test(`an update of all ${RESOURCES} touches what is new, in few layouts`, async (t) => {
  const world = largeServer(RESOURCES);
  await withWorld(browser, world, { own: true }, async (page) => {
    await countChanges(page);
    const spent = await meter(page);
    world.resources.forEach((r) => {
      r.value = Math.round((r.value + 0.37) * 100) / 100;
      r.recent.values = [...r.recent.values.slice(1), r.value];
    });
    const changes = await update(page, "#rows .number", `${world.resources[0].value.toFixed(1)} %`);
    const used = await spent();
    tell(t, `every value and curve new, ${JSON.stringify(changes)}`, used);
    assert.ok(changes.childList + changes.characterData <= RESOURCES, JSON.stringify(changes));
    assert.ok(changes.attributes <= 4 * RESOURCES, JSON.stringify(changes));
    assert.ok(used.layouts <= 10, `${used.layouts} layouts`);
  });
});

test(`the whole order reversed moves each of ${RESOURCES} rows once at most`, async (t) => {
  const world = largeServer(RESOURCES);
  await withWorld(browser, world, { own: true }, async (page) => {
    await countChanges(page);
    const spent = await meter(page);
    world.resources.reverse();
    const changes = await update(page, "#rows .name", "/export/volume299");
    const used = await spent();
    tell(t, `order reversed, ${JSON.stringify(changes)}`, used);
    assert.ok(changes.childList <= 2 * RESOURCES, JSON.stringify(changes)); // taken out and put in
    assert.equal(changes.attributes + changes.characterData, 0, JSON.stringify(changes));
    assert.ok(used.layouts <= 10, `${used.layouts} layouts`);
  });
});

test(`a resource with ${SAMPLES} samples is drawn with few strokes`, async (t) => {
  await withWorld(browser, largeServer(RESOURCES), { own: true }, async (page) => {
    await page.evaluate(() => {
      window.drawings = { clearRect: 0, stroke: 0, lineTo: 0 };
      for (const [kind, names] of [[CanvasRenderingContext2D, ["clearRect", "stroke"]], [Path2D, ["lineTo"]]]) {
        for (const name of names) {
          const does = kind.prototype[name];
          kind.prototype[name] = function counted(...given) {
            window.drawings[name] += 1;
            return does.apply(this, given);
          };
        }
      }
    });
    const spent = await meter(page);
    await page.click("#rows .name >> nth=2");
    await page.waitForSelector("#chart canvas");
    await drawn(page);
    const used = await spent();
    const drawings = await page.evaluate(() => window.drawings);
    tell(t, JSON.stringify(drawings), used);
    assert.ok(await distinctPixels(page) > 30);
    assert.match(await page.textContent("#chart-summary"), new RegExp(`^${SAMPLES} samples`));
    assert.ok(drawings.clearRect <= 2, JSON.stringify(drawings));
    assert.ok(drawings.lineTo <= 2.5 * SAMPLES, JSON.stringify(drawings));
    assert.ok(used.layouts <= 20, `${used.layouts} layouts`);
  });
});
