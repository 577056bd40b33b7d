// The table of log entries in the column layout of the log's class. Cells
// are filled with textContent only: log text is never parsed as markup.

import {ClassOf, LEVELS} from './catalogue.js';
import {T} from './i18n.js';
import {Icon} from './icons.js';

function LevelOfRecord(record) {
  return LEVELS.find((level) => level.record === record.level) || LEVELS[0];
}

function LevelCell(cell, record) {
  const level = LevelOfRecord(record);
  cell.classList.add('level', 'level-' + level.name);
  const word = document.createElement('span');
  word.textContent = T('level.' + level.name);
  cell.append(Icon(level.name), word);
}

function FillCell(cell, column, record) {
  const value = record[column.key] ?? '';
  switch (column.kind) {
    case 'level':
      LevelCell(cell, record);
      return;
    case 'isdir':
      cell.textContent = T(value === 'true' ? 'cell.folder' : 'cell.file');
      return;
    case 'size':
      cell.textContent = record.isdir === 'true' ? '—' : value;
      cell.classList.add('number');
      return;
    case 'time':
      cell.textContent = value;
      cell.classList.add('time');
      return;
    case 'message':
      cell.textContent = value;
      cell.classList.add('msg');
      return;
    default:
      cell.textContent = value;
  }
}

// The heading row. A sortable column's heading is a button; the column the
// view is sorted by is marked for assistive technology with aria-sort (the
// list method always sorts in decreasing order).
function Headings(log, sort, timeZone, onSort) {
  const row = document.createElement('tr');
  for (const column of ClassOf(log).columns) {
    const heading = document.createElement('th');
    heading.scope = 'col';
    heading.className = 'col-' + column.key;
    const label = T(column.label);
    let holder = heading;
    if (column.sort) {
      const button = document.createElement('button');
      button.type = 'button';
      button.className = 'sort';
      button.dataset.sort = column.sort;
      button.title = T('table.sortBy', {column: label});
      button.addEventListener('click', () => onSort(column.sort));
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
    if (column.sort && column.sort === sort) {
      heading.setAttribute('aria-sort', 'descending');
      holder.title = T('table.sortedBy', {column: label});
      holder.append(Icon('sortDown'));
    }
    row.append(heading);
  }
  return row;
}

// Replaces the table's content. `timeZone` is the short zone name shown in
// the time column's heading.
export function RenderTable(table, {log, records, sort, timeZone, onSort}) {
  const columns = ClassOf(log).columns;
  table.className = 'log-table layout-' + log.cls;
  table.caption.textContent = T('table.caption', {log: T('log.' + log.name)});
  table.tHead.replaceChildren(Headings(log, sort, timeZone, onSort));
  const body = document.createDocumentFragment();
  for (const record of records) {
    const row = document.createElement('tr');
    if (record.level) row.className = 'row-' + LevelOfRecord(record).name;
    for (const column of columns) {
      const cell = document.createElement('td');
      // The heading text, shown before the value when a narrow window lays
      // each row out as a card.
      cell.dataset.label = T(column.label);
      FillCell(cell, column, record);
      row.append(cell);
    }
    body.append(row);
  }
  table.tBodies[0].replaceChildren(body);
}
