// A robot without physics: postures are angles it moves to, feet carry weight unless it hangs.

const kDegree = Math.PI / 180;
const kSides = ["L", "R"];

/** Degrees: hip, knee, ankle, shoulder pitch, pitch of the body. */
const kPostures = {
  Stand: [-20, 40, -20, 85, 0],
  Crouch: [-78, 118, -60, 70, 20],
  Sit: [-90, 8, 0, 45, -5],
  Knee: [0, 122, 53, 95, -22],
  Frog: [-95, 118, -58, 50, 35],
  Belly: [0, 5, 0, -80, 90],
  Back: [0, 5, 0, 80, -90],
};

const kJoints = [
  "HeadPitch",
  "HeadYaw",
  ...kSides.flatMap((side) =>
    [
      "AnklePitch",
      "AnkleRoll",
      "ElbowRoll",
      "ElbowYaw",
      "Hand",
      "HipPitch",
      "HipRoll",
      "KneePitch",
      "ShoulderPitch",
      "ShoulderRoll",
      "WristYaw",
    ].map((name) => side + name),
  ),
  "LHipYawPitch",
];

const kTouch = {
  "Head/Touch/Front": "head_front",
  "Head/Touch/Middle": "head_middle",
  "Head/Touch/Rear": "head_rear",
  "ChestBoard/Button": "chest_button",
  "LHand/Touch/Back": "left_hand_back",
  "LHand/Touch/Left": "left_hand_left",
  "LHand/Touch/Right": "left_hand_right",
  "RHand/Touch/Back": "right_hand_back",
  "RHand/Touch/Left": "right_hand_left",
  "RHand/Touch/Right": "right_hand_right",
  "LFoot/Bumper/Left": "left_foot_bumper_left",
  "LFoot/Bumper/Right": "left_foot_bumper_right",
  "RFoot/Bumper/Left": "right_foot_bumper_left",
  "RFoot/Bumper/Right": "right_foot_bumper_right",
};

const kEvents = {
  head_front: "FrontTactilTouched",
  head_middle: "MiddleTactilTouched",
  head_rear: "RearTactilTouched",
  chest_button: "ChestButtonPressed",
  left_hand_back: "HandLeftBackTouched",
  right_hand_back: "HandRightBackTouched",
};

const kPoseCodes = ["Unknown", "Stand", "Sit", "Crouch", "Knee", "Frog", "Back", "Belly"];

/** In the form in which a host tells its words. */
const words = (name, subject, importance, sentence, more = {}) => ({
  name,
  subject,
  importance,
  sentence,
  values: {},
  importances: {},
  unit: "",
  digits: 0,
  ...more,
});
export const kWords = [
  words("FrontTactilTouched", "touch", 1, "Head front {value}", {
    values: { 1: "Head touched in front", 0: "Head let go in front" },
  }),
  words("robotPoseChanged", "pose", 2, "Pose: {value}", {
    values: { Stand: "Stands", Sit: "Sits", Belly: "Lies on its belly", Back: "Lies on its back" },
    importances: { Belly: 3, Back: 3 },
  }),
  words("footContactChanged", "feet", 2, "Feet: {value}", {
    values: { true: "Feet on the floor", false: "Feet off the floor" },
  }),
  words("SonarLeftDetected", "sonar", 1, "Something on the left at {value}", {
    unit: "m",
    digits: 2,
  }),
  words("SonarNothingDetected", "sonar", 0, "Nothing in sight"),
];

const text = (name) => ({ name, type: "string", description: "" });

