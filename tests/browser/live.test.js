// Live mode against a second process writing the system log for a minute at
// random moments (bursts, writes inside held locks, old rows removed as
// retention would): every row written is shown as new exactly once, and a
// clear by that process empties the table.

import assert from 'node:assert/strict';
import path from 'node:path';
import {after, before, test} from 'node:test';

import {AxeViolations, OpenLogCenter} from './harness.js';
import {StoreWriter} from './writer.js';

let center, writer;
before(async () => {
  center = await OpenLogCenter({rows: 300});
  writer = new StoreWriter(path.join(center.server.root, 'var/log/quorlog/.QUORSYSDB'));
});
after(async () => {
  await writer?.Close();
  await center?.close();
});

// A small seeded generator, so that a failing schedule can be run again.
function Random(seed) {
  return () => {
    seed = (seed * 1103515245 + 12345) % 2147483648;
    return seed / 2147483648;
  };
}

const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

test('live mode shows every row written during a minute once: 0 missing, 0 repeated', async () => {
  const {page} = center;
  // Every row the page marks as new, in the order it marked them.
  await page.evaluate(() => {
    window.freshSeen = [];
    new MutationObserver((changes) => {
      for (const change of changes) {
        for (const node of change.addedNodes) {
          if (node.matches?.('tr.row-new')) window.freshSeen.push(node.querySelector('td.msg').textContent);
        }
      }
    }).observe(document.querySelector('#log-table tbody'), {childList: true});
  });
  await page.getByLabel('Live').check();
  assert.ok(await page.getByText('New entries appear as they are written.').isVisible());
  assert.deepEqual(await AxeViolations(page), []);

  const seed = Number(process.env.QUOR_LIVE_SEED || Date.now() % 100000);
  const random = Random(seed);
  const written = [];
  const write = async () => {
    const msg = `live probe ${written.length + 1}`;
    written.push(msg);
    await writer.Append(msg, random() < 0.2 ? 'warning' : 'info');
  };
  // The case that lost rows before: three rows a second apart right after a load.
  for (let i = 0; i < 3; ++i) {
    await write();
    await sleep(1000);
  }
  const end = Date.now() + 60000;
  while (Date.now() < end) {
    const roll = random();
    if (roll < 0.15) {
      // A writer holding the lock while readers may still read.
      await writer.Run('BEGIN IMMEDIATE;');
      await write();
      await sleep(200 + random() * 1000);
      await writer.Run('COMMIT;');
    } else if (roll < 0.22) {
      // Readers shut out for a moment.
      await writer.Run('BEGIN EXCLUSIVE;');
      await write();
      await sleep(100 + random() * 500);
      await writer.Run('COMMIT;');
    } else if (roll < 0.25) {
      // Retention: the oldest rows go.
      await writer.Run('DELETE FROM logs WHERE id IN (SELECT id FROM logs ORDER BY id LIMIT 5);');
    } else {
      const burst = roll > 0.9 ? 3 : 1;
      for (let i = 0; i < burst; ++i) await write();
    }
    await sleep(50 + random() * 2500);
  }
  await page.waitForFunction((count) => window.freshSeen.length >= count, written.length,
                             {timeout: 15000}).catch(() => {});
  await sleep(2500);  // one more poll: nothing may come twice
  const seen = await page.evaluate(() => window.freshSeen);
  const missing = written.filter((msg) => !seen.includes(msg));
  const repeated = seen.filter((msg, index) => seen.indexOf(msg) !== index);
  assert.deepEqual({missing, repeated}, {missing: [], repeated: []},
                   `seed ${seed}, ${written.length} rows written`);
  assert.ok(written.length > 20, `${written.length} rows written`);

  // A clear by another process empties the table; the next row is new again.
  await writer.Run('DELETE FROM logs;');
  await page.waitForFunction(() => !document.querySelector('#log-table tbody tr'), null,
                             {timeout: 8000});
  await writer.Append('after the clear');
  await page.locator('tr.row-new td.msg').filter({hasText: 'after the clear'}).waitFor({timeout: 8000});
  await page.getByLabel('Live').uncheck();
});
