// Live mode: follows each store by position, never by counts. Before every
// load the view reads the newest and oldest row id of each store (the search
// module's `follow`), so the marks it keeps are of a moment no later than the
// rows it shows (raised to the newest row the page shows). A poll every 2 s
// reads them again; when a newest id moved (a store grew, or was replaced and
// starts again lower), the page is loaded again and the rows past the old
// marks are marked as new. A row written at any moment is past the marks of
// exactly one load, so it is marked once and never skipped; one that sorts
// off the page shown is counted instead (the search module counts the rows
// between the two loads' marks), and "show newest" brings it up marked. An
// oldest id that
// moved (a clear, retention) loads the page again too, so that removed rows
// do not stay shown. Plain-text logs have no row ids: each poll loads their
// window again and marks the lines the table did not show.

import * as api from './api.js';
import {byId} from './dom.js';

const LIVE_MS = 2000;
const LIVE_KEY = 'quor.live';

// The two ends of each store of `logtype`: {newest, oldest}, Maps of store
// to row id, or null for a log without row ids.
export async function ReadMarks(logtype, signal) {
  const answer = await api.Search('follow', {logtype}, signal);
  const newest = new Map(Object.entries((answer && answer.marks) || {}));
  const oldest = new Map(Object.entries((answer && answer.oldest) || {}));
  return newest.size ? {newest, oldest} : null;
}

function SameIds(a, b) {
  return a.size === b.size && [...a].every(([store, id]) => b.get(store) === id);
}

// True when `now` says that rows were written (a newest id moved) or
// removed from the start by a clear or retention (an oldest id moved).
function Moved(shown, now) {
  return !shown || !now || !SameIds(shown.newest, now.newest) || !SameIds(shown.oldest, now.oldest);
}

// The newest id of `store` that the load which read `old` had seen; `now`
// are the marks of a later load. A store replaced since (its newest id went
// down) counts from its start.
function SeenOf(store, old, now) {
  const mark = old.newest.get(store) ?? 0;
  return (now.newest.get(store) ?? 0) < mark ? 0 : mark;
}

// The rows of `records` written after the load that read `old`; `now` are the
// marks read for the load that brought `records`.
export function RowsPast(records, storeOf, old, now) {
  return records.filter((record) => Number(record.id) > SeenOf(storeOf(record), old, now));
}

// The search module's `after` and `through` for the rows written between the
// load that read `old` and the load with marks `now` raised to `covering`:
// that load's read saw every one of them.
export function NewRowsWindow(old, now, covering) {
  const after = {};
  const through = {};
  for (const [store, id] of covering.newest) {
    after[store] = SeenOf(store, old, now);
    through[store] = id;
  }
  return {after, through};
}

// The marks of a load: `marks` (read before the page) with each newest id
// raised to the newest row shown of its store. A row written between the two
// reads may be on the page already; SQLite's writers commit their ids in
// increasing order, so the page's read saw every row below it, and none is
// left behind.
export function MarksCovering(marks, records, storeOf) {
  const newest = new Map(marks.newest);
  for (const record of records) {
    const store = storeOf(record);
    const id = Number(record.id);
    if (newest.has(store) && id > newest.get(store)) newest.set(store, id);
  }
  return {newest, oldest: marks.oldest};
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
      if (!Moved(view.marks, now) || view.Busy()) return;
    }
    await view.Load({quiet: true, markNew: true});
  }
}
