import { asksForToken, logIn } from "./host/access.js";
import { kPlotTopics, kStateTopics, readEvent, readLogLine } from "./host/channels.js";
import { Connection, type ConnectionState } from "./host/connection.js";
import { asMembers } from "./host/members.js";
import { CallError, fetchMemory, fetchModules } from "./host/rest.js";
import { leaveSonar, listenToSonar, sonarListeners } from "./host/sonarSubscription.js";
import { describeLink } from "./model/link.js";
import { PlotStore } from "./model/plotStore.js";
import { Rate } from "./model/rate.js";
import type { RobotState } from "./model/robotState.js";
import { kWorldPrefix } from "./model/world.js";
import { EventsPanel } from "./panels/eventsPanel.js";
import { ModulesPanel } from "./panels/modulesPanel.js";
import { Overview } from "./panels/overview.js";
import { PlotsPanel } from "./panels/plotsPanel.js";
import { poseWords, RobotPanel } from "./panels/robotPanel.js";
import { StatusBar } from "./panels/statusBar.js";
import { WorldPanel } from "./panels/worldPanel.js";
import { Announcer } from "./ui/announcer.js";
import { byId } from "./ui/dom.js";
import { ThemeSwitch } from "./ui/theme.js";
import { WhileVisible } from "./ui/whileVisible.js";

/** ms between two looks of the numbers: faster cannot be read. */
const kRefresh = 125;
/** ms between two looks at what others may change as well: the world, and who listens to the sonar. */
const kSlowRefresh = 2_000;
const kRateSpan = 3;

/** Everything on the page, and how it hangs together. */
class Page {
  // First: what others draw has the theme's colours.
  private readonly theme = new ThemeSwitch(byId("theme") as HTMLButtonElement);
  private readonly announcer = new Announcer(byId("announcer"));
  private readonly bar = new StatusBar(this.announcer);
  private readonly robot = new RobotPanel(byId("robot"));
  private readonly overview = new Overview(byId("cards"));
  private readonly events = new EventsPanel(byId("events-body"));
  private readonly store = new PlotStore();
  private readonly plots = new PlotsPanel(byId("plots-body"), this.store);
  private readonly modules = new ModulesPanel(byId("modules-body"));
  private readonly world = new WorldPanel(byId("world-body"));
  private readonly plotsVisible = new WhileVisible(byId("plots"));
  private readonly ticks = new Rate(kRateSpan);
  private readonly connection = new Connection(
    `${location.protocol === "https:" ? "wss" : "ws"}://${location.host}/ws`,
  );

  private connectionState: ConnectionState = { kind: "connecting" };
  private isLocked = false;
  private valuesAt: number | undefined;
  /** The host's clock and when it was heard, in seconds of `performance.now`. */
  private clock = { host: Date.now() / 1000, here: performance.now() / 1000 };
  /** What came since the last look. */
  private news: RobotState = {};
  private newsForRobot: RobotState = {};

