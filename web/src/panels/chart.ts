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

export interface ChartEvents {
  /** The reader has marked a span of time. */
  onZoom: (from: number, to: number) => void;
  /** The reader wants the present back. */
  onReset: () => void;
}

/** Lines of one unit over time. */
export class Chart {
  readonly element: HTMLElement;

  private readonly plot: uPlot;
  private readonly observer: ResizeObserver;

  constructor(
    unit: string,
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

  /** Draws what the store has between two times, in seconds of the host's clock. */
  draw(store: PlotStore, from: number, to: number): void {
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
      scales: { x: { time: true }, y: { range: (_, low, high) => padded(low, high) } },
      axes: [
        { ...axis, space: 70, size: 26, values: (_, times) => times.map(clockText) },
        { ...axis, size: 46, values: (_, values) => values.map(axisText) },
      ],
      series: [{}, ...this.lines.map(lineOptions)],
      hooks: {
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
function padded(low: number | null, high: number | null): [number, number] {
  if (low === null || high === null) {
    return [0, 1];
  }
  const margin = Math.max((high - low) * 0.12, Math.abs(high) * 0.01, 0.02);
  return [low - margin, high + margin];
}

function clockText(seconds: number): string {
  return new Date(seconds * 1000).toTimeString().slice(0, 8);
}

function axisText(value: number): string {
  return value === null
    ? kNoValue
    : formatNumber(value, Math.abs(value) >= 100 ? 0 : 2).replace(/\.?0+$/, "");
}
