// Recordings on the card, the photo and its thumbnail.
import {call, inWords} from './api.js';
import {bytes, card, h} from './dom.js';
import {shown} from './device.js';
import {on} from './stream.js';

function makeRecordings() {
  const answer = h('p', {class: 'answer', 'aria-live': 'polite', id: 'record-answer'});
  const seconds = h('input', {type: 'number', min: 1, value: 25, 'aria-label': 'Seconds', id: 'record-seconds'});
  const button = (id, label, name, args, say) => h('button', {type: 'button', id, onclick: () => shown(answer, () => call(name, args()), say)}, label);
  const files = h('tbody'), log = h('pre', {id: 'record-log', tabIndex: 0, role: 'region', 'aria-label': 'Recording log'}, '–');
  const going = h('span', {class: 'pill'}, 'no recording');
  const say = (good) => (got) => (got.result === 0 ? good : inWords(got.result));
  on('camera', (now) => {
    const active = Boolean(now?.recording?.active);
    going.textContent = active ? `recording ${now.recording.name}` : 'no recording';
    going.className = `pill ${active ? 'bad' : ''}`;
  });
  let known = '';
  on('device', (device) => {
    log.textContent = device.recording_log || 'A line for each finished piece.';
    const text = JSON.stringify(device.files);
    if (text === known) return;
    known = text;
    files.replaceChildren(...device.files.map((file) => h('tr', {}, h('td', {class: 'mono'}, file.name), h('td', {class: 'number'}, bytes(file.bytes)),
      h('td', {}, h('a', {href: `api/files/${file.name}`, download: file.name, 'aria-label': `Save ${file.name}`}, 'save')))));
  });
  const element = card('Recordings', h('div', {class: 'row'}, seconds, 's',
    button('record-start', 'Start', 'start_recording_video', () => [Number(seconds.value)], say('recording, cut when that long')),
    button('record-stop', 'Stop', 'stop_recording_video', () => [], say('stopped')),
    button('record-manual', 'Start without end', 'set_device_param', () => ['manual_record', '1'], say('recording'))), answer,
  h('h3', {}, 'Log'), log, h('h3', {}, 'On the card'), h('table', {}, files));
  element.querySelector('header').append(going);
  return element;
}

async function take(mode, image, answer) {
  const got = await shown(answer, () => call('get_camera_snapshot', [mode], {buffer: 1}),
    (reply) => (reply.result === 0 ? `${bytes(reply.length)}` : inWords(reply.result)));
  if (got?.result === 0 && got.data_base64) image.src = `data:image/jpeg;base64,${got.data_base64}`;
}

function makeShots() {
  const shot = (title, mode, id) => {
    const image = h('img', {alt: `${title}: none yet`, id, onload: () => { image.alt = title; }}), answer = h('p', {class: 'answer'});
    return h('div', {}, h('button', {type: 'button', id: `take-${id}`, onclick: () => take(mode, image, answer)}, title), image, answer);
  };
  return card('Snapshots', h('div', {class: 'shots'}, shot('Photo', 0, 'photo'), shot('Thumbnail', 1, 'thumbnail')));
}

export const mediaCards = () => [makeRecordings(), makeShots()];
