// The list method: one page of records with the total and the counts per level.
#include <vector>

#include "api/fetch_logs.h"
#include "api/methods.h"
#include "api/module_log.h"
#include "api/search_params.h"

namespace {

// What the method keeps for one call besides the search.
struct ListResult {
  std::string target;  // read and kept; it selects nothing
  LevelCounts counts;
  std::vector<Json::Value> records;
};

}  // namespace

void ListMethod(QUOR::APIRequest* request, QUOR::APIResponse* response) {
  LogScope scope(kSyslogClientLog);
  try {
    LogSearch search;
    ListResult result;
    result.target = ReadSearchParams(*request, &search);
    search.limit = QUOR::WebAPIUtil::ToInt(request->GetParam("limit", 100));
    int total = FetchLogs(&search, &result.records, &result.counts);

    Json::Value items(Json::arrayValue);
    for (Json::Value& record : result.records) items.append(std::move(record));
    Json::Value answer;
    answer["total"] = total;
    answer["items"] = std::move(items);
    answer["infoCount"] = result.counts.info;
    answer["warnCount"] = result.counts.warn;
    answer["errorCount"] = result.counts.error;
    response->SetSuccess(std::move(answer));
  } catch (const std::exception& e) {
    // Only memory exhaustion gets here; the call then stays unanswered (error 100).
    LOG_ERROR_HERE("list failed: %s", e.what());
  }
}
