// The day picker beside a time field: a month of day buttons in the page's
// language, Monday first. Picking a day hands "YYYY-MM-DD" back; the time of
// day stays whatever the field holds.

import {byId} from './dom.js';
import {CurrentLanguage, T} from './i18n.js';

function Pad(number) {
  return String(number).padStart(2, '0');
}

export class DayPicker {
  constructor() {
    this.dialog = byId('day-picker');
    this.grid = byId('day-grid');
    this.title = byId('day-title');
    this.onPick = null;
    byId('day-prev').addEventListener('click', () => this.Move(-1));
    byId('day-next').addEventListener('click', () => this.Move(1));
  }

  // Opens at the month of `day` ("YYYY-MM-DD", or "" for `today`); `onPick`
  // receives the day chosen.
  Open(day, today, onPick) {
    const [year, month] = (day || today).split('-').map(Number);
    this.year = year;
    this.month = month;
    this.chosen = day;
    this.onPick = onPick;
    this.Draw();
    this.dialog.showModal();
    (this.grid.querySelector('[aria-pressed="true"]') || this.grid.querySelector('button'))
        ?.focus();
  }

  Move(months) {
    const index = this.year * 12 + this.month - 1 + months;
    this.year = Math.floor(index / 12);
    this.month = index % 12 + 1;
    this.Draw();
  }

  Draw() {
    const lang = CurrentLanguage();
    const first = new Date(Date.UTC(this.year, this.month - 1, 1));
    this.title.textContent = new Intl.DateTimeFormat(lang, {
      month: 'long', year: 'numeric', timeZone: 'UTC',
    }).format(first);
    const long = new Intl.DateTimeFormat(lang, {dateStyle: 'full', timeZone: 'UTC'});
    const weekday = new Intl.DateTimeFormat(lang, {weekday: 'short', timeZone: 'UTC'});
    const head = document.createElement('tr');
    for (let i = 0; i < 7; ++i) {
      const cell = document.createElement('th');
      cell.scope = 'col';
      cell.textContent = weekday.format(new Date(Date.UTC(2024, 0, 1 + i)));  // a Monday
      head.append(cell);
    }
    const rows = [head];
    const days = new Date(Date.UTC(this.year, this.month, 0)).getUTCDate();
    let row = document.createElement('tr');
    for (let blank = (first.getUTCDay() + 6) % 7; blank > 0; --blank) {
      row.append(document.createElement('td'));
    }
    for (let day = 1; day <= days; ++day) {
      const value = `${this.year}-${Pad(this.month)}-${Pad(day)}`;
      const cell = document.createElement('td');
      const button = document.createElement('button');
      button.type = 'button';
      button.textContent = String(day);
      button.setAttribute('aria-label', long.format(new Date(Date.UTC(this.year, this.month - 1, day))));
      button.setAttribute('aria-pressed', String(value === this.chosen));
      button.addEventListener('click', () => {
        this.dialog.close();
        this.onPick(value);
      });
      cell.append(button);
      row.append(cell);
      if (row.children.length === 7) {
        rows.push(row);
        row = document.createElement('tr');
      }
    }
    if (row.children.length) rows.push(row);
    this.grid.replaceChildren(...rows);
    byId('day-prev').setAttribute('aria-label', T('picker.prev'));
    byId('day-next').setAttribute('aria-label', T('picker.next'));
  }
}
