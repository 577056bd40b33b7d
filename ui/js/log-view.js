// The log view: keeps the view's state in step with the address, asks the
// search API for the page and the timeline the state describes and shows
// them, follows new entries in live mode, and runs the export and clear
// actions.

import * as api from './api.js';
import {ClassOf, FindLog, LEVELS, MembersOf} from './catalogue.js';
import {ConfirmClear} from './clear-dialog.js';
import {DescribeZone, EpochToWall, RecordTimeToEpoch, RecordTimeToWall, WallToEpoch} from './dates.js';
import {byId} from './dom.js';
import {ShowEntry} from './entry-dialog.js';
import {Filters} from './filters.js';
import {FormatNumber, OnLanguageChange, T} from './i18n.js';
import {Icon} from './icons.js';
import {BuildNav, UpdateNav} from './log-nav.js';
import {RenderTable} from './log-table.js';
import {ErrorText} from './messages.js';
import {PageCount, Pager} from './pager.js';
import {Timeline} from './timeline.js';
import {FormatState, ParseState, RANGES, SearchTerms} from './view-state.js';

const LIVE_MS = 2000;
const LIVE_KEY = 'quor.live';
const BUCKETS = 60;

// A short stable text for a record without a row id (plain-text lines).
function Digest(text) {
  let hash = 5381;
  for (let i = 0; i < text.length; ++i) hash = ((hash * 33) ^ text.charCodeAt(i)) >>> 0;
  return hash.toString(36);
}

export class LogView {
  // `onAuthLost(error)` is called when an answer says the session is gone.
  constructor(onAuthLost) {
    this.onAuthLost = onAuthLost;
    this.state = ParseState(location.hash);
    this.answer = null;
    this.records = [];
    this.fresh = new Set();
    this.loading = null;
    this.timer = 0;
    this.zone = '';
    this.filters = new Filters((partial, how) => this.Apply(partial, how));
    this.pager = new Pager((partial) => this.Apply(partial));
    this.timeline = new Timeline(byId('timeline'), (from, to) => this.Apply({
      range: '', from: this.Wall(from), to: this.Wall(to), page: 1, entry: '',
    }), (seconds) => this.Wall(seconds).replace('T', ' '));
    this.table = byId('log-table');

    const follow = () => this.FollowAddress();
    window.addEventListener('hashchange', follow);
    window.addEventListener('popstate', follow);
    byId('refresh').prepend(Icon('refresh'));
    byId('refresh').addEventListener('click', () => this.Load());
    byId('export-html').prepend(Icon('download'));
    byId('export-html').addEventListener('click', () => this.Export('html'));
    byId('export-csv').prepend(Icon('download'));
    byId('export-csv').addEventListener('click', () => this.Export('csv'));
    byId('clear').prepend(Icon('trash'));
    byId('clear').addEventListener('click', () => this.Clear());
    byId('filters-toggle').prepend(Icon('filter'));
    // The skip link moves the focus without touching the address, which
    // holds the view's state.
    document.querySelector('.skip-link').addEventListener('click', (event) => {
      event.preventDefault();
      byId('log-table-region').focus();
    });
    const live = byId('live');
    live.checked = sessionStorage.getItem(LIVE_KEY) === '1';
    live.addEventListener('change', () => {
      sessionStorage.setItem(LIVE_KEY, live.checked ? '1' : '0');
      this.ScheduleLive();
    });
    OnLanguageChange(() => {
      if (this.running) this.Redraw();
    });
  }

  // Shows the view for a signed-in session ({timeZone, utcOffset}).
  Start(session) {
    this.running = true;
    this.zone = session.timeZone || '';
    this.utcOffset = session.utcOffset;
    this.state = ParseState(location.hash);
    history.replaceState(null, '', FormatState(this.state));
    this.Redraw();
    this.Load();
    this.ScheduleLive();
  }

  Stop() {
    this.running = false;
    clearTimeout(this.timer);
    if (this.loading) this.loading.abort();
    const entry = byId('entry-dialog');
    if (entry.open) entry.close();
  }

  get log() {
    return FindLog(this.state.log);
  }

  // A time as the appliance's wall clock shows it ("YYYY-MM-DDTHH:MM:SS").
  Wall(seconds) {
    return EpochToWall(seconds, this.zone, this.utcOffset);
  }

