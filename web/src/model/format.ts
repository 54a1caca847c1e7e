// How numbers, times and values look on the page.

/** Stands where a number is missing or none. */
export const kNoValue = "–";

export function formatNumber(value: number | undefined, digits: number): string {
  if (value === undefined || !Number.isFinite(value)) {
    return kNoValue;
  }
  const text = value.toFixed(digits);
  return Number(text) === 0 ? text.replace("-", "") : text.replace("-", "−");
}

/** "4.2 s", "3 min 20 s", "2 h 5 min". */
export function formatDuration(seconds: number): string {
  if (!Number.isFinite(seconds) || seconds < 0) {
    return kNoValue;
  }
  // What rounds up to a whole minute is shown as one.
  if (seconds < 59.95) {
    return `${seconds.toFixed(1)} s`;
  }
  const whole = Math.round(seconds);
  if (whole < 3600) {
    return `${Math.floor(whole / 60)} min ${whole % 60} s`;
  }
  return `${Math.floor(whole / 3600)} h ${Math.floor((whole % 3600) / 60)} min`;
}

/** Time of day with milliseconds, in the reader's time zone. */
export function formatClock(seconds: number): string {
  const date = new Date(Math.round(seconds * 1000));
  const two = (n: number): string => String(n).padStart(2, "0");
  const milliseconds = String(date.getMilliseconds()).padStart(3, "0");
  return `${two(date.getHours())}:${two(date.getMinutes())}:${two(date.getSeconds())}.${milliseconds}`;
}

/** A value of the host as one short text. */
export function formatValue(value: unknown): string {
  switch (typeof value) {
    case "undefined":
      return "";
    case "string":
      return value;
    case "boolean":
      return String(value);
    case "number":
      return formatShortest(value);
    default:
      return nonFinite(value) ?? JSON.stringify(value);
  }
}

/** At most three decimals; a thousandth is finer than any of the sensors. */
function formatShortest(value: number): string {
  return String(Math.round(value * 1000) / 1000).replace("-", "−");
}

/** JSON has no such numbers: the host writes {"float": "nan"}. */
function nonFinite(value: unknown): string | undefined {
  const text = (value as { float?: unknown } | null)?.float;
  return typeof text === "string" ? text.replace("-", "−") : undefined;
}
