import type { Status } from "../host/protocol.js";
import type { Link } from "../model/link.js";
import { Losses } from "../model/losses.js";
import type { Announcer } from "../ui/announcer.js";
import { byId, setText } from "../ui/dom.js";

/** ms */
const kReading = 8_000;

/** Says how well the page hears the host: in the bar at the top, and below it when there is trouble. */
export class StatusBar {
  onRetry: () => void = () => {};
  onToken: (token: string) => void = () => {};

  private readonly pill = byId("connection");
  private readonly pillText = byId("connection-text");
  private readonly banner = byId("banner");
  private readonly bannerText = byId("banner-text");
  private readonly retry = byId("retry");
  private readonly login = byId("login") as HTMLFormElement;
  private readonly dropped = byId("dropped");
  private readonly rate = byId("rate");
  private readonly losses = new Losses();
  private kind = "";
  private problem = "";

  constructor(private readonly announcer: Announcer) {
    this.retry.addEventListener("click", () => {
      this.onRetry();
    });
    this.login.addEventListener("submit", (event) => {
      event.preventDefault();
      this.onToken((byId("token") as HTMLInputElement).value);
    });
  }

  showLink(link: Link): void {
    this.pill.dataset["state"] = link.kind;
    document.documentElement.dataset["link"] = link.kind;
    setText(this.pillText, link.short);
    const text = link.explanation || this.problem;
    this.banner.hidden = text === "";
    setText(this.bannerText, text);
    this.retry.hidden = link.kind !== "lost";
    this.login.hidden = link.kind !== "locked";
    if (link.kind !== this.kind) {
      this.kind = link.kind;
      this.announcer.say("connection", `${link.short}.`);
    }
  }

  refuseToken(): void {
    setText(byId("token-problem"), "This is not the token.");
  }

  /** @param asked what the loop is to do; either undefined while it is not known */
  showRate(ticksPerSecond: number | undefined, asked: number | undefined): void {
    const of = asked === undefined ? "" : ` of ${Math.round(asked)}`;
    setText(
      this.rate,
      ticksPerSecond === undefined ? "" : `${Math.round(ticksPerSecond)}${of} ticks/s`,
    );
  }

  /** Says what went wrong, for as long as it takes to read it. */
  tell(problem: string): void {
    this.problem = problem;
    this.announcer.say("problem", problem);
    setTimeout(() => {
      this.problem = "";
    }, kReading);
  }

  addStatus(status: Status): void {
    this.losses.add(status);
    this.showLosses();
  }

  removeStatus(ids: readonly string[]): void {
    this.losses.remove(ids);
    this.showLosses();
  }

  /** Samples that are left out are normal for a slow machine; events that are lost are not. */
  private showLosses(): void {
    const { loss, message } = this.losses;
    const isOther = message !== "" && loss.events + loss.samples === 0;
    const parts = [
      ...(isOther ? ["Warning"] : []),
      ...(loss.events > 0 ? [`${loss.events} events dropped`] : []),
      ...(loss.samples > 0 ? [`${loss.samples} samples dropped`] : []),
    ];
    this.dropped.hidden = parts.length === 0;
    this.dropped.classList.toggle("signal", isOther || loss.events > 0);
    setText(this.dropped, parts.join(", "));
    this.dropped.title =
      message || "Messages that this page was too slow to take; the newest samples always arrive";
  }
}
