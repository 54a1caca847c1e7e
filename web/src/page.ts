import { asksForToken, logIn } from "./host/access.js";
import {
  kSampledTopics,
  kStateTopics,
  readEvent,
  readLogLine,
  type RaisedEvent,
} from "./host/channels.js";
import { Connection, type ConnectionState } from "./host/connection.js";
import { fetchHost, type HostInfo } from "./host/hostInfo.js";
import { asMembers } from "./host/members.js";
import { fetchPast, fetchPastEvents, keepPast, type Past } from "./host/past.js";
import { playback, readPlayback, type PlaybackState } from "./host/playback.js";
import { CallError, fetchMemory, fetchModules, get } from "./host/rest.js";
import { leaveSonar, listenToSonar, sonarListeners } from "./host/sonarSubscription.js";
import { History } from "./model/history.js";
import { samplingOf } from "./model/interests.js";
import { describeLink, describeSource, type Link } from "./model/link.js";
import { stateOf } from "./model/pastState.js";
import { PlotStore } from "./model/plotStore.js";
import { describePose, poseWords, type PoseWords } from "./model/poses.js";
import { Rate } from "./model/rate.js";
import type { RobotState } from "./model/robotState.js";
import { RunClock } from "./model/runClock.js";
import { rowWords, Story } from "./model/story.js";
import { LiveTime, PlaybackTime, type TimeControl } from "./model/timeControl.js";
import { readVerdict, type Finding } from "./model/verdict.js";
import { Importance, Words } from "./model/words.js";
import { kWorldPrefix } from "./model/world.js";
import { HelpDialog } from "./panels/helpDialog.js";
import { ModulesPanel } from "./panels/modulesPanel.js";
import { Overview } from "./panels/overview.js";
import { PlotsPanel } from "./panels/plotsPanel.js";
import { RobotPanel } from "./panels/robotPanel.js";
import { StatusBar } from "./panels/statusBar.js";
import { save, StoryPanel } from "./panels/storyPanel.js";
import { lookAt, TimelineBar, type Mark } from "./panels/timelineBar.js";
import { VerdictLine } from "./panels/verdictLine.js";
import { WorldPanel } from "./panels/worldPanel.js";
import { Announcer } from "./ui/announcer.js";
import { byId } from "./ui/dom.js";
import { ThemeSwitch } from "./ui/theme.js";
import { WhileVisible } from "./ui/whileVisible.js";

/** ms between two looks of the numbers: faster cannot be read. */
const kRefresh = 125;
/** ms between two moments of a past that is played. */
const kPlayRefresh = 50;
/** ms between two looks at what the host does not tell by itself. */
const kSlowRefresh = 2_000;
const kRateSpan = 3;
/** s that a host remembers unless it is told otherwise. */
const kPast = 600;
/** ms after a movement in which the robot counts as moving. */
const kMovingFor = 1_500;
/** rad between two samples that count as a movement. */
const kMovement = 0.01;
const kSessionKey = "gksensors.session";

/** Everything on the page, and how it hangs together. */
class Page {
  // First: what others draw has the theme's colours.
  private readonly theme = new ThemeSwitch(byId("theme") as HTMLButtonElement);
  private readonly announcer = new Announcer(byId("announcer"));
  private readonly bar = new StatusBar(this.announcer);
  private readonly clock = new RunClock();
  private readonly words = new Words();
  private readonly story = new Story(this.words);
  private readonly verdict = new VerdictLine(byId("verdict"));
  private readonly robot = new RobotPanel(byId("robot"));
  private readonly storyPanel = new StoryPanel(byId("story-body"), this.story, this.clock);
  private readonly overview = new Overview(byId("cards"));
  private readonly store = new PlotStore();
  private readonly plots = new PlotsPanel(byId("plots-body"), this.store, this.clock);
  private readonly modules = new ModulesPanel(byId("modules-body"));
  private readonly world = new WorldPanel(byId("world-body"));
  private readonly help = new HelpDialog(byId("help") as HTMLDialogElement, byId("help-button"));
  private readonly robotVisible = new WhileVisible(byId("robot"));
  private readonly plotsVisible = new WhileVisible(byId("plots"));
  private readonly ticks = new Rate(kRateSpan);
  private readonly history = new History(fetchPast, () => performance.now());
  private readonly liveTime = new LiveTime();
  private readonly playbackTime = new PlaybackTime(playback);
  private readonly timeline = new TimelineBar(byId("timeline"), () => this.time, this.clock);
  private readonly connection = new Connection(
    `${location.protocol === "https:" ? "wss" : "ws"}://${location.host}/ws`,
  );

