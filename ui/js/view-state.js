// The view's state (log, filters, users and logs left out, time range, sort,
// page, the entry open in detail) and its form in the address's fragment, so that a reload or a
// shared link shows the same view. Only values that differ from the defaults
// are written, keeping links short.

import {DEFAULT_LOG, FindLog, IsSortable, LEVELS, MembersOf} from './catalogue.js';
import {WallToEpoch} from './dates.js';

export const PAGE_SIZES = [25, 50, 100, 200];
// Quick ranges: the last hour, day, week or month up to now.
export const RANGES = {'1h': 3600, '24h': 86400, '7d': 7 * 86400, '30d': 30 * 86400};
const DEFAULT_SIZE = 50;
const DEFAULT_SORT = 'time';
// A wall time of the appliance's zone as the time fields give it: a day, and
// optionally its time with or without seconds.
const WALL_RE = /^\d{4}-\d{2}-\d{2}(T\d{2}:\d{2}(:\d{2})?)?$/;
// A time relative to now, kept relative in the address and in saved views:
// "now", or an amount of seconds, minutes, hours, days or weeks ago.
export const RELATIVE_RE = /^(now|-\d{1,6}[smhdw])$/;
const UNIT_SECONDS = {s: 1, m: 60, h: 3600, d: 86400, w: 7 * 86400};
// Users left out of one view at most (the search module takes 100 texts).
export const MAX_HIDDEN = 50;

export function DefaultState() {
  return {
    log: DEFAULT_LOG,
    levels: LEVELS.map((level) => level.name),
    range: '',
    from: '',
    to: '',
    keyword: '',
    hideUsers: [],
    hideLogs: [],
    sort: DEFAULT_SORT,
    order: 'desc',
    page: 1,
    size: DEFAULT_SIZE,
    entry: '',
  };
}

// Reads a fragment such as "#log=disk&level=err&page=3". Unknown or
// malformed values fall back to their defaults rather than failing.
export function ParseState(hash) {
  const state = DefaultState();
  const params = new URLSearchParams(hash.replace(/^#/, ''));
  const log = FindLog(params.get('log') || '');
  if (log) state.log = log.name;
  if (params.has('level')) {
    const wanted = params.get('level').split(',');
    state.levels = LEVELS.map((level) => level.name).filter((name) => wanted.includes(name));
  }
  const range = params.get('range') || '';
  if (range in RANGES) {
    state.range = range;
  } else {
    for (const key of ['from', 'to']) {
      const value = params.get(key) || '';
      if (WALL_RE.test(value) || RELATIVE_RE.test(value)) state[key] = value;
    }
  }
  state.keyword = params.get('q') || '';
  // Each value once; logs only of the group shown.
  state.hideUsers = [...new Set(params.getAll('hide-user').filter(Boolean))].slice(0, MAX_HIDDEN);
  const members = MembersOf(FindLog(state.log));
  state.hideLogs = [...new Set(params.getAll('hide-log'))].filter((name) => members.includes(name));
  const sort = params.get('sort');
  if (sort && IsSortable(FindLog(state.log), sort)) state.sort = sort;
  if (params.get('order') === 'asc') state.order = 'asc';
  const page = Number.parseInt(params.get('page') || '', 10);
  if (page >= 1) state.page = page;
  const size = Number.parseInt(params.get('size') || '', 10);
  if (PAGE_SIZES.includes(size)) state.size = size;
  state.entry = params.get('entry') || '';
  return state;
}

export function FormatState(state) {
  const defaults = DefaultState();
  const params = new URLSearchParams();
  params.set('log', state.log);
  if (state.levels.join(',') !== defaults.levels.join(',')) {
    params.set('level', state.levels.join(','));
  }
  if (state.range) params.set('range', state.range);
  if (state.from) params.set('from', state.from);
  if (state.to) params.set('to', state.to);
  if (state.keyword) params.set('q', state.keyword);
  for (const user of state.hideUsers) params.append('hide-user', user);
  for (const log of state.hideLogs) params.append('hide-log', log);
  if (state.sort !== defaults.sort) params.set('sort', state.sort);
  if (state.order !== defaults.order) params.set('order', state.order);
  if (state.page !== 1) params.set('page', String(state.page));
  if (state.size !== defaults.size) params.set('size', String(state.size));
  if (state.entry) params.set('entry', state.entry);
  return '#' + params.toString();
}

// The state for showing another log: filters stay, the sort and page start
// over because each log has its own sortable columns, and logs left out of a
// group belong to that group.
export function WithLog(state, name) {
  return {...state, log: name, hideLogs: [], sort: DEFAULT_SORT, order: 'desc', page: 1,
          entry: ''};
}

// The terms of a search text as the search API splits it: runs of non-blank
// characters, or, when a double quote begins a term, the text up to the next quote
// as one term; a quote inside a word is one of its characters.
export function SearchTerms(text) {
  const terms = [];
  const pattern = /"([^"]*)"?|([^\s"]\S*)/g;
  let match;
  while ((match = pattern.exec(text)) !== null) {
    const term = match[1] ?? match[2];
    if (term) terms.push(term);
  }
  return terms;
}

// The epoch seconds of the state's `key` bound ("from" or "to") at `now`, 0
// for none: a quick range reaches back from now, a relative bound is taken
// from now, a wall time in the appliance's zone (a day alone is its first
// second, or its last for "to").
export function BoundOf(state, key, now, zone, offset) {
  if (state.range) return key === 'from' ? now - RANGES[state.range] : 0;
  const value = state[key];
  if (!value) return 0;
  if (value === 'now') return now;
  const relative = /^-(\d+)([smhdw])$/.exec(value);
  if (relative) return now - Number(relative[1]) * UNIT_SECONDS[relative[2]];
  return WallToEpoch(value, zone, offset, {end: key === 'to'});
}
