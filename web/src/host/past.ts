import type { RaisedEvent } from "./channels.js";
import { asArray, asMembers, asText, type Members } from "./members.js";
import { get, post } from "./rest.js";

// What the host remembers of the last minutes, or all of a recording that is played.

export interface Past {
  session: string;
  /** Seconds of the run that the host remembers. */
  begin: number;
  end: number;
  /** What the answer covers, which can be less than was asked for. */
  from: number;
  to: number;
  times: readonly number[];
  /** By topic and field: a number for each time, or null. */
  topics: Readonly<Record<string, Readonly<Record<string, readonly (number | null)[]>>>>;
  events: readonly RaisedEvent[];
}

export interface Span {
  from: number;
  to: number;
}

/** Samples between two times. Raises CallError, also where the host remembers nothing. */
export async function fetchPast({ from, to }: Span): Promise<Past> {
  return readPast(await get(`/api/v1/past?from=${from.toFixed(2)}&to=${to.toFixed(2)}`));
}

/** All events that the host remembers. Raises CallError. */
export async function fetchPastEvents(): Promise<Past> {
  const first = await get("/api/v1/past?step=0");
  const past = readPast(first);
  const events = [...past.events];
  for (let next = asMembers(first)["next"]; typeof next === "number";) {
    const more = await get(`/api/v1/past?step=0&from=${next}`);
    events.push(...readPast(more).events);
    next = asMembers(more)["next"];
  }
  return { ...past, events };
}

/** A recording of the last seconds. Raises CallError. */
export async function keepPast(seconds: number): Promise<{ name: string; data: Blob }> {
  const response = await post("/api/v1/past/keep", JSON.stringify({ seconds }));
  const named = /filename="([^"]+)"/.exec(response.headers.get("content-disposition") ?? "");
  return { name: named?.[1] ?? "past.mcap", data: await response.blob() };
}

function readPast(answer: unknown): Past {
  const members = asMembers(answer);
  const time = (name: string): number => Number(members[name] ?? 0);
  return {
    session: asText(members["session"]),
    begin: time("begin"),
    end: time("end"),
    from: time("from"),
    to: time("to"),
    times: asArray(members["times"]) as number[],
    topics: asMembers(members["topics"]) as Past["topics"],
    events: asArray(members["events"]).map(asMembers).flatMap(readRaised),
  };
}

function readRaised({ t_s, name, kind, value }: Members): RaisedEvent[] {
  return typeof t_s === "number" && typeof name === "string"
    ? [{ time: t_s, name, value, isMicro: kind === "micro" }]
    : [];
}
