// What the page knows of the robot. A part is undefined until the host has told it, and a number
// that the host does not provide is undefined as well.

export interface Pose {
  /** The pose that has lasted: "Stand", "Belly", ...; "Unknown" when none matches. */
  announced: string;
  /** The pose of this tick; undefined when the host does not tell. */
  running: string | undefined;
  /** How long the running pose has lasted, in seconds. */
  seconds: number | undefined;
}

export interface Foot {
  /** kg */
  weight: number | undefined;
  hasContact: boolean;
  /** kg on front left, front right, rear left and rear right; undefined when the host does not say. */
  cells: readonly number[] | undefined;
}

export interface Feet {
  left: Foot;
  right: Foot;
  hasContact: boolean;
}

/** Distances in metres. */
export interface Sonar {
  left: number | undefined;
  right: number | undefined;
  /** Whether the emitters are on, where the host says so. */
  isOn?: boolean;
}

/** Inclination of the body in radians: `roll` to the right, `pitch` forward. */
export interface Inclination {
  roll: number;
  pitch: number;
}

export interface Battery {
  /** Percent. */
  charge: number | undefined;
  /** A */
  current: number | undefined;
  isCharging: boolean;
  isFull: boolean;
  isDischarging: boolean;
  isPlugged: boolean | undefined;
}

export interface Stiffness {
  /** 0 (limp) to 1 by joint. */
  joints: ReadonlyMap<string, number>;
}

export interface Temperatures {
  /** °C by joint. */
  joints: ReadonlyMap<string, number>;
  /** Motor boards with an error, with its code. */
  boards: ReadonlyMap<string, number>;
}

export interface Tick {
  /** Whose loop it is. */
  module: string;
  /** Ticks since the host started. */
  count: number;
  /** Seconds since the tick before. */
  period: number | undefined;
}

export interface RobotState {
  pose?: Pose;
  feet?: Feet;
  sonar?: Sonar;
  inclination?: Inclination;
  /** 0 to 1 by the id of a touch zone. */
  touch?: ReadonlyMap<string, number>;
  battery?: Battery;
  stiffness?: Stiffness;
  temperatures?: Temperatures;
  /** rad by joint. */
  joints?: ReadonlyMap<string, number>;
  tick?: Tick;
}
