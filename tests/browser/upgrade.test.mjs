// An upgrade through the reboot, in a page that stays open.
import assert from 'node:assert/strict';
import {test} from 'node:test';
import {eventually, patience, state, withBrowser} from './support/desk.mjs';

const open = withBrowser();

// The agent's start-up checks are over: the reserve that an upgrade needs stands.
async function hasStarted() {
  const texts = (await state()).log.map(({text}) => text);
  return texts.lastIndexOf('vq_ipca_init return') >= texts.findLastIndex((text) => text.includes('Try log VeloAgent init time'));
}

async function upgrade(page, outcome) {
  await eventually(hasStarted, 'the start-up checks are over');
  await page.locator('#outcome').selectOption(outcome);
  await page.locator('#step-ms').fill('1000');
  await page.click('#upgrade-start');
}

const step = (page, text) => page.locator('#upgrade-steps .done', {hasText: text}).waitFor({timeout: 2 * patience * 1000});

test('an upgrade goes through its reboot; the page and its alarms stay', async (t) => {
  const page = await open(t, 'live');
  await page.click('#raise-MotionEvent');
  await page.locator('#alarms li[data-status="1"]').first().waitFor();
  await page.click('#watch');
  await page.waitForFunction(() => window.deskPlayer.firstPicture !== null);
  await page.locator('#tab-upgrade').click();
  const before = await state();
  await upgrade(page, 'success');
  for (const text of ['The camera downloads', 'Notice 18', 'The device reboots', 'Notice 19'])
    await step(page, text);
  const now = await state();
  assert.equal(now.device.reboots, before.device.reboots + 1);
  assert.equal(now.camera.config.fwver, '1.0.4');
  assert.equal(now.camera.status.NewFirmwareVersion, '1.0.5');
  assert.notEqual(now.sdk.pid, before.sdk.pid);
  for (const alarm of before.alarms) assert.ok(now.alarms.some((each) => each.n === alarm.n && each.title === alarm.title), 'an alarm from before the reboot is lost');
  await eventually(async () => !(await state()).device.marker, 'the marker goes');
  // The picture comes back by itself.
  const time = await page.evaluate(() => { window.deskPlayer.firstPicture = null; return window.deskPlayer.video.currentTime; });
  await page.waitForFunction((from) => { const {video} = window.deskPlayer; return video.readyState >= 3 && video.currentTime > 1 && video.currentTime !== from; }, time);
});

test('an upgrade that leaves the old version is told by notice 20, and its steps survive a reload', async (t) => {
  const page = await open(t, 'upgrade');
  const before = await state();
  await upgrade(page, 'fail_upgrade');
  for (const text of ['The camera downloads', 'The marker is written']) await step(page, text);  // while they last
  await page.reload();
  for (const text of ['The camera downloads', 'The marker is written', 'Notice 18', 'The device reboots']) await step(page, text);
  await page.locator('#upgrade-steps .failed', {hasText: 'Notice 20'}).waitFor();
  const now = await state();
  assert.equal(now.device.reboots, before.device.reboots + 1);
  assert.equal(now.camera.config.fwver, before.camera.config.fwver);
});

// An upgrade uses up the reserve on the card, which a reboot makes anew: the one before went through its reboot.
test('an upgrade that fails while downloading is told by notice 17, without a reboot', async (t) => {
  const page = await open(t, 'upgrade');
  const before = (await state()).device.reboots;
  await upgrade(page, 'fail_download');
  await page.locator('#upgrade-steps .failed', {hasText: 'Notice 17'}).waitFor();
  assert.equal((await state()).device.reboots, before);
});

test('an upgrade that is stuck stays half way, lets no other begin, and ends with the camera', async (t) => {
  const page = await open(t, 'device');
  await page.getByRole('button', {name: 'format'}).click();  // the reserve, made anew
  await page.locator('#operation-answer b', {hasText: '0: done'}).waitFor();
  await page.locator('#tab-upgrade').click();
  const before = await state();
  await upgrade(page, 'stuck');
  await step(page, 'The marker is written');
  await page.locator('#upgrade-now', {hasText: 'Downloading, 50 %'}).waitFor();
  await page.click('#upgrade-start');
  await page.locator('#upgrade-answer', {hasText: /^-\d+: /}).waitFor();
  await page.locator('#upgrade-now', {hasText: 'Downloading, 50 %'}).waitFor();
  assert.equal(await page.locator('#upgrade-steps .done, #upgrade-steps .failed', {hasText: 'Notice'}).count(), 0);
  await page.locator('#tab-trouble').click();
  await page.click('#trouble-restart');
  await page.locator('#tab-upgrade').click();
  await page.locator('#upgrade-steps .failed', {hasText: 'Notice 17'}).waitFor();
  const now = await state();
  assert.equal(now.device.reboots, before.device.reboots);
  assert.equal(now.camera.config.fwver, before.camera.config.fwver);
});
