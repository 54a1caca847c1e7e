"use strict";

// What pages with a time line share: data, window, zooming and moving. A page has a function draw().

const data = JSON.parse(document.getElementById("data").textContent);

/// Left of the curves stand names and scales; on a phone names stand above them.
const kWide = {LEFT: 225, WIDTH: 1150, LANE: 18};
let {LEFT, WIDTH, LANE} = kWide;
let isNarrow = false;
const RIGHT = 22;
const AXIS = 20;

/// Takes the width that there is, where that is too little for names at the side.
function fit(width) {
  isNarrow = width < 640;
  ({LEFT, WIDTH, LANE} = isNarrow ? {LEFT: 60, WIDTH: Math.max(width, 240), LANE: 30} : kWide);
}

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
  const {places, digits} = steps(from, to, isNarrow ? 4 : 10);
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

function timeOf(svg, event) {
  const box = svg.getBoundingClientRect();
  const place = ((event.clientX - box.left) / box.width) * WIDTH;
  const share = (place - LEFT) / (WIDTH - LEFT - RIGHT);
  return from + Math.min(Math.max(share, 0), 1) * (to - from);
}

let isDrawingDue = false;

function showWindow() {
  document.getElementById("window").textContent = `${seconds(from)} to ${seconds(to)} s of ${end.toFixed(2)} s`;
}

/// Shows another window, as near to the wanted one as there is anything to see.
function show(newFrom, newTo) {
  const span = Math.min(Math.max(newTo - newFrom, 0.01), end);
  from = Math.min(Math.max(newFrom, 0), end - span);
  to = from + span;
  if (!isDrawingDue) {
    isDrawingDue = true;
    requestAnimationFrame(() => {
      isDrawingDue = false;
      draw();
    });
  }
}

function zoom(factor, around) {
  show(around - (around - from) * factor, around + (to - around) * factor);
}

function pan(share) {
  show(from + share * (to - from), to + share * (to - from));
}

/// `keys`: what else keys do.
function listen(keys = {}) {
  const main = document.querySelector("main");
  const svgOf = (event) => event.target.closest?.("svg");
  main.addEventListener("wheel", (event) => {
    // Without a key the wheel scrolls, as everywhere.
    const svg = svgOf(event);
    if (svg && (event.ctrlKey || event.metaKey)) {
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
      ArrowRight: () => pan(0.5), 0: () => show(0, end), ...keys}[event.key];
    if (action && !event.ctrlKey && !event.metaKey && !event.altKey) {
      event.preventDefault();
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

function fillTable(id, rows, columns) {
  const none = element("tr", {}, element("td", {class: "none", colspan: columns}, "none"));
  document.querySelector(`#${id} tbody`).append(...(rows.length > 0 ? rows : [none]));
}
