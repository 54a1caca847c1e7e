// The simulated robot's world, as memory keys. There is a world where the host serves such keys.

export const kWorldPrefix = "Simulation/";

export const kWorldKeys = {
  posture: "Simulation/Posture",
  pushX: "Simulation/Push/X",
  pushY: "Simulation/Push/Y",
  hoistHold: "Simulation/Hoist/Hold",
  hoistHeight: "Simulation/Hoist/Height",
  obstacleLeft: "Simulation/Obstacle/Left/Distance",
  obstacleRight: "Simulation/Obstacle/Right/Distance",
  chargerPlugged: "Simulation/Charger/Plugged",
  ambientTemperature: "Simulation/Ambient/Temperature",
} as const;

const kTouchPrefix = "Simulation/Touch/";

/** The keys of the touch sensors among `keys`, with words for each, grouped by the part of the body. */
export function touchGroups(
  keys: Iterable<string>,
): { part: string; sensors: { key: string; label: string }[] }[] {
  const groups = new Map<string, { key: string; label: string }[]>();
  for (const key of keys) {
    if (key.startsWith(kTouchPrefix)) {
      const { part, label } = touchWords(key.slice(kTouchPrefix.length));
      groups.set(part, [...(groups.get(part) ?? []), { key, label }]);
    }
  }
  const order = (part: string): number =>
    (kParts.indexOf(part) + kParts.length + 1) % (kParts.length + 1);
  return [...groups]
    .map(([part, sensors]) => ({ part, sensors }))
    .sort((a, b) => order(a.part) - order(b.part));
}

const kParts = ["Head", "Chest", "Left hand", "Right hand", "Left foot", "Right foot"];

const kPartWords: Readonly<Record<string, string>> = {
  ChestBoard: "Chest",
  ChestButton: "Chest",
  LHand: "Left hand",
  RHand: "Right hand",
  LFoot: "Left foot",
  RFoot: "Right foot",
};

/** "LHand/Back" is the back of the left hand. Levels that only repeat that this is touch say nothing. */
function touchWords(path: string): { part: string; label: string } {
  const [first = path, ...rest] = path
    .split("/")
    .filter((word) => word !== "Touch" && word !== "Sensor" && word !== "Value");
  const part = kPartWords[first] ?? first;
  const label = rest.filter((word) => word !== "Bumper").join(" ");
  return { part, label: label === "" ? "Button" : label };
}
