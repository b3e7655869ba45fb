// Alarms as they come, and the log beside them.
import assert from 'node:assert/strict';
import {test} from 'node:test';
import {camera, eventually, state, withBrowser} from './support/desk.mjs';

const open = withBrowser();

test('somebody walks by: the alarm, what raised it, and its lines', async (t) => {
  const page = await open(t);
  const before = (await state()).alarms.length;
  await page.click('#raise-MotionEvent');
  await eventually(async () => (await state()).alarms.length > before, 'an alarm');
  const row = page.locator('#alarms li[data-status="1"]').first();
  await row.locator('b', {hasText: 'Motion'}).waitFor();
  assert.match(await row.innerText(), /MotionEvent was 1.*index 1, "alarm", status 1/s);
  await page.getByRole('img', {name: /[1-9]\d* alarms, [1-9]\d* polls/}).waitFor();
  await row.getByRole('button').click();
  const marked = page.locator('.line.moment', {hasText: 'SendAlarmData!! index:'});
  await marked.first().waitFor();
  await page.locator('.timeline line.moment').waitFor({state: 'attached'});  // one
  await eventually(async () => await page.locator('#alarms li').count() === (await state()).alarms.length, 'each alarm has its row');
  await page.reload();
  await page.locator('#alarms li b', {hasText: 'Motion'}).first().waitFor();
});

// What a browser would sound and show; whoever is asked says "granted".
function listenToTold() {
  window.told = {notices: [], tones: 0};
  window.Notification = class {
    static requestPermission = async () => 'granted';
    constructor(title, {body}) { window.told.notices.push([title, body]); }
  };
  const {start} = OscillatorNode.prototype;
  OscillatorNode.prototype.start = function begin(...when) {
    window.told.tones++;
    return start.apply(this, when);
  };
}

test('a tone and a notification for who wants them, after a reload too', async (t) => {
  const page = await open(t, 'live', (made) => made.addInitScript(listenToTold));
  await page.getByLabel('tone').check();
  await page.getByLabel('notify').check();
  await page.reload();
  await page.locator('#agent-state', {hasText: 'polling'}).waitFor();
  assert.ok(await page.getByLabel('notify').isChecked());
  await page.click('#raise-AudioEvent');
  await page.waitForFunction(() => window.told.notices.length > 0);
  assert.deepEqual(await page.evaluate(() => window.told), {notices: [['Sound', 'AudioEvent was 1']], tones: 1});
  await page.getByLabel('tone').uncheck();
  await page.getByLabel('notify').uncheck();
  const alarms = await page.locator('#alarms li').count();
  await page.click('#raise-AudioEvent');
  await page.waitForFunction((count) => document.querySelectorAll('#alarms li').length > count, alarms);
  assert.equal(await page.evaluate(() => window.told.tones), 1);
});

test('a weak battery: value and threshold', async (t) => {
  const page = await open(t, 'device');
  t.after(() => camera('PATCH', '/status', {Battery: '90'}));
  await page.locator('#sensor-Battery').fill('5');
  await eventually(async () => (await camera('GET', '/state')).status.Battery === '5', 'the camera says 5');
  await page.goto(`${page.url().split('#')[0]}#live`);
  const row = page.locator('#alarms li[data-status="13"]').first();
  await row.waitFor();
  assert.match(await row.innerText(), /Battery low[\s\S]*Battery 5 under BATTERY_LOW 20/);
});

// The log's cycles, a text at the end of each, and how many of these lines nobody can see.
const cycles = (page) => page.locator('.log details');
const end = '(Polling) end of a time.';
const unseen = (page) => page.locator('.line', {hasText: end}).evaluateAll((lines) => lines.filter((line) => !line.checkVisibility()).length);
const allSeen = (page) => eventually(async () => await unseen(page) === 0, 'the end of each cycle is seen');

