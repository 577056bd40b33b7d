// Paging: first, previous, next and last page, the page size and the total.

import {byId} from './dom.js';
import {FormatNumber, T} from './i18n.js';
import {PAGE_SIZES} from './view-state.js';

export function PageCount(total, size) {
  return Math.max(1, Math.ceil(Math.max(total, 0) / size));
}

export class Pager {
  // `onChange(partial)` receives {page} or {size, page}.
  constructor(onChange) {
    this.state = null;
    this.pages = 1;
    this.size = byId('page-size');
    for (const size of PAGE_SIZES) this.size.append(new Option(String(size), String(size)));
    this.size.addEventListener('change', () => onChange({size: Number(this.size.value), page: 1}));
    const go = (page) => () => onChange({page});
    byId('page-first').addEventListener('click', () => go(1)());
    byId('page-prev').addEventListener('click', () => go(this.state.page - 1)());
    byId('page-next').addEventListener('click', () => go(this.state.page + 1)());
    byId('page-last').addEventListener('click', () => go(this.pages)());
  }

  // `total` is the answer's total, or null while none is known; `counting`:
  // it is on its way, and `full`: the page is full, so a next one may follow.
  Show(state, total, counting = false, full = false) {
    this.state = state;
    this.size.value = String(state.size);
    const known = Number.isInteger(total) && total >= 0;
    this.pages = known ? PageCount(total, state.size) : state.page;
    const pages = !known && counting ? '…' : FormatNumber(this.pages);
    byId('page-info').textContent = T('pager.page', {page: FormatNumber(state.page), pages});
    byId('total').textContent =
        known || counting ? T('pager.total', {total: known ? FormatNumber(total) : '…'}) : '';
    const focused = document.activeElement;
    byId('page-first').disabled = byId('page-prev').disabled = state.page <= 1;
    byId('page-last').disabled = !known || state.page >= this.pages;
    byId('page-next').disabled = known ? state.page >= this.pages : !(counting && full);
    // A button that pressing disabled (Next on the last page) would drop the
    // keyboard focus; it moves to a pager button still usable.
    if (focused && focused.disabled && focused.closest('.pager-buttons')) {
      focused.closest('.pager-buttons').querySelector('button:not(:disabled)')?.focus();
    }
  }
}
