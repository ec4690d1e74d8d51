// The browser under test, and a page that fails its test on any console error or request elsewhere.
import assert from "node:assert/strict";
import { mkdirSync } from "node:fs";
import path from "node:path";
import { fileURLToPath } from "node:url";
import { chromium } from "playwright-core";

const ROOT = fileURLToPath(new URL("../../", import.meta.url));
const SCREENSHOTS = process.env.LUMETRA_SCREENSHOTS ?? path.join(ROOT, "build/test-results/screenshots");

export function launch() {
  return chromium.launch({
    executablePath: process.env.LUMETRA_CHROMIUM ?? "/usr/bin/chromium",
    args: ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
      "--disable-background-networking", "--disable-component-update", "--disable-sync"],
  });
}

/**
 * Runs a body with a page of its own, and holds afterwards that the console had no error and that every request went
 * to the page's own origin. A test that takes the agent away says so with lossExpected.
 */
export async function withPage(browser, origin, options, body) {
  const { lossExpected = false, ...contextOptions } = options;
  const context = await browser.newContext({ locale: "en-GB", viewport: { width: 1440, height: 900 }, ...contextOptions });
  const page = await context.newPage();
  const errors = [];
  const elsewhere = [];
  const ownDoing = /^Canvas2D: Multiple readback operations/; // the tests look at pixels, the page does not
  page.on("console", (m) => ["error", "warning"].includes(m.type()) && !ownDoing.test(m.text()) && errors.push(m.text()));
  page.on("pageerror", (e) => errors.push(String(e)));
  page.on("request", (r) => new URL(r.url()).origin !== new URL(origin).origin && elsewhere.push(r.url()));
  try {
    await body(page);
    const lost = /^Failed to load resource: (net::ERR_|the server responded with a status of 50)/;
    assert.deepEqual(errors.filter((e) => !(lossExpected && lost.test(e))), [], "console errors");
    assert.deepEqual(elsewhere, [], "requests elsewhere");
  } finally {
    await context.close();
  }
}

export async function open(page, url, hash = "") {
  await page.goto(url + hash);
  await page.waitForSelector("html[data-ready]");
}

export async function screenshot(page, name, fullPage = false) {
  mkdirSync(SCREENSHOTS, { recursive: true });
  await page.screenshot({ path: path.join(SCREENSHOTS, `${name}.png`), fullPage });
}

/** How many different colours a canvas shows, counted up to 64. */
export function distinctPixels(page, selector = "#chart canvas") {
  return page.evaluate((chosen) => {
    const canvas = document.querySelector(chosen);
    const { data } = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height);
    const seen = new Set();
    for (let i = 0; i < data.length && seen.size < 64; i += 4) {
      seen.add((data[i] << 24) | (data[i + 1] << 16) | (data[i + 2] << 8) | data[i + 3]);
    }
    return seen.size;
  }, selector);
}

/** In which columns of the canvas the colour of a custom property occurs, as shares of the width. */
export function columnsOf(page, property) {
  return page.evaluate((name) => {
    const hex = getComputedStyle(document.documentElement).getPropertyValue(name).trim().slice(1);
    const [r, g, b] = [0, 2, 4].map((i) => parseInt(hex.slice(i, i + 2), 16));
    const canvas = document.querySelector("#chart canvas");
    const { data } = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height);
    const columns = new Set();
    for (let i = 0; i < data.length; i += 4) {
      if (Math.abs(data[i] - r) + Math.abs(data[i + 1] - g) + Math.abs(data[i + 2] - b) < 12 && data[i + 3] > 200) {
        columns.add(((i / 4) % canvas.width) / canvas.width);
      }
    }
    return [...columns].sort((a, z) => a - z);
  }, property);
}