  // Everything that depends on the language or the state but not on a new
  // answer.
  Redraw() {
    BuildNav(byId('log-nav'));
    this.filters.Build();
    this.ShowState();
    this.ShowAnswer();
    this.timeline.Show(this.histogram);
  }

  ShowState() {
    const log = this.log;
    UpdateNav(byId('log-nav'), this.state);
    this.filters.Show(this.state, log);
    byId('log-title').textContent = T('log.' + log.name);
    const zone = DescribeZone(this.zone, this.utcOffset);
    byId('tz-note').textContent = zone ? T('tz.note', {tz: zone}) : '';
    const clearable = ClassOf(log).clearable;
    byId('clear').disabled = !clearable;
    byId('clear-note').hidden = clearable;
  }

  KeyOf(record) {
    const id = record.id !== undefined ? String(record.id) :
        Digest([record.time, record.who, record.descr].join('\u0001'));
    return (record.orginalLogType || this.state.log) + '.' + id;
  }

  ShowAnswer() {
    const log = this.log;
    // The headings are built anew; a keyboard user who sorted stays on the
    // heading they pressed.
    const focused = this.table.tHead.contains(document.activeElement) ?
        document.activeElement.dataset.sort : '';
    RenderTable(this.table, {
      log,
      records: this.records,
      sort: this.state.sort,
      order: this.state.order,
      terms: SearchTerms(this.state.keyword),
      fresh: this.fresh,
      keyOf: (record) => this.KeyOf(record),
      timeZone: this.zone || DescribeZone('', this.utcOffset),
      onSort: (sort, order) => this.Apply({sort, order, page: 1, entry: ''}),
      onOpen: (record) => this.OpenEntry(record),
    });
    if (focused) this.table.tHead.querySelector(`button[data-sort="${focused}"]`)?.focus();
    this.filters.ShowCounts(ClassOf(log).levels && this.answer ? this.answer.levels : null);
    this.pager.Show(this.state, this.answer ? this.answer.total : null);
    // An export without a level would hold every level.
    byId('export-html').disabled = byId('export-csv').disabled = Boolean(this.noLevel);
    this.ShowStatus();
  }

  // The status line: a notice of the last action, if any, then what the
  // table shows.
  ShowStatus() {
    const parts = [this.notice || ''];
    const {answer, state} = this;
    if (this.failure) {
      // The error box says it.
    } else if (!answer) {
      parts.push(this.noLevel ? T('status.noLevel') : T('status.loading'));
    } else if (this.records.length === 0) {
      parts.push(T('status.empty'));
    } else {
      const first = (state.page - 1) * state.size + 1;
      parts.push(T('status.shown', {
        first: FormatNumber(first),
        last: FormatNumber(first + this.records.length - 1),
        total: FormatNumber(answer.total),
      }));
    }
    byId('status').textContent = parts.filter(Boolean).join(' ');
    byId('partial-note').hidden = !(answer && answer.partial);
  }

  ShowError(error) {
    const box = byId('error');
    box.textContent = error ? ErrorText(error) : '';
    box.hidden = !error;
  }

  // Applies a change of the state. Keyword typing replaces the current
  // history entry; every other change adds one, so Back undoes it.
  Apply(partial, {typing = false} = {}) {
    const next = {...this.state, ...partial};
    const address = FormatState(next);
    if (address === location.hash) return;
    this.notice = '';
    if (typing) history.replaceState(null, '', address);
    else history.pushState(null, '', address);
    this.state = next;
    this.ShowState();
    this.Load();
  }

  FollowAddress() {
    if (!this.running) return;
    const next = ParseState(location.hash);
    // An address edited by hand may hold values the view does not know;
    // it is rewritten to the view actually shown.
    if (FormatState(next) !== location.hash) history.replaceState(null, '', FormatState(next));
    if (FormatState(next) === FormatState(this.state)) return;
    const logChanged = next.log !== this.state.log;
    this.state = next;
    this.notice = '';
    if (logChanged) {
      this.records = [];
      this.answer = null;
      this.histogram = null;
    }
    this.ShowState();
    this.ShowAnswer();
    this.Load();
  }

  // The time bounds of the state in epoch seconds (0: none).
  Bounds() {
    const {state} = this;
    if (state.range) return {from: Math.floor(Date.now() / 1000) - RANGES[state.range], to: 0};
    return {
      from: WallToEpoch(state.from, this.zone, this.utcOffset),
      to: WallToEpoch(state.to, this.zone, this.utcOffset, {end: true}),
    };
  }

