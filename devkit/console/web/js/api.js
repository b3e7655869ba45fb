// The requests behind the buttons. An answer that is an error becomes an Error with its sentence.
import {state} from './stream.js';

export async function ask(method, path, body) {
  const reply = await fetch(path, {
    method, body: body === undefined ? undefined : JSON.stringify(body),
    headers: body === undefined ? {} : {'Content-Type': 'application/json'},
  });
  const text = await reply.text();
  let parsed = null;
  try { parsed = JSON.parse(text); } catch { /* an empty or plain body */ }
  if (!reply.ok) throw new Error(parsed?.error ?? `${reply.status} ${reply.statusText}`);
  return parsed;
}

export const camera = (method, path, body) => ask(method, `camera${path}`, body);
export const sdk = (method, path, body) => ask(method, `sdk${path}`, body);

// The results of handlers in words; the numbers are the agent's.
const words = {
  0: 'done', '-1': 'refused or no answer', '-10': 'a recording runs already', '-99': 'there is none', 1: 'failed', 5: 'the element is missing',
};
export const inWords = (result) => (words[result] ? `${result}: ${words[result]}` : String(result));

const isPoll = (request) => request.target.includes('?Notification');

// Calls a handler of the agent; tells its result, how long it took, and the requests to the camera that it became.
export async function call(name, args, more = {}) {
  const last = (await camera('GET', '/requests?limit=1')).at(-1)?.seq ?? 0;
  const begin = performance.now();
  const reply = await sdk('POST', '/call', {name, args, ...more});
  const took = performance.now() - begin;
  const made = (await camera('GET', `/requests?since=${last}`)).filter((request) => !isPoll(request));
  return {...reply.results[0], took, requests: made.map((request) => `${request.method} ${request.target}${request.body ? ` ${request.body}` : ''}`)};
}

// Waits until condition() holds, looking at each change of the state; false after `seconds`.
export function until(condition, seconds) {
  return new Promise((resolve) => {
    const deadline = performance.now() + seconds * 1000;
    const look = () => {
      if (condition(state)) resolve(true);
      else if (performance.now() > deadline) resolve(false);
      else setTimeout(look, 100);
    };
    look();
  });
}
