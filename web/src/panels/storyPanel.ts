import { fits } from "../model/eventFilter.js";
import { formatValue } from "../model/format.js";
import type { RunClock } from "../model/runClock.js";
import { rowWords, type Row, type Story } from "../model/story.js";
import { Importance, kSubjects, kSubjectWords, type Subject } from "../model/words.js";
import { h, setAttribute, setText, svg } from "../ui/dom.js";
import { recall, remember } from "../ui/memory.js";
import { rove } from "../ui/roving.js";

const kMostRows = 150;
const kWarning = 3;
const kLevelNames = ["", "debug", "info", "warning", "error", "fatal"];
const kStorageKey = "subjects";

/** What has happened, in plain words, newest first. */
export class StoryPanel {
  /** The reader wants to look at this moment, in seconds of the run. */
  onLook: (time: number) => void = () => {};
  /** What is listed has changed. */
  onFilter: () => void = () => {};
  /** Something was done that a reader who does not see should hear. */
  onSay: (text: string) => void = () => {};

  private readonly list = h("ol", { class: "rows", "aria-label": "What happened, newest first" });
  private readonly empty = h("p", { class: "empty" });
  private readonly filter = h("input", {
    type: "search",
    placeholder: "Filter, as bumper -left",
    "aria-label": "Filter events",
  });
  private readonly chips = h("div", { class: "subjects", role: "group", "aria-label": "Show" });
  private readonly more = h("input", { type: "checkbox" });
  private readonly hidden = chosenBefore();
  private readonly elements = new Map<number, RowElement>();
  /** Rows from this id on have not been looked at yet. */
  private nextId = 0;
  private cursor: number | undefined;

  constructor(
    parent: HTMLElement,
    private readonly story: Story,
    private readonly clock: RunClock,
  ) {
    const button = (text: string, act: () => void): HTMLElement => {
      const element = h("button", { type: "button", class: "small" }, text);
      element.addEventListener("click", act);
      return element;
    };
    const more = h(
      "label",
      { class: "check", title: "Repeats, bookkeeping and log lines as well" },
      this.more,
      "All",
    );
    parent.append(
      h(
        "div",
        { class: "tools" },
        this.filter,
        more,
        button("Copy", () => void this.copy()),
        button("Download", () => {
          this.download();
        }),
      ),
      this.chips,
      this.empty,
      this.list,
    );
    this.makeChips();
    rove(this.list);
    this.filter.addEventListener("input", () => {
      this.relist();
    });
    this.more.addEventListener("change", () => {
      this.relist();
    });
    this.list.addEventListener("click", (event) => {
      const item = (event.target as Element).closest("li");
      const time = item?.dataset["time"];
      if (time !== undefined && item?.classList.contains("former") === false) {
        this.onLook(Number(time));
      }
    });
    story.onChange = (row) => {
      this.elements.get(row.id)?.show(row, this.clock);
    };
    this.relist();
  }

  /** Times of what is listed, rising, in seconds of the run. */
  get times(): number[] {
    return this.listed()
      .filter(({ isFormer }) => !isFormer)
      .map(({ time }) => time)
      .reverse();
  }

  focusFilter(): void {
    this.filter.focus();
  }

  /** Shows what came since the last time. @param cursor where the reader looks; undefined for the present */
  render(now: number, cursor: number | undefined): void {
    this.listNew();
    this.showAges(now);
    if (cursor !== this.cursor) {
      this.cursor = cursor;
      this.showCursor();
    }
  }

  /** Lists everything anew. */
  relist(): void {
    this.elements.clear();
    this.list.replaceChildren();
    this.nextId = 0;
    this.listNew();
    this.showCursor();
    this.onFilter();
  }

