// What the test files have in common: a world behind an agent, shown in a page.
import { open, withPage } from "./browser.mjs";
import { MockAgent } from "./mockAgent.mjs";

/** Opens the page on a made-up machine, runs the body with the page and the agent, and takes both away. */
export async function withWorld(browser, world, options, body, hash = "") {
  const agent = await new MockAgent(world).start();
  try {
    await withPage(browser, agent.url, options, async (page) => {
      await open(page, agent.url, hash);
      await body(page, agent);
    });
  } finally {
    await agent.stop();
  }
}
