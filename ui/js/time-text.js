// Times as people type them, in either of the page's languages, and times as
// the page writes them: one style per language for the fields, the table and
// the timeline (English 2026-11-23 14:05:00, German 23.11.2026 14:05:00).
// Typed forms: "2026-11-23 14:05", "2026/11/23", "23.11.2026 14:05", "14:05"
// (today), and times relative to now as "-15m", "now-2h", "-7d", "now"
// ("jetzt"; units s, m/min, h/std, d/t, w). A typed time is read into the
// view's own form: a wall time "YYYY-MM-DD[THH:MM[:SS]]" or a relative one.

const UNITS = {s: 's', sek: 's', m: 'm', min: 'm', h: 'h', std: 'h', d: 'd', t: 'd', w: 'w'};

function Pad(number, width = 2) {
  return String(number).padStart(width, '0');
}

function DaysIn(year, month) {
  return new Date(Date.UTC(year, month, 0)).getUTCDate();
}

// The view's form of the parts, or null when they are not a time.
function Wall(year, month, day, time) {
  [year, month, day] = [year, month, day].map(Number);
  if (!(year >= 1970 && year <= 9999 && month >= 1 && month <= 12)) return null;
  if (!(day >= 1 && day <= DaysIn(year, month))) return null;
  const date = `${Pad(year, 4)}-${Pad(month)}-${Pad(day)}`;
  if (!time) return date;
  const match = /^(\d{1,2}):(\d{2})(?::(\d{2}))?$/.exec(time);
  if (!match) return null;
  const [hour, minute, second] = [match[1], match[2], match[3]].map((part) => Number(part ?? 0));
  if (hour > 23 || minute > 59 || second > 59) return null;
  return `${date}T${Pad(hour)}:${Pad(minute)}` + (match[3] ? `:${Pad(second)}` : '');
}

// Reads `text`; `today` is the appliance's date ("YYYY-MM-DD") for a time of
// day alone. Returns the view's form ("" for an empty field) or null.
export function ParseTimeText(text, today) {
  const typed = String(text || '').trim().toLowerCase().replace(/\s+/g, ' ');
  if (!typed) return '';
  if (typed === 'now' || typed === 'jetzt') return 'now';
  const relative = /^(?:now|jetzt)? ?- ?(\d{1,6}) ?([a-z]+)$/.exec(typed);
  if (relative) return UNITS[relative[2]] ? `-${Number(relative[1])}${UNITS[relative[2]]}` : null;
  let match = /^(\d{4})[-/](\d{1,2})[-/](\d{1,2})(?:[ t](.+))?$/.exec(typed);
  if (match) return Wall(match[1], match[2], match[3], match[4]);
  match = /^(\d{1,2})\.(\d{1,2})\.(\d{4})(?: (.+))?$/.exec(typed);
  if (match) return Wall(match[3], match[2], match[1], match[4]);
  if (/^\d{1,2}:\d{2}(:\d{2})?$/.test(typed) && today) {
    const [year, month, day] = today.split('-');
    return Wall(year, month, day, typed);
  }
  return null;
}

// A view-form time ("YYYY-MM-DD[THH:MM[:SS]]" or relative) as the page
// writes it in `lang`.
export function FormatTimeText(value, lang) {
  if (!value) return '';
  if (value === 'now') return lang === 'de' ? 'jetzt' : 'now';
  const match = /^(\d{4})-(\d{2})-(\d{2})(?:T(.*))?$/.exec(value);
  if (!match) return value;
  const date = lang === 'de' ? `${match[3]}.${match[2]}.${match[1]}` :
      `${match[1]}-${match[2]}-${match[3]}`;
  return match[4] ? `${date} ${match[4]}` : date;
}

// A record's time text ("YYYY/MM/DD HH:MM:SS") as the page writes it; any
// other text is left as it is.
export function FormatRecordTime(text, lang) {
  const match = /^(\d{4})\/(\d{2})\/(\d{2}) (\d{2}:\d{2}:\d{2})$/.exec(String(text || ''));
  return match ? FormatTimeText(`${match[1]}-${match[2]}-${match[3]}T${match[4]}`, lang) : text;
}
