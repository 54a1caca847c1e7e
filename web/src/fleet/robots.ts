import { asArray, asMembers, asText, type Members } from "../host/members.js";

/** What a robot's card shows, as the server tells it. */
export interface Robot {
  /** Site and name. */
  key: string;
  site: string;
  name: string;
  /** The more the worse; `kAway` and `kWell` need nobody. */
  urgency: number;
  /** 0 fine, 1 warning, 2 error. */
  level: number;
  words: string;
  pose: string;
  /** %; undefined where it is not known. */
  charge: number | undefined;
  isPlugged: boolean;
  backlog: number | undefined;
  /** In words, and when: seconds since 1970. */
  event: { words: string; time: number } | undefined;
  /** The robot's own page; empty where it has none that can be reached. */
  page: string;
}

export const kAway = 0;
export const kWell = 1;

/** An answer of the server. */
export interface Update {
  session: string;
  version: number;
  broker: string;
  /** Why there is no broker; empty while there is one. */
  trouble: string;
  /** The cards are all there are. */
  isAll: boolean;
  robots: Robot[];
}

export function readUpdate(value: unknown): Update {
  const members = asMembers(value);
  return {
    session: asText(members["session"]),
    version: asNumber(members["version"]) ?? 0,
    broker: asText(members["broker"]),
    trouble: asText(members["trouble"]),
    isAll: members["all"] === true,
    robots: asArray(members["cards"]).map((card) => readRobot(asMembers(card))),
  };
}

function readRobot(card: Members): Robot {
  const event = asMembers(card["event"]);
  const site = asText(card["site"]);
  const name = asText(card["robot"]);
  return {
    key: `${site}/${name}`,
    site,
    name,
    urgency: asNumber(card["urgency"]) ?? kWell,
    level: asNumber(card["level"]) ?? 0,
    words: asText(card["words"]),
    pose: asText(card["pose"]),
    charge: asNumber(card["charge"]),
    isPlugged: card["plugged"] === true,
    backlog: asNumber(card["backlog"]),
    event:
      card["event"] === null || card["event"] === undefined
        ? undefined
        : { words: asText(event["words"]), time: asNumber(event["time"]) ?? 0 },
    page: webPage(asText(card["page"])),
  };
}

/** Whatever a robot calls its page: nothing but a page on the web is opened. */
export function webPage(address: string): string {
  return /^https?:\/\//u.test(address) ? address : "";
}

function asNumber(value: unknown): number | undefined {
  return typeof value === "number" ? value : undefined;
}

/** Those first that need somebody most; those that are equally urgent by their names. */
export function byUrgency(a: Robot, b: Robot): number {
  return b.urgency - a.urgency || a.key.localeCompare(b.key, undefined, { numeric: true });
}

/** Whether every word is somewhere on the card. */
export function fitsWords(robot: Robot, words: readonly string[]): boolean {
  const text =
    `${robot.key} ${robot.words} ${robot.pose} ${robot.event?.words ?? ""}`.toLowerCase();
  return words.every((word) => text.includes(word));
}

export function wordsOf(filter: string): string[] {
  return filter
    .toLowerCase()
    .split(/\s+/u)
    .filter((word) => word !== "");
}

/** "1000 robots: 3 need somebody, 2 are offline". */
export function summaryOf(robots: Iterable<Robot>): string {
  let all = 0;
  let needy = 0;
  let away = 0;
  for (const robot of robots) {
    all += 1;
    needy += robot.urgency > kWell ? 1 : 0;
    away += robot.urgency === kAway ? 1 : 0;
  }
  const parts = [
    needy === 0 ? "" : needy === 1 ? "1 needs somebody" : `${needy} need somebody`,
    away === 0 ? "" : away === 1 ? "1 is offline" : `${away} are offline`,
  ].filter((part) => part !== "");
  const count = `${all} robot${all === 1 ? "" : "s"}`;
  return parts.length > 0 ? `${count}: ${parts.join(", ")}` : all === 0 ? "" : `${count}, all well`;
}
