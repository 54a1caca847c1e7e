// JSON as the host understands it: a number with a point is a float, one without is an int.

export type ValueType = "bool" | "int" | "float" | "string" | "value";

/** The JSON text of what someone typed for a parameter of this type. Raises an Error that says what is wrong. */
export function jsonOfInput(text: string, type: string): string {
  switch (type) {
    case "string":
      return JSON.stringify(text);
    case "bool":
      if (text !== "true" && text !== "false") {
        throw new Error("needs true or false");
      }
      return text;
    case "int":
      if (!/^[+-]?\d+$/.test(text.trim())) {
        throw new Error("needs a whole number");
      }
      return String(BigInt(text.trim().replace("+", "")));
    case "float":
      return jsonOfFloat(floatOfInput(text));
    default:
      return checkedJson(text);
  }
}

/** With a point or an exponent in any case. */
export function jsonOfFloat(value: number): string {
  if (!Number.isFinite(value)) {
    return `{"float":"${Number.isNaN(value) ? "nan" : value > 0 ? "inf" : "-inf"}"}`;
  }
  const text = Object.is(value, -0) ? "-0" : String(value);
  return /[.e]/.test(text) ? text : `${text}.0`;
}

function floatOfInput(text: string): number {
  const trimmed = text.trim().toLowerCase();
  const special: Record<string, number> = { nan: NaN, inf: Infinity, "-inf": -Infinity };
  const value = special[trimmed] ?? (trimmed === "" ? NaN : Number(trimmed));
  if (Number.isNaN(value) && trimmed !== "nan") {
    throw new Error("needs a number");
  }
  return value;
}

function checkedJson(text: string): string {
  try {
    JSON.parse(text);
    return text;
  } catch {
    throw new Error('needs JSON, as 1.5, "text", true or [1, 2]');
  }
}
