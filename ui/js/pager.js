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

  // `total` is the answer's total, or null while none is known.
  Show(state, total) {
    this.state = state;
    this.size.value = String(state.size);
    const known = Number.isInteger(total) && total >= 0;
    this.pages = known ? PageCount(total, state.size) : state.page;
    byId('page-info').textContent =
        T('pager.page', {page: FormatNumber(state.page), pages: FormatNumber(this.pages)});
    byId('total').textContent = known ? T('pager.total', {total: FormatNumber(total)}) : '';
    const focused = document.activeElement;
    byId('page-first').disabled = byId('page-prev').disabled = state.page <= 1;
    byId('page-next').disabled = byId('page-last').disabled = !known || state.page >= this.pages;
    // A button that pressing disabled (Next on the last page) would drop the
    // keyboard focus; it moves to a pager button still usable.
    if (focused && focused.disabled && focused.closest('.pager-buttons')) {
      focused.closest('.pager-buttons').querySelector('button:not(:disabled)')?.focus();
    }
  }
}
