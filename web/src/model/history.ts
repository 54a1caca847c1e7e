import type { Past, Span } from "../host/past.js";
import type { Rows, SeriesName } from "./plotStore.js";

/** s that are asked for at once. */
const kPiece = 30;
/** Pieces that are kept. */
const kMostPieces = 24;
/** ms before a piece that was not complete, or could not be had, is asked for again. */
const kPatience = 1_000;

interface Piece {
  past: Past | undefined;
  askedAt: number;
  isComing: boolean;
}

/** A moment of the past: a message of each topic as it would have come. */
export type Moment = Readonly<Record<string, Readonly<Record<string, number>>>>;

/** What the host remembers, fetched in pieces as they are looked at. Times in seconds of the run. */
export class History {
  /** Something has come. */
  onNews: () => void = () => {};

  private readonly pieces = new Map<number, Piece>();

  /** @param fetchPast may reject, where the host remembers nothing; @param now ms */
  constructor(
    private readonly fetchPast: (span: Span) => Promise<Past>,
    private readonly now: () => number,
  ) {}

  /** Asks for what of a span is not there yet. */
  need({ from, to }: Span): void {
    for (let i = Math.max(0, Math.floor(from / kPiece)); i * kPiece < to; ++i) {
      const piece = this.pieces.get(i);
      const isThere =
        (piece?.past?.times.at(-1) ?? -Infinity) >= Math.min(to, (i + 1) * kPiece) - 0.3;
      const isAsked =
        piece !== undefined && (piece.isComing || this.now() - piece.askedAt < kPatience);
      if (!isThere && !isAsked) {
        void this.fetchPiece(i);
      }
    }
  }

  at(time: number): Moment | undefined {
    const past = this.pieces.get(Math.floor(time / kPiece))?.past;
    if (past === undefined || past.times.length === 0) {
      return undefined;
    }
    const row = Math.max(0, lastAtOrBefore(past.times, time));
    return momentOf(past, row);
  }

  /** What is there of a series between two times. */
  rows({ topic, field }: SeriesName, from: number, to: number): Rows {
    const times: number[] = [];
    const values: number[] = [];
    for (let i = Math.floor(from / kPiece); i * kPiece < to; ++i) {
      const past = this.pieces.get(i)?.past;
      const column = past?.topics[topic]?.[field];
      past?.times.forEach((time, row) => {
        if (time >= from && time <= to) {
          times.push(time);
          values.push(column?.[row] ?? NaN);
        }
      });
    }
    return { times: Float64Array.from(times), values: Float64Array.from(values) };
  }

  clear(): void {
    this.pieces.clear();
  }

  private async fetchPiece(index: number): Promise<void> {
    const piece = this.pieces.get(index) ?? { past: undefined, askedAt: 0, isComing: false };
    // The oldest that was asked for makes room.
    this.pieces.delete(index);
    this.pieces.set(index, piece);
    piece.isComing = true;
    piece.askedAt = this.now();
    const from = index * kPiece;
    const past = await this.fetchPast({ from, to: from + kPiece - 0.001 }).catch(() => undefined);
    piece.isComing = false;
    if (past !== undefined) {
      piece.past = past;
      this.onNews();
    }
    for (const [oldest] of this.pieces) {
      if (this.pieces.size <= kMostPieces) {
        break;
      }
      this.pieces.delete(oldest);
    }
  }
}

function momentOf(past: Past, row: number): Moment {
  const moment: Record<string, Record<string, number>> = {};
  for (const [topic, fields] of Object.entries(past.topics)) {
    const message: Record<string, number> = {};
    for (const [field, column] of Object.entries(fields)) {
      const value = column[row];
      if (typeof value === "number") {
        message[field] = value;
      }
    }
    moment[topic] = message;
  }
  return moment;
}

/** -1 when all are later. */
function lastAtOrBefore(times: readonly number[], time: number): number {
  let low = 0;
  let high = times.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if ((times[middle] as number) <= time) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return low - 1;
}
