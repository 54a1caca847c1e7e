// What the page keeps in the browser: the reader's choices. A browser may refuse; the page works
// without.

const kPrefix = "gksensors.";

export function remember(name: string, value: unknown): void {
  try {
    localStorage.setItem(kPrefix + name, JSON.stringify(value));
  } catch {
    // Then the choice lasts until the page is left.
  }
}

/** undefined when nothing was kept. */
export function recall(name: string): unknown {
  try {
    const text = localStorage.getItem(kPrefix + name);
    return text === null ? undefined : (JSON.parse(text) as unknown);
  } catch {
    return undefined;
  }
}

const kSession = `${kPrefix}session`;

/** The run that this tab has shown last; empty when it has shown none. */
export function recallSession(): string {
  try {
    return sessionStorage.getItem(kSession) ?? "";
  } catch {
    return "";
  }
}

export function rememberSession(session: string): void {
  try {
    sessionStorage.setItem(kSession, session);
  } catch {
    // Then a restart while the page is loaded anew goes unmarked.
  }
}
