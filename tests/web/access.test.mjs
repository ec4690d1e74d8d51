// Everybody can read it: contrast, names, keyboard, small screens, reduced motion.
import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { createRequire } from "node:module";
import { after, before, describe, test } from "node:test";
import { drawn, launch } from "./browser.mjs";
import { withWorld as inWorld } from "./support.mjs";
import { busyServer, FALSE_ALARMS, freshServer, largeServer, STATE_WORDS, World } from "./world.mjs";

let browser;

before(async () => {
  browser = await launch();
});
after(() => browser.close());

const withWorld = (...given) => inWorld(browser, ...given);

function everyState() {
  const world = new World();
  Object.keys(STATE_WORDS).forEach((state) => world.add({ mountpoint: `/${state}`, state, note: "A note.", track: FALSE_ALARMS }));
  world.announce(world.resources[1], 30, 0.9);
  world.event({ type: "fatal", message: "it failed" });
  world.event({ type: "exhaustion", resource: "PercentFreeSpaceUsed", instance: "/dev/sda1 /forecast",
    secondsToExhaustion: 600 });
  return world;
}

/** Every piece of visible text with the contrast to what is behind it. */
function contrasts(page) {
  return page.evaluate(() => {
    const rgb = (text) => (text.match(/[\d.]+/g) ?? []).map(Number);
    const linear = (c) => (c / 255 <= 0.03928 ? c / 255 / 12.92 : ((c / 255 + 0.055) / 1.055) ** 2.4);
    const luminance = ([r, g, b]) => 0.2126 * linear(r) + 0.7152 * linear(g) + 0.0722 * linear(b);
    const behind = (node) => {
      for (let at = node; at; at = at.parentElement) {
        const colour = rgb(getComputedStyle(at).backgroundColor);
        if (colour.length === 3 || colour[3] === 1) {
          return colour;
        }
      }
      return [255, 255, 255];
    };
    const found = [];
    for (const node of document.body.querySelectorAll("*")) {
      const own = [...node.childNodes].some((c) => c.nodeType === 3 && c.textContent.trim());
      const isIcon = node.matches("svg.icon");
      const isSeen = node.getClientRects().length > 0 && getComputedStyle(node).visibility === "visible"
        && !node.closest(".unseen, .skip, option");
      if ((own || isIcon) && isSeen) {
        const [a, b] = [luminance(rgb(getComputedStyle(node).color)), luminance(behind(node))];
        found.push({ text: isIcon ? `icon in ${node.parentElement.textContent}` : node.textContent.trim().slice(0, 60),
          ratio: (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05) });
      }
    }
    return found;
  });
}

/** The interactive elements that a screen reader could not name. */
function nameless(page) {
  return page.evaluate(() => [...document.querySelectorAll(
    "a[href], button, input, select, summary, [role=progressbar], [role=img], [tabindex]")]
    .filter((e) => {
      const label = e.getAttribute("aria-label") || e.textContent.trim() || e.labels?.[0]?.textContent
        || document.getElementById(e.getAttribute("aria-labelledby"))?.textContent;
      const isSeen = e.getClientRects().length > 0;
      return isSeen && !label;
    }).map((e) => e.outerHTML.slice(0, 120)));
}

/** Runs the body in both colour schemes of an open page. */
async function inBothSchemes(page, body) {
  for (const colorScheme of ["light", "dark"]) {
    await page.emulateMedia({ colorScheme });
    await drawn(page);
    await body(colorScheme);
  }
  await page.emulateMedia({ colorScheme: null });
}

describe("contrast", () => {
  test("all text of all states has at least 4.5:1 in light and in dark", async (t) => {
    await withWorld(everyState(), {}, (page) => inBothSchemes(page, async (colorScheme) => {
      const found = await contrasts(page);
      for (const words of Object.values(STATE_WORDS)) {
        assert.ok(found.some((f) => f.text === words), `${words} was measured`);
      }
      assert.deepEqual(found.filter((f) => f.ratio < 4.5), []);
      t.diagnostic(`overview, ${colorScheme}: ${found.length} texts, least ${Math.min(...found.map((f) => f.ratio)).toFixed(2)}:1`);
    }));
    for (const id of [1, 2, 3, 6, 7]) {
      await withWorld(everyState(), {}, async (page) => {
        await page.click("#scale");
        await inBothSchemes(page, async () => {
          const found = await contrasts(page);
          assert.ok(found.length > 30);
          assert.deepEqual(found.filter((f) => f.ratio < 4.5), []);
        });
      }, `#/resource/${id}`);
    }
  });
});

