// Upgrade: how it is to end, its progress through the reboot, the notices and the marker.
import {call, camera, inWords} from './api.js';
import {card, clock, field, h, lazily} from './dom.js';
import {on, state} from './stream.js';

const outcomes = [['success', 'succeeds'], ['fail_download', 'fails while downloading'], ['fail_upgrade', 'restarts with the old version'], ['stuck', 'gets stuck half way']];
const notices = {17: 'Notice 17: the download failed', 18: 'Notice 18: the upgrade begins', 19: 'Notice 19: it succeeded', 20: 'Notice 20: it failed'};
const remembered = 'desk.upgrade';
let {began = null, seen = {}} = JSON.parse(sessionStorage.getItem(remembered)) ?? {};
const remember = () => sessionStorage.setItem(remembered, JSON.stringify({began, seen}));

// What has happened since the order, in the order in which it must.
function steps() {
  const notice = (number) => state.alarms.find((alarm) => alarm.status === number && alarm.t >= began)?.t;
  const reboot = state.marks.find((mark) => mark.kind === 'reboot' && mark.t >= began)?.t;
  const rows = [['Ordered', began], ['The camera downloads', seen.Downloading], ['The marker is written', seen.marker], [notices[18], notice(18)],
    ['The camera upgrades', seen.Upgrading], ['The device reboots', reboot]];
  if (notice(17)) rows.push([notices[17], notice(17), true]);
  rows.push(notice(20) ? [notices[20], notice(20), true] : [notices[19], notice(19)]);
  return rows;
}

function look() {
  if (!began) return;
  const now = state.camera?.status?.FwUpgradeStatus;
  if (now && now !== 'Idle') seen[now] ??= Date.now();
  if (state.device?.marker) seen.marker ??= Date.now();
  remember();
}

export function makeUpgrade(panel) {
  const choice = h('select', {id: 'outcome'}, outcomes.map(([value, text]) => h('option', {value}, text)));
  const stepTime = h('input', {type: 'number', min: 100, step: 100, value: 3000, id: 'step-ms'});
  const answer = h('p', {class: 'answer', 'aria-live': 'polite', id: 'upgrade-answer'});
  const progress = h('progress', {max: 100, value: 0, 'aria-label': 'Download'}), said = h('p', {class: 'number', id: 'upgrade-now'});
  const list = h('ol', {class: 'steps', id: 'upgrade-steps'});
  const start = h('button', {type: 'button', class: 'primary', id: 'upgrade-start', onclick: async () => {
    await camera('PATCH', '/config', {upgrade: {steps: 4, step_ms: Number(stepTime.value), outcome: choice.value}});
    began = Date.now();
    seen = {};
    draw();
    try {
      const got = await call('set_device_param', ['doOTA', '1']);
      answer.textContent = got.result === 0 ? `ordered: ${got.requests.at(-1) ?? ''}` : inWords(got.result);
    } catch (problem) {
      answer.textContent = problem.message;
    }
  }}, 'Upgrade');
  const draw = lazily(() => {
    look();
    const status = state.camera?.status ?? {};
    progress.value = Number(status.FwDownloadProgress ?? 0);
    said.textContent = `${status.FwUpgradeStatus ?? '–'}, ${status.FwDownloadProgress ?? 0} %. Runs ${state.camera?.config?.fwver ?? '–'}, on offer ${status.NewFirmwareVersion ?? '–'}. Marker ${state.device?.marker ? 'there' : 'not there'}.`;
    list.replaceChildren(...(began ? steps() : []).map(([text, time, failed]) => h('li', {class: failed ? 'failed' : time ? 'done' : ''}, text, time ? h('time', {}, clock(time)) : '')));
  });
  for (const name of ['camera', 'device', 'alarms', 'marks']) on(name, draw);
  panel.append(card('Firmware upgrade', field('It', choice), field('Milliseconds to a step', stepTime), h('div', {class: 'row'}, start), answer),
    card('Progress', progress, said, list, h('p', {class: 'hint'}, 'An upgrade needs the reserve that the agent keeps on the card, and uses it up: after one that failed, reboot or format the card. One that is stuck ends when the camera restarts (Trouble).')));
}
