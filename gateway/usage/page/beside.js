// What stands beside the figures: what is missing in them, quotas, new devices.
import {by, element, replace} from "./dom.js";
import {count, dayWithYear, exactMoment, size} from "./format.js";

const say = (kind, text, ...more) => element("p", {class: kind}, text, ...more);

function gapList(gaps) {
  if (gaps.length === 0) return null;
  const text = gaps.length === 1 ? "1 gap: counted, but not when" : `${count(gaps.length)} gaps: counted, but not when`;
  return element("details", {}, element("summary", {}, text),
    element("ul", {class: "plain"}, ...gaps.map(gap => element("li", {}, `${exactMoment(gap.from)} to ${exactMoment(gap.to)}`))));
}

function losses(lost) {
  const told = [];
  for (const [name, label] of [["devices", "devices"], ["rows", "pairs of device and application"], ["packets", "packets"]])
    if (lost[name] > 0) told.push(`${count(lost[name])} ${label}`);
  if (lost.bytes > 0) told.push(size(lost.bytes));
  if (told.length > 0) return say("warn", `Not counted since the engine started: ${told.join(", ")}.`);
  const unknown = Object.values(lost).every(value => value === null);
  return unknown ? say("quiet", "This engine does not tell what it could not count.") : null;
}

export function drawHealth(state) {
  const told = [];
  if (state.engine !== "ok") told.push(say("warn", "The engine does not answer."));
  if (state.clock === "waiting") told.push(say("warn", "Samples wait until the gateway's clock is right."));
  if (state.store === "full") told.push(say("warn", "The store can't be written: what is counted is kept in memory."));
  if (state.store === "set_aside") told.push(say("warn", "The store was damaged: it was set aside and a new one begun."));
  const gaps = gapList(state.gaps ?? []);
  const lost = losses(state.lost ?? {});
  if (told.length === 0 && !gaps && lost?.className !== "warn") told.push(say("good", "Nothing that we know of."));
  told.push(...[lost, gaps].filter(Boolean));
  told.push(say("quiet", state.last_sample ? `Last good sample ${exactMoment(state.last_sample)}` : "There was no sample yet."));
  replace(by("health"), ...told);
}

export function drawQuotas(quotas) {
  if (quotas.length === 0) {
    replace(by("quotas"), say("quiet", "None is set. A limit is set with ", element("code", {}, "traffic-usage quota set"), "."));
    return;
  }
  replace(by("quotas"), ...quotas.map(quota => {
    const label = quota.device?.name ?? "All devices";
    const estimate = quota.estimate > quota.total && !quota.passed;
    return element("div", {class: quota.passed ? "quota passed" : "quota"},
      element("p", {}, element("bdi", {}, label), ` a ${quota.per}`),
      element("meter", {min: 0, max: quota.total, value: Math.min(quota.used, quota.total), class: quota.passed || estimate ? "over" : null,
                        "aria-label": `${label}: used of the quota`}),
      element("p", {class: "quiet"}, `${size(quota.used)} of ${size(quota.total)}`,
        quota.passed ? element("strong", {}, " passed") : "", quota.estimate && !quota.passed ? `, at its end about ${size(quota.estimate)}` : ""));
  }));
}

export function drawNew(devices, link) {
  if (devices.length === 0) {
    replace(by("new"), say("quiet", "None in the last 7 days."));
    return;
  }
  const newest = [...devices].sort((a, b) => (a.first_seen < b.first_seen ? 1 : -1));
  const shown = newest.slice(0, 8);
  replace(by("new"), element("ul", {class: "plain"}, ...shown.map(device => element("li", {}, link(device), element("small", {}, dayWithYear(device.first_seen))))),
    newest.length > shown.length ? say("quiet", `and ${newest.length - shown.length} more`) : null);
}