  private connectionState: ConnectionState = { kind: "connecting" };
  private isLocked = false;
  private valuesAt: number | undefined;
  private host: HostInfo | undefined;
  private played: PlaybackState | undefined;
  /** Counts the times that the host was asked what it is: an answer to an older question is dropped. */
  private preparations = 0;
  /** The host's times can be read. */
  private isReady = false;
  /** Events that came before what the host remembers did; undefined once it has. */
  private early: RaisedEvent[] | undefined = [];
  private past: Pick<Past, "begin" | "end"> | undefined;
  private isPlaced = false;
  /** The run's time when it was heard, and when that was, in seconds of `performance.now`. */
  private heard = { time: 0, here: performance.now() / 1000 };
  private findings: Finding[] = [];
  private askedRate: number | undefined;
  /** s without a change of any sensor's value. */
  private silence: number | undefined;
  /** The present, and what of it came since the last look. */
  private present: RobotState = {};
  private news: RobotState = {};
  private newsForRobot: RobotState = {};
  private movedAt = -Infinity;
  private plotsSince = 0;
  private readonly worldKeys = new Map<string, unknown>();
  private isStoryNew = true;
  private marks: Mark[] = [];
  private title = "";
  private isSonarOn = false;

  start(): void {
    this.listen();
    this.connectPanels();
    this.connectTime();
    document.addEventListener("visibilitychange", () => {
      if (document.hidden) {
        this.sample();
        return;
      }
      // What is not asked for is not missing.
      this.valuesAt = this.valuesAt === undefined ? undefined : performance.now();
      if (this.connectionState.kind === "waiting") {
        this.connection.start();
      }
      this.refresh();
    });
    // The last thing that a closed, reloaded or left page is told, on phones as well.
    window.addEventListener("pagehide", leaveSonar);
    new ResizeObserver(() => {
      const height = `${byId("top").getBoundingClientRect().height}px`;
      document.documentElement.style.setProperty("--top", height);
    }).observe(byId("top"));
    this.connection.start();
    this.refresh();
    setInterval(() => {
      this.refresh();
    }, kRefresh);
    setInterval(() => {
      this.playPast();
    }, kPlayRefresh);
    setInterval(() => {
      this.refreshSlowly();
    }, kSlowRefresh);
  }

