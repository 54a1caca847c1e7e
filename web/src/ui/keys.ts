/** Whether a key belongs to what has the focus: somebody types, or moves a control. */
export function isTaken(event: KeyboardEvent): boolean {
  const target = event.target as Element;
  if (document.querySelector("dialog[open]") !== null && event.key !== "?") {
    return true;
  }
  if (target.matches("input:not([type=checkbox]), select, textarea")) {
    return true;
  }
  return (
    (event.key === " " || event.key === "Enter") && target.matches("button, summary, a, input")
  );
}
