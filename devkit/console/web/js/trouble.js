// Trouble: ordered, seen in force, healed by one button each; and scenarios, which are scripts of them.
import {ask} from './api.js';
import {announce, card, field, h, lazily} from './dom.js';
import {makeScenarios} from './scenarios.js';
import {endpoints, kinds, once, switches} from './trouble_table.js';
import {on, state} from './stream.js';

let problem;

async function order([target, method, path, body]) {
  problem.textContent = '';
  try {
    return await ask(method, `${target}${path}`, body);
  } catch (wrong) {
    problem.textContent = wrong.message;
    return null;
  }
}

function tile({id, title, about}, press) {
  return h('button', {type: 'button', id: `trouble-${id}`, onclick: press}, h('b', {}, title), h('small', {}, about));
}

function makeSwitches() {
  const tiles = switches.map((row) => {
    const button = tile(row, () => order(row.holds(state) ? row.off : row.on));
    button.setAttribute('aria-pressed', 'false');
    return {row, button};
  });
  const draw = lazily(() => {
    for (const {row, button} of tiles) button.setAttribute('aria-pressed', row.holds(state));
  });
  for (const name of ['camera', 'device', 'sdk']) on(name, draw);
  return card('Network, card, tools', h('div', {class: 'tiles'}, tiles.map(({button}) => button)), h('h3', {}, 'Once'),
    h('div', {class: 'tiles'}, once.map((row) => tile(row, async () => {
      if (await order(row.does)) announce(`${row.title}: done`);
    }))));
}

// The numbers of a kind, each with the field that fits.
function fieldsOf(row, place) {
  place.replaceChildren(...Object.entries(row.fields).map(([name, value]) => field(name, typeof value === 'boolean'
    ? h('input', {type: 'checkbox', name, checked: value})
    : h('input', {type: typeof value === 'number' ? 'number' : 'text', name, value}))));
}

function faultOf(form, row) {
  const fault = {endpoint: form.elements.endpoint.value, kind: row.kind, match: form.elements.match.value, count: Number(form.elements.count.value)};
  for (const [name, value] of Object.entries(row.fields)) {
    const input = form.elements[name];
    fault[name] = typeof value === 'boolean' ? input.checked : typeof value === 'number' ? Number(input.value) : input.value;
  }
  return fault;
}

function makeFaults() {
  const place = h('div', {class: 'row'});
  const kind = h('select', {name: 'kind', onchange: () => fieldsOf(chosen(), place)}, kinds.map((row) => h('option', {value: row.kind}, row.title)));
  const chosen = () => kinds.find((row) => row.kind === kind.value);
  const form = h('form', {class: 'groups', id: 'fault', onsubmit: (event) => {
    event.preventDefault();
    order(['camera', 'POST', '/faults', faultOf(form, chosen())]);
  }}, h('div', {class: 'row'}, field('Requests to', h('select', {name: 'endpoint'}, endpoints.map((name) => h('option', {value: name}, name)))),
    field('that hold', h('input', {type: 'text', name: 'match', size: 10, placeholder: 'anything'}))),
  h('div', {class: 'row'}, field('get', kind), place),
  h('div', {class: 'row'}, field('how often (0: until healed)', h('input', {type: 'number', name: 'count', min: 0, value: 0})), h('button', {type: 'submit', class: 'primary'}, 'Order it')));
  fieldsOf(kinds[0], place);
  return card('The camera misbehaves', form);
}

const isSpent = (fault) => fault.count > 0 && fault.hits >= fault.count;

function forceRow(text, heal) {
  return h('li', {}, h('span', {}, text), h('button', {type: 'button', class: 'small', 'aria-label': `Heal: ${text}`, onclick: heal}, 'heal'));
}

function faultText(fault) {
  const numbers = Object.entries(fault).filter(([name, value]) => !['id', 'hits', 'endpoint', 'kind', 'count', 'skip', 'every', 'delay_ms', 'match'].includes(name) && value !== '');
  return `${fault.endpoint}${fault.match ? ` with “${fault.match}”` : ''}: ${fault.kind}${numbers.map(([name, value]) => ` ${name} ${value}`).join('')} · took ${fault.hits}${fault.count ? ` of ${fault.count}` : ''}${isSpent(fault) ? ', used up' : ''}`;
}

function makeForce() {
  const list = h('ul', {class: 'force', id: 'force'}), none = h('p', {class: 'hint good-text'}, 'Nothing is wrong.');
  const clock = () => state.device?.clock_offset;
  const draw = lazily(() => {
    const rows = (state.faults ?? []).map((fault) => forceRow(faultText(fault), () => order(['camera', 'DELETE', `/faults/${fault.id}`])));
    for (const row of switches) if (row.holds(state)) rows.push(forceRow(row.title, () => order(row.off)));
    if (clock()) rows.push(forceRow(`The agent's clock is ${clock()} s off`, () => order(['api', 'POST', '/clock', {step: -clock()}])));
    none.hidden = rows.length > 0;
    if (!list.contains(document.activeElement) || rows.length !== list.children.length) list.replaceChildren(...rows);
  });
  for (const name of ['faults', 'camera', 'device', 'sdk']) on(name, draw);
  const all = h('button', {type: 'button', id: 'heal-all', onclick: async () => {
    await order(['camera', 'DELETE', '/faults']);
    for (const row of switches) if (row.holds(state)) await order(row.off);
    if (clock()) await order(['api', 'POST', '/clock', {step: -clock()}]);
  }}, 'Heal all');
  problem = h('p', {class: 'bad-text', role: 'alert'});
  const element = card('In force', none, list, problem);
  element.querySelector('header').append(all);
  return element;
}

export function makeTrouble(panel) {
  panel.append(h('div', {class: 'stack'}, makeForce(), makeSwitches()), h('div', {class: 'stack'}, makeFaults(), makeScenarios()));
}
