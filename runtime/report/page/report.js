"use strict";

const data = JSON.parse(document.getElementById("data").textContent);

/// Left of the curves stand names and scales.
const LEFT = 225;
const RIGHT = 22;
const WIDTH = 1150;
const LANE = 18;
const PLOT = 130;
const AXIS = 20;

const end = Math.max(data.end, 0.001);
let from = 0;
let to = end;

function element(name, attributes = {}, ...children) {
  const isSvg = ["svg", "g", "path", "line", "rect", "text", "title", "clipPath"].includes(name);
  const node = isSvg
    ? document.createElementNS("http://www.w3.org/2000/svg", name)
    : document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    node.setAttribute(key, value);
  }
  node.append(...children);
  return node;
}

function x(time) {
  return LEFT + ((time - from) / (to - from)) * (WIDTH - LEFT - RIGHT);
}

function seconds(time) {
  const digits = to - from < 2 ? 4 : to - from < 20 ? 3 : 2;
  return time.toFixed(digits);
}

/// A step of 1, 2 or 5 times a power of ten that divides `span` into about `count` parts.
function niceStep(span, count) {
  const raw = span / count;
  const power = 10 ** Math.floor(Math.log10(raw));
  return power * [1, 2, 5, 10].find((factor) => factor * power >= raw);
}

function steps(low, high, count) {
  const step = niceStep(high - low, count);
  const places = [];
  for (let i = Math.ceil(low / step); i * step <= high + step * 1e-9; ++i) {
    places.push(i * step);
  }
  return {places, digits: Math.max(0, -Math.floor(Math.log10(step) + 1e-9))};
}

function timeAxis(svg, height) {
  const {places, digits} = steps(from, to, 10);
  for (const time of places) {
    svg.append(
      element("line", {class: "grid", x1: x(time), x2: x(time), y1: 0, y2: height - AXIS}),
      element("text", {x: x(time), y: height - 5, "text-anchor": "middle"}, `${time.toFixed(digits)} s`),
    );
  }
}

function newSvg(height, label) {
  return element("svg", {viewBox: `0 0 ${WIDTH} ${height}`, role: "img", "aria-label": label});
}

/// The band of poses and a lane of marks for each event.
function drawLanes() {
  const poses = data.events.find((event) => event.name === "robotPoseChanged");
  const lanes = data.events.filter((event) => event !== poses && event.raises.length > 0);
  const top = poses ? 30 : 0;
  const height = top + lanes.length * LANE + AXIS;
  const svg = newSvg(height, "events over time");
  timeAxis(svg, height);
  const clip = element("clipPath", {id: "inside"},
    element("rect", {x: LEFT, y: 0, width: WIDTH - LEFT - RIGHT, height}));
  const inside = element("g", {"clip-path": "url(#inside)"});
  svg.append(clip, inside);

  if (poses) {
    svg.append(element("text", {class: "name", x: 0, y: 18}, "pose"));
    poses.raises.forEach(([time, value], i) => {
      const until = i + 1 < poses.raises.length ? poses.raises[i + 1][0] : end;
      if (until < from || time > to) {
        return;
      }
      const name = value.replace(/^"|"$/g, "");
      const left = Math.max(x(time), LEFT);
      const width = Math.min(x(until), WIDTH - RIGHT) - left;
      inside.append(element("rect", {class: i % 2 ? "pose odd" : "pose", x: left, y: 2, width: Math.max(width, 1), height: 22},
        element("title", {}, `${name}, ${seconds(time)} to ${seconds(until)} s`)));
      if (width > name.length * 6.5) {
        inside.append(element("text", {class: "posename", x: left + 4, y: 17}, name));
      }
    });
  }
  lanes.forEach((event, i) => {
    const y = top + i * LANE;
    svg.append(
      element("text", {class: "name", x: 0, y: y + 13}, event.name),
      element("line", {class: "grid", x1: LEFT, x2: WIDTH - RIGHT, y1: y + LANE, y2: y + LANE}),
    );
    let last = -Infinity;
    for (const [time, value] of event.raises) {
      const place = x(time);
      // What falls on the same dot is drawn once.
      if (time < from || time > to || place - last < 0.7) {
        continue;
      }
      last = place;
      inside.append(element("line", {class: "raise", x1: place, x2: place, y1: y + 3, y2: y + LANE - 3},
        element("title", {}, `${event.name} ${value} at ${seconds(time)} s`)));
    }
  });
  return svg;
}

