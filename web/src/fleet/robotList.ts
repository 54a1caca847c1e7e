import { byId, setText } from "../ui/dom.js";
import { RobotCard } from "./robotCard.js";
import { byUrgency, fitsWords, kWell, summaryOf, wordsOf, type Update } from "./robots.js";

/** All cards in their order. Only cards that have changed are touched, or moved. */
export class RobotList {
  private readonly cards = new Map<string, RobotCard>();
  private readonly list = byId("robots");
  private readonly summary = byId("summary");
  private readonly empty = byId("empty");
  private readonly filter = byId("filter") as HTMLInputElement;
  private readonly needy = byId("needy") as HTMLInputElement;

  constructor() {
    this.filter.addEventListener("input", () => {
      this.choose();
    });
    this.needy.addEventListener("change", () => {
      this.choose();
    });
  }

  take(update: Update): void {
    let isSorted = true;
    for (const robot of update.robots) {
      const card = this.cards.get(robot.key);
      if (card === undefined) {
        this.cards.set(robot.key, new RobotCard(robot));
        isSorted = false;
      } else {
        isSorted &&= card.robot.urgency === robot.urgency;
        card.show(robot);
      }
    }
    if (update.isAll) {
      this.forgetOthers(new Set(update.robots.map((robot) => robot.key)));
    }
    if (!isSorted) {
      this.sort();
    }
    this.choose();
  }

  private forgetOthers(known: ReadonlySet<string>): void {
    for (const [key, card] of this.cards) {
      if (!known.has(key)) {
        card.element.remove();
        this.cards.delete(key);
      }
    }
  }

  private sort(): void {
    const focused = document.activeElement;
    const sorted = [...this.cards.values()].sort((a, b) => byUrgency(a.robot, b.robot));
    let place = this.list.firstElementChild;
    for (const { element } of sorted) {
      if (element === place) {
        place = place.nextElementSibling;
      } else {
        this.list.insertBefore(element, place);
      }
    }
    if (focused instanceof HTMLElement && focused !== document.activeElement) {
      focused.focus({ preventScroll: true });
    }
  }

  /** Shows the cards that are asked for. */
  private choose(): void {
    const words = wordsOf(this.filter.value);
    let shown = 0;
    for (const { element, robot } of this.cards.values()) {
      const isShown = fitsWords(robot, words) && (!this.needy.checked || robot.urgency > kWell);
      shown += isShown ? 1 : 0;
      if (element.hidden === isShown) {
        element.hidden = !isShown;
      }
    }
    const robots = [...this.cards.values()].map((card) => card.robot);
    setText(this.summary, summaryOf(robots));
    this.empty.hidden = shown > 0;
    setText(
      this.empty,
      robots.length === 0
        ? "No robot has said anything yet. gk run --fleet URL --robot-name NAME puts one here."
        : "No robot fits.",
    );
  }
}
