import { kTouchZones } from "../model/touchZones.js";
import { makeCard, type Card } from "../ui/card.js";
import { h, setAttribute, setText, svg } from "../ui/dom.js";

/** Where each sensor lies on a robot that faces the reader: its left hand is on the right. */
const kSpots: Readonly<Record<string, { x: number; y: number; w: number; h: number }>> = {
  HeadFront: { x: 93, y: 16, w: 14, h: 6 },
  HeadMiddle: { x: 93, y: 8.5, w: 14, h: 6 },
  HeadRear: { x: 93, y: 1, w: 14, h: 6 },
  ChestButton: { x: 94, y: 56, w: 12, h: 12 },
  LHandBack: { x: 149, y: 88, w: 8, h: 14 },
  LHandLeft: { x: 159, y: 88, w: 6, h: 14 },
  LHandRight: { x: 141, y: 88, w: 6, h: 14 },
  RHandBack: { x: 43, y: 88, w: 8, h: 14 },
  RHandLeft: { x: 53, y: 88, w: 6, h: 14 },
  RHandRight: { x: 35, y: 88, w: 6, h: 14 },
  LFootLeft: { x: 119, y: 141, w: 13, h: 7 },
  LFootRight: { x: 104, y: 141, w: 13, h: 7 },
  RFootLeft: { x: 83, y: 141, w: 13, h: 7 },
  RFootRight: { x: 68, y: 141, w: 13, h: 7 },
};

/** What is being touched. */
export class TouchCard {
  readonly card: Card = makeCard("touch", "Touch");

  private readonly spots = new Map<string, SVGRectElement>();
  private readonly words = h("p", { class: "note" });
  private readonly picture: SVGSVGElement;

  constructor() {
    for (const { id, label } of kTouchZones) {
      const { x, y, w, h: height } = kSpots[id] ?? { x: 0, y: 0, w: 0, h: 0 };
      const spot = svg(
        "rect",
        { x, y, width: w, height, rx: 3, class: "spot" },
        svg("title", {}, label),
      );
      this.spots.set(id, spot);
    }
    this.picture = svg(
      "svg",
      { viewBox: "28 -2 144 154", role: "img", "aria-label": "Touch is not told" },
      silhouette(),
      ...this.spots.values(),
    );
    this.card.body.append(this.picture, this.words);
  }

  show(touch: ReadonlyMap<string, number>): void {
    const touched = kTouchZones.filter(({ id }) => (touch.get(id) ?? 0) > 0);
    for (const [id, spot] of this.spots) {
      spot.classList.toggle("touched", (touch.get(id) ?? 0) > 0);
    }
    const names = touched.map(({ label }) => label).join("; ");
    setText(this.card.answer, touched.length === 0 ? "nothing" : `${touched.length} touched`);
    this.card.answer.classList.toggle("signal", touched.length > 0);
    setText(this.words, names);
    setAttribute(
      this.picture,
      "aria-label",
      names === "" ? "Nothing is touched" : `Touched: ${names}`,
    );
  }
}

function silhouette(): SVGGElement {
  return svg(
    "g",
    { class: "silhouette" },
    svg("rect", { x: 78, y: 4, width: 44, height: 36, rx: 17 }),
    svg("rect", { x: 76, y: 43, width: 48, height: 50, rx: 13 }),
    svg("path", { d: "M76 50c-14 2-22 18-27 36" }),
    svg("path", { d: "M124 50c14 2 22 18 27 36" }),
    svg("path", { d: "M90 92v44" }),
    svg("path", { d: "M110 92v44" }),
    svg("rect", { x: 33, y: 85, width: 28, height: 20, rx: 8 }),
    svg("rect", { x: 139, y: 85, width: 28, height: 20, rx: 8 }),
    svg("rect", { x: 66, y: 132, width: 32, height: 18, rx: 7 }),
    svg("rect", { x: 102, y: 132, width: 32, height: 18, rx: 7 }),
  );
}
