import { h, setAttribute, setText } from "../ui/dom.js";
import type { Robot } from "./robots.js";

/** The card of one robot. What has not changed is not touched. */
export class RobotCard {
  readonly element = h("li", { class: "robot-card" });

  private readonly name = h("span", { class: "name" });
  private readonly site = h("span", { class: "site" });
  private readonly words = h("p", { class: "words" });
  private readonly pose = h("dd");
  private readonly battery = h("dd");
  private readonly backlog = h("dd");
  private readonly event = h("p", { class: "event" });
  private readonly link = h("a", { target: "_blank", rel: "noopener noreferrer" });

  constructor(public robot: Robot) {
    this.link.append(this.name);
    this.element.append(
      h("p", { class: "head" }, this.link, this.site),
      this.words,
      h(
        "dl",
        {},
        h("div", {}, h("dt", {}, "Pose"), this.pose),
        h("div", {}, h("dt", {}, "Battery"), this.battery),
        h("div", {}, h("dt", {}, "Backlog"), this.backlog),
      ),
      this.event,
    );
    this.show(robot);
  }

  show(robot: Robot): void {
    this.robot = robot;
    setAttribute(this.element, "data-level", String(robot.level));
    setAttribute(this.element, "data-urgency", String(robot.urgency));
    setText(this.name, robot.name);
    setText(this.site, robot.site === "default" ? "" : robot.site);
    setText(this.words, sentence(robot.words));
    setText(this.pose, robot.pose === "" ? "–" : robot.pose);
    setText(this.battery, chargeText(robot));
    setText(this.backlog, robot.backlog === undefined ? "–" : String(robot.backlog));
    setText(this.event, robot.event === undefined ? "" : eventText(robot.event));
    if (robot.page === "") {
      this.link.removeAttribute("href");
      this.link.removeAttribute("title");
    } else {
      setAttribute(this.link, "href", robot.page);
      setAttribute(this.link, "title", `The page of ${robot.name}`);
    }
  }
}

function sentence(text: string): string {
  return text.charAt(0).toUpperCase() + text.slice(1);
}

function chargeText(robot: Robot): string {
  if (robot.charge === undefined) {
    return "–";
  }
  return robot.isPlugged ? `${robot.charge} %, charging` : `${robot.charge} %`;
}

function eventText(event: { words: string; time: number }): string {
  const time = new Date(event.time * 1000);
  const text = Number.isNaN(time.getTime()) ? "" : time.toLocaleTimeString();
  return `${text} ${event.words}`;
}
