// Numbers and moments as people read them. Input is SI: seconds, hertz, ratios; moments are milliseconds since 1970 UTC.

const dash = "–";
const minus = "−";

export function isNumber(value) {
  return typeof value === "number" && Number.isFinite(value);
}

export function fixed(value, digits) {
  if (!isNumber(value)) return dash;
  const text = Math.abs(value).toFixed(digits);
  return value < 0 && Number(text) !== 0 ? minus + text : text;
}

function signed(value, digits) {
  const text = fixed(value, digits);
  return isNumber(value) && value > 0 && Number(text) !== 0 ? `+${text}` : text;
}

// As many decimals as the uncertainty bears out: two digits of it at most.
function digitsFor(stderr, most) {
  if (!isNumber(stderr) || stderr <= 0) return most;
  return Math.min(most, Math.max(0, 1 - Math.floor(Math.log10(stderr))));
}

export function rateFigure(hertz) {
  return fixed(hertz, hertz < 100 ? 3 : 2);
}

export function rate(hertz) {
  return isNumber(hertz) ? `${rateFigure(hertz)} Hz` : dash;
}

// Without the unit, for a column of them.
export function ppmFigure(value, stderr) {
  return isNumber(value) ? signed(value, Math.abs(value) < 1000 ? digitsFor(stderr, 3) : 0) : dash;
}

export function ppm(value, stderr) {
  return isNumber(value) ? `${ppmFigure(value, stderr)} ppm` : dash;
}

const timeUnits = [
  [1, "s", 3],
  [1e-3, "ms", 3],
  [1e-6, "µs", 2],
  [1e-9, "ns", 0],
];

// A small span of time in the unit that suits it.
export function span(seconds, sign = true) {
  if (!isNumber(seconds)) return dash;
  const size = Math.abs(seconds);
  const [unit, name, digits] = timeUnits.find(([least]) => size >= least) ?? timeUnits[3];
  const value = seconds / unit;
  const shown = Math.max(0, digits - (Math.abs(value) >= 100 ? 1 : 0));
  return `${sign ? signed(value, shown) : fixed(value, shown)} ${name}`;
}

// Always microseconds, and without the unit, so that a column of them compares.
export function microsecondsFigure(seconds) {
  if (!isNumber(seconds)) return dash;
  const value = seconds * 1e6;
  return signed(value, Math.abs(value) < 100 ? 2 : Math.abs(value) < 10000 ? 1 : 0);
}

export function linesFigure(value) {
  return signed(value, 2);
}

export function lines(value) {
  return isNumber(value) ? `${linesFigure(value)} lines` : dash;
}

export function ppb(ratio) {
  if (!isNumber(ratio)) return dash;
  const value = ratio * 1e9;
  const size = Math.abs(value);
  if (size >= 1e5) return `${signed(value / 1e3, 1)} ppm`;
  return `${signed(value, size < 10 ? 2 : size < 1000 ? 1 : 0)} ppb`;
}

// How long something lasts or is away, in words that get coarser with length.
export function duration(seconds) {
  if (!isNumber(seconds) || seconds < 0) return dash;
  if (seconds < 1) return `${Math.round(seconds * 1000)} ms`;
  if (seconds < 10) return `${seconds.toFixed(1)} s`;
  const whole = Math.round(seconds);
  if (whole < 60) return `${whole} s`;
  if (whole < 3600) return `${Math.floor(whole / 60)} min ${whole % 60} s`;
  if (whole < 86400) return `${Math.floor(whole / 3600)} h ${Math.floor((whole % 3600) / 60)} min`;
  if (whole < 86400 * 999) return `${Math.floor(whole / 86400)} d ${Math.floor((whole % 86400) / 3600)} h`;
  return "years";
}

export function age(sinceMs, nowMs) {
  const seconds = Math.max(0, (nowMs - sinceMs) / 1000);
  if (seconds < 1) return "now";
  return `${seconds < 60 ? `${Math.floor(seconds)} s` : duration(seconds).replace(/ \d+ s$/, "")} ago`;
}

export function count(value) {
  return isNumber(value) ? value.toLocaleString("en-US").replaceAll(",", " ") : dash;
}

const pad = (value, width = 2) => String(value).padStart(width, "0");

export function utcTime(ms, withMilliseconds = false) {
  const date = new Date(ms);
  const text = `${pad(date.getUTCHours())}:${pad(date.getUTCMinutes())}:${pad(date.getUTCSeconds())}`;
  return withMilliseconds ? `${text}.${pad(date.getUTCMilliseconds(), 3)}` : text;
}

export function utcDateTime(ms, withMilliseconds = false) {
  const date = new Date(ms);
  const day = `${date.getUTCFullYear()}-${pad(date.getUTCMonth() + 1)}-${pad(date.getUTCDate())}`;
  return `${day} ${utcTime(ms, withMilliseconds)}`;
}

export function localDateTime(ms) {
  const date = new Date(ms);
  const day = `${date.getFullYear()}-${pad(date.getMonth() + 1)}-${pad(date.getDate())}`;
  return `${day} ${pad(date.getHours())}:${pad(date.getMinutes())}:${pad(date.getSeconds())}`;
}

export const localZone = Intl.DateTimeFormat().resolvedOptions().timeZone || "local";