describe("the rules of axe-core", () => {
  const axe = readFileSync(createRequire(import.meta.url).resolve("axe-core"), "utf8");

  /** What the rules find in the page as it is shown, in a line each; and how many of them looked at something. */
  async function audit(page) {
    await page.evaluate(axe);
    const { violations, passes } = await page.evaluate(() => window.axe.run(document, { resultTypes: ["violations"] }));
    return { looked: passes.length,
      found: violations.flatMap(({ id, nodes }) => nodes.map((n) => `${id}: ${n.target} ${n.failureSummary}`)) };
  }

  for (const [what, world, hash] of [["the overview", busyServer, ""], ["every state", everyState, ""],
    ["many resources, with their search", () => largeServer(40), ""], ["the first minutes", freshServer, ""],
    ["a resource that runs out", busyServer, "#/resource/1"], ["one with its largest users", busyServer, "#/resource/2"],
    ["one that collects", busyServer, "#/resource/4"], ["one that is not there", busyServer, "#/resource/99"]]) {
    test(`find nothing in ${what}, light and dark`, async () => {
      await withWorld(world(), {}, async (page) => {
        const isResource = await page.isVisible("#detail");
        if (isResource) {
          await page.waitForSelector("#beside:not([hidden])");
          await page.click("#as-table");
        }
        await inBothSchemes(page, async () => {
          const { looked, found } = await audit(page);
          assert.ok(looked > 20, `${looked} rules looked at something`);
          assert.deepEqual(found, []);
        });
      }, hash);
    });
  }

  test("find what is wrong", async () => {
    await withWorld(busyServer(), {}, async (page) => {
      await page.evaluate(() => {
        document.getElementById("headline").style.color = "#eee";
        document.querySelector("main").append(document.createElement("button"));
      });
      const { found } = await audit(page);
      assert.ok(found.some((f) => f.startsWith("color-contrast")) && found.some((f) => f.startsWith("button-name")),
        found.join("\n"));
    });
  });
});

describe("structure", () => {
  for (const hash of ["", "#/resource/2"]) {
    test(`landmarks, one heading of the first level, and a name for everything in ${hash || "the overview"}`, async () => {
      await withWorld(largeServer(20), {}, async (page) => {
        assert.deepEqual(await nameless(page), []);
        for (const landmark of ["header", "nav", "main", "footer"]) {
          assert.ok(await page.locator(landmark).count() >= 1, landmark);
        }
        assert.equal(await page.locator("h1:visible").count(), 1);
        assert.equal(await page.getAttribute("html", "lang"), "en");
        const ids = await page.$$eval("[id]", (all) => all.map((e) => e.id));
        assert.equal(new Set(ids).size, ids.length, "no id twice");
        const dangling = await page.$$eval("[aria-labelledby], [aria-describedby], [aria-controls]", (all) => all
          .flatMap((e) => ["aria-labelledby", "aria-describedby", "aria-controls"].map((a) => e.getAttribute(a)))
          .filter((id) => id && !document.getElementById(id)));
        assert.deepEqual(dangling, []);
        const styled = await page.$$eval("[onclick], [onload], script:not([src])", (all) => all.length);
        assert.equal(styled, 0);
      }, hash);
    });
  }

  test("a screen reader is given a table with headers, and each row by its name", async () => {
    await withWorld(busyServer(), {}, async (page) => {
      const table = page.getByRole("table", { name: "Resources" });
      assert.equal(await table.getByRole("columnheader").count(), 6);
      assert.equal(await table.getByRole("row").count(), 11);
      assert.equal(await table.getByRole("rowheader").count(), 10);
      assert.equal(await page.getByRole("link", { name: "/data", exact: true }).count(), 2);
    });
  });
});

