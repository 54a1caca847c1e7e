// The robot's body in primitive shapes, hung on its joints. Metres; x ahead, y left, z up. The root
// frame lies in the middle of the torso. With all joints at 0 the robot stands upright and stretches
// its arms ahead; joints and lengths are those of the simulated robot.

export type Vector = readonly [x: number, y: number, z: number];

export type Paint = "shell" | "frame" | "accent" | "visor";

export type Shape =
  /** A box with rounded edges. */
  | { kind: "box"; size: Vector; at: Vector; paint: Paint }
  /** From one point to another, round at both ends. */
  | { kind: "capsule"; from: Vector; to: Vector; radius: number; paint: Paint }
  | { kind: "sphere"; radius: number; at: Vector; scale?: Vector; paint: Paint };

/** A part that lights up while its touch sensor is touched. */
export interface TouchMark {
  sensor: string;
  at: Vector;
  size: Vector;
}

export interface Link {
  /** The joint that moves this link in its parent; the link's name as well. */
  joint: string;
  parent: string;
  /** Where the joint lies in the parent. */
  at: Vector;
  /** Axis of rotation, unit length. */
  axis: Vector;
  shapes: readonly Shape[];
  marks?: readonly TouchMark[];
}

export const kRoot = "Torso";

const kX: Vector = [1, 0, 0];
const kY: Vector = [0, 1, 0];
const kZ: Vector = [0, 0, 1];
/** Both hip yaw-pitch axes point halfway between up and sideways. */
const kHalf = Math.SQRT1_2;

const kHip = { side: 0.05, height: -0.075 };
const kShoulder = { side: 0.09, height: 0.078 };
const kThigh = 0.105;
const kShin = 0.1;
const kUpperArm = { length: 0.1, side: 0.012 };
const kForearm = 0.06;
const kNeckHeight = 0.108;
const kSole = -0.035;

/** Where the ultrasonic sensors look from. */
export const kEmitters: Vector = [0.043, 0, 0.03];

export const kRootShapes: readonly Shape[] = [
  { kind: "box", size: [0.07, 0.105, 0.066], at: [0, 0, -0.048], paint: "frame" },
  { kind: "box", size: [0.088, 0.128, 0.118], at: [0, 0, 0.03], paint: "shell" },
  {
    kind: "capsule",
    from: [0, -0.064, 0.074],
    to: [0, 0.064, 0.074],
    radius: 0.029,
    paint: "shell",
  },
  { kind: "sphere", radius: 0.0085, at: [0.042, 0.03, 0.03], paint: "visor" },
  { kind: "sphere", radius: 0.0085, at: [0.042, -0.03, 0.03], paint: "visor" },
];

export const kRootMarks: readonly TouchMark[] = [
  { sensor: "ChestButton", at: [0.044, 0, 0.056], size: [0.01, 0.02, 0.02] },
];

export const kLinks: readonly Link[] = [
  ...head(),
  ...arm("L", 1),
  ...arm("R", -1),
  ...leg("L", 1),
  ...leg("R", -1),
];

function head(): Link[] {
  return [
    {
      joint: "HeadYaw",
      parent: kRoot,
      at: [0, 0, kNeckHeight],
      axis: kZ,
      shapes: [
        { kind: "capsule", from: [0, 0, -0.012], to: [0, 0, 0.012], radius: 0.02, paint: "frame" },
      ],
    },
    {
      joint: "HeadPitch",
      parent: "HeadYaw",
      at: [0, 0, 0.012],
      axis: kY,
      shapes: [
        {
          kind: "sphere",
          radius: 0.054,
          at: [0.002, 0, 0.044],
          scale: [1, 1.08, 0.94],
          paint: "shell",
        },
        {
          kind: "sphere",
          radius: 0.044,
          at: [0.016, 0, 0.044],
          scale: [1, 1.04, 0.66],
          paint: "visor",
        },
        { kind: "sphere", radius: 0.0075, at: [0.0545, 0.018, 0.047], paint: "accent" },
        { kind: "sphere", radius: 0.0075, at: [0.0545, -0.018, 0.047], paint: "accent" },
        {
          kind: "capsule",
          from: [0, -0.057, 0.044],
          to: [0, 0.057, 0.044],
          radius: 0.015,
          paint: "frame",
        },
      ],
      marks: [
        { sensor: "HeadFront", at: [0.03, 0, 0.084], size: [0.02, 0.022, 0.012] },
        { sensor: "HeadMiddle", at: [0.004, 0, 0.092], size: [0.02, 0.022, 0.012] },
        { sensor: "HeadRear", at: [-0.022, 0, 0.087], size: [0.02, 0.022, 0.012] },
      ],
    },
  ];
}

