// Parsing one received syslog message into a system-log entry.
#include "logd/syslog/syslog_parser.h"

#include <cstdlib>
#include <string>

#include "logd/syslog/message_text.h"

namespace logd::syslog {
namespace {

constexpr int kDefaultSeverity = 5;  // user.notice: what a relay assumes without a PRI
constexpr std::string_view kBom = "\xEF\xBB\xBF";

// A cursor over the raw message; every reader advances only on success.
struct Cursor {
  std::string_view text;
  size_t pos = 0;

  bool AtEnd() const { return pos >= text.size(); }
  char Peek(size_t ahead = 0) const { return pos + ahead < text.size() ? text[pos + ahead] : '\0'; }
  std::string_view Rest() const { return text.substr(pos); }
  bool Eat(char c) {
    if (Peek() != c || AtEnd()) return false;
    ++pos;
    return true;
  }
  void SkipSpaces() {
    while (!AtEnd() && text[pos] == ' ') ++pos;
  }
  // The characters up to the next space (or the end).
  std::string_view Token() const {
    const size_t end = text.find(' ', pos);
    return text.substr(pos, end == std::string_view::npos ? std::string_view::npos : end - pos);
  }
};

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Reads exactly |count| digits.
bool ReadDigits(Cursor* c, int count, int* value) {
  int v = 0;
  for (int i = 0; i < count; ++i) {
    const char ch = c->Peek(i);
    if (!IsDigit(ch) || c->pos + i >= c->text.size()) return false;
    v = v * 10 + (ch - '0');
  }
  c->pos += count;
  *value = v;
  return true;
}

// "<N>" with N 0..191 in 1 to 3 digits.
bool ReadPri(Cursor* c, int* pri) {
  Cursor t = *c;
  if (!t.Eat('<')) return false;
  int value = 0, digits = 0;
  while (IsDigit(t.Peek()) && !t.AtEnd() && digits < 3) {
    value = value * 10 + (t.Peek() - '0');
    ++t.pos;
    ++digits;
  }
  if (digits == 0 || value > 191 || !t.Eat('>')) return false;
  *c = t;
  *pri = value;
  return true;
}

bool ValidTime(int month, int day, int hour, int minute, int second) {
  return month >= 1 && month <= 12 && day >= 1 && day <= 31 && hour <= 23 && minute <= 59 &&
         second <= 60;
}

// Fractions of a second are read and dropped.
void SkipFraction(Cursor* c) {
  if ((c->Peek() == '.' || c->Peek() == ',') && IsDigit(c->Peek(1))) {
    ++c->pos;
    while (IsDigit(c->Peek()) && !c->AtEnd()) ++c->pos;
  }
}

// "YYYY-MM-DDTHH:MM:SS[.frac][Z|+HH:MM|-HH:MM]" (a space for the T is accepted). Without an
// offset the time is read in |zone|.
bool ReadIsoTimestamp(Cursor* c, const TimeZoneSetting* zone, int64_t* epoch) {
  Cursor t = *c;
  int year, month, day, hour, minute, second;
  if (!ReadDigits(&t, 4, &year) || !t.Eat('-') || !ReadDigits(&t, 2, &month) || !t.Eat('-') ||
      !ReadDigits(&t, 2, &day) || !(t.Eat('T') || t.Eat(' ')) || !ReadDigits(&t, 2, &hour) ||
      !t.Eat(':') || !ReadDigits(&t, 2, &minute) || !t.Eat(':') || !ReadDigits(&t, 2, &second) ||
      !ValidTime(month, day, hour, minute, second)) {
    return false;
  }
  SkipFraction(&t);
  int64_t value;
  if (t.Eat('Z') || t.Eat('z')) {
    value = CivilToEpoch(year, month, day, hour, minute, second);
  } else if (t.Peek() == '+' || t.Peek() == '-') {
    const int sign = t.Peek() == '-' ? -1 : 1;
    ++t.pos;
    int oh, om;
    if (!ReadDigits(&t, 2, &oh)) return false;
    t.Eat(':');
    if (!ReadDigits(&t, 2, &om) || oh > 23 || om > 59) return false;
    value = CivilToEpoch(year, month, day, hour, minute, second) - sign * (oh * 3600 + om * 60);
  } else if (zone != nullptr) {
    value = zone->ToEpoch(year, month, day, hour, minute, second);
  } else {
    value = CivilToEpoch(year, month, day, hour, minute, second);
  }
  *c = t;
  *epoch = value;
  return true;
}

int MonthOfName(std::string_view name) {
  static const char kMonths[] = "JanFebMarAprMayJunJulAugSepOctNovDec";
  for (int i = 0; i < 12; ++i) {
    if (name == std::string_view(kMonths + 3 * i, 3)) return i + 1;
  }
  return 0;
}

// "Mmm dd hh:mm:ss", the day space-padded or not, with an optional year before or after the
// time and an optional fraction. Without a year, the year that puts the time nearest to now.
bool ReadBsdTimestamp(Cursor* c, const ParseContext& context, int64_t* epoch) {
  Cursor t = *c;
  const int month = MonthOfName(t.Rest().substr(0, 3));
  if (month == 0) return false;
  t.pos += 3;
  if (!t.Eat(' ')) return false;
  t.Eat(' ');
  int day;
  if (!ReadDigits(&t, 2, &day) && !ReadDigits(&t, 1, &day)) return false;
  if (!t.Eat(' ')) return false;
  int year = 0;
  if (ReadDigits(&t, 4, &year) && !t.Eat(' ')) return false;
  int hour, minute, second;
  if (!ReadDigits(&t, 2, &hour) || !t.Eat(':') || !ReadDigits(&t, 2, &minute) || !t.Eat(':') ||
      !ReadDigits(&t, 2, &second) || !ValidTime(month, day, hour, minute, second)) {
    return false;
  }
  SkipFraction(&t);
  // A zone name ("UTC", "CST") and then a year may follow; UTC and GMT are honoured, other
  // names are ambiguous and the configured zone applies.
  bool utc_named = false;
  {
    Cursor z = t;
    if (z.Eat(' ')) {
      const size_t start = z.pos;
      while (!z.AtEnd() && z.Peek() >= 'A' && z.Peek() <= 'Z') ++z.pos;
      const std::string_view name = z.text.substr(start, z.pos - start);
      if (name.size() >= 3 && name.size() <= 5 &&
          (z.AtEnd() || z.Peek() == ':' || z.Peek() == ' ')) {
        utc_named = name == "UTC" || name == "GMT";
        t = z;
      }
    }
  }
  if (year == 0 && t.Peek() == ' ' && t.pos + 5 <= t.text.size() &&
      (t.pos + 5 == t.text.size() || t.text[t.pos + 5] == ' ' || t.text[t.pos + 5] == ':')) {
    Cursor y = t;
    ++y.pos;
    if (ReadDigits(&y, 4, &year)) t = y;
  }
  static const TimeZoneSetting utc = [] {
    TimeZoneSetting z;
    z.Set("UTC");
    return z;
  }();
  const TimeZoneSetting& zone = context.zone != nullptr && !utc_named ? *context.zone : utc;
  if (year != 0) {
    *epoch = zone.ToEpoch(year, month, day, hour, minute, second);
  } else {
    const int this_year = zone.YearAt(context.now);
    int64_t best = 0;
    for (int y = this_year - 1; y <= this_year + 1; ++y) {
      const int64_t candidate = zone.ToEpoch(y, month, day, hour, minute, second);
      if (y == this_year - 1 ||
          std::llabs(candidate - context.now) < std::llabs(best - context.now))
        best = candidate;
    }
    *epoch = best;
  }
  *c = t;
  return true;
}

bool IsTagChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || IsDigit(c) || c == '-' || c == '_' ||
         c == '.' || c == '/';
}

// "APP[PROCID]: " or "APP: " at the cursor (the space after the colon is optional). APP is 1 to
// 48 name characters, not all digits (a Cisco sequence number is no tag).
bool ReadTag(Cursor* c, std::string_view* app, std::string_view* procid) {
  Cursor t = *c;
  const size_t start = t.pos;
  bool any_letter = false;
  while (!t.AtEnd() && IsTagChar(t.Peek()) && t.pos - start < 48) {
    any_letter = any_letter || !IsDigit(t.Peek());
    ++t.pos;
  }
  if (t.pos == start || !any_letter) return false;
  std::string_view name = t.text.substr(start, t.pos - start);
  std::string_view pid;
  if (t.Eat('[')) {
    const size_t close = t.text.find(']', t.pos);
    if (close == std::string_view::npos || close - t.pos > 128) return false;
    pid = t.text.substr(t.pos, close - t.pos);
    t.pos = close + 1;
  }
  if (!t.Eat(':')) return false;
  t.Eat(' ');
  *c = t;
  *app = name;
  *procid = pid;
  return true;
}

struct Parts {
  std::string_view host, app, procid, msgid, structured, msg;
};

void Compose(const Parts& parts, bool cut, std::string* out) {
  out->clear();
  out->reserve(parts.host.size() + parts.app.size() + parts.procid.size() + parts.msgid.size() +
               parts.structured.size() + parts.msg.size() + 8);
  AppendValidUtf8(parts.host, out);
  if (!parts.app.empty()) {
    out->push_back(' ');
    AppendValidUtf8(parts.app, out);
    if (!parts.procid.empty()) {
      out->push_back('[');
      AppendValidUtf8(parts.procid, out);
      out->push_back(']');
    }
    out->push_back(':');
  }
  for (std::string_view piece : {parts.msgid, parts.structured, parts.msg}) {
    if (piece.empty()) continue;
    out->push_back(' ');
    AppendValidUtf8(piece, out);
  }
  BoundMessage(out, cut);
}

// An RFC 5424 header field: NILVALUE ("-") gives an empty view. Up to |max| printable
// characters followed by a space.
bool ReadField(Cursor* c, size_t max, std::string_view* field) {
  const std::string_view token = c->Token();
  if (token.empty() || token.size() > max || c->pos + token.size() >= c->text.size()) return false;
  for (char ch : token) {
    if (ch < 33 || ch > 126) return false;
  }
  c->pos += token.size() + 1;
  *field = token == "-" ? std::string_view() : token;
  return true;
}

// STRUCTURED-DATA: "-" or one or more "[...]" elements, quoted values with backslash escapes.
bool ReadStructuredData(Cursor* c, std::string_view* sd) {
  if (c->Peek() == '-' && (c->pos + 1 == c->text.size() || c->Peek(1) == ' ')) {
    ++c->pos;
    *sd = std::string_view();
    return true;
  }
  const size_t start = c->pos;
  size_t i = c->pos;
  const std::string_view s = c->text;
  if (i >= s.size() || s[i] != '[') return false;
  while (i < s.size() && s[i] == '[') {
    bool quoted = false;
    ++i;
    for (; i < s.size(); ++i) {
      if (quoted && s[i] == '\\') {
        ++i;
      } else if (s[i] == '"') {
        quoted = !quoted;
      } else if (!quoted && s[i] == ']') {
        break;
      }
    }
    if (i >= s.size()) return false;
    ++i;  // past ']'
  }
  *sd = s.substr(start, i - start);
  c->pos = i;
  return true;
}

bool ParseRfc5424(Cursor c, int severity, const ParseContext& context, bool cut, LogEntry* entry) {
  // VERSION: a nonzero number of up to 2 digits (only "1" is defined) and a space.
  if (c.Peek() < '1' || c.Peek() > '9') return false;
  ++c.pos;
  if (IsDigit(c.Peek())) ++c.pos;
  if (!c.Eat(' ')) return false;
  int64_t time = context.now;
  if (c.Peek() == '-' && c.Peek(1) == ' ') {
    c.pos += 2;
  } else if (!ReadIsoTimestamp(&c, context.zone, &time) || !c.Eat(' ')) {
    return false;
  }
  Parts parts;
  if (!ReadField(&c, 255, &parts.host) || !ReadField(&c, 48, &parts.app) ||
      !ReadField(&c, 128, &parts.procid) || !ReadField(&c, 32, &parts.msgid)) {
    return false;
  }
  if (!ReadStructuredData(&c, &parts.structured)) {
    parts.msg = c.Rest();  // malformed structured data: kept as message text
  } else {
    c.Eat(' ');
    parts.msg = c.Rest();
  }
  if (parts.msg.substr(0, kBom.size()) == kBom) parts.msg.remove_prefix(kBom.size());
  if (parts.host.empty()) parts.host = context.sender;
  entry->time = time;
  entry->level = LevelOfSeverity(severity);
  Compose(parts, cut, &entry->message);
  return true;
}

SyslogFormat ParseRfc3164(Cursor c, bool has_pri, int severity, const ParseContext& context,
                          bool cut, LogEntry* entry) {
  // A Cisco sequence number ("123: ") before the timestamp.
  {
    Cursor t = c;
    while (IsDigit(t.Peek()) && !t.AtEnd()) ++t.pos;
    if (t.pos > c.pos && t.Eat(':') && t.Eat(' ')) c = t;
  }
  // Cisco marks an unsynchronised clock with '*' and a once-synchronised one with '.'.
  Cursor stamp = c;
  if (stamp.Peek() == '*' || stamp.Peek() == '.') ++stamp.pos;
  int64_t time = context.now;
  const bool has_time =
      ReadIsoTimestamp(&stamp, context.zone, &time) || ReadBsdTimestamp(&stamp, context, &time);
  if (has_time) {
    stamp.Eat(':');  // Cisco ends its timestamp with a colon
    c = stamp;
  } else if (!has_pri) {
    return SyslogFormat::kUnknown;
  }
  c.SkipSpaces();
  Parts parts;
  parts.host = context.sender;
  // HOSTNAME, unless the word there is already the tag or the last word. Without a timestamp
  // the rest is content: a host cannot be told from the first word of a message.
  if (has_time) {
    const std::string_view word = c.Token();
    const bool last = c.pos + word.size() >= c.text.size();
    if (!word.empty() && !last && word.back() != ':' && word.find('[') == std::string_view::npos) {
      parts.host = word;
      c.pos += word.size();
      c.SkipSpaces();
    }
  }
  ReadTag(&c, &parts.app, &parts.procid);
  parts.msg = c.Rest();
  entry->time = time;
  entry->level = LevelOfSeverity(severity);
  Compose(parts, cut, &entry->message);
  return SyslogFormat::kRfc3164;
}

}  // namespace

int LevelOfSeverity(int severity) {
  if (severity <= 3) return 3;
  if (severity == 4) return 2;
  return 1;
}

SyslogFormat ParseSyslogMessage(std::string_view raw, bool cut, const ParseContext& context,
                                LogEntry* entry) {
  entry->store = Store::kSystem;
  entry->user = kSystemUser;
  // Trailing line ends and NULs are transport, not message.
  while (!raw.empty() && (raw.back() == '\n' || raw.back() == '\r' || raw.back() == '\0')) {
    raw.remove_suffix(1);
  }
  Cursor c{raw, 0};
  int pri = 0;
  const bool has_pri = ReadPri(&c, &pri);
  const int severity = has_pri ? pri & 7 : kDefaultSeverity;
  if (has_pri && ParseRfc5424(c, severity, context, cut, entry)) return SyslogFormat::kRfc5424;
  const SyslogFormat format = ParseRfc3164(c, has_pri, severity, context, cut, entry);
  if (format != SyslogFormat::kUnknown) return format;
  entry->time = context.now;
  entry->level = 1;
  Compose(Parts{context.sender, {}, {}, {}, {}, raw}, cut, &entry->message);
  return SyslogFormat::kUnknown;
}

}  // namespace logd::syslog
