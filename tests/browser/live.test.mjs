// The live picture as a person sees it, and how late it is.
import assert from 'node:assert/strict';
import {appendFileSync} from 'node:fs';
import {test} from 'node:test';
import {eventually, median, results, sdk, spread, withBrowser} from './support/desk.mjs';

const open = withBrowser();
const tries = 10;
const say = (line) => {
  console.log(line);
  appendFileSync(`${results}/figures.txt`, `${line}\n`);
};

// Presses Watch; gives back once a picture is on the screen.
async function watch(page) {
  await page.click('#watch');
  await page.waitForFunction(() => window.deskPlayer.firstPicture !== null, null, {timeout: 15000});
}

// The picture's pixels, as a sum that changes when they do.
const pixels = (page) => page.evaluate(() => {
  const {video} = window.deskPlayer;
  const canvas = Object.assign(document.createElement('canvas'), {width: 100, height: 60});
  canvas.getContext('2d').drawImage(video, 0, 0, 100, 60);
  return canvas.getContext('2d').getImageData(0, 0, 100, 60).data.join();
});

test('the picture plays, with sound, and moves', async (t) => {
  const page = await open(t);
  await watch(page);
  const at = () => page.evaluate(() => ({time: window.deskPlayer.video.currentTime, ready: window.deskPlayer.video.readyState, width: window.deskPlayer.video.videoWidth,
    sound: window.deskPlayer.video.webkitAudioDecodedByteCount}));
  const first = await eventually(async () => { const now = await at(); return now.ready >= 3 && now; }, 5, 'readyState 3'), before = await pixels(page);
  assert.equal(first.width, 400);
  const later = await eventually(async () => { const now = await at(); return now.time > first.time + 2 && now; }, 6, 'two seconds of picture');
  assert.notEqual(await pixels(page), before);
  assert.ok(later.sound > 5000, `sound decoded: ${later.sound} bytes`);
  assert.equal((await sdk('GET', '/state')).request_vedio, 1);
  await page.click('#watch');
  await eventually(async () => (await sdk('GET', '/state')).request_vedio === 0, 5, 'the SDK is told that nobody watches');
});

test('the first picture comes within 2 s, and the picture is less than 400 ms late', async (t) => {
  const firsts = [], latencies = [];
  for (let i = 0; i < tries; i++) {
    const page = await open(t);
    await watch(page);
    firsts.push(await page.evaluate(() => window.deskPlayer.firstPicture));
    await page.waitForTimeout(1500);  // what a viewer sees once the picture has settled
    latencies.push(await page.evaluate(async () => {
      const {latency} = await import('./js/player.js');
      const {video} = window.deskPlayer;
      return new Promise((resolve) => { video.requestVideoFrameCallback(() => resolve(latency(video))); });
    }));
    await page.close();
  }
  say(`first picture: ${spread(firsts)}`);
  say(`latency, with sound: ${spread(latencies)}`);
  assert.ok(median(firsts) < 2000, spread(firsts));
  assert.ok(median(latencies) < 400, spread(latencies));
});

test('another profile of the stream goes on in the same page', async (t) => {
  const page = await open(t);
  await watch(page);
  await sdk('PUT', '/capture', {profile: 'RTP_H264_WVGA'});
  await page.waitForFunction(() => window.deskPlayer.video.videoWidth === 800, null, {timeout: 15000});
  await sdk('PUT', '/capture', {profile: 'RTP_H264_WQVGA'});
  await page.waitForFunction(() => window.deskPlayer.video.videoWidth === 400, null, {timeout: 15000});
});
