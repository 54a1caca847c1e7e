// What a host remembers, for the mock: samples ten times a second and all events.

const kStep = 0.1;

export class MockPast {
  times = [];
  messages = [];
  events = [];

  /** @param samples the messages of all topics at this time, in seconds of the run */
  sample(time, samples) {
    if (time - (this.times.at(-1) ?? -1) >= kStep - 1e-6) {
      this.times.push(time);
      this.messages.push(samples);
    }
  }

  /** In the form of GET /api/v1/past. */
  answer(session, { from = 0, to = Infinity, step = kStep }) {
    const rows =
      step > 0
        ? this.times.map((_, i) => i).filter((i) => this.times[i] >= from && this.times[i] <= to)
        : [];
    const topics = {};
    rows.forEach((row, i) => {
      for (const [topic, message] of Object.entries(this.messages[row])) {
        for (const [field, value] of numbersOf(topic, message)) {
          ((topics[topic] ??= {})[field] ??= rows.map(() => null))[i] = value;
        }
      }
    });
    const [begin, end] = [this.times[0] ?? 0, this.times.at(-1) ?? 0];
    return {
      session,
      begin,
      end,
      from: Math.max(from, begin),
      to: Math.min(to, end),
      next: null,
      times: rows.map((row) => this.times[row]),
      topics,
      events: this.events.filter(({ t_s }) => t_s >= from && t_s <= to),
    };
  }
}

function numbersOf(topic, message) {
  return topic === "/joint_states"
    ? message.joints.map(({ name, position }) => [name, position])
    : Object.entries(message).filter(([, value]) => typeof value === "number");
}