  private listNew(): void {
    const total = this.story.rows.total;
    if (this.nextId !== total || this.list.childElementCount === 0) {
      const fresh: RowElement[] = [];
      for (const row of this.story.rows.newestFirst()) {
        if (row.id < this.nextId || fresh.length >= kMostRows) {
          break;
        }
        if (this.isShown(row)) {
          const element = new RowElement(row, this.clock);
          this.elements.set(row.id, element);
          fresh.push(element);
        }
      }
      this.nextId = total;
      this.prepend(fresh);
      this.empty.hidden = this.list.childElementCount > 0;
      setText(
        this.empty,
        this.filter.value === "" && this.hidden.size === 0
          ? "Nothing has happened yet."
          : "Nothing fits the filter.",
      );
    }
  }

  /** Where a reader has scrolled down, what is read stays put. */
  private prepend(fresh: readonly RowElement[]): void {
    if (fresh.length === 0) {
      return;
    }
    const before = this.list.scrollHeight;
    this.list.prepend(...fresh.map(({ element }) => element));
    if (this.list.scrollTop > 0) {
      this.list.scrollTop += this.list.scrollHeight - before;
    }
    while (this.list.childElementCount > kMostRows) {
      const last = this.list.lastElementChild as HTMLElement;
      this.elements.delete(Number(last.dataset["id"]));
      last.remove();
    }
    if (this.cursor !== undefined) {
      this.showCursor();
    }
  }

  private showAges(now: number): void {
    for (const item of this.list.children) {
      const element = this.elements.get(Number((item as HTMLElement).dataset["id"]));
      if (element?.showAge(now, this.cursor === undefined) === false) {
        break;
      }
    }
  }

  /** What had not happened yet at the cursor is pale, and what had happened last is marked. */
  private showCursor(): void {
    let isMarked = false;
    for (const { element, row } of [...this.elements.values()].sort(
      (a, b) => b.row.id - a.row.id,
    )) {
      const isLater = this.cursor !== undefined && !row.isFormer && row.time > this.cursor + 0.01;
      element.classList.toggle("later", isLater);
      const isHere: boolean = this.cursor !== undefined && !isLater && !isMarked && !row.isFormer;
      isMarked ||= isHere;
      element.classList.toggle("here", isHere);
      if (isHere) {
        element.setAttribute("aria-current", "true");
        keepInView(this.list, element);
      } else {
        element.removeAttribute("aria-current");
      }
    }
    if (this.cursor === undefined) {
      this.list.scrollTop = 0;
    }
  }

  private makeChips(): void {
    for (const subject of kSubjects.filter((name) => name !== "log")) {
      const chip = h(
        "button",
        { type: "button", class: "subject", "aria-pressed": String(!this.hidden.has(subject)) },
        iconOf(subject),
        kSubjectWords[subject],
      );
      chip.addEventListener("click", () => {
        if (!this.hidden.delete(subject)) {
          this.hidden.add(subject);
        }
        chip.setAttribute("aria-pressed", String(!this.hidden.has(subject)));
        remember(kStorageKey, [...this.hidden]);
        this.relist();
      });
      this.chips.append(chip);
    }
    rove(this.chips);
  }

  private isShown(row: Row): boolean {
    if (row.kind === "start") {
      return true;
    }
    const filter = this.filter.value;
    const isWanted =
      this.more.checked ||
      row.importance > Importance.Background ||
      row.level >= kWarning ||
      (filter.trim() !== "" && row.kind !== "log");
    return (
      isWanted &&
      !this.hidden.has(row.subject) &&
      fits(`${row.name} ${row.text} ${formatValue(row.value)}`, filter)
    );
  }

  private listed(): Row[] {
    return [...this.story.rows.newestFirst()].filter((row) => this.isShown(row));
  }

  /** As lines: time, event, value, words. */
  private lines(): string {
    const clean = (text: string): string => text.replaceAll(/[\t\n]/g, " ");
    return this.listed()
      .reverse()
      .filter(({ kind }) => kind !== "start")
      .map((row) =>
        [row.time.toFixed(3), row.name, formatValue(row.value), rowWords(row)]
          .map(clean)
          .join("\t"),
      )
      .join("\n");
  }

  private async copy(): Promise<void> {
    try {
      await navigator.clipboard.writeText(this.lines());
      this.onSay("Copied.");
    } catch {
      this.onSay("The browser did not let the page copy.");
    }
  }

