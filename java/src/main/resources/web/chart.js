// The large chart of one resource: samples, forecast, limit, notification level and now.

import { byId, element, setText, show } from "./dom.js";
import * as words from "./words.js";

const GAP = 5; // times the median distance of two samples
const FEW = 20; // samples that are shown as points as well, the first one being no line yet
const HEADROOM = 4; // per cent above the limit, for its label

const media = window.matchMedia("(prefers-color-scheme: dark)");

let delivery = null; // of the library, while it is under way

/** Whether there is the library to draw with. One that was not delivered with the page is asked for again. */
export function canDraw() {
  if (!window.uPlot && delivery === null) {
    delivery = element("script", { src: "uPlot.iife.min.js" });
    ["load", "error"].forEach((end) => delivery.addEventListener(end, () => {
      delivery.remove();
      delivery = null;
    }));
    document.head.append(delivery);
  }
  return Boolean(window.uPlot);
}

export class Chart {
  #box = byId("chart");
  #plot = null;
  #trend = null;
  #fit = false;
  #zoomed = false;

  constructor() {
    new ResizeObserver(() => this.#resize()).observe(this.#box);
    media.addEventListener("change", () => this.#rebuild());
    byId("zoom-in").addEventListener("click", () => this.#zoomBy(0.5));
    byId("zoom-out").addEventListener("click", () => this.#zoomBy(2));
    byId("zoom-reset").addEventListener("click", () => this.#reset());
    byId("whole").addEventListener("click", () => this.#showTime(wholeRange(this.#trend)));
    byId("scale").addEventListener("click", () => this.#toggleFit());
  }

  /** Draws a trend; a zoom that a reader has chosen stays. */
  draw(trend) {
    if (this.#trend === trend && this.#plot) {
      return;
    }
    this.#trend = trend;
    this.#legend();
    if (this.#plot) {
      const range = this.#zoomed ? this.#range() : usefulRange(trend);
      this.#plot.batch(() => {
        this.#plot.setData(chartData(trend), false);
        this.#plot.setScale("x", range);
      });
    } else {
      this.#rebuild();
    }
  }

  /** Forgets the resource; the next one starts without a zoom. */
  clear() {
    this.#plot?.destroy();
    this.#plot = null;
    this.#trend = null;
    this.#zoomed = false;
    this.#zoomButtons();
    setText(byId("readout"), "");
  }

  #rebuild() {
    if (!this.#trend || !canDraw()) {
      return;
    }
    const range = this.#zoomed && this.#plot ? this.#range() : usefulRange(this.#trend);
    this.#plot?.destroy();
    this.#plot = null;
    this.#plot = new window.uPlot(this.#options(), chartData(this.#trend), this.#box);
    this.#plot.setScale("x", range);
  }

  /** The time in sight. */
  #range() {
    const { min, max } = this.#plot.scales.x;
    return { min, max };
  }

  #resize() {
    if (this.#plot && this.#box.clientWidth > 0) {
      this.#plot.setSize(this.#size());
    }
  }

  #size() {
    const width = Math.max(240, this.#box.clientWidth);
    return { width, height: Math.round(Math.min(400, Math.max(250, width * 0.42))) };
  }

  #options() {
    const { ink, font, axis, times } = axisStyle();
    return {
      ...this.#size(),
      legend: { show: false },
      padding: [10, 22, 0, 0],
      cursor: { y: false, points: { size: 7 }, bind: { dblclick: () => () => this.#reset() },
        drag: { x: true, y: false, setScale: true } },
      scales: {
        x: { time: true, range: (u, min, max) => [min ?? 0, max ?? 1] },
        y: { range: (u, min, max) => this.#valueRange(min, max) },
      },
      axes: [
        times,
        { ...axis, size: 52, values: (u, splits) => splits.map((v) => `${+v.toFixed(2)} %`) },
      ],
      series: [
        {},
        { label: "samples", stroke: ink("--samples"), width: 2,
          points: { show: () => this.#trend.samples.times.length < FEW } },
        { label: "forecast", stroke: ink("--forecast"), width: 2, dash: [7, 5], points: { show: false } },
      ],
      hooks: {
        draw: [(u) => this.#lines(u, ink, font)],
        setCursor: [(u) => this.#readout(u)],
        setScale: [(u, key) => key === "x" && this.#noteZoom(u)],
      },
    };
  }

  #valueRange(min, max) {
    if (!this.#fit || min === null || max === null) {
      return [Math.min(0, min ?? 0), Math.max(100, max ?? 100) + HEADROOM];
    }
    const pad = Math.max((max - min) * 0.08, 0.25);
    return [Math.max(0, min - pad), max + pad];
  }

  /** The straight lines, each named where it stands. */
  #lines(u, ink, font) {
    const { ctx, bbox } = u;
    const ratio = window.uPlot.pxRatio;
    ctx.save();
    ctx.beginPath();
    ctx.rect(bbox.left, bbox.top, bbox.width, bbox.height);
    ctx.clip();
    ctx.font = font.replace("12px", `${12 * ratio}px`);
    ctx.lineWidth = 2 * ratio;
    const { limit, notificationLevel } = this.#trend;
    this.#horizontal(u, limit, "limit", ink("--limit"), [], "left");
    this.#horizontal(u, notificationLevel, "notification level", ink("--level"), [2, 3], "right");
    this.#vertical(u, nowOf(this.#trend), ink("--ink-soft"));
    ctx.restore();
  }

  #horizontal(u, value, name, colour, dash, side) {
    if (value === null || value < u.scales.y.min || value > u.scales.y.max) {
      return;
    }
    const ratio = window.uPlot.pxRatio;
    const { ctx, bbox } = u;
    const y = Math.round(u.valToPos(value, "y", true));
    stroke(ctx, colour, dash.map((d) => d * ratio), [bbox.left, y], [bbox.left + bbox.width, y]);
    const x = side === "left" ? bbox.left + 6 * ratio : bbox.left + bbox.width - 6 * ratio;
    const below = y - bbox.top < 24 * ratio;
    label(ctx, `${name} ${words.perCent(value)}`, x, y + (below ? 15 : -6) * ratio, side, colour);
  }

  #vertical(u, time, colour) {
    if (time === null || time < u.scales.x.min || time > u.scales.x.max) {
      return;
    }
    const ratio = window.uPlot.pxRatio;
    const { ctx, bbox } = u;
    const x = Math.round(u.valToPos(time, "x", true));
    stroke(ctx, colour, [1 * ratio, 3 * ratio], [x, bbox.top], [x, bbox.top + bbox.height]);
    const right = x + 40 * ratio > bbox.left + bbox.width;
    const y = bbox.top + bbox.height - 7 * ratio;
    label(ctx, "now", x + (right ? -5 : 5) * ratio, y, right ? "right" : "left", colour);
  }

  #readout(u) {
    const i = u.cursor.idx;
    if (i === null || i === undefined) {
      setText(byId("readout"), "");
      return;
    }
    const [times, samples, forecast] = u.data;
    const parts = [];
    if (typeof samples[i] === "number") {
      parts.push(`sample ${words.perCent(samples[i])}`);
    }
    if (typeof forecast[i] === "number") {
      parts.push(`forecast ${words.perCent(forecast[i])}`);
    }
    setText(byId("readout"), parts.length === 0 ? "" : `${words.chartMoment(times[i], true)}: ${parts.join(", ")}`);
  }

  #legend() {
    show(byId("key-forecast"), hasForecast(this.#trend));
    show(byId("key-limit"), this.#trend.limit !== null);
    show(byId("key-level"), this.#trend.notificationLevel !== null);
    show(byId("key-now"), nowOf(this.#trend) !== null);
  }

  #noteZoom(u) {
    this.#zoomed = !isSame(u.scales.x, usefulRange(this.#trend));
    this.#zoomButtons();
  }

  #zoomButtons() {
    const isWhole = !this.#plot || isSame(this.#plot.scales.x, wholeRange(this.#trend));
    disable(byId("zoom-out"), isWhole);
    disable(byId("whole"), isWhole);
    disable(byId("zoom-reset"), !this.#zoomed);
  }

  /** Zooms about now, where samples and forecast meet, as long as it is in sight. */
  #zoomBy(factor) {
    if (!this.#plot) {
      return;
    }
    const { min, max } = this.#range();
    const whole = wholeRange(this.#trend);
    const meeting = nowOf(this.#trend) ?? max;
    const centre = meeting >= min && meeting <= max ? meeting : (min + max) / 2;
    this.#plot.setScale("x", { min: Math.max(whole.min, centre - Math.max(1, centre - min) * factor),
      max: Math.min(whole.max, centre + Math.max(1, max - centre) * factor) });
  }

  #reset() {
    this.#showTime(usefulRange(this.#trend));
  }

  #showTime(range) {
    this.#plot?.setScale("x", range);
  }

  #toggleFit() {
    this.#fit = !this.#fit;
    byId("scale").setAttribute("aria-pressed", String(this.#fit));
    if (this.#plot) {
      this.#plot.setScale("x", this.#range());
    }
  }
}

/** A disabled button has no focus, so the one that a reader has just used hands it on. */
function disable(button, isDisabled) {
  if (isDisabled && document.activeElement === button) {
    byId("zoom-in").focus({ preventScroll: true });
  }
  button.disabled = isDisabled;
}

/** The colours of the present scheme, the font, an axis in both, and the axis of time. */
export function axisStyle() {
  const ink = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();
  const font = `12px ${getComputedStyle(document.body).fontFamily}`;
  const axis = { stroke: ink("--ink-soft"), font, grid: { stroke: ink("--grid"), width: 1 },
    ticks: { stroke: ink("--grid"), width: 1, size: 5 } };
  return { ink, font, axis, times: { ...axis, space: 70, size: 44, values: (u, splits) => timeLabels(splits) } };
}

export function stroke(ctx, colour, dash, from, to) {
  ctx.strokeStyle = colour;
  ctx.setLineDash(dash);
  ctx.beginPath();
  ctx.moveTo(...from);
  ctx.lineTo(...to);
  ctx.stroke();
}

/** Text that stays readable where a curve passes behind it. */
export function label(ctx, text, x, y, side, colour) {
  ctx.textAlign = side;
  ctx.setLineDash([]);
  ctx.lineJoin = "round";
  ctx.lineWidth *= 3;
  ctx.strokeStyle = getComputedStyle(document.documentElement).getPropertyValue("--surface");
  ctx.strokeText(text, x, y);
  ctx.lineWidth /= 3;
  ctx.fillStyle = colour;
  ctx.fillText(text, x, y);
}

function hasForecast(trend) {
  return trend.forecast !== null && trend.forecast.times.length > 0;
}

/** Where the past ends: the newest sample. */
function nowOf(trend) {
  const { times } = trend.samples;
  return times.length > 0 ? times[times.length - 1] : null;
}

function range(min, max) {
  return min === max ? { min: min - 60, max: max + 60 } : { min, max };
}

/** From the first sample to the end of the forecast. */
function wholeRange(trend) {
  const times = [trend.samples.times, hasForecast(trend) ? trend.forecast.times : []].filter((t) => t.length > 0);
  return times.length === 0 ? range(0, 0)
    : range(Math.min(...times.map((t) => t[0])), Math.max(...times.map((t) => t[t.length - 1])));
}

/**
 * What is worth seeing first: up to a while after the exhaustion, or half as far again ahead as back. A forecast
 * goes on for days, in which the samples of the first hour would be a dot.
 */
function usefulRange(trend) {
  const whole = wholeRange(trend);
  const meeting = nowOf(trend);
  if (meeting === null || !hasForecast(trend)) {
    return whole;
  }
  const first = trend.samples.times[0];
  const exhaustion = trend.secondsToExhaustion === null ? null
    : (trend.forecastAt ?? meeting) + trend.secondsToExhaustion;
  const end = exhaustion === null ? meeting + 1.5 * Math.max(60, meeting - first)
    : exhaustion + 0.15 * Math.max(60, exhaustion - first);
  return range(whole.min, Math.min(whole.max, Math.max(end, meeting)));
}

function isSame(one, other) {
  const room = (other.max - other.min) * 0.001;
  return Math.abs(one.min - other.min) <= room && Math.abs(one.max - other.max) <= room;
}

/** The curves as the chart wants them: one row of times; null breaks the line, undefined does not. */
function chartData(trend) {
  const samples = withGaps(trend.samples);
  const forecast = hasForecast(trend) ? trend.forecast : { times: [], values: [] };
  if (samples.times.length === 0 && forecast.times.length === 0) {
    return [[], [], []];
  }
  return window.uPlot.join([[samples.times, samples.values], [forecast.times, forecast.values]], [[1, 1], [1, 1]]);
}

/** A curve with a break wherever the agent was silent for long. */
export function withGaps({ times, values }) {
  if (times.length < 3) {
    return { times, values };
  }
  // An agent without a pause takes several samples within the same second.
  const distances = times.slice(1).map((t, i) => t - times[i]).filter((d) => d > 0).sort((a, b) => a - b);
  const most = GAP * (distances[distances.length >> 1] ?? 1);
  const out = { times: [], values: [] };
  times.forEach((t, i) => {
    if (i > 0 && t - times[i - 1] > most) {
      out.times.push((t + times[i - 1]) / 2);
      out.values.push(null);
    }
    out.times.push(t);
    out.values.push(values[i]);
  });
  return out;
}

/** Labels in the reader's zone: the clock, with the day where it changes. */
function timeLabels(splits) {
  const step = splits.length > 1 ? splits[1] - splits[0] : 60;
  let day = null;
  return splits.map((t) => {
    const date = new Date(t * 1000);
    const sameDay = day === date.toDateString();
    day = date.toDateString();
    const label = words.chartMoment(t, step < 60);
    const [weekday, clock] = label.split(" ");
    return sameDay ? clock : `${clock}\n${weekday}`;
  });
}
