import { h } from "../ui/dom.js";

const kKeys: readonly (readonly [keys: string, what: string])[] = [
  ["Space", "hold this moment, play on"],
  ["← →", "a second back or on; with Shift ten, with Alt a tenth"],
  ["P N", "the event before, the next event"],
  [", .", "the tick before, the next tick"],
  ["Home End", "the beginning; the present, or the end of a recording"],
  ["[ ] L", "begin and end of a loop; no loop"],
  ["/", "filter the events"],
  ["?", "this list"],
];

const kOnRobot: readonly (readonly [keys: string, what: string])[] = [
  ["← → ↑ ↓", "turn the view"],
  ["+ −", "nearer, farther"],
  ["Home", "as at first"],
];

const kSigns: readonly (readonly [sign: string, what: string])[] = [
  ["calm", "all is well, or a value as it is"],
  ["signal", "look here: a warning, something near, warm or low"],
  ["touched", "touched, with a ring around it"],
  ["old", "greyed: may not be true any more, or has ended"],
];

/** Which keys there are, and what the colours and signs mean. */
export class HelpDialog {
  constructor(
    private readonly dialog: HTMLDialogElement,
    button: HTMLElement,
  ) {
    const close = h("button", { type: "button", class: "icon-button", "aria-label": "Close" }, "×");
    dialog.append(
      h("header", {}, h("h2", { id: "help-title" }, "Keys and signs"), close),
      h("h3", {}, "Anywhere"),
      keyList(kKeys),
      h("h3", {}, "On the robot"),
      keyList(kOnRobot),
      h("h3", {}, "Signs"),
      h(
        "dl",
        { class: "signs" },
        ...kSigns.flatMap(([sign, what]) => [
          h("dt", {}, h("span", { class: `sample ${sign}`, "aria-hidden": "true" })),
          h("dd", {}, what),
        ]),
      ),
    );
    close.addEventListener("click", () => {
      dialog.close();
    });
    // A click beside it.
    dialog.addEventListener("click", (event) => {
      if (event.target === dialog) {
        dialog.close();
      }
    });
    button.addEventListener("click", () => {
      this.toggle();
    });
  }

  toggle(): void {
    if (this.dialog.open) {
      this.dialog.close();
    } else {
      this.dialog.showModal();
    }
  }
}

function keyList(keys: readonly (readonly [keys: string, what: string])[]): HTMLElement {
  return h(
    "dl",
    { class: "keys" },
    ...keys.flatMap(([names, what]) => [
      h("dt", {}, ...names.split(" ").map((name) => h("kbd", {}, name))),
      h("dd", {}, what),
    ]),
  );
}
