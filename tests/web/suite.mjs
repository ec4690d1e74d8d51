// How the tests wait. A test has no give-up time of its own: a busy machine would reach it. This one is that of a whole run,
// and only says what it was that hung.
import assert from "node:assert/strict";
import { setTimeout as pause } from "node:timers/promises";

const DEADLINE = performance.now() + 1000 * Number(process.env.LUMETRA_TEST_SECONDS ?? 4800);

/** Milliseconds until the deadline, for a call that wants a number. */
export function remaining() {
  return Math.max(100, DEADLINE - performance.now());
}

/** Returns the condition's value once it is true. */
export async function until(condition, what) {
  for (;;) {
    const value = await condition();
    if (value) {
      return value;
    }
    assert.ok(performance.now() < DEADLINE, `${what} did not happen before the deadline of all tests`);
    await pause(10);
  }
}