/// What of a series is to be seen, with its neighbours outside.
function visible(spans) {
  const first = Math.max(0, spans.findIndex(([time]) => time >= from) - 1);
  const beyond = spans.findIndex(([time]) => time > to);
  return spans.slice(spans[spans.length - 1][0] < from ? spans.length - 1 : first,
    beyond < 0 ? spans.length : beyond + 1);
}

function valueAt(spans, time) {
  let low = 0;
  let high = spans.length - 1;
  while (low < high) {
    const middle = (low + high + 1) >> 1;
    if (spans[middle][0] <= time) {
      low = middle;
    } else {
      high = middle - 1;
    }
  }
  return spans[low][2] ?? spans[low][1];
}

function drawPlot(plot, legend) {
  const svg = newSvg(PLOT, plot.title);
  const parts = plot.series.map((series) => visible(series.spans));
  let low = Infinity;
  let high = -Infinity;
  for (const [, least, most] of parts.flat()) {
    low = Math.min(low, least);
    high = Math.max(high, most ?? least);
  }
  if (low === high) {
    low -= 0.5;
    high += 0.5;
  }
  const margin = (high - low) * 0.06;
  low -= margin;
  high += margin;
  const y = (value) => (PLOT - AXIS) * (1 - (value - low) / (high - low));
  timeAxis(svg, PLOT);
  const scale = steps(low, high, 4);
  for (const value of scale.places) {
    svg.append(
      element("line", {class: "grid", x1: LEFT, x2: WIDTH - RIGHT, y1: y(value), y2: y(value)}),
      element("text", {x: LEFT - 6, y: y(value) + 4, "text-anchor": "end"}, `${value.toFixed(scale.digits)} ${plot.unit}`),
    );
  }
  const id = `inside-${plot.title.replace(/\W/g, "")}`;
  svg.append(element("clipPath", {id}, element("rect", {x: LEFT, y: 0, width: WIDTH - LEFT - RIGHT, height: PLOT - AXIS})));
  const inside = element("g", {"clip-path": `url(#${id})`});
  parts.forEach((spans, i) => {
    let path = "";
    spans.forEach(([time, least, most], n) => {
      const place = x(time).toFixed(2);
      // A value stands until the next one: a step, and a stroke over what was between.
      path += n === 0 ? `M${place} ${y(least).toFixed(2)}` : `H${place}V${y(least).toFixed(2)}`;
      if (most !== undefined) {
        path += `V${y(most).toFixed(2)}`;
      }
    });
    inside.append(element("path", {class: `curve s${i % 6}`, d: path}));
  });
  svg.append(inside);

  const keys = plot.series.map((series, i) => element("span", {class: `key s${i % 6}`}, series.name));
  legend.replaceChildren(...keys);
  const cursor = element("line", {class: "cursor", x1: -1, x2: -1, y1: 0, y2: PLOT - AXIS});
  svg.append(cursor);
  svg.addEventListener("pointermove", (event) => {
    const time = timeOf(svg, event);
    cursor.setAttribute("x1", x(time));
    cursor.setAttribute("x2", x(time));
    plot.series.forEach((series, i) => {
      keys[i].textContent = `${series.name} ${+valueAt(series.spans, time).toPrecision(5)} ${plot.unit} at ${seconds(time)} s`;
    });
  });
  svg.addEventListener("pointerleave", () => {
    cursor.setAttribute("x1", -1);
    cursor.setAttribute("x2", -1);
    plot.series.forEach((series, i) => (keys[i].textContent = series.name));
  });
  return svg;
}

function timeOf(svg, event) {
  const box = svg.getBoundingClientRect();
  const place = ((event.clientX - box.left) / box.width) * WIDTH;
  const share = (place - LEFT) / (WIDTH - LEFT - RIGHT);
  return from + Math.min(Math.max(share, 0), 1) * (to - from);
}

const lanes = document.getElementById("lanes");
const charts = data.plots.map((plot) => {
  const legend = element("div", {class: "legend"});
  const box = element("div", {class: "chart"}, element("h3", {}, plot.title), legend, element("div"));
  document.getElementById("plots").append(box);
  return {plot, legend, place: box.lastChild};
});

let isDrawingDue = false;
function draw() {
  isDrawingDue = false;
  document.getElementById("window").textContent = `${seconds(from)} to ${seconds(to)} s of ${end.toFixed(2)} s`;
  lanes.replaceChildren(drawLanes());
  for (const {plot, legend, place} of charts) {
    place.replaceChildren(drawPlot(plot, legend));
  }
}

