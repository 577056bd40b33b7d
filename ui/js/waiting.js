// What the page waits for, said at once: the table stays as it was but
// dimmed under a progress bar, a line names the action with a Cancel button,
// and after a second it adds that another process may be holding the log
// (a writer's lock makes a read or a clear wait for it).

import {byId} from './dom.js';
import {T} from './i18n.js';

const LONG_MS = 1000;

export class Waiting {
  constructor() {
    this.box = byId('waiting');
    this.text = byId('waiting-text');
    this.timer = 0;
    this.onCancel = null;
    byId('waiting-cancel').addEventListener('click', () => {
      const cancel = this.onCancel;
      this.Stop();
      if (cancel) cancel();
    });
  }

  // Shows the wait for `what` (a text key); `onCancel` runs when the user
  // cancels it. Replaces any wait shown.
  Start(what, onCancel) {
    clearTimeout(this.timer);
    this.onCancel = onCancel;
    this.what = what;
    this.text.textContent = T(what);
    this.box.hidden = false;
    byId('log-table-region').classList.add('dimmed');
    this.timer = setTimeout(() => {
      this.text.textContent = T(what) + ' ' + T('wait.held');
    }, LONG_MS);
  }

  Stop() {
    clearTimeout(this.timer);
    this.onCancel = null;
    this.box.hidden = true;
    byId('log-table-region').classList.remove('dimmed');
  }
}
