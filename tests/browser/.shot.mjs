import {startBrowser} from './support/chromium.mjs';
const parts = (process.argv[2] ?? 'live,device,talk,upgrade,trouble,requests,process').split(',');
const scheme = process.argv[3] ?? 'light', width = Number(process.argv[4] ?? 1440);
const {context, close} = await startBrowser({colorScheme: scheme, viewport: {width, height: width < 600 ? 780 : 900}});
const page = context.pages()[0] ?? await context.newPage();
page.on('console', (m) => console.log('console', m.type(), m.text()));
page.on('pageerror', (e) => console.log('pageerror', e.message));
page.on('requestfailed', (r) => console.log('failed', r.url(), r.failure()?.errorText));
for (const part of parts) {
  await page.goto(`http://127.0.0.1:8055/#${part}`);
  await page.waitForTimeout(1200);
  if (part === 'live') { await page.click('#watch'); await page.waitForTimeout(4000); console.log(await page.evaluate(() => ({first: deskPlayer.firstPicture, jumps: deskPlayer.jumps, t: deskPlayer.video.currentTime, rs: deskPlayer.video.readyState, badge: document.querySelector('.latency').textContent}))); }
  await page.screenshot({path: `/tmp/shot-${part}-${scheme}-${width}.png`, fullPage: width < 600});
}
await close();
