import { asArray } from "./members.js";
import { call, callAndForget } from "./rest.js";

/**
 * The name under which pages subscribe. They share it, so that any of them can switch off what
 * another has left on that could not say goodbye.
 */
const kSubscriber = "page";

/** This very page has switched the sonar on. */
let isOurs = false;

export interface Listeners {
  /** Somebody has subscribed: the emitters are on. */
  isAny: boolean;
  /** The page has. */
  isPage: boolean;
}

// The sonar's emitters are on while somebody subscribes to it; switching them takes a second. All
// raise CallError.

export async function sonarListeners(): Promise<Listeners> {
  const subscribers = asArray(await call("GKSonar.getSubscribersInfo", [])).map(
    (entry) => asArray(entry)[0],
  );
  return { isAny: subscribers.length > 0, isPage: subscribers.includes(kSubscriber) };
}

export async function listenToSonar(isOn: boolean): Promise<void> {
  // Before the host answers: who closes the page meanwhile wants it off as well.
  isOurs = isOn;
  await call(isOn ? "GKSonar.subscribe" : "GKSonar.unsubscribe", [JSON.stringify(kSubscriber)]);
}

/** The page goes: takes back what it has switched on. */
export function leaveSonar(): void {
  if (isOurs) {
    isOurs = false;
    callAndForget("GKSonar.unsubscribe", [JSON.stringify(kSubscriber)]);
  }
}
