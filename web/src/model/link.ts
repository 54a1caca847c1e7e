import type { ConnectionState } from "../host/connection.js";

// How fresh what the page shows is, in words.

/** ms without a value after which what is shown counts as old: 75 ticks of the sensor loop. */
export const kStaleAfter = 1_500;

export type LinkKind = "connecting" | "live" | "stale" | "lost" | "locked";

export interface Link {
  kind: LinkKind;
  /** One or two words. */
  short: string;
  /** What the reader should know; empty while all is well. */
  explanation: string;
}

/**
 * @param valuesAt when the last value came, or undefined when none came yet; both this and `now` in
 * milliseconds of one clock
 */
export function describeLink(
  state: ConnectionState,
  isLocked: boolean,
  valuesAt: number | undefined,
  now: number,
): Link {
  const age = valuesAt === undefined ? undefined : now - valuesAt;
  if (state.kind === "connected") {
    if (age === undefined) {
      return {
        kind: "stale",
        short: "No values yet",
        explanation: "Connected, but the host has not sent any values yet.",
      };
    }
    return age < kStaleAfter
      ? { kind: "live", short: "Live", explanation: "" }
      : {
          kind: "stale",
          short: "Stale",
          explanation: `Connected, but the values are ${ageText(age)} old: the sensor loop is silent.`,
        };
  }
  if (isLocked) {
    return { kind: "locked", short: "Locked", explanation: "This host asks for its token." };
  }
  const old = age === undefined ? "" : ` What you see is ${ageText(age)} old.`;
  if (state.kind === "waiting") {
    const seconds = Math.max(0, Math.ceil((state.retryAt - now) / 1000));
    return {
      kind: "lost",
      short: "Not connected",
      explanation: `Not connected to the host.${old} Next try in ${seconds} s.`,
    };
  }
  return age === undefined
    ? { kind: "connecting", short: "Connecting", explanation: "" }
    : {
        kind: "lost",
        short: "Not connected",
        explanation: `Not connected to the host.${old} Trying again.`,
      };
}

function ageText(milliseconds: number): string {
  const seconds = Math.round(milliseconds / 1000);
  return seconds < 120 ? `${seconds} s` : `${Math.round(seconds / 60)} min`;
}
