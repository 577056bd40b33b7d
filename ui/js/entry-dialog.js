// One log entry in detail: every field under its heading, a button that
// copies the entry as text, and a link that reopens it (the view narrowed to
// the entry's second, with the entry named in the address).

import {ClassOf} from './catalogue.js';
import {byId} from './dom.js';
import {CurrentLanguage, T} from './i18n.js';
import {FormatRecordTime} from './time-text.js';
import {LevelOfRecord, LogName} from './log-table.js';

// The fields of a record in the order its layout shows them, then any other
// key it carries (the row id), each as [label, text].
export function EntryFields(log, record) {
  const fields = [];
  const shown = new Set();
  for (const column of ClassOf(log).columns) {
    shown.add(column.key);
    let text = String(record[column.key] ?? '');
    if (column.kind === 'level') text = T('level.' + LevelOfRecord(record).name);
    if (column.kind === 'log') text = LogName(record);
    if (column.kind === 'time') text = FormatRecordTime(text, CurrentLanguage());
    if (column.kind === 'isdir') text = T(text === 'true' ? 'cell.folder' : 'cell.file');
    fields.push([T(column.label), text]);
  }
  if (record.id !== undefined) fields.push([T('entry.id'), String(record.id)]);
  return fields;
}

export function ShowEntry(log, record, link, onClose) {
  const dialog = byId('entry-dialog');
  const list = byId('entry-fields');
  const fields = EntryFields(log, record);
  list.replaceChildren(...fields.flatMap(([label, text]) => {
    const term = document.createElement('dt');
    term.textContent = label;
    const value = document.createElement('dd');
    value.textContent = text;
    return [term, value];
  }));
  byId('entry-link').href = link;
  const status = byId('entry-copied');
  status.textContent = '';
  byId('entry-copy').onclick = async () => {
    const text = fields.map(([label, value]) => `${label}: ${value}`).join('\n');
    try {
      await navigator.clipboard.writeText(text);
      status.textContent = T('entry.copied');
    } catch {
      status.textContent = T('entry.copyFailed');
    }
  };
  dialog.addEventListener('close', () => onClose(), {once: true});
  dialog.showModal();
  byId('entry-close').focus();
}
