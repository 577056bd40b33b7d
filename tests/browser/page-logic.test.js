// The page's pure parts, run in node without a browser: days in the
// appliance's time zone turned into epoch seconds (offset changes included),
// and the view's state read from and written to the address.

import assert from 'node:assert/strict';
import {test} from 'node:test';

import {DescribeZone, EndOfDay, StartOfDay} from '../../ui/js/dates.js';
import {DefaultState, FormatState, ParseState} from '../../ui/js/view-state.js';

const iso = (seconds) => new Date(seconds * 1000).toISOString();

test('a day spans the wall-clock day of the appliance zone, across offset changes', () => {
  // Berlin moves from UTC+1 to UTC+2 during 29 March 2026: a day of 23 hours.
  assert.equal(iso(StartOfDay('2026-03-29', 'Europe/Berlin')), '2026-03-28T23:00:00.000Z');
  assert.equal(iso(EndOfDay('2026-03-29', 'Europe/Berlin')), '2026-03-29T21:59:59.000Z');
  // And back on 25 October: a day of 25 hours.
  assert.equal(iso(StartOfDay('2026-10-25', 'Europe/Berlin')), '2026-10-24T22:00:00.000Z');
  assert.equal(iso(EndOfDay('2026-10-25', 'Europe/Berlin')), '2026-10-25T22:59:59.000Z');
  assert.equal(iso(StartOfDay('2026-07-01', 'Asia/Kolkata')), '2026-06-30T18:30:00.000Z');
  assert.equal(iso(StartOfDay('2026-07-01', 'Etc/UTC')), '2026-07-01T00:00:00.000Z');
  // A zone name the browser does not know falls back to the offset given.
  assert.equal(iso(StartOfDay('2026-07-01', 'Local/Appliance', -5 * 3600)),
               '2026-07-01T05:00:00.000Z');
  assert.equal(DescribeZone('Local/Appliance', 19800), 'Local/Appliance (UTC+05:30)');
  assert.equal(DescribeZone('', -16200), 'UTC−04:30');
  // No date is no bound.
  assert.equal(StartOfDay('', 'Europe/Berlin'), 0);
  assert.equal(EndOfDay('', 'Europe/Berlin'), 0);
});

test('the address holds the view and falls back to defaults for what it cannot use', () => {
  const view = {
    log: 'bkplog',
    levels: ['warning', 'err'],
    from: '2026-11-01',
    to: '2026-11-20',
    keyword: 'Büro, "Akten" & more',
    sort: 'who',
    page: 3,
    size: 100,
  };
  assert.deepEqual(ParseState(FormatState(view)), view);
  assert.equal(FormatState(DefaultState()), '#log=system');

  // Unknown logs, sorts the log cannot use, bad dates, pages and sizes.
  const odd = ParseState('#log=nosuch&sort=who&from=2026-13&page=-2&size=7&level=err,bogus');
  assert.deepEqual(odd, {...DefaultState(), levels: ['err']});
  // "msg" sorts a database log but not a plain-text one, whose key is "descr".
  assert.equal(ParseState('#log=system&sort=msg').sort, 'msg');
  assert.equal(ParseState('#log=bkplog&sort=msg').sort, 'time');
  // An empty level list stays empty: the page shows nothing rather than all.
  assert.deepEqual(ParseState('#log=disk&level=').levels, []);
});
