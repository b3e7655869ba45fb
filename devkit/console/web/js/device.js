// Device: every parameter and status with its last answer, the remote operations, and what the sensors say.
import {call, camera, inWords, sdk} from './api.js';
import {operations, parameters, statuses} from './device_table.js';
import {card, duration, h, lazily} from './dom.js';
import {mediaCards} from './media.js';
import {plot, series} from './plot.js';
import {on, state} from './stream.js';

// Runs an order and shows its answer: value or result, how long it took, the request that it became.
export async function shown(place, order, value = (got) => got.value ?? inWords(got.result)) {
  place.replaceChildren('…');
  try {
    const got = await order();
    place.replaceChildren(h('b', {}, value(got)), ` in ${duration(got.took)}`, ...got.requests.map((text) => h('div', {class: 'mono'}, text)));
    return got;
  } catch (problem) {
    place.replaceChildren(h('b', {class: 'bad-text'}, problem.message));
    return null;
  }
}

const answerPlace = () => h('td', {class: 'answer', 'aria-live': 'polite'}, '–');

function widget(row, write) {
  const label = {'aria-label': row.title, id: `set-${row.name}`};
  if (row.kind === 'switch') return h('input', {type: 'checkbox', role: 'switch', ...label, onchange: (event) => write(event.target.checked ? '1' : '0')});
  if (row.kind === 'choice') return h('select', {...label, onchange: (event) => write(event.target.value)}, row.choices.map(([value, text]) => h('option', {value}, text)));
  if (row.kind === 'number') return h('input', {type: 'number', ...label, onchange: (event) => write(event.target.value)});
  const shows = h('output', {class: 'number'}, '–');
  const slider = h('input', {type: 'range', min: row.min, max: row.max, value: row.min, ...label,
    oninput: () => { shows.textContent = slider.value; }, onchange: () => write(slider.value)});
  return h('span', {class: 'row'}, slider, shows);
}

function putValue(row, place, value) {
  const input = place.matches('input, select') ? place : place.querySelector('input');
  if (row.kind === 'switch') input.checked = value === '1';
  else input.value = value;
  if (row.kind === 'slider') place.querySelector('output').textContent = value;
}

function parameterRow(row) {
  const answer = answerPlace();
  const read = async () => {
    const got = await shown(answer, () => call('get_device_param', [row.name]));
    if (got?.value !== undefined && got.value !== null && got.value !== 'ERROR') putValue(row, place, got.value);
  };
  const place = widget(row, (value) => shown(answer, () => call('set_device_param', [row.name, String(value)]), (got) => (got.result === 0 ? `set to ${value}` : inWords(got.result))));
  const element = h('tr', {'data-name': row.name}, h('td', {}, row.title, row.unit ? `, ${row.unit}` : '', h('div', {class: 'hint mono'}, row.name)),
    h('td', {class: 'widget'}, place),
    h('td', {class: 'hint act'}, row.unread ? 'set only' : h('button', {type: 'button', class: 'small', 'aria-label': `Read ${row.title}`, onclick: read}, 'read')), answer);
  if (row.hint) element.title = row.hint;
  return {element, read: row.unread ? null : read};
}

function statusRow([name, title]) {
  const answer = answerPlace();
  const read = () => shown(answer, () => call('get_device_status', [name]));
  return {read, element: h('tr', {'data-name': name}, h('td', {}, title, h('div', {class: 'hint mono'}, name)),
    h('td', {class: 'act'}, h('button', {type: 'button', class: 'small', 'aria-label': `Read ${title}`, onclick: read}, 'read')), answer)};
}

function table(title, rows, id) {
  const all = h('button', {type: 'button', id, onclick: async () => {
    all.disabled = true;
    for (const row of rows) await row.read?.();
    all.disabled = false;
  }}, 'Read all');
  const element = card(title, h('table', {class: 'controls'}, h('tbody', {}, rows.map((row) => row.element))));
  element.querySelector('header').append(all);
  return element;
}

