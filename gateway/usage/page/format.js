// Numbers and times as the page writes them.

const units = [["B", 1], ["KiB", 2 ** 10], ["MiB", 2 ** 20], ["GiB", 2 ** 30], ["TiB", 2 ** 40], ["PiB", 2 ** 50]];
const twoPlaces = new Intl.NumberFormat("en", {minimumFractionDigits: 2, maximumFractionDigits: 2});
const whole = new Intl.NumberFormat("en", {maximumFractionDigits: 0});

export const bitsPerByte = 8;

// One unit for a whole column or axis: that of its largest value, so that numbers compare by sight.
export function unitOf(largest) {
  let chosen = units[0];
  for (const unit of units) if (largest >= unit[1]) chosen = unit;
  return {name: chosen[0], size: chosen[1]};
}

export function inUnit(bytes, unit) {
  if (unit.size === 1) return whole.format(bytes);
  const value = bytes / unit.size;
  return bytes > 0 && value < 0.01 ? "<0.01" : twoPlaces.format(value);
}

const short = new Intl.NumberFormat("en", {maximumFractionDigits: 2});
export const onAxis = value => short.format(value);

export function size(bytes) {
  const unit = unitOf(bytes);
  return `${inUnit(bytes, unit)} ${unit.name}`;
}

export const exactly = bytes => `${whole.format(bytes)} bytes`;
export const count = number => whole.format(number);

// Rates keep their unit, always: a number that jumps from 900 to 1.1 can't be read.
export const rate = bytesPerSecond => twoPlaces.format(bytesPerSecond * bitsPerByte / 1e6);

// Times come as RFC 3339 in the gateway's zone: what is written there is what is shown, whatever
// zone the browser is in.
const months = ["Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"];
const weekdays = ["Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"];
const dateOf = time => new Date(`${time.slice(0, 10)}T00:00:00Z`);

export const clock = time => time.slice(11, 16);
export const clockWithSeconds = time => time.slice(11, 19);
export const day = time => `${Number(time.slice(8, 10))} ${months[Number(time.slice(5, 7)) - 1]}`;
export const dayWithYear = time => `${day(time)} ${time.slice(0, 4)}`;
export const exactMoment = time => `${day(time)} ${clockWithSeconds(time)}`;

export function bucket(time, step) {
  if (step === "hour") return clock(time);
  if (step === "month") return `${months[Number(time.slice(5, 7)) - 1]} ${time.slice(2, 4)}`;
  return `${weekdays[dateOf(time).getUTCDay()]} ${day(time)}`;
}

// A date so many days or months away from the day of a time, as YYYY-MM-DD.
export function daysBefore(time, days) {
  const date = dateOf(time);
  date.setUTCDate(date.getUTCDate() - days);
  return date.toISOString().slice(0, 10);
}

export function monthsBefore(time, number) {
  const date = dateOf(time);
  date.setUTCDate(1);
  date.setUTCMonth(date.getUTCMonth() - number);
  return date.toISOString().slice(0, 10);
}