export class MockRobot {
  onEvent = () => {};
  seconds = 0;
  ticks = 0;
  topics = [
    "/events",
    "/log",
    "/verdict",
    "/pose",
    "/feet",
    "/sonar",
    "/imu",
    "/touch",
    "/battery",
    "/stiffness",
    "/temperatures",
    "/currents",
    "/joint_states",
    "/tick",
  ];
  world = new Map([
    ["Simulation/Posture", "Stand"],
    ["Simulation/Push/X", 0],
    ["Simulation/Push/Y", 0],
    ["Simulation/Hoist/Hold", false],
    ["Simulation/Hoist/Height", 0.45],
    ["Simulation/Obstacle/Left/Distance", 2.55],
    ["Simulation/Obstacle/Right/Distance", 2.55],
    ["Simulation/Charger/Plugged", false],
    ["Simulation/Ambient/Temperature", 22],
    ...Object.keys(kTouch).map((name) => [`Simulation/Touch/${name}`, false]),
  ]);
  modules = [
    {
      name: "GKBattery",
      description: "Watches the battery.",
      methods: [
        {
          name: "getBatteryCharge",
          description: "The charge in percent.",
          params: [],
          result: { name: "charge", type: "int", description: "0 to 100" },
        },
        {
          name: "_setResistanceValue",
          description: "Sets the resistance of the battery.",
          params: [{ name: "resistance", type: "float", description: "ohm" }],
          result: null,
        },
      ],
      events: ["BatteryChargeChanged", "BatteryPowerPluggedChanged"],
    },
    {
      name: "GKMemory",
      description: "The memory service.",
      events: [],
      methods: [
        {
          name: "getData",
          description: "The value of a key.",
          params: [text("key")],
          result: { name: "value", type: "value", description: "" },
        },
      ],
    },
    {
      name: "GKSonar",
      description: "Tells obstacles from ultrasonic distances.",
      methods: [
        {
          name: "subscribe",
          description: "Subscribes to the extractor.",
          params: [text("name")],
          result: null,
        },
        {
          name: "unsubscribe",
          description: "Ends a subscription.",
          params: [text("name")],
          result: null,
        },
        {
          name: "getSubscribersInfo",
          description: "Who has subscribed.",
          params: [],
          result: { name: "subscribers", type: "vector of value", description: "" },
        },
      ],
      events: ["SonarLeftDetected", "SonarRightDetected"],
    },
  ];
  pose = { name: "Stand", since: 0 };
  angles = [...kPostures.Stand];
  /** On what it lies after a push. */
  fallen = undefined;
  charge = 0.64;
  subscribers = new Set();

  write(key, value) {
    this.world.set(key, value);
    const field = kTouch[key.replace("Simulation/Touch/", "")];
    if (field !== undefined) {
      this.onEvent(kEvents[field] ?? "BumperPressed", value ? 1 : 0);
    } else if (key === "Simulation/Posture") {
      this.fallen = undefined;
      this.pose = { name: value, since: this.seconds };
      this.onEvent("robotPoseChanged", value);
    } else if (key === "Simulation/Push/X" && Math.abs(value) > 40) {
      this.fallen = value > 0 ? "Belly" : "Back";
      this.pose = { name: this.fallen, since: this.seconds };
      this.onEvent("robotPoseChanged", this.fallen);
    } else if (key === "Simulation/Hoist/Hold") {
      this.onEvent("footContactChanged", !value, true);
    } else if (key === "Simulation/Charger/Plugged") {
      this.onEvent("BatteryPowerPluggedChanged", value);
    }
  }

  call(method, params) {
    if (method === "GKBattery.getBatteryCharge") {
      return { result: Math.round(this.charge * 100) };
    }
    if (method === "GKBattery._setResistanceValue" && params[0] < 0) {
      return {
        error: {
          code: -32000,
          message: "refused",
          data: {
            module: "GKBattery",
            method: "_setResistanceValue",
            description: "must not be negative",
          },
        },
      };
    }
    if (method === "GKMemory.getData") {
      return {
        error: {
          code: -32000,
          message: "unknown key",
          data: {
            module: "GKMemory",
            method: "getData",
            description: `there is no key ${params[0]}`,
          },
        },
      };
    }
    if (method === "GKSonar.subscribe") {
      this.subscribers.add(params[0]);
    } else if (method === "GKSonar.unsubscribe") {
      this.subscribers.delete(params[0]);
    } else if (method === "GKSonar.getSubscribersInfo") {
      return { result: [...this.subscribers].map((name) => [name, 30, 0]) };
    }
    return this.modules.some((module) =>
      module.methods.some(({ name }) => method === `${module.name}.${name}`),
    )
      ? { result: null }
      : { error: { code: -32601, message: `no method ${method}` } };
  }

