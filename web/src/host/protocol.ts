// The part of the Foxglove WebSocket protocol that the page speaks: JSON text frames with an `op`,
// and little-endian binary frames whose first byte is an opcode.

import { asArray, asMembers, asText } from "./members.js";

/** Both names of the protocol, the newer one first. */
export const kSubprotocols = ["foxglove.sdk.v1", "foxglove.websocket.v1"];

export interface AdvertisedChannel {
  id: number;
  topic: string;
  encoding: string;
  schemaName: string;
  schema: string;
}

export const enum StatusLevel {
  Info = 0,
  Warning = 1,
  Error = 2,
}

export interface Status {
  level: StatusLevel;
  message: string;
  /** A later status of the same id replaces this one. */
  id: string | undefined;
}

export type ServerMessage =
  | { op: "serverInfo"; name: string; sessionId: string; capabilities: string[] }
  | { op: "status"; status: Status }
  | { op: "removeStatus"; ids: string[] }
  | { op: "advertise"; channels: AdvertisedChannel[] }
  | { op: "unadvertise"; channelIds: number[] }
  | { op: "message"; subscriptionId: number; time: number; payload: unknown }
  | { op: "parameterValues"; values: ReadonlyMap<string, unknown> }
  | { op: "time"; time: number };

const kMessageData = 0x01;
const kTime = 0x02;
const kMessageHeader = 1 + 4 + 8;
const kTimeFrame = 1 + 8;

const utf8 = new TextDecoder();

/** What a text frame says, or undefined when the page has no use for it or it makes no sense. */
export function decodeText(text: string): ServerMessage | undefined {
  const parsed = parseObject(text);
  switch (parsed?.["op"]) {
    case "serverInfo":
      return {
        op: "serverInfo",
        name: asText(parsed["name"]),
        sessionId: asText(parsed["sessionId"]),
        capabilities: asArray(parsed["capabilities"]).map(asText),
      };
    case "status":
      return { op: "status", status: readStatus(parsed) };
    case "removeStatus":
      return { op: "removeStatus", ids: asArray(parsed["statusIds"]).map(asText) };
    case "advertise":
      return { op: "advertise", channels: asArray(parsed["channels"]).flatMap(readChannel) };
    case "parameterValues":
      return { op: "parameterValues", values: readParameters(asArray(parsed["parameters"])) };
    case "unadvertise":
      return {
        op: "unadvertise",
        channelIds: asArray(parsed["channelIds"]).filter((id) => typeof id === "number"),
      };
    default:
      return undefined;
  }
}

/** What a binary frame says; undefined as for `decodeText`. Times are in seconds. */
export function decodeBinary(frame: ArrayBuffer): ServerMessage | undefined {
  const view = new DataView(frame);
  if (frame.byteLength >= kMessageHeader && view.getUint8(0) === kMessageData) {
    const payload = parseJson(utf8.decode(new Uint8Array(frame, kMessageHeader)));
    return payload === undefined
      ? undefined
      : {
          op: "message",
          subscriptionId: view.getUint32(1, true),
          time: seconds(view.getBigUint64(5, true)),
          payload,
        };
  }
  if (frame.byteLength >= kTimeFrame && view.getUint8(0) === kTime) {
    return { op: "time", time: seconds(view.getBigUint64(1, true)) };
  }
  return undefined;
}

export function subscribeText(subscriptions: { id: number; channelId: number }[]): string {
  return JSON.stringify({ op: "subscribe", subscriptions });
}

export function unsubscribeText(subscriptionIds: readonly number[]): string {
  return JSON.stringify({ op: "unsubscribe", subscriptionIds });
}

/** Asks for the values of memory keys, at present and whenever they change. */
export function watchTexts(keys: readonly string[]): string[] {
  return ["getParameters", "subscribeParameterUpdates"].map((op) =>
    JSON.stringify({ op, parameterNames: keys }),
  );
}

export function unwatchText(keys: readonly string[]): string {
  return JSON.stringify({ op: "unsubscribeParameterUpdates", parameterNames: keys });
}

function readParameters(parameters: readonly unknown[]): ReadonlyMap<string, unknown> {
  return new Map(parameters.map(asMembers).map(({ name, value }) => [asText(name), value]));
}

function seconds(nanoseconds: bigint): number {
  return Number(nanoseconds / 1000n) / 1e6;
}

function readStatus(parsed: Record<string, unknown>): Status {
  const id = parsed["id"];
  return {
    level: typeof parsed["level"] === "number" ? parsed["level"] : StatusLevel.Info,
    message: asText(parsed["message"]),
    id: typeof id === "string" ? id : undefined,
  };
}

function readChannel(value: unknown): AdvertisedChannel[] {
  const channel = value as Partial<AdvertisedChannel> | null;
  if (typeof channel?.id !== "number" || typeof channel.topic !== "string") {
    return [];
  }
  return [
    {
      id: channel.id,
      topic: channel.topic,
      encoding: asText(channel.encoding),
      schemaName: asText(channel.schemaName),
      schema: asText(channel.schema),
    },
  ];
}

function parseObject(text: string): Record<string, unknown> | undefined {
  const parsed = parseJson(text);
  return typeof parsed === "object" && parsed !== null && !Array.isArray(parsed)
    ? (parsed as Record<string, unknown>)
    : undefined;
}

function parseJson(text: string): unknown {
  try {
    return JSON.parse(text) as unknown;
  } catch {
    return undefined;
  }
}
