// The confirmation before a clear. It opens at once, names every log the
// clear will empty and fills in the number of entries each holds as the counts
// arrive (a log held by another process says it is waiting), says that filters
// do not narrow a clear, and resolves to true only when the user confirms;
// Escape and Cancel keep the logs.

import {MembersOf} from './catalogue.js';
import {byId} from './dom.js';
import {FormatNumber, T} from './i18n.js';

// Returns {confirmed: Promise<boolean>, Count(name, count), Waiting()}.
export function ConfirmClear(log, filtered) {
  const dialog = byId('clear-dialog');
  const items = new Map(MembersOf(log).map((name) => {
    const item = document.createElement('li');
    item.textContent = T('clear.counting', {log: T('log.' + name)});
    return [name, item];
  }));
  byId('clear-list').replaceChildren(...items.values());
  byId('clear-filters').hidden = !filtered;
  dialog.returnValue = '';
  const confirmed = new Promise((resolve) => {
    dialog.addEventListener('close', () => resolve(dialog.returnValue === 'confirm'), {once: true});
  });
  dialog.showModal();
  byId('clear-cancel').focus();
  return {
    confirmed,
    // `count` is the log's number of entries, or null when it could not be read.
    Count(name, count) {
      const item = items.get(name);
      item.textContent = Number.isInteger(count) ?
          T('clear.item', {log: T('log.' + name), count: FormatNumber(count)}) :
          T('clear.uncountedItem', {log: T('log.' + name)});
    },
    // Says beside the logs not yet counted that they wait for another process.
    Waiting() {
      for (const [name, item] of items) {
        if (item.textContent === T('clear.counting', {log: T('log.' + name)})) {
          item.textContent = T('clear.countingHeld', {log: T('log.' + name)});
        }
      }
    },
  };
}
