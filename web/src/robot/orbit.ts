import type { Vector } from "./body.js";

export interface View {
  /** rad about the vertical; 0 looks at the robot's face. */
  azimuth: number;
  /** rad above the horizon. */
  elevation: number;
  /** m from the target. */
  distance: number;
}

const kFirstView: View = { azimuth: 0.62, elevation: 0.24, distance: 1.32 };
const kElevation = { least: -0.05, most: 1.45 };
const kDistance = { least: 0.7, most: 3.5 };
const kRadiansPerPixel = 0.009;
const kKeyStep = 0.12;
const kZoomStep = 1.15;

/**
 * Turns the camera about the robot: by dragging, with the arrow keys, with plus and minus. Up and
 * down swipes and the wheel stay with the page, which is longer than the view.
 */
export class Orbit {
  onChange: () => void = () => {};
  /** Height of the point that the camera looks at. */
  targetHeight = 0.27;

  private view: View;
  private dragFrom: { x: number; y: number } | undefined;
  private readonly listening = new AbortController();

  constructor(canvas: HTMLCanvasElement, view: View = kFirstView) {
    this.view = { ...view };
    const { signal } = this.listening;
    canvas.addEventListener(
      "pointerdown",
      (event) => {
        this.dragFrom = { x: event.clientX, y: event.clientY };
        canvas.setPointerCapture(event.pointerId);
      },
      { signal },
    );
    canvas.addEventListener(
      "pointermove",
      (event) => {
        this.drag(event);
      },
      { signal },
    );
    for (const end of ["pointerup", "pointercancel"] as const) {
      canvas.addEventListener(
        end,
        () => {
          this.dragFrom = undefined;
        },
        { signal },
      );
    }
    canvas.addEventListener(
      "keydown",
      (event) => {
        if (this.press(event.key)) {
          event.preventDefault();
          event.stopPropagation();
        }
      },
      { signal },
    );
  }

  /** Where the camera looks from and how, to go on elsewhere. */
  get current(): View {
    return this.view;
  }

  destroy(): void {
    this.listening.abort();
  }

  reset(): void {
    this.view = { ...kFirstView };
    this.onChange();
  }

  /** Nearer by a step, or farther for a negative number of steps. */
  zoom(steps: number): void {
    this.turn(0, 0, kZoomStep ** -steps);
  }

  /** Where the camera is; it looks at `target`. */
  get eye(): Vector {
    const { azimuth, elevation, distance } = this.view;
    const flat = distance * Math.cos(elevation);
    return [
      flat * Math.cos(azimuth),
      flat * Math.sin(azimuth),
      this.targetHeight + distance * Math.sin(elevation),
    ];
  }

  get target(): Vector {
    return [0, 0, this.targetHeight];
  }

  private drag(event: PointerEvent): void {
    if (this.dragFrom === undefined) {
      return;
    }
    const dx = event.clientX - this.dragFrom.x;
    const dy = event.clientY - this.dragFrom.y;
    this.dragFrom = { x: event.clientX, y: event.clientY };
    this.turn(-dx * kRadiansPerPixel, dy * kRadiansPerPixel, 1);
  }

  private press(key: string): boolean {
    switch (key) {
      case "ArrowLeft":
        this.turn(-kKeyStep, 0, 1);
        return true;
      case "ArrowRight":
        this.turn(kKeyStep, 0, 1);
        return true;
      case "ArrowUp":
        this.turn(0, kKeyStep, 1);
        return true;
      case "ArrowDown":
        this.turn(0, -kKeyStep, 1);
        return true;
      case "+":
      case "=":
        this.zoom(1);
        return true;
      case "-":
        this.zoom(-1);
        return true;
      case "Home":
        this.reset();
        return true;
      default:
        return false;
    }
  }

  private turn(azimuth: number, elevation: number, zoom: number): void {
    const clamp = (value: number, limit: { least: number; most: number }): number =>
      Math.min(Math.max(value, limit.least), limit.most);
    this.view.azimuth += azimuth;
    this.view.elevation = clamp(this.view.elevation + elevation, kElevation);
    this.view.distance = clamp(this.view.distance * zoom, kDistance);
    this.onChange();
  }
}