describe("keyboard", () => {
  test("reaches the skip link, the rows, a resource, its buttons, and comes back", async () => {
    await withWorld(busyServer(), {}, async (page) => {
      const focused = () => page.evaluate(() => document.activeElement.id || document.activeElement.getAttribute("href"));
      const walk = [];
      for (let i = 0; i < 5; i++) {
        await page.keyboard.press("Tab");
        walk.push(await focused());
      }
      assert.deepEqual(walk, ["skip", "#/", "to-events", "#/resource/1", "#/resource/2"]);
      const outline = await page.evaluate(() =>
        getComputedStyle(document.activeElement.closest("tr")).outlineStyle);
      assert.equal(outline, "solid", "the focused row is outlined");
      await page.keyboard.press("Enter");
      await page.waitForSelector("#chart canvas");
      const inside = [];
      for (let i = 0; i < 3; i++) {
        await page.keyboard.press("Tab");
        inside.push(await focused());
      }
      assert.deepEqual(inside, ["zoom-in", "scale", "as-table"]);
      await page.keyboard.press("Enter");
      assert.equal(await page.isVisible("#sample-table"), true);
      await page.keyboard.press("Escape");
      await page.waitForSelector("#overview:not([hidden])");
      assert.equal(await focused(), "#/resource/2");
    });
  });

  test("the skip link leads to the resources", async () => {
    await withWorld(busyServer(), {}, async (page) => {
      await page.keyboard.press("Tab");
      await page.keyboard.press("Enter");
      await page.keyboard.press("Tab");
      assert.equal(await page.evaluate(() => document.activeElement.getAttribute("href")), "#/resource/1");
    });
  });

  test("/ leads to the search, Escape empties it", async () => {
    await withWorld(largeServer(30), {}, async (page) => {
      await page.keyboard.press("/");
      await page.keyboard.type("volume007");
      assert.equal(await page.inputValue("#search"), "volume007");
      assert.equal(await page.locator("#rows > tr").count(), 1);
      await page.keyboard.press("Escape");
      assert.equal(await page.locator("#rows > tr").count(), 30);
    });
  });
});

describe("small screens", () => {
  for (const hash of ["", "#/resource/1", "#/resource/2"]) {
    test(`nothing is wider than the window in ${hash || "the overview"}`, async () => {
      await withWorld(busyServer(), { own: true }, async (page) => {
        if (hash) {
          await page.waitForSelector("#chart canvas");
          await page.click("#as-table");
        }
        for (const width of [1024, 768, 390, 320]) {
          await page.setViewportSize({ width, height: 844 });
          await page.waitForFunction((expected) => window.innerWidth === expected, width);
          await drawn(page); // a chart takes its new width once the page is laid out
          assert.equal(await page.evaluate(() => document.documentElement.scrollWidth <= window.innerWidth), true, `${width} px`);
          const wide = await page.evaluate(() => [...document.querySelectorAll("body *")]
            .filter((e) => e.getClientRects().length > 0 && !e.closest(".unseen, .skip, svg, thead, .chart")
              && e.getBoundingClientRect().right > window.innerWidth + 0.5)
            .map((e) => `${e.tagName}.${e.className} ${e.getBoundingClientRect().right}`));
          assert.deepEqual(wide, [], `${width} px`);
        }
      }, hash);
    });
  }

  test("rows become cards with everything in them", async () => {
    await withWorld(busyServer(), { viewport: { width: 390, height: 844 } }, async (page) => {
      const box = await page.locator("#rows > tr").first().boundingBox();
      assert.ok(box.height > 110 && box.width > 340, JSON.stringify(box));
      for (const cell of [".name", ".number", ".state-words", ".out", ".model", ".curve"]) {
        assert.ok(await page.locator(`#rows > tr:first-child ${cell}`).isVisible(), cell);
      }
    });
  });

  test("the chart follows the width of the window", async () => {
    await withWorld(busyServer(), { own: true }, async (page) => {
      await page.waitForSelector("#chart canvas");
      await page.setViewportSize({ width: 500, height: 800 });
      await page.waitForFunction(() => document.querySelector("#chart .uplot").getBoundingClientRect().right <= 500);
    }, "#/resource/1");
  });
});

test("nothing moves by itself", async () => {
  await withWorld(busyServer(), {}, async (page) => {
    const moving = await page.evaluate(() => [...document.querySelectorAll("*")]
      .map((e) => getComputedStyle(e))
      .filter((s) => parseFloat(s.transitionDuration) > 0 || s.animationName !== "none").length);
    assert.equal(moving, 0);
  });
});
