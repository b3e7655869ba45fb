// The desk's HTTP: who is kept out, and whether it is what its description says.
import assert from 'node:assert/strict';
import {spawn} from 'node:child_process';
import {mkdtempSync, readFileSync, rmSync} from 'node:fs';
import {request} from 'node:http';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import {test} from 'node:test';
import {fileURLToPath} from 'node:url';
import {ask, base, eventually, state} from './support/desk.mjs';

const description = JSON.parse(readFileSync(new URL('../../devkit/console/web/openapi.json', import.meta.url)));
const source = readFileSync(new URL('../../devkit/console/server.cpp', import.meta.url), 'utf8');
const {port} = new URL(base);

// fetch() sets Host by itself.
function plain(path, headers) {
  return new Promise((resolve, reject) => {
    request({host: '127.0.0.1', port, path, headers}, (reply) => {
      reply.resume();
      resolve(reply);
    }).on('error', reject).end();
  });
}

test('only this machine gets an answer', async () => {
  await assert.rejects(new Promise((resolve, reject) => {
    request({host: '127.0.0.2', port}, resolve).on('error', reject).end();
  }), {code: 'ECONNREFUSED'});
});

test('a second desk beside this one has another port, which it tells', async (t) => {
  const folder = mkdtempSync(join(tmpdir(), 'desk-second-')), file = join(folder, 'port.json');
  const second = spawn(fileURLToPath(new URL('../../build/release/devkit/console/desk_console', import.meta.url)),
    ['--run', folder, '--web', fileURLToPath(new URL('../../devkit/console/web', import.meta.url)), '--port', port, '--port-file', file]);
  t.after(() => {
    second.kill();
    rmSync(folder, {recursive: true});
  });
  const told = await eventually(() => JSON.parse(readFileSync(file)).port, 'its port');
  assert.notEqual(told, Number(port));
  assert.equal((await fetch(`http://127.0.0.1:${told}/`)).status, 200);
});

test('foreign pages are kept out by Host and Origin', async () => {
  const own = `127.0.0.1:${port}`;
  const rows = [[{}, 200], [{Host: `localhost:${port}`}, 200], [{Host: own, Origin: `http://${own}`}, 200],
    [{Host: 'evil.example'}, 403], [{Host: `evil.example:${port}`}, 403], [{Host: '127.0.0.1:1'}, 403],
    [{Host: own, Origin: 'http://evil.example'}, 403], [{Host: own, Origin: 'null'}, 403], [{Host: own, Origin: `https://${own}.evil.example`}, 403],
    [{Host: own, 'Sec-Fetch-Site': 'cross-site'}, 403]];
  for (const [headers, status] of rows) for (const path of ['/', '/api/state', '/camera/state'])
    assert.equal((await plain(path, headers)).statusCode, status, `${path} ${JSON.stringify(headers)}`);
});

