// The page's words against those of the program at the terminal.
import assert from "node:assert/strict";
import { readFile } from "node:fs/promises";
import { test } from "node:test";
import { ahead, duration } from "../../java/src/main/resources/web/words.js";

const SHARED = new URL("../../java/src/test/resources/durations.txt", import.meta.url);

test("durations have the words that the status has", async () => {
  const lines = (await readFile(SHARED, "utf8")).trimEnd().split("\n");
  assert.ok(lines.length > 10);
  for (const line of lines) {
    const [seconds, words] = line.split("\t");
    assert.equal(duration(Number(seconds)), words, `${seconds} s`);
  }
});

test("what is ahead is told in the same words, down to its last second", () => {
  assert.equal(ahead(45.9), "in about 45 s");
  assert.equal(ahead(1), "in about 1 s");
  assert.equal(ahead(0), "any moment now");
});
