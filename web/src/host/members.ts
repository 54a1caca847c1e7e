/** The members of a JSON object. */
export type Members = Readonly<Record<string, unknown>>;

/** Nothing where the value is no object. */
export function asMembers(value: unknown): Members {
  return typeof value === "object" && value !== null ? (value as Members) : {};
}

/** Empty where the value is no list. */
export function asArray(value: unknown): readonly unknown[] {
  return Array.isArray(value) ? value : [];
}

/** Empty where the value is no text. */
export function asText(value: unknown): string {
  return typeof value === "string" ? value : "";
}
