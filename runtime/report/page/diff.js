const KINDS = ["missing", "extra", "changed", "moved"];
const SIGNS = ["\u2212", "+", "\u2260", "\u2192"];
/// A lane has A's half above B's.
const HALF = 17;
/// What is drawn in full: more rows than anybody looks at make a page slow.
const MOST_ROWS = 1000;

/// Differences as they come in time: kind, lane, time and value of A and of B, null where there is none.
const differences = data.differences.map(([kind, lane, aTime, aValue, bTime, bValue]) =>
  ({kind, lane, a: aTime === null ? null : [aTime, aValue], b: bTime === null ? null : [bTime, bValue]}));
let chosen = -1;

const timesOf = ({a, b}) => [a, b].filter((side) => side !== null).map(([time]) => time);
const beginOf = (difference) => Math.min(...timesOf(difference));

const lanes = document.getElementById("lanes");
const tops = [];
let allLanes = 0;
for (const lane of data.lanes) {
  tops.push(allLanes);
  allLanes += 2 * HALF + 4;
}

function drawMarks(inside, lane, side, y) {
  let last = -Infinity;
  for (const [time, value] of lane[side]) {
    const place = x(time);
    // What falls on the same dot is drawn once.
    if (time < from || time > to || place - last < 0.7) {
      continue;
    }
    last = place;
    inside.append(element("line", {class: `raise ${side}`, x1: place, x2: place, y1: y + 2, y2: y + HALF - 2},
      element("title", {}, `${side.toUpperCase()}: ${lane.name} ${value} at ${seconds(time)} s`)));
  }
}

/// Words stand beside their marks as far as there is room.
function drawWords(inside, lane, side, y) {
  lane[side].forEach(([time, value], i) => {
    const next = i + 1 < lane[side].length ? lane[side][i + 1][0] : end;
    const word = value.replace(/^"|"$/g, "");
    if (value.startsWith('"') && time <= to && time >= from && x(next) - x(time) > word.length * 6.5 + 6) {
      inside.append(element("text", {class: "posename", x: x(time) + 4, y: y + 13}, word));
    }
  });
}

function drawDifference(inside, difference, number) {
  const top = tops[difference.lane];
  const [left, right] = [difference.a ?? difference.b, difference.b ?? difference.a].map(([time]) => x(time));
  if (Math.max(left, right) < LEFT || Math.min(left, right) > WIDTH - RIGHT) {
    return false;
  }
  const kind = KINDS[difference.kind];
  // Only the half that has it is drawn through; both are tied together where both have it.
  const y1 = difference.a ? top + 2 : top + HALF + 2;
  const y2 = difference.b ? top + 2 * HALF : top + HALF;
  const isChosen = number === chosen;
  inside.append(element("line", {class: `link ${kind}${isChosen ? " chosen" : ""}`, x1: left, x2: right, y1, y2},
    element("title", {}, textOf(difference))));
  return true;
}

function drawLanes() {
  const height = allLanes + AXIS;
  const svg = newSvg(height, "both runs over time");
  timeAxis(svg, height);
  const clip = element("clipPath", {id: "inside"},
    element("rect", {x: LEFT - 8, y: 0, width: WIDTH - LEFT - RIGHT + 16, height}));
  const inside = element("g", {"clip-path": "url(#inside)"});
  svg.append(clip, inside);
  if (chosen >= 0) {
    const times = timesOf(differences[chosen]).map(x);
    const left = Math.min(...times) - 5;
    inside.append(element("rect", {class: "band", x: left, y: 0, width: Math.max(...times) + 5 - left, height: allLanes}));
  }
  data.lanes.forEach((lane, i) => {
    const y = tops[i];
    svg.append(
      element("text", {class: "name", x: 0, y: y + HALF + 4}, lane.name.length > 30 ? `${lane.name.slice(0, 29)}\u2026` : lane.name),
      element("text", {class: "side", x: LEFT - 14, y: y + 12}, "A"),
      element("text", {class: "side", x: LEFT - 14, y: y + HALF + 12}, "B"),
      element("line", {class: "half", x1: LEFT, x2: WIDTH - RIGHT, y1: y + HALF, y2: y + HALF}),
      element("line", {class: "lane", x1: 0, x2: WIDTH - RIGHT, y1: y + 2 * HALF + 2, y2: y + 2 * HALF + 2}),
    );
    drawMarks(inside, lane, "a", y);
    drawMarks(inside, lane, "b", y + HALF);
    drawWords(inside, lane, "a", y);
    drawWords(inside, lane, "b", y + HALF);
  });
  const signed = new Map();
  differences.forEach((difference, number) => {
    if (!drawDifference(inside, difference, number)) {
      return;
    }
    // A sign for each as far as there is room; words stand on the other side.
    const place = x((difference.a ?? difference.b)[0]) - 3;
    const key = difference.lane;
    if (number === chosen || place - (signed.get(key) ?? -Infinity) > 9) {
      signed.set(key, place);
      inside.append(element("text", {class: `sign ${KINDS[difference.kind]}`, x: place, "text-anchor": "end",
        y: tops[difference.lane] + (difference.a ? 13 : HALF + 13)}, SIGNS[difference.kind]));
    }
  });
  return svg;
}