test('the log: explained, filtered by text and module, folded, by keyboard', async (t) => {
  const page = await open(t);
  await page.getByLabel('Filter the log by text').fill(end);
  const line = await page.locator('.line', {hasText: end}).last().elementHandle();  // a new one: its requests are known
  await line.click();
  await page.locator('.explain', {hasText: 'POLL_STATUS_PERIOD_SEC as configured'}).waitFor();
  assert.match(await page.locator('.explain').innerText(), /agent\/polling\.cpp[\s\S]*around the pause[\s\S]*Nothing/);
  assert.match(await (await line.$('time')).innerText(), /^\d\d:\d\d:\d\d\.\d$/);
  // The same moment in the time line and among the requests.
  await page.locator('.timeline line.moment').waitFor({state: 'attached'});
  await page.locator('#tab-requests').click();
  await page.locator('.wf-row.moment').first().waitFor();
  assert.equal(await page.locator('.line:not([hidden])').evaluateAll((lines) => lines.filter((each) => !each.dataset.text.includes('(Polling) end of a time.')).length), 0);
  await page.getByLabel('Filter the log by text').fill('');
  await page.getByLabel('Filter the log by module').selectOption('curlmgr');
  const texts = await page.locator('.line:not([hidden])').evaluateAll((lines) => lines.map((each) => each.dataset.module));
  assert.ok(texts.length > 3 && texts.every((module) => module === 'curlmgr'), texts.slice(0, 5).join());
  await page.getByLabel('Filter the log by module').selectOption('');
  await page.locator('.log').focus();
  await page.keyboard.press('ArrowUp');
  const first = await page.locator('.line.current').elementHandle();
  await page.keyboard.press('ArrowDown');
  assert.ok(await page.locator('.line.current').evaluate((line, above) => above.compareDocumentPosition(line) & Node.DOCUMENT_POSITION_FOLLOWING, first));
  // In one step: a cycle may begin at any instant.
  assert.equal(await page.getByRole('button', {name: 'Fold'}).evaluate((fold) => {
    fold.click();
    return document.querySelectorAll('.log details[open]').length;
  }), 0);
});

test('the lines of a moment: its own, though a busy machine stamped it late, and those that are yet to come', async (t) => {
  const page = await open(t);
  const marked = await page.evaluate(async () => {
    const {pointAt, tell} = await import('./js/stream.js');
    const moment = Date.now() + 1e9;  // where nothing else is
    const line = (after, text) => tell('log', [{t: moment + after, text}]);
    line(900, 'curlmgr: performing curl, name = late');
    line(1000, 'another');
    pointAt(moment, 'requests');
    line(100, 'yet to come');
    return [...document.querySelectorAll('.line.moment')].map((each) => each.dataset.text);
  });
  assert.deepEqual(marked, ['curlmgr: performing curl, name = late', 'yet to come']);
});

// Holds the reference of the log back until it is let go.
function withLateReference() {
  let letGo;
  const gate = new Promise((resolve) => { letGo = resolve; });
  const prepare = (page) => page.route('**/api/log-reference', async (route) => {
    await gate;
    await route.continue();
  });
  return {prepare, letGo};
}

// The log's lines have their modules: the reference is there.
const referenceIsHere = (page) => page.locator('option[value="curlmgr"]').waitFor({state: 'attached'});

test('a reference that arrives late folds no line that is looked for, and explains the one that was chosen', async (t) => {
  const {prepare, letGo} = withLateReference();
  t.after(letGo);
  const page = await open(t, 'live', prepare);
  await page.getByLabel('follow').uncheck();
  await cycles(page).nth(4).waitFor({state: 'attached'});
  await page.getByLabel('Filter the log by text').fill(end);
  await page.locator('.line', {hasText: end}).first().click();
  await page.locator('.explain', {hasText: 'on its way'}).waitFor();
  letGo();
  await referenceIsHere(page);
  await allSeen(page);
  await page.locator('.explain', {hasText: 'POLL_STATUS_PERIOD_SEC as configured'}).waitFor();
  await page.locator('.line.current.moment', {hasText: end}).waitFor();
});

test('a cycle that begins while lines are looked for folds none of them, and opens none that was folded by hand', async (t) => {
  const page = await open(t);
  await referenceIsHere(page);
  await page.getByLabel('follow').uncheck();
  await cycles(page).nth(4).waitFor({state: 'attached'});
  await page.getByLabel('Filter the log by text').fill(end);
  await allSeen(page);
  const last = await cycles(page).last().elementHandle();
  const byHand = await last.evaluateHandle((each) => each.previousElementSibling);
  await (await byHand.$('summary')).click();
  await page.waitForFunction(([from, count]) => {
    const all = [...from.parentElement.children];
    return all.length - all.indexOf(from) > count;
  }, [last, 3]);
  assert.equal(await byHand.evaluate((each) => each.open), false);
  await (await byHand.$('summary')).click();
  await allSeen(page);
});
