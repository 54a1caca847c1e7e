import {
  BoxGeometry,
  BufferGeometry,
  CapsuleGeometry,
  Color,
  Group,
  Mesh,
  MeshStandardMaterial,
  Object3D,
  Quaternion,
  SphereGeometry,
  Vector3,
} from "three";
import { RoundedBoxGeometry } from "three/examples/jsm/geometries/RoundedBoxGeometry.js";
import type { Inclination } from "../model/robotState.js";
import {
  kLinks,
  kRootMarks,
  kRootShapes,
  type Paint,
  type Shape,
  type TouchMark,
  type Vector,
} from "./body.js";

const kPaints: Record<
  Paint,
  { color: number; roughness: number; metalness: number; emissive?: number }
> = {
  shell: { color: 0xf2f4f3, roughness: 0.42, metalness: 0 },
  frame: { color: 0x4a5552, roughness: 0.6, metalness: 0.2 },
  accent: { color: 0x39b3d7, roughness: 0.3, metalness: 0, emissive: 0x1b7f9e },
  visor: { color: 0x17201e, roughness: 0.18, metalness: 0.3 },
};

const kMarkAtRest = new Color(0x9fb4b8);
const kMarkTouched = new Color(0xe8730c);
const kUp = new Vector3(0, 1, 0);
const kAhead = new Vector3(1, 0, 0);
const kLeft = new Vector3(0, 1, 0);

/** The robot as a scene object: joints turn, touched parts glow, and it rests on the floor or hangs. */
export class Figure {
  /** Lies on the floor, z up; to be added to the scene. */
  readonly object = new Group();

  private readonly root = new Group();
  private readonly joints = new Map<string, { object: Object3D; axis: Vector3 }>();
  private readonly marks = new Map<string, MeshStandardMaterial>();
  private readonly solids: { mesh: Mesh; points: Vector3[] }[] = [];
  private readonly materials = new Map<Paint, MeshStandardMaterial>();

  constructor() {
    this.object.add(this.root);
    this.addShapes(this.root, kRootShapes, kRootMarks);
    const links = new Map<string, Object3D>();
    for (const link of kLinks) {
      const object = new Group();
      object.position.set(...link.at);
      (links.get(link.parent) ?? this.root).add(object);
      links.set(link.joint, object);
      this.joints.set(link.joint, { object, axis: new Vector3(...link.axis) });
      this.addShapes(object, link.shapes, link.marks ?? []);
    }
    this.place(undefined);
  }

  /** @param angles rad by joint; joints that are missing keep theirs */
  setJoints(angles: ReadonlyMap<string, number>): void {
    for (const [name, { object, axis }] of this.joints) {
      // The right hip yaw-pitch has no motor of its own: it follows the left one.
      const angle =
        angles.get(name) ?? (name === "RHipYawPitch" ? angles.get("LHipYawPitch") : undefined);
      if (angle !== undefined) {
        object.quaternion.setFromAxisAngle(axis, angle);
      }
    }
  }

  setInclination({ roll, pitch }: Inclination): void {
    this.root.quaternion
      .setFromAxisAngle(kLeft, pitch)
      .multiply(new Quaternion().setFromAxisAngle(kAhead, roll));
  }

  setTouch(touch: ReadonlyMap<string, number>): void {
    for (const [sensor, material] of this.marks) {
      const isTouched = (touch.get(sensor) ?? 0) > 0;
      material.color.copy(isTouched ? kMarkTouched : kMarkAtRest);
      material.emissive
        .copy(isTouched ? kMarkTouched : kMarkAtRest)
        .multiplyScalar(isTouched ? 0.6 : 0);
    }
  }

  /**
   * Puts the lowest point of the body on the floor, or the middle of the torso at the height of a
   * hoist, in metres.
   */
  place(hoist: number | undefined): void {
    this.root.position.set(0, 0, 0);
    this.object.updateMatrixWorld(true);
    let lowest = Infinity;
    const point = new Vector3();
    for (const { mesh, points } of this.solids) {
      for (const corner of points) {
        lowest = Math.min(lowest, point.copy(corner).applyMatrix4(mesh.matrixWorld).z);
      }
    }
    this.root.position.z = Math.max(-lowest, hoist ?? 0);
  }

  /** Hangs something on the torso. */
  attach(object: Object3D): void {
    this.root.add(object);
  }

  private addShapes(parent: Object3D, shapes: readonly Shape[], marks: readonly TouchMark[]): void {
    for (const shape of shapes) {
      const mesh = new Mesh(geometryOf(shape), this.material(shape.paint));
      place(mesh, shape);
      mesh.castShadow = true;
      mesh.receiveShadow = true;
      parent.add(mesh);
      this.solids.push({ mesh, points: cornersOf(mesh.geometry) });
    }
    for (const mark of marks) {
      const material = new MeshStandardMaterial({ color: kMarkAtRest, roughness: 0.5 });
      const mesh = new Mesh(new BoxGeometry(...mark.size), material);
      mesh.position.set(...mark.at);
      parent.add(mesh);
      this.marks.set(mark.sensor, material);
    }
  }

  private material(paint: Paint): MeshStandardMaterial {
    let material = this.materials.get(paint);
    if (material === undefined) {
      material = new MeshStandardMaterial(kPaints[paint]);
      this.materials.set(paint, material);
    }
    return material;
  }
}

function geometryOf(shape: Shape): BufferGeometry {
  switch (shape.kind) {
    case "box":
      return new RoundedBoxGeometry(...shape.size, 4, Math.min(...shape.size) * 0.3);
    case "capsule":
      return new CapsuleGeometry(
        shape.radius,
        new Vector3(...shape.from).distanceTo(new Vector3(...shape.to)),
        8,
        20,
      );
    case "sphere":
      return new SphereGeometry(shape.radius, 28, 20);
  }
}

function place(mesh: Mesh, shape: Shape): void {
  if (shape.kind === "capsule") {
    const from = new Vector3(...shape.from);
    const to = new Vector3(...shape.to);
    mesh.position.copy(from).add(to).multiplyScalar(0.5);
    mesh.quaternion.setFromUnitVectors(kUp, to.sub(from).normalize());
    return;
  }
  mesh.position.set(...shape.at);
  if (shape.kind === "sphere" && shape.scale !== undefined) {
    mesh.scale.set(...shape.scale);
  }
}

/** Few points that stand for the surface: enough to find where a body rests. */
function cornersOf(geometry: BufferGeometry): Vector3[] {
  geometry.computeBoundingBox();
  const { min, max } = geometry.boundingBox ?? { min: new Vector3(), max: new Vector3() };
  const isRound = geometry instanceof SphereGeometry || geometry instanceof CapsuleGeometry;
  if (!isRound) {
    return [min.x, max.x].flatMap((x) =>
      [min.y, max.y].flatMap((y) => [min.z, max.z].map((z) => new Vector3(x, y, z))),
    );
  }
  const directions: Vector[] = [];
  for (let i = 0; i < 64; ++i) {
    // Points spread evenly by the golden angle.
    const z = 1 - (2 * i + 1) / 64;
    const angle = i * Math.PI * (3 - Math.sqrt(5));
    const r = Math.sqrt(1 - z * z);
    directions.push([r * Math.cos(angle), z, r * Math.sin(angle)]);
  }
  const radius = max.x;
  const half = max.y - radius;
  return directions.map(
    ([x, y, z]) => new Vector3(x * radius, y * radius + Math.sign(y) * half, z * radius),
  );
}
