// The page's actions and its reach: export of the current filters as CSV and
// HTML files through the browser's downloads, clear with its confirmation and
// its report, the language switch, the keyboard, and refreshing by hand and in
// live mode.

import assert from 'node:assert/strict';
import {execFileSync, spawn} from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import {after, before, test} from 'node:test';

import {
  AxeViolations, OpenLogCenter, Ready, Screenshot, TableHeadings, TableRows,
} from './harness.js';

let server, browser, page, api, center;
before(async () => {
  ({server, browser, page, api} = center = await OpenLogCenter({rows: 300}));
});
after(() => center?.close());

async function NoViolations(what) {
  assert.deepEqual(await AxeViolations(page), [], what);
}

async function DownloadOf(buttonName) {
  const [download] = await Promise.all([
    page.waitForEvent('download'),
    page.getByRole('button', {name: buttonName}).click(),
  ]);
  const file = await download.path();
  return {name: download.suggestedFilename(), text: fs.readFileSync(file, 'utf8')};
}

test('Export CSV and HTML download every entry the filters select, in the log layout', async () => {
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
  // The browser's own download took it: the page says so and holds no copy.
  assert.match(await page.locator('#status').innerText(), /download has started/);

  // Export HTML: a document of the same entries.
  await page.goto(server.url + '#log=disk');
  await Ready(page);
  const html = await DownloadOf('Export HTML');
  assert.match(html.name, /^disklog_.*\.html$/);
  const disk = await api.List({logtype: 'disk', offset: 0, limit: 0});
  assert.equal((html.text.match(/<tr/gi) || []).length, disk.items.length + 1);
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
       assert.deepEqual(await dialog.locator('li').allInnerTexts(),
                        [`Connection: ${before.total} entries`]);
       assert.ok(await dialog.getByText('Filters do not narrow a clear').isHidden());
       await Screenshot(page, 'clear-confirmation', {fullPage: false});
       await page.keyboard.press('Escape');
       await dialog.waitFor({state: 'hidden'});
       assert.equal((await api.List({logtype: 'connection', offset: 0, limit: 1})).total,
                    before.total);

       // A log another process holds locked keeps its entries although the clear
       // answers success: the page counts again and says what remains.
       const database = path.join(server.root, 'var/log/quorlog/.QUORCONNDB');
       const holder = spawn('sqlite3', [database], {stdio: ['pipe', 'ignore', 'ignore']});
       holder.stdin.write('BEGIN IMMEDIATE;\nINSERT INTO logs (time) VALUES (1);\n');
       await new Promise((resolve) => setTimeout(resolve, 300));
       await page.getByLabel('Search', {exact: true}).fill('anything');
       await page.getByLabel('Search', {exact: true}).press('Enter');
       await Ready(page);
       await page.getByRole('button', {name: 'Clear…'}).click();
       await dialog.waitFor();
       assert.ok(await dialog.getByText('Filters do not narrow a clear').isVisible());
       await dialog.getByRole('button', {name: 'Clear logs'}).click();
       // The wait is said at once; then the report names what each log still holds.
       await page.locator('#waiting').filter({hasText: 'Clearing…'}).waitFor();
       const report = page.locator('#clear-report');
       await report.filter({hasText: 'was busy'}).waitFor();
       assert.deepEqual(await report.locator('li').allInnerTexts(), [
         `Connection: was busy and still holds ${before.total} entries. Try again in a moment.`,
       ]);
       await NoViolations('busy clear report');
       holder.stdin.end('ROLLBACK;\n');
       await new Promise((resolve) => holder.on('exit', resolve));

       // A new clear: the stale report goes at once and never stands beside the new result.
       await page.getByRole('button', {name: 'Clear…'}).click();
       assert.ok(await report.isHidden());
       await dialog.getByRole('button', {name: 'Clear logs'}).click();
       await page.locator('#status').filter({hasText: 'Cleared: Connection.'}).waitFor();
       await Ready(page);
       assert.ok(await report.isHidden());
       assert.ok(await page.locator('#error').isHidden());
       assert.equal((await api.List({logtype: 'connection', offset: 0, limit: 1})).total, 0);
       assert.equal((await TableRows(page)).length, 0);
       assert.match(page.url(), /#log=connection&q=anything$/);
       // The system log next to it is untouched.
       assert.ok((await api.List({logtype: 'system', offset: 0, limit: 1})).total > 0);

       // A group names every log it holds.
       await page.goto(server.url + '#log=filexfer');
       await Ready(page);
       await page.getByRole('button', {name: 'Clear…'}).click();
       await dialog.waitFor();
       // Each log's count comes in after the dialog opens.
       await dialog.locator('li', {hasText: 'counting'}).first().waitFor({state: 'detached'});
       const names = await dialog.locator('li').allInnerTexts();
       assert.deepEqual(names.map((name) => name.split(':')[0]),
                        ['FTP', 'File Deck', 'WebDAV', 'SMB', 'AFP', 'TFTP']);
       const ftp = await api.Search({logtype: 'ftpxfer', limit: 1});
       assert.equal(names[0], `FTP: ${ftp.total} entries`);
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
  // One date style per language, in the table and the timeline alike.
  assert.match((await TableRows(page))[0][2], /^\d{2}\.\d{2}\.\d{4} \d{2}:\d{2}:\d{2}$/);
  assert.match(await page.locator('.timeline-scale').innerText(), /^\d{2}\.\d{2}\.\d{4} /);

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

  const sortButton = page.locator('th button[data-sort="descr"]');
  await sortButton.focus();
  assert.notEqual(await sortButton.evaluate((button) => getComputedStyle(button).outlineStyle),
                  'none');
  await page.keyboard.press('Enter');
  await Ready(page);
  assert.match(page.url(), /sort=descr/);
  assert.equal(await page.evaluate(() => document.activeElement.dataset.sort), 'descr',
               'the focus stays on the heading');
  await page.getByRole('button', {name: 'Next page'}).focus();
  await page.keyboard.press('Space');
  await Ready(page);
  assert.match(page.url(), /page=2/);
});

test('a phone shows six entries or more on its first screen, actions in a menu', async () => {
  await page.setViewportSize({width: 390, height: 844});
  for (const lang of ['en', 'de']) {
    await page.goto(server.url + '#log=system');
    await Ready(page);
    await page.locator('#app-lang').selectOption(lang);
    const width = await page.evaluate(() => document.documentElement.scrollWidth);
    assert.ok(width <= 390, `page is ${width}px wide`);
    const visible = await page.$$eval('#log-table tbody tr', (rows) =>
      rows.filter((row) => row.getBoundingClientRect().bottom <= window.innerHeight).length);
    await Screenshot(page, `system-log-phone-${lang}`, {fullPage: false});
    assert.ok(visible >= 6, `${lang}: ${visible} entries on the first screen`);
  }
  await page.locator('#app-lang').selectOption('en');
  // Export and clear fold into one menu; the filters behind one button; the logs are one select.
  assert.ok(await page.getByRole('button', {name: 'Export CSV'}).isHidden());
  const menu = page.getByRole('button', {name: 'Actions', exact: true});
  await menu.click();
  assert.equal(await menu.getAttribute('aria-expanded'), 'true');
  assert.ok(await page.getByRole('button', {name: 'Export CSV'}).isVisible());
  assert.deepEqual(await AxeViolations(page), []);
  const toggle = page.getByRole('button', {name: 'Filters', exact: true});
  assert.ok(await page.locator('#filters').isHidden());
  assert.equal(await toggle.getAttribute('aria-expanded'), 'false');
  assert.ok(await page.locator('.nav-group').first().isHidden());
  await toggle.click();
  assert.ok(await page.locator('#filters').isVisible());
  assert.equal(await toggle.getAttribute('aria-expanded'), 'true');
  await page.getByRole('combobox', {name: 'Log', exact: true}).selectOption('disk');
  await page.waitForURL((url) => url.hash.includes('log=disk'));
  await Ready(page);
  assert.equal(await page.locator('#log-title').innerText(), 'Disk');
  assert.ok(await page.evaluate(() => document.documentElement.scrollWidth) <= 390);
  await page.setViewportSize({width: 1280, height: 860});
  assert.deepEqual(browser.problems, []);
});

test('Refresh shows entries written since', async () => {
  const database = path.join(server.root, 'var/log/quorlog/.QUORSYSDB');
  const newest = (await api.Search({logtype: 'system', limit: 1})).items[0];
  const Append = (message) => execFileSync('sqlite3', [database,
    `INSERT INTO logs (time, level, username, msg) SELECT max(time) + 60, 'warning', 'probe', ` +
    `'${message}' FROM logs`]);

  await page.goto(server.url + '#log=system');
  await Ready(page);
  assert.equal((await TableRows(page))[0][2], newest.time.replace(/\//g, '-'));
  Append('Written before Refresh');
  await page.getByRole('button', {name: 'Refresh'}).click();
  await Ready(page);
  assert.equal((await TableRows(page))[0][4], 'Written before Refresh');
});
