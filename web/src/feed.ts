import { asksForToken } from "./host/access.js";
import {
  kSampledTopics,
  kSensorLoop,
  kStateTopics,
  readEvent,
  readLogLine,
  shownLoop,
  type RaisedEvent,
} from "./host/channels.js";
import { Connection, type ConnectionState } from "./host/connection.js";
import { fetchHost, type HostInfo } from "./host/hostInfo.js";
import { asArray, asMembers } from "./host/members.js";
import { fetchPastEvents, type Past } from "./host/past.js";
import { readPlayback, type PlaybackState } from "./host/playback.js";
import { get } from "./host/rest.js";
import { describeLink, describeSource, type Link } from "./model/link.js";
import { PlotStore } from "./model/plotStore.js";
import { Rate } from "./model/rate.js";
import type { RobotState } from "./model/robotState.js";
import { RunClock } from "./model/runClock.js";
import { Story } from "./model/story.js";
import { readVerdict, type Finding } from "./model/verdict.js";
import { Words } from "./model/words.js";
import { kWorldPrefix } from "./model/world.js";
import { recallSession, rememberSession } from "./ui/memory.js";

const kRateSpan = 3;
/** ms after a movement in which the robot counts as moving. */
const kMovingFor = 1_500;
/** rad between two samples that count as a movement. */
const kMovement = 0.01;

/** What the page hears of its host, in seconds of the run, and what it knows by that. */
export class Feed {
  /** Parts of the state that have come. */
  onState: (part: RobotState) => void = () => {};
  onEvent: (event: RaisedEvent) => void = () => {};
  onVerdict: (findings: readonly Finding[]) => void = () => {};
  onPlayback: (state: PlaybackState) => void = () => {};
  /** Keys of the simulated robot's world have changed. */
  onWorld: () => void = () => {};
  /** Other events than before are known: those that the host remembers. */
  onPast: () => void = () => {};
  /** It is known what the host is and what it remembers. */
  onReady: () => void = () => {};
  /** Another run than before, by a host that was started anew. */
  onRestart: () => void = () => {};

  readonly clock = new RunClock();
  readonly story: Story;
  readonly store = new PlotStore();
  readonly connection = new Connection(
    `${location.protocol === "https:" ? "wss" : "ws"}://${location.host}/ws`,
  );
  /** The present. */
  readonly state: RobotState = {};
  readonly worldKeys = new Map<string, unknown>();
  findings: readonly Finding[] = [];
  host: HostInfo | undefined;
  /** The recording that is played. */
  played: PlaybackState | undefined;
  /** What the host remembers; undefined where it does not. */
  past: Pick<Past, "begin" | "end"> | undefined;
  /** How often the sensor loop is to tick. */
  askedRate: number | undefined;
  isSonarOn = false;

  private readonly words = new Words();
  /** Whose ticks are counted. */
  private loop = kSensorLoop;
  private readonly ticks = new Rate(kRateSpan);
  private connectionState: ConnectionState = { kind: "connecting" };
  private isLocked = false;
  private valuesAt: number | undefined;
  /** Counts the times that the host was asked what it is: an answer to an older question is dropped. */
  private preparations = 0;
  /** The host's times can be read. */
  private isReady = false;
  /** Events that came before what the host remembers did; undefined once it has. */
  private early: RaisedEvent[] | undefined = [];
  /** The run's time when it was heard, and when that was, in seconds of `performance.now`. */
  private heard = { time: 0, here: performance.now() / 1000 };
  /** s without a change of any sensor's value. */
  private silence: number | undefined;
  private movedAt = -Infinity;
  private plotted: readonly string[] = [];

  constructor() {
    this.story = new Story(this.words);
    this.listen();
  }

  get isConnected(): boolean {
    return this.connectionState.kind === "connected";
  }

  get isMoving(): boolean {
    return performance.now() - this.movedAt < kMovingFor;
  }

  /** Ticks of the sensor loop a second. */
  get tickRate(): number | undefined {
    return this.isConnected ? this.ticks.perSecond : undefined;
  }

