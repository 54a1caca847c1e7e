const PLOT = 130;

/// What shows the moment under the pointer: one for all charts, wherever the pointer is.
let pointed = [];

function pointAt(svg, height, tell = () => {}) {
  const cursor = element("line", {class: "cursor", x1: 0, x2: 0, y1: 0, y2: height});
  const moment = element("text", {class: "moment", x: 0, y: height + 15, "text-anchor": "middle"});
  const mark = element("g", {visibility: "hidden"}, cursor, moment);
  svg.append(mark);
  pointed.push((time) => {
    if (time !== undefined) {
      mark.setAttribute("transform", `translate(${x(time)})`);
      moment.textContent = `${seconds(time)} s`;
    }
    mark.setAttribute("visibility", time === undefined ? "hidden" : "visible");
    tell(time);
  });
  svg.addEventListener("pointermove", (event) => showMoment(timeOf(svg, event)));
  svg.addEventListener("pointerleave", () => showMoment());
}

function showMoment(time) {
  pointed.forEach((show) => show(time));
}

/// The band of poses and a lane of marks for each event.
function drawLanes() {
  const poses = data.events.find((event) => event.name === "robotPoseChanged");
  const lanes = data.events.filter((event) => event !== poses && event.raises.length > 0);
  const top = poses ? (isNarrow ? 44 : 30) : 0;
  const height = top + lanes.length * LANE + AXIS;
  const svg = newSvg(height, "events over time");
  timeAxis(svg, height);
  const clip = element("clipPath", {id: "inside"},
    element("rect", {x: LEFT, y: 0, width: WIDTH - LEFT - RIGHT, height}));
  const inside = element("g", {"clip-path": "url(#inside)"});
  svg.append(clip, inside);

  if (poses) {
    const bar = isNarrow ? 16 : 2;
    svg.append(element("text", {class: "name", x: 0, y: isNarrow ? 11 : 18}, "pose"));
    poses.raises.forEach(([time, value, words], i) => {
      const until = i + 1 < poses.raises.length ? poses.raises[i + 1][0] : end;
      if (until < from || time > to) {
        return;
      }
      const name = value.replace(/^"|"$/g, "");
      const left = Math.max(x(time), LEFT);
      const width = Math.min(x(until), WIDTH - RIGHT) - left;
      const [, weight] = poses.words[words] ?? ["", 0];
      const kind = name === "Unknown" ? " between" : weight > 2 ? " alarming" : "";
      inside.append(element("rect", {class: `pose${kind}`, x: left, y: bar, width: Math.max(width, 1), height: 22},
        element("title", {}, `${name}, ${seconds(time)} to ${seconds(until)} s`)));
      if (width > name.length * 6.5) {
        inside.append(element("text", {class: "posename", x: left + 4, y: bar + 15}, name));
      }
    });
  }
  lanes.forEach((event, i) => {
    const y = top + i * LANE;
    const marks = isNarrow ? y + 13 : y;
    svg.append(
      element("text", {class: "name", x: 0, y: y + 12}, event.name),
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
      inside.append(element("line", {class: "raise", x1: place, x2: place, y1: marks + 3, y2: y + LANE - 3},
        element("title", {}, `${event.name} ${value} at ${seconds(time)} s`)));
    }
  });
  pointAt(svg, height - AXIS);
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
  // As many digits as the scale has, and two more.
  const digits = scale.digits + 2;
  pointAt(svg, PLOT - AXIS, (time) => {
    plot.series.forEach((series, i) => {
      keys[i].textContent = time === undefined ? series.name
        : `${series.name} ${valueAt(series.spans, time).toFixed(digits)} ${plot.unit}`;
    });
  });
  return svg;
}

const lanes = document.getElementById("lanes");
const charts = data.plots.map((plot) => {
  const legend = element("div", {class: "legend"});
  const box = element("div", {class: "chart"}, element("h3", {}, plot.title), legend, element("div"));
  document.getElementById("plots").append(box);
  return {plot, legend, place: box.lastChild};
});

function draw() {
  pointed = [];
  showWindow();
  lanes.replaceChildren(drawLanes());
  for (const {plot, legend, place} of charts) {
    place.replaceChildren(drawPlot(plot, legend));
  }
}

/// Rows of the list of what happened: more would only be scrolled over.
const MOST_ROWS = 500;
/// What is known of each key as the run begins is no news.
const START = 0.1;

/// All events in the order of their times, without those that come again and again.
function story() {
  const all = [];
  for (const event of data.events) {
    for (const [time, value, said] of event.weight > 0 ? event.raises : []) {
      if (time > START) {
        const [words, weight] = event.words[said] ?? [event.name, event.weight];
        all.push({time, value, event, words, weight});
      }
    }
  }
  return all.sort((a, b) => a.time - b.time);
}

/// Shows the moments around a time.
function showAround(time) {
  const span = Math.min(end, 10);
  show(time - span / 2, time + span / 2);
  lanes.scrollIntoView({block: "center"});
}

function timeLink(time) {
  const link = element("a", {href: "#lanes"}, time.toFixed(2));
  link.addEventListener("click", (event) => {
    event.preventDefault();
    showAround(time);
  });
  return element("td", {class: "n"}, link);
}

function fillStory() {
  document.getElementById("story").append(...data.story.map((sentence) => element("p", {}, sentence)));
  const all = story();
  const told = all.slice(0, MOST_ROWS);
  document.getElementById("untold").textContent = told.length < all.length
    ? `the first ${told.length} of ${all.length}; the time line has them all` : "";
  fillTable("story-events", told.map(({time, value, event, words, weight}) =>
    element("tr", {class: weight > 2 ? "weighty" : ""}, timeLink(time), element("td", {}, words),
      element("td", {class: "name"}, event.name), element("td", {class: "v"}, value))), 4);
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
      element("td", {class: "n"}, String(event.count)), timeLink(event.raises[0][0]),
      element("td", {class: "n"}, last), element("td", {class: "v"}, event.last));
  }), 5);
  const levels = ["", "fatal", "error", "warning"];
  fillTable("log", data.log.map(([time, level, category, text]) =>
    element("tr", {class: level < 3 ? "error" : ""}, element("td", {class: "n"}, time.toFixed(3)),
      element("td", {}, levels[level] ?? String(level)), element("td", {}, category), element("td", {class: "v"}, text))), 4);
}

/// Where the names of lanes stand depends on the width, on paper as well.
function fitAndDraw() {
  fit(document.querySelector("main").clientWidth);
  draw();
}

fillTexts();
fillStory();
listen();
window.addEventListener("resize", fitAndDraw);
fitAndDraw();