/// Shows another window, as near to the wanted one as there is anything to see.
function show(newFrom, newTo) {
  const span = Math.min(Math.max(newTo - newFrom, 0.01), end);
  from = Math.min(Math.max(newFrom, 0), end - span);
  to = from + span;
  if (!isDrawingDue) {
    isDrawingDue = true;
    requestAnimationFrame(draw);
  }
}

function zoom(factor, around) {
  show(around - (around - from) * factor, around + (to - around) * factor);
}

function pan(share) {
  show(from + share * (to - from), to + share * (to - from));
}

function listen() {
  const main = document.querySelector("main");
  const svgOf = (event) => event.target.closest?.("svg");
  main.addEventListener("wheel", (event) => {
    const svg = svgOf(event);
    if (svg) {
      event.preventDefault();
      zoom(event.deltaY < 0 ? 0.8 : 1.25, timeOf(svg, event));
    }
  }, {passive: false});
  let grip = null;
  main.addEventListener("pointerdown", (event) => {
    const svg = svgOf(event);
    if (svg && event.button === 0) {
      grip = {start: event.clientX, from, to, width: svg.getBoundingClientRect().width};
    }
  });
  window.addEventListener("pointermove", (event) => {
    if (grip) {
      const drawn = (grip.width * (WIDTH - LEFT - RIGHT)) / WIDTH;
      const moved = ((event.clientX - grip.start) / drawn) * (grip.to - grip.from);
      show(grip.from - moved, grip.to - moved);
    }
  });
  window.addEventListener("pointerup", () => (grip = null));
  main.addEventListener("dblclick", (event) => svgOf(event) && show(0, end));
  const middle = () => (from + to) / 2;
  document.querySelector("nav").addEventListener("click", (event) => {
    const {zoom: factor, pan: share, all} = event.target.dataset;
    if (factor) {
      zoom(Number(factor), middle());
    } else if (share) {
      pan(Number(share));
    } else if (all !== undefined) {
      show(0, end);
    }
  });
  window.addEventListener("keydown", (event) => {
    const action = {"+": () => zoom(0.5, middle()), "-": () => zoom(2, middle()), ArrowLeft: () => pan(-0.5),
      ArrowRight: () => pan(0.5), 0: () => show(0, end)}[event.key];
    if (action && !event.ctrlKey && !event.metaKey && !event.altKey) {
      action();
    }
  });
  // Paper shows all of it.
  let before = null;
  window.addEventListener("beforeprint", () => {
    before = [from, to];
    [from, to] = [0, end];
    draw();
  });
  window.addEventListener("afterprint", () => show(...before));
}

function fillTexts() {
  document.title = data.title;
  document.getElementById("title").textContent = data.title;
  const facts = [...data.facts, ["ticks", String(data.ticks)], ["events", `${data.raises} of ${data.events.length} kinds`],
    ["log", `${data.errors} errors, ${data.warnings} warnings`]];
  for (const [name, text] of facts) {
    document.getElementById("facts").append(element("dt", {}, name), element("dd", {}, text));
  }
  const complaints = document.getElementById("complaints");
  complaints.hidden = data.complaints.length === 0;
  complaints.querySelector("ul").append(...data.complaints.map((text) => element("li", {}, text)));
  fillTable("events", data.events.map((event) => {
    const last = event.count > event.raises.length ? "" : event.raises.at(-1)[0].toFixed(3);
    return element("tr", {}, element("td", {}, event.name + (event.micro ? " (micro)" : "")),
      element("td", {class: "n"}, String(event.count)), element("td", {class: "n"}, event.raises[0][0].toFixed(3)),
      element("td", {class: "n"}, last), element("td", {class: "v"}, event.last));
  }), 5);
  const levels = ["", "fatal", "error", "warning"];
  fillTable("log", data.log.map(([time, level, category, text]) =>
    element("tr", {class: level < 3 ? "error" : ""}, element("td", {class: "n"}, time.toFixed(3)),
      element("td", {}, levels[level] ?? String(level)), element("td", {}, category), element("td", {class: "v"}, text))), 4);
}

function fillTable(id, rows, columns) {
  const none = element("tr", {}, element("td", {class: "none", colspan: columns}, "none"));
  document.querySelector(`#${id} tbody`).append(...(rows.length > 0 ? rows : [none]));
}

fillTexts();
listen();
draw();
