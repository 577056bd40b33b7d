// The confirmation before a clear. It names every log the clear will empty
// and resolves to true only when the user confirms; Escape and Cancel keep
// the logs.

import {MembersOf} from './catalogue.js';
import {T} from './i18n.js';

export function ConfirmClear(log) {
  const dialog = document.getElementById('clear-dialog');
  const list = document.getElementById('clear-list');
  list.replaceChildren(...MembersOf(log).map((name) => {
    const item = document.createElement('li');
    item.textContent = T('log.' + name);
    return item;
  }));
  dialog.returnValue = '';
  return new Promise((resolve) => {
    dialog.addEventListener('close', () => resolve(dialog.returnValue === 'confirm'), {once: true});
    dialog.showModal();
    document.getElementById('clear-cancel').focus();
  });
}
