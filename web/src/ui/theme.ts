import { recall, remember } from "./memory.js";

export type Theme = "light" | "dark";

const kStorageKey = "theme";

/**
 * Light or dark: as the system wants it until the reader chooses otherwise. The choice is kept in
 * the browser.
 */
export class ThemeSwitch {
  onChange: (theme: Theme) => void = () => {};

  private readonly systemIsDark = matchMedia("(prefers-color-scheme: dark)");
  private chosen: Theme | undefined = chosenBefore();

  constructor(private readonly button: HTMLButtonElement) {
    button.addEventListener("click", () => {
      this.chosen = this.theme === "dark" ? "light" : "dark";
      remember(kStorageKey, this.chosen);
      this.apply();
    });
    this.systemIsDark.addEventListener("change", () => {
      this.apply();
    });
    this.apply();
  }

  get theme(): Theme {
    return this.chosen ?? (this.systemIsDark.matches ? "dark" : "light");
  }

  private apply(): void {
    document.documentElement.dataset["theme"] = this.theme;
    this.button.setAttribute(
      "aria-label",
      this.theme === "dark" ? "Switch to light" : "Switch to dark",
    );
    this.onChange(this.theme);
  }
}

function chosenBefore(): Theme | undefined {
  const stored = recall(kStorageKey);
  return stored === "light" || stored === "dark" ? stored : undefined;
}
