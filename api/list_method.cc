// The list method: one page of records with the total and the counts per level.
#include <vector>

#include "api/fetch_logs.h"
#include "api/methods.h"
#include "api/module_log.h"

namespace {

using QUOR::WebAPIUtil::ToInt;
using QUOR::WebAPIUtil::ToText;

// What the method keeps for one call besides the search.
struct ListResult {
  std::string target;  // read and kept; it selects nothing
  LevelCounts counts;
  std::vector<Json::Value> records;
};

// Reads the request into the search. Defaults as the interface has always assumed: the system
// log, newest first, records 0 to 99, every level. "offset" defaults to the text "0"; numbers
// given as texts read as numbers and integer dates as their decimal text.
void ReadSearch(const QUOR::APIRequest& request, LogSearch* search, ListResult* result) {
  result->target = ToText(request.GetParam("target", "LOCAL"));
  search->logtype = ToText(request.GetParam("logtype", "system"));
  search->offset = ToInt(request.GetParam("offset", "0"));
  search->limit = ToInt(request.GetParam("limit", 100));
  search->sort = ToText(request.GetParam("sort", "time"));
  search->ascending = false;
  search->level = ToText(request.GetParam("level", "info,warning,err"));
  search->date_from = ToText(request.GetParam("date_from", "0"));
  search->date_to = ToText(request.GetParam("date_to", "0"));
  search->keyword = ToText(request.GetParam("keyword", ""));
  search->hostname = ToText(request.GetParam("hostname", ""));
  search->program = ToText(request.GetParam("program", ""));
  search->category = ToText(request.GetParam("category", ""));
}

}  // namespace

void ListMethod(QUOR::APIRequest* request, QUOR::APIResponse* response) {
  try {
    LogSearch search;
    ListResult result;
    ReadSearch(*request, &search, &result);
    int total = FetchLogs(&search, &result.records, &result.counts);

    Json::Value items(Json::arrayValue);
    for (Json::Value& record : result.records) items.append(std::move(record));
    Json::Value answer;
    answer["total"] = total;
    answer["items"] = std::move(items);
    answer["infoCount"] = result.counts.info;
    answer["warnCount"] = result.counts.warn;
    answer["errorCount"] = result.counts.error;
    response->SetSuccess(answer);
  } catch (const std::exception& e) {
    // Only memory exhaustion gets here; the call then stays unanswered (error 100).
    LOG_ERROR_AT(87, "list failed: %s", e.what());
  }
}
