// The page of a running agent, whose address LUMETRA_PAGE_URL names.
import assert from "node:assert/strict";
import { after, before, describe, test } from "node:test";
import { columnsOf, distinctPixels, launch, open, screenshot, withPage } from "./browser.mjs";
import { until } from "./suite.mjs";
import { STATE_WORDS } from "./world.mjs";

const url = process.env.LUMETRA_PAGE_URL;
const skip = url ? false : "LUMETRA_PAGE_URL names no running agent";

describe("the page of a running agent", () => {
  let browser;

  before(async () => {
    browser = url && await launch();
  });
  after(() => browser && browser.close());

  test("lists the resources that the interface lists, in its order", { skip }, async () => {
    await withPage(browser, url, {}, async (page) => {
      await open(page, url);
      await page.waitForSelector("#rows > tr");
      const ids = await page.$$eval("#rows .name", (all) => all.map((a) => Number(a.hash.split("/").at(-1))));
      const answer = await page.evaluate(async () => (await fetch("api/v1/resources")).json());
      assert.ok(ids.length > 0);
      assert.deepEqual([...ids].sort(), answer.resources.map((r) => r.id).sort());
      for (const words of await page.locator("#rows .state-words").allTextContents()) {
        assert.ok(Object.values(STATE_WORDS).includes(words), words);
      }
      assert.notEqual(await page.textContent("#headline"), "Loading…");
      await screenshot(page, "real-overview", true);
    });
  });

  test("draws the chart of the first resource that has samples", { skip }, async () => {
    await withPage(browser, url, {}, async (page) => {
      await open(page, url);
      const answer = await page.evaluate(async () => (await fetch("api/v1/resources")).json());
      const first = answer.resources.find((r) => r.samples > 1) ?? answer.resources[0];
      await page.click(`#rows a[href="#/resource/${first.id}"]`);
      await page.waitForSelector("#chart canvas");
      await until(async () => await distinctPixels(page) > 10, "a canvas that is not blank");
      await until(async () => (await columnsOf(page, "--samples")).length > 5, "a curve of samples");
      assert.match(await page.textContent("#chart-summary"), /^\d+ samples? from /);
      await screenshot(page, "real-resource", true);
    });
  });

  test("goes on without a reload, and without an error", { skip }, async () => {
    await withPage(browser, url, {}, async (page) => {
      await open(page, url);
      const answers = [];
      page.on("response", (r) => r.url().endsWith("/api/v1/resources") && answers.push(r.status()));
      await until(() => answers.length >= 2, "further answers");
      assert.ok(answers.every((s) => s === 200 || s === 304), answers.join());
    });
  });
});
