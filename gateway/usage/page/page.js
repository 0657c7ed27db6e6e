// The page's course: which view is asked for, what is fetched for it and when, what is drawn.
import {colourMembers, draw, joinRest} from "./chart.js";
import {drawHealth, drawNew, drawQuotas} from "./beside.js";
import {by, element, replace, setText} from "./dom.js";
import {bucket, clockWithSeconds, daysBefore, exactly, rate, size} from "./format.js";
import {drawChartTable, drawTable} from "./table.js";
import {activeFilters, address, members, parse, question, ranges} from "./view.js";

const livePoints = 60;       // of the chart of now: five minutes at the usual interval
const newestDays = 7;        // a device is new for so long
const totalsEvery = 15;      // seconds between two questions for today's totals
const historyEvery = 60;     // and for longer ranges
const secondsOfWait = 5;     // when the service doesn't tell its interval, or doesn't answer
const longestWait = 60;      // the time between two samples may be that of an outage

let view = parse(location.search);
let turn = 0;                // of the view: what was asked for an earlier one is not drawn
let now = null;
let newSince = 0;            // when the latest sample was first seen
let devices = [];
let asked = 0;               // when the totals were last fetched
const live = [];             // samples since the page was opened, oldest first

// Relative to the page, but without a user and a password that its address may have: fetch refuses those.
const place = path => new URL(path, location.origin + location.pathname);

async function fetched(path) {
  const reply = await fetch(place(path), {headers: {Accept: "application/json"}});
  const answer = await reply.json();
  if (!reply.ok) throw new Error(answer.error?.message ?? `the service answers ${reply.status}`);
  return answer;
}

async function allDevices() {
  const found = [];
  for (let cursor = ""; cursor !== null;) {
    const page = await fetched(`api/v1/devices${cursor && `?cursor=${encodeURIComponent(cursor)}`}`);
    found.push(...page.devices);
    cursor = page.next;
  }
  return found;
}

const deviceOf = mac => devices.find(device => device.mac === mac);
const nameOf = mac => deviceOf(mac)?.name || mac;
const today = () => now?.sampled ?? new Date().toISOString();

// A link to another view of this page needs no new page.
document.addEventListener("click", event => {
  const link = event.target.closest("a[data-view]");
  if (!link || event.ctrlKey || event.metaKey || event.shiftKey || event.button) return;
  event.preventDefault();
  history.pushState(null, "", link.getAttribute("href"));
  changeView();
});

// ---- rows of a table, from either kind of answer

function keyOf(row) {
  if (view.by === "device") return row.device.mac;
  return view.by === "category" ? row.category : row.application;
}

function rowOf(row) {
  const key = keyOf(row);
  const target = {range: view.range, by: view.by === "device" || view.device ? "application" : "device", sort: "total", order: "down"};
  for (const filter of activeFilters(view)) target[filter] = view[filter];
  target[view.by] = key;
  const device = view.by === "device" ? deviceOf(key) : null;
  const name = view.by === "device" ? row.device.name || key : key;
  return {key, name, note: view.by === "device" ? (name === key ? null : key) : (view.by === "application" ? row.category : null),
          fresh: device && isNew(device), target: view[view.by] ? null : target, down: 0, up: 0};
}

const isNew = device => device.first_seen && device.first_seen.slice(0, 10) > daysBefore(today(), newestDays);

const largestFirst = rows => [...rows].sort((a, b) => b.down + b.up - a.down - a.up);

// One row for each member, summed: an application's name may stand in two categories.
function gather(rows, unit) {
  const gathered = new Map();
  for (const row of rows) {
    const key = keyOf(row);
    if (!gathered.has(key)) gathered.set(key, rowOf(row));
    gathered.get(key).down += row[`down${unit}`];
    gathered.get(key).up += row[`up${unit}`];
  }
  return [...gathered.values()];
}

const isLookedAt = row => (!view.device || row.device.mac === view.device) &&
  (!view.category || row.category === view.category) && (!view.application || row.application === view.application);
