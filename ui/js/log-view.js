// The log view: keeps the view's state in step with the address, asks the
// list method for the page the state describes and shows the answer, and
// runs the export and clear actions on the current filters.

import * as api from './api.js';
import {ClassOf, FindLog, LEVELS, MembersOf} from './catalogue.js';
import {ConfirmClear} from './clear-dialog.js';
import {DescribeZone, EndOfDay, StartOfDay} from './dates.js';
import {Filters} from './filters.js';
import {FormatNumber, OnLanguageChange, T} from './i18n.js';
import {Icon} from './icons.js';
import {BuildNav, UpdateNav} from './log-nav.js';
import {RenderTable} from './log-table.js';
import {ErrorText} from './messages.js';
import {PageCount, Pager} from './pager.js';
import {SaveFile} from './save-file.js';
import {FormatState, ParseState} from './view-state.js';

const AUTO_REFRESH_MS = 15000;
const AUTO_KEY = 'quor.autoRefresh';
const byId = (id) => document.getElementById(id);

export class LogView {
  // `onAuthLost(error)` is called when an answer says the session is gone.
  constructor(onAuthLost) {
    this.onAuthLost = onAuthLost;
    this.state = ParseState(location.hash);
    this.answer = null;
    this.records = [];
    this.loading = null;
    this.timer = 0;
    this.zone = '';
    this.filters = new Filters((partial, how) => this.Apply(partial, how));
    this.pager = new Pager((partial) => this.Apply(partial));
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
    // The skip link moves the focus without touching the address, which
    // holds the view's state.
    document.querySelector('.skip-link').addEventListener('click', (event) => {
      event.preventDefault();
      byId('log-table-region').focus();
    });
    const auto = byId('auto-refresh');
    auto.checked = sessionStorage.getItem(AUTO_KEY) === '1';
    auto.addEventListener('change', () => {
      sessionStorage.setItem(AUTO_KEY, auto.checked ? '1' : '0');
      this.ScheduleRefresh();
    });
    OnLanguageChange(() => {
      if (this.running) this.Redraw();
    });
  }

  // Shows the view for a signed-in session ({timeZone}).
  Start(session) {
    this.running = true;
    this.zone = session.timeZone || '';
    this.utcOffset = session.utcOffset;
    this.state = ParseState(location.hash);
    history.replaceState(null, '', FormatState(this.state));
    this.Redraw();
    this.Load();
    this.ScheduleRefresh();
  }

  Stop() {
    this.running = false;
    clearInterval(this.timer);
    if (this.loading) this.loading.abort();
  }

  // True when the view leaves out some level.
  get levelFiltered() {
    return ClassOf(this.log).levels && this.state.levels.length < LEVELS.length;
  }

  get log() {
    return FindLog(this.state.log);
  }

