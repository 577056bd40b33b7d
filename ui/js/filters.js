// The filter form: level check boxes with the whole log's counts beside them,
// the time range (typed in the page's language, picked, or a quick range),
// the search text, and the users and logs left out as removable chips. It reports each change as a partial state to the view;
// typing in the search box is reported after a short pause so that a search
// does not start at every key, and a time field is read only on Enter or
// when it is left. A field the user is editing is never rewritten under them.

import {ClassOf, LEVELS, UserKey} from './catalogue.js';
import {byId} from './dom.js';
import {CurrentLanguage, FormatNumber, T} from './i18n.js';
import {Icon} from './icons.js';
import {DayPicker} from './time-picker.js';
import {FormatTimeText, ParseTimeText} from './time-text.js';

const KEYWORD_PAUSE_MS = 350;

// True when the view leaves out users, which an export would hold.
export function ExportLeavesOut(state, log) {
  return Boolean(UserKey(log)) && state.hideUsers.length > 0;
}

export class Filters {
  // `onChange(partial, {typing})` receives the changed part of the state;
  // `typing` is true for keyword edits, which do not add history entries.
  // `today()` is the appliance's date ("YYYY-MM-DD"), for a time typed alone.
  constructor(onChange, today) {
    this.onChange = onChange;
    this.today = today;
    this.picker = new DayPicker();
    this.keywordTimer = 0;
    this.keyword = byId('keyword');
    this.from = byId('date-from');
    this.to = byId('date-to');
    this.boxes = byId('level-boxes');
    this.ranges = byId('quick-ranges');
    this.rangeError = byId('range-error');

    this.keyword.addEventListener('input', () => {
      clearTimeout(this.keywordTimer);
      this.keywordTimer = setTimeout(() => this.ReportKeyword(), KEYWORD_PAUSE_MS);
    });
    // Enter searches at once instead of waiting for the pause.
    this.keyword.addEventListener('keydown', (event) => {
      if (event.key === 'Enter') {
        event.preventDefault();
        this.ReportKeyword();
      }
    });
    for (const field of [this.from, this.to]) {
      // A field the user has typed in is theirs until they leave it or press
      // Enter; nothing is searched while they type.
      field.addEventListener('input', () => (field.dataset.editing = '1'));
      field.addEventListener('keydown', (event) => {
        if (event.key !== 'Enter') return;
        event.preventDefault();
        this.ReportTime(field);
      });
      field.addEventListener('blur', () => {
        if (field.dataset.editing) this.ReportTime(field);
      });
      const pick = byId(field.id + '-pick');
      pick.prepend(Icon('calendar'));
      pick.addEventListener('click', () => {
        const current = ParseTimeText(field.value, this.today()) || '';
        const day = /^\d{4}-\d{2}-\d{2}/.test(current) ? current.slice(0, 10) : '';
        this.picker.Open(day, this.today(), (picked) => {
          const time = /T(.*)$/.exec(current);
          field.value = FormatTimeText(time ? `${picked}T${time[1]}` : picked, CurrentLanguage());
          this.ReportTime(field);
          field.focus();
        });
      });
    }
    for (const button of this.ranges.querySelectorAll('button[data-range]')) {
      button.addEventListener('click', () => {
        const range = button.dataset.range;
        this.onChange({range: this.state.range === range ? '' : range, from: '', to: '',
                       page: 1, entry: ''});
      });
    }
    byId('filters').addEventListener('submit', (event) => event.preventDefault());
    byId('reset-filters').addEventListener('click', () => {
      clearTimeout(this.keywordTimer);
      this.ShowRangeError('');
      this.onChange({
        levels: LEVELS.map((level) => level.name),
        range: '',
        from: '',
        to: '',
        keyword: '',
        hideUsers: [],
        hideLogs: [],
        page: 1,
        entry: '',
      });
    });
    // Narrow windows fold the filters behind one button.
    const fold = byId('filters-toggle');
    fold.addEventListener('click', () => {
      const open = fold.getAttribute('aria-expanded') !== 'true';
      fold.setAttribute('aria-expanded', String(open));
      byId('filters').classList.toggle('open', open);
    });
  }

  ReportKeyword() {
    clearTimeout(this.keywordTimer);
    const keyword = this.keyword.value.trim();
    if (keyword !== this.shownKeyword) this.onChange({keyword, page: 1, entry: ''}, {typing: true});
  }

  // A time field's value goes to the view when it reads as a time; when it
  // does not, one sentence beside the fields says so and the view keeps its
  // previous bound.
  ReportTime(field) {
    delete field.dataset.editing;
    const key = field === this.from ? 'from' : 'to';
    const value = ParseTimeText(field.value, this.today());
    if (value === null) {
      this.ShowRangeError('filters.badTime');
      return;
    }
    this.ShowRangeError('');
    field.value = FormatTimeText(value, CurrentLanguage());
    if (value === this.state[key] && !this.state.range) return;
    const partial = {[key]: value, range: '', page: 1, entry: ''};
    // A quick range given up for a typed bound keeps no other bound.
    if (this.state.range) partial[key === 'from' ? 'to' : 'from'] = '';
    this.onChange(partial);
  }

