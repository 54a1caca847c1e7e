import type { RobotState } from "../model/robotState.js";
import { WhileVisible } from "../ui/whileVisible.js";
import { Motion } from "./motion.js";
import type { Orbit } from "./orbit.js";
import { Pace } from "./pace.js";

const kReducedMotion = matchMedia("(prefers-reduced-motion: reduce)");

/** The robot on a canvas, drawn when something has changed and somebody sees it. */
export abstract class Drawing {
  protected readonly motion = new Motion(() => !kReducedMotion.matches);
  protected readonly state: RobotState = {};
  protected hoist: number | undefined;
  protected isSonarOn = false;

  private readonly pace = new Pace();
  private readonly visible: WhileVisible;
  private readonly observer: ResizeObserver;
  private drawnAt = -Infinity;
  private isDrawPending = false;
  private isGone = false;
  /** What is on the canvas, to see when it is still so. */
  private drawn = "";

  constructor(
    protected readonly canvas: HTMLCanvasElement,
    readonly orbit: Orbit,
  ) {
    this.orbit.onChange = () => {
      this.redraw();
    };
    this.visible = new WhileVisible(canvas);
    this.visible.onAppear = () => {
      this.redraw();
    };
    this.observer = new ResizeObserver(() => {
      if (canvas.clientWidth > 0 && canvas.clientHeight > 0) {
        this.fit(canvas.clientWidth, canvas.clientHeight);
        this.redraw();
      }
    });
    this.observer.observe(canvas);
  }

  /** Shows those parts of the state that are given. @param isJump it is another moment, not the next one */
  show(state: RobotState, isJump = false): void {
    Object.assign(this.state, state);
    const isFirst = this.motion.aim(state.joints, state.inclination);
    if (isJump && this.motion.isMoving) {
      this.motion.jump();
      this.redraw();
    } else if (isFirst) {
      this.redraw();
    } else {
      this.draw();
    }
  }

  /** At which height the torso hangs, in metres; undefined when the robot stands or lies on its own. */
  setHoist(height: number | undefined): void {
    this.hoist = height;
    this.draw();
  }

  /** Whether the ultrasonic emitters are on; nothing of them is drawn until this is known. */
  setSonarOn(isOn: boolean): void {
    this.isSonarOn = isOn;
    this.draw();
  }

  applyTheme(): void {
    this.redraw();
  }

  destroy(): void {
    this.isGone = true;
    this.observer.disconnect();
    this.orbit.destroy();
  }

  protected abstract fit(width: number, height: number): void;
  protected abstract paint(): void;

  private redraw(): void {
    this.drawn = "";
    this.draw();
  }

  /** All that shows, as one text. */
  private signature(): string {
    const { touch, sonar } = this.state;
    const touched = [...(touch ?? [])].filter(([, value]) => value > 0).map(([zone]) => zone);
    const seen = this.isSonarOn ? [sonar?.left?.toFixed(2), sonar?.right?.toFixed(2)] : [];
    return [...touched, "|", ...seen, "|", this.hoist?.toFixed(2)].join();
  }

  private draw(): void {
    if (this.isDrawPending || this.isGone || !this.visible.isVisible) {
      return;
    }
    if (!this.motion.isMoving && this.signature() === this.drawn) {
      return;
    }
    this.isDrawPending = true;
    setTimeout(
      () => {
        const askedAt = performance.now();
        requestAnimationFrame((now) => {
          this.pace.measured(performance.now() - askedAt);
          this.isDrawPending = false;
          if (this.isGone) {
            return;
          }
          this.motion.advance(Math.min(Math.max((now - this.drawnAt) / 1000, 0.01), 0.2));
          this.paint();
          this.drawn = this.signature();
          this.drawnAt = performance.now();
          this.draw();
        });
      },
      Math.max(0, this.drawnAt + this.pace.interval - performance.now()),
    );
  }
}