const liveRows = sample => gather(sample.rows.filter(isLookedAt), "_per_second");

const sum = rows => rows.reduce((all, row) => ({down: all.down + row.down, up: all.up + row.up}), {down: 0, up: 0});

// ---- drawing

function choices(place, offered, name, targetOf) {
  replace(by(place), ...Object.entries(offered).map(([value, label]) => {
    const target = targetOf(value);
    return element("li", {}, element("a", {href: address(target),
      "aria-current": view[name] === value ? "true" : null, "data-view": true}, label));
  }));
}

function drawChoices() {
  const labels = Object.fromEntries(Object.entries(ranges).map(([name, range]) => [name, range.label]));
  choices("ranges", labels, "range", range => ({...view, range}));
  choices("members", members, "by", member => ({...view, by: member}));
  replace(by("filters"), ...activeFilters(view).map(filter => {
    const target = {...view, [filter]: undefined, by: filter};
    const text = filter === "device" ? nameOf(view.device) : view[filter];
    return element("li", {}, element("a", {href: address(target), "data-view": true,
      "aria-label": `Remove the filter ${members[filter].toLowerCase()} ${text}`}, element("bdi", {}, text), element("span", {"aria-hidden": "true"}, "×")));
  }));
  setText("title", ranges[view.range].title);
}

const interval = () => now?.seconds || secondsOfWait;
const isStale = () => now.sampled && Date.now() - newSince > 3000 * interval();

function drawNow() {
  const total = activeFilters(view).length > 0 ? sum(liveRows(now)) : {down: now.total.down_per_second, up: now.total.up_per_second};
  setText("now-down", `${rate(total.down)} Mbit/s`);
  setText("now-up", `${rate(total.up)} Mbit/s`);
  setText("sampled-text", now.sampled ? `Sampled ${clockWithSeconds(now.sampled)}` : "Waiting for the first sample");
  by("light").className = isStale() ? "bad" : now.sampled ? "good" : "waiting";
}

function drawTotals(total) {
  const when = view.range === "now" ? " today" : "";
  for (const [place, label] of [["label-down", "Down"], ["label-up", "Up"], ["label-both", "Total"]]) setText(place, label + when);
  for (const [place, bytes] of [["total-down", total.down], ["total-up", total.up], ["total-both", total.down + total.up]])
    replace(by(place), element("data", {value: bytes, title: exactly(bytes)}, size(bytes)));
}

function finishChart(labels, series, kind, title, empty) {
  setText("chart-title", title);
  const joined = joinRest(series);
  const nothing = series.length === 0;
  by("chart-empty").hidden = !nothing;
  setText("chart-empty", empty);
  const written = draw(by("chart"), kind, labels, joined);
  const most = series[0] ? `; most: ${series[0].label}` : "";
  by("chart").setAttribute("aria-label", `${title}${most}. The same figures are in the table below.`);
  drawChartTable(labels, joined, written, title);
}

function drawLive() {
  const rows = largestFirst(liveRows(now));
  const latest = new Map();
  for (const sample of live) for (const row of liveRows(sample)) latest.set(row.key, row);
  const members = largestFirst([...latest.values()]);
  colourMembers(members.map(row => row.key));
  drawTable(rows, view, {total: sum(rows), others: {count: 0, down: 0, up: 0}, rates: true});
  const blank = livePoints - live.length;
  const labels = [...Array(blank).fill(""), ...live.map(sample => clockWithSeconds(sample.sampled))];
  const perSample = live.map(sample => new Map(liveRows(sample).map(row => [row.key, row])));
  const series = members.map(row => ({key: row.key, label: row.name, down: Array(blank).fill(null), up: Array(blank).fill(null)}));
  for (const one of series)
    for (const sample of perSample)
      for (const direction of ["down", "up"]) one[direction].push(sample.get(one.key)?.[direction] ?? 0);
  finishChart(labels, series, "line", "Mbit/s since this page was opened: down above the line, up below", "Quiet.");
}

