// The page of krin-scope: lists the fields the server's catalogue names,
// asks the server for the picked ones and plots what it sends. Nothing here
// knows a topic; every field comes from the catalogue.
import uPlot from "./uPlot.esm.js";

const palette = ["#1f77b4", "#d62728", "#2ca02c", "#ff7f0e", "#9467bd", "#8c564b", "#e377c2", "#17becf"];
// What one scalar series keeps, whatever the window: the server sends at
// most a few hundred points a second per field.
const maxPointsPerSeries = 200000;

const state = {
  catalog: [],          // [{topic, uri, fields: [{id, path, kind, array, names}]}]
  fields: new Map(),    // id -> field of the catalogue, with its topic
  series: new Map(),    // id -> {t: [], v: []}, received points of a scalar
  vectors: new Map(),   // id -> {t, v: []}, latest vector of an array
  charts: [],           // [{id, fields: [id], kind: "lines"|"steps"|"vector", plot, element}]
  current: null,        // the chart that the next scalar joins
  paused: false,
  windowSeconds: 30,
  counts: null,
  errors: [],
  socket: null,
};
window.scope = {
  state,
  // What a chart draws for `id` right now: the non-null values of its series.
  plotted(id) {
    for (const chart of state.charts) {
      const at = chart.fields.indexOf(id);
      if (at >= 0 && chart.plot) {
        if (chart.kind === "vector") return chart.plot.data[1].slice();
        return chart.plot.data[at + 1].filter((v) => v !== null && v !== undefined);
      }
    }
    return [];
  },
};

const $ = (id) => document.getElementById(id);

function showMessage(text) {
  $("message").textContent = text;
  state.errors.push(text);
}

// --- The connection -------------------------------------------------------

function connect() {
  const socket = new WebSocket(`ws://${location.host}/`);
  state.socket = socket;
  socket.onopen = () => { $("status").textContent = "live"; $("status").className = "live"; };
  socket.onclose = () => {
    $("status").textContent = "disconnected, retrying";
    $("status").className = "";
    setTimeout(connect, 1000);
  };
  socket.onmessage = (event) => receive(JSON.parse(event.data));
}

function receive(message) {
  if (message.catalog) showCatalog(message.catalog);
  if (message.points) {
    for (const [id, [times, values]] of Object.entries(message.points)) addPoints(id, times, values);
  }
  if (message.vectors) {
    for (const [id, vector] of Object.entries(message.vectors)) state.vectors.set(id, vector);
  }
  if (message.counts) showCounts(message.counts);
  if (message.error) showMessage(message.error);
}

function sendWatches() {
  const ids = state.charts.flatMap((chart) => chart.fields);
  if (state.socket && state.socket.readyState === WebSocket.OPEN) {
    state.socket.send(JSON.stringify({ watch: ids }));
  }
}

function addPoints(id, times, values) {
  let series = state.series.get(id);
  if (!series) {
    series = { t: [], v: [] };
    state.series.set(id, series);
  }
  for (let i = 0; i < times.length; ++i) {
    series.t.push(times[i]);
    series.v.push(values[i]);
  }
  const excess = series.t.length - maxPointsPerSeries;
  if (excess > 0) {
    series.t.splice(0, excess);
    series.v.splice(0, excess);
  }
}

// --- The field list -------------------------------------------------------

function showCatalog(catalog) {
  const known = state.catalog.length > 0;
  state.catalog = catalog;
  state.fields.clear();
  const list = $("fields");
  for (const old of list.querySelectorAll(".topic")) old.remove();
  for (const topic of catalog) {
    const block = document.createElement("div");
    block.className = "topic";
    block.innerHTML = `<h3></h3><div class="uri"></div>`;
    block.querySelector("h3").textContent = topic.topic;
    block.querySelector(".uri").textContent = topic.uri;
    for (const field of topic.fields) {
      state.fields.set(field.id, { ...field, topic: topic.topic });
      const label = document.createElement("label");
      const box = document.createElement("input");
      box.type = "checkbox";
      box.dataset.fieldId = field.id;
      box.dataset.topic = topic.topic;
      box.dataset.path = field.path;
      box.checked = state.charts.some((chart) => chart.fields.includes(field.id));
      box.addEventListener("change", () => (box.checked ? pick(field.id) : unpick(field.id)));
      const kind = field.array ? `${field.kind}[]` : field.kind;
      label.append(box, ` ${field.path} `);
      const tag = document.createElement("span");
      tag.className = "kind";
      tag.textContent = kind;
      label.append(tag);
      block.append(label);
    }
    list.append(block);
  }
  filterFields();
  if (known) sendWatches();  // a new connection: ask again for what is shown
}

