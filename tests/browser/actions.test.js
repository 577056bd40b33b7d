// The page's actions and its reach: export of the current filters as CSV and
// HTML files, clear with its confirmation, the language switch, the keyboard,
// a narrow window, and refreshing by hand and by itself.

import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import {after, before, test} from 'node:test';

import {OpenLogCenter, Ready, Screenshot, TableHeadings, TableRows} from './harness.js';

let server;
let browser;
let page;
let api;
let center;

before(async () => {
  center = await OpenLogCenter({rows: 300});
  ({server, browser, page, api} = center);
});

after(async () => {
  await center?.close();
});

async function DownloadOf(buttonName) {
  const [download] = await Promise.all([
    page.waitForEvent('download'),
    page.getByRole('button', {name: buttonName}).click(),
  ]);
  const file = await download.path();
  return {name: download.suggestedFilename(), text: fs.readFileSync(file, 'utf8')};
}

test('Export CSV downloads every entry the filters select, in the log layout', async () => {
  await page.goto(server.url + '#log=system&level=warning%2Cerr&size=25');
  await Ready(page);
  const expected = await api.List({logtype: 'system', level: 'warning,err', offset: 0, limit: 0});
  assert.ok(expected.items.length > 25, 'the export holds more than the page');

  const {name, text} = await DownloadOf('Export CSV');
  assert.match(name, /^syslog_.*\.csv$/);
  const lines = text.split('\r\n');
  assert.equal(lines[0], 'System');
  assert.equal(lines[1], 'Level,Log,Time,User,Event,');
  const data = lines.slice(2).filter((line) => line !== '');
  assert.equal(data.length, expected.items.length);
  const words = {warn: 'Warning', err: 'Error'};
  for (const [index, record] of expected.items.entries()) {
    assert.ok(data[index].startsWith(
                  `${words[record.level]},${record.logtype},${record.time},${record.who},`),
              `line ${index + 2}: ${data[index]}`);
  }
  // The browser replaces the colons of the time in the file name.
  assert.match(await page.locator('#status').innerText(), /Downloaded syslog_[-0-9:]+\.csv\./);
});

test('Export HTML downloads a document of the same entries', async () => {
  await page.goto(server.url + '#log=disk');
  await Ready(page);
  const {name, text} = await DownloadOf('Export HTML');
  assert.match(name, /^disklog_.*\.html$/);
  const expected = await api.List({logtype: 'disk', offset: 0, limit: 0});
  assert.match(text, /<table/i);
  assert.equal((text.match(/<tr/gi) || []).length, expected.items.length + 1);
});

