// The table of log entries in the column layout of the log's class. Cells
// are filled with text nodes only: log text is never parsed as markup. The
// search terms are marked where they occur; a row opens its entry in detail
// on a click or Enter.

import {ClassOf, LEVELS} from './catalogue.js';
import {CurrentLanguage, T} from './i18n.js';
import {Icon} from './icons.js';
import {FormatRecordTime} from './time-text.js';

export function LevelOfRecord(record) {
  return LEVELS.find((level) => level.record === record.level) || LEVELS[0];
}

// The log's name in the page's language; the server's own text for a log the
// page does not know.
export function LogName(record) {
  const key = 'log.' + (record.orginalLogType || '');
  const name = T(key);
  return name === key ? record.logtype || '' : name;
}

// Appends `text` to `parent` with each occurrence of a term (ignoring case)
// inside a <mark>.
export function AppendMarked(parent, text, terms) {
  const lower = text.toLocaleLowerCase();
  const needles = terms.map((term) => term.toLocaleLowerCase()).filter(Boolean);
  let at = 0;
  while (needles.length > 0 && at < text.length) {
    let best = -1;
    let length = 0;
    for (const needle of needles) {
      const found = lower.indexOf(needle, at);
      if (found >= 0 && (best < 0 || found < best)) {
        best = found;
        length = needle.length;
      }
    }
    // Case mapping may change lengths (ß, İ): marks are placed only where the
    // lower-case text lines up with the original.
    if (best < 0 || lower.length !== text.length) break;
    if (best > at) parent.append(text.slice(at, best));
    const mark = document.createElement('mark');
    mark.textContent = text.slice(best, best + length);
    parent.append(mark);
    at = best + length;
  }
  if (at < text.length) parent.append(text.slice(at));
}

function LevelCell(cell, record) {
  const level = LevelOfRecord(record);
  cell.classList.add('level', 'level-' + level.name);
  const word = document.createElement('span');
  word.textContent = T('level.' + level.name);
  cell.append(Icon(level.name), word);
}

function FillCell(cell, column, record, terms) {
  const value = String(record[column.key] ?? '');
  switch (column.kind) {
    case 'level':
      LevelCell(cell, record);
      return;
    case 'log':
      cell.textContent = LogName(record);
      return;
    case 'isdir':
      cell.textContent = T(value === 'true' ? 'cell.folder' : 'cell.file');
      return;
    case 'size':
      cell.textContent = record.isdir === 'true' ? '—' : value;
      cell.classList.add('number');
      return;
    case 'time':
      cell.textContent = FormatRecordTime(value, CurrentLanguage());
      cell.classList.add('time');
      return;
    case 'message':
      cell.classList.add('msg');
      break;
    default:
      break;
  }
  if (column.search) AppendMarked(cell, value, terms);
  else cell.textContent = value;
}

// The heading row. A sortable column's heading is a button; the column the
// view is sorted by is marked with aria-sort and an arrow, and pressing it
// again turns the order around.
function Headings(log, {sort, order, timeZone, onSort}) {
  const row = document.createElement('tr');
  for (const column of ClassOf(log).columns) {
    const heading = document.createElement('th');
    heading.scope = 'col';
    heading.className = 'col-' + column.key;
    const label = T(column.label);
    let holder = heading;
    const sorted = Boolean(onSort) && column.sort && column.sort === sort;
    if (column.sort && onSort) {
      const button = document.createElement('button');
      button.type = 'button';
      button.className = 'sort';
      button.dataset.sort = column.sort;
      button.title = T('table.sortBy', {column: label});
      button.addEventListener('click', () => {
        onSort(column.sort, sorted && order === 'desc' ? 'asc' : 'desc');
      });
      heading.append(button);
      holder = button;
    }
    const text = document.createElement('span');
    text.textContent = label;
    holder.append(text);
    if (column.kind === 'time' && timeZone) {
      const zone = document.createElement('span');
      zone.className = 'zone';
      zone.textContent = timeZone;
      holder.append(zone);
    }
    if (sorted) {
      const ascending = order === 'asc';
      heading.setAttribute('aria-sort', ascending ? 'ascending' : 'descending');
      holder.title = T(ascending ? 'table.sortedUp' : 'table.sortedDown', {column: label});
      holder.append(Icon(ascending ? 'sortUp' : 'sortDown'));
    }
    row.append(heading);
  }
  return row;
}

// Replaces the table's content. `timeZone` is the short zone name shown in
// the time column's heading; `fresh` the keys of rows to mark as new;
// `onOpen(record)` opens a row's entry.
export function RenderTable(table, view) {
  const {log, records, terms = [], fresh = new Set(), keyOf, onOpen} = view;
  const columns = ClassOf(log).columns;
  table.className = 'log-table layout-' + log.cls;
  table.caption.textContent = T('table.caption', {log: T('log.' + log.name)});
  table.tHead.replaceChildren(Headings(log, view));
  const body = document.createDocumentFragment();
  for (const record of records) {
    const row = document.createElement('tr');
    if (record.level) row.classList.add('row-' + LevelOfRecord(record).name);
    row.tabIndex = 0;
    row.title = T('table.open');
    const key = keyOf(record);
    row.dataset.key = key;
    if (fresh.has(key)) row.classList.add('row-new');
    columns.forEach((column, index) => {
      const cell = document.createElement('td');
      // The heading text, shown before the value when a narrow window lays
      // each row out as a card.
      cell.dataset.label = T(column.label);
      FillCell(cell, column, record, terms);
      if (index === 0 && fresh.has(key)) {
        const badge = document.createElement('span');
        badge.className = 'new-badge';
        badge.textContent = T('table.new');
        cell.append(badge);
      }
      row.append(cell);
    });
    row.addEventListener('click', (event) => {
      if (!window.getSelection()?.toString()) onOpen(record, event);
    });
    row.addEventListener('keydown', (event) => {
      if (event.key !== 'Enter' || event.target !== row) return;
      // The dialog takes the focus at once: the key must not also press its button.
      event.preventDefault();
      onOpen(record, event);
    });
    body.append(row);
  }
  table.tBodies[0].replaceChildren(body);
}
