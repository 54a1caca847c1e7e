import { formatNumber } from "../model/format.js";
import {
  kMemory,
  parseSeriesKey,
  seriesKey,
  seriesLabel,
  seriesUnit,
  topicLabel,
  type PlotStore,
  type SeriesName,
} from "../model/plotStore.js";
import { splitUnit } from "../model/units.js";
import { h, setText } from "../ui/dom.js";
import { recall, remember } from "../ui/memory.js";
import type { RunClock } from "../model/runClock.js";
import { Chart, lineColor, type ChartLine, type ChartMark } from "./chart.js";
import { KeyInput } from "./keyInput.js";

const kMostLines = 12;
const kStorageKey = "plots";
const kFirst: readonly string[] = [
  "/feet left_total_weight_kg",
  "/feet right_total_weight_kg",
  "/sonar left_m",
  "/sonar right_m",
  "/imu angle_x_rad",
  "/imu angle_y_rad",
];
const kSpans: readonly (readonly [seconds: number, text: string])[] = [
  [10, "10 seconds"],
  [30, "30 seconds"],
  [120, "2 minutes"],
];

/** Chosen numbers over time, a chart for each unit. */
export class PlotsPanel {
  /** The memory keys that are wanted have changed. */
  onKeys: (keys: readonly string[]) => void = () => {};
  /** What is shown of the past has changed. */
  onSpan: (from: number, to: number) => void = () => {};

  private chosen: SeriesName[] = chosenBefore();
  private charts: Chart[] = [];
  private values: { name: SeriesName; element: HTMLElement }[] = [];
  /** Set while the reader looks at one moment instead of the present. */
  private frozen: { from: number; to: number } | undefined;
  /** Where the reader looks, in seconds of the run, and the present. */
  private cursor: number | undefined;
  private now = 0;
  /** Where the pointer is. */
  private hovered: number | undefined;
  private marks: readonly ChartMark[] = [];

  private readonly add = h("select", { "aria-label": "Add a value to plot" });
  private readonly key = new KeyInput();
  private readonly span = h("select", { "aria-label": "Span of time" });
  private readonly pause = h("button", { type: "button", "aria-pressed": "false" }, "Hold");
  private readonly chips = h("ul", { class: "chips", "aria-label": "Plotted values" });
  private readonly area = h("div", { class: "charts" });
  private readonly hint = h("p", { class: "note" });

  constructor(
    parent: HTMLElement,
    private readonly store: PlotStore,
    private readonly clock: RunClock,
  ) {
    this.span.append(
      ...kSpans.map(([seconds, text]) =>
        h("option", { value: seconds, selected: seconds === 30 }, text),
      ),
    );
    parent.append(
      h("div", { class: "tools" }, this.add, this.key.element, this.span, this.pause),
      this.key.problem,
      this.chips,
      this.area,
      this.hint,
    );
    this.area.addEventListener("pointerleave", () => {
      this.hovered = undefined;
    });
    this.pause.addEventListener("click", () => {
      this.freeze(this.frozen === undefined ? this.present() : undefined);
    });
    this.span.addEventListener("change", () => {
      this.freeze(undefined);
    });
    this.add.addEventListener("change", () => {
      this.addChosen();
    });
    for (const event of ["pointerdown", "focus"] as const) {
      this.add.addEventListener(event, () => {
        this.offer();
      });
    }
    this.key.onKey = (key) => {
      this.addLine({ topic: kMemory, field: key });
    };
    this.offer();
    this.rebuild();
  }

  /** The memory keys that are plotted. */
  get keys(): string[] {
    return this.chosen.filter(({ topic }) => topic === kMemory).map(({ field }) => field);
  }

  /** The topics that are plotted. */
  get topics(): string[] {
    return [...new Set(this.chosen.map(({ topic }) => topic))].filter((topic) => topic !== kMemory);
  }

  setMarks(marks: readonly ChartMark[]): void {
    this.marks = marks;
  }

  /**
   * Draws the newest rows, or those around where the reader looks; what is frozen stays as it is.
   * @param now, cursor in seconds of the run; no cursor for the present
   */
  render(now: number, cursor: number | undefined): void {
    this.now = now;
    if (cursor !== this.cursor) {
      this.cursor = cursor;
      this.frozen = undefined;
      this.showPause();
    }
    const time = this.hovered ?? cursor;
    for (const { name, element } of this.values) {
      const value = time === undefined ? this.store.latest(name) : this.store.at(name, time);
      setText(element, formatNumber(value, 2));
    }
    this.showHint();
    if (this.frozen === undefined) {
      this.drawAll(this.present());
    }
  }

