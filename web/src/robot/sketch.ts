import { kNear, shownDistance } from "../model/sonarRange.js";
import { themeColor } from "../ui/colors.js";
import { kEmitters, kLinks, kRoot, kRootMarks, type Paint, type Vector } from "./body.js";
import { Drawing } from "./drawing.js";
import { cross, dot, minus, Projection, unit, type Point } from "./projection.js";
import {
  apply,
  boxCorners,
  framesOf,
  lowestOf,
  placedShapes,
  type Frame,
  type Placed,
} from "./skeleton.js";

const kMostPixelRatio = 2;
const kLight = unit([0.9, 0.7, 1.6]);
/** Lit and in the shade. */
const kPaints: Readonly<Record<Paint, readonly [lit: Rgb, shade: Rgb]>> = {
  shell: [
    [250, 251, 251],
    [176, 189, 189],
  ],
  frame: [
    [98, 112, 108],
    [52, 62, 59],
  ],
  accent: [
    [92, 205, 238],
    [40, 150, 185],
  ],
  visor: [
    [58, 70, 68],
    [18, 25, 24],
  ],
};
type Rgb = readonly [red: number, green: number, blue: number];

/** Corners of a box's sides, in the order of `boxCorners`. */
const kSides: readonly (readonly [number, number, number, number])[] = [
  [0, 1, 3, 2],
  [4, 6, 7, 5],
  [0, 4, 5, 1],
  [2, 3, 7, 6],
  [0, 2, 6, 4],
  [1, 5, 7, 3],
];
const kGridReach = 1;
const kGridStep = 0.25;

interface Item {
  depth: number;
  paint: () => void;
}

/** The robot drawn with nothing but a pencil: for machines that would draw it in 3D too slowly, or not at all. */
export class Sketch extends Drawing {
  private readonly context = this.canvas.getContext("2d");
  private projection = new Projection([1, 0, 0], [0, 0, 0], 1, 1);
  private lift: Vector = [0, 0, 0];

  protected fit(width: number, height: number): void {
    const ratio = Math.min(devicePixelRatio, kMostPixelRatio);
    this.canvas.width = Math.round(width * ratio);
    this.canvas.height = Math.round(height * ratio);
  }

  protected paint(): void {
    const { context, canvas } = this;
    const { clientWidth: width, clientHeight: height } = canvas;
    if (context === null || width === 0) {
      return;
    }
    const ratio = canvas.width / width;
    context.setTransform(ratio, 0, 0, ratio, 0, 0);
    context.clearRect(0, 0, width, height);
    context.lineCap = "round";
    context.lineJoin = "round";
    this.projection = new Projection(this.orbit.eye, this.orbit.target, width, height);
    const frames = framesOf(this.motion.joints, this.motion.inclination);
    const shapes = placedShapes(frames);
    const lowest = Math.min(...shapes.map(lowestOf));
    this.lift = [0, 0, Math.max(-lowest, this.hoist ?? 0)];
    this.drawFloor(context);
    this.drawShadow(context, shapes);
    const items = [
      ...shapes.map((placed) => this.itemOf(context, placed)),
      ...this.marks(context, frames),
    ].sort((a, b) => b.depth - a.depth);
    items.forEach(({ paint }) => {
      paint();
    });
    if (this.isSonarOn) {
      this.drawSonar(context, frames.get(kRoot));
    }
  }

  private project(frame: Frame, at: Vector): Point {
    return this.projection.point(plus(apply(frame, at), this.lift));
  }

  private drawFloor(context: CanvasRenderingContext2D): void {
    context.strokeStyle = themeColor("floor-line");
    context.lineWidth = 1;
    for (let i = -kGridReach; i <= kGridReach; i += kGridStep) {
      for (const [from, to] of [
        [
          [i, -kGridReach, 0],
          [i, kGridReach, 0],
        ],
        [
          [-kGridReach, i, 0],
          [kGridReach, i, 0],
        ],
      ] as const) {
        const a = this.projection.point(from);
        const b = this.projection.point(to);
        context.beginPath();
        context.moveTo(a.x, a.y);
        context.lineTo(b.x, b.y);
        context.stroke();
      }
    }
  }

