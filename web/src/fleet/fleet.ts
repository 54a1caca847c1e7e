import { logIn } from "../host/access.js";
import { Backoff } from "../host/backoff.js";
import { byId, setText } from "../ui/dom.js";
import { ThemeSwitch } from "../ui/theme.js";
import { RobotList } from "./robotList.js";
import { readUpdate } from "./robots.js";

/** The server answers within 20 s, whether there is something new or not. */
const kPatience = 40_000;

type State = "connecting" | "live" | "stale" | "lost" | "locked";

const kStateTexts: Readonly<Record<State, string>> = {
  connecting: "Connecting",
  live: "Live",
  stale: "No broker",
  lost: "Not connected",
  locked: "Locked",
};

/** Asks for what is new, again and again. */
class Feed {
  private readonly list = new RobotList();
  private readonly backoff = new Backoff();
  private session = "";
  private version: number | undefined;

  async run(): Promise<void> {
    for (;;) {
      try {
        await this.ask();
        this.backoff.reset();
      } catch {
        showState("lost", "gk fleet serve cannot be reached. What is shown is as of then.");
        await pause(this.backoff.next());
      }
    }
  }

  private async ask(): Promise<void> {
    const wanted =
      this.version === undefined
        ? ""
        : `?after=${this.version}&session=${encodeURIComponent(this.session)}`;
    const response = await fetch(`/api/v1/fleet${wanted}`, {
      signal: AbortSignal.timeout(kPatience),
    });
    if (response.status === 401) {
      await unlocked();
      return;
    }
    if (!response.ok) {
      throw new Error(response.statusText);
    }
    const update = readUpdate(await response.json());
    this.session = update.session;
    this.version = update.version;
    setText(byId("broker"), update.broker);
    this.list.take(update);
    if (update.trouble === "") {
      showState("live", "");
    } else {
      showState("stale", `No broker: ${update.trouble}. What is shown is as of then.`);
    }
  }
}

function showState(state: State, text: string): void {
  byId("connection").dataset["state"] = state;
  setText(byId("connection-text"), kStateTexts[state]);
  byId("login").hidden = state !== "locked";
  byId("banner").hidden = text === "";
  setText(byId("banner-text"), text);
  byId("robots").classList.toggle("stale", state === "stale" || state === "lost");
}

function pause(milliseconds: number): Promise<void> {
  return new Promise((resolve) => {
    setTimeout(resolve, milliseconds);
  });
}

/** Returns once somebody has given the token. */
function unlocked(): Promise<void> {
  showState("locked", "The fleet's page wants its token.");
  const form = byId("login") as HTMLFormElement;
  const token = byId("token") as HTMLInputElement;
  const problem = byId("token-problem");
  return new Promise((resolve) => {
    form.onsubmit = (event) => {
      event.preventDefault();
      setText(problem, "");
      void logIn(token.value).then((isOpen) => {
        token.value = "";
        if (isOpen) {
          resolve();
        } else {
          setText(problem, "This is not the token.");
        }
      });
    };
  });
}

new ThemeSwitch(byId("theme") as HTMLButtonElement);
void new Feed().run();