  /** To be called when the colours have changed. */
  rebuild(): void {
    this.charts.forEach((chart) => {
      chart.destroy();
    });
    const lines = this.chosen.map((name, index): ChartLine => ({ name, index }));
    const units = [...new Set(this.chosen.map(seriesUnit))];
    this.charts = units.map((unit) => {
      const ofUnit = lines.filter(({ name }) => seriesUnit(name) === unit);
      return new Chart(unit, ofUnit, {
        onZoom: (from, to) => {
          this.freeze({ from, to });
        },
        onReset: () => {
          this.freeze(undefined);
        },
        onHover: (time) => {
          this.hovered = time;
        },
        timeText: (time) => this.clock.text(time),
      });
    });
    this.area.replaceChildren(...this.charts.map((chart) => chart.element));
    this.showChips(lines);
    this.drawAll(this.frozen ?? this.present());
  }

  private present(): { from: number; to: number } {
    const span = Number(this.span.value);
    const { cursor } = this;
    const to =
      cursor === undefined ? this.now : Math.min(cursor + span / 2, Math.max(this.now, cursor));
    return { from: to - span, to };
  }

  private freeze(frozen: { from: number; to: number } | undefined): void {
    this.frozen = frozen;
    this.showPause();
    this.drawAll(frozen ?? this.present());
  }

  private showPause(): void {
    this.pause.setAttribute("aria-pressed", String(this.frozen !== undefined));
    setText(this.pause, this.frozen === undefined ? "Hold" : "Follow");
  }

  private drawAll({ from, to }: { from: number; to: number }): void {
    this.onSpan(from, to);
    const cursor: ChartMark[] =
      this.cursor === undefined ? [] : [{ time: this.cursor, kind: "cursor" }];
    for (const chart of this.charts) {
      chart.draw(this.store, from, to, [...this.marks, ...cursor]);
    }
  }

  private showHint(): void {
    setText(
      this.hint,
      this.charts.length === 0
        ? "Choose a value to see it over time."
        : this.hovered !== undefined
          ? `Values at ${this.clock.exact(this.hovered)}`
          : "Drag across a chart to zoom, double-click to follow again.",
    );
  }

  /** Lists what could be added, as far as it is known by now. */
  private offer(): void {
    const chosen = new Set(this.chosen.map(seriesKey));
    const groups = this.store.topics().map((topic) => {
      const options = this.store.fields(topic).map((field) => {
        const key = seriesKey({ topic, field });
        return h("option", { value: key, disabled: chosen.has(key) }, optionText({ topic, field }));
      });
      return h("optgroup", { label: topicLabel(topic) }, ...options);
    });
    this.add.replaceChildren(h("option", { value: "" }, "Add a value…"), ...groups);
  }

  private addChosen(): void {
    const name = parseSeriesKey(this.add.value);
    this.add.value = "";
    if (name !== undefined) {
      this.addLine(name);
    }
  }

  private addLine(name: SeriesName): void {
    if (this.chosen.some((other) => seriesKey(other) === seriesKey(name))) {
      this.key.tell(`${seriesLabel(name)} is plotted already.`);
    } else if (this.chosen.length >= kMostLines) {
      this.key.tell(`There is room for ${kMostLines} lines: take one away first.`);
    } else {
      this.key.tell("");
      this.choose([...this.chosen, name]);
    }
  }

  private choose(chosen: SeriesName[]): void {
    this.chosen = chosen;
    remember(kStorageKey, chosen.map(seriesKey));
    this.onKeys(this.keys);
    this.offer();
    this.rebuild();
  }

  private showChips(lines: readonly ChartLine[]): void {
    this.values = [];
    const chips = lines.map(({ name, index }) => {
      const label = seriesLabel(name);
      const swatch = h("span", { class: "swatch", "aria-hidden": "true" });
      swatch.style.background = lineColor(index);
      const value = h("strong");
      this.values.push({ name, element: value });
      const remove = h("button", { type: "button", "aria-label": `Remove ${label}` }, "×");
      remove.addEventListener("click", () => {
        this.choose(this.chosen.filter((other) => seriesKey(other) !== seriesKey(name)));
        this.add.focus();
      });
      return h(
        "li",
        { class: "chip" },
        swatch,
        label,
        value,
        h("span", { class: "unit" }, seriesUnit(name)),
        remove,
      );
    });
    this.chips.replaceChildren(...chips);
  }
}

function optionText(name: SeriesName): string {
  const unit = seriesUnit(name);
  return `${splitUnit(name.field).label}${unit === "" ? "" : ` (${unit})`}`;
}

function chosenBefore(): SeriesName[] {
  const stored = recall(kStorageKey);
  const keys = Array.isArray(stored) ? stored.map(String) : kFirst;
  return keys.slice(0, kMostLines).flatMap((key) => parseSeriesKey(key) ?? []);
}
