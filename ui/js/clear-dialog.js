// The confirmation before a clear. It names every log the clear will empty
// with the number of entries it holds in all, says that filters do not
// narrow a clear, and resolves to true only when the user confirms; Escape
// and Cancel keep the logs.

import {MembersOf} from './catalogue.js';
import {byId} from './dom.js';
import {FormatNumber, T} from './i18n.js';

// `totals` maps each member log to its number of entries (absent: unknown).
export function ConfirmClear(log, totals, filtered) {
  const dialog = byId('clear-dialog');
  const list = byId('clear-list');
  list.replaceChildren(...MembersOf(log).map((name) => {
    const item = document.createElement('li');
    const count = totals.get(name);
    item.textContent = Number.isInteger(count) ?
        T('clear.item', {log: T('log.' + name), count: FormatNumber(count)}) :
        T('log.' + name);
    return item;
  }));
  byId('clear-filters').hidden = !filtered;
  dialog.returnValue = '';
  return new Promise((resolve) => {
    dialog.addEventListener('close', () => resolve(dialog.returnValue === 'confirm'), {once: true});
    dialog.showModal();
    byId('clear-cancel').focus();
  });
}