function filterFields() {
  const text = $("filter").value.toLowerCase();
  for (const label of $("fields").querySelectorAll("label")) {
    const box = label.querySelector("input");
    const name = `${box.dataset.topic}.${box.dataset.path}`.toLowerCase();
    label.style.display = name.includes(text) ? "" : "none";
  }
}

// --- Charts ---------------------------------------------------------------

let chartSerial = 0;

function chartKindOf(field) {
  if (field.array) return "vector";
  return field.kind === "number" ? "lines" : "steps";
}

function pick(id) {
  const field = state.fields.get(id);
  const kind = chartKindOf(field);
  // Several numbers share the current chart; an array or an enumeration has
  // a chart of its own, since its axis is its own.
  let chart = kind === "lines" && state.current && state.current.kind === "lines" ? state.current : null;
  if (!chart) {
    chart = { id: ++chartSerial, fields: [], kind, plot: null, element: null, zoomed: false };
    state.charts.push(chart);
    if (kind === "lines") setCurrent(chart);
  }
  chart.fields.push(id);
  rebuild(chart);
  sendWatches();
}

function unpick(id) {
  for (const chart of state.charts) {
    const at = chart.fields.indexOf(id);
    if (at < 0) continue;
    chart.fields.splice(at, 1);
    if (chart.fields.length === 0) removeChart(chart);
    else rebuild(chart);
  }
  state.series.delete(id);
  state.vectors.delete(id);
  sendWatches();
}

function removeChart(chart) {
  if (chart.plot) chart.plot.destroy();
  chart.element.remove();
  state.charts.splice(state.charts.indexOf(chart), 1);
  if (state.current === chart) state.current = null;
}

function setCurrent(chart) {
  state.current = chart;
  for (const other of state.charts) {
    if (other.element) other.element.classList.toggle("current", other === chart);
  }
}

function labelOf(id) {
  const field = state.fields.get(id);
  return field ? `${field.topic}.${field.path}` : id;
}

// An axis as wide as its longest label, so that long names and big numbers show whole.
function fittedSize(u, values) {
  const longest = Math.max(3, ...(values || []).map((text) => String(text).length));
  return 16 + 8 * longest;
}

function namesAxis(field) {
  return {
    values: (u, ticks) => ticks.map((v) => (field.names && field.names[v] !== undefined ? field.names[v]
      : field.kind === "bool" ? (v === 1 ? "true" : v === 0 ? "false" : "") : "")),
    size: fittedSize,
  };
}

function optionsOf(chart, width) {
  const base = { width, height: 220, legend: { live: true }, cursor: { drag: { x: true, y: false } } };
  const hooks = {
    setSelect: [() => { chart.zoomed = true; }],
  };
  if (chart.kind === "vector") {
    const field = state.fields.get(chart.fields[0]);
    return {
      ...base,
      scales: { x: { time: false, range: (u, min, max) => [-0.5, Math.max(max, 0) + 0.5] } },
      axes: [{ label: "index", incrs: [1, 2, 5, 10, 20, 50, 100, 200, 500, 1000] }, {}],
      series: [{ label: "index" }, {
        label: labelOf(field.id), stroke: palette[0], fill: palette[0] + "55",
        paths: uPlot.paths.bars({ size: [0.7, 60] }), points: { show: false },
      }],
    };
  }
  const field = state.fields.get(chart.fields[0]);
  const series = [{ label: "source time" }];
  chart.fields.forEach((id, i) => {
    series.push({
      label: labelOf(id), stroke: palette[i % palette.length], width: 1.5, spanGaps: true,
      paths: chart.kind === "steps" ? uPlot.paths.stepped({ align: 1 }) : undefined,
      points: { show: false },
    });
  });
  const axes = [{}, chart.kind === "steps" ? namesAxis(field) : { size: fittedSize }];
  const scales = { x: { time: true } };
  if (chart.kind === "steps") {
    const numbers = field.names ? Object.keys(field.names).map(Number) : [0, 1];
    scales.y = { range: [Math.min(...numbers) - 0.5, Math.max(...numbers) + 0.5] };
    axes[1].splits = () => numbers;
  }
  return { ...base, series, axes, scales, hooks };
}

