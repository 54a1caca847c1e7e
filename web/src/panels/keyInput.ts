import { fetchMemory, findKeys } from "../host/rest.js";
import { h, setText } from "../ui/dom.js";

/** ms without typing after which keys are looked for. */
const kPause = 200;

/** A field for the name of a memory key, with suggestions. */
export class KeyInput {
  readonly element: HTMLElement;
  /** A key that exists was chosen. */
  onKey: (key: string) => void = () => {};
  readonly problem = h("p", { class: "problem", role: "status", id: "key-problem" });

  private readonly list = h("datalist", { id: "memory-keys" });
  private readonly input = h("input", {
    type: "text",
    list: "memory-keys",
    placeholder: "or any memory key",
    "aria-label": "Memory key to plot",
    autocomplete: "off",
    spellcheck: "false",
    "aria-describedby": "key-problem",
  });
  private timer: ReturnType<typeof setTimeout> | undefined;

  constructor() {
    this.element = h("span", { class: "key-input" }, this.input, this.list);
    this.input.addEventListener("input", () => {
      this.input.removeAttribute("aria-invalid");
      this.tell("");
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
    const found = keys?.get(key);
    if (found !== undefined && typeof found.value !== "string") {
      this.input.value = "";
      this.onKey(key);
      return;
    }
    this.input.setAttribute("aria-invalid", "true");
    this.tell(
      keys === undefined
        ? "The host cannot be asked for its keys."
        : found === undefined
          ? `There is no memory key ${key}.`
          : `${key} is a text: only numbers can be plotted.`,
    );
  }

  /** Why something cannot be plotted; empty when nothing is wrong. */
  tell(problem: string): void {
    setText(this.problem, problem);
  }
}
