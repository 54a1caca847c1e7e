import {
  BufferGeometry,
  Color,
  DoubleSide,
  Group,
  Line,
  LineBasicMaterial,
  Mesh,
  MeshBasicMaterial,
  RingGeometry,
  Vector3,
} from "three";
import { kNear, shownDistance } from "../model/sonarRange.js";
import type { Sonar } from "../model/robotState.js";
import { kEmitters } from "./body.js";

/** rad from straight ahead, and how wide, on each side. */
const kFrom = 0.05;
const kSpan = 0.62;
const kSegments = 24;
/** m */
const kIdle = 0.4;
/** Nearer than this the fan would hide in the chest. */
const kLeast = 0.06;

/** What the two ultrasonic sensors see: a fan ahead of the chest on each side, as long as the way is free. */
export class SonarFan {
  readonly object = new Group();

  private readonly left = new Wing(1);
  private readonly right = new Wing(-1);

  constructor() {
    this.object.position.set(...kEmitters);
    this.object.add(this.left.object, this.right.object);
    this.object.visible = false;
  }

  show(isShown: boolean): void {
    this.object.visible = isShown;
  }

  set(sonar: Sonar, colors: { near: string; far: string }): void {
    this.left.set(sonar.left, colors);
    this.right.set(sonar.right, colors);
  }
}

class Wing {
  readonly object = new Group();

  private readonly fill = new MeshBasicMaterial({
    transparent: true,
    side: DoubleSide,
    depthWrite: false,
  });
  private readonly edge = new LineBasicMaterial({ transparent: true });

  /** @param side 1 for the left, -1 for the right. */
  constructor(side: number) {
    const start = side > 0 ? kFrom : -kFrom - kSpan;
    this.object.add(new Mesh(new RingGeometry(0, 1, kSegments, 1, start, kSpan), this.fill));
    const arc = Array.from({ length: kSegments + 1 }, (_, i) => {
      const angle = start + (kSpan * i) / kSegments;
      return new Vector3(Math.cos(angle), Math.sin(angle), 0);
    });
    this.object.add(new Line(new BufferGeometry().setFromPoints(arc), this.edge));
  }

  set(distance: number | undefined, colors: { near: string; far: string }): void {
    const shown = shownDistance(distance);
    const isNear = shown !== undefined && shown < kNear;
    this.object.visible = distance !== undefined;
    // The way to an echo; without one, a short faint fan says that the sensor looks.
    this.object.scale.setScalar(Math.max(shown ?? kIdle, kLeast));
    const color = new Color(isNear ? colors.near : colors.far);
    this.fill.color.copy(color);
    this.edge.color.copy(color);
    this.fill.opacity = shown === undefined ? 0.06 : isNear ? 0.3 : 0.14;
    this.edge.opacity = shown === undefined ? 0 : 1;
  }
}