function rebuild(chart) {
  if (!chart.element) {
    chart.element = document.createElement("div");
    chart.element.className = "chart";
    chart.element.innerHTML = `<div class="title"><span></span><button>close</button></div><div class="plot"></div>`;
    chart.element.querySelector("button").addEventListener("click", () => {
      for (const id of chart.fields.slice()) {
        const box = document.querySelector(`input[data-field-id="${CSS.escape(id)}"]`);
        if (box) box.checked = false;
        unpick(id);
      }
    });
    chart.element.addEventListener("click", () => { if (chart.kind === "lines") setCurrent(chart); });
    chart.element.addEventListener("dblclick", () => { chart.zoomed = false; });
    $("charts").append(chart.element);
    if (state.current === chart) setCurrent(chart);
  }
  chart.element.dataset.fields = chart.fields.join(" ");
  if (chart.plot) chart.plot.destroy();
  const width = Math.max(300, $("charts").clientWidth - 24);
  chart.plot = new uPlot(optionsOf(chart, width), dataOf(chart), chart.element.querySelector(".plot"));
  draw(chart);
}

function dataOf(chart) {
  if (chart.kind === "vector") {
    const vector = state.vectors.get(chart.fields[0]);
    const values = vector ? vector.v : [];
    return [values.map((_, i) => i), values];
  }
  const tables = chart.fields.map((id) => {
    const series = state.series.get(id) || { t: [], v: [] };
    return [series.t, series.v];
  });
  if (tables.length === 1) return [tables[0][0].slice(), tables[0][1].slice()];
  return uPlot.join(tables);
}

function latestTime() {
  let latest = -Infinity;
  for (const series of state.series.values()) {
    if (series.t.length) latest = Math.max(latest, series.t[series.t.length - 1]);
  }
  return latest;
}

function draw(chart) {
  const title = chart.element.querySelector(".title span");
  if (chart.kind === "vector") {
    const vector = state.vectors.get(chart.fields[0]);
    const time = vector ? new Date(vector.t * 1000).toISOString().replace("T", " ").replace("Z", "") : "no sample yet";
    title.textContent = `${labelOf(chart.fields[0])}: latest vector, sample time ${time}`;
    chart.plot.setData(dataOf(chart));
    return;
  }
  title.textContent = chart.fields.map(labelOf).join(", ");
  if (chart.zoomed) return;
  const data = dataOf(chart);
  const latest = latestTime();
  chart.plot.setData(data, false);
  if (Number.isFinite(latest)) {
    chart.plot.setScale("x", { min: latest - state.windowSeconds, max: latest });
  }
}

function redraw() {
  if (!state.paused) {
    for (const series of state.series.values()) trimToWindow(series);
    for (const chart of state.charts) draw(chart);
  }
  setTimeout(() => requestAnimationFrame(redraw), 100);
}

// Keeps what the window shows and a little more, so that memory follows the window.
function trimToWindow(series) {
  if (!series.t.length) return;
  const keepFrom = series.t[series.t.length - 1] - 2 * state.windowSeconds;
  let drop = 0;
  while (drop < series.t.length && series.t[drop] < keepFrom) ++drop;
  if (drop > 0) {
    series.t.splice(0, drop);
    series.v.splice(0, drop);
  }
}

// --- Counts ---------------------------------------------------------------

function showCounts(counts) {
  state.counts = counts;
  const lines = counts.topics.map((topic) =>
    `${topic.topic.padEnd(26)} ${topic.rate.toFixed(1).padStart(9)} Hz  ` +
    `${String(topic.gaps).padStart(4)} gaps  ${String(topic.missing).padStart(6)} missing`);
  lines.push(`dropped for this page: ${counts.droppedForThisPage ?? 0}`);
  $("counts").textContent = lines.join("\n");
}

// --- Controls -------------------------------------------------------------

$("new-chart").addEventListener("click", () => setCurrent(null));
$("pause").addEventListener("click", () => {
  state.paused = !state.paused;
  $("pause").textContent = state.paused ? "Resume" : "Pause";
});
$("window").addEventListener("change", () => {
  const seconds = Number($("window").value);
  if (seconds > 0) state.windowSeconds = seconds;
});
$("unzoom").addEventListener("click", () => { for (const chart of state.charts) chart.zoomed = false; });
$("filter").addEventListener("input", filterFields);
window.addEventListener("resize", () => {
  const width = Math.max(300, $("charts").clientWidth - 24);
  for (const chart of state.charts) chart.plot.setSize({ width, height: 220 });
});

connect();
redraw();
