// Talking through the camera: what it got is compared with what was said.
import assert from 'node:assert/strict';
import {writeFileSync} from 'node:fs';
import {join} from 'node:path';
import {test} from 'node:test';
import {base, results, state, withBrowser} from './support/desk.mjs';

const rate = 12000;

// A voice of a kind: 300 Hz in bursts of different lengths, so that a clip can be laid over it.
function voice(seconds, at = rate) {
  const samples = new Int16Array(seconds * at);
  const bursts = [[0.1, 0.5], [0.7, 0.8], [1.0, 1.6], [1.9, 2.0], [2.2, 2.9]];
  for (let i = 0; i < samples.length; i++) {
    const time = (i / at) % 3;
    if (bursts.some(([from, to]) => time >= from && time < to)) samples[i] = 6000 * Math.sin(2 * Math.PI * 300 * (i / at));
  }
  return samples;
}

function wav(samples, at = rate) {
  const header = Buffer.alloc(44);
  header.write('RIFF', 0);
  header.writeUInt32LE(36 + samples.byteLength, 4);
  header.write('WAVEfmt ', 8);
  header.writeUInt32LE(16, 16);
  header.writeUInt16LE(1, 20);
  header.writeUInt16LE(1, 22);
  header.writeUInt32LE(at, 24);
  header.writeUInt32LE(at * 2, 28);
  header.writeUInt16LE(2, 32);
  header.writeUInt16LE(16, 34);
  header.write('data', 36);
  header.writeUInt32LE(samples.byteLength, 40);
  return Buffer.concat([header, Buffer.from(samples.buffer)]);
}

const microphone = join(results, 'microphone.wav');
writeFileSync(microphone, wav(voice(6, 48000), 48000));
const open = withBrowser({microphone, permissions: ['microphone']});

async function lastClip() {
  const count = (await state()).camera.audio_clips;
  const bytes = Buffer.from(await (await fetch(`${base}/camera/audio/${count}`)).arrayBuffer());
  return new Int16Array(bytes.buffer.slice(bytes.byteOffset + 44, bytes.byteOffset + bytes.byteLength - (bytes.byteLength % 2)));
}

const block = 120;  // 10 ms
function loudness(samples) {
  const made = [];
  for (let at = 0; at + block <= samples.length; at += block) {
    let sum = 0;
    for (let i = at; i < at + block; i++) sum += samples[i] ** 2;
    made.push(Math.sqrt(sum / block));
  }
  return made;
}

// How alike two curves are where they fit best, and how much louder the first is there.
function likeness(heard, said) {
  let best = {correlation: -1};
  for (let shift = 0; shift + heard.length <= said.length; shift++) {
    let ab = 0, aa = 0, bb = 0;
    const meanA = heard.reduce((sum, value) => sum + value, 0) / heard.length;
    const piece = said.slice(shift, shift + heard.length), meanB = piece.reduce((sum, value) => sum + value, 0) / piece.length;
    heard.forEach((value, i) => {
      ab += (value - meanA) * (piece[i] - meanB);
      aa += (value - meanA) ** 2;
      bb += (piece[i] - meanB) ** 2;
    });
    const correlation = ab / Math.sqrt(aa * bb || 1);
    if (correlation > best.correlation) best = {correlation, gain: meanA / meanB};
  }
  return best;
}

async function clipIsThere(page) {
  await page.locator('#talk-status', {hasText: 'is with the camera'}).waitFor();
  await page.locator('#heard audio').waitFor();
}

test('hold to talk: the camera gets what the microphone heard', async (t) => {
  const page = await open(t, 'talk');
  const button = page.locator('#hold');
  await button.hover();
  await page.mouse.down();
  await page.waitForFunction(() => document.querySelector('meter').value > 0.05);
  await page.waitForTimeout(2600);  // a sentence's time
  await page.mouse.up();
  await clipIsThere(page);
  const heard = await lastClip();
  assert.ok(heard.length > rate * 1.5, `${heard.length / rate} s`);
  writeFileSync(join(results, 'heard.wav'), wav(heard));
  const said = new Int16Array([...voice(6), ...voice(6)]);
  // Piece by piece: a browser on a busy machine may drop some milliseconds of the microphone, which shifts the rest.
  const curve = loudness(heard), found = [];
  for (let at = 0; at + 70 <= curve.length; at += 70) found.push(likeness(curve.slice(at, at + 70), loudness(said)));
  const mean = found.reduce((sum, {correlation}) => sum + correlation, 0) / found.length;
  t.diagnostic(`${found.length} pieces, mean correlation ${mean.toFixed(3)}, gain ${found[0].gain.toFixed(2)}`);
  assert.ok(found.length >= 2 && mean > 0.93, JSON.stringify(found));
});

test('a WAV file arrives as it is, but for its loudness', async (t) => {
  const page = await open(t, 'talk');
  const samples = voice(3);
  await page.locator('#wav').setInputFiles({name: 'voice.wav', mimeType: 'audio/wav', buffer: wav(samples)});
  await clipIsThere(page);
  const found = likeness(loudness((await lastClip()).subarray(0, samples.length)), loudness(samples));
  assert.ok(found.correlation > 0.98, JSON.stringify(found));
});

test('a typed sentence is spoken', async (t) => {
  const page = await open(t, 'talk');
  await page.locator('#sentence').fill('Good night, sleep well');
  await page.click('#say');
  await clipIsThere(page);
  const heard = await lastClip();
  assert.ok(heard.length > rate, 'longer than a second');
  assert.ok(Math.max(...loudness(heard)) > 500, 'it is not silent');
});