function textOf({kind, lane, a, b}) {
  const side = (one) => `${one[1]} at ${one[0]} s`;
  const name = data.lanes[lane].name;
  if (a === null || b === null) {
    return `${name} ${KINDS[kind]}: ${side(a ?? b)}`;
  }
  return KINDS[kind] === "moved"
    ? `${name} moved: ${a[1]} from ${a[0]} to ${b[0]} s`
    : `${name} changed: ${side(a)} is ${side(b)}`;
}

function draw() {
  showWindow();
  lanes.replaceChildren(drawLanes());
  const place = document.getElementById("place");
  place.textContent = differences.length === 0 ? "no difference"
    : chosen < 0 ? `${differences.length} differences`
      : `${chosen + 1} of ${differences.length}: ${textOf(differences[chosen])}`;
  document.querySelectorAll("#differences tr.chosen").forEach((row) => row.classList.remove("chosen"));
  document.querySelector(`#differences tr[data-number="${chosen}"]`)?.classList.add("chosen");
}

/// Goes to a difference: its times come to the middle, with something of what is around them.
function choose(number) {
  if (differences.length === 0) {
    return;
  }
  chosen = Math.min(Math.max(number, 0), differences.length - 1);
  const times = timesOf(differences[chosen]);
  const middle = (Math.min(...times) + Math.max(...times)) / 2;
  const apart = Math.max(...times) - Math.min(...times);
  const span = Math.max(Math.min(to - from, 10), apart * 1.5, 0.2);
  show(middle - span / 2, middle + span / 2);
}

/// From where one is: the first one in sight, or behind the one chosen.
function step(by) {
  if (chosen >= 0) {
    choose(chosen + by);
    return;
  }
  const first = differences.findIndex((difference) => beginOf(difference) >= from);
  choose(by > 0 ? (first < 0 ? differences.length - 1 : first) : (first < 0 ? differences.length : first) - 1);
}

function fillTexts() {
  document.title = data.title;
  document.getElementById("title").textContent = data.title;
  document.getElementById("verdict").textContent = data.verdict;
  const rows = data.facts.map(([name, a, b]) => element("tr", {class: a !== b ? "other" : ""},
    element("td", {}, name), element("td", {}, a), element("td", {}, b)));
  fillTable("facts", rows, 3);
  const complaints = document.getElementById("complaints");
  complaints.hidden = data.complaints.length === 0;
  complaints.querySelector("ul").append(...data.complaints.map((text) => element("li", {}, text)));
  const cell = (side) => element("td", {class: "v"}, side === null ? "" : `${side[1]} at ${side[0]} s`);
  fillTable("differences", differences.slice(0, MOST_ROWS).map((difference, number) =>
    element("tr", {"data-number": number}, element("td", {class: "n"}, beginOf(difference).toFixed(3)),
      element("td", {class: `kind ${KINDS[difference.kind]}`}, `${SIGNS[difference.kind]} ${KINDS[difference.kind]}`),
      element("td", {}, data.lanes[difference.lane].name), cell(difference.a), cell(difference.b))), 5);
  fillTable("names", data.names.map(([name, ...counts]) => element("tr", {}, element("td", {}, name),
    ...counts.map((count) => element("td", {class: "n"}, String(count))))), 7);
  document.querySelector("#differences tbody").addEventListener("click", (event) => {
    const number = event.target.closest("tr")?.dataset.number;
    if (number !== undefined) {
      choose(Number(number));
      lanes.scrollIntoView({block: "nearest"});
    }
  });
  document.querySelector("nav").addEventListener("click", (event) => {
    if (event.target.dataset.step) {
      step(Number(event.target.dataset.step));
    }
  });
}

fillTexts();
listen({n: () => step(1), p: () => step(-1), Home: () => choose(0), End: () => choose(differences.length - 1)});
draw();
