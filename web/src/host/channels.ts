import type {
  Battery,
  Feet,
  Foot,
  Inclination,
  Pose,
  RobotState,
  Sonar,
  Stiffness,
  Temperatures,
  Tick,
} from "../model/robotState.js";
import { kPoseNames } from "../model/poses.js";
import { kTouchZones } from "../model/touchZones.js";
import { asMembers, type Members } from "./members.js";

// From the messages of the host's channels to what the page knows. Members that are missing, null
// or of another type count as not told.

/** How each topic's messages become a part of the state. */
export const kStateTopics: Readonly<Record<string, (members: Members) => Partial<RobotState>>> = {
  "/pose": (members) => ({ pose: readPose(members) }),
  "/feet": (members) => ({ feet: readFeet(members) }),
  "/sonar": (members) => ({ sonar: readSonar(members) }),
  "/imu": (members) => ({ inclination: readInclination(members) }),
  "/touch": (members) => ({ touch: readTouch(members) }),
  "/battery": (members) => ({ battery: readBattery(members) }),
  "/stiffness": (members) => ({ stiffness: readStiffness(members) }),
  "/temperatures": (members) => ({ temperatures: readTemperatures(members) }),
  "/joint_states": (members) => ({ joints: readJoints(members) }),
  "/tick": (members) => ({ tick: readTick(members) }),
};

/** Topics of which samples are taken. */
export const kSampledTopics: readonly string[] = [...Object.keys(kStateTopics), "/currents"];

/** The sensors' loop; modules of other libraries may have loops of their own. */
export const kSensorLoop = "GKSensors";

/** The loop whose pace is shown, of those that the host names: the first where no sensors are. */
export function shownLoop(loops: readonly Members[]): Members | undefined {
  return loops.find((loop) => loop["module"] === kSensorLoop) ?? loops[0];
}

/** Codes of a motor board that mean heat. */
const kHeatErrors = new Set([33, 34, 35]);

const kChargingBit = 0x80;
const kFullBit = 0x40;
const kDischargingBit = 0x20;

export interface RaisedEvent {
  /** Seconds of the run. */
  time: number;
  name: string;
  value: unknown;
  isMicro: boolean;
}

export function readEvent(payload: unknown): RaisedEvent | undefined {
  const { name, t_s, kind, value } = asMembers(payload);
  return typeof name === "string" && typeof t_s === "number"
    ? { time: t_s, name, value, isMicro: kind === "micro" }
    : undefined;
}

export interface LogLine {
  /** Seconds of the run. */
  time: number;
  /** 1 debug, 2 info, 3 warning, 4 error, 5 fatal. */
  level: number;
  category: string;
  text: string;
}

export function readLogLine(payload: unknown, time: number): LogLine | undefined {
  const { level, message, name } = asMembers(payload);
  return typeof message === "string"
    ? {
        time,
        level: typeof level === "number" ? level : 0,
        category: typeof name === "string" ? name : "",
        text: message,
      }
    : undefined;
}

export function isHeat(boardError: number): boolean {
  return kHeatErrors.has(boardError);
}

function readPose(members: Members): Pose {
  const name = members["name"];
  return {
    announced: typeof name === "string" && name !== "" ? name : "Unknown",
    running: kPoseNames[number(members, "code") ?? -1],
    seconds: number(members, "since_s"),
  };
}

function readFeet(members: Members): Feet {
  return {
    left: readFoot(members, "left"),
    right: readFoot(members, "right"),
    hasContact: isSet(members, "contact"),
  };
}

function readFoot(members: Members, side: "left" | "right"): Foot {
  const cells = ["front_left", "front_right", "rear_left", "rear_right"]
    .map((cell) => number(members, `${side}_${cell}_kg`))
    .filter((weight) => weight !== undefined);
  return {
    weight: number(members, `${side}_total_weight_kg`) ?? number(members, `${side}_mean_weight_kg`),
    hasContact: isSet(members, `${side}_contact`),
    cells: cells.length === 4 ? cells : undefined,
  };
}

function readSonar(members: Members): Sonar {
  const on = members["on"];
  return {
    left: number(members, "left_m"),
    right: number(members, "right_m"),
    ...(on === undefined || on === null ? {} : { isOn: isSet(members, "on") }),
  };
}

function readInclination(members: Members): Inclination {
  return { roll: number(members, "angle_x_rad") ?? 0, pitch: number(members, "angle_y_rad") ?? 0 };
}

function readTouch(members: Members): ReadonlyMap<string, number> {
  return new Map(kTouchZones.map(({ id, field }) => [id, number(members, field) ?? 0]));
}

function readBattery(members: Members): Battery {
  const status = number(members, "status") ?? 0;
  const charge = number(members, "charge_ratio");
  const plugged = members["plugged"];
  return {
    charge: number(members, "charge_percent") ?? (charge === undefined ? undefined : charge * 100),
    current: number(members, "current_A"),
    isCharging: (status & kChargingBit) !== 0,
    isFull: (status & kFullBit) !== 0,
    isDischarging: (status & kDischargingBit) !== 0,
    isPlugged: plugged === undefined || plugged === null ? undefined : isSet(members, "plugged"),
  };
}

function readStiffness(members: Members): Stiffness {
  return { joints: byJoint(members, "_ratio") };
}

function readTemperatures(members: Members): Temperatures {
  const boards = [...byJoint(members, "_error")].filter(([, code]) => code !== 0);
  return { joints: byJoint(members, "_degC"), boards: new Map(boards) };
}

/** The members whose names end in `suffix`, without it. */
function byJoint(members: Members, suffix: string): ReadonlyMap<string, number> {
  const values = new Map<string, number>();
  for (const [name, value] of Object.entries(members)) {
    if (name.endsWith(suffix) && typeof value === "number") {
      values.set(name.slice(0, -suffix.length), value);
    }
  }
  return values;
}

function readJoints(members: Members): ReadonlyMap<string, number> {
  const joints = members["joints"];
  const positions = new Map<string, number>();
  for (const joint of Array.isArray(joints) ? joints : []) {
    const { name, position } = asMembers(joint);
    if (typeof name === "string" && typeof position === "number") {
      positions.set(name, position);
    }
  }
  return positions;
}

function readTick(members: Members): Tick {
  const module = members["module"];
  return {
    module: typeof module === "string" ? module : "",
    count: number(members, "tick") ?? 0,
    period: number(members, "period_s"),
  };
}

function number(members: Members, name: string): number | undefined {
  const value = members[name];
  return typeof value === "number" ? value : undefined;
}

function isSet(members: Members, name: string): boolean {
  const value = members[name];
  return value === true || (typeof value === "number" && value > 0);
}
