// The page: its parts, the tabs, the line at the top.
import {h, lazily} from './dom.js';
import {makeDevice} from './device.js';
import {makeLive} from './live.js';
import {makeLog} from './log.js';
import {makeProcess} from './process.js';
import {makeRequests} from './requests.js';
import {makeTalk} from './talk.js';
import {makeTrouble} from './trouble.js';
import {makeUpgrade} from './upgrade.js';
import {connect, on, state} from './stream.js';

const parts = [['live', 'Live', makeLive], ['device', 'Device', makeDevice], ['talk', 'Talk', makeTalk], ['upgrade', 'Upgrade', makeUpgrade],
  ['trouble', 'Trouble', makeTrouble], ['requests', 'Requests', makeRequests], ['process', 'Process', makeProcess]];
const tabs = document.getElementById('tabs'), main = document.getElementById('main');

function select(id) {
  const chosen = parts.some(([each]) => each === id) ? id : 'live';
  for (const tab of tabs.children) {
    const here = tab.dataset.part === chosen;
    tab.setAttribute('aria-selected', here);
    tab.tabIndex = here ? 0 : -1;
    document.getElementById(`part-${tab.dataset.part}`).hidden = !here;
  }
}

// Arrow keys go from tab to tab, as everywhere.
function moveTab(event) {
  const step = {ArrowRight: 1, ArrowLeft: -1}[event.key];
  if (!step) return;
  const at = parts.findIndex(([id]) => id === event.target.dataset.part);
  const next = tabs.children[(at + step + parts.length) % parts.length];
  location.hash = next.dataset.part;
  next.focus();
}

for (const [id, title, make] of parts) {
  tabs.append(h('button', {type: 'button', role: 'tab', id: `tab-${id}`, 'aria-controls': `part-${id}`, 'data-part': id,
    onclick: () => { location.hash = id; }}, title));
  const panel = h('div', {class: 'panel two', role: 'tabpanel', id: `part-${id}`, 'aria-labelledby': `tab-${id}`, hidden: true});
  main.append(panel);
  make(panel);
}
tabs.addEventListener('keydown', moveTab);
window.addEventListener('hashchange', () => select(location.hash.slice(1)));
select(location.hash.slice(1));
makeLog(document.getElementById('log-side'));

// --- The line at the top.

let doing = 'starting';
const told = [[/Try log VeloAgent init time/, 'starting'], [/login failed, waiting|\(getSessionKey\) failed, waiting/, 'waiting to log in'],
  [/ failed\. login\.\.\./, 'logging in again'], [/\(Polling\) end of a time/, 'polling'], [/supervise: the agent rebooted/, 'rebooting']];
function read(lines) {
  for (const {text} of lines) for (const [pattern, word] of told) if (pattern.test(text)) doing = word;
}

const pill = document.getElementById('agent-state'), facts = document.getElementById('facts');
const fact = (name, value) => h('div', {}, h('dt', {}, name), h('dd', {}, String(value)));
const draw = lazily(() => {
  const text = !state.open ? 'the desk is away' : !state.sdk ? `agent away, ${doing}` : doing;
  if (pill.textContent !== text) pill.textContent = text;
  pill.className = `pill ${!state.open ? 'bad' : text === 'polling' ? 'good' : ''}`;
  facts.replaceChildren(fact('alarms', state.alarms.length), fact('requests', state.camera?.requests_total ?? '–'),
    fact('reboots', state.device?.reboots ?? '–'), fact('troubles', (state.faults ?? []).length + (state.camera?.network === 'up' ? 0 : 1)),
    fact('firmware', state.camera?.config?.fwver ?? '–'));
});
on('log', read);
for (const name of ['open', 'sdk', 'camera', 'alarms', 'device', 'faults', 'log']) on(name, draw);

// --- Light or dark.

const root = document.documentElement;
root.dataset.theme = localStorage.getItem('desk.theme') ?? '';
document.getElementById('theme').addEventListener('click', () => {
  const dark = root.dataset.theme === 'dark' || (!root.dataset.theme && matchMedia('(prefers-color-scheme: dark)').matches);
  root.dataset.theme = dark ? 'light' : 'dark';
  localStorage.setItem('desk.theme', root.dataset.theme);
});

connect();
