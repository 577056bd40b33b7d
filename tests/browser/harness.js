// What the browser tests share: a real quor-webapi server on a free loopback
// port over a demo root laid out by quor-logdemo, Debian's Chromium driven by
// playwright-core, a direct client of the web API to compare the page with,
// and screenshots under the build directory.

import {spawn, spawnSync} from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import {fileURLToPath} from 'node:url';

import {chromium} from 'playwright-core';

const here = path.dirname(fileURLToPath(import.meta.url));
export const SOURCE_DIR = process.env.QUOR_SOURCE_DIR || path.resolve(here, '..', '..');
export const BUILD_DIR = process.env.QUOR_BUILD_DIR || path.join(SOURCE_DIR, 'build');
export const SCREENSHOT_DIR =
    process.env.QUOR_SCREENSHOT_DIR || path.join(BUILD_DIR, 'browser-screenshots');
const WEBAPI = path.join(BUILD_DIR, 'bin', 'quor-webapi');
const LOGDEMO = path.join(BUILD_DIR, 'bin', 'quor-logdemo');
const CHROMIUM = process.env.QUOR_CHROMIUM || '/usr/bin/chromium';

export const ADMIN = {account: 'admin', passwd: 'Browser-Test-Admin-1'};
export const GUEST = {account: 'guest', passwd: 'Browser-Test-Guest-1'};

// Every server started here, so that a failing test still ends them.
const running = new Set();
process.on('exit', () => {
  for (const child of running) child.kill('SIGKILL');
});

function Run(command, args, input) {
  const result = spawnSync(command, args, {input, encoding: 'utf8', timeout: 120000});
  if (result.status !== 0) {
    throw new Error(`${path.basename(command)} ${args.join(' ')} failed (${result.status}): ` +
                    `${result.stderr || result.error}`);
  }
  return result.stdout;
}

// The address quor-webapi serve prints once it listens, from its output so far.
function ServingUrl(output) {
  const match = /serving (http:\/\/127\.0\.0\.1:\d+\/)/.exec(output);
  return match && match[1];
}

// Lays out a demo root with an administrator and a user who is not one, and
// serves it. The caller must await stop() (an `after` hook), which ends the
// server and removes the root.
export async function StartServer({rows = 300, extraArgs = []} = {}) {
  const root = fs.mkdtempSync(path.join(os.tmpdir(), 'quor-browser-'));
  Run(LOGDEMO, ['--root', root, '--rows', String(rows), '--seed', '7']);
  Run(WEBAPI, ['adduser', '--root', root, ADMIN.account, '--admin', '--lang', 'en'],
      ADMIN.passwd + '\n');
  Run(WEBAPI, ['adduser', '--root', root, GUEST.account, '--lang', 'de'], GUEST.passwd + '\n');
  const child = spawn(WEBAPI, [
    // Two workers, as on a two-core appliance: fewer than the connections
    // Chromium opens, which the server must cope with.
    'serve', '--root', root, '--listen', '127.0.0.1:0', '--workers', '2',
    '--modules', path.join(BUILD_DIR, 'modules'), '--ui', path.join(SOURCE_DIR, 'ui'),
    ...extraArgs,
  ], {stdio: ['ignore', 'pipe', 'pipe']});
  running.add(child);
  let log = '';
  child.stdout.on('data', (chunk) => (log += chunk));
  child.stderr.on('data', (chunk) => (log += chunk));
  const exited = new Promise((resolve) => child.on('exit', resolve));
  const deadline = Date.now() + 20000;
  while (!ServingUrl(log) && child.exitCode === null && Date.now() < deadline) {
    await new Promise((resolve) => setTimeout(resolve, 50));
  }
  const url = ServingUrl(log);
  if (!url) {
    child.kill('SIGKILL');
    fs.rmSync(root, {recursive: true, force: true});
    throw new Error(`quor-webapi serve did not start: ${log}`);
  }
  return {
    url,
    root,
    log: () => log,
    async stop() {
      child.kill('SIGTERM');
      const timer = setTimeout(() => child.kill('SIGKILL'), 8000);
      await exited;
      clearTimeout(timer);
      running.delete(child);
      fs.rmSync(root, {recursive: true, force: true});
    },
  };
}

// Chromium with a fresh profile; close() removes the profile.
export async function LaunchBrowser() {
  const profile = fs.mkdtempSync(path.join(os.tmpdir(), 'quor-chromium-'));
  const context = await chromium.launchPersistentContext(profile, {
    executablePath: CHROMIUM,
    headless: true,
    acceptDownloads: true,
    viewport: {width: 1280, height: 860},
    locale: 'en-US',
    timezoneId: 'UTC',
    args: [
      '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync',
    ],
  });
  context.setDefaultTimeout(15000);
  const problems = [];
  const watch = (page) => {
    page.on('pageerror', (error) => problems.push(`page error: ${error.message}`));
    page.on('console', (message) => {
      // A refused resource or policy violation shows as a console error.
      if (message.type() === 'error' && !/status of 40[0-9]/.test(message.text())) {
        problems.push(`console: ${message.text()}`);
      }
    });
  };
  context.on('page', watch);
  for (const page of context.pages()) watch(page);
  return {
    context,
    problems,
    page: context.pages()[0] || (await context.newPage()),
    async close() {
      await context.close();
      fs.rmSync(profile, {recursive: true, force: true});
    },
  };
}

