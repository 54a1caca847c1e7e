import { asArray } from "./members.js";
import { call } from "./rest.js";

/** The name under which the page subscribes. */
const kSubscriber = "page";

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
  await call(isOn ? "GKSonar.subscribe" : "GKSonar.unsubscribe", [JSON.stringify(kSubscriber)]);
}
