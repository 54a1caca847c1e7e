/** The colour of a custom property of the style sheet, as it is at present. */
export function themeColor(name: string): string {
  return getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();
}
