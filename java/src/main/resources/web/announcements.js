// The small chart of what was announced: the moment of exhaustion over the time at which it was announced.

import { axisStyle, canDraw, label, stroke, withGaps } from "./chart.js";
import { byId, setText, show } from "./dom.js";
import * as words from "./words.js";

const FEWEST = 2; // one announcement says nothing of the next
const FEW = 20; // announcements that are shown as points as well
const HEIGHT = 210;
const MOMENT_WIDTH = 78;
const ROOM = 0.06; // of the values, above and below
const LEAST_SPAN = 120; // seconds

const media = window.matchMedia("(prefers-color-scheme: dark)");

export class AnnouncementChart {
  #box = byId("announcement-chart");
  #plot = null;
  #announcements = null;

  constructor() {
    new ResizeObserver(() => this.#resize()).observe(this.#box);
    media.addEventListener("change", () => this.#rebuild());
  }

  /** Draws the announcements of a trend; without any to compare there is no chart at all. */
  draw(announcements, now) {
    const isShown = (announcements?.times.length ?? 0) >= FEWEST;
    show(byId("announcements"), isShown);
    if (!isShown) {
      this.#forget();
      return;
    }
    setText(byId("announcement-summary"), words.announcementSummary(announcements, now));
    if (this.#announcements !== announcements || !this.#plot) {
      this.#announcements = announcements;
      if (this.#plot) {
        this.#plot.setData(this.#data());
      } else {
        this.#rebuild();
      }
    }
  }

  clear() {
    show(byId("announcements"), false);
    this.#forget();
  }

  #forget() {
    this.#plot?.destroy();
    this.#plot = null;
    this.#announcements = null;
  }

  #rebuild() {
    this.#plot?.destroy();
    this.#plot = null;
    if (this.#announcements && canDraw()) {
      this.#plot = new window.uPlot(this.#options(), this.#data(), this.#box);
    }
  }

  #data() {
    const { times, values } = withGaps(this.#announcements);
    return [times, values];
  }

  #resize() {
    if (this.#plot && this.#box.clientWidth > 0) {
      this.#plot.setSize(this.#size());
    }
  }

  #size() {
    return { width: Math.max(240, this.#box.clientWidth), height: HEIGHT };
  }

  #options() {
    const { ink, font, axis, times } = axisStyle();
    return {
      ...this.#size(),
      legend: { show: false },
      padding: [10, 22, 0, 0],
      cursor: { show: false },
      scales: {
        x: { time: true, range: (u, min, max) => widened(min ?? 0, max ?? 0) },
        y: { time: true, range: () => this.#momentRange() },
      },
      axes: [times, { ...axis, size: MOMENT_WIDTH, space: 32, values: (u, splits) => splits.map((t) => words.chartMoment(t)) }],
      series: [
        {},
        { label: "announced", stroke: ink("--forecast"), width: 2, points: { show: () => this.#announcements.times.length < FEW } },
      ],
      hooks: { draw: [(u) => drawNow(u, ink("--ink-soft"), font)] },
    };
  }

  /**
   * Announced moments and the line of the present together: beside it a steady forecast is seen to be level and a
   * receding one to run along.
   */
  #momentRange() {
    const { times, values } = this.#announcements;
    const lowest = Math.min(times[0], ...values);
    const highest = Math.max(times.at(-1), ...values);
    const room = Math.max(LEAST_SPAN, highest - lowest) * ROOM;
    return [lowest - room, highest + room];
  }
}

function widened(min, max) {
  return max - min < LEAST_SPAN ? [min - LEAST_SPAN / 2, max + LEAST_SPAN / 2] : [min, max];
}

/** Where an announced moment would have come: now. */
function drawNow(u, colour, font) {
  const { ctx, bbox } = u;
  const ratio = window.uPlot.pxRatio;
  const { min, max } = u.scales.x;
  const at = (t) => [u.valToPos(t, "x", true), u.valToPos(t, "y", true)];
  ctx.save();
  ctx.beginPath();
  ctx.rect(bbox.left, bbox.top, bbox.width, bbox.height);
  ctx.clip();
  ctx.font = font.replace("12px", `${12 * ratio}px`);
  ctx.lineWidth = 2 * ratio;
  stroke(ctx, colour, [2 * ratio, 3 * ratio], at(min), at(max));
  const [x, y] = at(max);
  const above = bbox.top + bbox.height - y < 24 * ratio;
  label(ctx, "now", x - 5 * ratio, y + (above ? -6 : 16) * ratio, "right", colour);
  ctx.restore();
}
