// Browsing logs in the page: layouts of each log class, level and search
// filters over the whole log, sorting both ways, paging, and the
// address that keeps the view. What the page shows is compared with what the
// search API answers for the same search.

import assert from 'node:assert/strict';
import {after, before, test} from 'node:test';

import {
  AddressState, OpenLogCenter, Ready, Screenshot, TableHeadings, TableRows,
} from './harness.js';

const LEVEL_WORDS = {info: 'Information', warn: 'Warning', err: 'Error'};
let server, browser, page, api, center;
before(async () => {
  ({server, browser, page, api} = center = await OpenLogCenter({rows: 400}));
});
after(() => center?.close());

// A record's time as the English page writes it.
function Shown(time) {
  return time.replace(/\//g, '-');
}

// The cells the general layout shows for a record of the list method.
function GeneralRow(record) {
  return [LEVEL_WORDS[record.level], record.logtype, Shown(record.time), record.who, record.descr];
}

async function Show(hash) {
  await page.goto(server.url + hash);
  await Ready(page);
}

test('a database log in its columns, levels in colour with an icon, long text wrapping',
     async () => {
       await Show('#log=system');
       assert.deepEqual(await TableHeadings(page), ['Level', 'Log', 'Time', 'User', 'Event']);
       const expected = await api.Search({logtype: 'system', limit: 50});
       assert.ok(expected.total > 50, 'the demo system log fills more than one page');
       assert.deepEqual(await TableRows(page), expected.items.map(GeneralRow));
       assert.match(await page.locator('#total').innerText(), new RegExp(`^${expected.total} `));

       // Each level has its own colour and icon.
       const colours = {};
       for (const level of ['info', 'warning', 'err']) {
         const cell = page.locator(`#log-table td.level-${level}`).first();
         assert.equal(await cell.locator('svg.icon-' + level).count(), 1);
         colours[level] = await cell.evaluate((element) => getComputedStyle(element).color);
       }
       assert.equal(new Set(Object.values(colours)).size, 3, JSON.stringify(colours));

       // Messages wrap inside their column instead of widening the table.
       const wrap = await page.locator('#log-table td.msg').first().evaluate(
           (cell) => getComputedStyle(cell).whiteSpace + ' ' + getComputedStyle(cell).overflowWrap);
       assert.equal(wrap, 'pre-wrap anywhere');
       const width = await page.evaluate(() => document.documentElement.scrollWidth);
       assert.ok(width <= 1280, `page is ${width}px wide`);

       // The counts beside the level boxes count the whole log.
       assert.equal(await page.locator('#count-info').innerText(), String(expected.levels.info));
       assert.equal(await page.locator('#count-warning').innerText(), String(expected.levels.warn));
       assert.equal(await page.locator('#count-err').innerText(), String(expected.levels.err));
       assert.equal(expected.levels.info + expected.levels.warn + expected.levels.err,
                    expected.total);
       await Screenshot(page, 'system-log');
     });

test('level boxes filter the whole log, their counts stay; the search box finds every word',
     async () => {
  await Show('#log=system');
  // Where the form's controls sit; counts of other widths must not move them.
  const Place = () => page.$$eval('#level-err, #level-info, #keyword', (controls) =>
    controls.map((control) => {
      const box = control.getBoundingClientRect();
      return [Math.round(box.x), Math.round(box.y)];
    }));
  const place = await Place();
  await page.locator('#level-info').uncheck();
  await Ready(page);
  await page.locator('#level-warning').uncheck();
  await Ready(page);
  assert.equal((await AddressState(page)).level, 'err');
  const errors = await api.Search({logtype: 'system', level: 'err', limit: 50});
  const rows = await TableRows(page);
  // A full page of errors, not the errors of one page of everything.
  assert.equal(rows.length, Math.min(50, errors.total));
  assert.ok(rows.every((row) => row[0] === 'Error'), 'only error rows are shown');
  assert.deepEqual(rows, errors.items.map(GeneralRow));
  assert.match(await page.locator('#total').innerText(), new RegExp(`^${errors.total} `));
  // Each box still says what ticking it would add, on every page.
  assert.equal(await page.locator('#count-err').innerText(), String(errors.levels.err));
  assert.equal(await page.locator('#count-info').innerText(), String(errors.levels.info));
  assert.ok(errors.levels.info > 0);

  // No level at all shows nothing instead of every level.
  await page.locator('#level-err').uncheck();
  await Ready(page);
  assert.equal((await TableRows(page)).length, 0);
  assert.match(await page.locator('#status').innerText(), /at least one level/);
  assert.deepEqual(await Place(), place, 'the form keeps its place without counts');

  // The keyword search starts by itself once typing pauses.
  await page.getByRole('button', {name: 'Reset filters'}).click();
  await Ready(page);
  const sample = (await api.Search({logtype: 'system', limit: 20})).items;
  const keyword = sample.map((record) => record.who).find((who) => who.length >= 3);
  assert.ok(keyword, 'the demo log names users');
  await page.getByLabel('Search', {exact: true}).pressSequentially(keyword, {delay: 30});
  await page.waitForFunction(
      (typed) => new URLSearchParams(location.hash.slice(1)).get('q') === typed, keyword);
  await Ready(page);
  const matching = await api.Search({logtype: 'system', q: keyword, limit: 50});
  assert.ok(matching.total > 0);
  assert.deepEqual(await TableRows(page), matching.items.map(GeneralRow));
  assert.match(await page.locator('#total').innerText(), new RegExp(`^${matching.total} `));
  assert.deepEqual(await Place(), place, 'the form keeps its place with smaller counts');
  // The matches are marked in the table.
  const marked = await page.$$eval('#log-table tbody mark', (marks) => marks.map((m) => m.textContent));
  assert.ok(marked.length > 0 && marked.every((text) => text.toLowerCase() === keyword.toLowerCase()),
            JSON.stringify(marked));

  // Several words must all occur, in any order; a quoted phrase only as written.
  const words = page.getByLabel('Search', {exact: true});
  await words.fill('"to boot" started');
  await words.press('Enter');
  await Ready(page);
  const phrase = await api.Search({logtype: 'system', q: '"to boot" started', limit: 50});
  assert.ok(phrase.total > 0);
  assert.deepEqual(await TableRows(page), phrase.items.map(GeneralRow));
  assert.ok((await TableRows(page)).every((row) => row[4].includes('started to boot')));
  assert.equal(await page.locator('#log-table tbody tr').first().locator('mark').count(), 2);
  await Screenshot(page, 'system-log-keyword');

  // A search's page comes before its count: with the count held back, the
  // total and the level counts say "…", Next pages on, Last waits; a newer
  // search drops the older count when it arrives late.
  let release;
  const held = new Promise((resolve) => release = resolve);
  let counts = 0;
  await page.route('**/webapi', async (route) => {
    if (/method=count/.test(route.request().postData() || '') && ++counts === 1) await held;
    await route.continue().catch(() => {});  // dropped by the page meanwhile
  });
  await words.fill('admin');
  await words.press('Enter');
  await page.waitForFunction(() => document.getElementById('total').textContent.startsWith('…'));
  const admin = await api.Search({logtype: 'system', q: 'admin', limit: 50});
  assert.ok(admin.total > 50);
  assert.deepEqual(await TableRows(page), admin.items.map(GeneralRow));
  assert.equal(await page.locator('#count-err').innerText(), '…');
  assert.ok(await page.getByRole('button', {name: 'Last page'}).isDisabled());
  assert.ok(await page.getByRole('button', {name: 'Next page'}).isEnabled());
  await words.fill('guest');
  await words.press('Enter');
  await Ready(page);
  const guest = await api.Search({logtype: 'system', q: 'guest', limit: 50});
  release();
  await page.waitForTimeout(300);
  await page.unroute('**/webapi');
  assert.match(await page.locator('#total').innerText(), new RegExp(`^${guest.total} `));
  assert.equal(await page.locator('#count-err').innerText(), String(guest.levels.err));
  await page.getByRole('button', {name: 'Reset filters'}).click();
  await Ready(page);
  assert.equal(await page.getByLabel('Search', {exact: true}).inputValue(), '');
});

test('a heading sorts by its column, again the other way; the pager pages and sizes',
     async () => {
  await Show('#log=system');
  await page.locator('th button[data-sort="who"]').click();
  await Ready(page);
  assert.equal((await AddressState(page)).sort, 'who');
  assert.equal(await page.locator('th[aria-sort="descending"] span').first().innerText(), 'User');
  const byUserDown = await api.Search({logtype: 'system', sort: 'who', limit: 50});
  assert.deepEqual(await TableRows(page), byUserDown.items.map(GeneralRow));
  await page.locator('th button[data-sort="who"]').click();
  await Ready(page);
  assert.equal((await AddressState(page)).order, 'asc');
  assert.equal(await page.locator('th[aria-sort="ascending"] span').first().innerText(), 'User');
  const byUser = await api.Search({logtype: 'system', sort: 'who', order: 'asc', limit: 50});
  assert.deepEqual(await TableRows(page), byUser.items.map(GeneralRow));


  await page.getByRole('button', {name: 'Next page'}).click();
  await Ready(page);
  assert.equal((await AddressState(page)).page, '2');
  const second = await api.Search({logtype: 'system', sort: 'who', order: 'asc', offset: 50,
                                   limit: 50});
  assert.deepEqual(await TableRows(page), second.items.map(GeneralRow));

  await page.getByLabel('Entries per page').selectOption('25');
  await Ready(page);
  const first = await api.Search({logtype: 'system', sort: 'who', order: 'asc', limit: 25});
  assert.deepEqual(await TableRows(page), first.items.map(GeneralRow));
  const pages = Math.ceil(second.total / 25);
  assert.equal(await page.locator('#page-info').innerText(), `Page 1 of ${pages}`);
  await page.getByRole('button', {name: 'Last page'}).focus();
  await page.keyboard.press('Enter');
  await Ready(page);
  // The pressed button is disabled now; the focus moved to one still usable.
  assert.equal(await page.evaluate(() => document.activeElement.id), 'page-first');
  const last = await api.Search({logtype: 'system', sort: 'who', order: 'asc',
                                 offset: (pages - 1) * 25, limit: 25});
  assert.deepEqual(await TableRows(page), last.items.map(GeneralRow));
  assert.ok(await page.getByRole('button', {name: 'Next page'}).isDisabled());
  await Screenshot(page, 'system-log-last-page');
});

test('the address keeps the view across a reload, Back, and a shared link', async () => {
  await Show('#log=system&level=warning%2Cerr&sort=descr&order=asc&page=2&size=25');
  const rows = await TableRows(page);
  const expected = await api.Search({logtype: 'system', level: 'warning,err', sort: 'descr',
                                     order: 'asc', offset: 25, limit: 25});
  assert.deepEqual(rows, expected.items.map(GeneralRow));
  assert.ok(!(await page.locator('#level-info').isChecked()));
  assert.equal(await page.getByLabel('Entries per page').inputValue(), '25');

  await page.reload();
  await Ready(page);
  assert.deepEqual(await TableRows(page), rows);

  await page.getByRole('button', {name: 'Previous page'}).click();
  await Ready(page);
  assert.equal((await AddressState(page)).page, undefined);
  await page.goBack();
  await Ready(page);
  assert.equal((await AddressState(page)).page, '2');
  assert.deepEqual(await TableRows(page), rows);

  // Another tab opening the link finds the session and shows the same view.
  const other = await browser.context.newPage();
  await other.goto(page.url());
  await Ready(other);
  assert.deepEqual(await TableRows(other), rows);
  await other.close();
});

test('a plain-text backup log, sorted and filtered in the same layout', async () => {
  await Show('#log=system');
  await page.getByRole('link', {name: 'Local Backup', exact: true}).click();
  await page.waitForURL((url) => url.hash.includes('log=bkplog'));
  await Ready(page);
  assert.equal(await page.locator('#log-title').innerText(), 'Local Backup');
  assert.equal(await page.getByRole('link', {name: 'Local Backup', exact: true}).getAttribute('aria-current'),
               'page');
  assert.deepEqual(await TableHeadings(page), ['Level', 'Log', 'Time', 'User', 'Event']);
  const expected = await api.Search({logtype: 'bkplog', limit: 50});
  assert.ok(expected.total > 0, 'the demo backup log has lines');
  assert.deepEqual(await TableRows(page), expected.items.map(GeneralRow));

  await page.locator('th button[data-sort="who"]').click();
  await Ready(page);
  await page.locator('#level-info').uncheck();
  await Ready(page);
  const filtered = await api.Search({logtype: 'bkplog', sort: 'who', level: 'warning,err',
                                     limit: 50});
  assert.deepEqual(await TableRows(page), filtered.items.map(GeneralRow));
  assert.ok((await TableRows(page)).every((row) => row[0] !== 'Information'));
  // Text-file logs cannot be cleared, so the page does not offer it, and
  // says why.
  assert.ok(await page.locator('#clear').isDisabled());
  assert.ok(await page.getByText('cannot be cleared here').isVisible());
  await Screenshot(page, 'backup-log');
});

test('transfer and disk logs in their own columns', async () => {
  await Show('#log=filexfer');
  assert.deepEqual(await TableHeadings(page), [
    'Log', 'Time', 'IP address', 'User', 'Action', 'File/Folder', 'Size', 'File Name',
  ]);
  assert.ok(await page.locator('#level-filter').isHidden(), 'transfer logs have no levels');
  const transfers = await api.Search({
    logtype: 'ftpxfer,kyrfmxfer,webdavxfer,smbxfer,afpxfer,tftpxfer', limit: 50,
  });
  assert.ok(transfers.total > 0);
  assert.deepEqual(await TableRows(page), transfers.items.map((record) => [
    record.logtype, Shown(record.time), record.ip, record.username, record.cmd,
    record.isdir === 'true' ? 'Folder' : 'File', record.isdir === 'true' ? '—' : record.filesize,
    record.descr,
  ]));
  await Screenshot(page, 'transfer-log');

  await page.getByRole('link', {name: 'Disk', exact: true}).click();
  await page.waitForURL((url) => url.hash.includes('log=disk'));
  await Ready(page);
  assert.deepEqual(await TableHeadings(page), [
    'Level', 'Time', 'Disk Model', 'Serial Number', 'Enclosure', 'Position', 'Event',
  ]);
  const diskRow = (record) => [
    LEVEL_WORDS[record.level], Shown(record.time), record.model, record.serial, record.container,
    record.slot, record.msg,
  ];
  const disk = await api.Search({logtype: 'disk', limit: 50});
  assert.deepEqual(await TableRows(page), disk.items.map(diskRow));
  await Screenshot(page, 'disk-log');
  // Every disk heading sorts, both ways.
  for (const key of ['level', 'time', 'model', 'serial', 'container', 'slot', 'msg']) {
    for (const order of ['desc', 'asc']) {
      await page.locator(`th button[data-sort="${key}"]`).click();
      await Ready(page);
      const state = await AddressState(page);
      assert.equal(state.sort === undefined ? 'time' : state.sort, key);
      assert.equal(state.order || 'desc', order);
      const expected = await api.Search({logtype: 'disk', sort: key, order: state.order || 'desc',
                                         limit: 50});
      assert.deepEqual(await TableRows(page), expected.items.map(diskRow), `${key} ${order}`);
    }
  }
  assert.deepEqual(browser.problems, []);
});
