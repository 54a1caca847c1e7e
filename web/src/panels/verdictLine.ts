import { formatAge } from "../model/format.js";
import { findingWords, type Finding } from "../model/verdict.js";
import { h, setText, svg } from "../ui/dom.js";

const kError = 2;
const kStandUp = /\bstand it up\b/i;

/** What the line says. */
export interface Verdict {
  findings: readonly Finding[];
  /** What the robot does, said while nothing is wrong. */
  pose: string;
  /** Seconds of the run. */
  now: number;
  /** The moment of the past that the reader looks at, and how many seconds it is back. */
  lookingAt?: string;
  back?: number;
}

/** The first thing to read: whether all is well, else what is not, worst first, with what to do. */
export class VerdictLine {
  /** The reader wants the simulated robot put on its feet. */
  onStandUp: () => void = () => {};
  /** Whether there is a world in which that can be done. */
  canStandUp = false;

  private readonly sign = h("span", { class: "sign", "aria-hidden": "true" });
  private readonly text = h("strong");
  private readonly advice = h("span", { class: "advice" });
  private readonly action = h("button", { type: "button", class: "advice-button", hidden: true });
  private readonly others = h("ul", { class: "others" });
  private shown = "";

  constructor(private readonly element: HTMLElement) {
    element.append(
      h("p", { class: "worst" }, this.sign, this.text, this.advice, this.action),
      this.others,
    );
    this.action.addEventListener("click", () => {
      this.onStandUp();
    });
  }

  /** One line for the tab's title. */
  static title({ findings, pose }: Verdict): string {
    const [worst] = findings;
    return worst === undefined ? pose || "All is well" : `⚠ ${worst.text}`;
  }

  show(verdict: Verdict): void {
    const { findings, pose, now, lookingAt, back = 0 } = verdict;
    if (lookingAt !== undefined) {
      this.showSign("past");
      setText(this.text, `Looking back at ${lookingAt}`);
      setText(this.advice, `${formatAge(back)} · ${pose}`);
      this.action.hidden = true;
      this.showOthers(findings, now, "Now: ");
      return;
    }
    const [worst, ...rest] = findings;
    const level = worst === undefined ? "well" : worst.level >= kError ? "error" : "warning";
    this.showSign(level);
    if (worst === undefined) {
      setText(this.text, "All is well");
      setText(this.advice, pose);
      this.action.hidden = true;
    } else {
      setText(this.text, findingWords(worst, now));
      const isAction = this.canStandUp && kStandUp.test(worst.advice);
      setText(this.advice, isAction ? "" : worst.advice);
      setText(this.action, worst.advice);
      this.action.hidden = !isAction;
    }
    this.showOthers(rest, now);
  }

  private showSign(level: Level): void {
    if (level !== this.shown) {
      this.shown = level;
      this.element.dataset["level"] = level;
      this.sign.replaceChildren(signOf(level));
    }
  }

  private showOthers(findings: readonly Finding[], now: number, prefix = ""): void {
    while (this.others.childElementCount > findings.length) {
      this.others.lastElementChild?.remove();
    }
    findings.forEach((finding, i) => {
      const item = this.others.children[i] ?? this.others.appendChild(h("li"));
      const advice = finding.advice === "" ? "" : ` · ${finding.advice}`;
      setText(item, `${prefix}${findingWords(finding, now)}${advice}`);
    });
    this.others.hidden = findings.length === 0;
  }
}

type Level = "well" | "warning" | "error" | "past";

/** A check mark, a triangle, an octagon, a clock: different shapes, for those who see no colours. */
function signOf(level: Level): SVGSVGElement {
  const picture = svg("svg", { viewBox: "0 0 24 24", width: 22, height: 22 });
  const mark = svg("path", { d: "M12 7v6m0 3.4v.2", class: "sign-mark" });
  if (level === "well") {
    picture.append(
      svg("circle", { cx: 12, cy: 12, r: 10, class: "sign-shape" }),
      svg("path", { d: "M7.5 12.5l3 3 6-6.5", class: "sign-mark" }),
    );
  } else if (level === "past") {
    picture.append(
      svg("circle", { cx: 12, cy: 12, r: 10, class: "sign-shape" }),
      svg("path", { d: "M12 6.5V12l4 2.5", class: "sign-mark" }),
    );
  } else if (level === "warning") {
    picture.append(svg("path", { d: "M12 2.5L23 21H1z", class: "sign-shape" }), mark);
  } else {
    picture.append(
      svg("path", { d: "M7.5 1.5h9l6 6v9l-6 6h-9l-6-6v-9z", class: "sign-shape" }),
      mark,
    );
  }
  return picture;
}
