// What is looked at: it stands in the page's address, so that a view can be kept and sent.
import {daysBefore, monthsBefore} from "./format.js";

export const ranges = {
  now: {label: "Now", title: "Right now"},
  today: {label: "Today", title: "Today", step: "hour"}, // of the gateway: it knows when that began
  "7d": {label: "7 days", title: "The last 7 days", step: "day", from: today => daysBefore(today, 6)},
  month: {label: "Month", title: "The last 30 days", step: "day", from: today => daysBefore(today, 29)},
  year: {label: "Year", title: "The last 12 months", step: "month", from: today => monthsBefore(today, 11)},
};
export const members = {device: "Device", category: "Category", application: "Application"};
const filters = ["device", "category", "application"];
const sorts = ["name", "down", "up", "total", "share"];

const oneOf = (value, allowed, otherwise) => allowed.includes(value) ? value : otherwise;

export function parse(search) {
  const given = new URLSearchParams(search);
  const view = {range: oneOf(given.get("range"), Object.keys(ranges), "today")};
  for (const filter of filters) if (given.get(filter)) view[filter] = given.get(filter);
  view.by = oneOf(given.get("by"), Object.keys(members), view.device ? "application" : "device");
  view.sort = oneOf(given.get("sort"), sorts, "total");
  view.order = oneOf(given.get("order"), ["up", "down"], view.sort === "name" ? "up" : "down");
  return view;
}

// The address of a view, with what is as it would be anyway left out.
export function address(view) {
  const said = new URLSearchParams();
  const usual = parse(view.device ? "?device=" + encodeURIComponent(view.device) : "");
  for (const name of ["range", ...filters, "by", "sort"])
    if (view[name] && (view[name] !== usual[name] || filters.includes(name))) said.set(name, view[name]);
  if (view.order !== (view.sort === "name" ? "up" : "down")) said.set("order", view.order);
  const text = said.toString();
  return text ? `?${text}` : "./";
}

// The question to the service that a view asks, without or with its steps.
export function question(view, today, withSteps) {
  const range = ranges[view.range] ?? ranges.today;
  const asked = new URLSearchParams({by: view.by});
  if (range.from) asked.set("from", range.from(today));
  if (withSteps && range.step) asked.set("step", range.step);
  for (const filter of filters) if (view[filter]) asked.set(filter, view[filter]);
  return `api/v1/usage?${asked}`;
}

export const activeFilters = view => filters.filter(filter => view[filter]);