// The whole page, or only the window (`fullPage` false) where a modal
// dialog's backdrop covers the window alone.
export async function Screenshot(page, name, {fullPage = true} = {}) {
  fs.mkdirSync(SCREENSHOT_DIR, {recursive: true});
  await page.screenshot({path: path.join(SCREENSHOT_DIR, `${name}.png`), fullPage});
}

// Signs in through the form.
export async function SignIn(page, user = ADMIN) {
  await page.locator('#login-account').fill(user.account);
  await page.locator('#login-password').fill(user.passwd);
  await page.locator('#login-submit').click();
}

// Waits until the table shows the answer for the view in the address.
export async function Ready(page) {
  await page.waitForFunction(() => {
    const region = document.getElementById('log-table-region');
    return !document.getElementById('app-view').hidden &&
        region.getAttribute('aria-busy') === 'false' && region.dataset.view === location.hash;
  });
}

// One POST of a form; the answer's headers and its body as JSON.
async function Post(url, body, headers = {}) {
  const response = await fetch(url, {method: 'POST', body, headers});
  return {headers: response.headers, json: await response.json()};
}

// A session of its own on the web API, to ask what the page should show.
export class ApiClient {
  constructor(url) {
    this.url = url;
    this.cookie = '';
    this.token = '';
  }

  async Login(user = ADMIN) {
    const response = await Post(this.url + 'webapi/auth',
                                new URLSearchParams({method: 'login', ...user}));
    this.cookie = String(response.headers.get('set-cookie') || '').split(';')[0];
    const answer = response.json;
    if (!answer.success) throw new Error(`login failed: ${JSON.stringify(answer)}`);
    this.token = answer.data.token;
    return answer.data;
  }

  // Calls a method of the log API; texts are sent JSON-quoted as the page
  // does. Resolves to the answer envelope.
  async Call(method, params = {}, api = 'QUOR.Core.SyslogClient.Log') {
    const body = new URLSearchParams({api, version: '1', method});
    for (const [name, value] of Object.entries(params)) {
      body.set(name, typeof value === 'number' ? String(value) : JSON.stringify(value));
    }
    const response =
        await Post(this.url + 'webapi', body, {'X-Quor-Token': this.token, Cookie: this.cookie});
    return response.json;
  }

  async List(params) {
    const answer = await this.Call('list', params);
    if (!answer.success) throw new Error(`list failed: ${JSON.stringify(answer)}`);
    return answer.data;
  }

  // QUOR.LogCenter.Search: `query` by default, or `histogram`.
  async Search(params, method = 'query') {
    const answer = await this.Call(method, params, 'QUOR.LogCenter.Search');
    if (!answer.success) throw new Error(`${method} failed: ${JSON.stringify(answer)}`);
    return answer.data;
  }
}

// A server on a demo root of `rows` system-log rows, an API client signed in
// as the administrator, and Chromium signed in through the page showing
// `hash`. close() ends them all.
export async function OpenLogCenter({rows, hash = '#log=system'}) {
  const server = await StartServer({rows});
  let browser;
  try {
    const api = new ApiClient(server.url);
    await api.Login();
    browser = await LaunchBrowser();
    const {page} = browser;
    await page.goto(server.url + hash);
    await SignIn(page);
    await Ready(page);
    return {
      server, api, browser, page,
      async close() {
        await browser.close();
        await server.stop();
      },
    };
  } catch (error) {
    await browser?.close();
    await server.stop();
    throw error;
  }
}

// The texts of the table's body cells, row by row.
export async function TableRows(page) {
  return page.$$eval('#log-table tbody tr',
                     (rows) => rows.map((row) => [...row.cells].map((cell) => cell.textContent)));
}

export async function TableHeadings(page) {
  return page.$$eval('#log-table thead th',
                     (cells) => cells.map((cell) => cell.querySelector('span').textContent.trim()));
}

// The view's state as the page's address holds it.
export async function AddressState(page) {
  const hash = new URL(page.url()).hash.replace(/^#/, '');
  return Object.fromEntries(new URLSearchParams(hash));
}

// The axe-core violations of the page as it is now (rule id and the first
// offending element of each), evaluated in the page without touching its CSP.
const AXE_SOURCE = fs.readFileSync(path.join(here, 'node_modules', 'axe-core', 'axe.min.js'), 'utf8');
export async function AxeViolations(page) {
  await page.evaluate(AXE_SOURCE);
  return page.evaluate(async () => {
    const result = await globalThis.axe.run(document, {resultTypes: ['violations']});
    return result.violations.map((v) => `${v.id}: ${v.nodes[0] && v.nodes[0].html}`);
  });
}