  tick(step) {
    this.seconds += step;
    this.ticks += 1;
    const posture = this.fallen ?? this.world.get("Simulation/Posture");
    const target = kPostures[posture] ?? kPostures.Stand;
    this.angles = this.angles.map((angle, i) => angle + (target[i] - angle) * 0.06);
    if (this.ticks % 200 === 0) {
      const near = Math.min(
        this.world.get("Simulation/Obstacle/Left/Distance"),
        this.world.get("Simulation/Obstacle/Right/Distance"),
      );
      this.onEvent(near < 0.7 ? "SonarLeftDetected" : "SonarNothingDetected", near);
    }
  }

  /** What is not as it should be. */
  verdict() {
    const { name, since } = this.pose;
    return name === "Belly" || name === "Back"
      ? [
          {
            since,
            level: 2,
            text: `Fell onto its ${name.toLowerCase()}`,
            advice: "Stand it up",
            subject: "pose",
          },
        ]
      : [];
  }

  samples() {
    const w = (name) => this.world.get(`Simulation/${name}`);
    const wave = (period, phase = 0) => Math.sin((this.seconds * 2 * Math.PI) / period + phase);
    const [hip, knee, ankle, shoulder, pitch] = this.angles;
    const isLying = Math.abs(pitch) > 45;
    const weight = w("Hoist/Hold") || isLying ? 0 : 4.6;
    const left = weight * (0.5 + 0.06 * wave(4));
    const cell = (share, phase) => Math.max(share * (0.25 + 0.08 * wave(4, phase)), 0);
    const foot = (side, kg) => ({
      [`${side}_total_weight_kg`]: kg,
      [`${side}_contact`]: kg > 0.4 ? 1 : 0,
      [`${side}_front_left_kg`]: cell(kg, 1),
      [`${side}_front_right_kg`]: cell(kg, 2),
      [`${side}_rear_left_kg`]: cell(kg, 4),
      [`${side}_rear_right_kg`]: cell(kg, 5),
    });
    const leg = { HipPitch: hip, KneePitch: knee, AnklePitch: ankle, ShoulderPitch: shoulder };
    const position = (joint) =>
      (leg[joint.slice(1)] ??
        {
          HeadYaw: 0.1 * wave(7),
          LShoulderRoll: 8,
          RShoulderRoll: -8,
          LElbowRoll: -25,
          RElbowRoll: 25,
          LElbowYaw: -80,
          RElbowYaw: 80,
        }[joint] ??
        0) * kDegree;
    const each = (suffix, value) =>
      Object.fromEntries(kJoints.map((joint, i) => [joint + suffix, value(joint, i)]));
    return {
      "/pose": {
        name: this.pose.name,
        code: kPoseCodes.indexOf(this.pose.name),
        since_s: this.seconds - this.pose.since,
      },
      "/feet": {
        contact: weight > 0 ? 1 : 0,
        ...foot("left", left),
        ...foot("right", weight - left),
      },
      "/sonar": { left_m: w("Obstacle/Left/Distance"), right_m: w("Obstacle/Right/Distance") },
      "/imu": { angle_x_rad: 0.002 * wave(4), angle_y_rad: pitch * kDegree + 0.002 * wave(3) },
      "/touch": Object.fromEntries(
        Object.entries(kTouch).map(([name, field]) => [field, w(`Touch/${name}`) ? 1 : 0]),
      ),
      "/battery": {
        charge_ratio: this.charge,
        charge_percent: Math.round(this.charge * 100),
        current_A: -0.82 + 0.1 * wave(9),
        status: 0x20,
        plugged: w("Charger/Plugged"),
      },
      "/stiffness": each("_ratio", (joint) =>
        joint.includes("Hand") ? 0 : joint.includes("Head") ? 0.6 : 1,
      ),
      "/temperatures": {
        ...each("_degC", (_, i) => 34 + ((i * 7) % 31) + wave(20)),
        HeadBoard_error: 0,
      },
      "/currents": each("_A", (_, i) => 0.2 + 0.1 * wave(5, i)),
      "/joint_states": { joints: kJoints.map((name) => ({ name, position: position(name) })) },
      "/tick": { module: "GKSensors", tick: this.ticks, period_s: 0.02 },
    };
  }
}
