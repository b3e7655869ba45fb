// The agent's log: live, folded by poll cycle, filtered, coloured by module; a click explains a line and marks its moment.
import {announce, card, clock, h, lazily} from './dom.js';
import {entriesOf, loadReference, moduleOf, wantsALook} from './explain.js';
import {on, pointAt, state} from './stream.js';

const cyclesShown = 60;
const near = 200, nearest = 2000;  // milliseconds around a moment: its lines; its own line, which a busy machine stamps late
const own = {alarm: 'SendAlarmData!! index:', timeline: 'SendAlarmData!! index:', requests: 'curlmgr: performing curl'};
const hues = ['#3b82c4', '#2f9e6e', '#b5792b', '#8a63c9', '#c2557f', '#5b8f3a', '#3a9aa8', '#a3584d', '#7a7f2c', '#6570c4'];
const modules = new Map();
let box, explained, search, choice, follow, current, cycle, cycles = [], known = false;  // known: the reference is here

function hueOf(module) {
  if (!modules.has(module)) {
    modules.set(module, hues[modules.size % hues.length]);
    choice.append(h('option', {value: module}, module));
  }
  return modules.get(module);
}

const away = (line) => Math.abs(Number(line.dataset.time) - state.moment);  // NaN where nobody pointed at a moment
const filtered = () => Boolean(choice.value || search.value);
const fits = (line) => (!choice.value || line.dataset.module === choice.value)
  && (!search.value || line.dataset.text.toLowerCase().includes(search.value.toLowerCase()));

function beginCycle(title, time) {
  cycle = {count: 0, alarms: 0, title, time, summary: h('summary'), lines: h('div')};
  cycle.element = h('details', {open: true}, cycle.summary, cycle.lines);
  // Of the cycles before, the newest two stay open; one that somebody opened stays open too, and all where lines are looked for.
  if (!filtered()) for (const earlier of cycles.slice(-3, -1)) if (!earlier.touched) earlier.element.open = false;
  const made = cycle;
  cycle.summary.addEventListener('click', () => { made.touched = true; });
  cycles.push(cycle);
  box.append(cycle.element);
  while (cycles.length > cyclesShown) cycles.shift().element.remove();
}

function showSummary(each) {
  each.summary.replaceChildren(h('b', {}, each.title), ` ${clock(each.time)} · ${each.count} lines${each.alarms ? ` · ${each.alarms} alarm${each.alarms > 1 ? 's' : ''}` : ''}`);
}

// What the reference tells of a line, as far as it is here.
function label(line) {
  const {text} = line.dataset;
  line.dataset.module = moduleOf(text);
  line.style.setProperty('--hue', hueOf(line.dataset.module));
  line.classList.toggle('look', wantsALook(text));
  line.hidden = !fits(line);
}

function addLine({t, text}) {
  if (text.trim() === '') return;
  if (/Try log VeloAgent init time/.test(text)) beginCycle('Start', t);
  else if (/\(polling\) beginning of a time/.test(text) || !cycle) beginCycle(cycle ? 'Poll' : 'Log', t);
  const line = h('div', {class: 'line'}, h('time', {}, clock(t, true).slice(0, -2)), h('span', {}, text));
  Object.assign(line.dataset, {text, time: t});
  label(line);
  line.classList.toggle('moment', away(line) <= near);
  cycle.count++;
  if (/SendAlarmData!! index:/.test(text)) cycle.alarms++;
  cycle.lines.append(line);
}

function take(lines) {
  const atEnd = follow.checked;
  const changed = new Set();
  for (const line of lines) {
    addLine(line);
    if (cycle) changed.add(cycle);
  }
  for (const each of changed) showSummary(each);
  if (filtered()) showMatchesSoon();
  if (atEnd) toEnd();
}

const toEnd = lazily(() => { box.scrollTop = box.scrollHeight; });

function showMatches() {
  for (const each of cycles) each.element.hidden = filtered() && !each.lines.querySelector('.line:not([hidden])');
}

const showMatchesSoon = lazily(showMatches);

function refilter() {
  for (const line of box.querySelectorAll('.line')) line.hidden = !fits(line);
  showMatches();
  if (filtered()) for (const each of cycles) each.element.open = true;
}