  // What is heard

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
      this.takeVerdict(readVerdict(asMembers(payload)["verdict"]));
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
    connection.onStatus = (status) => {
      this.bar.addStatus(status);
    };
    connection.onStatusRemoved = (ids) => {
      this.bar.removeStatus(ids);
    };
    connection.onSession = (session) => {
      this.changeSession(session);
    };
    connection.onState = (state) => {
      this.changeConnection(state);
    };
    connection.watchKeys(this.plots.keys);
  }

  private take(topic: string, payload: unknown, time: number): void {
    this.valuesAt = performance.now();
    this.hear(time);
    const part = kStateTopics[topic]?.(asMembers(payload)) ?? {};
    if (part.sonar?.isOn !== undefined) {
      this.showSonarOn(part.sonar.isOn);
    }
    this.store.add(topic, this.measured(topic, payload), time);
    if (part.joints !== undefined && this.hasMoved(part.joints)) {
      this.movedAt = performance.now();
    }
    Object.assign(this.present, part);
    if (this.cursor !== undefined) {
      return;
    }
    Object.assign(this.news, part);
    if (Object.keys(this.newsForRobot).length === 0) {
      requestAnimationFrame(() => {
        if (this.cursor === undefined) {
          this.robot.show(this.newsForRobot);
        }
        this.newsForRobot = {};
      });
    }
    Object.assign(this.newsForRobot, part);
    if (part.tick !== undefined) {
      this.ticks.add(part.tick.count, time);
    }
  }

  /** A sensor that is off measures nothing, whatever its keys say. */
  private measured(topic: string, payload: unknown): unknown {
    return topic === "/sonar" && !this.isSonarOn
      ? { ...asMembers(payload), left_m: null, right_m: null }
      : payload;
  }

  private hasMoved(joints: ReadonlyMap<string, number>): boolean {
    const before = this.present.joints;
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
    this.isStoryNew = true;
    if (event.name === "robotPoseChanged" && this.cursor === undefined) {
      this.announcer.say("pose", `${poseWords(String(event.value))}.`);
    }
  }

  private takeVerdict(findings: Finding[]): void {
    const [worst] = findings;
    if (worst !== undefined && worst.text !== this.findings[0]?.text) {
      this.announcer.say("verdict", `${worst.text}. ${worst.advice}`);
    }
    this.findings = findings;
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
    this.playbackTime.show(state);
  }

  private takeKeys(values: ReadonlyMap<string, unknown>): void {
    let isOfWorld = false;
    const plotted = new Set(this.plots.keys);
    values.forEach((value, key) => {
      if (plotted.has(key)) {
        this.store.addKey(key, value, this.now);
      }
      if (key.startsWith(kWorldPrefix)) {
        isOfWorld = true;
        this.worldKeys.set(key, value);
      }
    });
    if (isOfWorld) {
      this.world.show(this.worldKeys);
    }
  }

  private hear(time: number): void {
    if (this.played === undefined) {
      this.heard = { time, here: performance.now() / 1000 };
    }
  }

  /** Seconds of the run. */
  private get now(): number {
    const since = performance.now() / 1000 - this.heard.here;
    if (this.played !== undefined) {
      const { isPlaying, speed, end } = this.played;
      return Math.min(this.heard.time + (isPlaying ? since * speed : 0), end);
    }
    return this.heard.time + (this.connectionState.kind === "connected" ? since : 0);
  }

  // Which host it is

  private changeSession(session: string): void {
    const known = this.host?.session || recallSession();
    this.store.clear();
    this.history.clear();
    this.ticks.clear();
    if (known !== "" && known !== session) {
      this.story.restart();
      this.liveTime.toEnd();
    }
    rememberSession(session);
  }

  private changeConnection(state: ConnectionState): void {
    const wasConnected = this.connectionState.kind === "connected";
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
    this.showLink();
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
    void this.refreshWorld();
    void this.refreshSonar();
    void this.askForModules();
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
    this.isStoryNew = true;
    this.storyPanel.relist();
    this.placeFromAddress();
  }

  private async askForModules(): Promise<void> {
    try {
      this.modules.show(await fetchModules());
    } catch (error) {
      this.modules.tellProblem(
        error instanceof CallError
          ? `The modules cannot be listed: ${error.message}.`
          : String(error),
      );
    }
  }

  private async unlock(token: string): Promise<void> {
    if (await logIn(token)) {
      this.connection.start();
    } else {
      this.announcer.say("login", "This is not the token.");
      this.bar.refuseToken();
    }
  }

  private refreshSlowly(): void {
    if (this.connectionState.kind === "connected" && !document.hidden) {
      void this.refreshSonar();
      void this.refreshHost();
    }
  }

  private async refreshHost(): Promise<void> {
    const members = asMembers(await get("/api/v1/host?verbose").catch(() => undefined));
    const [loop] = Array.isArray(members["loops"]) ? (members["loops"] as unknown[]) : [];
    const asked = asMembers(asMembers(loop)["lastMinute"])["askedRate_hz"];
    this.askedRate = typeof asked === "number" ? asked : undefined;
    const silence = asMembers(members["deviceKeys"])["age_s"];
    this.silence = typeof silence === "number" ? silence : undefined;
    if (this.host?.source?.kind === "recording") {
      this.host = (await fetchHost().catch(() => undefined)) ?? this.host;
    }
  }

  private async refreshSonar(): Promise<void> {
    if (this.played !== undefined) {
      this.showSonarOn(true);
      return;
    }
    const listeners = await sonarListeners().catch(() => undefined);
    if (listeners !== undefined) {
      this.overview.showSonarListeners(listeners);
      if (this.present.sonar?.isOn === undefined) {
        this.showSonarOn(listeners.isAny);
      }
    }
  }

  private showSonarOn(isOn: boolean): void {
    this.isSonarOn = isOn;
    this.robot.setSonarOn(isOn);
  }

  private async switchSonar(isOn: boolean): Promise<void> {
    // A refusal shows by itself: the switch stays where it was.
    await listenToSonar(isOn).catch(() => undefined);
    await this.refreshSonar();
  }

  /** The world is shown where there is one. */
  private async refreshWorld(): Promise<void> {
    const keys =
      this.played === undefined && this.host?.source?.kind !== "recording"
        ? ((await fetchMemory(kWorldPrefix).catch(() => undefined)) ?? new Map<string, never>())
        : new Map<string, never>();
    this.worldKeys.clear();
    keys.forEach(({ value }, key) => this.worldKeys.set(key, value));
    const hasWorld = keys.size > 0;
    byId("world").hidden = !hasWorld;
    byId("world-link").hidden = !hasWorld;
    byId("main").classList.toggle("has-world", hasWorld);
    this.verdict.canStandUp = hasWorld;
    this.world.show(this.worldKeys);
    this.watchKeys();
  }

  private watchKeys(): void {
    // A robot's speed changes all the time, and nobody sees it.
    const world = [...this.worldKeys.keys()].filter((key) => !key.endsWith("/Speed"));
    this.connection.watchKeys([...new Set([...world, ...this.plots.keys])]);
  }

  // What the reader does

  private connectPanels(): void {
    this.theme.onChange = () => {
      this.robot.applyTheme();
      this.plots.rebuild();
      this.timeline.applyTheme();
    };
    this.world.onHoist = (height) => {
      this.robot.setHoist(this.cursor === undefined ? height : undefined);
    };
    for (const event of ["pointerdown", "keydown"] as const) {
      // Whoever does something to the robot wants to see what it does.
      byId("world").addEventListener(event, () => {
        this.liveTime.toEnd();
      });
    }
    this.verdict.onStandUp = () => {
      this.liveTime.toEnd();
      this.world.standUp();
    };
    this.overview.onSonarSwitch = (isOn) => {
      void this.switchSonar(isOn);
    };
    this.bar.onRetry = () => {
      this.connection.start();
    };
    this.bar.onToken = (token) => {
      void this.unlock(token);
    };
    this.storyPanel.onLook = (time) => {
      lookAt(this.time, time);
    };
    this.storyPanel.onFilter = () => {
      this.isStoryNew = true;
    };
    this.storyPanel.onSay = (text) => {
      this.announcer.say("story", text);
    };
    this.plots.onKeys = (keys) => {
      this.plotsSince = this.now;
      // Those that are watched already are told only when they change.
      keys.forEach((key) => {
        this.store.addKey(key, this.worldKeys.get(key), this.now);
      });
      this.watchKeys();
    };
    this.plots.onSpan = (from, to) => {
      if (this.past !== undefined) {
        this.history.need({ from, to: this.cursor === undefined ? this.plotsSince + 0.5 : to });
      }
    };
    this.plotsVisible.onAppear = () => {
      this.plotsSince = this.now;
    };
    this.store.remembered = (name, from, to) => this.history.rows(name, from, to);
  }

  private connectTime(): void {
    this.liveTime.onChange = () => {
      this.showMoment();
    };
    this.playbackTime.onChange = () => {
      this.timeline.render(false);
    };
    this.history.onNews = () => {
      this.showMoment();
    };
    this.timeline.onKeep = (seconds) => {
      void this.keep(seconds);
    };
    document.addEventListener("keydown", (event) => {
      if (!event.defaultPrevented && !event.ctrlKey && !event.metaKey && !isTyping(event)) {
        this.press(event);
      }
    });
  }

  private press(event: KeyboardEvent): void {
    if (event.key === "?") {
      this.help.toggle();
    } else if (event.key === "/") {
      this.storyPanel.focusFilter();
    } else if (byId("timeline").hidden || !this.timeline.press(event)) {
      return;
    }
    event.preventDefault();
  }

  private async keep(seconds: number): Promise<void> {
    try {
      const { name, data } = await keepPast(seconds);
      save(data, name);
      this.announcer.say("keep", `Saved ${name}.`);
    } catch (error) {
      this.bar.tell(
        `This could not be kept: ${error instanceof CallError ? error.message : String(error)}.`,
      );
    }
  }

  /** Where the address says: "?t=12.3&speed=0.5&loop=3-5". */
  private placeFromAddress(): void {
    if (this.isPlaced) {
      return;
    }
    this.isPlaced = true;
    const wanted = new URLSearchParams(location.search);
    const number = (name: string): number => Number.parseFloat(wanted.get(name) ?? "");
    this.liveTime.setSpan(this.past?.begin ?? 0, this.now);
    if (number("speed") >= 0 || wanted.get("speed") === "max") {
      this.time.setSpeed(wanted.get("speed") === "max" ? 0 : number("speed"));
    }
    const [from = NaN, to = NaN] = (wanted.get("loop") ?? "").split("-").map(Number.parseFloat);
    if (to > from) {
      this.time.setLoop([from, to]);
    }
    if (number("t") >= 0 && this.past !== undefined) {
      this.time.seek(number("t"));
    }
  }

  /** What is looked at stays when the page is loaded again, and can be passed on. */
  private keepAddress(): void {
    const wanted = new URLSearchParams(location.search);
    const { view } = this.time;
    const isElsewhere = view.kind === "past" || (view.kind === "playback" && !view.isPlaying);
    const time = isElsewhere ? view.time.toFixed(1) : null;
    if (!this.isPlaced || wanted.get("t") === time) {
      return;
    }
    if (time === null) {
      wanted.delete("t");
    } else {
      wanted.set("t", time);
    }
    const query = wanted.toString();
    window.history.replaceState(
      null,
      "",
      `${query === "" ? location.pathname : `?${query}`}${location.hash}`,
    );
  }

  // What is shown

  private get time(): TimeControl {
    return this.played === undefined ? this.liveTime : this.playbackTime;
  }

  /** Where the reader looks while the robot goes on; undefined for the present. */
  private get cursor(): number | undefined {
    const { kind, time } = this.liveTime.view;
    return kind === "past" && this.played === undefined ? time : undefined;
  }

  private playPast(): void {
    if (!document.hidden) {
      this.liveTime.advance(kPlayRefresh / 1000);
    }
  }

  /** Shows the moment that the reader looks at, or the present again. */
  private showMoment(): void {
    const { cursor } = this;
    document.documentElement.classList.toggle("looks-back", cursor !== undefined);
    if (cursor === undefined) {
      this.overview.show(this.present);
      this.robot.show(this.present, true);
      this.world.show(this.worldKeys);
    } else {
      this.history.need({ from: cursor - 1, to: Math.min(cursor + 5, this.now) });
      const moment = this.history.at(cursor);
      if (moment !== undefined) {
        const state = stateOf(moment, this.story.poseAt(cursor)?.name);
        this.robot.setHoist(undefined);
        this.robot.show(state, !this.liveTime.view.isPlaying);
        this.overview.show(state);
        this.shownPast = state;
      }
    }
    this.timeline.render(this.past !== undefined && this.played === undefined);
  }
  private shownPast: RobotState = {};

  private sample(): void {
    const { sampling } = this.connection;
    const intervals = samplingOf({
      isHidden: document.hidden,
      isPast: this.cursor !== undefined,
      robot: this.robotVisible.isVisible,
      isMoving: performance.now() - this.movedAt < kMovingFor,
      sonarOn: this.isSonarOn,
      cards: this.overview.topicsInView,
      plots: this.plotsVisible.isVisible ? this.plots.topics : [],
    });
    kSampledTopics.forEach((topic) => {
      sampling.want(topic, intervals.get(topic) ?? 0);
    });
  }

  private refresh(): void {
    this.sample();
    const link = this.showLink();
    const { now, cursor } = this;
    const pose = this.poseNow(cursor ?? now, cursor === undefined ? this.present : this.shownPast);
    this.showTitle(link, pose);
    if (document.hidden) {
      return;
    }
    this.robot.showPose(pose);
    this.verdict.canStandUp = link.kind === "live" && this.worldKeys.size > 0;
    this.verdict.show({
      findings: this.findings,
      pose: poseText(pose),
      now,
      ...(cursor === undefined ? {} : { lookingAt: this.clock.text(cursor), back: now - cursor }),
    });
    this.world.showActual(this.story.poseAt(now)?.name ?? this.present.pose?.announced ?? "");
    this.bar.showRate(
      this.connectionState.kind === "connected" && link.kind !== "stale"
        ? this.ticks.perSecond
        : undefined,
      this.askedRate,
    );
    if (cursor === undefined) {
      this.overview.show(this.news);
      this.news = {};
    }
    this.liveTime.setSpan(Math.max(this.past?.begin ?? 0, now - kPast), now);
    if (this.isStoryNew) {
      this.isStoryNew = false;
      this.markStory();
    }
    byId("timeline").hidden = this.past === undefined;
    this.timeline.render(this.past !== undefined && this.played === undefined);
    this.keepAddress();
    const looksAt = this.played === undefined ? cursor : now;
    this.storyPanel.render(now, looksAt);
    if (this.plotsVisible.isVisible) {
      this.plots.render(now, cursor);
    }
  }

  private poseNow(time: number, { pose }: RobotState): PoseWords {
    const announced = this.story.poseAt(time);
    if (pose === undefined) {
      return { headline: announced === undefined ? "–" : poseWords(announced.name), detail: "" };
    }
    // The event is told apart from the samples: the newer of both counts.
    const name = announced?.name ?? pose.announced;
    return describePose({ ...pose, announced: name }, announced?.since, time);
  }

  private markStory(): void {
    this.marks = [...this.story.present()]
      .filter(({ kind }) => kind === "event" || kind === "micro")
      .reverse()
      .map((row) => ({
        time: row.time,
        text: rowWords(row),
        importance: row.importance,
        pose: row.name === "robotPoseChanged" ? String(row.value) : undefined,
      }));
    this.timeline.setMarks(this.marks, this.storyPanel.times);
    this.plots.setMarks(
      this.marks
        .filter(({ importance }) => importance >= Importance.Notable)
        .map(({ time, importance }) => ({
          time,
          kind: importance === Importance.Alarming ? ("alarm" as const) : ("event" as const),
        })),
    );
  }

  private showTitle(link: Link, pose: PoseWords): void {
    const isTrouble = ["lost", "stale", "locked", "ended"].includes(link.kind);
    const text = isTrouble
      ? `${link.kind === "ended" ? "■" : "⚠"} ${link.short}`
      : VerdictLine.title({ findings: this.findings, pose: pose.headline, now: this.now });
    const title = `${text} · gksensors`;
    if (title !== this.title) {
      this.title = title;
      document.title = title;
    }
  }

  private showLink(): Link {
    const valuesAt =
      this.played !== undefined || document.hidden ? performance.now() : this.valuesAt;
    const link = describeSource(
      describeLink(this.connectionState, this.isLocked, valuesAt, performance.now()),
      this.host?.source,
      this.played,
      this.now,
      this.silence,
    );
    // Without a robot that answers there is no world to move.
    byId("world").inert = link.kind !== "live";
    this.bar.showLink(link);
    return link;
  }
}

function poseText({ headline, detail }: PoseWords): string {
  return detail === "" ? headline : `${headline}${detail.startsWith("for ") ? "" : ","} ${detail}`;
}

/** Keys that somebody types, or that move what has the focus. */
function isTyping(event: KeyboardEvent): boolean {
  const target = event.target as Element;
  if (document.querySelector("dialog[open]") !== null && event.key !== "?") {
    return true;
  }
  return target.matches("input:not([type=checkbox]), select, textarea")
    ? true
    : (event.key === " " || event.key === "Enter") && target.matches("button, summary, a, input");
}

function recallSession(): string {
  try {
    return sessionStorage.getItem(kSessionKey) ?? "";
  } catch {
    return "";
  }
}

function rememberSession(session: string): void {
  try {
    sessionStorage.setItem(kSessionKey, session);
  } catch {
    // Then a restart while the page is loaded anew goes unmarked.
  }
}

new Page().start();
