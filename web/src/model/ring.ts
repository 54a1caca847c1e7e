/** The newest items of a stream, oldest first; older ones make room. */
export class Ring<T> {
  private readonly items: T[] = [];
  private first = 0;

  /** How many items were ever pushed. */
  total = 0;

  constructor(readonly capacity: number) {}

  get length(): number {
    return this.items.length;
  }

  push(item: T): void {
    this.total += 1;
    if (this.items.length < this.capacity) {
      this.items.push(item);
    } else {
      this.items[this.first] = item;
      this.first = (this.first + 1) % this.capacity;
    }
  }

  /** The item at `index`, 0 being the oldest one that is left. */
  at(index: number): T | undefined {
    return this.items[(this.first + index) % this.items.length];
  }

  clear(): void {
    this.items.length = 0;
    this.first = 0;
  }

  *newestFirst(): IterableIterator<T> {
    for (let i = this.items.length - 1; i >= 0; --i) {
      yield this.items[(this.first + i) % this.items.length] as T;
    }
  }
}
