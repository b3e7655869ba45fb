// Troubles: ordered, seen in force, healed; and a scenario with its questions.
import assert from 'node:assert/strict';
import {test} from 'node:test';
import {ask, camera, eventually, patience, state, withBrowser} from './support/desk.mjs';

const open = withBrowser();
const nothing = (page) => page.getByText('Nothing is wrong.').waitFor();

test('a misbehaviour is ordered, meets a poll, and is healed', async (t) => {
  const page = await open(t, 'trouble');
  const form = page.locator('#fault');
  await form.locator('[name="endpoint"]').selectOption('CameraStatus');
  await form.locator('[name="kind"]').selectOption('http_status');
  await form.locator('[name="status"]').fill('503');
  await form.getByRole('button', {name: 'Order it'}).click();
  await page.locator('#force li', {hasText: /CameraStatus: http_status.*503/}).waitFor();
  await eventually(async () => (await camera('GET', '/faults'))[0]?.hits > 0, 'a poll meets it');
  await page.getByRole('button', {name: /Heal: CameraStatus/}).click();
  await nothing(page);
  assert.deepEqual(await camera('GET', '/faults'), []);
});

test('each misbehaviour can be ordered with its numbers, and healed', async (t) => {
  const page = await open(t, 'trouble');
  const form = page.locator('#fault'), kind = form.locator('[name="kind"]');
  const kinds = await kind.locator('option').evaluateAll((all) => all.map((each) => each.value));
  assert.equal(kinds.length, 14);
  await form.locator('[name="endpoint"]').selectOption('photo');  // which nobody asks for here
  for (const each of kinds) {
    await kind.selectOption(each);
    await form.getByRole('button', {name: 'Order it'}).click();
    await page.locator('#force li', {hasText: `photo: ${each}`}).waitFor();
    assert.deepEqual((await camera('GET', '/faults')).map((fault) => fault.kind), [each]);
    await page.getByRole('button', {name: /Heal: photo/}).click();
    await nothing(page);
  }
});

const tiles = [
  ['vanish', (now) => now.camera.network === 'vanished'], ['refuse', (now) => now.camera.network === 'refusing'],
  ['card-full', (now) => now.device.card.free_mb < 2], ['card-out', (now) => now.camera.status.SD === '0'],
  ['ntp', (now) => now.device.tools?.ntpdate?.exit === '1'], ['ping', (now) => now.device.tools?.ping?.exit === '1'],
  ['slow-ping', (now) => now.device.tools?.ping?.delay === '4'], ['ifconfig', (now) => now.device.tools?.ifconfig?.exit === '1'],
  ['netstat', (now) => now.device.tools?.netstat?.stdout === ''], ['reboot', (now) => now.device.tools?.qmx_reboot?.exit === '1'],
  ['stall', (now) => now.sdk.capture.stalled], ['sdk-refuses', (now) => now.sdk.alarm_result === -1],
];

test('each trouble of network, card, tools and SDK is on and off again', async (t) => {
  const page = await open(t, 'trouble');
  for (const [id, holds] of tiles) {
    const tile = page.locator(`#trouble-${id}`);
    await tile.click();
    await eventually(async () => holds(await state()), `${id} is in force`);
    await page.locator(`#trouble-${id}[aria-pressed="true"]`).waitFor();
    assert.equal(await page.locator('#force li').count(), 1, id);
    await page.locator('#force li').getByRole('button').click();
    await page.locator(`#trouble-${id}[aria-pressed="false"]`).waitFor();
    assert.ok(!holds(await state()), `${id} is healed`);
  }
  await nothing(page);
});

test('a stepped clock is seen and set back', async (t) => {
  const page = await open(t, 'trouble');
  await page.locator('#trouble-clock-on').click();
  await page.locator('#force li', {hasText: '3600 s off'}).waitFor();
  // The agent's own words tell the hour: the seconds of the epoch that its polls print.
  await eventually(async () => (await state()).log.some(({text, t: when}) => Number(/curr tv_sec:(\d+)/.exec(text)?.[1] ?? 0) * 1000 - when > 3500000), 'the agent sees the step');
  await page.click('#heal-all');
  await nothing(page);
});

test('sessions end: the agent logs in again', async (t) => {
  const page = await open(t, 'trouble');
  const before = (await state()).camera.logins;
  await page.locator('#trouble-expire').click();
  await eventually(async () => (await state()).camera.logins > before, 'a login');
});

test('a bad night ends with its questions answered', async (t) => {
  const page = await open(t, 'trouble');
  const {seconds} = (await ask('GET', '/api/scenarios')).find(({name}) => name === 'bad-night');  // at most
  await page.locator('#scenario-bad-night').click();
  await page.locator('#scenario-steps li', {hasText: 'The night is over'}).waitFor({timeout: (seconds + patience) * 1000});
  await page.locator('#scenario-answers dd').nth(4).waitFor();
  const answers = await page.locator('#scenario-answers dd').allInnerTexts();
  assert.equal(answers.length, 5);
  assert.deepEqual(answers.filter((text) => !text.startsWith('Yes')), []);
});
