import { asMembers, asText } from "./members.js";
import { get } from "./rest.js";

/** Where what is shown comes from. */
export interface Source {
  kind: "simulated" | "recording" | "robot";
  /** The recording's name; empty for anything else. */
  file: string;
  /** Seconds of the run at which the recording's data end. */
  end: number | undefined;
  isEnded: boolean;
}

/** What the page has to know of a host before it can read its times. */
export interface HostInfo {
  /** Wall time of second 0 of the run. */
  start: number;
  /** Changes with each start of the host; empty where it does not say. */
  session: string;
  source: Source | undefined;
  isPlayback: boolean;
}

/** Raises CallError. */
export async function fetchHost(): Promise<HostInfo> {
  const members = asMembers(await get("/api/v1/host"));
  const { t_s, time_s, session, source, playback } = members;
  const isTold = typeof t_s === "number" && typeof time_s === "number";
  return {
    start: isTold ? time_s - t_s : Date.now() / 1000,
    session: asText(session),
    source: readSource(source),
    isPlayback: playback !== undefined,
  };
}

function readSource(value: unknown): Source | undefined {
  const { kind, file, end_s, isEnded } = asMembers(value);
  return kind === "simulated" || kind === "recording" || kind === "robot"
    ? {
        kind,
        file: asText(file),
        end: typeof end_s === "number" ? end_s : undefined,
        isEnded: isEnded === true,
      }
    : undefined;
}
