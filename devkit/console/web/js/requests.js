// The requests that the camera got, as a waterfall: time in the agent's queue, transfer, pause until the next.
import {card, clock, duration, h, lazily, s} from './dom.js';
import {on, pointAt, state} from './stream.js';

const shown = 120, near = 200, nearest = 5000;  // rows; milliseconds around a moment
const waits = new Map();  // seq: milliseconds in the queue
let queued = [], performed = [];

// The log tells when a request was queued and when its turn came; the camera's next request is that one.
function read(lines) {
  for (const {t, text} of lines) {
    if (text === 'curlmgr_perform_curl called') queued.push(t);
    if (text.startsWith('curlmgr: performing curl, name = ') && queued.length) performed.push({t, wait: t - queued.shift()});
  }
  if (performed.length > 50) performed = performed.slice(-50);
  if (queued.length > 80) queued = [];
}

function match(requests) {
  for (const request of requests) {
    if (waits.has(request.seq)) continue;
    const at = performed.findIndex(({t}) => Math.abs(request.t - t) < 60);
    if (at >= 0) waits.set(request.seq, performed.splice(at, 1)[0].wait);
  }
}

// A bar of three parts, on a scale of the square root: a poll takes 1 ms, a pause 5 s.
function bar(request, pause) {
  const scale = (ms) => Math.sqrt(Math.min(Math.max(ms ?? 0, 0), 10000)) * 2.2;
  let x = 0;
  const parts = [['wait', waits.get(request.seq)], [request.fault ? 'faulty' : 'transfer', Math.max(request.ms ?? 0, 1)], ['pause', pause]];
  return s('svg', {viewBox: '0 0 400 12', preserveAspectRatio: 'xMinYMid meet', 'aria-hidden': 'true'}, ...parts.filter(([, ms]) => ms > 0).map(([name, ms]) => {
    const rect = s('rect', {class: name, x, y: name === 'pause' ? 5 : 1, width: Math.max(scale(ms), 2), height: name === 'pause' ? 2 : 10, rx: 1});
    x += Math.max(scale(ms), 2);
    return rect;
  }));
}

// Around the moment that somebody pointed at; where nothing is so close, the closest.
function atMoment(requests) {
  const away = (request) => Math.abs(request.t - (state.moment ?? 0));
  const close = requests.filter((each) => away(each) <= near);
  if (close.length || !requests.length) return new Set(close);
  const [best] = [...requests].sort((a, b) => away(a) - away(b));
  return new Set(away(best) <= nearest ? [best] : []);
}

function row(request, next, here) {
  const pause = next ? next.t - request.t - (request.ms ?? 0) : 0;
  const wait = waits.get(request.seq);
  const text = `${wait > 1 ? `${duration(wait)} + ` : ''}${duration(request.ms)}`;
  const element = h('button', {type: 'button', class: 'wf-row', 'data-seq': request.seq, title: request.body, onclick: () => pointAt(request.t, 'requests')},
    h('time', {}, clock(request.t, true).slice(0, -1)), h('span', {class: 'target'}, `${request.method} ${request.target}${request.status === 200 ? '' : ` → ${request.status ?? (request.ms === null ? 'in progress' : 'no answer')}`}`),
    bar(request, pause), h('span', {class: 'number'}, text));
  element.classList.toggle('moment', here);
  return element;
}

export function makeRequests(panel) {
  const list = h('div', {class: 'waterfall', id: 'waterfall', role: 'group', 'aria-label': 'Requests, the newest first'});
  const choice = h('select', {'aria-label': 'Only requests to', onchange: () => draw()}, h('option', {value: ''}, 'all'));
  const known = new Set();
  let pointed = false;  // from elsewhere, at a moment whose rows are yet to be brought into sight
  const draw = lazily(() => {
    if (panel.hidden) return;
    const chosen = state.requests.filter((each) => !choice.value || each.endpoint === choice.value), here = atMoment(chosen);
    const rows = chosen.filter((each, i) => i >= chosen.length - shown || here.has(each));
    list.replaceChildren(...rows.map((each, i) => row(each, rows[i + 1], here.has(each))).reverse());
    if (pointed) list.querySelector('.moment')?.scrollIntoView({block: 'nearest'});
    pointed = pointed && !here.size;
  });
  on('log', read);
  on('requests', (items) => {
    match(items);
    for (const {endpoint} of items) {
      if (!known.has(endpoint)) choice.append(h('option', {value: endpoint}, endpoint));
      known.add(endpoint);
    }
    draw();
  });
  on('moment', ({from}) => {
    pointed = from !== 'requests';
    draw();
  });
  window.addEventListener('hashchange', draw);
  const legend = h('div', {class: 'row hint'}, [['wait', 'in the queue'], ['transfer', 'transfer'], ['faulty', 'with a fault'], ['pause', 'until the next']].map(([name, text]) => h('span', {class: 'key'}, h('i', {class: name}), text)));
  const element = card('Requests to the camera', legend, list);
  element.classList.add('wide');
  element.querySelector('header').append(choice);
  panel.append(element);
}
