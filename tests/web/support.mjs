// What the test files have in common: a world behind an agent, shown in a page.
import { open, turnedClock, withPage } from "./browser.mjs";
import { MockAgent } from "./mockAgent.mjs";

/** Opens the page on a made-up machine, runs the body with the page and the agent, and takes both away. */
export async function withWorld(browser, world, options, body, hash = "") {
  await withAgent(world, (agent) => withPage(browser, agent.url, options, async (page) => {
    await open(page, agent.url, hash);
    await body(page, agent);
  }));
}

/** Runs the body with an agent for a made-up machine. */
export async function withAgent(world, body) {
  const agent = await new MockAgent(world).start();
  try {
    await body(agent);
  } finally {
    await agent.stop();
  }
}

/** The same with a page whose clock stands; the body also gets what lets the page's pause pass. */
export function withTurnedWorld(browser, world, options, body) {
  return withAgent(world, (agent) => withPage(browser, agent.url, { own: true, ...options }, async (page) => {
    const pass = await turnedClock(page, new Date(world.now * 1000));
    await open(page, agent.url);
    await body(page, agent, pass);
  }));
}
