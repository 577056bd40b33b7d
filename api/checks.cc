// The checkers: type checks of every parameter in table order, then one allowed-value rule.
#include "api/checks.h"

#include <vector>

namespace {

using QUOR::APIParameter;
using QUOR::APIRequest;
using QUOR::APIResponse;
using QUOR::PARAM_NECESSITY;

const int kErrorInvalidParameter = 120;

enum class Kind { kText, kInteger };

struct ParamRule {
  const char* name;
  Kind kind;
  PARAM_NECESSITY necessity;
};

// A fetched parameter reduced to what the reasons need.
struct Fetched {
  const char* name;
  bool invalid;
  bool set;
};

const std::vector<ParamRule> kListRules = {
    {"logtype", Kind::kText, QUOR::PARAM_OPTIONAL},
    {"offset", Kind::kInteger, QUOR::PARAM_OPTIONAL},
    {"limit", Kind::kInteger, QUOR::PARAM_OPTIONAL},
    {"date_from", Kind::kInteger, QUOR::PARAM_OPTIONAL},
    {"date_to", Kind::kInteger, QUOR::PARAM_OPTIONAL},
    {"keyword", Kind::kText, QUOR::PARAM_OPTIONAL},
    {"level", Kind::kText, QUOR::PARAM_OPTIONAL},
};

// The list's parameters, then the format.
const std::vector<ParamRule> kExportRules = [] {
  std::vector<ParamRule> rules = kListRules;
  rules.push_back({"format", Kind::kText, QUOR::PARAM_OPTIONAL});
  return rules;
}();

const std::vector<ParamRule> kClearRules = {
    {"category", Kind::kText, QUOR::PARAM_REQUIRED},
    {"logtype", Kind::kText, QUOR::PARAM_OPTIONAL},
    {"path", Kind::kText, QUOR::PARAM_OPTIONAL},
};

bool Refuse(APIResponse* response, const char* name, const char* reason) {
  Json::Value detail(Json::objectValue);
  detail["name"] = name;
  detail["reason"] = reason;
  response->SetError(kErrorInvalidParameter, detail);
  return false;
}

// Fetches every rule's parameter first, then reports the first invalid one.
bool CheckTypes(const APIRequest& request, APIResponse* response,
                const std::vector<ParamRule>& rules) {
  std::vector<Fetched> fetched;
  for (const ParamRule& rule : rules) {
    if (rule.kind == Kind::kText) {
      APIParameter<std::string> p = request.GetAndCheckString(rule.name, rule.necessity, nullptr);
      fetched.push_back({rule.name, p.IsInvalid(), p.IsSet()});
    } else {
      APIParameter<int> p = request.GetAndCheckInt(rule.name, rule.necessity, nullptr);
      fetched.push_back({rule.name, p.IsInvalid(), p.IsSet()});
    }
  }
  for (const Fetched& f : fetched) {
    if (f.invalid) return Refuse(response, f.name, f.set ? "type" : "required");
  }
  return true;
}

bool IsAllowed(const APIRequest& request, const char* name, const char* allowedJson) {
  APIParameter<std::string> p = request.GetAndCheckString(name, QUOR::PARAM_OPTIONAL, nullptr);
  return QUOR::APIValidator::IsBelong(p, QUOR::WebAPIUtil::ParseJson(allowedJson));
}

}  // namespace

bool CheckListParams(APIRequest* request, APIResponse* response) {
  return CheckTypes(*request, response, kListRules);
}

bool CheckExportParams(APIRequest* request, APIResponse* response) {
  if (!CheckTypes(*request, response, kExportRules)) return false;
  if (request->HasParam("format") && !IsAllowed(*request, "format", "[\"html\", \"csv\"]")) {
    return Refuse(response, "format", "condition");
  }
  return true;
}

bool CheckClearParams(APIRequest* request, APIResponse* response) {
  if (!CheckTypes(*request, response, kClearRules)) return false;
  if (IsAllowed(*request, "category", "[\"native\", \"archive\"]")) return true;
  return Refuse(response, "category", "condition");
}

bool CheckAlwaysPass(APIRequest*, APIResponse*) { return true; }