test('Clear asks first, names the logs it empties, and then shows the emptied log',
     async () => {
       await page.goto(server.url + '#log=connection&page=2');
       await Ready(page);
       const before = await api.List({logtype: 'connection', offset: 0, limit: 1});
       assert.ok(before.total > 0);

       await page.getByRole('button', {name: 'Clear…'}).click();
       const dialog = page.getByRole('dialog', {name: 'Clear logs'});
       await dialog.waitFor();
       assert.deepEqual(await dialog.locator('li').allInnerTexts(), ['Connection']);
       await Screenshot(page, 'clear-confirmation', {fullPage: false});
       await page.keyboard.press('Escape');
       await dialog.waitFor({state: 'hidden'});
       assert.equal((await api.List({logtype: 'connection', offset: 0, limit: 1})).total,
                    before.total);

       await page.getByRole('button', {name: 'Clear…'}).click();
       await dialog.getByRole('button', {name: 'Clear logs'}).click();
       await page.locator('#status').filter({hasText: 'Cleared: Connection.'}).waitFor();
       await Ready(page);
       assert.equal((await api.List({logtype: 'connection', offset: 0, limit: 1})).total, 0);
       assert.equal((await TableRows(page)).length, 0);
       assert.match(page.url(), /#log=connection$/);
       // The system log next to it is untouched.
       assert.ok((await api.List({logtype: 'system', offset: 0, limit: 1})).total > 0);

       // A group names every log it holds.
       await page.goto(server.url + '#log=filexfer');
       await Ready(page);
       await page.getByRole('button', {name: 'Clear…'}).click();
       assert.deepEqual(await dialog.locator('li').allInnerTexts(),
                        ['FTP', 'File Deck', 'WebDAV', 'SMB', 'AFP', 'TFTP']);
       await dialog.getByRole('button', {name: 'Cancel'}).click();
       await dialog.waitFor({state: 'hidden'});
     });

test('the language switch turns the page German and the choice stays', async () => {
  await page.goto(server.url + '#log=system');
  await Ready(page);
  await page.getByRole('combobox', {name: 'Language'}).selectOption('de');
  assert.equal(await page.locator('html').getAttribute('lang'), 'de');
  assert.deepEqual(await TableHeadings(page),
                   ['Stufe', 'Protokoll', 'Zeit', 'Benutzer', 'Ereignis']);
  assert.equal(await page.getByRole('link', {name: 'Lokale Sicherung'}).count(), 1);
  assert.equal(await page.getByRole('button', {name: 'Als CSV exportieren'}).count(), 1);
  const levels = await page.$$eval('#log-table td.level span', (cells) => cells.map((cell) =>
                                                                                 cell.textContent));
  assert.ok(levels.every((word) => ['Information', 'Warnung', 'Fehler'].includes(word)));

  await page.reload();
  await Ready(page);
  assert.equal(await page.locator('#log-title').innerText(), 'System');
  assert.equal(await page.getByRole('button', {name: 'Abmelden'}).count(), 1);
  await Screenshot(page, 'system-log-german');
  await page.getByRole('combobox', {name: 'Sprache'}).selectOption('en');
  assert.equal(await page.getByRole('button', {name: 'Sign out'}).count(), 1);
});

test('keyboard: labelled controls, visible focus, sorting and paging by keys', async () => {
  await page.goto(server.url + '#log=system');
  await Ready(page);
  // Every form control has a name a screen reader can say.
  const unnamed = await page.$$eval('input, select, button', (controls) => controls
      .filter((control) => !control.closest('[hidden]') && !control.closest('dialog'))
      .filter((control) => !(control.labels && control.labels.length) &&
                           !control.getAttribute('aria-label') && !control.textContent.trim())
      .map((control) => control.outerHTML));
  assert.deepEqual(unnamed, []);

  // The first Tab reaches the skip link, which leads to the table.
  await page.reload();
  await Ready(page);
  await page.keyboard.press('Tab');
  assert.equal(await page.evaluate(() => document.activeElement.className), 'skip-link');
  const outline = await page.evaluate(() => getComputedStyle(document.activeElement).outlineStyle);
  assert.notEqual(outline, 'none');
  const address = page.url();
  await page.keyboard.press('Enter');
  assert.equal(await page.evaluate(() => document.activeElement.id), 'log-table-region');
  assert.equal(page.url(), address, 'the skip link leaves the view in the address alone');

  const sortButton = page.locator('th button[data-sort="msg"]');
  await sortButton.focus();
  assert.notEqual(await sortButton.evaluate((button) => getComputedStyle(button).outlineStyle),
                  'none');
  await page.keyboard.press('Enter');
  await Ready(page);
  assert.match(page.url(), /sort=msg/);
  assert.equal(await page.evaluate(() => document.activeElement.dataset.sort), 'msg',
               'the focus stays on the heading');
  await page.getByRole('button', {name: 'Next page'}).focus();
  await page.keyboard.press('Space');
  await Ready(page);
  assert.match(page.url(), /page=2/);
});

test('a narrow window lays entries out as cards without sideways scrolling', async () => {
  await page.setViewportSize({width: 390, height: 844});
  await page.goto(server.url + '#log=system');
  await Ready(page);
  const width = await page.evaluate(() => document.documentElement.scrollWidth);
  assert.ok(width <= 390, `page is ${width}px wide`);
  const cell = page.locator('#log-table td.msg').first();
  assert.equal(await cell.evaluate((element) => getComputedStyle(element, '::before').content),
               '"Event"');
  await Screenshot(page, 'system-log-narrow');
  await page.setViewportSize({width: 1280, height: 860});
  assert.deepEqual(browser.problems, []);
});

test('Refresh and auto-refresh show entries written since', async () => {
  const database = path.join(server.root, 'var/log/quorlog/.QUORSYSDB');
  const newest = (await api.List({logtype: 'system', offset: 0, limit: 1})).items[0];
  const Append = (message) => execFileSync('sqlite3', [database,
    `INSERT INTO logs (time, level, username, msg) SELECT max(time) + 60, 'warning', 'probe', ` +
    `'${message}' FROM logs`]);

  await page.goto(server.url + '#log=system');
  await Ready(page);
  assert.equal((await TableRows(page))[0][2], newest.time);
  Append('Written before Refresh');
  await page.getByRole('button', {name: 'Refresh'}).click();
  await Ready(page);
  assert.equal((await TableRows(page))[0][4], 'Written before Refresh');

  // The page's clock is driven by the test, so the refresh interval passes
  // at once.
  const tab = await browser.context.newPage();
  await tab.clock.install();
  await tab.goto(server.url + '#log=system');
  await Ready(tab);
  await tab.getByLabel('Auto-refresh').check();
  Append('Written while watching');
  await tab.clock.runFor(16000);
  await tab.locator('#log-table tbody tr td.msg').first()
      .filter({hasText: 'Written while watching'}).waitFor();
  await Ready(tab);
  await tab.close();
});
