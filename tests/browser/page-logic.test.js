// The page's pure parts, run in node without a browser: times and days in the
// appliance's time zone turned into epoch seconds (offset changes included),
// search terms, and the view's state read from and written to the address.

import assert from 'node:assert/strict';
import {test} from 'node:test';

import {DescribeZone, EpochToWall, WallToEpoch} from '../../ui/js/dates.js';
import {FormatRecordTime, FormatTimeText, ParseTimeText} from '../../ui/js/time-text.js';
import {BoundOf, DefaultState, FormatState, ParseState, SearchTerms} from '../../ui/js/view-state.js';

const iso = (seconds) => new Date(seconds * 1000).toISOString();

test('the address holds the view and falls back to defaults for what it cannot use', () => {
  const view = {
    log: 'bkplog',
    levels: ['warning', 'err'],
    range: '',
    from: '2026-11-01T08:30',
    to: '2026-11-20T17:45:10',
    keyword: 'Büro, "Akten" & more',
    hideUsers: ['ann', 'Bob & Co'],
    hideLogs: [],
    sort: 'who',
    order: 'asc',
    page: 3,
    size: 100,
    entry: 'bkplog.1x2y',
  };
  assert.deepEqual(ParseState(FormatState(view)), view);
  assert.equal(FormatState(DefaultState()), '#log=system');
  // A quick range stands for itself: explicit bounds beside it are dropped.
  assert.deepEqual(ParseState('#range=24h&from=2026-11-01'), {...DefaultState(), range: '24h'});

  // Unknown logs, sorts the log cannot use, bad times, orders, pages and sizes.
  const odd = ParseState(
      '#log=nosuch&sort=ip&order=up&from=2026-13&to=2026-11-01T9:00&range=1y&page=-2&size=7&' +
      'level=err,bogus&hide-user=&hide-log=smbxfer');
  assert.deepEqual(odd, {...DefaultState(), levels: ['err']});
  assert.equal(ParseState('#log=filexfer&sort=ip').sort, 'ip');
  // Logs left out only of the group shown, each once.
  assert.deepEqual(ParseState('#log=filexfer&hide-log=smbxfer&hide-log=smbxfer&hide-log=disk')
                       .hideLogs, ['smbxfer']);
  // An empty level list stays empty: the page shows nothing rather than all.
  assert.deepEqual(ParseState('#log=disk&level=').levels, []);
});

test('search terms split as the search API splits them', () => {
  assert.deepEqual(SearchTerms('disk  "full volume" Straße "unclosed phrase'),
                   ['disk', 'full volume', 'Straße', 'unclosed phrase']);
  assert.deepEqual(SearchTerms(' "" x'), ['x']);
});

test('time fields, days and epoch seconds in the appliance zone, across offset changes', () => {
  // Berlin in summer is UTC+2; a field without seconds spans its minute.
  assert.equal(iso(WallToEpoch('2026-07-01T08:30', 'Europe/Berlin')), '2026-07-01T06:30:00.000Z');
  assert.equal(iso(WallToEpoch('2026-07-01T08:30', 'Europe/Berlin', undefined, {end: true})),
               '2026-07-01T06:30:59.000Z');
  // Berlin moves from UTC+1 to UTC+2 during 29 March 2026: a day of 23 hours; and back on 25
  // October: a day of 25 hours.
  assert.equal(iso(WallToEpoch('2026-03-29', 'Europe/Berlin')), '2026-03-28T23:00:00.000Z');
  assert.equal(iso(WallToEpoch('2026-03-29', 'Europe/Berlin', undefined, {end: true})),
               '2026-03-29T21:59:59.000Z');
  assert.equal(iso(WallToEpoch('2026-10-25', 'Europe/Berlin', undefined, {end: true})),
               '2026-10-25T22:59:59.000Z');
  assert.equal(iso(WallToEpoch('2026-07-01', 'Asia/Kolkata')), '2026-06-30T18:30:00.000Z');
  // A zone name the browser does not know falls back to the offset given.
  assert.equal(iso(WallToEpoch('2026-07-01', 'Local/Appliance', -5 * 3600)),
               '2026-07-01T05:00:00.000Z');
  assert.equal(DescribeZone('Local/Appliance', 19800), 'Local/Appliance (UTC+05:30)');
  assert.equal(DescribeZone('', -16200), 'UTC−04:30');
  assert.equal(EpochToWall(Date.UTC(2026, 0, 15, 23, 30, 5) / 1000, 'Europe/Berlin'),
               '2026-01-16T00:30:05');
  assert.equal(EpochToWall(0, 'Local/Appliance', -3600), '1969-12-31T23:00:00');
  assert.equal(WallToEpoch('', 'Europe/Berlin'), 0);
});

test('typed times: both languages, a time alone for today, relative times kept relative', () => {
  const today = '2026-11-23';
  const cases = {
    '2026-11-23 14:05': '2026-11-23T14:05',
    '2026/11/23 14:05:09': '2026-11-23T14:05:09',
    ' 23.11.2026   14:05 ': '2026-11-23T14:05',
    '1.2.2027': '2027-02-01',
    '2026-11-23': '2026-11-23',
    '9:30': '2026-11-23T09:30',
    '-15m': '-15m', 'now-2h': '-2h', 'NOW - 7d': '-7d', '-3 Std': '-3h', 'jetzt': 'now',
    '': '',
  };
  for (const [typed, value] of Object.entries(cases)) {
    assert.equal(ParseTimeText(typed, today), value, typed);
  }
  // Not times: a 6-digit year, impossible days and hours, years before 1970, words.
  for (const typed of ['202609-01-01', '2026-02-30', '31.04.2026', '2026-11-23 24:00',
                       '1969-12-31', '-15x', 'yesterday', '14:5']) {
    assert.equal(ParseTimeText(typed, today), null, typed);
  }
  assert.equal(FormatTimeText('2026-11-23T14:05', 'de'), '23.11.2026 14:05');
  assert.equal(FormatTimeText('2026-11-23', 'en'), '2026-11-23');
  assert.equal(FormatTimeText('now', 'de'), 'jetzt');
  assert.equal(FormatRecordTime('2026/11/22 08:00:01', 'de'), '22.11.2026 08:00:01');
  assert.equal(FormatRecordTime('not a time', 'en'), 'not a time');

  // Relative bounds stay relative in the address and are taken from now.
  const state = ParseState('#from=-15m&to=now');
  assert.equal(FormatState(state), '#log=system&from=-15m&to=now');
  assert.equal(BoundOf(state, 'from', 100000, 'UTC'), 100000 - 900);
  assert.equal(BoundOf(state, 'to', 100000, 'UTC'), 100000);
  assert.equal(BoundOf({...state, range: '1h'}, 'from', 100000, 'UTC'), 100000 - 3600);
  assert.equal(BoundOf({...state, from: '2026-07-01'}, 'from', 0, 'UTC'),
               Date.UTC(2026, 6, 1) / 1000);
});
