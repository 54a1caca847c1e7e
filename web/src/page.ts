import { Feed } from "./feed.js";
import { logIn } from "./host/access.js";
import { kSampledTopics } from "./host/channels.js";
import { fetchPast, keepPast } from "./host/past.js";
import { playback } from "./host/playback.js";
import { CallError, fetchMemory, fetchModules } from "./host/rest.js";
import { leaveSonar, listenToSonar, sonarListeners } from "./host/sonarSubscription.js";
import { History } from "./model/history.js";
import { samplingOf } from "./model/interests.js";
import type { Link } from "./model/link.js";
import { stateOf } from "./model/pastState.js";
import { describePose, poseWords, type PoseWords } from "./model/poses.js";
import type { RobotState } from "./model/robotState.js";
import { rowWords } from "./model/story.js";
import { LiveTime, PlaybackTime, type TimeControl } from "./model/timeControl.js";
import { Importance } from "./model/words.js";
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
import { readAddress, writeAddress } from "./ui/address.js";
import { Announcer } from "./ui/announcer.js";
import { byId } from "./ui/dom.js";
import { isTaken } from "./ui/keys.js";
import { ThemeSwitch } from "./ui/theme.js";
import { WhileVisible } from "./ui/whileVisible.js";

/** ms between two looks of the numbers: faster cannot be read. */
const kRefresh = 125;
/** ms between two moments of a past that is played. */
const kPlayRefresh = 50;
/** ms between two looks at what the host does not tell by itself. */
const kSlowRefresh = 2_000;
/** s that a host remembers unless it is told otherwise. */
const kPast = 600;

/** Everything on the page, and how it hangs together. */
class Page {
  // First: what others draw has the theme's colours.
  private readonly theme = new ThemeSwitch(byId("theme") as HTMLButtonElement);
  private readonly announcer = new Announcer(byId("announcer"));
  private readonly bar = new StatusBar(this.announcer);
  private readonly feed = new Feed();
  private readonly verdict = new VerdictLine(byId("verdict"));
  private readonly robot = new RobotPanel(byId("robot"));
  private readonly storyPanel = new StoryPanel(
    byId("story-body"),
    this.feed.story,
    this.feed.clock,
  );
  private readonly overview = new Overview(byId("cards"));
  private readonly plots = new PlotsPanel(byId("plots-body"), this.feed.store, this.feed.clock);
  private readonly modules = new ModulesPanel(byId("modules-body"));
  private readonly world = new WorldPanel(byId("world-body"));
  private readonly help = new HelpDialog(byId("help") as HTMLDialogElement, byId("help-button"));
  private readonly robotVisible = new WhileVisible(byId("robot"));
  private readonly plotsVisible = new WhileVisible(byId("plots"));
  private readonly history = new History(fetchPast, () => performance.now());
  private readonly liveTime = new LiveTime();
  private readonly playbackTime = new PlaybackTime(playback);
  private readonly timeline = new TimelineBar(byId("timeline"), () => this.time, this.feed.clock);

  private isPlaced = false;
  /** What of the present came since the last look. */
  private news: RobotState = {};
  private newsForRobot: RobotState = {};
  /** The moment of the past that is shown. */
  private shownPast: RobotState = {};
  /** The past is shown. */
  private isBack = false;
  private plotsSince = 0;
  private isStoryNew = true;
  private title = "";

