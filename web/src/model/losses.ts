import { StatusLevel, type Status } from "../host/protocol.js";

/** Messages that did not reach the page. */
export interface Loss {
  /** Of these only newer ones came: nothing is missing but detail. */
  samples: number;
  /** Events and log lines that nobody will see here. */
  events: number;
}

/** What the host says it could not deliver to this page, or could not do. */
export class Losses {
  private readonly byId = new Map<string, string>();
  /** What statuses that are gone had counted. */
  private past: Loss = { samples: 0, events: 0 };

  add({ level, message, id }: Status): void {
    if (level > StatusLevel.Info) {
      this.byId.set(id ?? message, message);
    }
  }

  remove(ids: readonly string[]): void {
    for (const id of ids) {
      this.past = sum(this.past, lossIn(this.byId.get(id) ?? ""));
      this.byId.delete(id);
    }
  }

  /** Since the page was opened, as the host counts. */
  get loss(): Loss {
    return sum(this.past, lossIn(this.message));
  }

  /** All that is wrong at present, in the host's words; empty when nothing is. */
  get message(): string {
    return [...this.byId.values()].join("\n");
  }
}

/** The host writes "12 of /imu, 3 of /events". */
function lossIn(message: string): Loss {
  const loss = { samples: 0, events: 0 };
  for (const [, count, topic = ""] of message.matchAll(/(\d+) of (\/\S*\w)/g)) {
    const isEvent = topic === "/events" || topic === "/log" || topic.startsWith("/event/");
    loss[isEvent ? "events" : "samples"] += Number(count);
  }
  return loss;
}

function sum(a: Loss, b: Loss): Loss {
  return { samples: a.samples + b.samples, events: a.events + b.events };
}
