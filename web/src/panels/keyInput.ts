import { fetchMemory, findKeys } from "../host/rest.js";
import { h } from "../ui/dom.js";

/** ms without typing after which keys are looked for. */
const kPause = 200;

/** A field for the name of a memory key, with suggestions. */
export class KeyInput {
  readonly element: HTMLElement;
  /** A key that exists was chosen. */
  onKey: (key: string) => void = () => {};

  private readonly list = h("datalist", { id: "memory-keys" });
  private readonly input = h("input", {
    type: "text",
    list: "memory-keys",
    placeholder: "or any memory key",
    "aria-label": "Memory key to plot",
    autocomplete: "off",
    spellcheck: "false",
  });
  private timer: ReturnType<typeof setTimeout> | undefined;

  constructor() {
    this.element = h("span", { class: "key-input" }, this.input, this.list);
    this.input.addEventListener("input", () => {
      this.input.removeAttribute("aria-invalid");
      clearTimeout(this.timer);
      this.timer = setTimeout(() => {
        void this.suggest();
      }, kPause);
    });
    this.input.addEventListener("change", () => {
      void this.choose();
    });
  }

  private async suggest(): Promise<void> {
    const keys = await findKeys(this.input.value).catch((): string[] => []);
    this.list.replaceChildren(...keys.map((key) => h("option", { value: key })));
  }

  private async choose(): Promise<void> {
    const key = this.input.value.trim();
    if (key === "") {
      return;
    }
    const keys = await fetchMemory(key).catch(() => undefined);
    if (keys?.has(key) === true) {
      this.input.value = "";
      this.onKey(key);
    } else {
      this.input.setAttribute("aria-invalid", "true");
    }
  }
}
