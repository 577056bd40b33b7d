// A module method called in process, as a server worker calls it.
#pragma once

#include <json/value.h>

#include "platform/webapi.h"

using MethodFunction = void (*)(QUOR::APIRequest*, QUOR::APIResponse*);

// The data of method's answer to params (a JSON text or value) for the administrator in
// English; the error code as a number when it fails.
inline Json::Value CallMethod(MethodFunction method, const Json::Value& params) {
  QUOR::APIRequest request(params, "admin", "en");
  QUOR::APIResponse response;
  method(&request, &response);
  return response.IsSuccess() ? response.GetData() : Json::Value(response.GetErrorCode());
}

inline Json::Value CallMethod(MethodFunction method, const char* params) {
  return CallMethod(method, QUOR::WebAPIUtil::ParseJson(params));
}
