import { Backoff } from "./backoff.js";
import {
  decodeBinary,
  decodeText,
  kSubprotocols,
  subscribeText,
  unwatchText,
  watchTexts,
  type AdvertisedChannel,
  type ServerMessage,
  type Status,
} from "./protocol.js";
import { Sampling } from "./sampling.js";

export type ConnectionState =
  | { kind: "connecting" }
  | { kind: "connected"; hostName: string }
  /** `retryAt` is in milliseconds of `performance.now`. */
  | { kind: "waiting"; retryAt: number };

/** Called with the payload and its time in seconds of the host's clock. */
export type MessageHandler = (payload: unknown, time: number, topic: string) => void;

/** A message that takes this long to begin means that the attempt has failed. */
const kOpenTimeout = 5_000;
/** ms between two looks at which samples are due. */
const kSamplingTurn = 25;
/** After this silence a connection counts as dead: a host sends its time more often. */
const kSilenceTimeout = 10_000;

/**
 * The one WebSocket of the page. Connects by itself, again and again, and subscribes to the wanted
 * topics as the host advertises them.
 */
export class Connection {
  onState: (state: ConnectionState) => void = () => {};
  onStatus: (status: Status) => void = () => {};
  onStatusRemoved: (ids: string[]) => void = () => {};
  /** A new session: whatever was known of the host no longer holds. */
  onSession: (sessionId: string) => void = () => {};
  /** A message of a sampled topic. */
  onSample: MessageHandler = () => {};
  onTime: (time: number) => void = () => {};
  /** Watched memory keys that have changed, or all of them at first. */
  onKeys: (values: ReadonlyMap<string, unknown>) => void = () => {};

  /** When the last frame came, in milliseconds of `performance.now`. */
  lastFrameAt = -Infinity;

  private readonly backoff = new Backoff();
  private readonly handlers = new Map<string, MessageHandler>();
  private readonly topicOfSubscription = new Map<number, string>();
  private readonly subscriptionOfChannel = new Map<number, number>();
  private readonly watched = new Set<string>();
  private socket: WebSocket | undefined;
  private isWelcome = false;
  private timer: ReturnType<typeof setTimeout> | undefined;
  private nextSubscription = 1;
  private sessionId = "";
  private turnTimer: ReturnType<typeof setTimeout> | undefined;

  /** What is looked at now and then, rather than listened to. */
  readonly sampling = new Sampling(
    (text) => {
      this.send([text]);
    },
    () => this.nextSubscription++,
  );

  constructor(private readonly url: string) {}

  /** Listens to every message of a topic. To be called before `start`, once for each topic. */
  want(topic: string, handler: MessageHandler): void {
    this.handlers.set(topic, handler);
  }

  /** Watches these memory keys and no others. */
  watchKeys(keys: readonly string[]): void {
    const added = keys.filter((key) => !this.watched.has(key));
    const removed = [...this.watched].filter((key) => !keys.includes(key));
    added.forEach((key) => this.watched.add(key));
    removed.forEach((key) => this.watched.delete(key));
    if (added.length > 0) {
      this.send(watchTexts(added));
    }
    if (removed.length > 0) {
      this.send([unwatchText(removed)]);
    }
  }

  /** Connects now, also in the middle of a wait. */
  start(): void {
    clearTimeout(this.timer);
    this.socket?.close();
    this.open();
  }

  private send(texts: readonly string[]): void {
    if (this.isWelcome) {
      texts.forEach((text) => this.socket?.send(text));
    }
  }

  /** Lets go of what has come at once: the next tick is only 20 ms away. */
  private turn(delay: number): void {
    clearTimeout(this.turnTimer);
    this.turnTimer = setTimeout(() => {
      if (this.isWelcome) {
        this.sampling.turn(performance.now());
        this.turn(kSamplingTurn);
      }
    }, delay);
  }

