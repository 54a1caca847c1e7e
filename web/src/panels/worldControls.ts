import { h, setAttribute, setText } from "../ui/dom.js";

// The kinds of controls that move the world.

/** A press that ends sooner is held this long: a robot that looks 50 times a second must notice. */
const kShortestPress = 250;

/** A button that acts while it is held, by pointer, Space or Enter. A screen reader's click is a short press. */
export function holdButton(
  label: string,
  press: () => void,
  release: () => void,
): HTMLButtonElement {
  const button = h("button", { type: "button", class: "hold", "aria-pressed": "false" }, label);
  let pressedAt: number | undefined;

  const begin = (): void => {
    if (pressedAt === undefined) {
      pressedAt = performance.now();
      button.setAttribute("aria-pressed", "true");
      press();
    }
  };
  const end = (): void => {
    if (pressedAt === undefined) {
      return;
    }
    const left = Math.max(0, kShortestPress - (performance.now() - pressedAt));
    setTimeout(() => {
      if (pressedAt !== undefined) {
        pressedAt = undefined;
        button.setAttribute("aria-pressed", "false");
        release();
      }
    }, left);
  };

  button.addEventListener("pointerdown", (event) => {
    if (event.button === 0) {
      button.setPointerCapture(event.pointerId);
      begin();
    }
  });
  for (const type of ["pointerup", "pointercancel", "blur"] as const) {
    button.addEventListener(type, end);
  }
  button.addEventListener("keydown", (event) => {
    if (event.key === " " || event.key === "Enter") {
      event.preventDefault();
      begin();
    }
  });
  button.addEventListener("keyup", (event) => {
    if (event.key === " " || event.key === "Enter") {
      end();
    }
  });
  button.addEventListener("click", (event) => {
    // Neither pointer nor key: assistive technology.
    if (event.detail === 0 && pressedAt === undefined) {
      begin();
      end();
    }
  });
  button.addEventListener("contextmenu", (event) => {
    event.preventDefault();
  });
  return button;
}

export interface SliderOptions {
  label: string;
  min: number;
  max: number;
  step: number;
  /** The value in words. */
  text: (value: number) => string;
}

/** A slider with its value in words beside it. */
export class Slider {
  readonly element: HTMLElement;
  onChange: (value: number) => void = () => {};

  private readonly input: HTMLInputElement;
  private readonly words = h("output");

  constructor(private readonly options: SliderOptions) {
    const { label, min, max, step } = options;
    this.input = h("input", { type: "range", min, max, step });
    this.element = h("label", { class: "slider" }, h("span", {}, label), this.input, this.words);
    this.input.addEventListener("input", () => {
      this.showWords();
      this.onChange(this.value);
    });
    this.showWords();
  }

  get value(): number {
    return Number(this.input.value);
  }

  /** Shows what holds, unless the reader is moving the slider. */
  show(value: number): void {
    if (!this.input.matches(":active")) {
      this.input.value = String(value);
      this.showWords();
    }
  }

  private showWords(): void {
    const words = this.options.text(this.value);
    setText(this.words, words);
    setAttribute(this.input, "aria-valuetext", words);
  }
}

/** Something that is on or off. */
export class Switch {
  readonly element: HTMLButtonElement;
  onChange: (isOn: boolean) => void = () => {};

  constructor(label: string) {
    const track = h("span", { class: "track", "aria-hidden": "true" });
    this.element = h(
      "button",
      { type: "button", class: "switch", role: "switch", "aria-checked": "false" },
      track,
      label,
    );
    this.element.addEventListener("click", () => {
      this.show(!this.isOn);
      this.onChange(this.isOn);
    });
  }

  get isOn(): boolean {
    return this.element.getAttribute("aria-checked") === "true";
  }

  show(isOn: boolean): void {
    setAttribute(this.element, "aria-checked", String(isOn));
  }
}
