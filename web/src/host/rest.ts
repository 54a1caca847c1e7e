import { asArray, asMembers, asText, type Members } from "./members.js";

// What the page asks for rather than listens to: modules, calls and memory keys.

export interface Parameter {
  name: string;
  type: string;
  description: string;
}

export interface Method {
  name: string;
  description: string;
  parameters: Parameter[];
  /** The type is empty for a method without a result. */
  result: { type: string; description: string };
}

export interface Module {
  name: string;
  description: string;
  methods: Method[];
  events: string[];
}

/** A call that the host has refused or that has failed. */
export class CallError extends Error {}

const kTimeout = 15_000;
const kCallPath = "/rpc";

/** Raises CallError. */
export async function fetchModules(): Promise<Module[]> {
  const list = asMembers(await request("GET", "/api/v1/modules"));
  const names = asArray(list["modules"]).map((module) => asText(asMembers(module)["name"]));
  return Promise.all(names.map(fetchModule));
}

async function fetchModule(name: string): Promise<Module> {
  const members = asMembers(await request("GET", `/api/v1/modules/${encodeURIComponent(name)}`));
  return {
    name,
    description: asText(members["description"]),
    methods: asArray(members["methods"]).map(readMethod),
    events: asArray(members["events"]).map(asText),
  };
}

function readMethod(value: unknown): Method {
  const members = asMembers(value);
  const result = asMembers(members["result"]);
  return {
    name: asText(members["name"]),
    description: asText(members["description"]),
    parameters: asArray(members["params"]).map(readParameter),
    result: { type: asText(result["type"]), description: asText(result["description"]) },
  };
}

function readParameter(value: unknown): Parameter {
  const members = asMembers(value);
  return {
    name: asText(members["name"]),
    type: asText(members["type"]),
    description: asText(members["description"]),
  };
}

/**
 * Calls a bound method and returns its result.
 * @param parameters JSON texts
 */
export async function call(method: string, parameters: readonly string[]): Promise<unknown> {
  const answer = asMembers(await request("POST", kCallPath, callBody(method, parameters)));
  if (answer["error"] !== undefined) {
    throw new CallError(describe(asMembers(answer["error"])));
  }
  return answer["result"];
}

/** Calls a bound method even while the page goes, when no answer can be awaited. */
export function callAndForget(method: string, parameters: readonly string[]): void {
  // The host takes calls of this type only; pages of others cannot send it.
  const body = new Blob([callBody(method, parameters)], { type: "application/json" });
  navigator.sendBeacon(kCallPath, body);
}

function callBody(method: string, parameters: readonly string[]): string {
  return `{"jsonrpc":"2.0","id":1,"method":${JSON.stringify(method)},"params":[${parameters.join(",")}]}`;
}

/** Some keys whose names contain the text. Raises CallError. */
export async function findKeys(contained: string): Promise<string[]> {
  const path = `/api/v1/memory?contains=${encodeURIComponent(contained)}&limit=30`;
  return asArray(asMembers(await request("GET", path))["keys"]).map((entry) =>
    asText(asMembers(entry)["key"]),
  );
}

/** A memory key's value, and its type as the host names it. */
export interface KeyValue {
  type: string;
  value: unknown;
}

/** The keys that begin as `prefix`. Raises CallError. */
export async function fetchMemory(prefix: string): Promise<ReadonlyMap<string, KeyValue>> {
  const path = `/api/v1/memory?prefix=${encodeURIComponent(prefix)}&limit=200`;
  const keys = asArray(asMembers(await request("GET", path))["keys"]).map(asMembers);
  return new Map(keys.map(({ key, type, value }) => [asText(key), { type: asText(type), value }]));
}

/** @param json the value as JSON text. Raises CallError. */
export async function writeMemory(key: string, json: string): Promise<void> {
  await request("PUT", `/api/v1/memory/${key.split("/").map(encodeURIComponent).join("/")}`, json);
}

/** Raises CallError. */
export function get(path: string): Promise<unknown> {
  return request("GET", path);
}

/** The answer as it came. Raises CallError. */
export async function post(path: string, body: string): Promise<Response> {
  const response = await send("POST", path, body);
  if (!response.ok) {
    throw refusal(response, parse(await response.text()));
  }
  return response;
}

async function request(method: string, path: string, body?: string): Promise<unknown> {
  const response = await send(method, path, body);
  const answer = parse(await response.text());
  if (!response.ok) {
    throw refusal(response, answer);
  }
  return answer;
}

function refusal(response: Response, answer: unknown): CallError {
  const reason = asText(asMembers(asMembers(answer)["error"])["message"]);
  return new CallError(reason || `the host answers ${response.status} ${response.statusText}`);
}

async function send(method: string, path: string, body?: string): Promise<Response> {
  try {
    return await fetch(path, {
      method,
      signal: AbortSignal.timeout(kTimeout),
      ...(body === undefined ? {} : { body, headers: { "content-type": "application/json" } }),
    });
  } catch (error) {
    const isLate = error instanceof DOMException && error.name === "TimeoutError";
    throw new CallError(
      isLate ? `no answer within ${kTimeout / 1000} seconds` : "the host cannot be reached",
    );
  }
}

/** A module's own error says which module and method raised it. */
function describe(error: Members): string {
  const data = asMembers(error["data"]);
  const description = asText(data["description"]) || asText(error["message"]) || "the call failed";
  const origin = [asText(data["module"]), asText(data["method"])]
    .filter((part) => part !== "")
    .join(".");
  return origin === "" ? description : `${origin}: ${description}`;
}

function parse(body: string): unknown {
  try {
    return JSON.parse(body) as unknown;
  } catch {
    return undefined;
  }
}
