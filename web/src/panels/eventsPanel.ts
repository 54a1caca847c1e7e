import type { LogLine, RaisedEvent } from "../host/channels.js";
import { Entries, type Entry } from "../model/entries.js";
import { fits } from "../model/eventFilter.js";
import { formatClock } from "../model/format.js";
import { h, setText } from "../ui/dom.js";
import { EventLanes } from "./eventLanes.js";

const kMostRows = 200;
const kLevelNames = ["", "debug", "info", "warning", "error", "fatal"];
const kWarning = 3;

/** What has happened: a strip of the last minute and a list, newest first. */
export class EventsPanel {
  private readonly entries = new Entries();
  private readonly lanes = new EventLanes();
  private readonly list = h("ol", {
    class: "entries",
    "aria-label": "Events, newest first",
    tabindex: 0,
  });
  private readonly empty = h("p", { class: "empty" });
  private readonly filter = h("input", {
    type: "search",
    placeholder: "Filter, as bumper",
    "aria-label": "Filter events",
  });
  private readonly logs = h("input", { type: "checkbox" });
  private readonly pause = h("button", { type: "button", "aria-pressed": "false" }, "Pause");
  private isPaused = false;
  /** Entries below this id came before the list was cleared. */
  private firstId = 0;
  /** Entries from this id on have not been listed yet. */
  private nextId = 0;

  constructor(parent: HTMLElement) {
    const clear = h("button", { type: "button" }, "Clear");
    const logs = h("label", { class: "check" }, this.logs, "Log lines");
    parent.append(
      h("div", { class: "tools" }, this.filter, logs, this.pause, clear),
      this.lanes.element,
      this.empty,
      this.list,
    );
    this.filter.addEventListener("input", () => {
      this.relist();
    });
    this.logs.addEventListener("change", () => {
      this.relist();
    });
    this.pause.addEventListener("click", () => {
      this.togglePause();
    });
    clear.addEventListener("click", () => {
      this.firstId = this.entries.ring.total;
      this.relist();
    });
    this.relist();
  }

  addEvent(event: RaisedEvent): void {
    this.entries.addEvent(event);
  }

  addLog(line: LogLine): void {
    this.entries.addLog(line);
  }

  /** Shows what came since the last time; nothing while paused. @param now seconds of the host's clock */
  render(now: number): void {
    if (this.isPaused) {
      const waiting = this.entries.ring.total - this.nextId;
      setText(this.pause, waiting === 0 ? "Resume" : `Resume (${waiting} new)`);
      return;
    }
    this.listNew();
    this.lanes.draw(this.shown(), now);
  }

  private togglePause(): void {
    this.isPaused = !this.isPaused;
    this.pause.setAttribute("aria-pressed", String(this.isPaused));
    setText(this.pause, this.isPaused ? "Resume" : "Pause");
  }

  private relist(): void {
    this.list.replaceChildren();
    this.nextId = Math.max(this.firstId, this.entries.ring.total - this.entries.ring.length);
    this.listNew();
  }

  /** Puts the rows of new entries on top. Where a reader has scrolled down, what is read stays put. */
  private listNew(): void {
    const rows: HTMLElement[] = [];
    for (const entry of this.entries.ring.newestFirst()) {
      if (entry.id < this.nextId || rows.length >= kMostRows) {
        break;
      }
      if (this.isShown(entry)) {
        rows.push(rowOf(entry));
      }
    }
    this.nextId = this.entries.ring.total;
    if (rows.length > 0) {
      const before = this.list.scrollHeight;
      this.list.prepend(...rows);
      if (this.list.scrollTop > 0) {
        this.list.scrollTop += this.list.scrollHeight - before;
      }
      while (this.list.childElementCount > kMostRows) {
        this.list.lastElementChild?.remove();
      }
    }
    const isEmpty = this.list.childElementCount === 0;
    this.empty.hidden = !isEmpty;
    setText(
      this.empty,
      this.filter.value === ""
        ? "Nothing has happened since this page was opened."
        : "Nothing fits the filter.",
    );
  }

  private *shown(): IterableIterator<Entry> {
    for (const entry of this.entries.ring.newestFirst()) {
      if (entry.id < this.firstId) {
        return;
      }
      if (this.isShown(entry)) {
        yield entry;
      }
    }
  }

  private isShown(entry: Entry): boolean {
    const isWanted = entry.kind !== "log" || this.logs.checked;
    return isWanted && fits(`${entry.name} ${entry.text}`, this.filter.value);
  }
}

function rowOf(entry: Entry): HTMLElement {
  const level = kLevelNames[entry.level] ?? "";
  const name = h("span", { class: "name" }, entry.name);
  if (level !== "") {
    name.prepend(h("span", { class: "tag" }, level), " ");
  }
  return h(
    "li",
    { class: entry.level >= kWarning ? "entry warning" : `entry ${entry.kind}` },
    h("time", {}, formatClock(entry.time)),
    name,
    h("span", { class: "value" }, entry.text),
  );
}
