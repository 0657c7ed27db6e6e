// The chart: who or what took how much, stacked; down above the line, up below it.
import {bitsPerByte, inUnit, onAxis, rate, unitOf} from "./format.js";

const quiet = 1e6 / bitsPerByte; // bytes per second that the chart of now is at least high
const shown = 7; // members with a colour of their own; the rest is one grey

let chart = null;
const places = new Map(); // member -> its colour's place, kept while the page is open

const variable = name => getComputedStyle(document.documentElement).getPropertyValue(name).trim();

export const colour = key => places.has(key) ? `colour${places.get(key)}` : "colour-rest";

// Gives the largest members a colour each; who has one keeps it as long as it is among them.
export function colourMembers(keys) {
  const top = keys.slice(0, shown);
  for (const key of places.keys()) if (!top.includes(key)) places.delete(key);
  const taken = new Set(places.values());
  let next = 0;
  for (const key of top) {
    if (places.has(key)) continue;
    while (taken.has(next)) ++next;
    taken.add(next);
    places.set(key, next);
  }
}

// series: [{key, label, down: [...], up: [...]}], largest first. What has no colour becomes one.
export function joinRest(series) {
  const own = series.filter(one => places.has(one.key));
  const rest = series.filter(one => !places.has(one.key));
  if (rest.length === 0) return own;
  const sum = direction => rest[0][direction].map((_, at) => rest.reduce((all, one) => all + one[direction][at], 0));
  return [...own, {key: null, label: rest.length === 1 ? rest[0].label : `${rest.length} others`, down: sum("down"), up: sum("up")}];
}

// Values go to the chart in the axis' unit: its ticks are round numbers of that.
function datasets(series, kind, size) {
  const made = [];
  for (const one of series)
    for (const direction of ["down", "up"]) {
      const fill = variable(`--${one.key === null ? "colour-rest" : colour(one.key)}`);
      const sign = direction === "down" ? 1 : -1;
      made.push({
        label: `${one.label}, ${direction}`, stack: kind === "bar" ? "all" : direction,
        data: one[direction].map(value => value === null ? null : sign * value / size), backgroundColor: fill, borderColor: variable("--surface"),
        borderWidth: kind === "line" || sign < 0 ? 0 : {top: 1}, borderSkipped: false,
        fill: made.length < 2 ? "origin" : "-2", pointRadius: 0, maxBarThickness: 44, categoryPercentage: 0.86, barPercentage: 0.94,
      });
    }
  return made;
}

// Below the line as much room as is needed, not as much as above it.
function options(axis, written) {
  const text = variable("--quiet"), grid = variable("--line");
  const font = {family: variable("--font"), size: 12};
  return {
    animation: false, responsive: true, maintainAspectRatio: false, normalized: true,
    interaction: {mode: "index", intersect: false},
    scales: {
      x: {stacked: true, grid: {display: false}, border: {color: grid}, ticks: {color: text, font, maxRotation: 0, autoSkipPadding: 14}},
      y: {
        stacked: true, min: -1.15 * axis.up / axis.size, suggestedMax: axis.down / axis.size || 1, afterFit: scale => { scale.width = 68; },
        grid: {color: context => context.tick.value === 0 ? text : grid, drawBorder: false},
        ticks: {color: text, font, maxTicksLimit: 6, includeBounds: false, callback: value => onAxis(Math.abs(value)) + axis.name},
      },
    },
    plugins: {
      legend: {display: false},
      tooltip: {
        filter: item => item.raw !== 0, itemSort: (a, b) => Math.abs(b.raw) - Math.abs(a.raw),
        callbacks: {label: item => ` ${item.dataset.label}: ${written(Math.abs(item.raw) * axis.size)}`},
      },
    },
  };
}

function highest(series, direction, length) {
  let most = 0;
  for (let at = 0; at < length; ++at) most = Math.max(most, series.reduce((all, one) => all + one[direction][at], 0));
  return most;
}

// kind: "bar" for bytes per step, "line" for bytes per second. Gives back how a value is written.
export function draw(canvas, kind, labels, series) {
  const down = highest(series, "down", labels.length), up = highest(series, "up", labels.length);
  const unit = unitOf(Math.max(down, up) || 2 ** 20);
  const written = kind === "bar" ? value => `${inUnit(value, unit)} ${unit.name}`
                                 : value => `${rate(value)} Mbit/s`;
  const axis = kind === "bar" ? {down, up, size: unit.size, name: ` ${unit.name}`}
                              : {down: Math.max(down, quiet), up: Math.max(up, quiet / 5), size: 1e6 / bitsPerByte, name: ""};
  const data = {labels, datasets: datasets(series, kind, axis.size)};
  if (chart && chart.config.type !== kind) {
    chart.destroy();
    chart = null;
  }
  if (chart) {
    chart.data = data;
    chart.options = options(axis, written);
    chart.update("none");
  } else {
    chart = new Chart(canvas, {type: kind, data, options: options(axis, written)});
  }
  return written;
}
