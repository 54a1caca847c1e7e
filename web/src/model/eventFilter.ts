/**
 * Whether a text fits what was typed: every word must occur, in any case; a word that begins with
 * "-" must not.
 */
export function fits(text: string, filter: string): boolean {
  const haystack = text.toLowerCase();
  return filter
    .toLowerCase()
    .split(/\s+/)
    .every((word) =>
      word.startsWith("-") && word.length > 1
        ? !haystack.includes(word.slice(1))
        : haystack.includes(word),
    );
}
