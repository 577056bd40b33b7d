// Clear: confirmation with each log's count, the clear itself, and a report
// per log of what remains. The module's clear answers success even when a
// busy log kept its entries, so every log is counted again afterwards.

import * as api from './api.js';
import {ClassOf, LEVELS, MembersOf} from './catalogue.js';
import {ConfirmClear} from './clear-dialog.js';
import {byId} from './dom.js';
import {FormatNumber, T} from './i18n.js';

const HELD_MS = 1000;

// The number of entries of each member log, whatever the filters, each handed
// to `onCount(name, count)` as it arrives (null: could not be counted).
async function CountLogs(log, signal, onCount = () => {}) {
  const totals = new Map();
  await Promise.all(MembersOf(log).map(async (name) => {
    let count = null;
    try {
      count = (await api.Search('query', {logtype: name, limit: 1}, signal)).total;
    } catch (error) {
      if (error.name === 'AbortError' || (error instanceof api.ApiError && error.needsLogin)) {
        throw error;
      }
    }
    totals.set(name, count);
    onCount(name, count);
  }));
  return totals;
}

// Shows what a clear left: every log emptied, or per log what it still holds.
function ShowReport(log, totals) {
  const box = byId('clear-report');
  const lines = MembersOf(log).map((name) => {
    const count = totals.get(name);
    const words = {log: T('log.' + name), count: FormatNumber(count ?? 0)};
    if (!Number.isInteger(count)) return ['uncounted', T('clear.reportUncounted', words)];
    if (count > 0) return ['kept', T('clear.reportKept', words)];
    return ['done', T('clear.reportDone', words)];
  });
  if (lines.every(([kind]) => kind === 'done')) {
    box.hidden = true;
    return T('clear.done', {logs: MembersOf(log).map((name) => T('log.' + name)).join(', ')});
  }
  const heading = document.createElement('p');
  heading.textContent = T('clear.reportIntro');
  const list = document.createElement('ul');
  list.append(...lines.map(([kind, text]) => {
    const item = document.createElement('li');
    item.className = 'report-' + kind;
    item.textContent = text;
    return item;
  }));
  box.replaceChildren(heading, list);
  box.hidden = false;
  return '';
}

// Runs a clear of the view's log. `view` gives `log`, `state`, `waiting`,
// `Fail(error)`, `Notice(text)`, `ToFirstPage()` and `Load()`.
export async function ClearLog(view) {
  const log = view.log;
  if (!ClassOf(log).clearable) return;
  const {state} = view;
  const filtered = Boolean(state.keyword || state.range || state.from || state.to ||
      (ClassOf(log).levels && state.levels.length < LEVELS.length));
  const counting = new AbortController();
  const confirm = ConfirmClear(log, filtered);
  const held = setTimeout(() => confirm.Waiting(), HELD_MS);
  CountLogs(log, counting.signal, (name, count) => confirm.Count(name, count))
      .catch((error) => {
        if (error instanceof api.ApiError && error.needsLogin) view.Fail(error);
      })
      .finally(() => clearTimeout(held));
  const confirmed = await confirm.confirmed;
  counting.abort();
  clearTimeout(held);
  if (!confirmed) {
    byId('clear').focus();
    return;
  }
  // The clear and the count after it wait for a log another process holds;
  // the wait is said at once and can be cancelled (the appliance may still
  // finish the clear: the count after it tells).
  let controller = new AbortController();
  view.waiting.Start('wait.clearing', () => controller.abort());
  let cancelled = false;
  try {
    await api.Call('clear', {category: 'native', logtype: MembersOf(log).join(',')},
                   controller.signal);
  } catch (error) {
    if (error.name === 'AbortError') {
      cancelled = true;
    } else if (!(error instanceof api.ApiError) || error.needsLogin) {
      view.waiting.Stop();
      view.Fail(error);
      return;
    }
    // An error answer may come after part of the logs were emptied: the
    // count says which.
  }
  controller = new AbortController();
  view.waiting.Start('wait.counting', () => controller.abort());
  let totals;
  try {
    totals = await CountLogs(log, controller.signal);
  } catch (error) {
    view.waiting.Stop();
    if (error.name !== 'AbortError') view.Fail(error);
    else view.Notice(T('clear.cancelled'));
    return;
  }
  view.waiting.Stop();
  const notice = ShowReport(log, totals);
  view.Notice(cancelled && notice === '' ? T('clear.cancelledDone') : notice);
  view.ToFirstPage();
  await view.Load();
  byId('clear').focus();
}
