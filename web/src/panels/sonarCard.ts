import type { Listeners } from "../host/sonarSubscription.js";
import { formatNumber, kNoValue } from "../model/format.js";
import { kNear, shownDistance } from "../model/sonarRange.js";
import type { Sonar } from "../model/robotState.js";
import { makeCard, type Card } from "../ui/card.js";
import { h, setAttribute, setText, svg } from "../ui/dom.js";

/** m; nearer than this, a wedge is drawn as long as this: the nearest is the loudest. */
const kShortest = 0.22;
/** The picture reaches this far, in m. */
const kReach = 1.6;
const kRadius = 92;
const kRings = [0.5, 1, 1.5];
const kCenter = { x: 100, y: 104 };
const kFromDegrees = 3;
const kToDegrees = 40;

/** How far the way ahead is free, seen from above. */
export class SonarCard {
  readonly card: Card = makeCard("sonar", "Sonar");
  /** The reader wants the emitters on or off. */
  onSwitch: (isOn: boolean) => void = () => {};

  private readonly wedges = {
    left: svg("path", { class: "wedge" }),
    right: svg("path", { class: "wedge" }),
  };
  private readonly texts = { left: h("strong"), right: h("strong") };
  private readonly picture: SVGSVGElement;
  private readonly toggle = h("button", { type: "button", class: "small", hidden: true });
  private listeners: Listeners | undefined;
  private sonar: Sonar = { left: undefined, right: undefined };

  constructor() {
    const rings = kRings.flatMap((meters) => [
      svg("path", { class: "ring", d: arcPath(meters, -kToDegrees - 8, kToDegrees + 8) }),
      svg(
        "text",
        { x: kCenter.x + 3, y: kCenter.y - radiusOf(meters) + 9, class: "ring-label" },
        `${meters} m`,
      ),
    ]);
    this.picture = svg(
      "svg",
      { viewBox: "18 4 164 112", role: "img", "aria-label": "The sonar is not told" },
      this.wedges.left,
      this.wedges.right,
      ...rings,
      svg("rect", { x: 88, y: 99, width: 24, height: 12, rx: 6, class: "robot-top" }),
    );
    const side = (name: string, text: HTMLElement): HTMLElement =>
      h("p", {}, h("span", {}, name), text);
    this.card.body.append(
      this.picture,
      h(
        "div",
        { class: "pair" },
        side("Left", this.texts.left),
        this.toggle,
        side("Right", this.texts.right),
      ),
    );
    this.toggle.addEventListener("click", () => {
      this.toggle.disabled = true;
      this.onSwitch(this.listeners?.isPage !== true);
    });
  }

  show(sonar: Sonar): void {
    this.sonar = sonar;
    const left = shownDistance(sonar.left);
    const right = shownDistance(sonar.right);
    const isOff = !this.isOn;
    this.showSide("left", sonar.left, isOff);
    this.showSide("right", sonar.right, isOff);
    setText(this.card.answer, isOff ? "off" : answerOf(left, right));
    const isNear = !isOff && Math.min(left ?? kReach, right ?? kReach) < kNear;
    this.card.answer.classList.toggle("signal", isNear);
    this.card.element.classList.toggle("off", isOff);
    const words = `Left ${describe(sonar.left)}, right ${describe(sonar.right)}`;
    setAttribute(this.picture, "aria-label", isOff ? "The sonar is off" : words);
  }

  private get isOn(): boolean {
    return this.sonar.isOn ?? this.listeners?.isAny !== false;
  }

  /** Who listens; the emitters are off while nobody does. */
  showListeners(listeners: Listeners): void {
    this.listeners = listeners;
    this.show(this.sonar);
    this.toggle.disabled = false;
    this.toggle.hidden = listeners.isAny && !listeners.isPage;
    setText(this.toggle, listeners.isPage ? "Switch off" : "Switch on");
  }

  private showSide(side: "left" | "right", distance: number | undefined, isOff: boolean): void {
    const shown = isOff ? undefined : shownDistance(distance);
    const wedge = this.wedges[side];
    const sign = side === "left" ? -1 : 1;
    const reach = Math.min(Math.max(shown ?? kReach, kShortest), kReach);
    setAttribute(wedge, "d", wedgePath(reach, sign * kFromDegrees, sign * kToDegrees));
    wedge.classList.toggle("near", shown !== undefined && shown < kNear);
    wedge.classList.toggle("clear", shown === undefined);
    wedge.classList.toggle("hidden", isOff);
    setText(this.texts[side], isOff ? "off" : describe(distance));
  }
}

function answerOf(left: number | undefined, right: number | undefined): string {
  const isLeft = left !== undefined && left < kNear;
  const isRight = right !== undefined && right < kNear;
  if (isLeft && isRight) {
    return "obstacle ahead";
  }
  return isLeft ? "obstacle left" : isRight ? "obstacle right" : "clear";
}

function describe(distance: number | undefined): string {
  if (distance === undefined) {
    return kNoValue;
  }
  const shown = shownDistance(distance);
  return shown === undefined ? "no echo" : `${formatNumber(shown, 2)} m`;
}

function radiusOf(meters: number): number {
  return (meters / kReach) * kRadius;
}

/** @param degrees 0 is ahead, positive to the right */
function point(meters: number, degrees: number): string {
  const angle = (degrees * Math.PI) / 180;
  const x = kCenter.x + radiusOf(meters) * Math.sin(angle);
  const y = kCenter.y - radiusOf(meters) * Math.cos(angle);
  return `${x.toFixed(1)} ${y.toFixed(1)}`;
}

function arcPath(meters: number, from: number, to: number): string {
  const r = radiusOf(meters).toFixed(1);
  return `M${point(meters, from)}A${r} ${r} 0 0 ${to > from ? 1 : 0} ${point(meters, to)}`;
}

function wedgePath(meters: number, from: number, to: number): string {
  return `${arcPath(meters, from, to)}L${kCenter.x} ${kCenter.y}z`;
}