  start(): void {
    this.connectFeed();
    this.connectPanels();
    this.connectTime();
    document.addEventListener("visibilitychange", () => {
      if (document.hidden) {
        this.sample();
        return;
      }
      this.feed.resume();
      this.refresh();
    });
    // The last thing that a closed, reloaded or left page is told, on phones as well.
    window.addEventListener("pagehide", leaveSonar);
    new ResizeObserver(() => {
      const height = `${byId("top").getBoundingClientRect().height}px`;
      document.documentElement.style.setProperty("--top", height);
    }).observe(byId("top"));
    this.feed.connection.start();
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

  private connectFeed(): void {
    const { feed } = this;
    feed.onState = (part) => {
      this.take(part);
    };
    feed.onEvent = ({ name, value }) => {
      this.isStoryNew = true;
      if (name === "robotPoseChanged" && this.cursor === undefined) {
        this.announcer.say("pose", `${poseWords(String(value))}.`);
      }
    };
    feed.onVerdict = ([worst]) => {
      if (worst !== undefined && worst.text !== feed.findings[0]?.text) {
        this.announcer.say("verdict", `${worst.text}. ${worst.advice}`);
      }
    };
    feed.onPlayback = (state) => {
      this.playbackTime.show(state);
    };
    feed.onWorld = () => {
      this.world.show(feed.worldKeys);
    };
    feed.onPast = () => {
      this.isStoryNew = true;
      this.storyPanel.relist();
      this.placeFromAddress();
    };
    feed.onReady = () => {
      void this.refreshWorld();
      void this.refreshSonar();
      void this.askForModules();
    };
    feed.onRestart = () => {
      this.history.clear();
      this.liveTime.toEnd();
    };
    feed.connection.onStatus = (status) => {
      this.bar.addStatus(status);
    };
    feed.connection.onStatusRemoved = (ids) => {
      this.bar.removeStatus(ids);
    };
    feed.watchKeys(this.plots.keys);
  }

  private take(part: RobotState): void {
    if (part.sonar?.isOn !== undefined) {
      this.robot.setSonarOn(part.sonar.isOn);
    }
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
  }

  // What is asked for

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
      this.feed.connection.start();
    } else {
      this.announcer.say("login", "This is not the token.");
      this.bar.refuseToken();
    }
  }

  private refreshSlowly(): void {
    if (this.feed.isConnected && !document.hidden) {
      void this.refreshSonar();
      void this.feed.refreshHost();
    }
  }

  private async refreshSonar(): Promise<void> {
    if (this.feed.played !== undefined) {
      this.showSonarOn(true);
      return;
    }
    const listeners = await sonarListeners().catch(() => undefined);
    if (listeners !== undefined) {
      this.overview.showSonarListeners(listeners);
      if (this.feed.state.sonar?.isOn === undefined) {
        this.showSonarOn(listeners.isAny);
      }
    }
  }

  private showSonarOn(isOn: boolean): void {
    this.feed.isSonarOn = isOn;
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
      this.feed.played === undefined && this.feed.host?.source?.kind !== "recording"
        ? ((await fetchMemory(kWorldPrefix).catch(() => undefined)) ?? new Map<string, never>())
        : new Map<string, never>();
    const { worldKeys } = this.feed;
    worldKeys.clear();
    keys.forEach(({ value }, key) => worldKeys.set(key, value));
    const hasWorld = keys.size > 0;
    byId("world").hidden = !hasWorld;
    byId("world-link").hidden = !hasWorld;
    byId("main").classList.toggle("has-world", hasWorld);
    this.verdict.canStandUp = hasWorld;
    this.world.show(worldKeys);
    this.feed.watchKeys(this.plots.keys);
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
      this.feed.connection.start();
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
      this.plotsSince = this.feed.now;
      this.feed.watchKeys(keys);
    };
    this.plots.onSpan = (from, to) => {
      if (this.feed.past !== undefined) {
        this.history.need({ from, to: this.cursor === undefined ? this.plotsSince + 0.5 : to });
      }
    };
    this.plotsVisible.onAppear = () => {
      this.plotsSince = this.feed.now;
    };
    this.feed.store.remembered = (name, from, to) => this.history.rows(name, from, to);
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
      if (!event.defaultPrevented && !event.ctrlKey && !event.metaKey && !isTaken(event)) {
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

  /** Goes where the address says. */
  private placeFromAddress(): void {
    if (this.isPlaced) {
      return;
    }
    this.isPlaced = true;
    const { time, speed, loop } = readAddress();
    this.liveTime.setSpan(this.feed.past?.begin ?? 0, this.feed.now);
    if (speed !== undefined) {
      this.time.setSpeed(speed);
    }
    if (loop !== undefined) {
      this.time.setLoop(loop);
    }
    if (time !== undefined && this.feed.past !== undefined) {
      this.time.seek(time);
    }
  }

  private keepAddress(): void {
    const { kind, isPlaying, time } = this.time.view;
    const isElsewhere = kind === "past" || (kind === "playback" && !isPlaying);
    if (this.isPlaced) {
      writeAddress(isElsewhere ? time : undefined);
    }
  }

  // What is shown

  private get time(): TimeControl {
    return this.feed.played === undefined ? this.liveTime : this.playbackTime;
  }

  /** Where the reader looks while the robot goes on; undefined for the present. */
  private get cursor(): number | undefined {
    const { kind, time } = this.liveTime.view;
    return kind === "past" && this.feed.played === undefined ? time : undefined;
  }

  private playPast(): void {
    if (!document.hidden) {
      this.liveTime.advance(kPlayRefresh / 1000);
    }
  }

  /** Shows the moment that the reader looks at, or the present again. */
  private showMoment(): void {
    const { cursor } = this;
    if (cursor === undefined && !this.isBack) {
      // The present is shown as it comes.
    } else if (cursor === undefined) {
      this.overview.show(this.feed.state);
      this.robot.show(this.feed.state, true);
      this.world.show(this.feed.worldKeys);
    } else {
      this.history.need({ from: cursor - 1, to: Math.min(cursor + 5, this.feed.now) });
      const moment = this.history.at(cursor);
      if (moment !== undefined) {
        const state = stateOf(moment, this.feed.story.poseAt(cursor)?.name);
        this.robot.setHoist(undefined);
        this.robot.show(state, !this.liveTime.view.isPlaying);
        this.overview.show(state);
        this.shownPast = state;
      }
    }
    this.isBack = cursor !== undefined;
    this.timeline.render(this.feed.past !== undefined && this.feed.played === undefined);
  }
  private sample(): void {
    const { sampling } = this.feed.connection;
    const intervals = samplingOf({
      isHidden: document.hidden,
      isPast: this.cursor !== undefined,
      robot: this.robotVisible.isVisible,
      isMoving: this.feed.isMoving,
      sonarOn: this.feed.isSonarOn,
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
    const { cursor } = this;
    const { now } = this.feed;
    const pose = this.poseNow(
      cursor ?? now,
      cursor === undefined ? this.feed.state : this.shownPast,
    );
    this.showTitle(link, pose);
    if (document.hidden) {
      return;
    }
    this.robot.showPose(pose);
    this.verdict.canStandUp = link.kind === "live" && this.feed.worldKeys.size > 0;
    this.verdict.show({
      findings: this.feed.findings,
      pose: poseText(pose),
      now,
      ...(cursor === undefined
        ? {}
        : { lookingAt: this.feed.clock.text(cursor), back: now - cursor }),
    });
    this.world.showActual(
      this.feed.story.poseAt(now)?.name ?? this.feed.state.pose?.announced ?? "",
    );
    this.bar.showRate(link.kind === "stale" ? undefined : this.feed.tickRate, this.feed.askedRate);
    if (cursor === undefined) {
      this.overview.show(this.news);
      this.news = {};
    }
    this.liveTime.setSpan(Math.max(this.feed.past?.begin ?? 0, now - kPast), now);
    if (this.isStoryNew) {
      this.isStoryNew = false;
      this.markStory();
    }
    byId("timeline").hidden = this.feed.past === undefined;
    this.timeline.render(this.feed.past !== undefined && this.feed.played === undefined);
    this.keepAddress();
    const looksAt = this.feed.played === undefined ? cursor : now;
    this.storyPanel.render(now, looksAt);
    if (this.plotsVisible.isVisible) {
      this.plots.render(now, cursor);
    }
  }

  private poseNow(time: number, { pose }: RobotState): PoseWords {
    const announced = this.feed.story.poseAt(time);
    if (pose === undefined) {
      return { headline: announced === undefined ? "–" : poseWords(announced.name), detail: "" };
    }
    // The event is told apart from the samples: the newer of both counts.
    const name = announced?.name ?? pose.announced;
    return describePose({ ...pose, announced: name }, announced?.since, time);
  }

  private markStory(): void {
    const marks: Mark[] = [...this.feed.story.present()]
      .filter(({ kind }) => kind === "event" || kind === "micro")
      .reverse()
      .map((row) => ({
        time: row.time,
        text: rowWords(row),
        importance: row.importance,
        pose: row.name === "robotPoseChanged" ? String(row.value) : undefined,
      }));
    this.timeline.setMarks(marks, this.storyPanel.times);
    this.plots.setMarks(
      marks
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
      : VerdictLine.title({
          findings: this.feed.findings,
          pose: pose.headline,
          now: this.feed.now,
        });
    const title = `${text} · gksensors`;
    if (title !== this.title) {
      this.title = title;
      document.title = title;
    }
  }

  private showLink(): Link {
    const { link } = this.feed;
    // Without a robot that answers there is no world to move.
    byId("world").inert = link.kind !== "live";
    this.bar.showLink(link);
    return link;
  }
}

function poseText({ headline, detail }: PoseWords): string {
  return detail === "" ? headline : `${headline}${detail.startsWith("for ") ? "" : ","} ${detail}`;
}

new Page().start();