  start(): void {
    this.listen();
    this.theme.onChange = () => {
      this.robot.applyTheme();
      this.plots.rebuild();
    };
    this.world.onHoist = (height) => {
      this.robot.setHoist(height);
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
    document.addEventListener("visibilitychange", () => {
      if (!document.hidden && this.connectionState.kind === "waiting") {
        this.connection.start();
      }
    });
    // The last thing that a closed, reloaded or left page is told, on phones as well.
    window.addEventListener("pagehide", leaveSonar);
    this.connection.start();
    setInterval(() => {
      this.refresh();
    }, kRefresh);
    setInterval(() => {
      this.refreshSlowly();
    }, kSlowRefresh);
  }

  private listen(): void {
    for (const [topic, read] of Object.entries(kStateTopics)) {
      this.connection.want(topic, (payload, time) => {
        this.take(topic, payload, time, read(asMembers(payload)));
      });
    }
    for (const topic of kPlotTopics) {
      this.connection.want(topic, (payload, time) => {
        this.take(topic, payload, time, {});
      });
    }
    this.connection.want("/events", (payload, time) => {
      const event = readEvent(payload, time);
      if (event !== undefined) {
        this.hear(time);
        this.events.addEvent(event);
        if (event.name === "robotPoseChanged") {
          this.announcer.say("pose", `${poseWords(String(event.value))}.`);
        }
      }
    });
    this.connection.want("/log", (payload, time) => {
      const line = readLogLine(payload, time);
      if (line !== undefined) {
        this.events.addLog(line);
      }
    });
    this.connection.onTime = (time) => {
      this.hear(time);
    };
    this.connection.onKeys = (values) => {
      values.forEach((value, key) => {
        this.store.addKey(key, value, this.clock.host);
      });
    };
    this.plots.onKeys = (keys) => {
      this.connection.watchKeys(keys);
    };
    this.connection.watchKeys(this.plots.keys);
    this.connection.onStatus = (status) => {
      this.bar.addStatus(status);
    };
    this.connection.onStatusRemoved = (ids) => {
      this.bar.removeStatus(ids);
    };
    this.connection.onSession = () => {
      this.store.clear();
    };
    this.connection.onState = (state) => {
      this.changeConnection(state);
    };
  }

  private take(topic: string, payload: unknown, time: number, part: RobotState): void {
    this.valuesAt = performance.now();
    this.hear(time);
    this.store.add(topic, payload, time);
    Object.assign(this.news, part);
    if (Object.keys(this.newsForRobot).length === 0) {
      requestAnimationFrame(() => {
        this.robot.show(this.newsForRobot);
        this.newsForRobot = {};
      });
    }
    Object.assign(this.newsForRobot, part);
    if (part.tick !== undefined) {
      this.ticks.add(part.tick.count, time);
    }
  }

  private hear(time: number): void {
    this.clock = { host: time, here: performance.now() / 1000 };
  }

  private changeConnection(state: ConnectionState): void {
    const wasConnected = this.connectionState.kind === "connected";
    this.connectionState = state;
    if (state.kind === "connected") {
      this.isLocked = false;
      if (!wasConnected) {
        void this.askForModules();
        this.refreshSlowly();
      }
    } else if (state.kind === "waiting") {
      void asksForToken().then((isLocked) => {
        this.isLocked = isLocked;
      });
    }
    this.showLink();
  }

  private async unlock(token: string): Promise<void> {
    if (await logIn(token)) {
      this.connection.start();
    } else {
      this.announcer.say("login", "This is not the token.");
      this.bar.refuseToken();
    }
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

  private refreshSlowly(): void {
    if (this.connectionState.kind === "connected" && !document.hidden) {
      void this.refreshWorld();
      void this.refreshSonar();
    }
  }

  private async refreshSonar(): Promise<void> {
    const listeners = await sonarListeners().catch(() => undefined);
    if (listeners !== undefined) {
      this.overview.showSonarListeners(listeners);
      this.robot.setSonarOn(listeners.isAny);
    }
  }

  private async switchSonar(isOn: boolean): Promise<void> {
    // A refusal shows by itself: the switch stays where it was.
    await listenToSonar(isOn).catch(() => undefined);
    await this.refreshSonar();
  }

  /** The world is shown where there is one. */
  private async refreshWorld(): Promise<void> {
    const keys = await fetchMemory(kWorldPrefix).catch(() => undefined);
    if (keys === undefined) {
      return;
    }
    byId("world").hidden = keys.size === 0;
    byId("world-link").hidden = keys.size === 0;
    byId("main").classList.toggle("has-world", keys.size > 0);
    this.world.show(keys);
  }

  private refresh(): void {
    this.showLink();
    if (document.hidden) {
      return;
    }
    this.bar.showRate(this.connectionState.kind === "connected" ? this.ticks.perSecond : undefined);
    this.overview.show(this.news);
    this.news = {};
    const isLive = this.connectionState.kind === "connected";
    const now = this.clock.host + (isLive ? performance.now() / 1000 - this.clock.here : 0);
    this.events.render(now);
    if (this.plotsVisible.isVisible) {
      this.plots.render();
    }
  }

  private showLink(): void {
    // Without a host there is no world to move.
    byId("world").inert = this.connectionState.kind !== "connected";
    this.bar.showLink(
      describeLink(this.connectionState, this.isLocked, this.valuesAt, performance.now()),
    );
  }
}

new Page().start();
