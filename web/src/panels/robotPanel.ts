import { formatNumber, kNoValue } from "../model/format.js";
import type { PoseWords } from "../model/poses.js";
import type { Inclination, RobotState } from "../model/robotState.js";
import type { Drawing } from "../robot/drawing.js";
import { Orbit, type View } from "../robot/orbit.js";
import { Sketch } from "../robot/sketch.js";
import { h, setAttribute, setText } from "../ui/dom.js";
import { recall, remember } from "../ui/memory.js";

/** Degrees that count as upright. */
const kFlat = 2;
const kStorageKey = "robotView";

/** The robot as it is, with its pose in words. */
export class RobotPanel {
  private readonly pose = h("strong", { class: "pose" }, kNoValue);
  private readonly since = h("span", { class: "since" });
  private readonly lean = h("span", { class: "lean" });
  private canvas: HTMLCanvasElement;
  private drawing: Drawing;
  private readonly solid = h(
    "button",
    { type: "button", class: "icon-button solid", "aria-pressed": "false" },
    "3D",
  );
  private readonly state: RobotState = {};
  private hoist: number | undefined;
  private isSonarOn = false;

  constructor(private readonly parent: HTMLElement) {
    const help = h(
      "p",
      { id: "robot-help", class: "visually-hidden" },
      "Arrow keys turn the view, plus and minus zoom, Home resets it.",
    );
    this.canvas = makeCanvas();
    this.drawing = new Sketch(this.canvas, new Orbit(this.canvas));
    parent.append(
      this.canvas,
      help,
      h("div", { class: "robot-words" }, this.pose, this.since),
      this.lean,
      this.buttons(),
    );
    this.solid.title = "Draw in three dimensions";
    this.solid.addEventListener("click", () => {
      const isSolid = this.solid.getAttribute("aria-pressed") !== "true";
      remember(kStorageKey, isSolid ? "3d" : "2d");
      void this.draw(isSolid);
    });
    const wanted = recall(kStorageKey);
    if (wanted === "3d" || (wanted !== "2d" && drawsFast())) {
      void this.draw(true);
    }
  }

  get element(): HTMLElement {
    return this.parent;
  }

  /** @param isJump it is another moment, not the next one */
  show(state: RobotState, isJump = false): void {
    Object.assign(this.state, state);
    this.drawing.show(state, isJump);
    if (state.inclination !== undefined) {
      setText(this.lean, leanWords(state.inclination));
    }
  }

  showPose({ headline, detail }: PoseWords): void {
    setText(this.pose, headline);
    setText(this.since, detail);
    setAttribute(this.canvas, "aria-label", `The robot: ${headline}`);
  }

  /** At which height a hoist carries the torso, in metres; undefined when none does. */
  setHoist(height: number | undefined): void {
    this.hoist = height;
    this.drawing.setHoist(height);
  }

  setSonarOn(isOn: boolean): void {
    this.isSonarOn = isOn;
    this.drawing.setSonarOn(isOn);
  }

  applyTheme(): void {
    this.drawing.applyTheme();
  }

  /** In three dimensions where that can be had, else as a sketch. */
  private async draw(isSolid: boolean): Promise<void> {
    const { drawing } = this;
    if (!isSolid) {
      this.replace((canvas, view) => new Sketch(canvas, new Orbit(canvas, view)), false);
      return;
    }
    try {
      const { RobotView } = await import("../robot/robotView.js");
      if (this.drawing === drawing) {
        this.replace((canvas, view) => new RobotView(canvas, new Orbit(canvas, view)), true);
      }
    } catch {
      // The sketch stays.
      this.solid.hidden = true;
    }
  }

  private replace(
    make: (canvas: HTMLCanvasElement, view: View) => Drawing,
    isSolid: boolean,
  ): void {
    const canvas = makeCanvas();
    setAttribute(canvas, "aria-label", this.canvas.getAttribute("aria-label") ?? "The robot");
    // A canvas that is not laid out has no size yet.
    this.canvas.after(canvas);
    let made: Drawing;
    try {
      made = make(canvas, this.drawing.orbit.current);
    } catch (error) {
      canvas.remove();
      throw error;
    }
    this.drawing.destroy();
    this.canvas.remove();
    this.canvas = canvas;
    this.drawing = made;
    made.setHoist(this.hoist);
    made.setSonarOn(this.isSonarOn);
    made.show(this.state, true);
    this.solid.setAttribute("aria-pressed", String(isSolid));
  }

  private buttons(): HTMLElement {
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
      this.solid,
      button("Nearer", "+", () => {
        this.drawing.orbit.zoom(1);
      }),
      button("Farther", "−", () => {
        this.drawing.orbit.zoom(-1);
      }),
      button("Reset the view", "⟲", () => {
        this.drawing.orbit.reset();
      }),
    );
  }
}

function makeCanvas(): HTMLCanvasElement {
  return h("canvas", {
    tabindex: 0,
    role: "img",
    "aria-label": "The robot",
    "aria-describedby": "robot-help",
  });
}

/** Whether three dimensions cost nothing: not where the processor would have to draw them. */
function drawsFast(): boolean {
  if (matchMedia("(forced-colors: active)").matches) {
    return false;
  }
  const context = document.createElement("canvas").getContext("webgl2");
  const info = context?.getExtension("WEBGL_debug_renderer_info");
  if (context == null) {
    return false;
  }
  const renderer: unknown = context.getParameter(info?.UNMASKED_RENDERER_WEBGL ?? context.RENDERER);
  context.getExtension("WEBGL_lose_context")?.loseContext();
  return !/swiftshader|llvmpipe|software|softpipe|basic render/i.test(String(renderer));
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
