import type { LogLine, RaisedEvent } from "../host/channels.js";
import { formatValue } from "./format.js";
import { Ring } from "./ring.js";

/** One line of the time line. */
export interface Entry {
  /** Counts up: tells entries of the same time apart. */
  id: number;
  /** Seconds of the host's clock. */
  time: number;
  kind: "event" | "micro" | "log";
  /** The event, or the category of a log line. */
  name: string;
  text: string;
  /** Of a log line: 1 debug to 5 fatal; 0 for an event. */
  level: number;
}

const kCapacity = 2_000;

/** What has happened, newest last. */
export class Entries {
  readonly ring = new Ring<Entry>(kCapacity);

  addEvent(event: RaisedEvent): Entry {
    return this.add({
      time: event.time,
      kind: event.isMicro ? "micro" : "event",
      name: event.name,
      text: formatValue(event.value),
      level: 0,
    });
  }

  addLog(line: LogLine): Entry {
    return this.add({
      time: line.time,
      kind: "log",
      name: line.category,
      text: line.text.trim(),
      level: line.level,
    });
  }

  private add(entry: Omit<Entry, "id">): Entry {
    const complete = { id: this.ring.total, ...entry };
    this.ring.push(complete);
    return complete;
  }
}