function makeOperations() {
  const answer = h('p', {class: 'answer', 'aria-live': 'polite', id: 'operation-answer'}, 'The last answer stands here.');
  const order = (command, value) => shown(answer, () => call('ptz_direction_control', [command, value]));
  const groups = operations.map(([title, buttons]) => h('div', {class: 'row', role: 'group', 'aria-label': title}, h('span', {class: 'hint'}, title),
    buttons.map(([label, command, value]) => h('button', {type: 'button', class: 'small', 'data-command': `${command} ${value}`, onclick: () => order(command, value)}, label))));
  const cloud = h('div', {class: 'row', role: 'group', 'aria-label': 'Cloud connection'}, h('span', {class: 'hint'}, 'Cloud'),
    [['lost', 1], ['back', 0]].map(([label, value]) => h('button', {type: 'button', class: 'small',
      onclick: () => shown(answer, () => call('notify_Z55_connection_status', [value]), () => `the cloud is told ${label}`)}, label)));
  const reboot = h('button', {type: 'button', class: 'small', onclick: () => sdk('POST', '/call', {name: 'rebootOperation', args: [], async: true}).then(() => { answer.textContent = 'The agent reboots the device.'; })}, 'reboot');
  const format = h('button', {type: 'button', class: 'small', title: 'An empty card with a fresh reserve for upgrades',
    onclick: () => shown(answer, () => call('set_device_param', ['sdformat', '1']))}, 'format');
  return card('Remote operations', h('div', {class: 'groups'}, ...groups, cloud, h('div', {class: 'row'}, h('span', {class: 'hint'}, 'Card'), format),
    h('div', {class: 'row'}, h('span', {class: 'hint'}, 'Device'), reboot)), answer);
}

// What the camera's own sensors say: set here, seen by the agent at its next poll.
function sensor(title, key, min, max, unit) {
  const shows = h('output', {class: 'number'}, '–');
  const slider = h('input', {type: 'range', min, max, 'aria-label': title, id: `sensor-${key}`, oninput: () => { shows.textContent = `${slider.value} ${unit}`; },
    onchange: () => camera('PATCH', '/status', {[key]: slider.value})});
  on('camera', (now) => {
    if (!now || document.activeElement === slider) return;
    slider.value = now.status[key];
    shows.textContent = `${now.status[key]} ${unit}`;
  });
  return h('label', {class: 'row spread'}, title, slider, shows);
}

function makeSensors() {
  const there = h('input', {type: 'checkbox', role: 'switch', id: 'sensor-SD', onchange: () => camera('PATCH', '/status', {SD: there.checked ? '1' : '0'})});
  on('camera', (now) => { there.checked = now?.status?.SD !== '0'; });
  const plots = {battery: plot('Battery', {unit: ' %', floor: 0}), temperature: plot('Temperature', {unit: ' °C'}), card: plot('Card free', {unit: ' MB', floor: 0})};
  on('samples', lazily(() => {
    plots.battery.draw(series(state.samples, 'battery'), state.marks);
    plots.temperature.draw(series(state.samples, 'temperature'), state.marks);
    plots.card.draw(series(state.samples, 'card_free_mb'), state.marks);
  }));
  return card('What the camera measures', sensor('Battery', 'Battery', 0, 100, '%'), sensor('Temperature', 'Temperature', -20, 60, '°C'),
    h('label', {class: 'row spread'}, 'A card is in', there), h('div', {class: 'sparks'}, Object.values(plots).map((each) => each.element)));
}

export function makeDevice(panel) {
  const [recordings, shots] = mediaCards();
  panel.append(h('div', {class: 'stack'}, makeOperations(), recordings), h('div', {class: 'stack'}, makeSensors(), shots),
    h('div', {class: 'stack wide'}, table('Parameters', parameters.map(parameterRow), 'read-parameters'), table('Statuses', statuses.map(statusRow), 'read-statuses')));
}
