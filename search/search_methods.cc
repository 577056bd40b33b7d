// The methods of QUOR.LogCenter.Search: query and histogram, and their checker.
#include "search/search_methods.h"

#include "catalogue/log_levels.h"
#include "search/search_result.h"
#include "sources/core_log.h"

namespace {

// The module's name on every line it writes, the core's lines included.
const ModuleLog kSearchLog = {"QUOR.LogCenter.Search"};

const int kErrorInvalidParameter = 120;
const int kErrorUnreadableStore = 5101;

bool Read(const QUOR::APIRequest& request, QUOR::APIResponse* response, SearchRequest* search) {
  std::string name, reason;
  if (ReadSearchRequest(request, search, &name, &reason)) return true;
  Json::Value detail(Json::objectValue);
  detail["name"] = name;
  detail["reason"] = reason;
  response->SetError(kErrorInvalidParameter, detail);
  return false;
}

void AnswerFailure(const QUOR::APIRequest& request, const SearchFailure& failure,
                   QUOR::APIResponse* response) {
  if (failure.wideRange) {
    Json::Value detail(Json::objectValue);
    detail["name"] = "from";
    detail["reason"] = "condition";
    return response->SetError(kErrorInvalidParameter, detail);
  }
  Json::Value detail(Json::objectValue);
  detail["logtype"] = request.GetParam("logtype", "system");
  detail["reason"] = failure.reason;
  if (!failure.store.empty()) detail["store"] = failure.store;
  response->SetError(kErrorUnreadableStore, detail);
}

}  // namespace

bool CheckSearchParams(QUOR::APIRequest* request, QUOR::APIResponse* response) {
  LogScope scope(kSearchLog);
  SearchRequest search;
  return Read(*request, response, &search);
}

namespace {

// The matches of the request's search (the page, the counts, or both): false when the call has
// been answered with an error.
bool Search(const QUOR::APIRequest& request, SearchRequest* search, QueryResult* result,
            QUOR::APIResponse* response) {
  if (!Read(request, response, search)) return false;
  SearchFailure failure;
  bool ok = search->logClass == LogClass::kPlain ? QueryPlain(*search, result, &failure)
                                                 : QueryDatabases(*search, result, &failure);
  if (!ok) AnswerFailure(request, failure, response);
  return ok;
}

// Sets "total" and "levels" of answer from result, or null when they were not counted.
void PutCounts(const QueryResult& result, bool counted, Json::Value* answer) {
  (*answer)["total"] =
      counted ? Json::Value(static_cast<Json::Int64>(result.total)) : Json::Value();
  Json::Value levels(Json::objectValue);
  for (const LogLevel* level = kLogLevels; level->number != 0; ++level) {
    levels[level->recordWord] = static_cast<Json::Int64>(result.levels[level->number]);
  }
  (*answer)["levels"] = counted ? levels : Json::Value();
}

}  // namespace

void QueryMethod(QUOR::APIRequest* request, QUOR::APIResponse* response) {
  LogScope scope(kSearchLog);
  try {
    SearchRequest search;
    QueryResult result;
    if (!Search(*request, &search, &result, response)) return;
    Json::Value answer(Json::objectValue);
    PutCounts(result, search.counts, &answer);
    answer["items"] = std::move(result.items);
    answer["partial"] = result.partial;
    response->SetSuccess(std::move(answer));
  } catch (const std::exception& e) {
    // Only memory exhaustion gets here; the call then stays unanswered.
    LOG_ERROR_HERE("query failed: %s", e.what());
  }
}

void CountMethod(QUOR::APIRequest* request, QUOR::APIResponse* response) {
  LogScope scope(kSearchLog);
  try {
    SearchRequest search;
    search.page = false;
    QueryResult result;
    if (!Search(*request, &search, &result, response)) return;
    Json::Value answer(Json::objectValue);
    PutCounts(result, true, &answer);
    answer["partial"] = result.partial;
    response->SetSuccess(std::move(answer));
  } catch (const std::exception& e) {
    LOG_ERROR_HERE("count failed: %s", e.what());
  }
}

void HistogramMethod(QUOR::APIRequest* request, QUOR::APIResponse* response) {
  LogScope scope(kSearchLog);
  try {
    SearchRequest search;
    if (!Read(*request, response, &search)) return;
    Histogram histogram;
    SearchFailure failure;
    bool ok = search.logClass == LogClass::kPlain
                  ? HistogramOfPlain(search, &histogram, &failure)
                  : HistogramOfDatabases(search, &histogram, &failure);
    if (!ok) return AnswerFailure(*request, failure, response);
    Json::Value answer(Json::objectValue);
    answer["from"] = static_cast<Json::Int64>(histogram.from);
    answer["to"] = static_cast<Json::Int64>(histogram.to);
    answer["bucket"] = static_cast<Json::Int64>(histogram.bucket);
    answer["counts"] = std::move(histogram.counts);
    response->SetSuccess(std::move(answer));
  } catch (const std::exception& e) {
    LOG_ERROR_HERE("histogram failed: %s", e.what());
  }
}
