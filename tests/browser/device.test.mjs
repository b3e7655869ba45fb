// Parameters, statuses, remote operations, recordings and pictures.
import assert from 'node:assert/strict';
import {readFileSync} from 'node:fs';
import {test} from 'node:test';
import {camera, eventually, withBrowser} from './support/desk.mjs';

const open = withBrowser();

test('a parameter is written and read back, with the request that it became', async (t) => {
  const page = await open(t, 'device');
  const row = page.locator('tr[data-name="md_sensitivity"]');
  await page.locator('#set-md_sensitivity').fill('8');
  await row.locator('.answer b', {hasText: 'set to 8'}).waitFor();
  assert.match(await row.locator('.answer').innerText(), /in \d.*POST \/CGI\/CameraSetup .*<SENSITIVITY>4</s);
  assert.equal((await camera('GET', '/state')).settings.MOTION_DETECTION.SENSITIVITY, '4');
  await row.getByRole('button').click();
  await row.locator('.answer b', {hasText: /^4$/}).waitFor();
  assert.equal(await page.locator('#set-md_sensitivity').inputValue(), '4');
  await page.locator('#set-md_armed').check();
  await eventually(async () => (await camera('GET', '/state')).settings.MOTION_DETECTION.ENABLE === 'ON', 'the switch is on');
});

test('all parameters and all statuses answer', async (t) => {
  const page = await open(t, 'device');
  for (const [button, count] of [['#read-parameters', 12], ['#read-statuses', 19]]) {
    await page.click(button);
    await page.locator(`${button}:not([disabled])`).waitFor();
    const answers = await page.locator('section.card', {has: page.locator(button)}).locator('.answer b').allInnerTexts();
    assert.equal(answers.length, count);
    assert.deepEqual(answers.filter((text) => text === '' || text === 'ERROR'), []);
  }
  assert.equal(await page.locator('tr[data-name="Battery"] .answer b').innerText(), '90');
});

test('each remote operation is answered with its request', async (t) => {
  const page = await open(t, 'device');
  const buttons = page.locator('[data-command]'), answer = page.locator('#operation-answer');
  const commands = await buttons.evaluateAll((all) => all.map((each) => each.dataset.command));
  assert.deepEqual([...new Set(commands.map((each) => each.split(' ')[0]))].sort(), ['1', '2', '30', '4', '40', '42', '43', '44', '45', '5']);
  for (const command of commands) {
    await page.locator(`[data-command="${command}"]`).click();
    await answer.locator('b').waitFor();
    assert.match(await answer.innerText(), /^0: done in \d/, command);
  }
  for (const word of ['lost', 'back']) {
    await page.getByRole('group', {name: 'Cloud connection'}).getByRole('button', {name: word}).click();
    await answer.locator('b', {hasText: `the cloud is told ${word}`}).waitFor();
  }
});

test('what the sensors say is drawn', async (t) => {
  const page = await open(t, 'device');
  t.after(() => camera('PATCH', '/status', {Battery: '90', Temperature: '24'}));
  await page.locator('#sensor-Battery').fill('77');
  await page.locator('#sensor-Temperature').fill('31');
  for (const name of ['Battery: 77 %', 'Temperature: 31 °C', /^Card free: [1-9]\d* MB$/]) await page.getByRole('img', {name}).waitFor();
});

test('the night light goes on and off', async (t) => {
  const page = await open(t, 'device');
  for (const value of ['1', '0']) {
    await page.locator(`[data-command="30 ${value}"]`).click();
    await eventually(async () => (await camera('GET', '/state')).night_light === value, `night light ${value}`);
  }
  await page.locator('#operation-answer', {hasText: /NIGHT_LIGHT/}).waitFor();
});

test('a recording is started, cut, stopped, logged, and saved from the card', async (t) => {
  const page = await open(t, 'device');
  await page.locator('#record-seconds').fill('300');
  await page.click('#record-start');
  await page.locator('.pill', {hasText: /recording AAA/}).waitFor();
  await eventually(async () => (await page.locator('#record-log').innerText()).split('.MP4').length > 2, 'two pieces');
  await page.click('#record-stop');
  await page.locator('.pill', {hasText: 'no recording'}).waitFor();
  await page.locator('#record-log', {hasText: '.MP4'}).waitFor();
  const link = page.getByRole('link', {name: /Save AAA.*MP4/}).first();
  const [download] = await Promise.all([page.waitForEvent('download'), link.click()]);
  assert.equal(readFileSync(await download.path()).subarray(4, 8).toString(), 'ftyp');
});

test('photo and thumbnail are pictures', async (t) => {
  const page = await open(t, 'device');
  for (const kind of ['photo', 'thumbnail']) {
    await page.click(`#take-${kind}`);
    await page.waitForFunction((id) => document.getElementById(id).naturalWidth > 10, kind);
  }
});
