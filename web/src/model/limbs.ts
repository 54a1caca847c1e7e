/** The joints by limb, as people look for them. */
export const kLimbs: readonly { name: string; joints: readonly string[] }[] = [
  { name: "Head", joints: ["HeadYaw", "HeadPitch"] },
  { name: "Left arm", joints: arm("L") },
  { name: "Right arm", joints: arm("R") },
  { name: "Left leg", joints: ["LHipYawPitch", ...leg("L")] },
  { name: "Right leg", joints: leg("R") },
];

function arm(side: "L" | "R"): string[] {
  return ["ShoulderPitch", "ShoulderRoll", "ElbowYaw", "ElbowRoll", "WristYaw", "Hand"].map(
    (name) => side + name,
  );
}

/** The right leg has no yaw-pitch motor of its own. */
function leg(side: "L" | "R"): string[] {
  return ["HipRoll", "HipPitch", "KneePitch", "AnklePitch", "AnkleRoll"].map((name) => side + name);
}

/** "LShoulderPitch" as "left shoulder pitch". */
export function jointWords(joint: string): string {
  const side = joint.startsWith("L") ? "left " : joint.startsWith("R") ? "right " : "";
  const rest = side === "" ? joint : joint.slice(1);
  return side + rest.replace(/(?!^)[A-Z]/g, " $&").toLowerCase();
}
