import { asArray, asMembers, asText } from "../host/members.js";
import { formatAge } from "./format.js";

/** Something that is not as it should be. */
export interface Finding {
  /** Seconds of the run. */
  since: number;
  /** 1 warning, 2 error. */
  level: number;
  text: string;
  /** What to do about it; empty when nothing helps. */
  advice: string;
  subject: string;
}

/** What matters now, worst first. */
export function readVerdict(list: unknown): Finding[] {
  return asArray(list)
    .map(asMembers)
    .filter(({ text }) => typeof text === "string")
    .map(({ since, level, text, advice, subject }) => ({
      since: typeof since === "number" ? since : NaN,
      level: typeof level === "number" ? level : 1,
      text: asText(text).replaceAll(/\bdegC\b/g, "°C"),
      advice: asText(advice),
      subject: asText(subject),
    }));
}

/** "Fell onto its belly 7 s ago". @param now seconds of the run */
export function findingWords({ text, since }: Finding, now: number): string {
  const age = now - since;
  return Number.isFinite(age) ? `${text} · ${formatAge(age)}` : text;
}
