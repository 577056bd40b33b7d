// The storage manager's decoders: disk event codes to localized messages, drive slots to their
// display forms and back. The knowledge is in the code table and the texts; this file only
// walks them.
#include <json/reader.h>
#include <json/value.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "platform/disk.h"
#include "platform/disk_codes.h"
#include "platform/root.h"
#include "platform/stringbundle.h"
#include "upper_text.h"

namespace {

const char kInternalSlotKey[] = "slot_internal";    // "Drive {drive}"
const char kExpansionSlotKey[] = "slot_expansion";  // "Expansion Unit {unit}, Drive {drive}"

// One bundle per appliance root, kept for the process: rows are decoded one by one and the
// texts must not be parsed again for each.
StringBundle& DiskTexts() {
  static std::mutex mutex;
  static std::map<std::string, std::unique_ptr<StringBundle>> byRoot;
  std::lock_guard<std::mutex> lock(mutex);
  std::unique_ptr<StringBundle>& bundle = byRoot[QuorRoot()];
  if (!bundle) bundle.reset(new StringBundle(QUOR_DISK_TEXTS_SECTION));
  return *bundle;
}

const DiskEventCode* FindCode(const char* code) {
  for (const DiskEventCode* c = kDiskEventCodes; c->code != nullptr; ++c) {
    if (strcmp(c->code, code) == 0) return c;
  }
  return nullptr;
}

std::string ValueText(const Json::Value& value) {
  if (value.isString()) return value.asString();
  if (value.isInt64()) return std::to_string(value.asLargestInt());
  if (value.isUInt64()) return std::to_string(value.asLargestUInt());
  if (value.isDouble() || value.isBool()) return value.asString();
  return "-";
}

// Walks pattern: its literal text goes to text(), each "{name}" to placeholder(name).
template <typename Text, typename Placeholder>
void WalkTemplate(const std::string& pattern, Text text, Placeholder placeholder) {
  size_t pos = 0;
  while (pos < pattern.size()) {
    size_t open = pattern.find('{', pos);
    size_t close = open == std::string::npos ? open : pattern.find('}', open);
    if (close == std::string::npos) {
      text(pattern.substr(pos));
      return;
    }
    text(pattern.substr(pos, open - pos));
    placeholder(pattern.substr(open + 1, close - open - 1));
    pos = close + 1;
  }
}

// Replaces each "{name}" of pattern with values[name] ("-" when absent).
std::string FillTemplate(const std::string& pattern, const Json::Value& values) {
  std::string out;
  WalkTemplate(
      pattern, [&](const std::string& text) { out += text; },
      [&](const std::string& name) {
        const Json::Value* value =
            values.isObject() ? values.find(name.data(), name.data() + name.size()) : nullptr;
        out += value != nullptr ? ValueText(*value) : "-";
      });
  return out;
}

// Copies text into buffer, truncated to fit. Returns 0, or -1 when nothing fits.
int CopyOut(const std::string& text, char* buffer, size_t size) {
  if (buffer == nullptr || size == 0) return -1;
  snprintf(buffer, size, "%s", text.c_str());
  return 0;
}

bool AllDigits(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// The expansion unit named by a device path of the form ".../eunit<N>...", or "".
std::string UnitFromPath(const char* path) {
  const char* at = path != nullptr ? strstr(path, "eunit") : nullptr;
  if (at == nullptr) return std::string();
  at += 5;
  size_t digits = strspn(at, "0123456789");
  return std::string(at, digits);
}

// Matches text against a slot template: the literal parts ignoring ASCII letter case, each
// placeholder against a run of digits. Fills *values with the digits by placeholder name.
bool MatchSlotTemplate(const std::string& pattern, const std::string& text,
                       std::map<std::string, std::string>* values) {
  size_t p = 0;
  size_t t = 0;
  while (p < pattern.size()) {
    if (pattern[p] == '{') {
      size_t close = pattern.find('}', p);
      if (close == std::string::npos) return false;
      size_t digits = 0;
      while (t + digits < text.size() && isdigit(static_cast<unsigned char>(text[t + digits]))) {
        ++digits;
      }
      if (digits == 0) return false;
      (*values)[pattern.substr(p + 1, close - p - 1)] = text.substr(t, digits);
      t += digits;
      p = close + 1;
      continue;
    }
    if (t >= text.size() || tolower(static_cast<unsigned char>(pattern[p])) !=
                                tolower(static_cast<unsigned char>(text[t]))) {
      return false;
    }
    ++p;
    ++t;
  }
  return t == text.size();
}

std::string Trim(const char* text) {
  std::string s = text;
  size_t b = s.find_first_not_of(" \t");
  if (b == std::string::npos) return std::string();
  return s.substr(b, s.find_last_not_of(" \t") - b + 1);
}

// The literal parts of a template, without its placeholders, joined by a line feed so that a
// keyword never matches across a placeholder.
std::string TemplateWords(const std::string& pattern) {
  std::string words;
  WalkTemplate(
      pattern, [&](const std::string& text) { words += text; },
      [&](const std::string&) { words += '\n'; });
  return words;
}

}  // namespace

namespace QUOR {
namespace SDS {
namespace STORAGE_MANAGER {
namespace Disk {

int DiskLogConverter(const char* msg, const char* info, char* buffer, size_t size) {
  if (buffer == nullptr || size == 0) return -1;
  buffer[0] = '\0';
  if (msg == nullptr) return -1;
  const DiskEventCode* code = FindCode(msg);
  const char* pattern = code != nullptr ? DiskTexts().Text(code->code, nullptr) : "";
  if (pattern[0] == '\0') {
    CopyOut(msg, buffer, size);
    return -1;
  }
  // An info text that cannot be read (malformed, nested past the reader's depth limit) leaves
  // every placeholder at its "-": the event still shows.
  Json::Value values;
  if (info != nullptr && info[0] != '\0') {
    try {
      Json::CharReaderBuilder builder;
      std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
      std::string errors;
      if (!reader->parse(info, info + strlen(info), &values, &errors)) values = Json::Value();
    } catch (const std::exception&) {
      values = Json::Value();
    }
  }
  return CopyOut(FillTemplate(pattern, values), buffer, size);
}

int DiskLogKeywordTranform(const char* keyword, PSLIBSZLIST* list) {
  if (keyword == nullptr || list == nullptr || *list == nullptr) return -1;
  std::string upperKeyword;
  if (keyword[0] == '\0' || !UpperText(keyword, strlen(keyword), &upperKeyword)) return 0;
  StringBundle& texts = DiskTexts();
  int pushed = 0;
  for (const DiskEventCode* c = kDiskEventCodes; c->code != nullptr; ++c) {
    std::string words = TemplateWords(texts.Text(c->code, nullptr));
    std::string upperWords;
    if (!UpperText(words.c_str(), words.size(), &upperWords)) continue;
    if (upperWords.find(upperKeyword) == std::string::npos) continue;
    if (SLIBCSzListPush(list, c->code) != 0) return -1;
    ++pushed;
  }
  return pushed;
}

int DiskSlotConverter(const char* path, const char* slot, bool inThisUnit, char* buffer,
                      size_t size) {
  if (buffer == nullptr || size == 0) return -1;
  buffer[0] = '\0';
  if (slot == nullptr || slot[0] == '\0') return -1;
  // Stored forms: "<drive>" in the enclosure named by the row, "<unit>-<drive>" in an
  // expansion unit.
  std::string stored = slot;
  size_t dash = stored.find('-');
  std::string unit = dash == std::string::npos ? std::string() : stored.substr(0, dash);
  std::string drive = dash == std::string::npos ? stored : stored.substr(dash + 1);
  if (dash == std::string::npos && !inThisUnit) unit = UnitFromPath(path);
  bool valid = AllDigits(drive) &&
               (unit.empty() ? dash == std::string::npos && inThisUnit : AllDigits(unit));
  if (!valid) {
    CopyOut(stored, buffer, size);
    return -1;
  }
  Json::Value values(Json::objectValue);
  values["unit"] = unit;
  values["drive"] = drive;
  const char* pattern =
      DiskTexts().Text(unit.empty() ? kInternalSlotKey : kExpansionSlotKey, nullptr);
  return CopyOut(FillTemplate(pattern, values), buffer, size);
}

int DiskSlotReverseConverter(const char* keyword, char* buffer, size_t size) {
  if (keyword == nullptr || buffer == nullptr || size == 0) return 0;
  std::string text = Trim(keyword);
  StringBundle& texts = DiskTexts();
  std::map<std::string, std::string> values;
  std::string stored;
  if (MatchSlotTemplate(texts.Text(kExpansionSlotKey, nullptr), text, &values)) {
    stored = values["unit"] + "-" + values["drive"];
  } else if (values.clear(),
             MatchSlotTemplate(texts.Text(kInternalSlotKey, nullptr), text, &values)) {
    stored = values["drive"];
  } else {
    return 0;
  }
  if (stored.size() >= size) return 0;
  memcpy(buffer, stored.c_str(), stored.size() + 1);
  return 1;
}

}  // namespace Disk
}  // namespace STORAGE_MANAGER
}  // namespace SDS
}  // namespace QUOR
