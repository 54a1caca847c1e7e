import uPlot from "uplot";
import { formatNumber, kNoValue } from "../model/format.js";
import { kMemory, seriesLabel, type PlotStore, type SeriesName } from "../model/plotStore.js";
import { themeColor } from "../ui/colors.js";
import { h } from "../ui/dom.js";

const kHeight = 148;
const kSyncKey = "plots";
/** A key keeps its value until it changes. */
const kStepped = uPlot.paths.stepped?.({ align: 1 });
const kDashes: readonly number[][] = [[], [7, 4], [2, 3]];

/** The style sheet has this many colours for lines; further lines are dashed. */
export const kLineColors = 6;

export interface ChartLine {
  name: SeriesName;
  /** Counts the lines of all charts. */
  index: number;
}

/** How much a chart shows at least, by unit: noise is not to look like news. */
const kLeastSpan: ReadonlyMap<string, number> = new Map([
  ["°", 10],
  ["°/s", 20],
  ["kg", 1],
  ["m", 0.5],
  ["°C", 5],
  ["A", 0.5],
  ["V", 1],
  ["%", 10],
  ["m/s²", 2],
]);
const kOtherSpan = 0.2;

/** A moment that is marked in the charts. */
export interface ChartMark {
  time: number;
  kind: "event" | "alarm" | "cursor";
}

export interface ChartEvents {
  /** The pointer is over this time, or over none. */
  onHover: (time: number | undefined) => void;
  /** A time on the axis, in words. */
  timeText: (time: number) => string;
  /** The reader has marked a span of time. */
  onZoom: (from: number, to: number) => void;
  /** The reader wants the present back. */
  onReset: () => void;
}

/** Lines of one unit over time. */
export class Chart {
  readonly element: HTMLElement;

  private readonly plot: uPlot;
  private marks: readonly ChartMark[] = [];
  private readonly observer: ResizeObserver;

  constructor(
    private readonly unit: string,
    private readonly lines: readonly ChartLine[],
    events: ChartEvents,
  ) {
    const box = h("div", { class: "chart-box" });
    this.element = h("figure", { class: "chart" }, h("figcaption", {}, unit), box);
    this.plot = new uPlot(this.options(events), [[], ...lines.map(() => [])], box);
    this.observer = new ResizeObserver(() => {
      if (box.clientWidth > 0) {
        this.plot.setSize({ width: box.clientWidth, height: kHeight });
      }
    });
    this.observer.observe(box);
  }

  /** Draws what the store has between two times, in seconds of the run. */
  draw(store: PlotStore, from: number, to: number, marks: readonly ChartMark[]): void {
    this.marks = marks;
    const tables = this.lines.map(({ name }): uPlot.AlignedData => {
      const { times, values } = store.rows(name, from, to);
      return [times, values];
    });
    const topics = new Set(this.lines.map(({ name }) => name.topic));
    const hasOneTopic = topics.size === 1 && !topics.has(kMemory);
    const first = tables[0];
    const data =
      hasOneTopic && first !== undefined
        ? ([first[0], ...tables.map((table) => table[1])] as uPlot.AlignedData)
        : uPlot.join(tables);
    this.plot.batch(() => {
      this.plot.setData(data, false);
      this.plot.setScale("x", { min: from, max: to });
    });
  }

  destroy(): void {
    this.observer.disconnect();
    this.plot.destroy();
    this.element.remove();
  }

  private drawMarks(plot: uPlot): void {
    const { ctx, bbox } = plot;
    const { min = 0, max = 0 } = plot.scales["x"] ?? {};
    for (const { time, kind } of this.marks) {
      if (time >= (min ?? 0) && time <= (max ?? 0)) {
        const x = Math.round(plot.valToPos(time, "x", true));
        ctx.fillStyle = themeColor(
          kind === "alarm" ? "signal" : kind === "cursor" ? "ink" : "line-strong",
        );
        ctx.fillRect(x, bbox.top, (kind === "cursor" ? 2 : 1) * devicePixelRatio, bbox.height);
      }
    }
  }

  private options(events: ChartEvents): uPlot.Options {
    const axis = {
      stroke: themeColor("ink-3"),
      grid: { stroke: themeColor("line"), width: 1 },
      ticks: { show: false },
      font: `11px ${getComputedStyle(document.body).fontFamily}`,
    };
    return {
      width: 300,
      height: kHeight,
      legend: { show: false },
      cursor: {
        sync: { key: kSyncKey },
        drag: { x: true, y: false, setScale: false },
        points: { size: 6 },
        bind: {
          dblclick: () => () => {
            events.onReset();
            return null;
          },
        },
      },
      scales: {
        x: { time: false },
        y: { range: (_, low, high) => padded(low, high, kLeastSpan.get(this.unit) ?? kOtherSpan) },
      },
      axes: [
        { ...axis, space: 70, size: 26, values: (_, times) => times.map(events.timeText) },
        { ...axis, size: 46, values: (_, values) => values.map(axisText) },
      ],
      series: [{}, ...this.lines.map(lineOptions)],
      hooks: {
        draw: [
          (plot) => {
            this.drawMarks(plot);
          },
        ],
        setCursor: [
          (plot) => {
            const { left = -1 } = plot.cursor;
            if (plot.over.matches(":hover")) {
              events.onHover(left < 0 ? undefined : plot.posToVal(left, "x"));
            }
          },
        ],
        setSelect: [
          (plot) => {
            if (plot.select.width > 4) {
              const { left, width } = plot.select;
              events.onZoom(plot.posToVal(left, "x"), plot.posToVal(left + width, "x"));
              plot.setSelect({ left: 0, top: 0, width: 0, height: 0 }, false);
            }
          },
        ],
      },
    };
  }
}

export function lineColor(index: number): string {
  return themeColor(`line-${(index % kLineColors) + 1}`);
}

function lineOptions({ name, index }: ChartLine): uPlot.Series {
  return {
    label: seriesLabel(name),
    stroke: lineColor(index),
    width: 1.75,
    dash: kDashes[Math.floor(index / kLineColors) % kDashes.length] ?? [],
    points: { show: false },
    spanGaps: true,
    ...(name.topic === kMemory && kStepped !== undefined ? { paths: kStepped } : {}),
  };
}

/** A flat line lies in the middle rather than on the edge. */
function padded(low: number | null, high: number | null, least: number): [number, number] {
  if (low === null || high === null) {
    return [0, least];
  }
  const margin = Math.max((high - low) * 0.12, (least - (high - low)) / 2);
  return [low - margin, high + margin];
}

function axisText(value: number): string {
  return value === null
    ? kNoValue
    : formatNumber(value, Math.abs(value) >= 100 ? 0 : 2).replace(/\.?0+$/, "");
}
