// follow and context: reads of the database stores by row id, each one statement.
#include "search/position_methods.h"

#include <unistd.h>

#include <algorithm>

#include "catalogue/log_types.h"
#include "catalogue/text_helpers.h"
#include "platform/logfiles.h"
#include "platform/root.h"
#include "platform/systemlog.h"
#include "search/search_result.h"
#include "sources/record_fields.h"
#include "sources/sql_query.h"

namespace {

const int kErrorInvalidParameter = 120;
const int kErrorUnreadableStore = 5101;
const int64_t kDefaultContext = 10, kMaxContext = 100;

void Refuse(QUOR::APIResponse* response, const std::string& name, const std::string& reason) {
  Json::Value detail(Json::objectValue);
  detail["name"] = name;
  detail["reason"] = reason;
  response->SetError(kErrorInvalidParameter, detail);
}

bool ReadSearch(const QUOR::APIRequest& request, QUOR::APIResponse* response,
                SearchRequest* search) {
  std::string name, reason;
  if (ReadSearchRequest(request, search, &name, &reason)) return true;
  Refuse(response, name, reason);
  return false;
}

// An integer parameter within [min, max], def when absent; false (answered 120) otherwise.
bool IntegerParam(const QUOR::APIRequest& request, QUOR::APIResponse* response, const char* name,
                  int64_t def, int64_t min, int64_t max, int64_t* out) {
  *out = def;
  if (!request.HasParam(name)) return true;
  Json::Value value = request.GetParam(name, Json::Value());
  if (!value.isInt64()) {
    Refuse(response, name, "type");
    return false;
  }
  *out = value.asInt64();
  if (*out >= min && *out <= max) return true;
  Refuse(response, name, "condition");
  return false;
}

// The database stores of a search opened on one connection: the first existing one as "main",
// the others attached under their type name. A missing store is left out.
class Stores {
 public:
  explicit Stores(const SearchRequest& search) : search_(search), merged_("") {}

  // False (logged, 5101 answered) when a store exists but cannot be opened.
  bool Open(QUOR::APIResponse* response) {
    SzList types(SLIBCSzListAlloc(8));
    if (types == nullptr) return Fail(response, "memory allocation failed");
    for (const std::string& type : search_.types) SLIBCSzListPush(SzListSlot(&types), type.c_str());
    bool transfer = search_.logClass == LogClass::kTransfer;
    bool connected = merged_.AddTypes(types.get(), [&](const char* name, std::string* path) {
      if (transfer) {
        *path = XferlogDBPathGet(name);
      } else {
        const char* file = LogDatabaseFile(name);
        *path = file != nullptr ? QuorResolvePath(file) : std::string();
      }
      if (path->empty()) return false;
      if (access(path->c_str(), F_OK) == 0) {
        schemas_.emplace_back(name, schemas_.empty() ? "main" : name);
      }
      return true;
    });
    if (!connected) return Fail(response, "the database cannot be opened");
    return true;
  }

  // Runs sql; false (logged, 5101 answered) when it fails.
  bool Run(const std::string& sql, QUOR::APIResponse* response, QuorDbRows* rows) {
    PQUORDBRESULT result = nullptr;
    int rc = QUORDBExecute(merged_.connection(), sql.c_str(), &result);
    rows->reset(result);
    if (rc < 0) return Fail(response, QUORDBErrorGet(merged_.connection()));
    return true;
  }

  // (type, schema) of each store opened, in request order.
  const std::vector<std::pair<std::string, std::string>>& schemas() const { return schemas_; }
  // The one-store select of every column, the type and display names and the severity.
  std::string Select() {
    const char* severity = search_.logClass == LogClass::kTransfer
                               ? "1"
                               : "(CASE level WHEN 'err' THEN 3 WHEN 'warning' THEN 2 ELSE 1 END)";
    std::string shown = search_.logClass == LogClass::kDisk ? " WHERE SHOW = 1" : "";
    return "SELECT *, " + std::string(severity) + " AS severity FROM (" + merged_.sql() + ")" +
           shown;
  }

 private:
  bool Fail(QUOR::APIResponse* response, const std::string& reason) {
    SLIBCSysLog(LOG_ERR, "QUOR.LogCenter.Search: cannot read the %s logs: %s",
                search_.types.empty() ? "" : search_.types[0].c_str(), reason.c_str());
    Json::Value detail(Json::objectValue);
    detail["logtype"] = search_.types.empty() ? "" : search_.types[0];
    detail["reason"] = reason;
    response->SetError(kErrorUnreadableStore, detail);
    return false;
  }

  const SearchRequest& search_;
  MergedSelect merged_;
  std::vector<std::pair<std::string, std::string>> schemas_;
};

struct ContextRequest {
  SearchRequest search;
  int64_t id = 0, count = kDefaultContext;
};

bool ReadContext(const QUOR::APIRequest& request, QUOR::APIResponse* response,
                 ContextRequest* context) {
  if (!ReadSearch(request, response, &context->search)) return false;
  if (context->search.logClass == LogClass::kPlain || context->search.types.size() != 1) {
    Refuse(response, "logtype", "condition");
    return false;
  }
  if (!request.HasParam("id")) {
    Refuse(response, "id", "required");
    return false;
  }
  return IntegerParam(request, response, "id", 0, 1, INT64_MAX, &context->id) &&
         IntegerParam(request, response, "count", kDefaultContext, 1, kMaxContext, &context->count);
}

}  // namespace

