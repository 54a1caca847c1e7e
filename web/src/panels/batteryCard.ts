import { formatNumber, kNoValue } from "../model/format.js";
import type { Battery } from "../model/robotState.js";
import { makeCard, type Card } from "../ui/card.js";
import { h, setAttribute, setText } from "../ui/dom.js";

/** Percent; below this the charge is worth a look. */
const kLow = 20;

export class BatteryCard {
  readonly card: Card = makeCard("battery", "Battery");

  private readonly percent = h("strong", { class: "figure" });
  private readonly bar = h("span", { class: "level" });
  private readonly meter = h(
    "div",
    {
      class: "meter",
      role: "meter",
      "aria-label": "Charge",
      "aria-valuenow": 0,
      "aria-valuemin": 0,
      "aria-valuemax": 100,
    },
    this.bar,
  );
  private readonly current = h("dd");
  private readonly plug = h("dd");

  constructor() {
    const facts = h(
      "dl",
      { class: "facts" },
      h("dt", {}, "Current"),
      this.current,
      h("dt", {}, "Charger"),
      this.plug,
    );
    this.card.body.append(this.percent, this.meter, facts);
  }

  show(battery: Battery): void {
    const { charge } = battery;
    const isLow = charge !== undefined && charge < kLow;
    setText(this.card.answer, isLow && !battery.isCharging ? "low" : answerOf(battery));
    this.card.answer.classList.toggle("signal", isLow && !battery.isCharging);
    setText(this.percent, charge === undefined ? kNoValue : `${formatNumber(charge, 0)} %`);
    this.bar.style.setProperty("--level", String((charge ?? 0) / 100));
    this.meter.classList.toggle("low", isLow);
    setAttribute(this.meter, "aria-valuenow", formatNumber(charge ?? 0, 0));
    setText(
      this.current,
      battery.current === undefined ? kNoValue : `${formatNumber(battery.current, 2)} A`,
    );
    setText(
      this.plug,
      battery.isPlugged === undefined
        ? kNoValue
        : battery.isPlugged
          ? "plugged in"
          : "not plugged in",
    );
  }
}

function answerOf(battery: Battery): string {
  if (battery.isFull) {
    return "full";
  }
  return battery.isCharging ? "charging" : battery.isDischarging ? "discharging" : "";
}
