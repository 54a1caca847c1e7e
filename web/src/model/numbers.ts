/** A bound on what one message may add to the plots. */
const kMostNumbers = 400;

/**
 * Every number in a message under its path, "left.total_weight_kg". Lists of named things, as
 * joints are, go by their names. Flags count as 0 and 1. Time stamps are left out.
 */
export function numbersOf(payload: unknown): Map<string, number> {
  const numbers = new Map<string, number>();
  collect(payload, "", numbers);
  return numbers;
}

function collect(value: unknown, path: string, numbers: Map<string, number>): void {
  if (numbers.size >= kMostNumbers) {
    return;
  }
  if (typeof value === "number") {
    numbers.set(path, value);
  } else if (typeof value === "boolean") {
    numbers.set(path, value ? 1 : 0);
  } else if (Array.isArray(value)) {
    value.forEach((item: unknown, index) => {
      const name = (item as { name?: unknown } | null)?.name;
      collect(item, join(path, typeof name === "string" ? name : String(index)), numbers);
    });
  } else if (typeof value === "object" && value !== null) {
    for (const [name, member] of Object.entries(value)) {
      if (name !== "timestamp") {
        collect(member, join(path, name), numbers);
      }
    }
  }
}

function join(path: string, name: string): string {
  return path === "" ? name : `${path}.${name}`;
}
