// The tables: all members with their totals, and the chart's own figures.
import {by, element, replace} from "./dom.js";
import {exactly, inUnit, rate, unitOf} from "./format.js";
import {address, members} from "./view.js";
import {colour} from "./chart.js";

const total = row => row.down + row.up;
const compare = {
  name: (a, b) => a.name.localeCompare(b.name, "en", {numeric: true}),
  down: (a, b) => a.down - b.down,
  up: (a, b) => a.up - b.up,
  total: (a, b) => total(a) - total(b),
};

export function sorted(rows, view) {
  const order = compare[view.sort === "share" ? "total" : view.sort];
  const sign = view.order === "up" ? 1 : -1;
  return [...rows].sort((a, b) => sign * order(a, b) || (a.key < b.key ? -1 : 1));
}

function header(view, unit) {
  const sorts = [["name", members[view.by]], ["down", `Down, ${unit}`], ["up", `Up, ${unit}`], ["total", `Total, ${unit}`], ["share", "Share"]];
  return element("tr", {}, ...sorts.map(([sort, label]) => {
    const current = view.sort === sort;
    const order = current ? (view.order === "up" ? "down" : "up") : (sort === "name" ? "up" : "down");
    const target = {...view, sort, order};
    return element("th", {scope: "col", class: sort, "aria-sort": current ? (view.order === "up" ? "ascending" : "descending") : null},
      element("a", {href: address(target), "data-view": true},
        element("span", {class: "arrow", "aria-hidden": "true"}, current ? (view.order === "up" ? "▲" : "▼") : ""), label));
  }));
}

function nameCell(row) {
  const target = row.target;
  const name = element("bdi", {}, row.name);
  return element("th", {scope: "row", class: "name"}, element("div", {},
    element("span", {class: `swatch ${colour(row.key)}`, "aria-hidden": "true"}),
    target ? element("a", {href: address(target), title: row.note ? `${row.name} (${row.note})` : row.name, "data-view": true}, name)
           : element("span", {title: row.name}, name),
    row.fresh ? element("span", {class: "badge"}, "new") : null,
    row.note ? element("small", {}, element("bdi", {}, row.note)) : null));
}

const numberCell = (kind, bytes, written, exact) =>
  element("td", {class: kind}, element("data", {value: bytes, title: exact}, written));

// rows: [{key, name, note, fresh, target, down, up}]; what: {total, others, rates}.
export function drawTable(rows, view, what) {
  const all = total(what.total);
  const unit = what.rates ? null : unitOf(Math.max(0, ...rows.map(total)));
  const written = what.rates ? rate : bytes => inUnit(bytes, unit);
  const exact = what.rates ? () => null : exactly;
  const numbers = row => ["down", "up", "total"].map(kind => {
    const value = kind === "total" ? total(row) : row[kind];
    return numberCell(kind, value, written(value), exact(value));
  });
  const share = row => {
    const part = all > 0 ? total(row) / all * 100 : 0;
    return element("td", {class: "share"},
      row === what.total ? null : element("meter", {class: colour(row.key), min: 0, max: 100, value: part.toFixed(2), "aria-hidden": "true"}),
      element("span", {}, `${part.toFixed(1)} %`));
  };
  const table = by("table");
  replace(table.tHead, header(view, what.rates ? "Mbit/s" : unit.name));
  const body = sorted(rows, view).map(row =>
    element("tr", {"data-key": row.key}, nameCell(row), ...numbers(row), share(row)));
  if (body.length === 0)
    body.push(element("tr", {}, element("td", {colspan: 5, class: "nothing"}, what.rates ? "Nobody uses the network at the moment." : "Nothing was used in this time.")));
  replace(table.tBodies[0], ...body);
  const foot = [];
  if (what.others.count > 0)
    foot.push(element("tr", {}, element("th", {scope: "row"}, `${what.others.count} others`), ...numbers(what.others), share({...what.others, key: null})));
  foot.push(element("tr", {class: "sum"}, element("th", {scope: "row"}, "All"), ...numbers(what.total), share(what.total)));
  replace(table.tFoot, ...foot);
}

// The same figures as the chart: a row for each label, two columns for each series.
export function drawChartTable(labels, series, written, title) {
  const head = element("thead", {}, element("tr", {}, element("th", {scope: "col"}, "Time"),
    ...series.flatMap(one => ["down", "up"].map(direction => element("th", {scope: "col"}, element("bdi", {}, one.label), ` ${direction}`)))));
  const body = element("tbody", {}, ...labels.map((label, at) => element("tr", {}, element("th", {scope: "row"}, label),
    ...series.flatMap(one => ["down", "up"].map(direction => element("td", {}, written(one[direction][at])))))));
  replace(by("chart-table"), element("caption", {class: "unseen"}, title), head, body);
}
