// Numbers and moments as people read them. Input is SI: seconds, hertz, ratios; moments are milliseconds since 1970.

export const dash = "–";
const minus = "−";

function isNumber(value) {
  return typeof value === "number" && Number.isFinite(value);
}

export function fixed(value, digits) {
  if (!isNumber(value)) {
    return dash;
  }
  const text = Math.abs(value).toFixed(digits);
  return value < 0 && Number(text) !== 0 ? minus + text : text;
}

function signed(value, digits) {
  const text = fixed(value, digits);
  return isNumber(value) && value > 0 && Number(text) !== 0 ? `+${text}` : text;
}

// As many decimals as the uncertainty bears out: two digits of it at most.
function digitsFor(stderr, most) {
  if (!isNumber(stderr) || stderr <= 0) {
    return most;
  }
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
  if (!isNumber(seconds)) {
    return dash;
  }
  const size = Math.abs(seconds);
  const [unit, name, digits] = timeUnits.find(([least]) => size >= least) ?? timeUnits[3];
  const value = seconds / unit;
  const shown = Math.max(0, digits - (Math.abs(value) >= 100 ? 1 : 0));
  return `${sign ? signed(value, shown) : fixed(value, shown)} ${name}`;
}

// Always microseconds, and without the unit, so that a column of them compares.
export function microsecondsFigure(seconds) {
  if (!isNumber(seconds)) {
    return dash;
  }
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
  if (!isNumber(ratio)) {
    return dash;
  }
  const value = ratio * 1e9;
  const size = Math.abs(value);
  if (size >= 1e5) {
    return `${signed(value / 1e3, 1)} ppm`;
  }
  return `${signed(value, size < 10 ? 2 : size < 1000 ? 1 : 0)} ppb`;
}

export function ppbError(ratio) {
  return ppb(Math.abs(ratio)).replace("+", "");
}

// How long something lasts or is away, in words that get coarser with length.
export function duration(seconds) {
  if (!isNumber(seconds) || seconds < 0) {
    return dash;
  }
  if (seconds < 1) {
    return `${Math.round(seconds * 1000)} ms`;
  }
  return seconds < 9.95 ? `${seconds.toFixed(1)} s` : wholeDuration(seconds);
}

const durationUnits = [
  [86400, "d", 3600, "h"],
  [3600, "h", 60, "min"],
  [60, "min", 1, "s"],
];

// Two units at most, and the smaller one only when it says something.
function wholeDuration(seconds) {
  if (seconds >= 86400 * 999) {
    return "years";
  }
  const whole = Math.round(seconds);
  const found = durationUnits.find(([size]) => whole >= size);
  if (!found) {
    return `${whole} s`;
  }
  const [size, name, smallSize, smallName] = found;
  const small = Math.floor((whole % size) / smallSize);
  return `${Math.floor(whole / size)} ${name}${small > 0 ? ` ${small} ${smallName}` : ""}`;
}

const steps = [1, 2, 5, 10, 20, 30, 60, 120, 300, 600, 1200, 1800, 3600, 7200, 10800, 21600, 43200, 86400, 432000];

// Seconds to come, as exactly as they are known.
function roundTime(seconds, error) {
  const doubt = Math.max(isNumber(error) ? error : 0, seconds / 200, 0.5);
  const step = steps.find((one) => one >= doubt) ?? 86400 * 30;
  return { rounded: Math.round(seconds / step) * step, step, isRough: doubt > seconds / 100 };
}

// When something will be, as exactly as is known: "in about 10 min", and never digits that the error does not bear out.
export function countdown(seconds, error) {
  if (!isNumber(seconds) || seconds < 0) {
    return dash;
  }
  const { rounded, step, isRough } = roundTime(seconds, error);
  return rounded === 0 ? `within ${wholeDuration(step)}` : `in ${isRough ? "about " : ""}${wholeDuration(rounded)}`;
}

// How often something is, likewise: "every 12 min".
export function period(seconds, error) {
  if (!isNumber(seconds) || seconds <= 0) {
    return dash;
  }
  const { rounded, step, isRough } = roundTime(seconds, error);
  return rounded === 0
    ? `more than once in ${wholeDuration(step)}`
    : `${isRough ? "about " : ""}every ${wholeDuration(rounded)}`;
}

export function age(sinceMs, nowMs) {
  const seconds = Math.max(0, (nowMs - sinceMs) / 1000);
  return seconds < 1 ? "now" : `${longAge(seconds)} ago`;
}

// How long something has been so: whole units that do not tick once a second for longer than a minute.
export function longAge(seconds) {
  return seconds < 60 ? `${Math.floor(seconds)} s` : wholeDuration(seconds).replace(/ \d+ s$/, "");
}

export function count(value) {
  return isNumber(value) ? value.toLocaleString("en-US").replaceAll(",", " ") : dash;
}

// "1 field", "2 fields"
export function counted(value, one, many = `${one}s`) {
  return `${count(value)} ${value === 1 ? one : many}`;
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

// "since 02:46:12 UTC", with the day when it was another one; nothing of it is broken over two lines.
export function since(ms, nowMs) {
  const [day, time] = utcDateTime(ms).replaceAll("-", "\u2011").split(" ");
  const today = utcDateTime(nowMs).replaceAll("-", "\u2011").split(" ")[0];
  return `since\u00a0${day === today ? "" : `${day}\u00a0`}${time}\u00a0UTC`;
}

export function localDateTime(ms) {
  const date = new Date(ms);
  const day = `${date.getFullYear()}-${pad(date.getMonth() + 1)}-${pad(date.getDate())}`;
  return `${day} ${pad(date.getHours())}:${pad(date.getMinutes())}:${pad(date.getSeconds())}`;
}

export const localZone = Intl.DateTimeFormat().resolvedOptions().timeZone || "local";

const longestName = 28;

// "IN_04 Camera B": who a stream is, for people.
export function label(stream) {
  const letters = Array.from(stream.name ?? "");
  const name = letters.length > longestName ? `${letters.slice(0, longestName - 1).join("")}…` : letters.join("");
  return name ? `${stream.id} ${name}` : stream.id;
}
