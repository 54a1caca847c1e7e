import { numbersOf } from "./numbers.js";
import { Samples } from "./samples.js";
import { splitUnit } from "./units.js";

/** Rows a topic keeps: two minutes of a loop that ticks every 20 ms. */
const kRows = 6_000;
/** Changes that a memory key keeps. */
const kKeyRows = 2_000;

/** The topic of numbers that are watched by their memory keys. */
export const kMemory = "memory";
const kValue = "value";

/** One number of one topic, as something to plot. */
export interface SeriesName {
  topic: string;
  /** Its path in the topic's messages. */
  field: string;
}

export function seriesKey({ topic, field }: SeriesName): string {
  return `${topic} ${field}`;
}

export function parseSeriesKey(key: string): SeriesName | undefined {
  const space = key.indexOf(" ");
  return space > 0 ? { topic: key.slice(0, space), field: key.slice(space + 1) } : undefined;
}

/** "/feet" and "left_total_weight_kg" as "feet: left total weight"; a memory key as it is. */
export function seriesLabel({ topic, field }: SeriesName): string {
  return topic === kMemory ? field : `${topicLabel(topic)}: ${splitUnit(field).label}`;
}

export function topicLabel(topic: string): string {
  return topic.slice(1).replaceAll("_", " ");
}

export function seriesUnit({ topic, field }: SeriesName): string {
  switch (topic) {
    case kMemory:
      return "";
    case "/joint_states":
      return "°";
    default: {
      const { unit } = splitUnit(field);
      return kShown.get(unit)?.unit ?? unit;
    }
  }
}

/** Angles are told in rad and read in degrees. */
const kDegrees = 180 / Math.PI;
const kShown: ReadonlyMap<string, { unit: string; factor: number }> = new Map([
  ["rad", { unit: "°", factor: kDegrees }],
  ["rad/s", { unit: "°/s", factor: kDegrees }],
]);

function factorOf({ topic, field }: SeriesName): number {
  switch (topic) {
    case kMemory:
      return 1;
    case "/joint_states":
      return kDegrees;
    default:
      return kShown.get(splitUnit(field).unit)?.factor ?? 1;
  }
}

export interface Rows {
  times: Float64Array;
  values: Float64Array;
}

const kNoRows: Rows = { times: new Float64Array(), values: new Float64Array() };
/** s without a sample after which what was listened to before does not count as the same stretch. */
const kGap = 1.5;

/** The recent past of every number that the host tells. Times in seconds of the run. */
export class PlotStore {
  /** What the host remembers of a series before the page listened to it. */
  remembered: (name: SeriesName, from: number, to: number) => Rows = () => kNoRows;

  private readonly byTopic = new Map<string, Samples>();
  private readonly byKey = new Map<string, Samples>();

  /** A message of a topic. Times are in seconds of the host's clock, not decreasing for a topic. */
  add(topic: string, payload: unknown, time: number): void {
    const numbers = topic === "/joint_states" ? positionsOf(payload) : numbersOf(payload);
    samplesOf(this.byTopic, topic, kRows).push(time, numbers);
  }

  /** A memory key has this value from now on; values that are no numbers are not kept. */
  addKey(key: string, value: unknown, time: number): void {
    const number = numbersOf(value).get("");
    if (number !== undefined) {
      samplesOf(this.byKey, key, kKeyRows).push(time, new Map([[kValue, number]]));
    }
  }

  latest(name: SeriesName): number {
    return (this.samples(name)?.latest(fieldOf(name)) ?? NaN) * factorOf(name);
  }

  /** What is known of a series between two times: what was listened to, and before it what the host remembers. */
  rows(name: SeriesName, from: number, to: number): Rows {
    const samples = this.samples(name);
    if (name.topic === kMemory) {
      return samples === undefined ? kNoRows : held(samples, fieldOf(name), from, to);
    }
    const live =
      samples === undefined || samples.length === 0 ? kNoRows : samples.since(name.field, from);
    const begin = samples?.beginOf(kGap) ?? Infinity;
    const own = cut(live, Math.max(from, begin), to);
    const before = this.remembered(name, from, Math.min(own.times[0] ?? Infinity, to + 1));
    return scaled(joined(before, own), factorOf(name));
  }

  /** The value of a series at a time. */
  at(name: SeriesName, time: number): number {
    const { times, values } = this.rows(name, time - kGap, time);
    return times.length === 0 ? NaN : (values.at(-1) ?? NaN);
  }

  topics(): string[] {
    return [...this.byTopic.keys()].sort();
  }

  fields(topic: string): string[] {
    return this.byTopic.get(topic)?.fields ?? [];
  }

  /** Time of the newest message of all; -Infinity when there is none. */
  newestTime(): number {
    return Math.max(
      ...[...this.byTopic.values()].map((samples) => samples.newestTime).filter(Number.isFinite),
    );
  }

  clear(): void {
    this.byTopic.clear();
    this.byKey.clear();
  }

  private samples({ topic, field }: SeriesName): Samples | undefined {
    return topic === kMemory ? this.byKey.get(field) : this.byTopic.get(topic);
  }
}

function samplesOf(map: Map<string, Samples>, name: string, rows: number): Samples {
  let samples = map.get(name);
  if (samples === undefined) {
    samples = new Samples(rows);
    map.set(name, samples);
  }
  return samples;
}

function fieldOf({ topic, field }: SeriesName): string {
  return topic === kMemory ? kValue : field;
}

/** Rows of something that is told when it changes: it held before, and holds until now. */
function held(samples: Samples, field: string, from: number, to: number): Rows {
  const { times, values } = samples.since(field, -Infinity);
  const first = Math.max(times.filter((time) => time <= from).length - 1, 0);
  return {
    times: Float64Array.of(...times.subarray(first).map((time) => Math.max(time, from)), to),
    values: Float64Array.of(...values.subarray(first), samples.latest(field)),
  };
}

function cut({ times, values }: Rows, from: number, to: number): Rows {
  const begin = times.findIndex((time) => time >= from);
  const end = times.findLastIndex((time) => time <= to) + 1;
  return begin < 0 || end <= begin
    ? kNoRows
    : { times: times.subarray(begin, end), values: values.subarray(begin, end) };
}

function joined(before: Rows, after: Rows): Rows {
  if (before.times.length === 0) {
    return after;
  }
  return {
    times: Float64Array.of(...before.times, ...after.times),
    values: Float64Array.of(...before.values, ...after.values),
  };
}

function scaled({ times, values }: Rows, factor: number): Rows {
  return factor === 1
    ? { times, values }
    : { times, values: values.map((value) => value * factor) };
}

/** "HeadYaw" rather than "joints.HeadYaw.position". */
function positionsOf(payload: unknown): Map<string, number> {
  const positions = new Map<string, number>();
  for (const [path, value] of numbersOf(payload)) {
    const [, joint, quantity] = path.split(".");
    if (joint !== undefined && quantity === "position") {
      positions.set(joint, value);
    }
  }
  return positions;
}
