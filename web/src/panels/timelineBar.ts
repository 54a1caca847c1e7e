import { formatRunTime } from "../model/format.js";
import { poseWords } from "../model/poses.js";
import type { RunClock } from "../model/runClock.js";
import type { TimeControl, TimeView } from "../model/timeControl.js";
import { Importance } from "../model/words.js";
import { themeColor } from "../ui/colors.js";
import { h, setAttribute, setText, svg } from "../ui/dom.js";

const kSpeeds = [0.1, 0.25, 0.5, 1, 2, 5, 10, 0];
/** s by the arrow keys; with Shift, with Alt. */
const kSteps = { plain: 1, shift: 10, alt: 0.1 };
const kPoseHeight = 14;
/** s before an event that is looked at, so that it is seen to happen. */
const kLead = 0.2;

/** Something that happened, as a mark. */
export interface Mark {
  time: number;
  text: string;
  importance: Importance;
  /** The pose that it announces. */
  pose: string | undefined;
}

/** One line of time under everything: where one looks, what happened when, and the way back to the present. */
export class TimelineBar {
  /** The reader wants what is remembered kept: the last so many seconds. */
  onKeep: (seconds: number) => void = () => {};

  private readonly play = iconButton("Pause", "pause", "play");
  private readonly back = iconButton("Event before (P)", "back", "step");
  private readonly next = iconButton("Next event (N)", "next", "step");
  private readonly live = h(
    "button",
    { type: "button", class: "primary to-live", hidden: true },
    "Return to live",
  );
  private readonly keep = h("button", { type: "button", class: "keep" }, "Keep this");
  private readonly speed = h("select", { "aria-label": "Speed" });
  private readonly canvas = h("canvas", { "aria-hidden": "true" });
  private readonly slider = h("input", {
    type: "range",
    min: 0,
    max: 1,
    step: "any",
    "aria-label": "Time",
  });
  private readonly place = h("p", { class: "place" });
  private readonly hover = h("p", { class: "hover", hidden: true });
  private marks: readonly Mark[] = [];
  private times: readonly number[] = [];
  private drawn = "";

  constructor(
    private readonly element: HTMLElement,
    private readonly control: () => TimeControl,
    private readonly clock: RunClock,
  ) {
    this.speed.append(
      ...kSpeeds.map((speed) =>
        h("option", { value: speed, selected: speed === 1 }, speed === 0 ? "max" : `${speed}×`),
      ),
    );
    element.append(
      h(
        "div",
        { class: "moves", role: "group", "aria-label": "Move in time" },
        this.back,
        this.play,
        this.next,
      ),
      h("div", { class: "track" }, this.canvas, this.slider, this.hover),
      this.place,
      this.speed,
      this.live,
      this.keep,
    );
    this.connect();
  }

  /** @param marks rising; @param times those among which the reader steps, rising */
  setMarks(marks: readonly Mark[], times: readonly number[]): void {
    this.marks = marks;
    this.times = times;
    this.drawn = "";
  }

  applyTheme(): void {
    this.drawn = "";
  }

  /** @param isKeepable the host remembers, and writes it down when asked */
  render(isKeepable: boolean): void {
    const { view } = this.control();
    this.element.dataset["kind"] = view.kind;
    const isPlaying = view.isPlaying;
    setIcon(this.play, isPlaying ? "pause" : "play");
    const action = isPlaying ? (view.kind === "live" ? "Hold this moment" : "Pause") : "Play";
    setAttribute(this.play, "aria-label", action);
    setAttribute(this.play, "title", `${action} (Space)`);
    this.live.hidden = view.kind !== "past";
    this.keep.hidden = !isKeepable;
    const kept = `Save the last ${Math.round(this.keptSeconds(view))} s as a recording`;
    setAttribute(this.keep, "title", kept);
    this.speed.hidden = view.kind === "live";
    if (document.activeElement !== this.speed) {
      this.speed.value = String(kSpeeds.includes(view.speed) ? view.speed : 1);
    }
    setText(this.place, this.placeWords(view));
    this.showSlider(view);
    this.draw(view);
  }

  /** Acts on a key that is pressed anywhere on the page; false when it means nothing here. */
  press(event: KeyboardEvent): boolean {
    const control = this.control();
    const { view } = control;
    const step = event.altKey ? kSteps.alt : event.shiftKey ? kSteps.shift : kSteps.plain;
    switch (event.key) {
      case " ":
        control.setPlaying(!view.isPlaying);
        return true;
      case "ArrowLeft":
        control.seek(view.time - step);
        return true;
      case "ArrowRight":
        control.seek(view.time + step);
        return true;
      case "Home":
        control.seek(view.begin);
        return true;
      case "End":
        control.toEnd();
        return true;
      case "n":
      case "p":
        control.step(event.key === "n" ? 1 : -1, this.times);
        return true;
      case ",":
      case ".":
        control.tick(event.key === "." ? 1 : -1);
        return true;
      case "[":
      case "]":
        this.bound(event.key === "[");
        return true;
      case "l":
        control.setLoop(undefined);
        return true;
      default:
        return false;
    }
  }

