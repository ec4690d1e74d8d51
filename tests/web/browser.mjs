// The browser under test, and a page that fails its test on any console error or request elsewhere.
import assert from "node:assert/strict";
import { existsSync, mkdirSync } from "node:fs";
import path from "node:path";
import { fileURLToPath } from "node:url";
import { chromium } from "playwright-core";
import { remaining } from "./suite.mjs";

const ROOT = fileURLToPath(new URL("../../", import.meta.url));
// The browser without its own windows costs half as much processor time.
const BROWSER = process.env.LUMETRA_CHROMIUM
  ?? ["/usr/bin/chromium-headless-shell", "/usr/bin/chromium"].find((program) => existsSync(program));
const SCREENSHOTS = process.env.LUMETRA_SCREENSHOTS ?? path.join(ROOT, "build/test-results/screenshots");

export function launch() {
  return chromium.launch({
    timeout: remaining(),
    executablePath: BROWSER,
    args: ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
      "--disable-background-networking", "--disable-component-update", "--disable-sync"],
  });
}

const idle = new Map(); // pages between two tests, by the options of their contexts: a new one costs as much as a test

async function newPage(browser, options) {
  const context = await browser.newContext({ locale: "en-GB", viewport: { width: 1440, height: 900 }, ...options });
  context.setDefaultTimeout(remaining());
  return context.newPage();
}

/**
 * Runs a body with a page, and holds afterwards that the console had no error and that every request went to the page's own
 * origin. A test that takes the agent away says so with lossExpected, one that makes the page fail with what the console
 * says then (failure), one that changes more than what is in the document with own.
 */
export async function withPage(browser, origin, options, body) {
  const { lossExpected = false, failure = null, own = false, ...contextOptions } = options;
  const key = JSON.stringify(contextOptions);
  const page = (!own && idle.get(key)) || await newPage(browser, contextOptions);
  idle.delete(key);
  const errors = [];
  const elsewhere = [];
  const ownDoing = /^Canvas2D: Multiple readback operations/; // the tests look at pixels, the page does not
  const listeners = {
    console: (m) => ["error", "warning"].includes(m.type()) && !ownDoing.test(m.text()) && errors.push(m.text()),
    pageerror: (e) => errors.push(String(e)),
    request: (r) => r.url() !== "about:blank" && new URL(r.url()).origin !== new URL(origin).origin && elsewhere.push(r.url()),
  };
  Object.entries(listeners).forEach(([name, listener]) => page.on(name, listener));
  let isUsable = false;
  try {
    await body(page);
    await page.goto("about:blank");
    const lost = /^Failed to load resource: (net::ERR_|the server responded with a status of 50)/;
    assert.deepEqual(errors.filter((e) => !(lossExpected && lost.test(e)) && !failure?.test(e)), [], "console errors");
    assert.deepEqual(elsewhere, [], "requests elsewhere");
    isUsable = !own && !idle.has(key);
  } finally {
    Object.entries(listeners).forEach(([name, listener]) => page.off(name, listener));
    if (isUsable) {
      idle.set(key, page);
    } else {
      await page.context().close();
    }
  }
}

export async function open(page, url, hash = "") {
  await page.goto(url + hash);
  await page.waitForSelector("html[data-ready]");
}

/** Lets the page ask the agent at once, as it does when it is seen again. */
export function look(page) {
  return page.evaluate(() => document.dispatchEvent(new Event("visibilitychange")));
}

/** Waits until what was to be drawn is drawn. */
export function drawn(page) {
  return page.evaluate(() => new Promise((resolve) => { requestAnimationFrame(() => requestAnimationFrame(resolve)); }));
}

/**
 * Takes the page's clock into the test's hand, before the page is opened (on a page of its own). Gives a function that lets
 * the page's pause pass, and returns the next one once the page has begun it: when all answers of a round have come.
 */
export async function turnedClock(page, time = new Date()) {
  await page.clock.install({ time: time.getTime() - 3600000 }); // it runs until it is halted
  await page.clock.pauseAt(time);
  await page.addInitScript(() => {
    const start = window.setTimeout;
    window.pauses = [];
    window.setTimeout = (action, milliseconds, ...rest) => {
      if (action.name === "ask") {
        window.pauses.push(milliseconds);
      }
      return start(action, milliseconds, ...rest);
    };
  });
  return async () => {
    const before = await page.evaluate(() => window.pauses.length);
    await page.clock.runFor(await page.evaluate(() => window.pauses.at(-1)));
    await page.waitForFunction((count) => window.pauses.length > count, before, { polling: "raf" });
    return page.evaluate(() => window.pauses.at(-1));
  };
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
export async function columnsOf(page, property, selector) {
  return [...new Set((await pixelsOf(page, property, selector)).map(([x]) => x))].sort((a, z) => a - z);
}

/** Where on the canvas the colour of a custom property occurs: columns and rows, as shares of width and height. */
export function pixelsOf(page, property, selector = "#chart canvas") {
  return page.evaluate(([name, chosen]) => {
    const hex = getComputedStyle(document.documentElement).getPropertyValue(name).trim().slice(1);
    const [r, g, b] = [0, 2, 4].map((i) => parseInt(hex.slice(i, i + 2), 16));
    const canvas = document.querySelector(chosen);
    const { data } = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height);
    const found = [];
    for (let i = 0; i < data.length; i += 4) {
      if (Math.abs(data[i] - r) + Math.abs(data[i + 1] - g) + Math.abs(data[i + 2] - b) < 12 && data[i + 3] > 200) {
        found.push([((i / 4) % canvas.width) / canvas.width, Math.floor(i / 4 / canvas.width) / canvas.height]);
      }
    }
    return found;
  }, [property, selector]);
}
