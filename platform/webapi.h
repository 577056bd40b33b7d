// The web-API framework: requests, responses, parameter checks and the module tables that the
// web-API server walks.
#pragma once

#include <json/value.h>

#include <string>

// Everything declared below is the platform's exported surface.
#pragma GCC visibility push(default)

namespace QUOR {

// Whether a checked parameter must be present.
enum PARAM_NECESSITY { PARAM_REQUIRED = 0, PARAM_OPTIONAL = 1 };

// A parameter fetched for checking. IsSet: the request carries it. IsInvalid: it is present
// with a value of the wrong kind, fails its value check, or is required and absent.
// Get() holds the value when it is valid, else the kind's empty value.
template <typename T>
class APIParameter {
 public:
  APIParameter(bool set, bool invalid, T value)
      : set_(set), invalid_(invalid), value_(std::move(value)) {}
  bool IsSet() const { return set_; }
  bool IsInvalid() const { return invalid_; }
  const T& Get() const { return value_; }

 private:
  bool set_;
  bool invalid_;
  T value_;
};

// One web-API call: the named parameters as JSON values, the logged-in user's name and the
// user's interface language. Read-only for handlers and checkers.
class APIRequest {
 public:
  APIRequest(Json::Value params, std::string userName, std::string uiLanguage);

  // The parameter's value, or defaultValue when the request lacks it.
  Json::Value GetParam(const std::string& name, const Json::Value& defaultValue) const;
  bool HasParam(const std::string& name) const;

  // A text parameter is invalid when present and not a JSON string; an integer parameter
  // when present and not a JSON integer within 32 bits; either when the validator (may be
  // null) refuses the value, or when required and absent.
  APIParameter<std::string> GetAndCheckString(const std::string& name, PARAM_NECESSITY necessity,
                                              bool (*validator)(const std::string&)) const;
  APIParameter<int> GetAndCheckInt(const std::string& name, PARAM_NECESSITY necessity,
                                   bool (*validator)(int)) const;

  std::string GetLoginUserName() const { return userName_; }
  std::string GetUILanguage() const { return uiLanguage_; }
  const Json::Value& GetParams() const { return params_; }

 private:
  Json::Value params_;
  std::string userName_;
  std::string uiLanguage_;
};

// The answer of one call: unanswered until SetSuccess or SetError; the last one wins.
// A handler that writes its own output (a download) switches the output off first; the
// server then writes nothing of its own for the call.
class APIResponse {
 public:
  void SetSuccess(const Json::Value& data = Json::Value());
  void SetSuccess(Json::Value&& data);  // takes a large answer without copying it
  void SetError(int code, const Json::Value& errors = Json::Value());
  void SetEnableOutput(bool enable) {
    bool switchingOff = outputEnabled_ && !enable;
    outputEnabled_ = enable;
    if (switchingOff && outputOffHook_ != nullptr) outputOffHook_(outputOffContext_);
  }
  // The server's side of the switch: hook(context) runs once when a handler switches the
  // output off, before the handler writes anything, so the server can give the handler its
  // output channel (standard output) at that moment.
  typedef void (*OutputOffHook)(void* context);
  void SetOutputOffHook(OutputOffHook hook, void* context) {
    outputOffHook_ = hook;
    outputOffContext_ = context;
  }

  bool IsOutputEnabled() const { return outputEnabled_; }
  bool IsAnswered() const { return answered_; }
  bool IsSuccess() const { return answered_ && errorCode_ == 0; }
  int GetErrorCode() const { return errorCode_; }
  const Json::Value& GetData() const { return data_; }
  const Json::Value& GetErrors() const { return errors_; }

  // The answer envelope: {"success":true,"data":...} ("data" left out when null) or
  // {"success":false,"error":{"code":N,"errors":...}} ("errors" left out when null).
  // An unanswered response reads as error 100 (the handler gave no answer).
  Json::Value Envelope() const;

 private:
  bool answered_ = false;
  bool outputEnabled_ = true;
  OutputOffHook outputOffHook_ = nullptr;
  void* outputOffContext_ = nullptr;
  int errorCode_ = 0;
  Json::Value data_;
  Json::Value errors_;
};

namespace APIValidator {
// True when the parameter is set and its value equals one element of the JSON array list.
bool IsBelong(const APIParameter<std::string>& parameter, const Json::Value& list);
}  // namespace APIValidator

namespace WebAPIUtil {
// Parses one JSON text; a null value when the text is not exactly one JSON value.
Json::Value ParseJson(const std::string& text);
// Non-throwing conversions for handlers: a text stays itself, a number gives its decimal
// text, a boolean "true"/"false", null the empty text, an array or object its compact JSON.
std::string ToText(const Json::Value& value);
// A JSON integer within 32 bits is itself (outside: clamped); a text is read as a base-10
// integer like atoi ("12" is 12, "abc" is 0); a real is truncated; true is 1; others 0.
int ToInt(const Json::Value& value);
}  // namespace WebAPIUtil

// The rows a module exports; both tables end with an all-zero row.
typedef void (*APIHandler)(APIRequest* request, APIResponse* response);
typedef bool (*APIChecker)(APIRequest* request, APIResponse* response);

struct APIMethodEntry {
  const char* api;     // API name, e.g. "QUOR.Core.SyslogClient.Log"
  int version;         // API version
  const char* method;  // method name
  APIHandler handler;  // called only after the row's checker let the request through
};

struct APICheckEntry {
  const char* api;     // API name
  int version;         // API version
  const char* method;  // method name
  APIChecker checker;  // true: proceed; false: it has set the error already
  void* reserved1;     // always null
  void* reserved2;     // always null
};

// The exported entry points every module provides (extern "C", plain names).
typedef const APIMethodEntry* (*GetAPITableFn)();
typedef const APICheckEntry* (*GetAPICheckTableFn)();

}  // namespace QUOR

#pragma GCC visibility pop