function explain(line) {
  const entries = entriesOf(line.dataset.text);
  explained.replaceChildren(h('p', {class: 'mono'}, line.dataset.text.slice(0, 200)));
  if (!entries.length) explained.append(h('p', {class: 'hint'}, known ? 'This line has no entry in docs/LOG.md: mostly what the camera or libcurl said.' : 'docs/LOG.md is on its way …'));
  for (const entry of entries) {
    explained.append(h('dl', {}, h('dt', {}, 'From'), h('dd', {}, entry.file || 'elsewhere'), h('dt', {}, 'When'), h('dd', {}, entry.when),
      h('dt', {}, 'Means'), h('dd', {}, entry.means), h('dt', {}, 'Do'), h('dd', {}, entry.do)));
  }
}

function choose(line, mark = true) {
  if (!line) return;
  current?.classList.remove('current');
  current = line;
  line.classList.add('current');
  follow.checked = false;
  explain(line);
  line.scrollIntoView({block: 'nearest'});  // the explanation takes room from the lines
  if (mark) pointAt(Number(line.dataset.time), 'log');
}

function move(event) {
  const step = {ArrowDown: 1, ArrowUp: -1, PageDown: 15, PageUp: -15}[event.key];
  if (!step || event.target !== box) return;
  event.preventDefault();
  const lines = [...box.querySelectorAll('details[open] .line:not([hidden])')];
  const at = current ? lines.indexOf(current) : lines.length;
  const next = lines[Math.min(Math.max(at + step, 0), lines.length - 1)];
  choose(next);
  next?.scrollIntoView({block: 'nearest'});
}

// The line that is closest to the moment, and not further away.
const closest = (lines, most) => lines.filter((line) => away(line) <= most).reduce((best, line) => (best && away(best) <= away(line) ? best : line), null);

// Marks the lines around a moment; goes there where another part points.
function markMoment({time, from}) {
  const lines = [...box.querySelectorAll('.line')];
  for (const line of lines) line.classList.toggle('moment', away(line) <= near);
  if (from === 'log') return;
  const seen = lines.filter((line) => !line.hidden);
  const first = closest(seen.filter((line) => line.dataset.text.includes(own[from])), nearest) ?? closest(seen, near);
  if (!first) return;
  first.classList.add('moment');
  follow.checked = false;
  first.closest('details').open = true;
  first.scrollIntoView({block: 'center'});
  announce(`The log shows ${clock(time)}`);
}

function begin() {
  box.replaceChildren();
  cycles = [];
  cycle = current = null;
}

export function makeLog(place) {
  search = h('input', {type: 'search', placeholder: 'Filter', 'aria-label': 'Filter the log by text', oninput: lazily(refilter)});
  choice = h('select', {'aria-label': 'Filter the log by module', onchange: refilter}, h('option', {value: ''}, 'all modules'));
  follow = h('input', {type: 'checkbox', checked: true, onchange: () => { if (follow.checked) box.scrollTop = box.scrollHeight; }});
  box = h('div', {class: 'log', role: 'log', tabIndex: 0, 'aria-label': 'Lines; arrow keys choose one', 'aria-live': 'off', onkeydown: move,
    onclick: (event) => choose(event.target.closest('.line'))});
  explained = h('div', {class: 'explain', 'aria-live': 'polite', role: 'region', 'aria-label': 'What the chosen line means', tabIndex: 0},
    h('p', {class: 'hint'}, 'Click a line: what it means, and the same moment elsewhere.'));
  const all = h('button', {type: 'button', class: 'small', onclick: () => {
    const folded = cycles.some((each) => each.element.open);
    for (const each of cycles) each.element.open = !folded;
  }}, 'Fold');
  const element = card('Log', h('div', {class: 'row'}, search, choice, h('label', {class: 'row'}, follow, 'follow'), all), box, explained);
  element.classList.add('log-card');
  place.append(element);
  on('hello', begin);
  on('log', take);
  on('moment', markMoment);
  loadReference().then(() => {
    known = true;
    for (const line of box.querySelectorAll('.line')) label(line);
    showMatches();
    if (current) explain(current);
  });
}
