// Finds what a line of the log is: its entry of docs/LOG.md, from the expressions that the server gives out.
let whole = [], open = [], patterns = [];
const known = new Map();

function take(entry, text) {
  const part = {entry, text};
  text.lines.forEach((line, i) => {
    const fixed = text.fixed[i];
    const found = {...part, fixed};
    if (fixed === 0) patterns.push({...found, regex: new RegExp(line)});
    else whole.push({...found, regex: new RegExp(`${line}\\s*$`)});
    if (text.open && i === text.lines.length - 1 && fixed > 0) open.push({...found, regex: new RegExp(line)});
  });
}

export async function loadReference() {
  const reply = await fetch('api/log-reference');
  for (const entry of await reply.json()) for (const text of entry.texts) take(entry, text);
  for (const list of [whole, open]) list.sort((a, b) => b.fixed - a.fixed);
  known.clear();
}

function pieces(line, depth = 0) {
  const best = whole.find((each) => each.regex.test(line));
  if (best) return [best.entry];
  if (depth < 3) {
    for (const each of open) {
      const match = each.regex.exec(line);
      if (!match || match[0].length === 0) continue;
      const rest = pieces(line.slice(match[0].length), depth + 1);
      if (rest.length) return [each.entry, ...rest];
    }
  }
  const pattern = patterns.find((each) => each.regex.test(line));
  return pattern ? [pattern.entry] : [];
}

// The entries of a line, mostly one; none where nothing is known of it.
export function entriesOf(line) {
  let found = known.get(line);
  if (!found) {
    if (known.size > 5000) known.clear();
    known.set(line, (found = line.trim() === '' ? [] : pieces(line)));
  }
  return found;
}

// The part of the agent that a line comes from, in a word.
export function moduleOf(line) {
  const file = entriesOf(line).find((entry) => entry.file)?.file;
  if (!file) return /^[*<>] |^[A-Z][-\w]+: /.test(line) ? 'libcurl' : 'other';
  return file.replace(/\.cpp$/, '').replace(/^(agent|ak_model|agent\/utils|frame)\//, '');
}

export const wantsALook = (line) => entriesOf(line).some((entry) => entry.file && !/^Nothing/.test(entry.do) && !/^(Once: nothing|Nothing)/.test(entry.do));
