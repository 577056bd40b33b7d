// Live mode: follows each store by position, never by counts. Before every
// load the view reads the newest row id of each store (the search module's
// `follow`), so the marks it keeps are of a moment no later than the rows it
// shows (raised to the newest row the page shows). A poll every 2 s reads
// them again; when any moved (a store grew, or was replaced and starts again
// lower), the page is loaded again and the rows past the old marks are marked
// as new. A row written at any moment is past the marks of exactly one load,
// so it is marked once and never skipped.
// Plain-text logs have no row ids: each poll loads their window again and
// marks the lines the table did not show.

import * as api from './api.js';
import {byId} from './dom.js';

const LIVE_MS = 2000;
const LIVE_KEY = 'quor.live';

// The newest row id of each store of `logtype`, or null for a log without
// row ids.
export async function ReadMarks(logtype, signal) {
  const answer = await api.Search('follow', {logtype}, signal);
  const marks = new Map(Object.entries((answer && answer.marks) || {}));
  return marks.size ? marks : null;
}

function SameMarks(a, b) {
  if (!a || !b || a.size !== b.size) return false;
  return [...a].every(([store, id]) => b.get(store) === id);
}

// The rows of `records` written after the load that read `old`; `now` are the
// marks read for the load that brought `records`. A store replaced since (its
// newest id went down) counts from its start.
export function RowsPast(records, storeOf, old, now) {
  return records.filter((record) => {
    const store = storeOf(record);
    let mark = old.get(store) ?? 0;
    if ((now.get(store) ?? 0) < mark) mark = 0;
    return Number(record.id) > mark;
  });
}

// The marks of a load: `marks` (read before the page) raised to the newest
// row shown of each store. A row written between the two reads may be on
// the page already; SQLite's writers commit their ids in increasing order,
// so the page's read saw every row below it, and none is left behind.
export function MarksCovering(marks, records, storeOf) {
  const covering = new Map(marks);
  for (const record of records) {
    const store = storeOf(record);
    const id = Number(record.id);
    if (covering.has(store) && id > covering.get(store)) covering.set(store, id);
  }
  return covering;
}

export class LiveMode {
  // `view` gives `marks` (of the rows shown), `Logtype()`, `Busy()` and
  // `Load({quiet, markNew})`; `onAuthLost(error)` ends the session.
  constructor(view, onAuthLost) {
    this.view = view;
    this.onAuthLost = onAuthLost;
    this.timer = 0;
    this.box = byId('live');
    this.box.checked = sessionStorage.getItem(LIVE_KEY) === '1';
    this.box.addEventListener('change', () => {
      sessionStorage.setItem(LIVE_KEY, this.box.checked ? '1' : '0');
      this.Schedule();
    });
  }

  Stop() {
    clearTimeout(this.timer);
  }

  Schedule() {
    clearTimeout(this.timer);
    byId('live-note').hidden = !this.box.checked;
    if (!this.box.checked || !this.view.running) return;
    this.timer = setTimeout(async () => {
      if (!this.view.Busy() && !document.hidden) {
        try {
          await this.Poll();
        } catch (error) {
          // A failed poll changes nothing; the next one tries again.
          if (error instanceof api.ApiError && error.needsLogin) this.onAuthLost(error);
        }
      }
      this.Schedule();
    }, LIVE_MS);
  }

  async Poll() {
    const {view} = this;
    if (view.marks) {
      const now = await ReadMarks(view.Logtype());
      if (SameMarks(now, view.marks) || view.Busy()) return;
    }
    await view.Load({quiet: true, markNew: true});
  }
}
