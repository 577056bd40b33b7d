// How a journal entry becomes rows.
#include "logd/journal_mapping.h"

#include <pwd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sstream>
#include <vector>

namespace logd {

namespace {

constexpr char kBinaryMark[] = "[binary] ";
constexpr char kCutMark[] = " [cut]";
constexpr size_t kMaxAccounts = 4096;

// Length of the valid UTF-8 sequence at text[i], or 0 when the byte there starts none.
size_t Utf8Length(const std::string& text, size_t i) {
  unsigned char c = static_cast<unsigned char>(text[i]);
  if (c >= 0x20 || c == '\t' || c == '\n') {
    if (c < 0x80) return 1;
  } else {
    return 0;  // NUL and other control characters count as binary
  }
  size_t n = c >= 0xF0 && c <= 0xF4 ? 4 : c >= 0xE0 ? 3 : c >= 0xC2 && c < 0xE0 ? 2 : 0;
  if (n == 0 || i + n > text.size()) return 0;
  for (size_t k = 1; k < n; ++k) {
    if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) return 0;
  }
  unsigned char c1 = static_cast<unsigned char>(text[i + 1]);
  if ((c == 0xE0 && c1 < 0xA0) || (c == 0xED && c1 >= 0xA0) || (c == 0xF0 && c1 < 0x90) ||
      (c == 0xF4 && c1 >= 0x90)) {
    return 0;  // overlong forms, surrogates, beyond U+10FFFF
  }
  return n;
}

// The words of text split at spaces.
std::vector<std::string> Words(const std::string& text) {
  std::vector<std::string> words;
  std::istringstream in(text);
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

}  // namespace

std::string MessageText(const std::string& message, bool alreadyCut) {
  std::string text;
  bool binary = false;
  for (size_t i = 0; i < message.size();) {
    size_t n = Utf8Length(message, i);
    if (n > 0) {
      text.append(message, i, n);
      i += n;
    } else {
      char escaped[5];
      snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned char>(message[i]));
      text += escaped;
      binary = true;
      ++i;
    }
    if (text.size() > kMaxMessageBytes) break;
  }
  if (binary) text.insert(0, kBinaryMark);
  bool cut = alreadyCut || text.size() > kMaxMessageBytes;
  if (cut) {
    size_t keep = std::min(text.size(), kMaxMessageBytes - (sizeof kCutMark - 1));
    // Back to a character boundary (escapes are plain ASCII).
    while (keep > 0 && (static_cast<unsigned char>(text[keep]) & 0xC0) == 0x80) --keep;
    text.resize(keep);
    text += kCutMark;
  }
  return text;
}

const std::string& AccountNames::Of(int64_t uid) {
  if (uid < 1000 || uid >= 65534) return system_;
  auto found = names_.find(uid);
  if (found != names_.end()) return found->second;
  if (names_.size() >= kMaxAccounts) names_.clear();
  std::string name = std::to_string(uid);
  struct passwd entry;
  struct passwd* result = nullptr;
  std::vector<char> buffer(16384);
  if (getpwuid_r(static_cast<uid_t>(uid), &entry, buffer.data(), buffer.size(), &result) == 0 &&
      result != nullptr) {
    name = result->pw_name;
  }
  return names_[uid] = name;
}

LogEntry SystemRow(const JournalFields& fields, AccountNames* accounts) {
  LogEntry row;
  row.store = Store::kSystem;
  row.time = fields.realtimeUsec / 1000000;
  row.level = fields.priority <= 3 ? 3 : fields.priority == 4 ? 2 : 1;
  row.user = accounts->Of(fields.uid);
  row.message = fields.identifier.empty() ? "unknown" : fields.identifier;
  if (!fields.pid.empty()) row.message += "[" + fields.pid + "]";
  row.message += ": ";
  row.message += MessageText(fields.message, fields.messageCut);
  return row;
}

bool ConnectionRow(const JournalFields& fields, LogEntry* row) {
  if (fields.identifier != "sshd" && fields.identifier != "sshd-session") return false;
  std::vector<std::string> w = Words(fields.message);
  std::string text;
  int level = 1;
  std::string user;
  // "Accepted password for alice from 192.168.1.23 port 52211 ssh2"
  if (w.size() >= 6 && w[0] == "Accepted" && w[2] == "for" && w[4] == "from") {
    user = w[3];
    text = "User [" + user + "] signed in from [" + w[5] + "] via [SSH].";
  } else if (w.size() >= 6 && w[0] == "Failed" && w[2] == "for") {
    // "Failed password for [invalid user ]bob from 10.0.0.8 port 22 ssh2"
    size_t u = w[3] == "invalid" && w.size() >= 8 && w[4] == "user" ? 5 : 3;
    if (u + 2 >= w.size() || w[u + 1] != "from") return false;
    user = w[u];
    text = "User [" + user + "] failed to sign in from [" + w[u + 2] +
           "] via [SSH]: " + (w[1] == "publickey" ? "wrong key." : "wrong password.");
    level = 2;
  } else if (w.size() >= 4 && w[0] == "Disconnected" && w[1] == "from" && w[2] == "user") {
    // "Disconnected from user alice 192.168.1.23 port 52211"
    user = w[3];
    text = "User [" + user + "] signed out.";
  } else {
    return false;
  }
  row->store = Store::kConnection;
  row->time = fields.realtimeUsec / 1000000;
  row->level = level;
  row->user = user;
  row->message = text;
  return true;
}

CursorOrder ParseCursor(const std::string& cursor) {
  CursorOrder order;
  bool haveSeqnum = false, haveTime = false;
  std::istringstream in(cursor);
  for (std::string part; std::getline(in, part, ';');) {
    if (part.size() < 2 || part[1] != '=') continue;
    std::string value = part.substr(2);
    char* end = nullptr;
    if (part[0] == 's') order.seqnumId = value;
    if (part[0] == 'i') {
      order.seqnum = strtoull(value.c_str(), &end, 16);
      haveSeqnum = !value.empty() && *end == '\0';
    }
    if (part[0] == 't') {
      order.realtimeUsec = strtoull(value.c_str(), &end, 16);
      haveTime = !value.empty() && *end == '\0';
    }
  }
  order.valid = !order.seqnumId.empty() && haveSeqnum && haveTime;
  return order;
}

bool IsAfter(const CursorOrder& a, const CursorOrder& b) {
  if (a.seqnumId == b.seqnumId) return a.seqnum > b.seqnum;
  return a.realtimeUsec > b.realtimeUsec;
}

int64_t EntriesBetween(const CursorOrder& b, const CursorOrder& a) {
  if (a.seqnumId != b.seqnumId) return -1;
  return a.seqnum > b.seqnum ? static_cast<int64_t>(a.seqnum - b.seqnum - 1) : 0;
}

std::string LocalTimeText(uint64_t realtimeUsec) {
  time_t seconds = static_cast<time_t>(realtimeUsec / 1000000);
  struct tm local;
  localtime_r(&seconds, &local);
  char text[32];
  strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
  return text;
}

}  // namespace logd
