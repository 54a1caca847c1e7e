import type { Listeners } from "../host/sonarSubscription.js";
import type { RobotState } from "../model/robotState.js";
import { WhileVisible } from "../ui/whileVisible.js";
import { BatteryCard } from "./batteryCard.js";
import { FeetCard } from "./feetCard.js";
import { HeatCard } from "./heatCard.js";
import { SonarCard } from "./sonarCard.js";
import { StiffnessCard } from "./stiffnessCard.js";
import { TouchCard } from "./touchCard.js";

/** The state at a glance: a card for each sense. */
export class Overview {
  /** The reader wants the sonar on or off. */
  onSonarSwitch: (isOn: boolean) => void = () => {};

  private readonly feet = new FeetCard();
  private readonly sonar = new SonarCard();
  private readonly touch = new TouchCard();
  private readonly battery = new BatteryCard();
  private readonly stiffness = new StiffnessCard();
  private readonly heat = new HeatCard();

  /** The topic of each card, and whether it is on the screen. */
  private readonly topics: { topic: string; visible: WhileVisible }[];

  constructor(parent: HTMLElement) {
    const cards = [
      ["/feet", this.feet.card],
      ["/sonar", this.sonar.card],
      ["/touch", this.touch.card],
      ["/stiffness", this.stiffness.card],
      ["/temperatures", this.heat.card],
      ["/battery", this.battery.card],
    ] as const;
    parent.append(...cards.map(([, { element }]) => element));
    this.topics = cards.map(([topic, { element }]) => ({
      topic,
      visible: new WhileVisible(element),
    }));
    this.sonar.onSwitch = (isOn) => {
      this.onSonarSwitch(isOn);
    };
  }

  showSonarListeners(listeners: Listeners): void {
    this.sonar.showListeners(listeners);
  }

  /** Of what is on the screen. */
  get topicsInView(): string[] {
    return this.topics.filter(({ visible }) => visible.isVisible).map(({ topic }) => topic);
  }

  /** Shows those parts of the state that are given. */
  show({ feet, sonar, touch, battery, stiffness, temperatures }: RobotState): void {
    if (feet !== undefined) {
      this.feet.show(feet);
    }
    if (sonar !== undefined) {
      this.sonar.show(sonar);
    }
    if (touch !== undefined) {
      this.touch.show(touch);
    }
    if (battery !== undefined) {
      this.battery.show(battery);
    }
    if (stiffness !== undefined) {
      this.stiffness.show(stiffness);
    }
    if (temperatures !== undefined) {
      this.heat.show(temperatures);
    }
  }
}
