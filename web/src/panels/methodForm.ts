import { jsonOfInput } from "../host/json.js";
import { call, type Method, type Parameter } from "../host/rest.js";
import { formatValue } from "../model/format.js";
import { h, setText } from "../ui/dom.js";

/** Stands for the reader where a method asks who calls. */
const kCallerName = "page";

/** A bound method: what it does, what it takes, and a button that calls it. */
export class MethodForm {
  readonly element: HTMLDetailsElement;

  private readonly fields: Field[];
  private readonly submit = h("button", { type: "submit", class: "primary" }, "Call");
  private readonly outcome = h("output", { class: "outcome", "aria-live": "polite" });

  constructor(
    private readonly module: string,
    private readonly method: Method,
  ) {
    const prefix = `${module}-${method.name}-${method.parameters.length}`;
    this.fields = method.parameters.map((parameter) => new Field(parameter, prefix));
    const form = h(
      "form",
      { class: "call", novalidate: true },
      ...this.fields.map((field) => field.element),
      this.submit,
      this.outcome,
    );
    form.addEventListener("submit", (event) => {
      event.preventDefault();
      void this.run();
    });
    this.element = h(
      "details",
      { class: "method", "data-method": `${module}.${method.name}` },
      h("summary", {}, ...signature(method)),
      method.description === "" ? "" : h("p", { class: "description" }, method.description),
      form,
    );
  }

  private async run(): Promise<void> {
    const parameters = this.fields.map((field) => field.read());
    const isComplete = parameters.every((parameter) => parameter !== undefined);
    if (!isComplete) {
      this.fields.find((field) => field.read() === undefined)?.focus();
      return;
    }
    this.submit.disabled = true;
    this.tell("pending", "Calling…");
    const start = performance.now();
    try {
      const result = await call(`${this.module}.${this.method.name}`, parameters);
      const text = this.method.result.type === "" && result == null ? "done" : resultText(result);
      this.tell("result", text, performance.now() - start);
    } catch (error) {
      this.tell(
        "error",
        error instanceof Error ? error.message : String(error),
        performance.now() - start,
      );
    } finally {
      this.submit.disabled = false;
    }
  }

  private tell(kind: "pending" | "result" | "error", text: string, milliseconds?: number): void {
    this.outcome.dataset["kind"] = kind;
    const label = { pending: "", result: "Result", error: "Error" }[kind];
    const time = milliseconds === undefined ? "" : `${Math.max(1, Math.round(milliseconds))} ms`;
    this.outcome.replaceChildren(
      h("span", { class: "tag" }, label),
      h("code", {}, text),
      h("span", { class: "note" }, time),
    );
  }
}

/** The input of one parameter. */
class Field {
  readonly element: HTMLElement;

  private readonly input: HTMLInputElement | HTMLSelectElement;
  private readonly problem: HTMLElement;

  constructor(
    private readonly parameter: Parameter,
    prefix: string,
  ) {
    const id = `${prefix}-${parameter.name}`;
    this.problem = h("span", { class: "problem", id: `${id}-problem` });
    this.input = inputFor(parameter);
    this.input.id = id;
    this.input.setAttribute("aria-describedby", `${id}-problem`);
    this.input.addEventListener("input", () => {
      this.clear();
    });
    this.element = h(
      "div",
      { class: "field" },
      h("label", { for: id }, parameter.name, " ", h("span", { class: "type" }, parameter.type)),
      this.input,
      this.problem,
      parameter.description === "" ? "" : h("span", { class: "note" }, parameter.description),
    );
  }

  /** The value as JSON text; undefined, and a word about it, when it is none. */
  read(): string | undefined {
    try {
      const json = jsonOfInput(this.input.value, this.parameter.type);
      this.clear();
      return json;
    } catch (error) {
      this.input.setAttribute("aria-invalid", "true");
      setText(this.problem, error instanceof Error ? error.message : String(error));
      return undefined;
    }
  }

  focus(): void {
    this.input.focus();
  }

  private clear(): void {
    this.input.removeAttribute("aria-invalid");
    setText(this.problem, "");
  }
}

function inputFor({ name, type }: Parameter): HTMLInputElement | HTMLSelectElement {
  switch (type) {
    case "bool":
      return h("select", {}, h("option", {}, "true"), h("option", {}, "false"));
    case "int":
      return h("input", { type: "text", inputmode: "numeric", autocomplete: "off", value: "0" });
    case "float":
      return h("input", { type: "text", inputmode: "decimal", autocomplete: "off", value: "0.0" });
    case "string":
      return h("input", {
        type: "text",
        autocomplete: "off",
        spellcheck: "false",
        value: /name|module/i.test(name) ? kCallerName : "",
      });
    default:
      return h("input", {
        type: "text",
        autocomplete: "off",
        spellcheck: "false",
        placeholder: "JSON",
        value: type.startsWith("vector") ? "[]" : "",
      });
  }
}

function signature({ name, parameters, result }: Method): (Node | string)[] {
  const inputs = parameters.map(({ name: parameter, type }) => `${parameter}: ${type}`).join(", ");
  const output = result.type === "" ? "" : ` → ${result.type}`;
  return [
    h("code", { class: "name" }, name),
    h("code", { class: "signature" }, `(${inputs})${output}`),
  ];
}

function resultText(result: unknown): string {
  return typeof result === "object" && result !== null
    ? JSON.stringify(result, null, 1)
    : formatValue(result);
}
