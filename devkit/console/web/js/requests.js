// The requests that the camera got, as a waterfall: time in the agent's queue, transfer, pause until the next.
import {card, clock, duration, h, lazily, s} from './dom.js';
import {on, pointAt, state} from './stream.js';

const shown = 120, near = 200;
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

function row(request, next) {
  const pause = next ? next.t - request.t - (request.ms ?? 0) : 0;
  const wait = waits.get(request.seq);
  const text = `${wait > 1 ? `${duration(wait)} + ` : ''}${duration(request.ms)}`;
  const element = h('button', {type: 'button', class: 'wf-row', 'data-seq': request.seq, title: request.body, onclick: () => pointAt(request.t, 'requests')},
    h('time', {}, clock(request.t, true).slice(0, -1)), h('span', {class: 'target'}, `${request.method} ${request.target}${request.status === 200 ? '' : ` → ${request.status ?? (request.ms === null ? 'in progress' : 'no answer')}`}`),
    bar(request, pause), h('span', {class: 'number'}, text));
  element.classList.toggle('moment', Math.abs(request.t - (state.moment ?? 0)) <= near);
  return element;
}

export function makeRequests(panel) {
  const list = h('div', {class: 'waterfall', id: 'waterfall', role: 'group', 'aria-label': 'Requests, the newest first'});
  const choice = h('select', {'aria-label': 'Only requests to', onchange: () => draw()}, h('option', {value: ''}, 'all'));
  const known = new Set();
  const draw = lazily(() => {
    if (panel.hidden) return;
    const rows = state.requests.filter((each) => !choice.value || each.endpoint === choice.value).slice(-shown);
    list.replaceChildren(...rows.map((each, i) => row(each, rows[i + 1])).reverse());
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
  on('moment', draw);
  window.addEventListener('hashchange', draw);
  const legend = h('div', {class: 'row hint'}, [['wait', 'in the queue'], ['transfer', 'transfer'], ['faulty', 'with a fault'], ['pause', 'until the next']].map(([name, text]) => h('span', {class: 'key'}, h('i', {class: name}), text)));
  const element = card('Requests to the camera', legend, list);
  element.classList.add('wide');
  element.querySelector('header').append(choice);
  panel.append(element);
}
