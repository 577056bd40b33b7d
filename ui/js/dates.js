// Calendar dates of the date filter turned into the epoch seconds the list
// method compares with. A day is taken in the appliance's time zone, the one
// its log times are shown in, so that a day picked matches the day printed
// in the table. A zone name the browser does not know falls back to the
// appliance's present offset from UTC, and without that to the browser's zone.

// True when the browser knows `zone` as an IANA time-zone name.
function IsKnownZone(zone) {
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

// The wall time of `zone` at instant `seconds` as "YYYY-MM-DDTHH:MM:SS", the
// form of the time fields (at the fixed `offset` when the zone is unknown).
export function EpochToWall(seconds, zone, offset) {
  let shift;
  if (IsKnownZone(zone)) shift = ZoneOffset(zone, seconds);
  else if (Number.isInteger(offset)) shift = offset;
  else shift = -new Date(seconds * 1000).getTimezoneOffset() * 60;
  return new Date((seconds + shift) * 1000).toISOString().slice(0, 19);
}

// Epoch seconds of a time field's value: "YYYY-MM-DD" alone is the day's
// first second, or its last with `end`; a time without seconds is its first
// second, or its last with `end`. 0 (no bound) when empty.
export function WallToEpoch(wall, zone, offset, {end = false} = {}) {
  if (!wall) return 0;
  const [date, time = ''] = wall.split('T');
  const parts = time ? time.split(':').map(Number) : [];
  const hms = [parts[0] ?? (end ? 23 : 0), parts[1] ?? (end ? 59 : 0),
               parts[2] ?? (end ? 59 : 0)];
  return WallTimeToEpoch(date, hms, zone, offset);
}

// The time field's form of a record's time text.
export function RecordTimeToWall(text) {
  return String(text || '').replace(/^(\d{4})\/(\d{2})\/(\d{2}) /, '$1-$2-$3T');
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