/** @param side 1 for the left, -1 for the right. */
function arm(name: "L" | "R", side: number): Link[] {
  const y = kUpperArm.side * side;
  return [
    {
      joint: `${name}ShoulderPitch`,
      parent: kRoot,
      at: [0, kShoulder.side * side, kShoulder.height],
      axis: kY,
      shapes: [{ kind: "sphere", radius: 0.028, at: [0, y / 2, 0], paint: "frame" }],
    },
    {
      joint: `${name}ShoulderRoll`,
      parent: `${name}ShoulderPitch`,
      at: [0, 0, 0],
      axis: kZ,
      shapes: [
        { kind: "capsule", from: [0.012, y, 0], to: [0.082, y, 0], radius: 0.0225, paint: "shell" },
      ],
    },
    {
      joint: `${name}ElbowYaw`,
      parent: `${name}ShoulderRoll`,
      at: [kUpperArm.length, y, 0],
      axis: kX,
      shapes: [{ kind: "sphere", radius: 0.021, at: [0, 0, 0], paint: "frame" }],
    },
    {
      joint: `${name}ElbowRoll`,
      parent: `${name}ElbowYaw`,
      at: [0, 0, 0],
      axis: kZ,
      shapes: [
        { kind: "capsule", from: [0.02, 0, 0], to: [0.05, 0, 0], radius: 0.02, paint: "shell" },
      ],
    },
    {
      joint: `${name}WristYaw`,
      parent: `${name}ElbowRoll`,
      at: [kForearm, 0, 0],
      axis: kX,
      shapes: [
        { kind: "sphere", radius: 0.0165, at: [0.002, 0, 0], paint: "frame" },
        { kind: "box", size: [0.036, 0.026, 0.034], at: [0.024, 0, 0], paint: "shell" },
      ],
      marks: [
        { sensor: `${name}HandBack`, at: [0.022, 0, 0.016], size: [0.02, 0.016, 0.008] },
        { sensor: `${name}HandLeft`, at: [0.022, 0.012, 0], size: [0.02, 0.008, 0.016] },
        { sensor: `${name}HandRight`, at: [0.022, -0.012, 0], size: [0.02, 0.008, 0.016] },
      ],
    },
    {
      joint: `${name}Hand`,
      parent: `${name}WristYaw`,
      at: [0.04, 0, 0],
      axis: kY,
      shapes: [{ kind: "box", size: [0.024, 0.026, 0.012], at: [0.01, 0, 0.006], paint: "frame" }],
    },
  ];
}

/** @param side 1 for the left, -1 for the right. */
function leg(name: "L" | "R", side: number): Link[] {
  const y = 0.004 * side;
  return [
    {
      joint: `${name}HipYawPitch`,
      parent: kRoot,
      at: [0, kHip.side * side, kHip.height],
      axis: [0, kHalf, -kHalf * side],
      shapes: [{ kind: "sphere", radius: 0.03, at: [0, 0, 0], paint: "frame" }],
    },
    { joint: `${name}HipRoll`, parent: `${name}HipYawPitch`, at: [0, 0, 0], axis: kX, shapes: [] },
    {
      joint: `${name}HipPitch`,
      parent: `${name}HipRoll`,
      at: [0, 0, 0],
      axis: kY,
      shapes: [
        {
          kind: "capsule",
          from: [0, 0, -0.022],
          to: [0, 0, -0.084],
          radius: 0.031,
          paint: "shell",
        },
      ],
    },
    {
      joint: `${name}KneePitch`,
      parent: `${name}HipPitch`,
      at: [0, 0, -kThigh],
      axis: kY,
      shapes: [
        { kind: "sphere", radius: 0.027, at: [0, 0, 0], paint: "frame" },
        {
          kind: "capsule",
          from: [0.002, 0, -0.026],
          to: [0, 0, -0.078],
          radius: 0.0275,
          paint: "shell",
        },
      ],
    },
    {
      joint: `${name}AnklePitch`,
      parent: `${name}KneePitch`,
      at: [0, 0, -kShin],
      axis: kY,
      shapes: [{ kind: "sphere", radius: 0.022, at: [0, 0, 0], paint: "frame" }],
    },
    {
      joint: `${name}AnkleRoll`,
      parent: `${name}AnklePitch`,
      at: [0, 0, 0],
      axis: kX,
      shapes: [
        { kind: "box", size: [0.15, 0.084, 0.024], at: [0.02, y, kSole + 0.008], paint: "shell" },
        { kind: "box", size: [0.07, 0.056, 0.022], at: [0.002, 0, -0.014], paint: "shell" },
      ],
      marks: [
        {
          sensor: `${name}FootLeft`,
          at: [0.094, 0.024 + y, kSole + 0.011],
          size: [0.01, 0.028, 0.014],
        },
        {
          sensor: `${name}FootRight`,
          at: [0.094, -0.024 + y, kSole + 0.011],
          size: [0.01, 0.028, 0.014],
        },
      ],
    },
  ];
}