bool CheckFollowParams(QUOR::APIRequest* request, QUOR::APIResponse* response) {
  SearchRequest search;
  return ReadSearch(*request, response, &search);
}

void FollowMethod(QUOR::APIRequest* request, QUOR::APIResponse* response) {
  try {
    SearchRequest search;
    if (!ReadSearch(*request, response, &search)) return;
    Json::Value answer(Json::objectValue);
    answer["marks"] = Json::Value(Json::objectValue);
    answer["oldest"] = Json::Value(Json::objectValue);
    if (search.logClass == LogClass::kPlain) return response->SetSuccess(std::move(answer));
    Stores stores(search);
    if (!stores.Open(response)) return;
    if (stores.schemas().empty()) return response->SetSuccess(std::move(answer));
    // One statement reads every store's newest and oldest id (the two ends of each row-id
    // tree), so the marks are of one moment.
    std::string sql;
    for (const auto& [type, schema] : stores.schemas()) {
      if (!sql.empty()) sql += " UNION ALL ";
      sql += "SELECT '" + type + "', (SELECT max(id) FROM " + schema +
             ".logs), (SELECT min(id) FROM " + schema + ".logs)";
    }
    QuorDbRows rows;
    if (!stores.Run(sql, response, &rows)) return;
    QUORDBROW row;
    while (QUORDBFetchRow(rows.get(), &row) == 0) {
      const char* type = QUORDBFetchFieldAt(rows.get(), row, 0);
      const char* newest = QUORDBFetchFieldAt(rows.get(), row, 1);
      const char* oldest = QUORDBFetchFieldAt(rows.get(), row, 2);
      if (type == nullptr) continue;
      answer["marks"][type] = static_cast<Json::Int64>(newest != nullptr ? ReadInteger(newest) : 0);
      answer["oldest"][type] =
          static_cast<Json::Int64>(oldest != nullptr ? ReadInteger(oldest) : 0);
    }
    response->SetSuccess(std::move(answer));
  } catch (const std::exception& e) {
    SLIBCSysLog(LOG_ERR, "QUOR.LogCenter.Search: follow failed: %s", e.what());
  }
}

bool CheckContextParams(QUOR::APIRequest* request, QUOR::APIResponse* response) {
  ContextRequest context;
  return ReadContext(*request, response, &context);
}

void ContextMethod(QUOR::APIRequest* request, QUOR::APIResponse* response) {
  try {
    ContextRequest context;
    if (!ReadContext(*request, response, &context)) return;
    Stores stores(context.search);
    if (!stores.Open(response)) return;
    if (stores.schemas().empty()) return Refuse(response, "id", "condition");
    // Before and after by (time, id), each read down the time index from the entry: the cost
    // is the rows answered, whatever the size of the store.
    const std::string id = std::to_string(context.id);
    const std::string limit = std::to_string(context.count + 1);
    const std::string select = stores.Select();
    const std::string at = "(SELECT time FROM main.logs WHERE id = " + id + ")";
    std::string sql = "SELECT * FROM (SELECT * FROM (" + select + ") WHERE (time, id) < (" + at +
                      ", " + id + ") ORDER BY time DESC, id DESC LIMIT " + limit +
                      ") UNION ALL SELECT * FROM (" + select + ") WHERE id = " + id +
                      " UNION ALL SELECT * FROM (SELECT * FROM (" + select +
                      ") WHERE (time, id) > (" + at + ", " + id +
                      ") ORDER BY time ASC, id ASC LIMIT " + limit + ")";
    QuorDbRows rows;
    if (!stores.Run(sql, response, &rows)) return;
    Json::Value items(Json::arrayValue);
    AddRecords(context.search, rows.get(), &items);
    // The rows come as before (newest first, one more than asked), the entry, then after
    // (oldest first, one more than asked).
    int64_t index = -1;
    for (Json::ArrayIndex i = 0; i < items.size(); ++i) {
      if (items[i]["id"].asString() == id) index = i;
    }
    if (index < 0) return Refuse(response, "id", "condition");
    const int64_t after = static_cast<int64_t>(items.size()) - index - 1;
    const int64_t before = std::min(index, context.count);
    Json::Value ordered(Json::arrayValue);
    for (int64_t i = before - 1; i >= 0; --i) ordered.append(items[static_cast<int>(i)]);
    for (int64_t i = index; i <= index + std::min(after, context.count); ++i) {
      ordered.append(items[static_cast<int>(i)]);
    }
    Json::Value answer(Json::objectValue);
    answer["items"] = std::move(ordered);
    answer["index"] = static_cast<Json::Int64>(before);
    answer["moreBefore"] = index > context.count;
    answer["moreAfter"] = after > context.count;
    response->SetSuccess(std::move(answer));
  } catch (const std::exception& e) {
    SLIBCSysLog(LOG_ERR, "QUOR.LogCenter.Search: context failed: %s", e.what());
  }
}
