// Filter out from the entry detail: a user and a group's log left out by the
// search module, shown as chips that bring them back, kept in the address
// (which is what a saved view keeps); the export, which cannot leave users
// out, is off. Live
// mode counts the new entries of the filters that sort off the page shown.

import assert from 'node:assert/strict';
import path from 'node:path';
import {after, before, test} from 'node:test';

import {FindLog} from '../../ui/js/catalogue.js';
import {ExportParams} from '../../ui/js/export-action.js';
import {AxeViolations, OpenLogCenter, Ready, TableRows} from './harness.js';
import {StoreWriter} from './writer.js';

const MEMBERS = 'ftpxfer,kyrfmxfer,webdavxfer,smbxfer,afpxfer,tftpxfer';
let center;
before(async () => {
  center = await OpenLogCenter({rows: 300, hash: '#log=filexfer'});
});
after(() => center?.close());

// Opens the entry of the table's first row and presses the filter-out button
// of its `field`; the value left out.
async function FilterOut(page, field) {
  await page.locator('#log-table tbody tr').first().click();
  const dialog = page.getByRole('dialog', {name: 'Log entry'});
  await dialog.waitFor();
  const prefix = `Hide entries with ${field} `;
  const button = dialog.getByRole('button', {name: prefix});
  const value = (await button.getAttribute('aria-label')).slice(prefix.length);
  await button.click();
  await Ready(page);
  return value;
}

async function UsersShown(page) {
  return (await TableRows(page)).map((cells) => cells[3]);
}

// The users and logs left out in the address.
function Hidden(page) {
  const params = new URLSearchParams(new URL(page.url()).hash.slice(1));
  return [...params.getAll('hide-user'), ...params.getAll('hide-log')];
}

test('a user and a log filtered out: chips bring them back; kept in the address',
     async () => {
       const {page, api} = center;
       const all = await api.Search({logtype: MEMBERS});
       const user = await FilterOut(page, 'User');
       const type = (await api.Search({logtype: MEMBERS, exclude: {username: [user]}}))
                        .items[0].orginalLogType;
       const log = await FilterOut(page, 'Log');
       const exclude = {username: [user], orginalLogType: [type]};
       const neither = await api.Search({logtype: MEMBERS, exclude});
       assert.ok(neither.total > 0 && neither.total < all.total);
       const rows = await TableRows(page);
       assert.ok(rows.every((cells) => cells[0] !== log && cells[3] !== user), log);
       assert.deepEqual(rows.map((cells) => cells[3]), neither.items.map((item) => item.username));
       assert.deepEqual(Hidden(page), [user, type]);

       // The chips, and the export that would hold the users left out.
       const chips = page.getByRole('group', {name: 'Left out'}).getByRole('button');
       assert.deepEqual(await chips.allInnerTexts(), [`User ${user}`, `Log ${log}`]);
       assert.ok(await page.locator('#export-csv').isDisabled());
       assert.ok(await page.locator('#export-note').isVisible());
       await page.emulateMedia({colorScheme: 'dark'});
       assert.deepEqual(await AxeViolations(page), [], 'dark');
       await page.emulateMedia({colorScheme: 'light'});
       assert.deepEqual(await AxeViolations(page), []);

       // A chip removed hands the focus to the next one, the last to the search box.
       await chips.first().click();
       await Ready(page);
       assert.deepEqual(Hidden(page), [type]);
       assert.equal(await page.evaluate(() => document.activeElement.dataset.key), `log:${type}`);
       assert.ok(await page.locator('#export-csv').isEnabled());
       // The export names the group's logs that are not left out.
       const {logtype} = ExportParams(FindLog('filexfer'), {levels: [], hideLogs: [type]});
       assert.equal(logtype, MEMBERS.split(',').filter((name) => name !== type).join());
       await page.keyboard.press('Enter');
       await Ready(page);
       assert.equal(await page.evaluate(() => document.activeElement.id), 'keyword');
       assert.deepEqual(await UsersShown(page), all.items.map((item) => item.username));
       assert.ok(await page.locator('#hidden-filter').isHidden());
     });

test('live mode counts new entries off the page, of the filters only; Show the newest', async () => {
  const {page, server} = center;
  const writer = new StoreWriter(path.join(server.root, 'var/log/quorlog/.QUORSYSDB'));
  try {
    // Oldest first: new entries sort to the last page.
    await page.goto(server.url + '#log=system&level=info,warning&order=asc');
    await Ready(page);
    await page.getByLabel('Live').check();
    for (const [msg, level] of [['off page 1', 'info'], ['not counted', 'err'],
                                ['off page 2', 'warning'], ['off page 3', 'info']]) {
      await writer.Append(msg, level);
    }
    const count = page.locator('#live-elsewhere');
    await count.getByText('New entries not on this page: 3.').waitFor();
    assert.equal(await page.locator('tr.row-new').count(), 0);
    assert.deepEqual(await AxeViolations(page), []);
    await count.getByRole('button', {name: 'Show the newest'}).click();
    await Ready(page);
    assert.deepEqual(await page.locator('tr.row-new td.msg').allInnerTexts(),
                     ['off page 3', 'off page 2', 'off page 1']);
    assert.ok(await count.isHidden());
    await page.getByLabel('Live').uncheck();
  } finally {
    await writer.Close();
  }
});