  private open(): void {
    this.isWelcome = false;
    this.sampling.clear();
    this.topicOfSubscription.clear();
    this.subscriptionOfChannel.clear();
    this.onState({ kind: "connecting" });
    const socket = new WebSocket(this.url, kSubprotocols);
    socket.binaryType = "arraybuffer";
    this.socket = socket;
    socket.onmessage = (event: MessageEvent<string | ArrayBuffer>) => {
      if (socket === this.socket) {
        this.receive(event.data);
      }
    };
    socket.onclose = () => {
      if (socket === this.socket) {
        this.wait();
      }
    };
    this.watch(socket, kOpenTimeout);
  }

  /** Gives the connection up when nothing comes for `timeout` milliseconds. */
  private watch(socket: WebSocket, timeout: number): void {
    clearTimeout(this.timer);
    this.timer = setTimeout(() => {
      if (performance.now() - this.lastFrameAt < timeout) {
        this.watch(socket, timeout);
        return;
      }
      this.socket = undefined;
      socket.close();
      this.wait();
    }, timeout);
  }

  private wait(): void {
    this.isWelcome = false;
    clearTimeout(this.timer);
    const delay = this.backoff.next();
    this.timer = setTimeout(() => {
      this.open();
    }, delay);
    this.onState({ kind: "waiting", retryAt: performance.now() + delay });
  }

  private receive(data: string | ArrayBuffer): void {
    this.lastFrameAt = performance.now();
    const message = typeof data === "string" ? decodeText(data) : decodeBinary(data);
    if (message !== undefined) {
      this.handle(message);
    }
  }

  private handle(message: ServerMessage): void {
    switch (message.op) {
      case "message": {
        const topic = this.topicOfSubscription.get(message.subscriptionId);
        if (topic !== undefined) {
          this.handlers.get(topic)?.(message.payload, message.time, topic);
          break;
        }
        const sampled = this.sampling.taken(message.subscriptionId);
        if (sampled !== undefined) {
          this.onSample(message.payload, message.time, sampled);
          this.turn(0);
        }
        break;
      }
      case "serverInfo":
        this.welcome(message.name, message.sessionId);
        break;
      case "advertise":
        this.subscribe(message.channels);
        this.sampling.offered(message.channels);
        break;
      case "unadvertise":
        this.forget(message.channelIds);
        break;
      case "status":
        this.onStatus(message.status);
        break;
      case "removeStatus":
        this.onStatusRemoved(message.ids);
        break;
      case "parameterValues":
        this.onKeys(message.values);
        break;
      case "time":
        this.onTime(message.time);
        break;
    }
  }

  private welcome(hostName: string, sessionId: string): void {
    this.backoff.reset();
    this.isWelcome = true;
    if (this.socket !== undefined) {
      this.watch(this.socket, kSilenceTimeout);
    }
    if (sessionId !== this.sessionId) {
      this.sessionId = sessionId;
      this.onSession(sessionId);
    }
    if (this.watched.size > 0) {
      this.send(watchTexts([...this.watched]));
    }
    this.turn(0);
    this.onState({ kind: "connected", hostName });
  }

  private subscribe(channels: AdvertisedChannel[]): void {
    const subscriptions = [];
    for (const { id: channelId, topic } of channels) {
      if (this.handlers.has(topic) && !this.subscriptionOfChannel.has(channelId)) {
        const id = this.nextSubscription++;
        this.topicOfSubscription.set(id, topic);
        this.subscriptionOfChannel.set(channelId, id);
        subscriptions.push({ id, channelId });
      }
    }
    if (subscriptions.length > 0) {
      this.send([subscribeText(subscriptions)]);
    }
  }

  private forget(channelIds: number[]): void {
    for (const channelId of channelIds) {
      const id = this.subscriptionOfChannel.get(channelId);
      if (id !== undefined) {
        this.subscriptionOfChannel.delete(channelId);
        this.topicOfSubscription.delete(id);
      }
    }
  }
}
