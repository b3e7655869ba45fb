// Each part in light and dark, wide and narrow: nothing serious for axe, nothing wider than the screen, and a picture of it.
import assert from 'node:assert/strict';
import {readFileSync} from 'node:fs';
import {createRequire} from 'node:module';
import {test} from 'node:test';
import {camera, results, withBrowser} from './support/desk.mjs';

const open = withBrowser({bypassCSP: false});
const axe = readFileSync(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');
const parts = ['live', 'device', 'talk', 'upgrade', 'trouble', 'requests', 'process'];
const sizes = {wide: {width: 1440, height: 900}, narrow: {width: 360, height: 740}};

// The whole page with the first part; of the others what is theirs. One poll's lines stand for all: thousands that look alike
// would take axe minutes.
async function violations(page, part) {
  const where = part === parts[0] ? {exclude: [['.log details:not(:last-child)']]} : {include: [[`#part-${part}`]]};
  const found = await page.evaluate((here) => window.axe.run(here, {resultTypes: ['violations']}), where);
  return found.violations.filter(({impact}) => ['serious', 'critical'].includes(impact)).map(({id, nodes}) => `${id}: ${nodes.map((node) => node.target).join(' | ')}`);
}

for (const scheme of ['light', 'dark']) {
  for (const [name, size] of Object.entries(sizes)) {
    test(`${scheme}, ${name}`, async (t) => {
      const page = await open(t);
      await page.emulateMedia({colorScheme: scheme, reducedMotion: 'reduce'});
      await page.setViewportSize(size);
      await camera('POST', '/event', {name: 'MotionEvent', polls: 1, value: '1'});
      await page.locator('#alarms li').first().waitFor();
      await page.click('#watch');
      await page.waitForFunction(() => window.deskPlayer.firstPicture !== null);
      await page.waitForFunction(() => document.querySelectorAll('#part-live .plot path[d*="L"]').length > 4);
      await page.evaluate(axe);
      for (const part of parts) {
        await page.locator(`#tab-${part}`).click();
        await page.locator(`#part-${part}`).waitFor();
        if (part === 'device') await page.locator('tr[data-name="Battery"] button').click();
        await page.evaluate(() => new Promise((drawn) => { requestAnimationFrame(() => requestAnimationFrame(drawn)); }));
        assert.deepEqual(await violations(page, part), [], part);
        const width = await page.evaluate(() => document.documentElement.scrollWidth);
        assert.ok(width <= size.width, `${part} is ${width} pixels wide`);
        await page.screenshot({path: `${results}/${part}-${scheme}-${name}.png`, fullPage: name === 'narrow'});
      }
    });
  }
}

test('by keyboard alone: tabs, a switch, an alarm', async (t) => {
  const page = await open(t);
  await page.locator('#tab-live').focus();
  await page.keyboard.press('ArrowRight');
  await page.locator('#part-device').waitFor();
  assert.equal(await page.locator('#tab-device').getAttribute('aria-selected'), 'true');
  await page.keyboard.press('ArrowLeft');
  await page.locator('#part-live').waitFor();  // what is hidden takes no focus
  await page.locator('#raise-AudioEvent').focus();
  await page.keyboard.press('Enter');
  await page.locator('#alarms li[data-status="3"]').first().waitFor();
});