  private download(): void {
    save(
      new Blob([`t_s\tname\tvalue\twords\n${this.lines()}\n`], {
        type: "text/tab-separated-values",
      }),
      "events.tsv",
    );
  }
}

/** Has the browser keep something as a file. */
export function save(data: Blob, name: string): void {
  const url = URL.createObjectURL(data);
  const link = h("a", { href: url, download: name });
  link.click();
  setTimeout(() => {
    URL.revokeObjectURL(url);
  }, 10_000);
}

class RowElement {
  readonly element: HTMLLIElement;

  private readonly words = h("span", { class: "words" });
  private readonly time = h("time");
  private readonly button: HTMLButtonElement;

  constructor(
    readonly row: Row,
    private readonly clock: RunClock,
  ) {
    this.button = h(
      "button",
      { type: "button", class: "row" },
      iconOf(row.subject),
      this.words,
      h("span", { class: "name" }, row.name),
      this.time,
    );
    const kind = row.level >= kWarning ? "warning" : row.kind;
    this.element = h(
      "li",
      { class: kind, "data-importance": row.importance, "data-time": row.time, "data-id": row.id },
      this.button,
    );
    this.show(row, clock);
    this.showAge(row.time + 60, true);
  }

  show(row: Row, clock: RunClock): void {
    const level = kLevelNames[row.level] ?? "";
    setText(this.words, level === "" ? rowWords(row) : `${level}: ${row.text}`);
    this.element.classList.toggle("former", row.isFormer);
    setAttribute(this.element, "data-time", String(row.time));
    const value = formatValue(row.value);
    this.button.title = `${row.name} ${value} · ${clock.exact(row.time)}`;
  }

  /** False once the row is so old that its time does not change any more. */
  showAge(now: number, isLive: boolean): boolean {
    const age = now - this.row.time;
    const isFresh = isLive && age < 60 && !this.row.isFormer;
    setText(
      this.time,
      isFresh ? `${Math.max(0, Math.floor(age))} s` : this.clock.text(this.row.time),
    );
    return age < 120 || !isLive;
  }
}

/** Scrolls a list, and nothing around it. */
function keepInView(list: HTMLElement, element: HTMLElement): void {
  const top = element.offsetTop;
  if (top < list.scrollTop || top + element.offsetHeight > list.scrollTop + list.clientHeight) {
    list.scrollTop = top - list.clientHeight / 3;
  }
}

const kIcons: Readonly<Record<Subject, string>> = {
  pose: "M10 2.6a2 2 0 1 1 0 4 2 2 0 0 1 0-4M6 18l2-5V9l4 0v4l2 5M5 11l3-2m4 0l3 2",
  feet: "M4 4c3-1 5 0 5 4l-1 8H5L4 9zM16 4c-3-1-5 0-5 4l1 8h3l1-7z",
  touch: "M8 17V5a1.5 1.5 0 0 1 3 0v5l4 1v6zM8 12l-2-1",
  sonar: "M4 16a12 12 0 0 1 12-12M4 16a7 7 0 0 1 7-7M4 16h.1",
  battery: "M3 7h12v7H3zM16.5 9.5v2",
  temperatures: "M10 3a2 2 0 0 1 2 2v7a3.5 3.5 0 1 1-4 0V5a2 2 0 0 1 2-2zM10 9v6",
  stiffness: "M10 3l6 3.5v7L10 17l-6-3.5v-7zM10 10l6-3.5M10 10v7M10 10L4 6.5",
  other: "M10 10h.1M5 10h.1M15 10h.1",
  log: "M5 5h10M5 9h10M5 13h6",
};

function iconOf(subject: Subject): SVGSVGElement {
  return svg(
    "svg",
    { viewBox: "0 0 20 20", width: 18, height: 18, class: "icon", "aria-hidden": "true" },
    svg("path", { d: kIcons[subject] }),
  );
}

function chosenBefore(): Set<Subject> {
  const stored = recall(kStorageKey);
  const names = Array.isArray(stored) ? stored.map(String) : [];
  return new Set(kSubjects.filter((subject) => names.includes(subject)));
}