  // The search's filters for the current state, without order or paging.
  Filters() {
    const {state} = this;
    const params = {logtype: MembersOf(this.log).join(',')};
    if (ClassOf(this.log).levels && state.levels.length < LEVELS.length) {
      params.level = state.levels.join(',');
    }
    if (state.keyword) params.q = state.keyword;
    const {from, to} = this.Bounds();
    if (from) params.from = from;
    if (to) params.to = to;
    return params;
  }

  // Asks for the page and the timeline the state describes. `quiet` (live
  // mode) keeps the table as it is until the answer arrives.
  async Load({quiet = false, markNew = false} = {}) {
    if (this.loading) this.loading.abort();
    this.loading = null;
    const region = byId('log-table-region');
    region.setAttribute('aria-busy', 'true');
    await this.Fetch(quiet, markNew);
    if (this.loading) return;
    // The address of the view the table now shows, for whoever waits on it.
    region.dataset.view = FormatState(this.state);
    region.setAttribute('aria-busy', 'false');
  }

  async Fetch(quiet, markNew) {
    const log = this.log;
    this.failure = null;
    this.ShowError(null);
    this.noLevel = ClassOf(log).levels && this.state.levels.length === 0;
    const {from, to} = this.Bounds();
    const reversed = from && to && from > to;
    if (this.noLevel || reversed) {
      // Nothing can match: the page answers itself.
      this.answer = null;
      this.records = [];
      this.histogram = null;
      this.timeline.Show(null);
      this.ShowAnswer();
      if (reversed) this.Fail({code: -1, text: T('filters.datesReversed')});
      return;
    }
    if (!quiet) byId('status').textContent = [this.notice, T('status.loading')].join(' ').trim();
    const controller = new AbortController();
    this.loading = controller;
    const {state} = this;
    const filters = this.Filters();
    const query = {
      ...filters, sort: state.sort, order: state.order,
      offset: (state.page - 1) * state.size, limit: state.size,
    };
    try {
      const [answer, histogram] = await Promise.all([
        api.Search('query', query, controller.signal),
        api.Search('histogram', {...filters, buckets: BUCKETS}, controller.signal),
      ]);
      if (controller !== this.loading) return;
      this.loading = null;
      const pages = PageCount(answer.total, state.size);
      if (answer.total > 0 && state.page > pages) {
        // The log shrank under the view (a clear, a narrower filter in
        // another tab): show its last page instead of an empty one.
        history.replaceState(null, '', FormatState({...state, page: pages}));
        this.state = {...state, page: pages};
        this.ShowState();
        await this.Fetch(quiet, markNew);
        return;
      }
      const before = new Set(this.records.map((record) => this.KeyOf(record)));
      this.answer = answer;
      this.records = Array.isArray(answer.items) ? answer.items : [];
      this.fresh = new Set(markNew ? this.records.map((record) => this.KeyOf(record))
          .filter((key) => !before.has(key)) : []);
      this.histogram = histogram;
      this.timeline.Show(histogram);
      this.ShowAnswer();
      this.live = null;
      this.OpenNamedEntry();
    } catch (error) {
      if (error.name === 'AbortError' || controller !== this.loading) return;
      this.loading = null;
      this.Fail(error);
    }
  }

  Fail(error) {
    if (error instanceof api.ApiError && error.needsLogin) {
      this.onAuthLost(error);
      return;
    }
    this.failure = error;
    this.ShowStatus();
    this.ShowError(error);
  }

  // The address of one entry: the view narrowed to the entry's second, with
  // the entry named.
  EntryAddress(record) {
    const second = RecordTimeToWall(record.time);
    return FormatState({...this.state, range: '', from: second, to: second, page: 1,
                        entry: this.KeyOf(record)});
  }

  OpenEntry(record) {
    const key = this.KeyOf(record);
    if (this.state.entry !== key) history.replaceState(null, '', FormatState({...this.state, entry: key}));
    this.state = {...this.state, entry: key};
    ShowEntry(this.log, record, this.EntryAddress(record), () => {
      this.state = {...this.state, entry: ''};
      history.replaceState(null, '', FormatState(this.state));
      this.table.querySelector(`tr[data-key="${CSS.escape(key)}"]`)?.focus();
    });
  }

  // Opens the entry the address names, once it is on the page shown.
  OpenNamedEntry() {
    if (!this.state.entry || byId('entry-dialog').open) return;
    const record = this.records.find((r) => this.KeyOf(r) === this.state.entry);
    if (record) this.OpenEntry(record);
  }

