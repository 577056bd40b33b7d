// The log view: keeps the view's state in step with the address, asks the
// search API for the page and the timeline the state describes and shows
// them. Live following (live-follow.js), clear (clear-action.js) and export
// (export-action.js) live in files of their own.

import * as api from './api.js';
import {ClassOf, FindLog, LEVELS, MembersOf, UserKey} from './catalogue.js';
import {ClearLog} from './clear-action.js';
import {ContextDialog} from './context-dialog.js';
import {DescribeZone, EpochToWall, RecordTimeToWall} from './dates.js';
import {byId} from './dom.js';
import {ShowEntry, ValueFilters} from './entry-dialog.js';
import {Export} from './export-action.js';
import {ExportLeavesOut, Filters} from './filters.js';
import {CurrentLanguage, FormatNumber, OnLanguageChange, T} from './i18n.js';
import {Icon} from './icons.js';
import {BuildNav, UpdateNav} from './log-nav.js';
import {LiveMode, MarksCovering, NewRowsWindow, ReadMarks, RowsPast} from './live-follow.js';
import {RenderTable} from './log-table.js';
import {ErrorText} from './messages.js';
import {PageCount, Pager} from './pager.js';
import {SavedViews} from './saved-views.js';
import {Timeline} from './timeline.js';
import {FormatTimeText} from './time-text.js';
import {BoundOf, FormatState, ParseState, SearchTerms} from './view-state.js';
import {Waiting} from './waiting.js';

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
    // The count and timeline of a term search, asked for beside its page and
    // shown after it.
    this.counting = null;
    this.marks = null;
    // New rows that live mode found off the page shown, and the marks of the
    // load before the first of them.
    this.elsewhere = 0;
    this.unseen = null;
    this.zone = '';
    this.waiting = new Waiting();
    this.live = new LiveMode(this, onAuthLost);
    this.context = new ContextDialog((error) => this.Fail(error));
    this.views = new SavedViews(this, onAuthLost);
    this.filters = new Filters((partial, how) => this.Apply(partial, how),
                               () => this.Wall(Math.floor(Date.now() / 1000)).slice(0, 10));
    this.pager = new Pager((partial) => this.Apply(partial));
    this.timeline = new Timeline(byId('timeline'), (from, to) => this.Apply({
      range: '', from: this.Wall(from), to: this.Wall(to), page: 1, entry: '',
    }), (seconds) => FormatTimeText(this.Wall(seconds), CurrentLanguage()));
    this.table = byId('log-table');

    const follow = () => this.FollowAddress();
    window.addEventListener('hashchange', follow);
    window.addEventListener('popstate', follow);
    byId('refresh').prepend(Icon('refresh'));
    byId('refresh').addEventListener('click', () => {
      this.StartAction();
      this.Load();
    });
    byId('export-html').prepend(Icon('download'));
    byId('export-html').addEventListener('click', () => this.Export('html'));
    byId('export-csv').prepend(Icon('download'));
    byId('export-csv').addEventListener('click', () => this.Export('csv'));
    byId('show-newest').addEventListener('click', () => this.ShowNewest());
    byId('clear').prepend(Icon('trash'));
    byId('clear').addEventListener('click', () => {
      this.StartAction();
      ClearLog(this);
    });
    byId('filters-toggle').prepend(Icon('filter'));
    // Narrow windows fold export and clear behind one button.
    const menu = byId('actions-menu');
    menu.prepend(Icon('menu'));
    menu.addEventListener('click', () => {
      const open = menu.getAttribute('aria-expanded') !== 'true';
      menu.setAttribute('aria-expanded', String(open));
      byId('more-actions').classList.toggle('open', open);
    });
    // The skip link moves the focus without touching the address, which
    // holds the view's state.
    document.querySelector('.skip-link').addEventListener('click', (event) => {
      event.preventDefault();
      byId('log-table-region').focus();
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
    this.live.Schedule();
  }

  Stop() {
    this.running = false;
    this.live.Stop();
    this.waiting.Stop();
    if (this.loading) this.loading.abort();
    if (this.counting) this.counting.abort();
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
    const counting = Boolean(this.answer && this.answer.total === null);
    this.filters.ShowCounts(ClassOf(log).levels && this.answer ? this.answer.levels : null,
                            counting);
    this.pager.Show(this.state, this.answer ? this.answer.total : null, counting,
                    this.records.length === this.state.size);
    // An export without a level would hold every level; one of a view that
    // leaves users out would hold theirs.
    byId('export-html').disabled = byId('export-csv').disabled =
        Boolean(this.noLevel) || ExportLeavesOut(this.state, log);
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
        total: answer.total === null ? '…' : FormatNumber(answer.total),
      }));
    }
    byId('status').textContent = parts.filter(Boolean).join(' ');
    byId('live-elsewhere').hidden = !this.elsewhere;
    byId('live-elsewhere-text').textContent =
        T('live.elsewhere', {count: FormatNumber(this.elsewhere)});
    byId('partial-note').hidden = !(answer && answer.partial);
  }

  ShowError(error) {
    const box = byId('error');
    box.textContent = error ? ErrorText(error) : '';
    box.hidden = !error;
  }

  // A new action starts: what earlier ones said goes.
  StartAction() {
    this.notice = '';
    this.failure = null;
    this.ShowError(null);
    byId('clear-report').hidden = true;
    this.ShowStatus();
  }

  Notice(text) {
    this.notice = text;
    this.ShowStatus();
  }

  // True while an answer (a term search's count too) is awaited or a dialog
  // is open.
  Busy() {
    return Boolean(this.loading || this.counting || document.querySelector('dialog[open]') ||
                   !this.waiting.box.hidden);
  }

  // The first page of the same view, in place of the current history entry.
  ToFirstPage() {
    this.state = {...this.state, page: 1};
    history.replaceState(null, '', FormatState(this.state));
    this.ShowState();
  }

  Logtype() {
    return MembersOf(this.log).join(',');
  }

  // Applies a change of the state. Keyword typing replaces the current
  // history entry; every other change adds one, so Back undoes it.
  Apply(partial, {typing = false} = {}) {
    const next = {...this.state, ...partial};
    const address = FormatState(next);
    if (address === location.hash) return;
    this.StartAction();
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
    this.StartAction();
    if (logChanged) this.Empty();
    this.ShowState();
    this.ShowAnswer();
    this.Load();
  }

  // The time bounds of the state in epoch seconds (0: none); a relative
  // bound is taken from now.
  Bounds() {
    const now = Math.floor(Date.now() / 1000);
    return {
      from: BoundOf(this.state, 'from', now, this.zone, this.utcOffset),
      to: BoundOf(this.state, 'to', now, this.zone, this.utcOffset),
    };
  }

  // The view's filters in the page's own words, for every module's call.
  ViewFilters() {
    const {from, to} = this.Bounds();
    const {levels, keyword, hideLogs} = this.state;
    return {levels, keyword, hideLogs, from, to};
  }

  // The search's filters for the current state, without order or paging.
  Filters() {
    const {state} = this;
    const params = {logtype: this.Logtype()};
    if (ClassOf(this.log).levels && state.levels.length < LEVELS.length) {
      params.level = state.levels.join(',');
    }
    if (state.keyword) params.q = state.keyword;
    const exclude = {};
    const user = UserKey(this.log);
    if (user && state.hideUsers.length) exclude[user] = state.hideUsers;
    if (state.hideLogs.length) exclude.orginalLogType = state.hideLogs;
    if (Object.keys(exclude).length) params.exclude = exclude;
    const {from, to} = this.Bounds();
    if (from) params.from = from;
    if (to) params.to = to;
    return params;
  }

  // No rows, counts or timeline: what a failed or cancelled read shows, so
  // that no rows contradict the filters set.
  Empty() {
    this.records = [];
    this.answer = null;
    this.histogram = null;
    this.marks = null;
    this.elsewhere = 0;
    this.unseen = null;
    this.timeline.Show(null);
  }

  // Asks for the page and the timeline the state describes; a new load
  // cancels the one in flight, so answers never arrive out of order. Until
  // the answer the old table stays, dimmed, with the wait said at once;
  // `quiet` (live mode) keeps it as it is, and `markNew` marks the rows
  // written since the table was loaded. A term search shows its page first;
  // the region stays busy until its count and timeline follow.
  async Load({quiet = false, markNew = false} = {}) {
    if (this.loading) this.loading.abort();
    if (this.counting) this.counting.abort();
    this.loading = null;
    this.counting = null;
    const region = byId('log-table-region');
    region.setAttribute('aria-busy', 'true');
    const rest = await this.Fetch(quiet, markNew);
    if (this.loading) return;
    if (!quiet || this.waiting.box.hidden) this.waiting.Stop();
    if (rest) {
      await rest.done;
      if (this.counting !== rest.controller) return;
      this.counting = null;
    }
    // The address of the view the table now shows, for whoever waits on it.
    region.dataset.view = FormatState(this.state);
    region.setAttribute('aria-busy', 'false');
  }

  // Returns, for a term search, {controller, done}: its count and timeline,
  // still on their way when the page is shown.
  async Fetch(quiet, markNew) {
    const log = this.log;
    if (!quiet) {
      this.failure = null;
      this.ShowError(null);
    }
    this.noLevel = ClassOf(log).levels && this.state.levels.length === 0;
    const {from, to} = this.Bounds();
    const reversed = from && to && from > to;
    if (this.noLevel || reversed) {
      // Nothing can match: the page answers itself.
      this.Empty();
      this.ShowAnswer();
      this.filters.ShowRangeError(reversed ? 'filters.datesReversed' : '');
      return;
    }
    const controller = new AbortController();
    this.loading = controller;
    if (!quiet) {
      this.waiting.Start('wait.loading', () => {
        controller.abort();
        this.loading = null;
        this.Empty();
        this.Notice(T('status.cancelled'));
        this.ShowAnswer();
        byId('log-table-region').setAttribute('aria-busy', 'false');
      });
    }
    const {state} = this;
    const filters = this.Filters();
    const query = {
      ...filters, sort: state.sort, order: state.order,
      offset: (state.page - 1) * state.size, limit: state.size,
    };
    try {
      // The marks are read first: every row past them is on this page or
      // written after it was read.
      const marks = log.cls === 'plain' ? null : await ReadMarks(filters.logtype, controller.signal);
      // A term search's page comes without its counts (found at once, counted
      // after); the page is shown without waiting for the count or timeline.
      const split = Boolean(filters.q);
      const histogramAsked =
          api.Search('histogram', {...filters, buckets: BUCKETS}, controller.signal);
      const countAsked = split ? api.Search('count', filters, controller.signal) : null;
      if (split) {
        // Awaited after the page, or dropped with it when it fails.
        histogramAsked.catch(() => {});
        countAsked.catch(() => {});
      }
      const [answer, histogram] = await Promise.all([
        api.Search('query', split ? {...query, counts: false} : query, controller.signal),
        split ? null : histogramAsked,
      ]);
      if (controller !== this.loading) return;
      const shrank = (total) => {
        const pages = PageCount(total, state.size);
        if (!(total > 0 && state.page > pages)) return false;
        // The log shrank under the view (a clear, a narrower filter in
        // another tab): show its last page instead of an empty one.
        history.replaceState(null, '', FormatState({...state, page: pages}));
        this.state = {...state, page: pages};
        this.ShowState();
        return true;
      };
      if (!split && shrank(answer.total)) {
        this.loading = null;
        return await this.Fetch(quiet, markNew);
      }
      const records = Array.isArray(answer.items) ? answer.items : [];
      const storeOf = (record) => record.orginalLogType || state.log;
      const covering = marks && MarksCovering(marks, records, storeOf);
      let fresh = [];
      let elsewhere = 0;
      const old = this.marks;
      if (markNew && marks && old) {
        fresh = RowsPast(records, storeOf, old, marks);
        // The new rows that sort off this page are counted, not lost.
        const past = await api.Search('query', {
          ...filters, ...NewRowsWindow(old, marks, covering), limit: 1,
        }, controller.signal);
        if (controller !== this.loading) return;
        elsewhere = Math.max(0, past.total - fresh.length);
      } else if (markNew && !marks) {
        const before = new Set(this.records.map((record) => this.KeyOf(record)));
        fresh = records.filter((record) => !before.has(this.KeyOf(record)));
      }
      this.loading = null;
      if (!markNew) this.elsewhere = 0;
      if (this.elsewhere === 0 && elsewhere > 0) this.unseen = old;
      this.elsewhere += elsewhere;
      if (this.elsewhere === 0) this.unseen = null;
      this.answer = answer;
      this.records = records;
      this.marks = covering;
      this.fresh = new Set(fresh.map((record) => this.KeyOf(record)));
      this.histogram = histogram;
      this.timeline.Show(histogram);
      this.ShowAnswer();
      this.OpenNamedEntry();
      if (!split) return;
      return this.FollowCount(controller, answer, countAsked, histogramAsked, shrank, quiet);
    } catch (error) {
      if (error.name === 'AbortError' || controller !== this.loading) return;
      this.loading = null;
      // A failed live refresh leaves the table as it was (its filters did
      // not change); any other failed read leaves no rows that would
      // contradict the filters.
      if (quiet) return;
      this.Empty();
      this.ShowAnswer();
      this.Fail(error);
    }
  }

  // Shows a term search's count and timeline once they follow its page
  // (`answer`, shown): returns {controller, done}. A count smaller than the
  // page assumed (`shrank` moves the view to the last page) loads again.
  FollowCount(controller, answer, countAsked, histogramAsked, shrank, quiet) {
    this.counting = controller;
    const done = Promise.all([countAsked, histogramAsked]).then(([counted, timeline]) => {
      if (this.counting !== controller) return;  // a newer search took over
      if (shrank(counted.total)) {
        this.counting = null;
        this.Load({quiet});
        return;
      }
      Object.assign(answer, counted);
      this.histogram = timeline;
      this.timeline.Show(timeline);
      this.ShowAnswer();
    }, (error) => {
      if (error.name === 'AbortError' || this.counting !== controller) return;
      if (!quiet) this.Fail(error);
    });
    return {controller, done};
  }

  // The newest entries first, the new ones live mode counted off the page
  // marked among them.
  ShowNewest() {
    const since = this.unseen;
    const next = {...this.state, sort: 'time', order: 'desc', page: 1, entry: ''};
    this.StartAction();
    history.pushState(null, '', FormatState(next));
    this.state = next;
    this.elsewhere = 0;
    this.unseen = null;
    this.ShowState();
    if (since) this.marks = since;
    this.Load({markNew: Boolean(since)});
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
    const log = this.log;
    const store = record.orginalLogType || this.state.log;
    ShowEntry(log, record, this.EntryAddress(record), () => {
      this.state = {...this.state, entry: ''};
      history.replaceState(null, '', FormatState(this.state));
      if (!byId('context-dialog').open) {
        this.table.querySelector(`tr[data-key="${CSS.escape(key)}"]`)?.focus();
      }
    }, {
      filters: ValueFilters(log, this.state, record),
      onFilter: (partial) => this.Apply(partial),
      onContext: log.cls === 'plain' || record.id === undefined ? null : () => {
        byId('entry-dialog').close();
        this.context.Open(log, store, record);
      },
    });
  }

  // Opens the entry the address names, once it is on the page shown.
  OpenNamedEntry() {
    if (!this.state.entry || byId('entry-dialog').open) return;
    const record = this.records.find((r) => this.KeyOf(r) === this.state.entry);
    if (record) this.OpenEntry(record);
  }

  // Downloads the entries the filters select (every page) as HTML or CSV
  // through the browser's own download manager.
  Export(format) {
    this.StartAction();
    this.Notice(T('export.started'));
    Export(this.log, this.ViewFilters(), format, (error) => {
      this.notice = '';
      this.Fail(error);
    });
  }
}