  private connect(): void {
    this.play.addEventListener("click", () => {
      this.control().setPlaying(!this.control().view.isPlaying);
    });
    this.back.addEventListener("click", () => {
      this.control().step(-1, this.times);
    });
    this.next.addEventListener("click", () => {
      this.control().step(1, this.times);
    });
    this.live.addEventListener("click", () => {
      this.control().toEnd();
    });
    this.keep.addEventListener("click", () => {
      this.onKeep(this.keptSeconds(this.control().view));
    });
    this.speed.addEventListener("change", () => {
      this.control().setSpeed(Number(this.speed.value));
    });
    this.slider.addEventListener("input", () => {
      this.control().seek(Number(this.slider.value));
    });
    this.slider.addEventListener("keydown", (event) => {
      if (this.press(event)) {
        event.preventDefault();
        event.stopPropagation();
      }
    });
    this.slider.addEventListener("pointermove", (event) => {
      this.showHover(event.offsetX);
    });
    this.slider.addEventListener("pointerleave", () => {
      this.hover.hidden = true;
    });
    new ResizeObserver(() => {
      this.drawn = "";
    }).observe(this.canvas);
  }

  /** Sets one end of the loop to where one looks. */
  private bound(isBegin: boolean): void {
    const control = this.control();
    const { time, begin, end, loop } = control.view;
    const [from, to] = loop ?? [begin, end];
    const span: readonly [number, number] = isBegin
      ? [time, Math.max(to, time)]
      : [Math.min(from, time), time];
    if (span[1] > span[0]) {
      control.setLoop(span);
    }
  }

  /** From a little before where one looks up to now; the last minute when one looks at now. */
  private keptSeconds({ kind, time, begin, end }: TimeView): number {
    const wanted = kind === "past" ? end - time + 5 : 60;
    return Math.max(1, Math.min(wanted, end - begin));
  }

  private placeWords({ kind, time, end }: TimeView): string {
    switch (kind) {
      case "live":
        return "Now";
      case "past":
        return `${this.clock.text(time)} · ${formatRunTime(end - time)} back`;
      case "playback":
        return `${formatRunTime(time)} of ${formatRunTime(end)}`;
    }
  }

  private showSlider(view: TimeView): void {
    setAttribute(this.slider, "min", view.begin.toFixed(2));
    setAttribute(this.slider, "max", view.end.toFixed(2));
    if (!this.slider.matches(":active") || view.kind === "playback") {
      this.slider.value = String(view.time);
    }
    const last = this.markAt(view.time);
    const words = last === undefined ? "" : `, ${last.text}`;
    const where =
      view.kind === "playback"
        ? `${view.time.toFixed(1)} of ${view.end.toFixed(0)} seconds`
        : view.kind === "live"
          ? "now"
          : `${(view.end - view.time).toFixed(0)} seconds ago`;
    setAttribute(this.slider, "aria-valuetext", `${where}${view.kind === "live" ? "" : words}`);
  }

  private markAt(time: number): Mark | undefined {
    return this.marks.findLast(
      (mark) => mark.time <= time && mark.importance > Importance.Background,
    );
  }

  private showHover(x: number): void {
    const { view } = this.control();
    const width = this.canvas.clientWidth;
    const time = view.begin + (x / width) * (view.end - view.begin);
    const reach = ((view.end - view.begin) * 6) / width;
    const near = this.marks
      .filter((mark) => Math.abs(mark.time - time) < reach)
      .sort((a, b) => b.importance - a.importance)[0];
    const shown = near?.time ?? time;
    setText(this.hover, `${this.clock.text(shown)}${near === undefined ? "" : ` · ${near.text}`}`);
    this.hover.style.setProperty("--x", `${Math.min(Math.max(x, 60), width - 60)}px`);
    this.hover.hidden = false;
  }

