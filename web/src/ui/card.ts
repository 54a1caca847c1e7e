import { h } from "./dom.js";

/** A box of the overview with a title, a short answer beside it and room for the details. */
export interface Card {
  element: HTMLElement;
  /** The answer in one or two words. */
  answer: HTMLElement;
  body: HTMLElement;
}

export function makeCard(id: string, title: string): Card {
  const answer = h("p", { class: "answer" });
  const body = h("div", { class: "card-body" });
  const heading = h("h2", { id: `${id}-title` }, title);
  const element = h(
    "section",
    { class: "panel card", id, "aria-labelledby": `${id}-title` },
    h("header", {}, heading, answer),
    body,
  );
  return { element, answer, body };
}
