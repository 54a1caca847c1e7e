import { isHeat } from "../host/channels.js";
import { formatNumber } from "../model/format.js";
import { jointWords } from "../model/limbs.js";
import type { Temperatures } from "../model/robotState.js";
import { makeCard, type Card } from "../ui/card.js";
import { h, setText } from "../ui/dom.js";

const kRows = 4;
/** °C: where the bars begin and end, and from where on a joint is worth a look. */
const kCold = 20;
const kHottest = 100;
const kWarm = 70;

/** The warmest joints, and boards that report an error. */
export class HeatCard {
  readonly card: Card = makeCard("heat", "Heat");

  private readonly rows = Array.from({ length: kRows }, () => new Row());
  private readonly boards = h("p", { class: "note" });

  constructor() {
    this.card.body.append(
      h("ol", { class: "heat" }, ...this.rows.map((row) => row.element)),
      this.boards,
    );
  }

  show({ joints, boards }: Temperatures): void {
    const warmest = [...joints].sort(([a, ta], [b, tb]) => tb - ta || a.localeCompare(b));
    this.rows.forEach((row, i) => {
      row.show(warmest[i]);
    });
    const hot = [...boards].filter(([, code]) => isHeat(code));
    setText(
      this.card.answer,
      hot.length > 0 ? "hot board" : (warmest[0]?.[1] ?? 0) >= kWarm ? "warm" : "fine",
    );
    this.card.answer.classList.toggle("signal", hot.length > 0);
    const faults = [...boards].map(
      ([name, code]) => `${name}: ${isHeat(code) ? "too hot" : "error"} (${code})`,
    );
    setText(this.boards, faults.join("; "));
  }
}

class Row {
  readonly element: HTMLLIElement;

  private readonly name = h("span");
  private readonly value = h("strong");
  private readonly bar = h("span", { class: "level" });

  constructor() {
    this.element = h("li", {}, this.name, this.value, h("span", { class: "meter" }, this.bar));
  }

  show(joint: [name: string, celsius: number] | undefined): void {
    this.element.hidden = joint === undefined;
    if (joint === undefined) {
      return;
    }
    const [name, celsius] = joint;
    setText(this.name, jointWords(name));
    setText(this.value, `${formatNumber(celsius, 0)} °C`);
    const level = Math.min(Math.max((celsius - kCold) / (kHottest - kCold), 0), 1);
    this.bar.style.setProperty("--level", level.toFixed(3));
    this.element.classList.toggle("warm", celsius >= kWarm);
  }
}
