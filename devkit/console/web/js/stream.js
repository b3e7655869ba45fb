// What the desk tells: sections that are replaced and lists that grow (README, "The stream"). One EventSource for the page.
const values = ['camera', 'faults', 'sdk', 'device', 'viewers', 'scenario'];
const lists = {log: 4000, alarms: 1000, requests: 400, samples: 1800, marks: 200};

export const state = {open: false, log: [], alarms: [], requests: [], samples: [], marks: []};
const hearers = {};

// Calls f(what is new) at each change of the section; lists give the new items. "hello": everything begins anew, "ready":
// the state is complete, "open" and "moment" are the page's own.
export function on(name, f) {
  (hearers[name] ??= []).push(f);
}

export function tell(name, value) {
  for (const f of hearers[name] ?? []) f(value);
}

// A moment of the run that somebody pointed at: all parts mark it.
export function pointAt(time, from) {
  state.moment = time;
  tell('moment', {time, from});
}

// Requests come when they begin and again when they end.
function mergeRequests(items) {
  for (const item of items) {
    const at = state.requests.findLastIndex((known) => known.seq === item.seq);
    if (at >= 0) state.requests[at] = item;
    else state.requests.push(item);
  }
}

function grow(name, items) {
  if (name === 'requests') mergeRequests(items);
  else state[name].push(...items);
  if (state[name].length > lists[name]) state[name].splice(0, state[name].length - lists[name]);
  tell(name, items);
}

function setOpen(open) {
  state.open = open;
  tell('open', open);
}

export function connect() {
  const source = new EventSource('events');
  source.addEventListener('hello', () => {
    for (const name of Object.keys(lists)) state[name] = [];
    tell('hello');
    setOpen(true);
  });
  source.addEventListener('ready', () => tell('ready'));
  source.addEventListener('error', () => setOpen(false));
  for (const name of values) {
    source.addEventListener(name, (event) => {
      state[name] = JSON.parse(event.data);
      tell(name, state[name]);
    });
  }
  for (const name of Object.keys(lists)) source.addEventListener(name, (event) => grow(name, JSON.parse(event.data)));
}