  private drawShadow(context: CanvasRenderingContext2D, shapes: readonly Placed[]): void {
    context.save();
    context.globalAlpha = Number(themeColor("floor-shadow")) * 0.25;
    context.fillStyle = "#000000";
    for (const { shape, frame } of shapes) {
      const at = shape.kind === "capsule" ? middle(shape.from, shape.to) : shape.at;
      const [x, y] = apply(frame, at);
      const { x: px, y: py, scale } = this.projection.point([x, y, 0]);
      const radius =
        shape.kind === "box" ? Math.max(shape.size[0], shape.size[1]) * 0.7 : shape.radius * 1.8;
      const flat = Math.max(0.15, this.projection.eye[2] / Math.hypot(...this.projection.eye));
      context.beginPath();
      context.ellipse(px, py, radius * scale, radius * scale * flat, 0, 0, 2 * Math.PI);
      context.fill();
    }
    context.restore();
  }

  private itemOf(context: CanvasRenderingContext2D, { shape, frame }: Placed): Item {
    switch (shape.kind) {
      case "box": {
        const corners = boxCorners(shape).map((corner) => plus(apply(frame, corner), this.lift));
        const rounding = Math.min(...shape.size) * 0.25;
        return {
          depth: this.project(frame, shape.at).depth,
          paint: () => {
            this.drawBox(context, corners, shape.paint, rounding);
          },
        };
      }
      case "capsule": {
        const from = this.project(frame, shape.from);
        const to = this.project(frame, shape.to);
        const width = 2 * shape.radius;
        return {
          depth: (from.depth + to.depth) / 2,
          paint: () => {
            drawCapsule(context, from, to, width, shape.paint);
          },
        };
      }
      case "sphere": {
        const at = this.project(frame, shape.at);
        const [, wide = 1, high = 1] = shape.scale ?? [];
        return {
          // Small parts lie on larger ones.
          depth: at.depth - shape.radius,
          paint: () => {
            drawSphere(context, at, shape.radius, [wide, high], shape.paint);
          },
        };
      }
    }
  }

  private drawBox(
    context: CanvasRenderingContext2D,
    corners: readonly Vector[],
    paint: Paint,
    rounding: number,
  ): void {
    for (const side of kSides) {
      const [a, b, c, d] = side.map((i) => corners[i] as Vector) as [
        Vector,
        Vector,
        Vector,
        Vector,
      ];
      const normal = unit(cross(minus(b, a), minus(d, a)));
      if (dot(normal, minus(a, this.projection.eye)) >= 0) {
        continue;
      }
      const points = [a, b, c, d].map((corner) => this.projection.point(corner));
      const color = shaded(paint, dot(normal, kLight));
      const center = points.reduce(
        (sum, { x, y }) => [sum[0] + x / 4, sum[1] + y / 4] as [number, number],
        [0, 0] as [number, number],
      );
      const inset = rounding * (points[0]?.scale ?? 0);
      context.beginPath();
      points.forEach(({ x, y }) => {
        // Drawn smaller by half of the line that rounds its corners.
        const dx = center[0] - x;
        const dy = center[1] - y;
        const length = Math.hypot(dx, dy) || 1;
        const share = Math.min(inset / 2 / length, 0.5);
        context.lineTo(x + dx * share, y + dy * share);
      });
      context.closePath();
      context.fillStyle = color;
      context.strokeStyle = color;
      context.lineWidth = inset;
      context.stroke();
      context.fill();
    }
  }

  private marks(context: CanvasRenderingContext2D, frames: ReadonlyMap<string, Frame>): Item[] {
    const of = (name: string, marks: typeof kRootMarks): Item[] => {
      const frame = frames.get(name);
      return frame === undefined
        ? []
        : marks.map(({ sensor, at, size }) => {
            const point = this.project(frame, at);
            const isTouched = (this.state.touch?.get(sensor) ?? 0) > 0;
            const corners = boxCorners({ size, at }).map((corner) =>
              plus(apply(frame, corner), this.lift),
            );
            return {
              // What is touched is seen even from behind.
              depth: isTouched ? -1 : point.depth - 0.035,
              paint: () => {
                if (isTouched) {
                  drawTouched(context, point);
                } else {
                  this.drawBox(context, corners, "accent", Math.min(...size) * 0.4);
                }
              },
            };
          });
    };
    return [
      ...of(kRoot, kRootMarks),
      ...kLinks.flatMap(({ joint, marks }) => of(joint, marks ?? [])),
    ];
  }

