// Small helpers: elements, numbers, times. No text ever becomes markup.

// h('button', {class: 'primary', onclick: f, 'aria-label': 'x', disabled: true}, 'text', child, [children])
export function h(tag, properties = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) {
    if (value === undefined || value === null || value === false) continue;
    if (name.startsWith('on')) element.addEventListener(name.slice(2), value);
    else if (name in element && !name.startsWith('aria') && name !== 'list' && name !== 'form') element[name === 'class' ? 'className' : name] = value;
    else element.setAttribute(name === 'class' ? 'class' : name, value === true ? '' : value);
  }
  element.append(...children.flat().filter((child) => child !== null && child !== undefined && child !== false));
  return element;
}

const svgSpace = 'http://www.w3.org/2000/svg';
export function s(tag, attributes = {}, ...children) {
  const element = document.createElementNS(svgSpace, tag);
  for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, value);
  element.append(...children);
  return element;
}

export function card(title, ...children) {
  const id = `card-${title.toLowerCase().replace(/[^a-z]+/g, '-')}`;
  return h('section', {class: 'card', 'aria-labelledby': id}, h('header', {}, h('h2', {id}, title)), ...children);
}

// A label around a field.
export const field = (label, input) => h('label', {class: 'row'}, label, input);

const two = (number) => String(number).padStart(2, '0');
export function clock(ms, fraction = false) {
  const date = new Date(ms);
  const text = `${two(date.getHours())}:${two(date.getMinutes())}:${two(date.getSeconds())}`;
  return fraction ? `${text}.${String(date.getMilliseconds()).padStart(3, '0')}` : text;
}

export function duration(ms) {
  if (ms === null || ms === undefined) return '…';
  if (ms < 0.95) return `${Math.round(ms * 1000)} µs`;
  if (ms < 10) return `${ms.toFixed(1)} ms`;
  return ms < 1000 ? `${Math.round(ms)} ms` : `${(ms / 1000).toFixed(1)} s`;
}

export const bytes = (count) => (count < 1e4 ? `${count} B` : count < 1e6 ? `${Math.round(count / 1e3)} kB` : `${(count / 1e6).toFixed(1)} MB`);

let announcer;
// Tells screen readers.
export function announce(text) {
  announcer ??= document.getElementById('announcer');
  announcer.textContent = text;
}

// Calls f at most once in a frame of the display, however often it is asked for; in a hidden page not at all until it shows.
export function lazily(f) {
  let asked = false;
  return () => {
    if (asked) return;
    asked = true;
    requestAnimationFrame(() => {
      asked = false;
      f();
    });
  };
}
