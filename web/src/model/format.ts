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

/** "just now", "7 s ago", "3 min ago", "2 h ago". */
export function formatAge(seconds: number): string {
  if (seconds < 1) {
    return "just now";
  }
  if (seconds < 60) {
    return `${Math.floor(seconds)} s ago`;
  }
  return seconds < 3600
    ? `${Math.floor(seconds / 60)} min ago`
    : `${Math.floor(seconds / 3600)} h ago`;
}

/** A time of the run: "0:07.3", "12:04.0", "1:02:33.1". */
export function formatRunTime(seconds: number, digits = 1): string {
  const factor = 10 ** digits;
  const parts = Math.max(0, Math.round(seconds * factor));
  const whole = Math.floor(parts / factor);
  const two = (n: number): string => String(n).padStart(2, "0");
  const rest = digits > 0 ? `.${String(parts % factor).padStart(digits, "0")}` : "";
  const minutes = Math.floor(whole / 60);
  return minutes < 60
    ? `${minutes}:${two(whole % 60)}${rest}`
    : `${Math.floor(minutes / 60)}:${two(minutes % 60)}:${two(whole % 60)}${rest}`;
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
