/**
 * The numbers of one topic over time: one column for each field, one row for each message, the
 * oldest rows make room. A field that a message lacks is NaN in its row.
 */
export class Samples {
  private readonly columns = new Map<string, Float64Array>();
  private readonly times: Float64Array;
  private next = 0;
  private size = 0;

  constructor(readonly capacity: number) {
    this.times = new Float64Array(capacity);
  }

  get length(): number {
    return this.size;
  }

  get fields(): string[] {
    return [...this.columns.keys()];
  }

  /** Rows come in the order of their times; one that goes back in time starts afresh. */
  push(time: number, numbers: ReadonlyMap<string, number>): void {
    if (this.size > 0 && time < this.newestTime) {
      this.clear();
    }
    this.times[this.next] = time;
    for (const [field, column] of this.columns) {
      column[this.next] = numbers.get(field) ?? NaN;
    }
    for (const [field, value] of numbers) {
      if (!this.columns.has(field)) {
        this.addColumn(field)[this.next] = value;
      }
    }
    this.next = (this.next + 1) % this.capacity;
    this.size = Math.min(this.size + 1, this.capacity);
  }

  get newestTime(): number {
    return this.size === 0 ? NaN : (this.times[this.index(this.size - 1)] as number);
  }

  /** Where the newest stretch without a gap of more than `gap` seconds begins. */
  beginOf(gap: number): number {
    let row = this.size - 1;
    const time = (i: number): number => this.times[this.index(i)] as number;
    while (row > 0 && time(row) - time(row - 1) <= gap) {
      row -= 1;
    }
    return row < 0 ? Infinity : time(row);
  }

  latest(field: string): number {
    return this.columns.get(field)?.[this.index(this.size - 1)] ?? NaN;
  }

  /** Times and values of a field, oldest first, from the first row at or after `from` on. */
  since(field: string, from: number): { times: Float64Array; values: Float64Array } {
    const start = this.firstAtOrAfter(from);
    const length = this.size - start;
    const times = new Float64Array(length);
    const values = new Float64Array(length).fill(NaN);
    const column = this.columns.get(field);
    for (let i = 0; i < length; ++i) {
      const row = this.index(start + i);
      times[i] = this.times[row] as number;
      if (column !== undefined) {
        values[i] = column[row] as number;
      }
    }
    return { times, values };
  }

  clear(): void {
    this.size = 0;
    this.next = 0;
    this.columns.clear();
  }

  private addColumn(field: string): Float64Array {
    const column = new Float64Array(this.capacity).fill(NaN);
    this.columns.set(field, column);
    return column;
  }

  /** Where row `row` lies, 0 being the oldest. */
  private index(row: number): number {
    return (this.next - this.size + row + this.capacity) % this.capacity;
  }

  private firstAtOrAfter(time: number): number {
    let low = 0;
    let high = this.size;
    while (low < high) {
      const middle = (low + high) >> 1;
      if ((this.times[this.index(middle)] as number) < time) {
        low = middle + 1;
      } else {
        high = middle;
      }
    }
    return low;
  }
}
