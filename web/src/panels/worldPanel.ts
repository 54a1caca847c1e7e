import { jsonOfFloat } from "../host/json.js";
import { CallError, writeMemory } from "../host/rest.js";
import { formatNumber } from "../model/format.js";
import { kNear } from "../model/sonarRange.js";
import { kWorldKeys, touchGroups } from "../model/world.js";
import { WriteQueue } from "../model/writeQueue.js";
import { poseWords } from "../model/poses.js";
import { h, setAttribute, setText } from "../ui/dom.js";
import { rove } from "../ui/roving.js";
import { holdButton, Slider, Switch } from "./worldControls.js";

/** Beyond this there is no obstacle, in m. */
const kNoObstacle = 2.55;
const kNearest = 0.2;
/** m above the floor, for the middle of the torso. */
const kHoist = { least: 0.1, most: 0.8 };
/** N */
const kFirstPush = 25;
const kHardest = 60;
/** °C */
const kWarmest = 60;

const kPostures: Readonly<Record<string, string>> = {
  Stand: "Stand",
  Crouch: "Crouch",
  Sit: "Sit",
  Knee: "Kneel",
  Frog: "Frog",
  Belly: "Belly",
  Back: "Back",
  Left: "Left side",
  Right: "Right side",
  HeadBack: "Upside down",
};

/**
 * What can be done to a simulated robot. Writes memory keys; what follows of it comes back as it
 * does from any robot.
 */
export class WorldPanel {
  /** The height at which the hoist carries the torso, in m; undefined when it does not. */
  onHoist: (height: number | undefined) => void = () => {};

  private readonly problem = h("p", { class: "problem", role: "alert" });
  private readonly writes = new WriteQueue((key, json) => this.send(key, json));
  private readonly postures = new Map<string, HTMLButtonElement>();
  /** What is wanted beside what is. */
  private readonly posture = h("p", { class: "note wanted" });
  private wanted: unknown;
  private actual = "";
  private readonly touch = h("div", { class: "world-touch" });
  private readonly force = new Slider({
    label: "Force",
    min: 5,
    max: kHardest,
    step: 5,
    text: (n) => `${n} N`,
  });
  private readonly hold = new Switch("Hoist holds the robot");
  private readonly height = new Slider({
    label: "Height",
    min: kHoist.least,
    max: kHoist.most,
    step: 0.01,
    text: (m) => `${formatNumber(m * 100, 0)} cm`,
  });
  private readonly left = new Slider({
    label: "Left",
    min: kNearest,
    max: kNoObstacle,
    step: 0.05,
    text: obstacleText,
  });
  private readonly right = new Slider({
    label: "Right",
    min: kNearest,
    max: kNoObstacle,
    step: 0.05,
    text: obstacleText,
  });
  private readonly charger = new Switch("Charger plugged in");
  private readonly air = new Slider({
    label: "Air",
    min: 0,
    max: kWarmest,
    step: 1,
    text: (t) => `${t} °C`,
  });
  /** Sensors that have a button, to see when they change. */
  private touchNames = "";

  constructor(parent: HTMLElement) {
    this.force.show(kFirstPush);
    this.connect();
    rove(this.touch);
    const push = h("div", { class: "push" }, ...this.pushButtons());
    rove(push);
    parent.append(
      this.problem,
      h(
        "div",
        { class: "world-groups" },
        group("Posture", this.postureButtons(), this.posture),
        group("Touch", this.touch),
        group("Push", push, this.force.element),
        group("Hoist", this.hold.element, this.height.element),
        group("Obstacles", this.left.element, this.right.element),
        group("Surroundings", this.charger.element, this.air.element),
      ),
    );
  }

  /** Shows the world as it is. @param keys values by the names of the world's keys */
  show(keys: ReadonlyMap<string, unknown>): void {
    this.showTouch(keys);
    const sliders: [string, Slider][] = [
      [kWorldKeys.hoistHeight, this.height],
      [kWorldKeys.obstacleLeft, this.left],
      [kWorldKeys.obstacleRight, this.right],
      [kWorldKeys.ambientTemperature, this.air],
    ];
    for (const [key, slider] of sliders) {
      const value = keys.get(key);
      if (typeof value === "number" && !this.writes.isWaiting(key)) {
        slider.show(value);
      }
    }
    const switches: [string, Switch][] = [
      [kWorldKeys.hoistHold, this.hold],
      [kWorldKeys.chargerPlugged, this.charger],
    ];
    for (const [key, control] of switches) {
      if (!this.writes.isWaiting(key)) {
        control.show(keys.get(key) === true);
      }
    }
    if (!this.writes.isWaiting(kWorldKeys.posture)) {
      this.showPosture(keys.get(kWorldKeys.posture));
    }
    this.tellHoist();
  }