test('nothing inline may run, and nothing foreign', async () => {
  const policy = (await plain('/', {})).headers['content-security-policy'];
  assert.match(policy, /default-src 'none'/);
  assert.match(policy, /script-src 'self';/);
  assert.doesNotMatch(policy, /unsafe|http:|\*/);
  const page = await (await fetch(`${base}/`)).text();
  assert.doesNotMatch(page, /<style|<script(?![^>]* src=)|\son\w+=|\sstyle=|https?:\/\//);
});

test('no file beyond the page is given out', async () => {
  for (const path of ['/../server.cpp', '/%2e%2e/server.cpp', '/api/files/..%2f..%2f..%2fworking%2fVeloAgent.conf', '/api/files/.desk_filler'])
    assert.equal((await plain(path, {})).statusCode, 404, path);
});

// What the server's source routes, with its patterns as the description writes them.
function routes() {
  const found = [...source.matchAll(/server\.(Get|Post|Put|Delete)\("([^"]+)"/g)].map(([, method, path]) => `${method.toLowerCase()} ${path}`);
  return found.map((route) => route.replace('/api/tools/([a-z_]+)', '/api/tools/{tool}').replace('([^/]+)', '{name}').replace('([a-z0-9-]+)', '{name}')).sort();
}

test('the description has every route, and no other', () => {
  const described = Object.entries(description.paths).flatMap(([path, methods]) => Object.keys(methods).map((method) => `${method} ${path}`));
  assert.deepEqual(described.filter((each) => !/\{rest\}/.test(each)).sort(), routes());
  for (const side of ['/camera/{rest}', '/sdk/{rest}']) assert.deepEqual(Object.keys(description.paths[side]).sort(), ['delete', 'get', 'patch', 'post', 'put']);
});

const fits = {object: (value) => value !== null && typeof value === 'object' && !Array.isArray(value), array: Array.isArray, string: (value) => typeof value === 'string',
  number: (value) => typeof value === 'number', boolean: (value) => typeof value === 'boolean', null: (value) => value === null};

function check(value, schema, where) {
  if (!schema?.type) return;
  const types = [].concat(schema.type);
  assert.ok(types.some((type) => fits[type](value)), `${where} is ${JSON.stringify(value)?.slice(0, 80)}, not ${types}`);
  if (value === null) return;
  for (const name of schema.required ?? []) assert.ok(name in value, `${where} lacks ${name}`);
  for (const [name, inner] of Object.entries(schema.properties ?? {})) if (name in value) check(value[name], inner, `${where}.${name}`);
  if (schema.items) for (const item of value) check(item, schema.items, `${where}[]`);
}

test('what the server answers is what the description says', async () => {
  await eventually(async () => (await state()).sdk?.pid && (await state()).device, 'the agent logs in');
  for (const [path, methods] of Object.entries(description.paths)) {
    for (const [method, operation] of Object.entries(methods)) {
      for (const example of operation['x-examples'] ?? []) {
        const reply = await fetch(base + (example.path ?? path), {method: method.toUpperCase(), body: example.body && JSON.stringify(example.body)});
        assert.equal(reply.status, example.status, `${method} ${example.path ?? path}`);
        const content = operation.responses[example.status]?.content;
        assert.ok(operation.responses[example.status], `${method} ${path} ${example.status} is not described`);
        const [type] = Object.keys(content ?? {});
        if (type) assert.ok(reply.headers.get('content-type').startsWith(type), `${path}: ${reply.headers.get('content-type')}`);
        if (type === 'application/json') check(await reply.json(), content[type].schema, `${method} ${path}`);
        else await reply.body?.cancel();
      }
    }
  }
});

test('the stream begins with the state, complete, and goes on with changes', async () => {
  const reply = await fetch(`${base}/events`);
  const reader = reply.body.pipeThrough(new TextDecoderStream()).getReader();
  let text = '';
  const has = async (pattern) => {
    while (!pattern.test(text)) text += (await reader.read()).value;
  };
  await has(/^event: ready$/m);
  const names = [...text.matchAll(/^event: (\w+)$/gm)].map(([, name]) => name);
  assert.equal(names[0], 'hello');
  for (const name of ['camera', 'sdk', 'device', 'log', 'samples']) assert.ok(names.slice(0, names.indexOf('ready')).includes(name), name);
  text = '';
  await ask('PATCH', '/camera/status', {Battery: '77'});
  await has(/^event: camera\ndata: .*"Battery":"77"/m);
  await ask('PATCH', '/camera/status', {Battery: '90'});
  await reader.cancel();
});

test('the page knows every line that the reference knows', async () => {
  const page = readFileSync(new URL('../../devkit/console/web/js/explain.js', import.meta.url), 'utf8');
  const own = fetch;
  globalThis.fetch = (path) => own(`${base}/${path}`);
  const {entriesOf, loadReference, moduleOf} = await import(`data:text/javascript,${encodeURIComponent(page)}`);
  await loadReference().finally(() => { globalThis.fetch = own; });
  for (const log of ['work', 'trouble']) {
    const lines = readFileSync(new URL(`../docs/${log}.log`, import.meta.url), 'utf8').split('\n').filter((line) => line.trim());
    assert.ok(lines.length > 500);
    // But those that begin with the bare version, which only the line before them tells.
    assert.deepEqual(lines.filter((line) => entriesOf(line).length === 0 && !line.startsWith('1.0.3')), [], log);
  }
  for (const [line, file] of [['*** (main) myPoll... ***', 'main'], ['high size: 1', 'curlmgr'], ['> GET /CGI/CameraStatus?Battery HTTP/1.1', 'libcurl']])
    assert.equal(moduleOf(line), file, line);
  assert.deepEqual(entriesOf('a line that nobody prints'), []);
});
