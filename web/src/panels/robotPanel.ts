import { formatDuration, formatNumber, kNoValue } from "../model/format.js";
import type { Inclination, Pose, RobotState } from "../model/robotState.js";
import { RobotView } from "../robot/robotView.js";
import { h, setAttribute, setText } from "../ui/dom.js";

const kFlat = 2;

const kPoseWords: Readonly<Record<string, string>> = {
  Stand: "Standing",
  Sit: "Sitting",
  Crouch: "Crouching",
  Knee: "Kneeling",
  Frog: "Frog",
  Back: "On its back",
  Belly: "On its belly",
  Left: "On its left side",
  Right: "On its right side",
  HeadBack: "Upside down",
  Unknown: "Unknown pose",
};

export function poseWords(name: string): string {
  return kPoseWords[name] ?? name;
}

/** The robot as it is, with its pose in words. */
export class RobotPanel {
  private readonly pose = h("strong", { class: "pose" }, kNoValue);
  private readonly since = h("span", { class: "since" });
  private readonly lean = h("span", { class: "lean" });
  private readonly canvas = h("canvas", {
    tabindex: 0,
    role: "img",
    "aria-label": "The robot",
    "aria-describedby": "robot-help",
  });
  private readonly view: RobotView | undefined;

  constructor(parent: HTMLElement) {
    const help = h(
      "p",
      { id: "robot-help", class: "visually-hidden" },
      "Arrow keys turn the view, plus and minus zoom, Home resets it.",
    );
    parent.append(
      this.canvas,
      help,
      h(
        "div",
        { class: "robot-words" },
        h("span", { class: "label" }, "Pose"),
        this.pose,
        this.since,
      ),
      this.lean,
    );
    this.view = this.tryView();
    if (this.view === undefined) {
      this.canvas.replaceWith(
        h("p", { class: "no-view" }, "This browser cannot draw in 3D (WebGL is off)."),
      );
    } else {
      parent.append(this.buttons(this.view));
    }
  }

  show(state: RobotState): void {
    this.view?.show(state);
    if (state.pose !== undefined) {
      this.showPose(state.pose);
    }
    if (state.inclination !== undefined) {
      setText(this.lean, leanWords(state.inclination));
    }
  }

  /** At which height a hoist carries the torso, in metres; undefined when none does. */
  setHoist(height: number | undefined): void {
    this.view?.setHoist(height);
  }

  setSonarOn(isOn: boolean): void {
    this.view?.setSonarOn(isOn);
  }

  applyTheme(): void {
    this.view?.applyTheme();
  }

  private showPose(pose: Pose): void {
    setText(this.pose, poseWords(pose.name));
    setText(this.since, pose.seconds === undefined ? "" : `for ${formatDuration(pose.seconds)}`);
    setAttribute(this.canvas, "aria-label", `The robot: ${poseWords(pose.name)}`);
  }

  private tryView(): RobotView | undefined {
    try {
      return new RobotView(this.canvas);
    } catch {
      return undefined;
    }
  }

  private buttons(view: RobotView): HTMLElement {
    const button = (label: string, text: string, action: () => void): HTMLElement => {
      const element = h(
        "button",
        { type: "button", class: "icon-button", "aria-label": label, title: label },
        text,
      );
      element.addEventListener("click", action);
      return element;
    };
    return h(
      "div",
      { class: "view-buttons" },
      button("Nearer", "+", () => {
        view.orbit.zoom(1);
      }),
      button("Farther", "−", () => {
        view.orbit.zoom(-1);
      }),
      button("Reset the view", "⟲", () => {
        view.orbit.reset();
      }),
    );
  }
}

function leanWords({ roll, pitch }: Inclination): string {
  const degrees = (radians: number): number => (radians * 180) / Math.PI;
  const part = (value: number, positive: string, negative: string): string[] =>
    Math.abs(value) < kFlat
      ? []
      : [`${formatNumber(Math.abs(value), 0)}° ${value > 0 ? positive : negative}`];
  const parts = [
    ...part(degrees(pitch), "forward", "back"),
    ...part(degrees(roll), "right", "left"),
  ];
  return parts.length === 0 ? "Upright" : `Leans ${parts.join(", ")}`;
}
