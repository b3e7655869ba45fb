// The desk that a test drives (DESK_URL), and pages of it in one browser. A page that writes an error to its console fails
// its test.
import assert from 'node:assert/strict';
import {appendFileSync, mkdirSync} from 'node:fs';
import {after, before} from 'node:test';
import {startBrowser} from './chromium.mjs';

export const base = process.env.DESK_URL ?? 'http://127.0.0.1:8055';
export const results = process.env.DESK_RESULTS ?? 'build/browser';
mkdirSync(results, {recursive: true});

export async function askAt(address, method, body) {
  const reply = await fetch(address, {method, body: body === undefined ? undefined : JSON.stringify(body)});
  const text = await reply.text();
  assert.ok(reply.ok, `${method} ${address}: ${reply.status} ${text}`);
  return text ? JSON.parse(text) : null;
}
export const ask = (method, path, body) => askAt(`${base}${path}`, method, body);
export const camera = (method, path, body) => ask(method, `/camera${path}`, body);
export const sdk = (method, path, body) => ask(method, `/sdk${path}`, body);
export const state = () => ask('GET', '/api/state');

// Seconds within which comes what a quiet machine has at once. No test waits less for what takes processor time: what the page
// must do sooner is measured, not waited for.
export const patience = 60;

// Waits until f() gives something true, and gives that.
export async function eventually(f, what, seconds = patience) {
  const deadline = Date.now() + seconds * 1000;
  for (;;) {
    const got = await Promise.resolve().then(f).catch(() => null);
    if (got) return got;
    if (Date.now() > deadline) throw new Error(`never came within ${seconds} s: ${what}`);
    await new Promise((resolve) => { setTimeout(resolve, 100); });
  }
}

// A browser for the tests of a file; gives open(t, part, prepare): a page whose errors, and questions to other hosts, fail the test t;
// prepare(page) comes before it loads.
export function withBrowser(options) {
  let browser;
  before(async () => {
    browser = await startBrowser(options);
    await eventually(async () => (await state()).sdk?.pid, 'the agent logs in', 2 * patience);
  });
  after(() => browser.close());
  return async (t, part = 'live', prepare = null) => {
    const page = await browser.context.newPage();
    page.setDefaultTimeout(patience * 1000);
    await prepare?.(page);
    const errors = [];
    page.on('console', (message) => { if (['error', 'warning'].includes(message.type())) errors.push(`${message.text()} ${message.location().url}`); });
    page.on('pageerror', (error) => errors.push(error.stack));
    page.on('request', (request) => { if (!/^(blob|data):/.test(request.url()) && !request.url().startsWith(`${base}/`)) errors.push(`asked elsewhere: ${request.url()}`); });
    t.after(async () => {
      await page.close();
      assert.deepEqual(errors, [], 'errors in the console');
    });
    await page.goto(`${base}/#${part}`);
    await page.locator('#agent-state', {hasText: 'polling'}).waitFor();
    return page;
  };
}

// How late this machine wakes whoever waits, at worst but for one time in ten, milliseconds: it tells a busy one.
export async function lateness() {
  const late = [];
  for (let i = 0; i < 100; i++) {
    const begin = performance.now();
    await new Promise((resolve) => { setTimeout(resolve, 10); });
    late.push(performance.now() - begin - 10);
  }
  return share(late, 0.9);
}

// A line of figures, for ./test --browser to show at its end.
export function figure(line) {
  console.log(line);
  appendFileSync(`${results}/figures.txt`, `${line}\n`);
}

// The value that this share of all does not exceed.
export const share = (values, part) => [...values].sort((a, b) => a - b)[Math.min(Math.floor(values.length * part), values.length - 1)];
export const median = (values) => share(values, 0.5);
export const spread = (values) => `minimum ${Math.round(Math.min(...values))}, median ${Math.round(median(values))}, maximum ${Math.round(Math.max(...values))} ms (${values.length} tries)`;