  /** The pose that the robot is in, whatever is wanted. */
  showActual(pose: string): void {
    if (pose !== this.actual) {
      this.actual = pose;
      this.showPosture(this.wanted);
    }
  }

  /** Puts the robot on its feet. */
  standUp(): void {
    this.want("Stand");
  }

  private connect(): void {
    this.hold.onChange = (isOn) => {
      this.writes.add(kWorldKeys.hoistHold, String(isOn));
      this.tellHoist();
    };
    this.height.onChange = (meters) => {
      this.writes.add(kWorldKeys.hoistHeight, jsonOfFloat(meters));
      this.tellHoist();
    };
    this.left.onChange = (meters) => {
      this.writes.add(kWorldKeys.obstacleLeft, jsonOfFloat(meters));
    };
    this.right.onChange = (meters) => {
      this.writes.add(kWorldKeys.obstacleRight, jsonOfFloat(meters));
    };
    this.charger.onChange = (isOn) => {
      this.writes.add(kWorldKeys.chargerPlugged, String(isOn));
    };
    this.air.onChange = (celsius) => {
      this.writes.add(kWorldKeys.ambientTemperature, jsonOfFloat(celsius));
    };
  }

  private tellHoist(): void {
    this.onHoist(this.hold.isOn ? this.height.value : undefined);
  }

  private postureButtons(): HTMLElement {
    for (const [name, label] of Object.entries(kPostures)) {
      const button = h("button", { type: "button", "aria-pressed": "false" }, label);
      button.addEventListener("click", () => {
        this.want(name);
      });
      this.postures.set(name, button);
    }
    const buttons = h("div", { class: "buttons" }, ...this.postures.values());
    rove(buttons);
    return buttons;
  }

  private want(posture: string): void {
    this.writes.add(kWorldKeys.posture, JSON.stringify(posture));
    this.showPosture(posture);
  }

  /** A posture that is wanted is not one that is: a robot can have fallen out of it. */
  private showPosture(wanted: unknown): void {
    this.wanted = wanted;
    for (const [name, button] of this.postures) {
      const isWanted = name === wanted;
      setAttribute(button, "aria-pressed", String(isWanted && name === this.actual));
      button.classList.toggle("wanted", isWanted && name !== this.actual);
    }
    const label = kPostures[String(wanted)];
    const isApart = label !== undefined && this.actual !== "" && wanted !== this.actual;
    setText(
      this.posture,
      isApart ? `Wanted: ${label} · is: ${poseWords(this.actual).toLowerCase()}` : "",
    );
  }

  private showTouch(keys: ReadonlyMap<string, unknown>): void {
    const groups = touchGroups(keys.keys());
    const names = JSON.stringify(groups);
    if (names === this.touchNames) {
      return;
    }
    this.touchNames = names;
    this.touch.replaceChildren(
      ...groups.map(({ part, sensors }) => {
        const buttons = sensors.map(({ key, label }) =>
          this.touchButton(key, label, `Touch ${part.toLowerCase()} ${label.toLowerCase()}`),
        );
        return h(
          "div",
          { class: "touch-part" },
          h("span", {}, part),
          h("div", { class: "buttons" }, ...buttons),
        );
      }),
    );
  }

  private touchButton(key: string, label: string, name: string): HTMLElement {
    const button = holdButton(
      label,
      () => {
        this.writes.add(key, "true");
      },
      () => {
        this.writes.add(key, "false");
      },
    );
    button.setAttribute("aria-label", name);
    return button;
  }

  private pushButtons(): HTMLElement[] {
    const push = (label: string, key: string, sign: number): HTMLElement => {
      const button = holdButton(
        label,
        () => {
          this.writes.add(key, jsonOfFloat(sign * this.force.value));
        },
        () => {
          this.writes.add(key, "0.0");
        },
      );
      button.setAttribute("aria-label", `Push ${label.toLowerCase()}`);
      return button;
    };
    return [
      push("Forward", kWorldKeys.pushX, 1),
      push("Back", kWorldKeys.pushX, -1),
      push("Left", kWorldKeys.pushY, 1),
      push("Right", kWorldKeys.pushY, -1),
    ];
  }

  private async send(key: string, json: string): Promise<void> {
    try {
      await writeMemory(key, json);
      setText(this.problem, "");
    } catch (error) {
      setText(this.problem, error instanceof CallError ? error.message : String(error));
    }
  }
}

function group(title: string, ...children: HTMLElement[]): HTMLElement {
  return h("fieldset", { class: "group" }, h("legend", {}, title), ...children);
}

function obstacleText(meters: number): string {
  if (meters >= kNoObstacle) {
    return "none";
  }
  return `${formatNumber(meters, 2)} m${meters < kNear ? ", near" : ""}`;
}
