import { jointWords, kLimbs } from "../model/limbs.js";
import type { Stiffness } from "../model/robotState.js";
import { makeCard, type Card } from "../ui/card.js";
import { h, setAttribute, setText } from "../ui/dom.js";

/** Below this share a joint counts as off, above the other one as stiff. */
const kOff = 0.05;
const kStiff = 0.95;

/** How firmly each joint holds its place. */
export class StiffnessCard {
  readonly card: Card = makeCard("stiffness", "Stiffness");

  private readonly bars = new Map<string, HTMLElement>();

  constructor() {
    for (const limb of kLimbs) {
      const cells = limb.joints.map((joint) => {
        const bar = h("span", { class: "level" });
        this.bars.set(joint, bar);
        const label = `${jointWords(joint)}: not told`;
        return h("span", { class: "level-cell", role: "img", "aria-label": label }, bar);
      });
      this.card.body.append(
        h(
          "div",
          { class: "limb" },
          h("span", {}, limb.name),
          h("div", { class: "levels" }, ...cells),
        ),
      );
    }
  }

  show({ joints }: Stiffness): void {
    for (const [joint, bar] of this.bars) {
      const value = joints.get(joint);
      const percent = Math.round(Math.min(Math.max(value ?? 0, 0), 1) * 100);
      bar.style.setProperty("--level", String(percent / 100));
      const text = `${jointWords(joint)}: ${value === undefined ? "not told" : `${percent} %`}`;
      const cell = bar.parentElement as HTMLElement;
      setAttribute(cell, "aria-label", text);
      setAttribute(cell, "title", text);
    }
    setText(this.card.answer, answerOf([...joints.values()]));
  }
}

function answerOf(values: readonly number[]): string {
  if (values.length === 0) {
    return "";
  }
  if (values.every((value) => value < kOff)) {
    return "limp";
  }
  return values.every((value) => value > kStiff) ? "stiff" : "partly stiff";
}