  // Everything that depends on the language or the state but not on a new
  // answer.
  Redraw() {
    BuildNav(byId('log-nav'));
    this.filters.Build();
    this.ShowState();
    this.ShowAnswer();
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
      timeZone: this.zone || DescribeZone('', this.utcOffset),
      onSort: (sort) => this.Apply({sort, page: 1}),
    });
    if (focused) this.table.tHead.querySelector(`button[data-sort="${focused}"]`)?.focus();
    this.filters.ShowCounts(ClassOf(log).levels ? this.answer : null);
    this.pager.Show(this.state, this.answer ? this.answer.total : null);
    // An export without a level would hold every level.
    byId('export-html').disabled = byId('export-csv').disabled = Boolean(this.noLevel);
    this.ShowStatus();
  }

  // The status line: a notice of the last action, if any, then what the
  // table shows.
  ShowStatus() {
    const parts = [this.notice || ''];
    if (this.failure) {
      // The error box says it.
    } else if (!this.answer) {
      parts.push(this.noLevel ? T('status.noLevel') : T('status.loading'));
    } else if (this.answer.total < 0) {
      parts.push(T('status.failed'));
    } else if (this.records.length === 0 && this.answer.total > 0 && this.levelFiltered) {
      // Database logs filter levels within a page: other pages may still
      // hold entries of the chosen levels.
      parts.push(T('status.emptyPage'));
    } else if (this.records.length === 0) {
      parts.push(T('status.empty'));
    } else {
      // Only the count of this page: database logs filter levels within the
      // page, so positions in the whole log cannot be told.
      parts.push(T('status.shown', {count: FormatNumber(this.records.length)}));
    }
    byId('status').textContent = parts.filter(Boolean).join(' ');
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
    }
    this.ShowState();
    this.ShowAnswer();
    this.Load();
  }

  // The list method's parameters for the current state, without paging.
  SearchParams() {
    const {state} = this;
    const params = {logtype: MembersOf(this.log).join(','), sort: state.sort};
    if (ClassOf(this.log).levels) params.level = state.levels.join(',');
    if (state.keyword) params.keyword = state.keyword;
    const from = StartOfDay(state.from, this.zone, this.utcOffset);
    const to = EndOfDay(state.to, this.zone, this.utcOffset);
    if (from) params.date_from = from;
    if (to) params.date_to = to;
    return params;
  }

  // Asks for the page the state describes. `quiet` (auto-refresh) keeps the
  // table as it is until the answer arrives.
  async Load({quiet = false} = {}) {
    if (this.loading) this.loading.abort();
    this.loading = null;
    const region = byId('log-table-region');
    region.setAttribute('aria-busy', 'true');
    await this.Fetch(quiet);
    if (this.loading) return;
    // The address of the view the table now shows, for whoever waits on it.
    region.dataset.view = FormatState(this.state);
    region.setAttribute('aria-busy', 'false');
  }

  async Fetch(quiet) {
    const log = this.log;
    this.failure = null;
    this.ShowError(null);
    this.noLevel = ClassOf(log).levels && this.state.levels.length === 0;
    const reversed = this.state.from && this.state.to && this.state.from > this.state.to;
    if (this.noLevel || reversed) {
      // Nothing can match. The server would read an empty level list as
      // every level, so the page answers itself.
      this.answer = null;
      this.records = [];
      this.ShowAnswer();
      if (reversed) this.Fail({code: -1, text: T('filters.datesReversed')});
      return;
    }
    if (!quiet) byId('status').textContent = [this.notice, T('status.loading')].join(' ').trim();
    const controller = new AbortController();
    this.loading = controller;
    const {state} = this;
    const params = {
      ...this.SearchParams(),
      offset: (state.page - 1) * state.size,
      limit: state.size,
    };
    try {
      const answer = await api.Call('list', params, controller.signal);
      if (controller !== this.loading) return;
      this.loading = null;
      const pages = PageCount(answer.total, state.size);
      if (answer.total > 0 && state.page > pages) {
        // The log shrank under the view (a clear, a narrower filter in
        // another tab): show its last page instead of an empty one.
        history.replaceState(null, '', FormatState({...state, page: pages}));
        this.state = {...state, page: pages};
        this.ShowState();
        await this.Fetch(quiet);
        return;
      }
      this.answer = answer;
      this.records = Array.isArray(answer.items) ? answer.items : [];
      this.ShowAnswer();
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

  ScheduleRefresh() {
    clearInterval(this.timer);
    if (!byId('auto-refresh').checked) return;
    this.timer = setInterval(() => {
      const busy = this.loading || byId('clear-dialog').open || document.hidden;
      if (this.running && !busy) this.Load({quiet: true});
    }, AUTO_REFRESH_MS);
  }

  // Downloads the entries the filters select (every page) as HTML or CSV.
  async Export(format) {
    this.ShowError(null);
    this.notice = T('export.busy');
    this.ShowStatus();
    try {
      const {blob, fileName} = await api.Download('export', {...this.SearchParams(), format});
      SaveFile(blob, fileName);
      this.notice = T('export.done', {file: fileName});
      this.ShowStatus();
    } catch (error) {
      this.notice = '';
      this.Fail(error);
    }
  }

  // Asks for confirmation, clears the log (every member of a group), then
  // shows the log again from its first page.
  async Clear() {
    const log = this.log;
    if (!ClassOf(log).clearable || !(await ConfirmClear(log))) {
      byId('clear').focus();
      return;
    }
    this.ShowError(null);
    try {
      await api.Call('clear', {category: 'native', logtype: MembersOf(log).join(',')});
    } catch (error) {
      this.Fail(error);
      byId('clear').focus();
      return;
    }
    const names = MembersOf(log).map((name) => T('log.' + name)).join(', ');
    this.state = {...this.state, page: 1};
    history.replaceState(null, '', FormatState(this.state));
    this.ShowState();
    this.notice = T('clear.done', {logs: names});
    await this.Load();
    byId('clear').focus();
  }
}
