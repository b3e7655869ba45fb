// What watching costs the agent: its frames, its memory and its polls with four viewers and a stalled fifth are those of a
// desk that nobody watches through the page. VIEWERS_SECONDS: how long each half is watched.
import assert from 'node:assert/strict';
import {connect} from 'node:net';
import {test} from 'node:test';
import {base, camera, eventually, median, sdk, state} from './support/desk.mjs';

const seconds = Number(process.env.VIEWERS_SECONDS ?? 25);
const {port} = new URL(base);

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

async function measure() {
  const lastRequest = (await camera('GET', '/requests?limit=1')).at(-1).seq;
  const from = await sdk('GET', '/frames'), heap = (await sdk('GET', '/heap')).in_use, began = performance.now();
  await new Promise((resolve) => { setTimeout(resolve, seconds * 1000); });
  const to = await sdk('GET', '/frames'), took = (performance.now() - began) / 1000;
  const polls = (await camera('GET', `/requests?since=${lastRequest}`)).filter((each) => each.target.includes('?Notification'));
  const pauses = polls.slice(1).map((poll, i) => poll.time_ms - polls[i].time_ms);
  const gaps = to.records.video.slice(1).map((frame, i) => frame.real_ms - to.records.video[i].real_ms);
  return {video: (to.video - from.video) / took, audio: (to.audio - from.audio) / took, errors: to.ownership_errors - from.ownership_errors,
    heap: (await sdk('GET', '/heap')).in_use - heap, poll: median(pauses), gap: Math.max(...gaps), polls: polls.length};
}

test('four viewers and a stalled fifth cost the agent nothing', async (t) => {
  await eventually(async () => (await state()).sdk?.pid, 60, 'the agent logs in');
  await sdk('PUT', '/watch', {on: true});
  await eventually(async () => (await sdk('GET', '/frames')).video > 30, 20, 'frames');
  const alone = await measure();
  const viewers = [1, 2, 3, 4].map(viewer), stalled = stalledViewer();
  t.after(() => [...viewers, stalled].forEach((each) => each.stop()));
  await eventually(async () => (await state()).viewers === 5, 15, 'five viewers');
  await eventually(() => viewers.every(({bytes}) => bytes > 10000), 10, 'they all see something');
  const watched = await measure();
  const lines = Object.keys(alone).map((name) => `${name}: ${alone[name].toFixed(1)} alone, ${watched[name].toFixed(1)} watched`);
  console.log(lines.join('\n'));
  assert.ok(Math.abs(watched.video - alone.video) < 0.5, lines[0]);
  assert.ok(Math.abs(watched.audio - alone.audio) < 1.5, lines[1]);
  assert.equal(watched.errors, 0);
  assert.ok(watched.heap - alone.heap < 256 * 1024, lines[3]);
  assert.ok(watched.polls >= 3 && Math.abs(watched.poll - alone.poll) < 100, lines[4]);
  assert.ok(watched.gap < alone.gap + 100, lines[5]);
  for (const {bytes} of viewers) assert.ok(bytes > seconds * 10000, `a viewer got ${bytes} bytes`);
});
