// libFuzzer target: how journal entries become rows. The input is split at the first NUL into a
// message and a cursor; the first byte picks the identifier and whether the journal cut the
// message. Checks the mapping's promises: a row's message fits a row and is valid UTF-8, sshd
// rows are connection rows with a user, and cursors parse and compare without failing.
#include <cstddef>
#include <cstdint>
#include <string>

#include "logd/journal_mapping.h"
#include "logd/syslog/message_text.h"

namespace {

void CheckText(const std::string& text) {
  if (text.size() > logd::kMaxMessageBytes) __builtin_trap();
  std::string again;
  logd::syslog::AppendValidUtf8(text, &again);
  if (again != text) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const uint8_t control = data[0];
  std::string rest(reinterpret_cast<const char*>(data + 1), size - 1);
  size_t split = rest.find('\0');
  std::string message = rest.substr(0, split);
  std::string cursor = split == std::string::npos ? "" : rest.substr(split + 1);

  logd::JournalFields fields;
  fields.message = message;
  fields.messageCut = control & 1;
  fields.identifier = control & 2 ? "sshd" : "";
  fields.pid = control & 4 ? "42" : "";
  fields.priority = control >> 5;
  fields.realtimeUsec = 1700000000000000;
  logd::AccountNames accounts;
  logd::LogEntry row = logd::SystemRow(fields, &accounts);
  if (row.level < 1 || row.level > 3) __builtin_trap();
  CheckText(logd::MessageText(message, fields.messageCut));
  logd::LogEntry connection;
  if (logd::ConnectionRow(fields, &connection)) {
    if (fields.identifier != "sshd" || connection.user.empty()) __builtin_trap();
    if (connection.store != logd::Store::kConnection) __builtin_trap();
  }

  logd::CursorOrder a = logd::ParseCursor(cursor);
  logd::CursorOrder b = logd::ParseCursor(message);
  if (a.valid && (a.seqnumId.empty() || logd::IsAfter(a, a))) __builtin_trap();
  if (a.valid && b.valid && logd::EntriesBetween(b, a) < -1) __builtin_trap();
  return 0;
}
