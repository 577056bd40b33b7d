// Calendar dates of the date filter turned into the epoch seconds the list
// method compares with. A day is taken in the appliance's time zone, the one
// its log times are shown in, so that a day picked matches the day printed
// in the table. A zone name the browser does not know falls back to the
// appliance's present offset from UTC, and without that to the browser's zone.

// True when the browser knows `zone` as an IANA time-zone name.
export function IsKnownZone(zone) {
  if (!zone) return false;
  try {
    new Intl.DateTimeFormat('en-US', {timeZone: zone});
    return true;
  } catch {
    return false;
  }
}

// Seconds to add to UTC to get the wall time of `zone` at instant `seconds`.
function ZoneOffset(zone, seconds) {
  const parts = new Intl.DateTimeFormat('en-US', {
    timeZone: zone,
    hourCycle: 'h23',
    year: 'numeric',
    month: '2-digit',
    day: '2-digit',
    hour: '2-digit',
    minute: '2-digit',
    second: '2-digit',
  }).formatToParts(new Date(seconds * 1000));
  const field = (type) => Number(parts.find((part) => part.type === type).value);
  const wall = Date.UTC(field('year'), field('month') - 1, field('day'), field('hour'),
                        field('minute'), field('second')) / 1000;
  return wall - seconds;
}

// Epoch seconds of the wall time `date` ("YYYY-MM-DD") at h:m:s in `zone`,
// or at the fixed `offset` (seconds east of UTC) when the zone is unknown.
function WallTimeToEpoch(date, [hour, minute, second], zone, offset) {
  const [year, month, day] = date.split('-').map(Number);
  const wall = Date.UTC(year, month - 1, day, hour, minute, second) / 1000;
  if (IsKnownZone(zone)) {
    // The offset at the wall time read as UTC is right except near a change
    // of offset; asking again at the first guess settles it.
    const guess = wall - ZoneOffset(zone, wall);
    return wall - ZoneOffset(zone, guess);
  }
  if (Number.isInteger(offset)) return wall - offset;
  return Math.floor(new Date(year, month - 1, day, hour, minute, second).getTime() / 1000);
}

// The first second of `date`, or 0 (no bound) when no date is given.
export function StartOfDay(date, zone, offset) {
  return date ? WallTimeToEpoch(date, [0, 0, 0], zone, offset) : 0;
}

// The last second of `date`, or 0 (no bound) when no date is given.
export function EndOfDay(date, zone, offset) {
  return date ? WallTimeToEpoch(date, [23, 59, 59], zone, offset) : 0;
}

function FormatOffset(seconds) {
  const minutes = Math.round(seconds / 60);
  const sign = minutes < 0 ? '−' : '+';
  const hours = String(Math.floor(Math.abs(minutes) / 60)).padStart(2, '0');
  return `UTC${sign}${hours}:${String(Math.abs(minutes) % 60).padStart(2, '0')}`;
}

// A short description of the zone for the page, such as
// "Europe/Berlin (UTC+01:00)".
export function DescribeZone(zone, offset) {
  if (IsKnownZone(zone)) {
    return `${zone} (${FormatOffset(ZoneOffset(zone, Math.floor(Date.now() / 1000)))})`;
  }
  if (Number.isInteger(offset)) return zone ? `${zone} (${FormatOffset(offset)})` : FormatOffset(offset);
  return zone || '';
}
