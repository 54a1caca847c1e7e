/** How often something happens, from a count that grows. */
export class Rate {
  private readonly marks: { count: number; time: number }[] = [];

  /** @param span seconds over which the rate is taken */
  constructor(private readonly span: number) {}

  /** Called with the count at a time in seconds. A count that goes back starts afresh. */
  add(count: number, time: number): void {
    const last = this.marks.at(-1);
    if (last !== undefined && (count < last.count || time < last.time)) {
      this.marks.length = 0;
    }
    this.marks.push({ count, time });
    while ((this.marks[1]?.time ?? Infinity) <= time - this.span) {
      this.marks.shift();
    }
  }

  clear(): void {
    this.marks.length = 0;
  }

  /** Per second; undefined while too little is known. */
  get perSecond(): number | undefined {
    const first = this.marks[0];
    const last = this.marks.at(-1);
    return first !== undefined && last !== undefined && last.time > first.time
      ? (last.count - first.count) / (last.time - first.time)
      : undefined;
  }
}
