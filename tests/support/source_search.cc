// Helpers of the log-source tests.
#include "tests/support/source_search.h"

LogSearch SourceSearch(const std::string& types) {
  LogSearch search;
  search.logtype = types;
  search.sort = "time";
  search.date_from = search.date_to = "0";
  return search;
}

PSLIBSZLIST TypeListOf(const std::string& types) {
  PSLIBSZLIST list = SLIBCSzListAlloc(8);
  SLIBCStrSep(types.c_str(), ",", &list);
  return list;
}

std::vector<std::string> RecordValues(const std::vector<Json::Value>& records, const char* key) {
  std::vector<std::string> values;
  for (const Json::Value& record : records) values.push_back(record[key].asString());
  return values;
}