  // Live mode: a poll every 2 s counts the matches at and after the newest
  // entry's second (a range the time index reads in a few rows); when that
  // count moves, the page is fetched again and its new rows are marked.
  ScheduleLive() {
    clearTimeout(this.timer);
    byId('live-note').hidden = !byId('live').checked;
    if (!byId('live').checked || !this.running) return;
    this.timer = setTimeout(async () => {
      const busy = this.loading || document.querySelector('dialog[open]') || document.hidden;
      if (!busy) {
        try {
          await this.Poll();
        } catch (error) {
          if (error instanceof api.ApiError && error.needsLogin) this.onAuthLost(error);
        }
      }
      this.ScheduleLive();
    }, LIVE_MS);
  }

  async Poll() {
    const filters = this.Filters();
    if (!this.live) {
      const newest = await api.Search('query', {...filters, sort: 'time', order: 'desc', limit: 1});
      const item = newest.items && newest.items[0];
      const since = item ? RecordTimeToEpoch(item.time, this.zone, this.utcOffset) : 0;
      this.live = {since, count: item ? null : 0};
    }
    const from = Math.max(this.live.since, filters.from || 0);
    const recent = await api.Search('query', {...filters, ...(from ? {from} : {}), limit: 1});
    if (this.live.count === null) {
      this.live.count = recent.total;
    } else if (recent.total !== this.live.count) {
      await this.Load({quiet: true, markNew: true});
    }
  }

  // The export method's parameters for the current filters.
  ExportParams() {
    const {state} = this;
    const params = {logtype: MembersOf(this.log).join(',')};
    if (ClassOf(this.log).levels) params.level = state.levels.join(',');
    if (state.keyword) params.keyword = state.keyword;
    const {from, to} = this.Bounds();
    if (from) params.date_from = from;
    if (to) params.date_to = to;
    return params;
  }

  // Downloads the entries the filters select (every page) as HTML or CSV
  // through the browser's own download manager.
  Export(format) {
    this.ShowError(null);
    this.notice = T('export.started');
    this.ShowStatus();
    api.DownloadThroughBrowser('export', {...this.ExportParams(), format}, (error) => {
      this.notice = '';
      this.Fail(error);
    });
  }

  // The number of entries of each member log, whatever the filters.
  async Totals(log) {
    const totals = new Map();
    await Promise.all(MembersOf(log).map(async (name) => {
      try {
        totals.set(name, (await api.Search('query', {logtype: name, limit: 1})).total);
      } catch (error) {
        if (error instanceof api.ApiError && error.needsLogin) throw error;
      }
    }));
    return totals;
  }

  // Asks for confirmation (naming each log and what it holds), clears, then
  // counts again and says what remains: the clear answers success even when
  // a busy log kept its entries.
  async Clear() {
    const log = this.log;
    this.ShowError(null);
    let totals;
    try {
      totals = await this.Totals(log);
    } catch (error) {
      this.Fail(error);
      return;
    }
    const {state} = this;
    const filtered = Boolean(state.keyword || state.range || state.from || state.to ||
        (ClassOf(log).levels && state.levels.length < LEVELS.length));
    if (!ClassOf(log).clearable || !(await ConfirmClear(log, totals, filtered))) {
      byId('clear').focus();
      return;
    }
    try {
      await api.Call('clear', {category: 'native', logtype: MembersOf(log).join(',')});
      totals = await this.Totals(log);
    } catch (error) {
      this.Fail(error);
      byId('clear').focus();
      return;
    }
    const remaining = [...totals].filter(([, count]) => count > 0);
    if (totals.size < MembersOf(log).length) {
      this.Fail({code: -1, text: T('clear.uncounted')});
    } else if (remaining.length > 0) {
      const left = remaining.reduce((sum, [, count]) => sum + count, 0);
      const names = remaining.map(([name]) => T('log.' + name)).join(', ');
      this.Fail({code: -1, text: T('clear.remain', {logs: names, count: FormatNumber(left)})});
    } else {
      const names = MembersOf(log).map((name) => T('log.' + name)).join(', ');
      this.notice = T('clear.done', {logs: names});
    }
    this.state = {...this.state, page: 1};
    history.replaceState(null, '', FormatState(this.state));
    this.ShowState();
    const failure = this.failure;
    await this.Load();
    if (failure) this.Fail(failure);
    byId('clear').focus();
  }
}
