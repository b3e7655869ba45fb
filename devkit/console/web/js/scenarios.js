// Scenarios: what there is, how far one is, and its questions with the desk's answers.
import {ask} from './api.js';
import {announce, card, h, lazily} from './dom.js';
import {on, state} from './stream.js';

const answerOf = (answer) => `${answer.good ? 'Yes' : 'No'}: ${answer.found} ${answer.count.replace(':', ' ')}`;

export function makeScenarios() {
  const list = h('div', {class: 'tiles'}), said = h('ol', {class: 'steps', id: 'scenario-steps'}), answers = h('dl', {id: 'scenario-answers'});
  const title = h('h3'), problem = h('p', {class: 'bad-text', role: 'alert'});
  const stop = h('button', {type: 'button', class: 'small', hidden: true, onclick: () => ask('DELETE', 'api/scenarios')}, 'stop');
  const start = async (name) => {
    problem.textContent = '';
    await ask('POST', `api/scenarios/${name}`).catch((wrong) => { problem.textContent = wrong.message; });
  };
  ask('GET', 'api/scenarios').then((all) => list.append(...all.map((row) => h('button', {type: 'button', id: `scenario-${row.name}`, onclick: () => start(row.name)},
    h('b', {}, row.title), h('small', {}, `${row.about} At most ${Math.round(row.seconds)} s.`)))));
  let told = false;
  on('scenario', lazily(() => {
    const now = state.scenario;
    if (!now) return;
    title.textContent = now.running ? `${now.title} …` : `${now.title}${now.stopped ? ', stopped' : ''}`;
    stop.hidden = !now.running;
    said.replaceChildren(...now.said.map((text) => h('li', {class: 'done'}, text)));
    answers.replaceChildren(...(now.answers ?? []).flatMap((answer) => [h('dt', {}, answer.ask), h('dd', {class: answer.good ? 'good-text' : 'bad-text'}, answerOf(answer))]));
    if (!now.running && told) announce(`${now.title} has ended`);
    told = now.running;
  }));
  return card('Scenarios', list, problem, h('div', {class: 'row'}, title, stop), said, answers);
}