  /** Seconds of the run. */
  get now(): number {
    const since = performance.now() / 1000 - this.heard.here;
    if (this.played !== undefined) {
      const { isPlaying, speed, end } = this.played;
      return Math.min(this.heard.time + (isPlaying ? since * speed : 0), end);
    }
    return this.heard.time + (this.isConnected ? since : 0);
  }

  /** How fresh all of this is. */
  get link(): Link {
    const now = performance.now();
    const valuesAt = this.played !== undefined || document.hidden ? now : this.valuesAt;
    const link = describeLink(this.connectionState, this.isLocked, valuesAt, now);
    return describeSource(link, this.host?.source, this.played, this.now, this.silence);
  }

  /** The page is looked at again. */
  resume(): void {
    // What was not asked for is not missing.
    this.valuesAt = this.valuesAt === undefined ? undefined : performance.now();
    if (this.connectionState.kind === "waiting") {
      this.connection.start();
    }
  }

  /** Watches the world, and the keys that are plotted. */
  watchKeys(plotted: readonly string[]): void {
    this.plotted = plotted;
    // Those that are watched already are told only when they change.
    plotted.forEach((key) => {
      this.store.addKey(key, this.worldKeys.get(key), this.now);
    });
    // A robot's speed changes all the time, and nobody sees it.
    const world = [...this.worldKeys.keys()].filter((key) => !key.endsWith("/Speed"));
    this.connection.watchKeys([...new Set([...world, ...plotted])]);
  }

  /** Asks for what the host does not tell by itself. */
  async refreshHost(): Promise<void> {
    const members = asMembers(await get("/api/v1/host?verbose").catch(() => undefined));
    const loop = asMembers(shownLoop(asArray(members["loops"]).map(asMembers)));
    this.loop = typeof loop["module"] === "string" ? loop["module"] : kSensorLoop;
    const asked = asMembers(loop["lastMinute"])["askedRate_hz"];
    this.askedRate = typeof asked === "number" ? asked : undefined;
    const silence = asMembers(members["deviceKeys"])["age_s"];
    this.silence = typeof silence === "number" ? silence : undefined;
    if (this.host?.source?.kind === "recording") {
      this.host = (await fetchHost().catch(() => undefined)) ?? this.host;
    }
  }

  private listen(): void {
    const { connection } = this;
    kSampledTopics.forEach((topic) => {
      connection.sampling.want(topic, 0);
    });
    connection.onSample = (payload, time, topic) => {
      if (this.isReady) {
        this.take(topic, payload, this.clock.toRun(time));
      }
    };
    connection.want("/events", (payload) => {
      const event = readEvent(payload);
      if (event !== undefined) {
        this.takeEvent(event);
      }
    });
    connection.want("/log", (payload, time) => {
      const line = readLogLine(payload, this.clock.toRun(time));
      if (line !== undefined && this.isReady) {
        this.story.addLog(line);
      }
    });
    connection.want("/verdict", (payload) => {
      const findings = readVerdict(asMembers(payload)["verdict"]);
      this.onVerdict(findings);
      this.findings = findings;
    });
    connection.want("/playback", (payload) => {
      const state = readPlayback(payload);
      if (state !== undefined) {
        this.takePlayback(state);
      }
    });
    connection.onTime = (time) => {
      if (this.isReady) {
        this.hear(this.clock.toRun(time));
      }
    };
    connection.onKeys = (values) => {
      this.takeKeys(values);
    };
    connection.onSession = (session) => {
      this.changeSession(session);
    };
    connection.onState = (state) => {
      this.changeConnection(state);
    };
  }

  private take(topic: string, payload: unknown, time: number): void {
    this.valuesAt = performance.now();
    this.hear(time);
    const part = kStateTopics[topic]?.(asMembers(payload)) ?? {};
    this.isSonarOn = part.sonar?.isOn ?? this.isSonarOn;
    this.store.add(topic, this.measured(topic, payload), time);
    if (part.joints !== undefined && this.hasMoved(part.joints)) {
      this.movedAt = performance.now();
    }
    if (part.tick?.module === this.loop) {
      this.ticks.add(part.tick.count, time);
    }
    Object.assign(this.state, part);
    this.onState(part);
  }