  // One sentence at a time about the range: `key` is a text key, or "".
  ShowRangeError(key) {
    this.rangeKey = key;
    const text = key ? T(key) : '';
    this.rangeError.textContent = text;
    this.rangeError.hidden = !text;
    for (const field of [this.from, this.to]) {
      if (text) field.setAttribute('aria-invalid', 'true');
      else field.removeAttribute('aria-invalid');
    }
  }

  // Builds the level boxes and the quick ranges in the current language.
  Build() {
    const content = document.createDocumentFragment();
    for (const level of LEVELS) {
      const label = document.createElement('label');
      label.className = 'level-box level-' + level.name;
      const box = document.createElement('input');
      box.type = 'checkbox';
      box.value = level.name;
      box.id = 'level-' + level.name;
      box.addEventListener('change',
                           () => this.onChange({levels: this.CheckedLevels(), page: 1, entry: ''}));
      const word = document.createElement('span');
      word.textContent = T('level.' + level.name);
      const count = document.createElement('span');
      count.className = 'count';
      count.id = 'count-' + level.name;
      count.title = T('filters.counts');
      label.append(box, Icon(level.name), word, count);
      content.append(label);
    }
    this.boxes.replaceChildren(content);
    for (const button of this.ranges.querySelectorAll('button[data-range]')) {
      button.textContent = T('range.' + button.dataset.range);
    }
    if (!this.rangeError.hidden && this.rangeKey) this.rangeError.textContent = T(this.rangeKey);
  }

  CheckedLevels() {
    return [...this.boxes.querySelectorAll('input:checked')].map((box) => box.value);
  }

  // Shows `state` in the form, leaving alone the field that has the focus.
  Show(state, log) {
    this.state = state;
    for (const box of this.boxes.querySelectorAll('input')) {
      box.checked = state.levels.includes(box.value);
    }
    byId('level-filter').hidden = !ClassOf(log).levels;
    for (const [field, value] of [[this.from, state.from], [this.to, state.to]]) {
      if (!field.dataset.editing || document.activeElement !== field) {
        field.value = FormatTimeText(value, CurrentLanguage());
        delete field.dataset.editing;
      }
    }
    for (const button of this.ranges.querySelectorAll('button[data-range]')) {
      button.setAttribute('aria-pressed', String(button.dataset.range === state.range));
    }
    this.shownKeyword = state.keyword;
    if (document.activeElement !== this.keyword) this.keyword.value = state.keyword;
    const hidden = this.ShowHidden(state, log);
    // A folded form says on its button that filters are set.
    const set = state.keyword || state.range || state.from || state.to || hidden ||
        (ClassOf(log).levels && state.levels.length < LEVELS.length);
    byId('filters-toggle').classList.toggle('active', Boolean(set));
  }

  // The users (where the log has users) and logs left out, each a chip that
  // shows them again; the number of chips. A removed chip hands the focus on
  // to its neighbour, or to the search box when none is left.
  ShowHidden(state, log) {
    const chips = [];
    const Chip = (kind, value, name, partial) => {
      const chip = document.createElement('button');
      chip.type = 'button';
      chip.className = 'chip';
      chip.dataset.key = kind + ':' + value;
      chip.textContent = T('chips.' + kind, {value: name});
      chip.title = T('chips.remove', {value: name});
      chip.append(Icon('close'));
      chip.addEventListener('click', () => {
        const next = chip.nextElementSibling || chip.previousElementSibling;
        this.refocus = next ? next.dataset.key : 'keyword';
        this.onChange({...partial, page: 1, entry: ''});
      });
      chips.push(chip);
    };
    if (UserKey(log)) {
      for (const user of state.hideUsers) {
        Chip('user', user, user, {hideUsers: state.hideUsers.filter((other) => other !== user)});
      }
    }
    for (const name of state.hideLogs) {
      Chip('log', name, T('log.' + name),
           {hideLogs: state.hideLogs.filter((other) => other !== name)});
    }
    const list = byId('hidden-values');
    list.replaceChildren(...chips);
    byId('hidden-filter').hidden = chips.length === 0;
    // The export is the first module's, which cannot leave users out.
    byId('export-note').hidden = !ExportLeavesOut(state, log);
    if (this.refocus) {
      const key = this.refocus;
      this.refocus = '';
      (chips.find((chip) => chip.dataset.key === key) || this.keyword).focus();
    }
    return chips.length;
  }

  // The whole log's per-level counts beside the boxes; none when unknown.
  // `counting`: the counts are on their way ("…").
  ShowCounts(levels, counting = false) {
    for (const level of LEVELS) {
      const count = byId('count-' + level.name);
      const value = levels ? levels[level.count] : undefined;
      count.textContent = Number.isInteger(value) ? FormatNumber(value) : counting ? '…' : '';
    }
  }
}
