import { formatNumber, kNoValue } from "../model/format.js";
import type { Feet, Foot } from "../model/robotState.js";
import { makeCard, type Card } from "../ui/card.js";
import { h, setAttribute, setText, svg } from "../ui/dom.js";

/** A foot that carries this much is drawn in full colour, in kg. */
const kFullWeight = 3;
/** The left sole, toes up; the right one is its mirror image. */
const kSole =
  "M12 58C8 42 4 34 5 20 6 8 16 3 29 3s23 6 24 19c1 13-5 24-6 36-1 9 1 14 0 23-1 10-8 16-18 16s-17-6-18-16c-1-9 2-14 1-23z";
const kCells = [
  { x: 0, y: 0, width: 28.5, height: 49 },
  { x: 29.5, y: 0, width: 29, height: 49 },
  { x: 0, y: 51, width: 28.5, height: 49 },
  { x: 29.5, y: 51, width: 29, height: 49 },
];
const kCellNames = ["front left", "front right", "rear left", "rear right"];

/** Which foot stands on the floor, with how much weight, and where on the sole. */
export class FeetCard {
  readonly card: Card = makeCard("feet", "Feet");

  private readonly left = new Sole("left");
  private readonly right = new Sole("right");

  constructor() {
    this.card.body.append(h("div", { class: "pair" }, this.left.element, this.right.element));
  }

  show(feet: Feet): void {
    setText(this.card.answer, answerOf(feet));
    this.left.show(feet.left);
    this.right.show(feet.right);
  }
}

function answerOf({ left, right, hasContact }: Feet): string {
  if (left.hasContact && right.hasContact) {
    return "on the floor";
  }
  if (left.hasContact || right.hasContact) {
    return left.hasContact ? "on the left foot" : "on the right foot";
  }
  return hasContact ? "barely on the floor" : "off the floor";
}

class Sole {
  readonly element: HTMLElement;

  private readonly picture: SVGSVGElement;
  private readonly cells: SVGRectElement[];
  private readonly outline: SVGPathElement;
  private readonly center: SVGCircleElement;
  private readonly weight = h("strong");

  constructor(private readonly side: "left" | "right") {
    const clip = `sole-${side}`;
    this.cells = kCells.map((cell) => svg("rect", { ...cell, class: "cell" }));
    const transform = side === "left" ? "" : "translate(58 0) scale(-1 1)";
    this.outline = svg("path", { d: kSole, class: "sole", transform });
    this.center = svg("circle", { r: 4, class: "pressure" });
    this.picture = svg(
      "svg",
      { viewBox: "0 0 58 100", role: "img", "aria-label": `${side} foot` },
      svg("clipPath", { id: clip }, svg("path", { d: kSole, transform })),
      svg("g", { "clip-path": `url(#${clip})` }, ...this.cells),
      this.outline,
      this.center,
    );
    const label = h("span", {}, side === "left" ? "Left" : "Right");
    this.element = h("div", { class: "foot" }, this.picture, h("p", {}, label, this.weight));
  }

  show(foot: Foot): void {
    const cells = foot.cells ?? kCells.map(() => (foot.weight ?? 0) / kCells.length);
    this.cells.forEach((cell, i) => {
      const share = (cells[i] ?? 0) / (kFullWeight / kCells.length);
      setAttribute(cell, "fill-opacity", Math.min(Math.max(share, 0), 1).toFixed(2));
    });
    this.outline.classList.toggle("contact", foot.hasContact);
    this.showCenter(foot.hasContact ? foot.cells : undefined);
    setText(
      this.weight,
      foot.weight === undefined ? kNoValue : `${formatNumber(foot.weight, 2)} kg`,
    );
    setAttribute(this.picture, "aria-label", this.describe(foot));
  }

  /** Where the load's centre lies, between the middles of the cells. */
  private showCenter(cells: readonly number[] | undefined): void {
    const [frontLeft = 0, frontRight = 0, rearLeft = 0, rearRight = 0] = cells ?? [];
    const sum = frontLeft + frontRight + rearLeft + rearRight;
    this.center.classList.toggle("shown", sum > 0);
    if (sum > 0) {
      this.center.setAttribute("cx", (14 + (30 * (frontRight + rearRight)) / sum).toFixed(1));
      this.center.setAttribute("cy", (24 + (52 * (rearLeft + rearRight)) / sum).toFixed(1));
    }
  }

  private describe(foot: Foot): string {
    const where = foot.cells?.map((kg, i) => `${kCellNames[i]} ${formatNumber(kg, 1)}`).join(", ");
    const contact = foot.hasContact ? "on the floor" : "off the floor";
    return `${this.side} foot ${contact}${where === undefined ? "" : `; kg ${where}`}`;
  }
}
