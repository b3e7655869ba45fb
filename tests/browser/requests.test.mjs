// Requests and process: what happened stays through a reload, and a restart of the agent with the page open.
import assert from 'node:assert/strict';
import {test} from 'node:test';
import {eventually, sdk, state, withBrowser} from './support/desk.mjs';

const open = withBrowser();

test('the waterfall shows the polls, and points at their lines', async (t) => {
  const page = await open(t, 'requests');
  const row = page.locator('.wf-row', {hasText: /CameraStatus\?Notification.*\d (µs|ms|s)$/}).first();  // one that has ended
  await row.waitFor();
  for (const part of ['wait', 'transfer', 'pause']) await page.locator(`.wf-row rect.${part}`).first().waitFor();
  await row.click();
  await page.locator('.line.moment', {hasText: 'curlmgr: performing curl'}).first().waitFor();
  assert.ok(await page.locator('.wf-row.moment').count() > 0);
});

test('the plots of the process go on through a reload', async (t) => {
  const page = await open(t, 'process');
  const paths = () => page.locator('#part-process .plot path:last-of-type').evaluateAll((all) => all.map((path) => (path.getAttribute('d') ?? '').split('L').length));
  for (const name of [/^Memory: \d+\.\d MB$/, /^Threads: [1-9]\d*$/, /^Descriptors: [1-9]\d*$/, /^Queue: \d+$/, /^Requests a minute: [1-9]\d*$/])
    await page.getByRole('img', {name}).waitFor();
  const drawn = await eventually(async () => { const lengths = await paths(); return lengths.filter((length) => length > 3).length >= 5 && lengths; }, 'five plots');
  await page.reload();
  await eventually(async () => (await paths()).every((length, i) => length >= Math.min(drawn[i], 5)), 'as much after the reload');
});

test('the agent reboots under an open page, which goes on by itself', async (t) => {
  const page = await open(t, 'process');
  const before = await state();
  await sdk('POST', '/call', {name: 'rebootOperation', args: [], async: true});
  await page.locator('#marks li', {hasText: `reboot ${before.device.reboots + 1}`}).waitFor();
  await page.locator('#marks li', {hasText: 'the agent started again'}).first().waitFor();
  await page.locator('#agent-state', {hasText: /^polling$/}).waitFor();
  const now = await state();
  assert.notEqual(now.sdk.pid, before.sdk.pid);
  assert.deepEqual(now.alarms.slice(0, before.alarms.length), before.alarms);
});
