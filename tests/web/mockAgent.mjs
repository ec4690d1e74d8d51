// An agent for the browser tests: serves the page with the headers of the real one, and answers that a test makes up.
import { createHash } from "node:crypto";
import { readFile } from "node:fs/promises";
import { createServer } from "node:http";
import path from "node:path";
import { fileURLToPath } from "node:url";

const WEB = fileURLToPath(new URL("../../java/src/main/resources/web/", import.meta.url));
const TYPES = { ".html": "text/html; charset=utf-8", ".js": "text/javascript; charset=utf-8",
  ".css": "text/css; charset=utf-8", ".svg": "image/svg+xml" };
const POLICY = "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; connect-src 'self'; "
  + "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

export class MockAgent {
  constructor(world) {
    this.world = world;
    this.refuse = 0; // a status that every answer of the interface has instead,
    this.refused = /./; // or those whose path matches
    this.requests = [];
    this.server = createServer((request, response) => this.#answer(request, response));
  }

  async start(port = 0) {
    await new Promise((resolve, reject) => {
      this.server.once("error", reject);
      this.server.listen(port, "127.0.0.1", resolve);
    });
    this.port = this.server.address().port;
    this.url = `http://127.0.0.1:${this.port}/`;
    return this;
  }

  async stop() {
    this.server.closeAllConnections();
    await new Promise((resolve) => this.server.close(resolve));
  }

  /** Goes away as a killed agent does; start(port) brings it back. */
  async vanish() {
    await this.stop();
    this.server = createServer((request, response) => this.#answer(request, response));
  }

  async #answer(request, response) {
    const { pathname } = new URL(request.url, this.url);
    response.setHeader("Content-Security-Policy", POLICY);
    response.setHeader("X-Content-Type-Options", "nosniff");
    response.setHeader("Date", new Date(this.world.now * 1000).toUTCString());
    if (pathname.startsWith("/api/v1/")) {
      this.#json(request, response, pathname.slice("/api/v1/".length));
      return;
    }
    const name = pathname === "/" ? "index.html" : path.basename(pathname);
    try {
      const bytes = await readFile(path.join(WEB, name));
      response.setHeader("Content-Type", TYPES[path.extname(name)] ?? "text/plain; charset=utf-8");
      response.end(bytes);
    } catch {
      response.writeHead(404).end();
    }
  }

  #json(request, response, name) {
    this.requests.push({ name, etag: request.headers["if-none-match"] ?? null });
    const refuse = this.refused.test(name) ? this.refuse : 0;
    const found = refuse === 0 ? this.world.answer(name) : undefined;
    const status = refuse || (found === undefined ? 404 : 200);
    const text = JSON.stringify(found ?? { error: { status, message: "No." } });
    const etag = `"${createHash("sha256").update(text).digest("hex").slice(0, 16)}"`;
    response.setHeader("Content-Type", "application/json; charset=utf-8");
    response.setHeader("Cache-Control", "no-cache");
    if (status === 200) {
      response.setHeader("ETag", etag);
      if (request.headers["if-none-match"] === etag) {
        this.requests.at(-1).unchanged = true;
        response.writeHead(304).end();
        return;
      }
    }
    response.writeHead(status).end(text);
  }
}
