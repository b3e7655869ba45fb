// A small line plot: the newest values of a series over time, with marks. Plain SVG.
import {h, s} from './dom.js';

const wide = 300, high = 60, span = 300000;  // milliseconds shown

function path(points, from, until, low, top) {
  const x = (t) => ((t - from) / (until - from)) * wide;
  const y = (v) => high - 4 - ((v - low) / (top - low || 1)) * (high - 8);
  return points.map(([t, v], i) => `${i ? 'L' : 'M'}${x(t).toFixed(1)} ${y(v).toFixed(1)}`).join('');
}

// plot('Frames', {unit: ' /s', digits: 1, tall: true, floor: 0}); .draw(points, marks): points are [time, value].
export function plot(title, {unit = '', digits = 0, tall = false, floor = null} = {}) {
  const now = h('b', {}, '–'), under = s('path', {class: 'under'}), line = s('path');
  const marks = s('g');
  const svg = s('svg', {viewBox: `0 0 ${wide} ${high}`, preserveAspectRatio: 'none', role: 'img'}, under, line, marks);
  const range = h('span');
  const element = h('figure', {class: tall ? 'plot tall' : 'plot'}, h('figcaption', {}, h('span', {}, title, ' ', range), now), svg);
  const draw = (points, reboots = []) => {
    const known = points.filter(([, value]) => Number.isFinite(value));
    const until = known.at(-1)?.[0] ?? 0, from = Math.max(until - span, known[0]?.[0] ?? 0);
    const shown = known.filter(([t]) => t >= from);
    const last = shown.at(-1)?.[1];
    now.textContent = last === undefined ? '–' : `${last.toFixed(digits)}${unit}`;
    svg.setAttribute('aria-label', `${title}: ${now.textContent}`);
    if (shown.length < 2) return line.setAttribute('d', '');
    const every = shown.map(([, value]) => value);
    const low = Math.min(floor ?? Infinity, ...every), top = Math.max(...every, low + 1);
    const d = path(shown, from, until, low, top);
    line.setAttribute('d', d);
    under.setAttribute('d', `${d}L${wide} ${high}L0 ${high}Z`);
    range.textContent = tall ? `${low.toFixed(digits)} to ${Math.max(...every).toFixed(digits)}` : '';
    marks.replaceChildren(...reboots.filter((mark) => mark.t >= from && mark.t <= until).map((mark) => {
      const x = ((mark.t - from) / (until - from)) * wide;
      return s('line', {class: 'mark', x1: x, x2: x, y1: 0, y2: high});
    }));
    return undefined;
  };
  return {element, draw};
}

// How much a counter of the samples grew, a second; a counter that began anew gives nothing.
export function rate(samples, name, factor = 1) {
  const points = [];
  for (let i = 1; i < samples.length; i++) {
    const seconds = (samples[i].t - samples[i - 1].t) / 1000, grown = samples[i][name] - samples[i - 1][name];
    if (seconds > 0 && grown >= 0) points.push([samples[i].t, (grown / seconds) * factor]);
  }
  return points;
}

export const series = (samples, name, factor = 1) => samples.map((sample) => [sample.t, sample[name] * factor]);
