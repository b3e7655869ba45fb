// Starts Debian's Chromium through playwright-core: a new empty profile, no network of its own, a microphone that is a file.
import {existsSync, mkdtempSync, rmSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import {chromium} from 'playwright-core';

const program = process.env.CHROMIUM ?? ['/usr/bin/chromium', '/usr/bin/chromium-browser'].find(existsSync);

// {context, close}: microphone is a WAV file or nothing; more are options of the context (viewport, colorScheme ...).
export async function startBrowser({microphone, ...more} = {}) {
  const profile = mkdtempSync(join(tmpdir(), 'desk-browser-'));
  const context = await chromium.launchPersistentContext(profile, {
    executablePath: program,
    headless: true,
    timeout: 120000,
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking', '--disable-component-update',
      '--disable-sync', '--disable-dev-shm-usage', '--autoplay-policy=no-user-gesture-required', '--use-fake-ui-for-media-stream',
      '--use-fake-device-for-media-stream', ...(microphone ? [`--use-file-for-fake-audio-capture=${microphone}`] : [])],
    viewport: {width: 1440, height: 900},
    ...more,
  });
  const close = async () => {
    await context.close();
    rmSync(profile, {recursive: true, force: true});
  };
  return {context, close};
}
