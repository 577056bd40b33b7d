// Actions beside a second process that holds the store locked: the wait is
// said at once over the dimmed table, can be cancelled, and a read that fails
// or is cancelled leaves no rows that contradict the filters.

import assert from 'node:assert/strict';
import path from 'node:path';
import {after, before, test} from 'node:test';

import {AxeViolations, OpenLogCenter, Ready, TableRows} from './harness.js';
import {StoreWriter} from './writer.js';

let center, writer;
before(async () => {
  center = await OpenLogCenter({rows: 300});
  writer = new StoreWriter(path.join(center.server.root, 'var/log/quorlog/.QUORSYSDB'));
  // A store in WAL mode lets readers past a writer; one with a rollback
  // journal (as stores made by older writers keep) makes them wait.
  await writer.Run('PRAGMA journal_mode=DELETE;');
});
after(async () => {
  await writer?.Close();
  await center?.close();
});

// The level words of the rows shown.
async function LevelsShown(page) {
  return new Set((await TableRows(page)).map((row) => row[0]));
}

test('a level change on a locked log: waiting said at once, Cancel, no contradicting rows', async () => {
  const {page} = center;
  await page.goto(center.server.url + '#log=system');
  await Ready(page);
  assert.ok((await LevelsShown(page)).has('Information'));

  // Requests the page gave up (a new action or Cancel aborts the one in flight).
  let aborted = 0;
  page.on('requestfailed', () => ++aborted);
  const held = (await writer.Hold(12000, 'EXCLUSIVE', 'held row')).released;
  await page.locator('#level-info').uncheck();
  const waiting = page.locator('#waiting');
  await waiting.filter({hasText: 'Loading…'}).waitFor({timeout: 3000});
  assert.ok(await page.locator('#log-table-region.dimmed').isVisible());
  await waiting.filter({hasText: 'another process may be holding it'}).waitFor({timeout: 2500});
  assert.deepEqual(await AxeViolations(page), []);
  await waiting.getByRole('button', {name: 'Cancel'}).click();
  assert.ok(await waiting.isHidden());
  assert.deepEqual(await TableRows(page), []);
  assert.match(await page.locator('#status').innerText(), /Cancelled/);
  assert.ok(aborted >= 1, 'Cancel aborts the request in flight');

  // Left to wait, the read either ends in an error with an empty table or in
  // the rows of the levels asked: never the old rows under unticked levels.
  await page.locator('#level-warning').uncheck();
  await page.waitForFunction(() => document.getElementById('waiting').hidden, null,
                             {timeout: 20000});
  const levels = await LevelsShown(page);
  assert.ok(!levels.has('Information') && !levels.has('Warning'), [...levels].join());
  await held;
  await page.getByRole('button', {name: 'Refresh'}).click();
  await Ready(page);
  assert.deepEqual([...await LevelsShown(page)], ['Error']);
  assert.ok(await page.locator('#error').isHidden(), 'a new action drops the old error');
});

test('Clear beside a locked log: the dialog opens at once and says it waits; Cancel', async () => {
  const {page} = center;
  await page.goto(center.server.url + '#log=system');
  await Ready(page);
  const held = (await writer.Hold(9000, 'EXCLUSIVE', 'held for the clear')).released;
  await page.getByRole('button', {name: 'Clear…'}).click();
  const dialog = page.getByRole('dialog', {name: 'Clear logs'});
  await dialog.waitFor({timeout: 3000});
  await dialog.getByText('System: counting…').waitFor({timeout: 3000});
  await dialog.getByText(/waiting for the log/).waitFor({timeout: 2500});
  assert.deepEqual(await AxeViolations(page), []);
  // Confirmed: the clear's wait is said at once and can be cancelled.
  await dialog.getByRole('button', {name: 'Clear logs'}).click();
  const waiting = page.locator('#waiting');
  await waiting.filter({hasText: 'Clearing…'}).waitFor({timeout: 3000});
  await waiting.getByRole('button', {name: 'Cancel'}).click();
  await waiting.filter({hasText: 'Counting the entries left…'}).waitFor({timeout: 3000});
  await held;
  // Counted after the lock went: the module's clear may have finished or given up; the
  // page says which, per log.
  await page.waitForFunction(() => document.getElementById('waiting').hidden, null,
                             {timeout: 15000});
  const said = (await page.locator('#status').innerText()) +
      (await page.locator('#clear-report').innerText());
  assert.match(said, /Cleared: System|Stopped waiting, but the logs were cleared|System: was busy/);
});
