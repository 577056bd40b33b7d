// Handlers whose methods are not served yet: they answer error 103 (method not available).
#include "api/methods.h"

namespace {
void NotImplemented(QUOR::APIResponse* response) {
  Json::Value detail(Json::objectValue);
  detail["reason"] = "not implemented";
  response->SetError(103, detail);
}
}  // namespace

void ListMethod(QUOR::APIRequest*, QUOR::APIResponse* response) { NotImplemented(response); }
void ExportMethod(QUOR::APIRequest*, QUOR::APIResponse* response) { NotImplemented(response); }
void ClearMethod(QUOR::APIRequest*, QUOR::APIResponse* response) { NotImplemented(response); }