  private draw(view: TimeView): void {
    const { canvas } = this;
    const width = canvas.clientWidth;
    const height = canvas.clientHeight;
    const ratio = devicePixelRatio;
    const span = Math.max(view.end - view.begin, 1);
    // Live, a line that has not moved by a pixel is not drawn anew.
    const pixel = span / Math.max(width, 1);
    const key = [
      view.kind,
      width,
      Math.round(view.end / pixel),
      Math.round(view.time / pixel),
      String(view.loop),
      this.marks.length,
    ].join();
    if (width === 0 || key === this.drawn) {
      return;
    }
    this.drawn = key;
    canvas.width = Math.round(width * ratio);
    canvas.height = Math.round(height * ratio);
    const context = canvas.getContext("2d");
    if (context === null) {
      return;
    }
    context.setTransform(ratio, 0, 0, ratio, 0, 0);
    const x = (time: number): number => ((time - view.begin) / span) * width;
    drawPoses(context, this.marks, view, x);
    drawMarks(context, this.marks, view, x, height);
    if (view.loop !== undefined) {
      const [from, to] = view.loop.map(x) as [number, number];
      context.strokeStyle = themeColor("accent");
      context.lineWidth = 2;
      context.strokeRect(from, 1, to - from, height - 2);
    }
    drawCursor(context, x(view.time), height, view.kind === "live");
  }
}

/** Looks at an event: a little before it, so that it is seen to happen. */
export function lookAt(control: TimeControl, time: number): void {
  control.setPlaying(false);
  control.seek(
    Math.max(control.view.begin, time + (control.view.kind === "playback" ? -kLead : 0.05)),
  );
}

function drawPoses(
  context: CanvasRenderingContext2D,
  marks: readonly Mark[],
  { begin, end }: TimeView,
  x: (time: number) => number,
): void {
  const poses = marks.filter(({ pose }) => pose !== undefined);
  context.font = `11px ${getComputedStyle(document.body).fontFamily}`;
  context.textBaseline = "middle";
  context.textAlign = "left";
  poses.forEach(({ time, pose = "" }, i) => {
    const to = poses[i + 1]?.time ?? end;
    if (to < begin) {
      return;
    }
    const from = Math.max(x(time), 0);
    const width = x(to) - from;
    const isKnown = pose !== "Unknown";
    context.fillStyle = themeColor(isKnown ? "band" : "surface");
    context.fillRect(from, 0, Math.max(width - 1, 0.5), kPoseHeight);
    const text = isKnown ? poseWords(pose) : "";
    if (context.measureText(text).width + 8 < width) {
      context.fillStyle = themeColor("ink-2");
      context.fillText(text, from + 4, kPoseHeight / 2 + 0.5);
    }
  });
}

function drawMarks(
  context: CanvasRenderingContext2D,
  marks: readonly Mark[],
  { begin }: TimeView,
  x: (time: number) => number,
  height: number,
): void {
  const floor = height - 3;
  const room = floor - kPoseHeight - 2;
  context.fillStyle = themeColor("line-strong");
  context.fillRect(0, floor, context.canvas.clientWidth, 1);
  for (const importance of [
    Importance.Background,
    Importance.Ordinary,
    Importance.Notable,
    Importance.Alarming,
  ]) {
    const isAlarming = importance === Importance.Alarming;
    context.fillStyle = themeColor(
      isAlarming ? "signal" : importance === Importance.Background ? "line-strong" : "accent",
    );
    const tall = [0.25, 0.5, 0.8, 1][importance] ?? 0.5;
    const wide = isAlarming ? 3 : importance === Importance.Notable ? 2 : 1.5;
    for (const mark of marks) {
      if (mark.importance === importance && mark.time >= begin) {
        const left = x(mark.time);
        context.fillRect(left - wide / 2, floor - room * tall, wide, room * tall);
        if (isAlarming) {
          context.beginPath();
          context.moveTo(left, floor - room * 0.55);
          context.lineTo(left - 5, floor - room - 1);
          context.lineTo(left + 5, floor - room - 1);
          context.fill();
        }
      }
    }
  }
}

function drawCursor(
  context: CanvasRenderingContext2D,
  x: number,
  height: number,
  isLive: boolean,
): void {
  const at = Math.min(Math.max(x, 1.5), context.canvas.clientWidth - 1.5);
  context.fillStyle = themeColor(isLive ? "accent" : "ink");
  context.fillRect(at - 1.5, 0, 3, height);
}

const kIcons = {
  play: "M6 4l10 6-10 6z",
  pause: "M6 4h3v12H6zM11 4h3v12h-3z",
  back: "M4 4h2.5v12H4zM16 4v12L7 10z",
  next: "M13.5 4H16v12h-2.5zM4 4l9 6-9 6z",
} as const;

function iconButton(label: string, icon: keyof typeof kIcons, kind: string): HTMLButtonElement {
  return h(
    "button",
    { type: "button", class: `icon-button ${kind}`, "aria-label": label, title: label },
    svg(
      "svg",
      { viewBox: "0 0 20 20", width: 18, height: 18, "aria-hidden": "true" },
      svg("path", { d: kIcons[icon], fill: "currentColor" }),
    ),
  );
}

function setIcon(button: HTMLButtonElement, icon: keyof typeof kIcons): void {
  const path = button.querySelector("path");
  if (path !== null) {
    setAttribute(path, "d", kIcons[icon]);
  }
}
