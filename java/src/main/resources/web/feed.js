// One answer of the agent that is asked for again and again: sends the ETag back, so that "nothing new" costs nothing.

const PATIENCE_MS = 10000;

/** An answer that tells of a failure: its status, and when to come back if the agent said so. */
export class Refusal extends Error {
  constructor(status, retryAfter) {
    super(`status ${status}`);
    this.status = status;
    this.retryAfter = retryAfter;
  }
}

export class Feed {
  #path;
  #etag = null;

  /**
   * @param path relative to the page
   * @param isWhole tells whether an answer is one that can be shown
   */
  constructor(path, isWhole) {
    this.#path = path;
    this.isWhole = isWhole;
    this.data = null;
    this.clockSkew = 0;
  }

  /** Asks once. Returns whether there is something new; throws when there is no usable answer in time. */
  async load() {
    const stop = new AbortController();
    const timer = setTimeout(() => stop.abort(), PATIENCE_MS);
    try {
      const headers = this.#etag === null ? {} : { "If-None-Match": this.#etag };
      const answer = await fetch(this.#path, { headers, cache: "no-store", signal: stop.signal });
      this.#compareClocks(answer.headers.get("Date"));
      if (answer.status === 304) {
        return false;
      }
      if (!answer.ok) {
        throw new Refusal(answer.status, Number(answer.headers.get("Retry-After")) || 0);
      }
      const data = await answer.json();
      if (!this.isWhole(data)) {
        throw new Error(`unexpected answer from ${this.#path}`);
      }
      this.data = data;
      this.#etag = answer.headers.get("ETag");
      return true;
    } finally {
      clearTimeout(timer);
    }
  }

  /** A reader's clock may be wrong by hours, and a countdown must not be; a few seconds are only the way. */
  #compareClocks(date) {
    const skew = date === null ? 0 : Date.parse(date) / 1000 - Date.now() / 1000;
    this.clockSkew = Math.abs(skew) < 5 || Number.isNaN(skew) ? 0 : skew;
  }
}
