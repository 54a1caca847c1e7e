import { asArray, asMembers, asText, type Members } from "../host/members.js";
import { formatNumber, formatValue } from "./format.js";

/** What an event is about. */
export const kSubjects = [
  "pose",
  "feet",
  "touch",
  "sonar",
  "battery",
  "temperatures",
  "stiffness",
  "other",
  "log",
] as const;
export type Subject = (typeof kSubjects)[number];

export const kSubjectWords: Readonly<Record<Subject, string>> = {
  pose: "Posture",
  feet: "Feet",
  touch: "Touch",
  sonar: "Sonar",
  battery: "Battery",
  temperatures: "Heat",
  stiffness: "Stiffness",
  other: "Other",
  log: "Log",
};

export const enum Importance {
  /** Repeats, bookkeeping. */
  Background = 0,
  Ordinary = 1,
  Notable = 2,
  Alarming = 3,
}

/** An event in plain words. */
export interface Said {
  text: string;
  subject: Subject;
  importance: Importance;
}

interface EventWords {
  sentence: string;
  values: Members;
  importances: Members;
  unit: string;
  digits: number;
  importance: number;
  subject: Subject;
}

/** What the host calls its events, for people. */
export class Words {
  private readonly byName = new Map<string, EventWords>();

  /** Takes in what the host tells. */
  load(answer: unknown): void {
    for (const event of asArray(asMembers(answer)["events"]).map(asMembers)) {
      this.byName.set(asText(event["name"]), {
        sentence: asText(event["sentence"]),
        values: asMembers(event["values"]),
        importances: asMembers(event["importances"]),
        unit: asText(event["unit"]),
        digits: Number(event["digits"] ?? 0),
        importance: Number(event["importance"] ?? 1),
        subject: subjectOf(asText(event["subject"])),
      });
    }
  }

  of(name: string, value: unknown): Said {
    const words = this.byName.get(name);
    if (words === undefined) {
      const text = `${name} ${formatValue(value)}`.trim();
      return { text, subject: "other", importance: Importance.Ordinary };
    }
    const key = keyOf(value);
    const whole = words.values[key];
    const importance = words.importances[key];
    return {
      text:
        typeof whole === "string"
          ? whole
          : words.sentence.replace("{value}", valueWords(value, words)),
      subject: words.subject,
      importance: typeof importance === "number" ? importance : words.importance,
    };
  }
}

function subjectOf(text: string): Subject {
  return kSubjects.find((subject) => subject === text) ?? "other";
}

function keyOf(value: unknown): string {
  return typeof value === "object" ? formatValue(value) : String(value);
}

function valueWords(value: unknown, { unit, digits }: EventWords): string {
  const text = typeof value === "number" ? formatNumber(value, digits) : shortened(value);
  return unit === "" ? text : `${text} ${unit}`;
}

/** Of a device's key its name is enough. */
function shortened(value: unknown): string {
  return formatValue(value).replace(/^Device\/(?:Sub)?DeviceList\/(\w+)\/.*/, "$1");
}
