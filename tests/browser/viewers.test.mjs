// What watching costs the agent: beside this file's desk, with four viewers and a stalled fifth, runs another without any
// page. Frames, memory and polls of the two agents are the same. VIEWERS_SECONDS: how long they are watched.
import assert from 'node:assert/strict';
import {spawn} from 'node:child_process';
import {readFileSync} from 'node:fs';
import {connect} from 'node:net';
import {after, before, test} from 'node:test';
import {fileURLToPath} from 'node:url';
import {askAt, base, eventually, figure, median, patience, results, share, state} from './support/desk.mjs';

const seconds = Number(process.env.VIEWERS_SECONDS ?? 25);
const {port} = new URL(base);
const withDesk = fileURLToPath(new URL('../../scripts/with-desk', import.meta.url));

// The interfaces of a desk, and its agent as the kernel sees it.
function deskIn(run) {
  const ports = (side) => JSON.parse(readFileSync(`${run}/${side}.json`));
  const memory = (name) => {
    const view = readFileSync(`${run}/view.pid`, 'utf8').trim();
    const status = readFileSync(`/proc/${view}/root/proc/${ports('sdk').pid}/status`, 'utf8');
    return Number(new RegExp(`^${name}:\\s+(\\d+)`, 'm').exec(status)[1]);
  };
  return {camera: (method, path, body) => askAt(`http://127.0.0.1:${ports('camera').control}${path}`, method, body),
    sdk: (method, path, body) => askAt(`http://127.0.0.1:${ports('sdk').port}${path}`, method, body), memory};
}

const watched = deskIn(`${results}/run`), alone = deskIn(`${results}/alone/run`);
let other;
before(() => {
  // It lasts as long as its command, which ends with its input.
  other = spawn(withDesk, [`${results}/alone`, 'cat'], {stdio: ['pipe', 'ignore', 'inherit'], env: {...process.env, DESK_CONSOLE_PORT: 'none'}});
});
after(() => new Promise((resolve) => {
  other.on('exit', resolve);
  other.stdin.end();
}));

// A viewer that reads all that comes, and counts it.
function viewer() {
  const abort = new AbortController();
  const made = {bytes: 0, stop: () => abort.abort()};
  fetch(`${base}/live`, {signal: abort.signal}).then(async (reply) => {
    for await (const piece of reply.body) made.bytes += piece.length;
  }).catch(() => {});
  return made;
}

// One that asks and then takes nothing; its socket's buffers are small.
function stalledViewer() {
  const socket = connect({host: '127.0.0.1', port: Number(port), highWaterMark: 1024});
  socket.on('error', () => {});
  socket.write(`GET /live HTTP/1.1\r\nHost: 127.0.0.1:${port}\r\n\r\n`);
  socket.pause();
  return {stop: () => socket.destroy()};
}

const gapsOf = (times) => times.slice(1).map((time, i) => time - times[i]);

// Times, each once, of which an interface tells only the newest.
class Times {
  all = new Map();
  add(items, key, time) { for (const item of items) this.all.set(item[key], item[time]); }
  gaps() { return gapsOf([...this.all.entries()].sort(([a], [b]) => a - b).map(([, time]) => time)); }
}

// Looks every 2 s, well before the newest 64 frames are others.
async function measure({camera, sdk, memory}) {
  const frames = new Times(), polls = new Times();
  const from = await sdk('GET', '/frames'), heap = (await sdk('GET', '/heap')).in_use, began = performance.now();
  const lastRequest = (await camera('GET', '/requests?limit=1')).at(-1).seq;
  let to = from, seen = lastRequest;
  while (performance.now() - began < seconds * 1000) {
    await new Promise((resolve) => { setTimeout(resolve, 2000); });
    to = await sdk('GET', '/frames');
    frames.add(to.records.video, 'seq', 'real_ms');
    const requests = await camera('GET', `/requests?since=${seen}`);
    polls.add(requests.filter((each) => each.target.includes('?Notification')), 'seq', 'time_ms');
    seen = requests.at(-1)?.seq ?? seen;
  }
  const took = (performance.now() - began) / 1000, gaps = frames.gaps(), pauses = polls.gaps();
  return {'video frames/s': (to.video - from.video) / took, 'audio frames/s': (to.audio - from.audio) / took, 'ownership errors': to.ownership_errors,
    'frame gap, median, ms': median(gaps), 'frame gap, 99 of 100, ms': share(gaps, 0.99), polls: pauses.length + 1, 'from poll to poll, median, ms': median(pauses),
    'from poll to poll, most, ms': Math.max(...pauses), 'heap grown, kB': ((await sdk('GET', '/heap')).in_use - heap) / 1000, 'memory of its own, kB': memory('RssAnon')};
}

test('four viewers and a stalled fifth cost the agent nothing', async (t) => {
  for (const desk of [watched, alone]) await eventually(async () => (await desk.sdk('GET', '/state')).pid, 'the agent logs in', 2 * patience);
  await alone.sdk('PUT', '/watch', {on: true});
  const viewers = [1, 2, 3, 4].map(viewer), stalled = stalledViewer();
  t.after(() => [...viewers, stalled].forEach((each) => each.stop()));
  await eventually(async () => (await state()).viewers === 5, 'five viewers');
  await eventually(() => viewers.every(({bytes}) => bytes > 10000), 'they all see something');
  for (const desk of [watched, alone]) await eventually(async () => (await desk.sdk('GET', '/frames')).video > 30, 'frames');
  const [with5, without] = await Promise.all([measure(watched), measure(alone)]);
  for (const name of Object.keys(without)) figure(`${name}: ${without[name].toFixed(1)} without a page, ${with5[name].toFixed(1)} with five viewers`);
  // A machine on which the encoders themselves come late, page or not, tells less.
  const busy = without['frame gap, 99 of 100, ms'] > 150;
  const near = (name, most, onBusy = most) => assert.ok(Math.abs(with5[name] - without[name]) <= (busy ? onBusy : most), `${name}: ${with5[name]}, ${without[name]} without`);
  near('video frames/s', 0.5, 3);
  near('audio frames/s', 1.5, 9);
  near('frame gap, median, ms', 5, 60);
  near('from poll to poll, median, ms', 100, 500);
  near('heap grown, kB', 256);
  near('memory of its own, kB', 1024);
  assert.equal(with5['ownership errors'], 0);
  assert.ok(with5.polls >= 3);
  for (const {bytes} of viewers) assert.ok(bytes > seconds * 10000, `a viewer got ${bytes} bytes`);
});
