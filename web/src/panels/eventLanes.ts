import type { Entry } from "../model/entries.js";
import { themeColor } from "../ui/colors.js";
import { h } from "../ui/dom.js";
import { WhileVisible } from "../ui/whileVisible.js";

/** Seconds that the strip shows. */
const kSpan = 60;
const kMostLanes = 8;
const kLaneHeight = 20;
const kAxisHeight = 18;
const kNameShare = 0.36;
const kTickEvery = 15;
const kDot = 3.5;

/**
 * The last minute as a strip: a lane for each event, a dot for each time it was raised. For the eye
 * only; the list says the same in words.
 */
export class EventLanes {
  readonly element: HTMLCanvasElement = h("canvas", { class: "lanes", "aria-hidden": "true" });

  private readonly visible = new WhileVisible(this.element);

  /** @param entries newest first; @param now seconds of the host's clock */
  draw(entries: Iterable<Entry>, now: number): void {
    if (!this.visible.isVisible) {
      return;
    }
    const lanes = lanesOf(entries, now - kSpan);
    const height = Math.max(lanes.size, 1) * kLaneHeight + kAxisHeight;
    const context = this.prepare(height);
    if (context === undefined) {
      return;
    }
    const width = this.element.clientWidth;
    const left = Math.min(Math.round(width * kNameShare), 220);
    const x = (time: number): number =>
      left + 8 + ((time - now + kSpan) / kSpan) * (width - left - 16);
    drawAxis(context, x, now, lanes.size * kLaneHeight, height);
    let y = 0;
    for (const [name, times] of lanes) {
      drawLane(context, name, times, { y: y + kLaneHeight / 2, left, width, x });
      y += kLaneHeight;
    }
  }

  /** Sizes the canvas in device pixels; undefined while it is not laid out. */
  private prepare(height: number): CanvasRenderingContext2D | undefined {
    const canvas = this.element;
    const ratio = devicePixelRatio;
    const width = Math.round(canvas.clientWidth * ratio);
    if (width === 0) {
      return undefined;
    }
    if (canvas.width !== width || canvas.height !== Math.round(height * ratio)) {
      canvas.width = width;
      canvas.height = Math.round(height * ratio);
      canvas.style.height = `${height}px`;
    }
    const context = canvas.getContext("2d") ?? undefined;
    context?.setTransform(ratio, 0, 0, ratio, 0, 0);
    context?.clearRect(0, 0, canvas.clientWidth, height);
    return context;
  }
}

/** Times by name since `from`, the names in the order of their first letters so that lanes stay put. */
function lanesOf(entries: Iterable<Entry>, from: number): Map<string, number[]> {
  const lanes = new Map<string, number[]>();
  for (const entry of entries) {
    if (entry.time < from) {
      break;
    }
    const times = lanes.get(entry.name);
    if (times !== undefined) {
      times.push(entry.time);
    } else if (entry.kind !== "log" && lanes.size < kMostLanes) {
      lanes.set(entry.name, [entry.time]);
    }
  }
  return new Map([...lanes].sort(([a], [b]) => a.localeCompare(b)));
}

interface Place {
  y: number;
  left: number;
  width: number;
  x: (time: number) => number;
}

function drawLane(
  context: CanvasRenderingContext2D,
  name: string,
  times: number[],
  { y, left, width, x }: Place,
): void {
  context.strokeStyle = themeColor("line");
  context.beginPath();
  context.moveTo(left + 8, y);
  context.lineTo(width - 8, y);
  context.stroke();
  context.fillStyle = themeColor("ink-2");
  context.font = `12px ${getComputedStyle(document.body).fontFamily}`;
  context.textAlign = "left";
  context.textBaseline = "middle";
  context.fillText(fitText(context, name, left), 0, y);
  context.fillStyle = themeColor("accent");
  for (const time of times) {
    context.beginPath();
    context.arc(x(time), y, kDot, 0, 2 * Math.PI);
    context.fill();
  }
}

function drawAxis(
  context: CanvasRenderingContext2D,
  x: (time: number) => number,
  now: number,
  top: number,
  height: number,
): void {
  context.fillStyle = themeColor("ink-3");
  context.font = `11px ${getComputedStyle(document.body).fontFamily}`;
  context.textBaseline = "bottom";
  const step =
    context.measureText("60 s ago").width * 1.8 > x(0) - x(-kTickEvery) ? kSpan / 2 : kTickEvery;
  for (let seconds = 0; seconds <= kSpan; seconds += step) {
    context.textAlign = seconds === 0 ? "right" : seconds === kSpan ? "left" : "center";
    const text = seconds === 0 ? "now" : `${seconds} s ago`;
    context.fillText(text, x(now - seconds), Math.max(height, top));
  }
}

function fitText(context: CanvasRenderingContext2D, text: string, width: number): string {
  let shown = text;
  while (shown.length > 1 && context.measureText(shown).width > width) {
    shown = `${shown.slice(0, -2)}…`;
  }
  return shown;
}
