// The page's address says where one looks: "?t=12.3&speed=0.5&loop=3-5".

export interface Place {
  /** s of the run; undefined where the address does not say. */
  time: number | undefined;
  /** 0 for as fast as it goes. */
  speed: number | undefined;
  loop: readonly [from: number, to: number] | undefined;
}

export function readAddress(): Place {
  const wanted = new URLSearchParams(location.search);
  const number = (name: string): number | undefined => {
    const value = Number.parseFloat(wanted.get(name) ?? "");
    return value >= 0 ? value : undefined;
  };
  const [from = NaN, to = NaN] = (wanted.get("loop") ?? "").split("-").map(Number.parseFloat);
  return {
    time: number("t"),
    speed: wanted.get("speed") === "max" ? 0 : number("speed"),
    loop: to > from ? [from, to] : undefined,
  };
}

/** What is looked at stays when the page is loaded again, and can be passed on. */
export function writeAddress(time: number | undefined): void {
  const wanted = new URLSearchParams(location.search);
  const text = time?.toFixed(1) ?? null;
  if (wanted.get("t") === text) {
    return;
  }
  if (text === null) {
    wanted.delete("t");
  } else {
    wanted.set("t", text);
  }
  const query = wanted.toString();
  const address = `${query === "" ? location.pathname : `?${query}`}${location.hash}`;
  window.history.replaceState(null, "", address);
}
