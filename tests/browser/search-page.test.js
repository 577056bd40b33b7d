// The page's whole-log tools: the timeline and its ranges, typed times and
// quick ranges, the entry in detail and its link, the plain-text window
// notice, log names in the page's language, dark colours, and axe-core on
// every view.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import {after, before, test} from 'node:test';

import {
  AddressState, AxeViolations, OpenLogCenter, Ready, Screenshot, SignIn, TableRows,
} from './harness.js';

let server, browser, page, api, center;
before(async () => {
  ({server, browser, page, api} = center = await OpenLogCenter({rows: 500}));
  await browser.context.grantPermissions(['clipboard-read', 'clipboard-write']);
});
after(() => center?.close());

async function Show(hash) {
  await page.goto(server.url + hash);
  await Ready(page);
}

// The values of the open entry's fields, without their filter buttons.
async function FieldTexts(target) {
  return target.$$eval('#entry-fields dd', (values) => values.map((dd) => dd.firstChild.textContent));
}

async function NoAxeViolations(what) {
  assert.deepEqual(await AxeViolations(page), [], what);
}

// Seconds of a record time ("YYYY/MM/DD HH:MM:SS"); the test server runs in UTC.
function Seconds(time) {
  return Date.parse(time.replace(/\//g, '-').replace(' ', 'T') + 'Z') / 1000;
}

function Wall(seconds) {
  return new Date(seconds * 1000).toISOString().slice(0, 19);
}

test('the timeline stacks the levels; a click or a drag narrows the time range', async () => {
  await Show('#log=system');
  const histogram = await api.Search({logtype: 'system', buckets: 60}, 'histogram');
  const bars = page.locator('#timeline g.bucket');
  assert.equal(await bars.count(), histogram.counts.length);
  const total = histogram.counts.reduce((sum, [, a, b, c]) => sum + a + b + c, 0);
  assert.equal(total, (await api.Search({logtype: 'system', limit: 1})).total);
  assert.match(await page.locator('#timeline svg').getAttribute('aria-label'),
               new RegExp(`^${total} entries over time`));
  await NoAxeViolations('log view with timeline');

  // One bar: the range becomes its bucket, in the address too. The first bar
  // also counts the demo's rows without a time, which no range selects.
  const index = histogram.counts.findIndex(([, a, b, c], i) => i > 0 && a + b + c > 0);
  const [start, info, warn, err] = histogram.counts[index];
  await bars.nth(index).locator('rect.bucket-hit').click();
  await Ready(page);
  const state = await AddressState(page);
  assert.equal(state.from, Wall(start));
  assert.equal(state.to, Wall(start + histogram.bucket - 1));
  assert.match(await page.locator('#total').innerText(), new RegExp(`^${info + warn + err} `));
  for (const row of await TableRows(page)) {
    const seconds = Seconds(row[2]);
    assert.ok(seconds >= start && seconds < start + histogram.bucket, row[2]);
  }
  await page.goBack();
  await Ready(page);

  // A drag across bars: from the first bar's start to the last one's end.
  const first = await bars.nth(10).locator('rect.bucket-hit').boundingBox();
  const last = await bars.nth(20).locator('rect.bucket-hit').boundingBox();
  await page.mouse.move(first.x + first.width / 2, first.y + first.height / 2);
  await page.mouse.down();
  await page.mouse.move(last.x + last.width / 2, last.y + last.height / 2, {steps: 5});
  await page.mouse.up();
  await Ready(page);
  const dragged = await AddressState(page);
  assert.equal(dragged.from, Wall(histogram.counts[10][0]));
  assert.equal(dragged.to, Wall(histogram.counts[20][0] + histogram.bucket - 1));
  const expected = await api.Search({
    logtype: 'system', from: histogram.counts[10][0],
    to: histogram.counts[20][0] + histogram.bucket - 1, limit: 1,
  });
  assert.match(await page.locator('#total').innerText(), new RegExp(`^${expected.total} `));
  await Screenshot(page, 'timeline-range');
});

test('typed times: read on Enter or leaving, in the page\'s language, one message at a time', async () => {
  await Show('#log=system&from=2026-11-18T10%3A00');
  const from = page.locator('#date-from');
  assert.equal(await page.getByLabel('From', {exact: true}).inputValue(), '2026-11-18 10:00');
  // Typing searches nothing, however long it takes; Enter reads the field.
  let searches = 0;
  const count = (request) => {
    if (/query/.test(request.postData() || '')) ++searches;
  };
  page.on('request', count);
  await from.fill('');
  await from.pressSequentially('202609-01-01', {delay: 30});
  await page.waitForTimeout(400);
  assert.equal(searches, 0);
  await from.press('Enter');
  const error = page.locator('#range-error');
  await error.waitFor();
  assert.match(await error.innerText(), /Not a time the page can read/);
  assert.equal(await from.getAttribute('aria-invalid'), 'true');
  assert.equal((await AddressState(page)).from, '2026-11-18T10:00');
  assert.ok(await page.locator('#error').isHidden(), 'one message at a time');
  await NoAxeViolations('refused time');

  await from.fill('23.11.2025 14:05');
  await from.press('Enter');
  await page.waitForFunction(() => location.hash.includes('from=2025-11-23T14'));
  await Ready(page);
  assert.ok(await error.isHidden());
  assert.equal(await from.inputValue(), '2025-11-23 14:05');
  page.off('request', count);

  // A relative time stays relative; leaving the field reads it.
  await from.fill('-7d');
  await page.locator('#log-title').click();
  await page.waitForFunction(() => location.hash.includes('from=-7d'));
  await Ready(page);

  // The day picker sets the day and keeps the time typed.
  await from.fill('2026-11-18 10:00');
  await page.getByRole('button', {name: 'Pick the start day'}).click();
  const picker = page.getByRole('dialog');
  await picker.waitFor();
  await NoAxeViolations('day picker');
  await picker.getByRole('button', {name: 'Next month'}).click();
  await picker.getByRole('button', {name: /December 3, 2026/}).click();
  await page.waitForFunction(() => location.hash.includes('from=2026-12-03T10'));
  await Ready(page);

  // German: the field and the table follow the page's language.
  await page.getByRole('combobox', {name: 'Language'}).selectOption('de');
  assert.equal(await from.inputValue(), '03.12.2026 10:00');
  await page.getByRole('combobox', {name: 'Sprache'}).selectOption('en');

  // Far future times are searchable: an empty answer, no error.
  await from.fill('2040-01-01 00:00');
  await page.locator('#log-title').click();
  await Ready(page);
  assert.equal((await TableRows(page)).length, 0);
  assert.ok(await page.locator('#error').isHidden());
  assert.ok(await error.isHidden());

  // Quick ranges replace the typed bounds and stay in the address.
  await page.getByRole('button', {name: '24 hours'}).click();
  await Ready(page);
  const state = await AddressState(page);
  assert.equal(state.range, '24h');
  assert.equal(state.from, undefined);
  assert.equal(await page.getByRole('button', {name: '24 hours'}).getAttribute('aria-pressed'),
               'true');
  const since = Date.now() / 1000 - 86400 - 120;
  const rows = await TableRows(page);
  assert.ok(rows.every((row) => Seconds(row[2]) >= since), 'only the last day');
  const day = await api.Search({logtype: 'system', from: Math.floor(since), limit: 1});
  assert.ok(Math.abs(day.total - rows.length) <= 2 || rows.length === 50);
  await page.getByRole('button', {name: 'Reset filters'}).click();
  await Ready(page);
});

test('an entry opens in detail, copies as text, and its link reopens it', async () => {
  await Show('#log=system&q=started');
  const row = page.locator('#log-table tbody tr').nth(2);
  const cells = await row.locator('td').allInnerTexts();
  await row.focus();
  await page.keyboard.press('Enter');
  const dialog = page.getByRole('dialog', {name: 'Log entry'});
  await dialog.waitFor();
  const fields = await FieldTexts(page);
  assert.deepEqual(fields.slice(0, 5), cells.map((text) => text.trim()));
  assert.match(fields[5], /^\d+$/, 'the row id');
  await NoAxeViolations('entry detail');
  await Screenshot(page, 'entry-detail', {fullPage: false});

  await dialog.getByRole('button', {name: 'Copy'}).click();
  await dialog.getByText('Copied.').waitFor();
  const copied = await page.evaluate(() => navigator.clipboard.readText());
  assert.match(copied, new RegExp(`^Level: ${cells[0].trim()}\nLog: System\nTime: ${cells[2]}`));

  const link = await dialog.getByRole('link', {name: 'Link to this entry'}).getAttribute('href');
  await page.keyboard.press('Escape');
  await dialog.waitFor({state: 'hidden'});
  assert.equal(await page.evaluate(() => document.activeElement.tagName), 'TR');

  const other = await browser.context.newPage();
  await other.goto(server.url + link);
  const reopened = other.getByRole('dialog', {name: 'Log entry'});
  await reopened.waitFor();
  assert.deepEqual(await FieldTexts(other), fields);
  await other.close();
});

test('show in context ignores the filters and marks the entry; filter for and out a value',
     async () => {
       await Show('#log=system&level=err');
       const row = page.locator('#log-table tbody tr').nth(3);
       await row.click();
       const dialog = page.getByRole('dialog', {name: 'Log entry'});
       await dialog.waitFor();
       const id = (await FieldTexts(page))[5];
       await dialog.getByRole('button', {name: 'Show in context'}).click();
       const context = page.getByRole('dialog', {name: 'Entry in context'});
       await context.waitFor();
       const expected = await api.Search({logtype: 'system', id: Number(id), count: 10}, 'context');
       assert.equal(expected.items.length, 21);
       assert.ok(expected.items.some((item) => item.level !== 'err'), 'other levels around it');
       const rows = context.locator('tbody tr');
       assert.equal(await rows.count(), 21);
       assert.deepEqual((await rows.nth(10).locator('td').allInnerTexts()).at(-1),
                        expected.items[10].descr);
       assert.equal(await rows.nth(10).getAttribute('aria-current'), 'true');
       await NoAxeViolations('entry in context');
       await Screenshot(page, 'entry-context', {fullPage: false});
       await context.getByRole('button', {name: 'Show more before and after'}).click();
       await page.waitForFunction(() => document.querySelectorAll('#context-table tbody tr').length === 41);
       await context.getByRole('button', {name: 'Close'}).click();

       // Filter out the level (none left), then for the user of another entry.
       await Show('#log=system');
       await page.locator('#log-table tbody tr').first().click();
       await dialog.waitFor();
       const [level, , , user] = await FieldTexts(page);
       await dialog.getByRole('button', {name: `Hide entries with Level ${level}`}).click();
       await Ready(page);
       const words = {info: 'Information', warning: 'Warning', err: 'Error'};
       assert.ok(!(await TableRows(page)).some((cells) => cells[0] === level));
       const state = await AddressState(page);
       assert.equal(state.level.split(',').length, 2);
       assert.ok(!state.level.split(',').some((name) => words[name] === level));
       await page.locator('#log-table tbody tr').first().click();
       await dialog.waitFor();
       const other = (await FieldTexts(page))[3];
       await dialog.getByRole('button', {name: `Show only entries with User ${other}`}).click();
       await Ready(page);
       assert.ok((await TableRows(page)).every((cells) => cells.join(' ').includes(other)));
       assert.ok(user);
     });

test('a long plain-text log says it shows its last lines; log names follow the page language',
     async () => {
       const lines = [];
       for (let i = 0; i < 15001; ++i) {
         lines.push(`info\t2026/11/14 22:15:00\tbackupd:\tjob ${i}`);
       }
       fs.writeFileSync(path.join(server.root, 'var/log/quorbackup_server.log'),
                        lines.join('\n') + '\n');
       await Show('#log=bkpserverlog');
       assert.match(await page.locator('#partial-note').innerText(), /last 15,000 lines/);
       await Show('#log=copylog');
       assert.ok(await page.locator('#partial-note').isHidden());

       await page.getByRole('combobox', {name: 'Language'}).selectOption('de');
       await Show('#log=bkplog');
       const logs = new Set((await TableRows(page)).map((row) => row[1]));
       assert.deepEqual([...logs], ['Lokale Sicherung']);
       await NoAxeViolations('German backup log');
       await page.getByRole('combobox', {name: 'Sprache'}).selectOption('en');
     });

test('dark colours when the system asks; axe finds nothing on any view', async () => {
  await page.emulateMedia({colorScheme: 'dark'});
  await Show('#log=system&q=started&sort=level');
  const background = await page.evaluate(() => getComputedStyle(document.body).backgroundColor);
  const [red, green, blue] = background.match(/\d+/g).map(Number);
  assert.ok(red + green + blue < 150, `background ${background}`);
  await NoAxeViolations('dark log view');
  await Screenshot(page, 'system-log-dark');
  await page.getByRole('button', {name: 'Clear…'}).click();
  await page.getByRole('dialog', {name: 'Clear logs'}).waitFor();
  await NoAxeViolations('dark clear dialog');
  await page.keyboard.press('Escape');
  await page.locator('#log-table tbody tr').first().click();
  await page.getByRole('button', {name: 'Show in context'}).click();
  await page.getByRole('dialog', {name: 'Entry in context'}).waitFor();
  await NoAxeViolations('dark entry in context');
  await page.keyboard.press('Escape');
  await page.getByRole('button', {name: 'Pick the start day'}).click();
  await NoAxeViolations('dark day picker');
  await page.keyboard.press('Escape');
  await page.getByRole('button', {name: 'Saved views'}).click();
  await page.getByRole('dialog', {name: 'Saved views'}).waitFor();
  await NoAxeViolations('dark saved views');
  await page.keyboard.press('Escape');
  await page.emulateMedia({colorScheme: 'light'});

  await page.setViewportSize({width: 390, height: 844});
  await Show('#log=disk');
  await NoAxeViolations('narrow disk log');
  await page.getByRole('button', {name: 'Filters', exact: true}).click();
  await NoAxeViolations('narrow disk log with filters open');
  await page.setViewportSize({width: 1280, height: 860});

  await Show('#log=filexfer&sort=filesize&order=asc');
  await NoAxeViolations('transfer log');
  await page.getByRole('button', {name: 'Sign out'}).click();
  await page.locator('#login-form').waitFor();
  await NoAxeViolations('sign-in');
  await SignIn(page);
  await Ready(page);
  assert.deepEqual(browser.problems, []);
});