  private drawSonar(context: CanvasRenderingContext2D, frame: Frame | undefined): void {
    const { sonar } = this.state;
    if (frame === undefined || sonar === undefined) {
      return;
    }
    for (const [distance, sign] of [
      [sonar.left, 1],
      [sonar.right, -1],
    ] as const) {
      const shown = shownDistance(distance);
      const isNear = shown !== undefined && shown < kNear;
      const reach = Math.max(shown ?? 0.4, 0.06);
      const arc = Array.from({ length: 13 }, (_, i): Vector => {
        const angle = sign * (0.05 + (0.62 * i) / 12);
        return plus(kEmitters, [reach * Math.cos(angle), reach * Math.sin(angle), 0]);
      });
      const color = themeColor(isNear ? "signal" : "accent");
      context.beginPath();
      [kEmitters, ...arc].forEach((at) => {
        const { x, y } = this.project(frame, at);
        context.lineTo(x, y);
      });
      context.closePath();
      context.save();
      context.globalAlpha = shown === undefined ? 0.08 : isNear ? 0.4 : 0.18;
      context.fillStyle = color;
      context.fill();
      context.restore();
      if (shown !== undefined) {
        context.beginPath();
        arc.forEach((at) => {
          const { x, y } = this.project(frame, at);
          context.lineTo(x, y);
        });
        context.strokeStyle = color;
        context.lineWidth = isNear ? 4 : 2;
        context.stroke();
      }
    }
  }
}

function drawCapsule(
  context: CanvasRenderingContext2D,
  from: Point,
  to: Point,
  width: number,
  paint: Paint,
): void {
  const pixels = (width * (from.scale + to.scale)) / 2;
  const dx = to.x - from.x;
  const dy = to.y - from.y;
  const length = Math.hypot(dx, dy);
  // The lit side is up and to the left of the picture.
  const nx = length < 1 ? 0.6 : dy / length;
  const ny = length < 1 ? 0.8 : -dx / length;
  const sign = nx * -0.5 + ny * -0.85 > 0 ? 1 : -1;
  const x = (from.x + to.x) / 2;
  const y = (from.y + to.y) / 2;
  const half = (pixels / 2) * sign;
  const gradient = context.createLinearGradient(
    x + nx * half,
    y + ny * half,
    x - nx * half,
    y - ny * half,
  );
  addStops(gradient, paint);
  context.strokeStyle = gradient;
  context.lineWidth = pixels;
  context.beginPath();
  context.moveTo(from.x, from.y);
  context.lineTo(to.x + (length < 0.1 ? 0.1 : 0), to.y);
  context.stroke();
}

function drawSphere(
  context: CanvasRenderingContext2D,
  { x, y, scale }: Point,
  radius: number,
  [wide, high]: readonly [number, number],
  paint: Paint,
): void {
  const r = radius * scale;
  const gradient = context.createRadialGradient(x - r * 0.35, y - r * 0.45, r * 0.1, x, y, r * 1.1);
  addStops(gradient, paint);
  context.fillStyle = gradient;
  context.beginPath();
  context.ellipse(x, y, r * wide, r * high, 0, 0, 2 * Math.PI);
  context.fill();
}

function drawTouched(context: CanvasRenderingContext2D, { x, y, scale }: Point): void {
  const color = themeColor("signal");
  context.fillStyle = color;
  context.beginPath();
  context.arc(x, y, Math.max(0.012 * scale, 4), 0, 2 * Math.PI);
  context.fill();
  context.strokeStyle = color;
  context.lineWidth = 2;
  context.beginPath();
  context.arc(x, y, Math.max(0.022 * scale, 8), 0, 2 * Math.PI);
  context.stroke();
}

function addStops(gradient: CanvasGradient, paint: Paint): void {
  gradient.addColorStop(0, shaded(paint, 1));
  gradient.addColorStop(0.55, shaded(paint, 0.55));
  gradient.addColorStop(1, shaded(paint, -0.2));
}

/** @param light 1 for a side that faces the light, -1 for one that is turned away */
function shaded(paint: Paint, light: number): string {
  const [lit, shade] = kPaints[paint];
  const share = Math.min(Math.max((light + 0.6) / 1.6, 0), 1);
  const [r, g, b] = lit.map((value, i) =>
    Math.round((shade[i] ?? 0) + (value - (shade[i] ?? 0)) * share),
  );
  return `rgb(${r},${g},${b})`;
}

function middle(a: Vector, b: Vector): Vector {
  return [(a[0] + b[0]) / 2, (a[1] + b[1]) / 2, (a[2] + b[2]) / 2];
}

function plus(a: Vector, b: Vector): Vector {
  return [a[0] + b[0], a[1] + b[1], a[2] + b[2]];
}
