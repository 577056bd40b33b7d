// One log entry in detail: every field under its heading, with buttons that
// filter the view for or against a field's value (user, level, log), a
// button that copies the entry as text, one that shows it in context, and a
// link that reopens it (the view narrowed to the entry's second, with the
// entry named in the address).

import {ClassOf, FindLog, MembersOf, UserKey} from './catalogue.js';
import {byId} from './dom.js';
import {CurrentLanguage, T} from './i18n.js';
import {LevelOfRecord, LogName} from './log-table.js';
import {FormatRecordTime} from './time-text.js';
import {MAX_HIDDEN, SearchTerms, WithLog} from './view-state.js';

// The fields of a record in the order its layout shows them, then any other
// key it carries (the row id), each as [label, text].
export function EntryFields(log, record) {
  const fields = [];
  for (const column of ClassOf(log).columns) {
    let text = String(record[column.key] ?? '');
    if (column.kind === 'level') text = T('level.' + LevelOfRecord(record).name);
    if (column.kind === 'log') text = LogName(record);
    if (column.kind === 'time') text = FormatRecordTime(text, CurrentLanguage());
    if (column.kind === 'isdir') text = T(text === 'true' ? 'cell.folder' : 'cell.file');
    fields.push([T(column.label), text, column.key]);
  }
  if (record.id !== undefined) fields.push([T('entry.id'), String(record.id)]);
  return fields;
}

// The filter for / filter out choices of a record's fields: a level alone or
// without it, a user's name as a search phrase or left out, and in a group
// view the record's own log alone or left out (while another stays shown).
export function ValueFilters(log, state, record) {
  const filters = {};
  const reset = {page: 1, entry: ''};
  if (ClassOf(log).levels && record.level) {
    const level = LevelOfRecord(record).name;
    filters.level = {
      for: {...reset, levels: [level]},
      out: {...reset, levels: state.levels.filter((name) => name !== level)},
    };
  }
  const key = UserKey(log);
  const user = record[key];
  if (user) {
    filters[key] = {};
    // A name with a quote cannot be a search phrase.
    if (!/"/.test(user)) {
      const phrase = /\s/.test(user) ? `"${user}"` : user;
      const keyword = SearchTerms(state.keyword).includes(user) ? state.keyword :
          [state.keyword, phrase].filter(Boolean).join(' ');
      filters[key].for = {...reset, keyword};
    }
    if (state.hideUsers.length < MAX_HIDDEN) {
      filters[key].out = {...reset, hideUsers: [...state.hideUsers, user]};
    }
  }
  const own = record.orginalLogType;
  const members = MembersOf(log);
  if (own && members.length > 1 && FindLog(own)) {
    const shown = members.filter((name) => name !== own && !state.hideLogs.includes(name));
    filters.logtype = {for: WithLog(state, own)};
    if (shown.length > 0) filters.logtype.out = {...reset, hideLogs: [...state.hideLogs, own]};
  }
  return filters;
}

function FilterButton(textKey, field, value, partial, onFilter) {
  const button = document.createElement('button');
  button.type = 'button';
  button.className = 'filter-value';
  button.textContent = textKey === 'entry.filterFor' ? '+' : '−';
  const name = T(textKey + 'Named', {field, value});
  button.setAttribute('aria-label', name);
  button.title = name;
  button.addEventListener('click', () => {
    byId('entry-dialog').close();
    onFilter(partial);
  });
  return button;
}

// `filters` maps a field's key to {for, out} partial states (either may be
// absent) that `onFilter(partial)` applies; `onContext` (or null) shows the
// entry in context.
export function ShowEntry(log, record, link, onClose, {filters = {}, onFilter, onContext} = {}) {
  const dialog = byId('entry-dialog');
  const list = byId('entry-fields');
  const fields = EntryFields(log, record);
  list.replaceChildren(...fields.flatMap(([label, text, key]) => {
    const term = document.createElement('dt');
    term.textContent = label;
    const value = document.createElement('dd');
    value.textContent = text;
    const choice = filters[key];
    if (choice && text) {
      const buttons = document.createElement('span');
      buttons.className = 'filter-buttons';
      if (choice.for) buttons.append(FilterButton('entry.filterFor', label, text, choice.for, onFilter));
      if (choice.out) buttons.append(FilterButton('entry.filterOut', label, text, choice.out, onFilter));
      value.append(buttons);
    }
    return [term, value];
  }));
  const context = byId('entry-context');
  context.hidden = !onContext;
  context.onclick = onContext;
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
