// Process: what the agent's process uses over the run, with reboots and restarts as marks.
import {card, clock, h, lazily} from './dom.js';
import {plot, rate, series} from './plot.js';
import {on, state} from './stream.js';

let queue = [];

// The queue's length stands in the log whenever something is put into it.
function read(lines) {
  for (const {t, text} of lines) {
    const found = /^(?:high|default) size: (\d+)/.exec(text);
    if (found) queue.push([t, Number(found[1])]);
  }
  queue = queue.slice(-1500);
}

// Requests in the minute before each sample.
function perMinute(samples) {
  return samples.map((sample, i) => {
    const before = samples[Math.max(0, i - 60)];
    const minutes = (sample.t - before.t) / 60000;
    return [sample.t, minutes > 0.3 ? (sample.requests - before.requests) / minutes : NaN];
  });
}

export function makeProcess(panel) {
  const plots = {
    rss: plot('Memory', {unit: ' MB', digits: 1, tall: true}), threads: plot('Threads', {tall: true, floor: 0}),
    files: plot('Descriptors', {tall: true, floor: 0}), queue: plot('Queue', {tall: true, floor: 0}),
    minute: plot('Requests a minute', {tall: true, floor: 0}), frames: plot('Pictures', {unit: ' /s', tall: true, floor: 0}),
  };
  const marks = h('ol', {class: 'steps', id: 'marks'}), none = h('p', {class: 'hint'}, 'None yet.');
  const draw = lazily(() => {
    if (panel.hidden) return;
    const {samples} = state, reboots = state.marks;
    plots.rss.draw(samples.map((sample) => [sample.t, (sample.rss_kb - sample.shared_kb) / 1024]), reboots);
    plots.threads.draw(series(samples, 'threads'), reboots);
    plots.files.draw(series(samples, 'descriptors'), reboots);
    plots.queue.draw(queue, reboots);
    plots.minute.draw(perMinute(samples), reboots);
    plots.frames.draw(rate(samples, 'video'), reboots);
    none.hidden = reboots.length > 0;
    marks.replaceChildren(...reboots.slice(-30).reverse().map((mark) => h('li', {class: mark.kind === 'error' ? 'failed' : 'done'}, mark.text, h('time', {}, clock(mark.t)))));
  });
  on('hello', () => { queue = []; });
  on('log', read);
  for (const name of ['samples', 'marks']) on(name, draw);
  window.addEventListener('hashchange', draw);
  const element = card('The agent’s process', h('div', {class: 'sparks large'}, Object.values(plots).map((each) => each.element)),
    h('p', {class: 'hint'}, 'The last five minutes. Memory is the resident set without the tap that this page watches through; a thread and a descriptor come and go with each question to the SDK stand-in.'));
  element.classList.add('wide');
  panel.append(element, Object.assign(card('Reboots, restarts, scenarios', none, marks), {className: 'card wide'}));
}
