// The parameters of QUOR.LogCenter.Search.
#include "search/search_request.h"

#include <string.h>
#include <strings.h>

#include <algorithm>

#include "catalogue/log_levels.h"
#include "catalogue/log_types.h"
#include "catalogue/type_lists.h"
#include "platform/slibc.h"

namespace {

// True when key is a record key the class sorts by (the plain-text class sorts in memory by
// any of its keys).
bool Sortable(const std::string& key, const LogClassInfo& info) {
  const LogColumn* column = FindColumn(info, key);
  return column != nullptr && (column->sortBy != nullptr || info.id == LogClass::kPlain);
}

// A text parameter: absent gives def; present and not a string is a type error.
bool Text(const QUOR::APIRequest& request, const char* name, const char* def, std::string* out) {
  if (!request.HasParam(name)) {
    *out = def;
    return true;
  }
  Json::Value value = request.GetParam(name, Json::Value());
  if (!value.isString()) return false;
  *out = value.asString();
  return true;
}

// An integer parameter within [min, max]: *type tells a kind error from a range error.
bool Integer(const QUOR::APIRequest& request, const char* name, int64_t def, int64_t min,
             int64_t max, int64_t* out, bool* type) {
  *type = false;
  if (!request.HasParam(name)) {
    *out = def;
    return true;
  }
  Json::Value value = request.GetParam(name, Json::Value());
  if (!value.isInt64()) {
    *type = true;
    return false;
  }
  *out = value.asInt64();
  return *out >= min && *out <= max;
}

// The log types of a logtype text, all of one class; false when they are not.
bool ResolveTypes(const std::string& text, SearchRequest* search) {
  std::string mapped = MapCategoriesToLogTypes(text);
  PSLIBSZLIST split = nullptr;
  if (mapped.empty() || SplitLogTypes(mapped, &split) < 0) return false;
  SzList types(split);
  if (types->nItem == 0) return false;
  for (int i = 0; i < types->nItem; ++i) {
    const char* type = SLIBCSzListGet(types.get(), i);
    if (type == nullptr || FindLogTypeEntry(type) == nullptr) return false;
    search->types.push_back(type);
  }
  const LogClassInfo* info = ClassOfTypes(types.get());
  if (info == nullptr) return false;
  search->logClass = info->id;
  return info->merges || types->nItem == 1;
}

bool ReadLevels(const std::string& text, SearchRequest* search) {
  if (text.empty()) return true;
  bool wanted[4] = {false, false, false, false};
  size_t at = 0;
  while (at <= text.size()) {
    size_t comma = text.find(',', at);
    if (comma == std::string::npos) comma = text.size();
    std::string word = text.substr(at, comma - at);
    at = comma + 1;
    // A level by its record word ("warn") or its search name ("warning").
    const LogLevel* level = LogLevelByRecordWord(word.c_str());
    if (level == nullptr) level = LogLevelBySearchName(word.c_str());
    if (level == nullptr) return false;
    wanted[level->number] = true;
  }
  for (int i = 1; i <= 3; ++i) search->levels[i] = wanted[i];
  search->levelFiltered = true;
  return true;
}

// Reads "exclude" ({"<key>": ["<text>", ...], ...}): "type" when it is not an object of lists
// of texts, "condition" for a key that names no user or log of the class, a text with a NUL
// character or more than kMaxExcluded texts in all.
const char* ReadExclusions(const Json::Value& value, SearchRequest* search) {
  const int kMaxExcluded = 100;
  if (!value.isObject()) return "type";
  const LogClassInfo& info = ClassInfo(search->logClass);
  int count = 0;
  for (const std::string& key : value.getMemberNames()) {
    const Json::Value& list = value[key];
    if (!list.isArray()) return "type";
    Exclusion exclusion;
    for (const Json::Value& item : list) {
      if (!item.isString()) return "type";
      std::string text = item.asString();
      if (text.find('\0') != std::string::npos || ++count > kMaxExcluded) return "condition";
      exclusion.values.push_back(text);
    }
    const LogColumn* column = FindColumn(info, key);
    bool user = key == "who" || key == "username";
    if (column == nullptr || column->column == nullptr || (!user && key != "orginalLogType")) {
      return "condition";
    }
    if (user) {
      exclusion.key = key;
      exclusion.column = column->column;
      if (!exclusion.values.empty()) search->excluded.push_back(std::move(exclusion));
      continue;
    }
    // A log left out is not read at all.
    auto& types = search->types;
    for (const std::string& log : exclusion.values) {
      types.erase(std::remove_if(types.begin(), types.end(),
                                 [&](const std::string& type) {
                                   return strcasecmp(type.c_str(), log.c_str()) == 0;
                                 }),
                  types.end());
    }
  }
  return nullptr;
}

// Reads row ids ({"<type>": row id >= 0, ...}) into *ids; a type the request does not read is
// ignored.
const char* ReadStoreIds(const Json::Value& value, const SearchRequest& search, StoreIds* ids) {
  if (!value.isObject()) return "type";
  if (search.logClass == LogClass::kPlain) return "condition";
  for (const std::string& key : value.getMemberNames()) {
    if (!value[key].isInt64()) return "type";
    if (value[key].asInt64() < 0) return "condition";
    for (const std::string& type : search.types) {
      if (strcasecmp(type.c_str(), key.c_str()) == 0) {
        ids->ids.emplace_back(type, value[key].asInt64());
      }
    }
  }
  ids->given = true;
  return nullptr;
}

}  // namespace