  /** A sensor that is off measures nothing, whatever its keys say. */
  private measured(topic: string, payload: unknown): unknown {
    return topic === "/sonar" && !this.isSonarOn
      ? { ...asMembers(payload), left_m: null, right_m: null }
      : payload;
  }

  private hasMoved(joints: ReadonlyMap<string, number>): boolean {
    const before = this.state.joints;
    return [...joints].some(
      ([joint, angle]) => Math.abs(angle - (before?.get(joint) ?? Infinity)) > kMovement,
    );
  }

  private takeEvent(event: RaisedEvent): void {
    if (this.early !== undefined) {
      this.early.push(event);
      return;
    }
    this.story.addEvent(event);
    this.onEvent(event);
  }

  private takePlayback(state: PlaybackState): void {
    const before = this.played;
    this.played = state;
    this.clock.isRecording = true;
    if (state.recordedAt !== undefined) {
      this.clock.start = state.recordedAt;
    }
    this.heard = { time: state.time, here: performance.now() / 1000 };
    this.connection.sampling.isHolding = !state.isPlaying;
    if (state.didSeek) {
      this.store.clear();
    }
    if (before?.isIndexed === false && state.isIndexed) {
      void this.loadPast(this.preparations);
    }
    this.onPlayback(state);
  }

  private takeKeys(values: ReadonlyMap<string, unknown>): void {
    let isOfWorld = false;
    values.forEach((value, key) => {
      if (this.plotted.includes(key)) {
        this.store.addKey(key, value, this.now);
      }
      if (key.startsWith(kWorldPrefix)) {
        isOfWorld = true;
        this.worldKeys.set(key, value);
      }
    });
    if (isOfWorld) {
      this.onWorld();
    }
  }

  private hear(time: number): void {
    if (this.played === undefined) {
      this.heard = { time, here: performance.now() / 1000 };
    }
  }

  private changeSession(session: string): void {
    const known = this.host?.session || recallSession();
    this.store.clear();
    this.ticks.clear();
    if (known !== "" && known !== session) {
      this.story.restart();
      this.onRestart();
    }
    rememberSession(session);
  }

  private changeConnection(state: ConnectionState): void {
    const wasConnected = this.isConnected;
    this.connectionState = state;
    if (state.kind === "connected") {
      this.isLocked = false;
      if (!wasConnected) {
        void this.prepare();
      }
    } else if (state.kind === "waiting") {
      this.isReady = false;
      void asksForToken().then((isLocked) => {
        this.isLocked = isLocked;
      });
    }
  }

  /** Asks the host what it is and what it remembers. */
  private async prepare(): Promise<void> {
    const turn = ++this.preparations;
    this.early = [];
    const words = get("/api/v1/words").catch(() => undefined);
    const host = await fetchHost().catch(() => undefined);
    if (turn !== this.preparations) {
      return;
    }
    this.host = host;
    this.clock.start = host?.start ?? this.clock.start;
    this.clock.isRecording = host?.source?.kind === "recording" || host?.isPlayback === true;
    this.heard = { time: Date.now() / 1000 - this.clock.start, here: performance.now() / 1000 };
    this.isReady = true;
    this.words.load(await words);
    await this.loadPast(turn);
    this.onReady();
  }

  private async loadPast(turn: number): Promise<void> {
    const past = await fetchPastEvents().catch(() => undefined);
    if (turn !== this.preparations) {
      return;
    }
    this.past = past;
    if (this.played !== undefined) {
      this.story.clear();
    }
    [...(past?.events ?? []), ...(this.early ?? [])].forEach((event) => {
      this.story.addEvent(event);
    });
    this.early = undefined;
    this.onPast();
  }
}
