type Attributes = Readonly<Record<string, string | number | boolean>>;
type Child = Node | string;

/** An HTML element. An attribute that is false is left out, one that is true has no value. */
export function h<K extends keyof HTMLElementTagNameMap>(
  tag: K,
  attributes: Attributes = {},
  ...children: Child[]
): HTMLElementTagNameMap[K] {
  const element = document.createElement(tag);
  decorate(element, attributes, children);
  return element;
}

const kSvg = "http://www.w3.org/2000/svg";

export function svg<K extends keyof SVGElementTagNameMap>(
  tag: K,
  attributes: Attributes = {},
  ...children: Child[]
): SVGElementTagNameMap[K] {
  const element = document.createElementNS(kSvg, tag);
  decorate(element, attributes, children);
  return element;
}

function decorate(element: Element, attributes: Attributes, children: Child[]): void {
  for (const [name, value] of Object.entries(attributes)) {
    if (value !== false) {
      element.setAttribute(name, value === true ? "" : String(value));
    }
  }
  element.append(...children);
}

/** Sets the text where it differs: the same text again would cost a layout. */
export function setText(element: Element, text: string): void {
  if (element.textContent !== text) {
    element.textContent = text;
  }
}

export function setAttribute(element: Element, name: string, value: string): void {
  if (element.getAttribute(name) !== value) {
    element.setAttribute(name, value);
  }
}

/** The element of the page with this id, which must be there. */
export function byId(id: string): HTMLElement {
  const element = document.getElementById(id);
  if (element === null) {
    throw new Error(`the page has no element "${id}"`);
  }
  return element;
}