std::vector<std::string> SplitTerms(const std::string& q) {
  std::vector<std::string> terms;
  const char* const kBlanks = " \t\n\r";
  size_t at = 0;
  while (at < q.size()) {
    if (strchr(kBlanks, q[at]) != nullptr) {
      ++at;
    } else if (q[at] == '"') {
      size_t close = q.find('"', at + 1);
      if (close == std::string::npos) close = q.size();
      std::string phrase = q.substr(at + 1, close - at - 1);
      if (!phrase.empty()) terms.push_back(phrase);
      at = close + 1;
    } else {
      // A quote inside a word is one of its characters.
      size_t end = q.find_first_of(kBlanks, at);
      if (end == std::string::npos) end = q.size();
      terms.push_back(q.substr(at, end - at));
      at = end;
    }
  }
  return terms;
}

bool ReadSearchRequest(const QUOR::APIRequest& request, SearchRequest* search, std::string* name,
                       std::string* reason) {
  auto refuse = [&](const char* param, const char* why) {
    *name = param;
    *reason = why;
    return false;
  };
  std::string logtype, level, q, sort, order;
  if (!Text(request, "logtype", "system", &logtype)) return refuse("logtype", "type");
  if (!Text(request, "level", "", &level)) return refuse("level", "type");
  if (!Text(request, "q", "", &q)) return refuse("q", "type");
  if (!Text(request, "sort", "time", &sort)) return refuse("sort", "type");
  if (!Text(request, "order", "desc", &order)) return refuse("order", "type");
  bool type = false;
  int64_t buckets = 0;
  const int64_t kMax = INT64_MAX, kMin = INT64_MIN;
  if (!Integer(request, "from", 0, kMin, kMax, &search->from, &type)) return refuse("from", "type");
  if (!Integer(request, "to", 0, kMin, kMax, &search->to, &type)) return refuse("to", "type");
  if (!Integer(request, "offset", 0, 0, INT32_MAX, &search->offset, &type)) {
    return refuse("offset", type ? "type" : "condition");
  }
  if (!Integer(request, "limit", 50, 1, 1000, &search->limit, &type)) {
    return refuse("limit", type ? "type" : "condition");
  }
  if (!Integer(request, "buckets", 60, 1, 500, &buckets, &type)) {
    return refuse("buckets", type ? "type" : "condition");
  }
  search->buckets = static_cast<int>(buckets);
  if (request.HasParam("counts")) {
    Json::Value counts = request.GetParam("counts", Json::Value());
    if (!counts.isBool()) return refuse("counts", "type");
    search->counts = counts.asBool();
  }
  search->hasFrom = request.HasParam("from");
  search->hasTo = request.HasParam("to");
  if (!ResolveTypes(logtype, search)) return refuse("logtype", "condition");
  if (!ReadLevels(level, search)) return refuse("level", "condition");
  if (order != "desc" && order != "asc") return refuse("order", "condition");
  search->ascending = order == "asc";
  if (!Sortable(sort, ClassInfo(search->logClass))) return refuse("sort", "condition");
  search->sort = sort;
  search->terms = SplitTerms(q);
  if (request.HasParam("exclude")) {
    const char* why = ReadExclusions(request.GetParam("exclude", Json::Value()), search);
    if (why != nullptr) return refuse("exclude", why);
  }
  for (auto bound :
       {std::make_pair("after", &search->after), std::make_pair("through", &search->through)}) {
    if (!request.HasParam(bound.first)) continue;
    const char* why =
        ReadStoreIds(request.GetParam(bound.first, Json::Value()), *search, bound.second);
    if (why != nullptr) return refuse(bound.first, why);
  }
  // Transfer logs have no levels: a level filter selects nothing away.
  if (search->logClass == LogClass::kTransfer) {
    for (int i = 1; i <= 3; ++i) search->levels[i] = true;
    search->levelFiltered = false;
  }
  return true;
}
