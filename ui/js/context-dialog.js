// Show in context: the entries just before and after one entry in its own
// store, whatever the filters, oldest first, the entry marked; more on
// request, up to what the search module's `context` gives at once.

import * as api from './api.js';
import {byId} from './dom.js';
import {T} from './i18n.js';
import {RenderTable} from './log-table.js';

const FIRST_COUNT = 10;
const MAX_COUNT = 100;

export class ContextDialog {
  // `onFailure(error)` hears a failed read.
  constructor(onFailure) {
    this.onFailure = onFailure;
    this.dialog = byId('context-dialog');
    byId('context-more').addEventListener('click', () => this.Show(this.count * 2));
  }

  // `log` is the catalogue entry whose layout the rows use, `store` the
  // entry's own log type.
  async Open(log, store, record) {
    this.log = log;
    this.store = store;
    this.record = record;
    byId('context-intro').textContent = T('context.intro', {log: T('log.' + store)});
    if (!(await this.Show(FIRST_COUNT))) return;
    this.dialog.showModal();
    this.table.querySelector('tr[aria-current="true"]')?.focus();
  }

  async Show(count) {
    this.count = Math.min(count, MAX_COUNT);
    let answer;
    try {
      answer = await api.Search('context', {logtype: this.store, id: Number(this.record.id),
                                            count: this.count});
    } catch (error) {
      this.onFailure(error);
      return false;
    }
    this.table = byId('context-table');
    const keyOf = (record) => String(record.id);
    RenderTable(this.table, {log: this.log, records: answer.items, keyOf, onOpen: () => {}});
    const current = this.table.tBodies[0].rows[answer.index];
    current.classList.add('context-entry');
    current.setAttribute('aria-current', 'true');
    current.title = T('context.entry');
    for (const row of this.table.tBodies[0].rows) {
      if (row !== current) row.removeAttribute('title');
    }
    byId('context-before').hidden = !answer.moreBefore;
    byId('context-after').hidden = !answer.moreAfter;
    byId('context-more').disabled =
        this.count >= MAX_COUNT || !(answer.moreBefore || answer.moreAfter);
    return true;
  }
}