function drawHistory(answer, steps) {
  const rows = gather(answer.rows, "");
  if (view.by === "device" && activeFilters(view).length === 0) addIdle(rows);
  const largest = largestFirst(rows.filter(row => row.down + row.up > 0));
  colourMembers(largest.map(row => row.key));
  drawTable(rows, view, {total: answer.total, others: answer.others, rates: false});
  const starts = [...new Set(steps.rows.map(row => row.start))].sort();
  const at = new Map(starts.map((start, index) => [start, index]));
  const series = new Map(largest.map(row => [row.key, {key: row.key, label: row.name, down: starts.map(() => 0), up: starts.map(() => 0)}]));
  for (const row of steps.rows) {
    const one = series.get(keyOf(row));
    if (!one) continue;
    one.down[at.get(row.start)] += row.down;
    one.up[at.get(row.start)] += row.up;
  }
  const step = steps.step ?? ranges[view.range].step; // coarser where nothing finer is kept
  finishChart(starts.map(start => bucket(start, step)), [...series.values()], "bar",
    `By ${step}: down above the line, up below`, "Nothing was used in this time.");
}

// All devices are in the table, also those that were away or silent.
function addIdle(rows) {
  const there = new Set(rows.map(row => row.key));
  for (const device of devices)
    if (!there.has(device.mac)) rows.push(rowOf({device}));
}

function drawBeside(answer, quotas) {
  setText("instance", answer.instance ?? "");
  setText("zone", answer.zone);
  drawHealth(answer.state);
  drawQuotas(quotas);
  drawNew(devices.filter(isNew), device => {
    const target = {range: view.range, device: device.mac, by: "application", sort: "total", order: "down"};
    return element("a", {href: address(target), title: nameOf(device.mac), "data-view": true}, element("bdi", {}, nameOf(device.mac)));
  });
}

// ---- fetching

function notice(text) {
  by("notice").hidden = !text;
  setText("notice", text ?? "");
}

async function refreshHistory() {
  const mine = turn;
  asked = Date.now();
  const isNow = view.range === "now";
  const [answer, steps, found, quotas] = await Promise.all([
    fetched(question(view, today(), false)), isNow ? null : fetched(question(view, today(), true)),
    allDevices(), fetched("api/v1/quotas")]);
  if (mine !== turn) return;
  devices = found;
  by("json").href = question(view, today(), !isNow);
  drawChoices();
  drawTotals(answer.total);
  drawBeside(answer, quotas.quotas);
  if (!isNow) drawHistory(answer, steps);
}

async function refreshNow() {
  const before = now?.sampled;
  now = await fetched("api/v1/now");
  if (now.sampled !== before) newSince = Date.now();
  if (now.sampled && live.at(-1)?.sampled !== now.sampled) live.push(now);
  if (live.length > livePoints) live.shift();
  drawNow();
  if (view.range === "now") drawLive();
}

async function refresh(everything) {
  try {
    await refreshNow();
    const every = ["now", "today"].includes(view.range) ? totalsEvery : historyEvery;
    if (everything || Date.now() - asked >= every * 1000 - 500) await refreshHistory();
    notice(isStale() ? `There was no sample since ${clockWithSeconds(now.sampled)}: what is shown as now is of then.` : null);
  } catch (error) {
    asked = 0;
    by("light").className = "bad";
    notice(`No news from the gateway: ${error.message}. What is shown is what was known before.`);
  }
  document.body.classList.add("drawn");
}

let timer = 0;
async function poll(everything) {
  clearTimeout(timer);
  if (document.hidden) return;
  await refresh(everything);
  clearTimeout(timer);
  timer = setTimeout(poll, Math.min(interval(), longestWait) * 1000, false);
}

function changeView() {
  view = parse(location.search);
  ++turn;
  drawChoices();
  poll(true);
}

window.addEventListener("popstate", changeView);
document.addEventListener("visibilitychange", () => poll(false));
drawChoices();
poll(true);
