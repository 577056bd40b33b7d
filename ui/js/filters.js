// The filter form: level check boxes with the answer's counts beside them,
// the date range and the keyword. It reports each change as a partial state
// to the view; typing in the keyword box is reported after a short pause so
// that a search does not start at every key.

import {ClassOf, LEVELS} from './catalogue.js';
import {FormatNumber, T} from './i18n.js';
import {Icon} from './icons.js';

const KEYWORD_PAUSE_MS = 350;

const byId = (id) => document.getElementById(id);

export class Filters {
  // `onChange(partial, {typing})` receives the changed part of the state;
  // `typing` is true for keyword edits, which do not add history entries.
  constructor(onChange) {
    this.onChange = onChange;
    this.keywordTimer = 0;
    this.keyword = byId('keyword');
    this.from = byId('date-from');
    this.to = byId('date-to');
    this.boxes = byId('level-boxes');

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
    this.from.addEventListener('change', () => this.onChange({from: this.from.value, page: 1}));
    this.to.addEventListener('change', () => this.onChange({to: this.to.value, page: 1}));
    byId('filters').addEventListener('submit', (event) => event.preventDefault());
    byId('reset-filters').addEventListener('click', () => {
      clearTimeout(this.keywordTimer);
      this.onChange({
        levels: LEVELS.map((level) => level.name),
        from: '',
        to: '',
        keyword: '',
        page: 1,
      });
    });
  }

  ReportKeyword() {
    clearTimeout(this.keywordTimer);
    const keyword = this.keyword.value.trim();
    if (keyword !== this.shownKeyword) this.onChange({keyword, page: 1}, {typing: true});
  }

  // Builds the level boxes in the current language.
  Build() {
    const content = document.createDocumentFragment();
    for (const level of LEVELS) {
      const label = document.createElement('label');
      label.className = 'level-box level-' + level.name;
      const box = document.createElement('input');
      box.type = 'checkbox';
      box.value = level.name;
      box.id = 'level-' + level.name;
      box.addEventListener('change', () => this.onChange({levels: this.CheckedLevels(), page: 1}));
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
  }

  CheckedLevels() {
    return [...this.boxes.querySelectorAll('input:checked')].map((box) => box.value);
  }

  // Shows `state` in the form. The keyword box is left alone while it has
  // the focus, so an answer arriving during typing does not undo keys.
  Show(state, log) {
    for (const box of this.boxes.querySelectorAll('input')) {
      box.checked = state.levels.includes(box.value);
    }
    byId('level-filter').hidden = !ClassOf(log).levels;
    this.from.value = state.from;
    this.to.value = state.to;
    this.from.max = state.to || '';
    this.to.min = state.from || '';
    this.shownKeyword = state.keyword;
    if (document.activeElement !== this.keyword) this.keyword.value = state.keyword;
  }

  // The answer's per-level counts beside the boxes; none when unknown.
  ShowCounts(answer) {
    for (const level of LEVELS) {
      const count = byId('count-' + level.name);
      const value = answer ? answer[level.count] : undefined;
      count.textContent = Number.isInteger(value) ? FormatNumber(value) : '';
    }
  }
}
