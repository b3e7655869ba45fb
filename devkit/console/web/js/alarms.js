// Alarms as they come, on a time line with the polls; with a tone and a notification of the desktop if wanted.
import {announce, card, clock, h, lazily, s} from './dom.js';
import {on, pointAt, state} from './stream.js';

const span = 300000;  // milliseconds on the time line
let tone, notice;

function beep() {
  const context = new AudioContext(), oscillator = context.createOscillator(), gain = context.createGain();
  gain.gain.setValueAtTime(0.12, context.currentTime);
  gain.gain.exponentialRampToValueAtTime(0.001, context.currentTime + 0.5);
  oscillator.frequency.value = 880;
  oscillator.connect(gain).connect(context.destination);
  oscillator.start();
  oscillator.stop(context.currentTime + 0.5);
  oscillator.onended = () => context.close();
}

function row(alarm, fresh) {
  const jump = h('button', {type: 'button', class: 'small', 'aria-label': `Show the log lines of ${alarm.title}, ${clock(alarm.t)}`,
    onclick: () => pointAt(alarm.t, 'alarm')}, 'lines');
  return h('li', {class: fresh ? 'fresh' : '', 'data-status': alarm.status}, h('time', {}, clock(alarm.t)), h('b', {}, alarm.title), jump,
    h('span', {class: 'record hint'}, `${alarm.raised} · index ${alarm.index}, "${alarm.name}", status ${alarm.status}`));
}

function makeList() {
  const list = h('ol', {class: 'alarms', id: 'alarms', tabIndex: 0, 'aria-label': 'Alarms, the newest first'});
  const none = h('p', {class: 'hint'}, 'No alarm yet.');
  let complete = false;
  on('hello', () => {
    list.replaceChildren();
    complete = none.hidden = false;
  });
  on('ready', () => { complete = true; });
  on('alarms', (items) => {
    none.hidden = true;
    for (const alarm of items) list.prepend(row(alarm, complete));
    while (list.children.length > 300) list.lastChild.remove();
    if (!complete) return;
    announce(`Alarm: ${items.at(-1).title}`);
    if (tone.checked) beep();
    if (notice.checked) for (const alarm of items) new Notification(alarm.title, {body: alarm.raised, tag: `alarm-${alarm.n}`});
  });
  return [none, list];
}

function drawTimeline(svg) {
  const wide = svg.clientWidth || 600;
  svg.setAttribute('viewBox', `0 0 ${wide} 56`);
  const until = Date.now(), from = until - span, x = (t) => ((t - from) / span) * wide;
  const inside = (item) => item.t >= from;
  const marks = [];
  for (let minute = Math.ceil(from / 60000) * 60000; minute < until; minute += 60000)
    marks.push(s('text', {x: x(minute), y: 52}, clock(minute).slice(0, 5)));
  for (const request of state.requests.filter((each) => inside(each) && each.target.includes('Notification')))
    marks.push(s('rect', {class: 'poll', x: x(request.t), y: 26, width: 2, height: 12}));
  for (const mark of state.marks.filter(inside)) marks.push(s('rect', {class: 'reboot', x: x(mark.t), y: 6, width: 3, height: 32}, s('title', {}, mark.text)));
  for (const alarm of state.alarms.filter(inside)) {
    const dot = s('circle', {class: 'alarm', cx: x(alarm.t), cy: 16, r: 5}, s('title', {}, `${alarm.title}, ${clock(alarm.t)}`));
    dot.addEventListener('click', () => pointAt(alarm.t, 'timeline'));
    marks.push(dot);
  }
  if (state.moment >= from) marks.push(s('line', {class: 'moment', x1: x(state.moment), x2: x(state.moment), y1: 0, y2: 40}));
  svg.replaceChildren(...marks);
  svg.setAttribute('aria-label', `The last five minutes: ${state.alarms.filter(inside).length} alarms, ${state.requests.filter((each) => inside(each) && each.target.includes('Notification')).length} polls, ${state.marks.filter(inside).length} other marks`);
}

function makeTimeline() {
  const svg = s('svg', {role: 'img', 'aria-label': 'Time line'});
  const draw = lazily(() => drawTimeline(svg));
  for (const name of ['samples', 'alarms', 'marks', 'moment']) on(name, draw);
  return h('div', {class: 'timeline'}, svg);
}

// A wish that stays through a reload.
function wish(name, ask = () => true) {
  const key = `desk.${name}`;
  const box = h('input', {type: 'checkbox', checked: Boolean(localStorage.getItem(key)), onchange: async () => {
    if (box.checked) box.checked = await ask();
    localStorage.setItem(key, box.checked ? '1' : '');
  }});
  return box;
}

export function alarmCards() {
  tone = wish('tone');
  notice = wish('notify', async () => (await Notification.requestPermission()) === 'granted');
  const element = card('Alarms', makeTimeline(), ...makeList());
  element.querySelector('header').append(h('div', {class: 'row hint'}, h('label', {class: 'row'}, tone, 'tone'), h('label', {class: 'row'}, notice, 'notify')));
  return [element];
}
