import type { LogLine, RaisedEvent } from "../host/channels.js";
import { formatDuration, formatValue } from "./format.js";
import { Ring } from "./ring.js";
import { Importance, type Said, type Subject, type Words } from "./words.js";

/** Seconds within which the same again is a repeat rather than news. */
const kRepeatWithin = 5;
/** A touch that lasts longer has its end told by itself, in seconds. */
const kLongestTouch = 10;
const kCapacity = 3_000;

/** One line of the story: an event with its repeats, a log line, or a new start of the host. */
export interface Row {
  /** Counts up. */
  id: number;
  /** Seconds of the run. */
  time: number;
  /** When it was raised for the last time. */
  last: number;
  count: number;
  kind: "event" | "micro" | "log" | "start";
  /** The event, or the category of a log line. */
  name: string;
  value: unknown;
  text: string;
  subject: Subject;
  importance: Importance;
  /** Of a log line: 1 debug to 5 fatal; 0 for anything else. */
  level: number;
  /** A touch that has ended lasted this long, in seconds. */
  duration: number | undefined;
  /** Belongs to a run of the host that is over. */
  isFormer: boolean;
}

/** What has happened, in plain words, with repeats folded into the line that they repeat. */
export class Story {
  readonly rows = new Ring<Row>(kCapacity);
  /** A row that was there has changed. */
  onChange: (row: Row) => void = () => {};

  private readonly newest = new Map<string, Row>();
  private lastTime = -Infinity;
  /** What was raised at `lastTime`: the same event can come twice, as told and as remembered. */
  private readonly atLastTime = new Set<string>();

  constructor(private readonly words: Words) {}

  addEvent({ time, name, value, isMicro }: RaisedEvent): void {
    if (this.isKnown(time, name, value)) {
      return;
    }
    const before = this.newest.get(name);
    const said = this.sayNow(name, value, before);
    if (before !== undefined && this.fold(before, said, value, time)) {
      this.onChange(before);
      return;
    }
    const row = this.push({
      ...kPlain,
      ...said,
      time,
      last: time,
      name,
      value,
      kind: isMicro ? "micro" : "event",
    });
    this.newest.set(name, row);
  }

  addLog({ time, level, category, text }: LogLine): void {
    this.push({
      ...kPlain,
      time,
      last: time,
      kind: "log",
      name: category,
      text: text.trim(),
      subject: "log",
      level,
      importance: Importance.Background,
    });
  }

  /** The host has started anew: what was before belongs to a run that is over. */
  restart(): void {
    for (const row of this.rows.newestFirst()) {
      row.isFormer = true;
    }
    this.forgetTimes();
    this.push({
      ...kPlain,
      time: 0,
      last: 0,
      kind: "start",
      name: "",
      text: "The host was started anew",
      importance: Importance.Notable,
    });
  }

  clear(): void {
    this.rows.clear();
    this.forgetTimes();
  }

  /** Rows of the present run, newest first. */
  *present(): IterableIterator<Row> {
    for (const row of this.rows.newestFirst()) {
      if (row.isFormer) {
        return;
      }
      yield row;
    }
  }

  /** The pose that had been announced at a time, and when. */
  poseAt(time: number): { name: string; since: number } | undefined {
    for (const row of this.present()) {
      if (row.name === "robotPoseChanged" && row.time <= time) {
        return { name: formatValue(row.value), since: row.time };
      }
    }
    return undefined;
  }

  /** Nobody lets go of what nobody has touched: so a sensor only tells that it is there. */
  private sayNow(name: string, value: unknown, before: Row | undefined): Said {
    const said = this.words.of(name, value);
    const isNothing = said.subject === "touch" && value === 0 && before === undefined;
    return isNothing ? { ...said, importance: Importance.Background } : said;
  }

  private fold(row: Row, said: Said, value: unknown, time: number): boolean {
    const isRelease = said.subject === "touch" && value === 0 && row.value !== 0;
    if (isRelease && time - row.last <= kLongestTouch) {
      row.duration = time - row.last;
      row.value = value;
      row.last = time;
      return true;
    }
    const isRepeat = said.text === row.text && time - row.last <= kRepeatWithin;
    if (isRepeat) {
      Object.assign(row, { value, last: time, count: row.count + 1, duration: undefined });
      return true;
    }
    // A charge that sinks while nothing else happens is one line that goes on.
    if (said.subject === "battery" && typeof value === "number" && row === this.lastNews()) {
      Object.assign(row, { text: said.text, value, time, last: time });
      return true;
    }
    // A measure that changes all the time is one line with its newest value.
    if (said.importance === Importance.Background && time - row.last <= kRepeatWithin) {
      Object.assign(row, { text: said.text, value, last: time, count: row.count + 1 });
      return true;
    }
    return false;
  }

  /** The newest row that is worth a line by itself. */
  private lastNews(): Row | undefined {
    for (const row of this.present()) {
      if (row.importance > Importance.Background) {
        return row;
      }
    }
    return undefined;
  }

  private isKnown(time: number, name: string, value: unknown): boolean {
    if (time < this.lastTime) {
      return true;
    }
    if (time > this.lastTime) {
      this.lastTime = time;
      this.atLastTime.clear();
    }
    const key = `${name} ${formatValue(value)}`;
    const isKnown = this.atLastTime.has(key);
    this.atLastTime.add(key);
    return isKnown;
  }

  private push(row: Omit<Row, "id">): Row {
    const complete = { id: this.rows.total, ...row };
    this.rows.push(complete);
    return complete;
  }

  private forgetTimes(): void {
    this.newest.clear();
    this.lastTime = -Infinity;
    this.atLastTime.clear();
  }
}

const kPlain = {
  count: 1,
  value: undefined,
  subject: "other" as Subject,
  level: 0,
  duration: undefined,
  isFormer: false,
};

/** "Head touched in front for 0.4 s", "Nothing in sight, 18 times". */
export function rowWords(row: Row): string {
  if (row.count > 1) {
    return `${row.text}, ${row.count} times`;
  }
  return row.duration === undefined ? row.text : `${row.text} for ${formatDuration(row.duration)}`;
}
