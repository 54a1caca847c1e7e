// Field names end in their unit: "left_m" is a distance in metres, "HeadYaw_degC" a temperature.

const kUnits: readonly (readonly [suffix: string, unit: string])[] = [
  ["_rad_per_s", "rad/s"],
  ["_m_per_s^2", "m/s²"],
  ["_m_per_s", "m/s"],
  ["_degC", "°C"],
  ["_percent", "%"],
  ["_ratio", ""],
  ["_raw", ""],
  ["_rad", "rad"],
  ["_kg", "kg"],
  ["_ms", "ms"],
  ["_us", "µs"],
  ["_m", "m"],
  ["_s", "s"],
  ["_A", "A"],
  ["_V", "V"],
  ["_N", "N"],
];

export interface NamedUnit {
  /** The name without its unit, in words. */
  label: string;
  /** The unit's symbol; empty for a number without one. */
  unit: string;
}

export function splitUnit(field: string): NamedUnit {
  for (const [suffix, unit] of kUnits) {
    if (field.length > suffix.length && field.endsWith(suffix)) {
      return { label: words(field.slice(0, -suffix.length)), unit };
    }
  }
  return { label: words(field), unit: "" };
}

function words(name: string): string {
  return name.replaceAll(/[_.]/g, " ");
}
