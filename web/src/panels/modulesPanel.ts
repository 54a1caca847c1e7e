import type { Module } from "../host/rest.js";
import { h } from "../ui/dom.js";
import { MethodForm } from "./methodForm.js";

/** Modules of the platform itself: most readers look for the others. */
const kServices = ["GKMemory", "DCM", "GKResourceManager"];

/** The modules of the host with the methods that can be called. */
export class ModulesPanel {
  constructor(private readonly parent: HTMLElement) {
    parent.append(h("p", { class: "empty" }, "Waiting for the host."));
  }

  /** Which modules are open stays as it was. */
  show(modules: readonly Module[]): void {
    const open = new Set(
      [...this.parent.querySelectorAll<HTMLElement>("details.module[open]")].map(
        (element) => element.dataset["module"],
      ),
    );
    const services = modules.filter(({ name }) => kServices.includes(name));
    const others = modules.filter(({ name }) => !kServices.includes(name));
    this.parent.replaceChildren(
      ...[...others, ...services].map((module) => moduleElement(module, open.has(module.name))),
    );
  }

  tellProblem(text: string): void {
    this.parent.replaceChildren(h("p", { class: "empty" }, text));
  }
}

function moduleElement(module: Module, isOpen: boolean): HTMLElement {
  const count = module.methods.length === 1 ? "1 method" : `${module.methods.length} methods`;
  const parts: HTMLElement[] = [];
  if (module.description !== "") {
    parts.push(h("p", { class: "description" }, module.description.trim()));
  }
  const methods = module.methods.map((method) => new MethodForm(module.name, method).element);
  parts.push(h("div", { class: "methods" }, ...methods));
  if (module.events.length > 0) {
    parts.push(h("p", { class: "note raised" }, `Raises ${module.events.join(", ")}`));
  }
  return h(
    "details",
    { class: "module", "data-module": module.name, open: isOpen },
    h(
      "summary",
      {},
      h("span", { class: "name" }, module.name),
      h("span", { class: "note" }, count),
    ),
    ...parts,
  );
}
