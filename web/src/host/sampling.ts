import { subscribeText, unsubscribeText, type AdvertisedChannel } from "./protocol.js";

interface Topic {
  channelId: number | undefined;
  /** ms between two samples; 0 while none is wanted. */
  interval: number;
  /** When the last sample was asked for. */
  askedAt: number;
  /** The subscription that waits for a sample. */
  subscription: number | undefined;
}

/**
 * Takes single samples of topics, as often as somebody wants to see them: subscribes, and lets go
 * with the first message. A host sends a subscriber every tick of its loop, which is more than
 * anybody can see.
 */
export class Sampling {
  private readonly topics = new Map<string, Topic>();
  private readonly topicOf = new Map<number, string>();
  private letGo: number[] = [];
  /** Where time stands still the one sample of a moment must not be missed: nothing is let go of. */
  isHolding = false;

  /**
   * @param send takes a message to the host
   * @param nextId a fresh id of a subscription
   */
  constructor(
    private readonly send: (text: string) => void,
    private readonly nextId: () => number,
  ) {}

  /** @param interval ms between two samples of the topic; 0 for none */
  want(topic: string, interval: number): void {
    const known = this.topics.get(topic);
    if (known === undefined) {
      this.topics.set(topic, {
        channelId: undefined,
        interval,
        askedAt: -Infinity,
        subscription: undefined,
      });
    } else {
      known.interval = interval;
    }
  }

  offered(channels: readonly AdvertisedChannel[]): void {
    for (const { id, topic } of channels) {
      const known = this.topics.get(topic);
      if (known !== undefined) {
        known.channelId = id;
      }
    }
  }

  /** The connection is gone, and with it all channels. */
  clear(): void {
    this.topicOf.clear();
    this.letGo = [];
    for (const topic of this.topics.values()) {
      topic.channelId = undefined;
      topic.subscription = undefined;
      topic.askedAt = -Infinity;
    }
  }

  /** Whose sample this is; undefined for a subscription that is none of these. */
  taken(subscription: number): string | undefined {
    const name = this.topicOf.get(subscription);
    const topic = name === undefined ? undefined : this.topics.get(name);
    if (topic?.subscription === subscription && !this.isHolding) {
      topic.subscription = undefined;
      this.letGo.push(subscription);
    }
    return name;
  }

  /** Asks for what is due and lets go of what has come. @param now ms */
  turn(now: number): void {
    for (const topic of this.topics.values()) {
      if (topic.subscription !== undefined && topic.interval === 0) {
        this.letGo.push(topic.subscription);
        topic.subscription = undefined;
      }
    }
    if (this.letGo.length > 0) {
      this.send(unsubscribeText(this.letGo));
      this.letGo.forEach((id) => this.topicOf.delete(id));
      this.letGo = [];
    }
    const due = [...this.topics].filter(([, topic]) => isDue(topic, now));
    if (due.length === 0) {
      return;
    }
    const subscriptions = due.map(([name, topic]) => {
      const id = this.nextId();
      topic.subscription = id;
      // In step with what was wanted, not with how late the timer is.
      const isInStep = now - topic.askedAt < 2 * topic.interval;
      topic.askedAt = isInStep ? topic.askedAt + topic.interval : now;
      this.topicOf.set(id, name);
      return { id, channelId: topic.channelId as number };
    });
    this.send(subscribeText(subscriptions));
  }
}

function isDue(topic: Topic, now: number): boolean {
  return (
    topic.channelId !== undefined &&
    topic.subscription === undefined &&
    topic.interval > 0 &&
    now - topic.askedAt >= topic.interval
  );
}
