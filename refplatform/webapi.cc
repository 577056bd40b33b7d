// The web-API framework types: requests, responses, parameter checks, JSON conversions.
#include "platform/webapi.h"

#include <json/reader.h>
#include <json/writer.h>
#include <stdlib.h>

#include <climits>
#include <memory>

namespace QUOR {

APIRequest::APIRequest(Json::Value params, std::string userName, std::string uiLanguage)
    : params_(std::move(params)),
      userName_(std::move(userName)),
      uiLanguage_(std::move(uiLanguage)) {
  if (!params_.isObject()) params_ = Json::Value(Json::objectValue);
}

bool APIRequest::HasParam(const std::string& name) const { return params_.isMember(name); }

Json::Value APIRequest::GetParam(const std::string& name, const Json::Value& defaultValue) const {
  const Json::Value* found = params_.find(name.data(), name.data() + name.size());
  return found != nullptr ? *found : defaultValue;
}

APIParameter<std::string> APIRequest::GetAndCheckString(
    const std::string& name, PARAM_NECESSITY necessity,
    bool (*validator)(const std::string&)) const {
  const Json::Value* found = params_.find(name.data(), name.data() + name.size());
  if (found == nullptr) return APIParameter<std::string>(false, necessity == PARAM_REQUIRED, "");
  if (!found->isString()) return APIParameter<std::string>(true, true, "");
  std::string value = found->asString();
  bool invalid = validator != nullptr && !validator(value);
  return APIParameter<std::string>(true, invalid, invalid ? std::string() : value);
}

APIParameter<int> APIRequest::GetAndCheckInt(const std::string& name, PARAM_NECESSITY necessity,
                                             bool (*validator)(int)) const {
  const Json::Value* found = params_.find(name.data(), name.data() + name.size());
  if (found == nullptr) return APIParameter<int>(false, necessity == PARAM_REQUIRED, 0);
  // Only a JSON integer counts: 1.0 is a real even though its value is integral.
  bool integral =
      (found->type() == Json::intValue || found->type() == Json::uintValue) && found->isInt();
  if (!integral) return APIParameter<int>(true, true, 0);
  int value = found->asInt();
  bool invalid = validator != nullptr && !validator(value);
  return APIParameter<int>(true, invalid, invalid ? 0 : value);
}

void APIResponse::SetSuccess(const Json::Value& data) {
  answered_ = true;
  errorCode_ = 0;
  data_ = data;
  errors_ = Json::Value();
}

void APIResponse::SetSuccess(Json::Value&& data) {
  answered_ = true;
  errorCode_ = 0;
  data_ = std::move(data);
  errors_ = Json::Value();
}

void APIResponse::SetError(int code, const Json::Value& errors) {
  answered_ = true;
  errorCode_ = code;
  data_ = Json::Value();
  errors_ = errors;
}

Json::Value APIResponse::Envelope() const {
  Json::Value envelope(Json::objectValue);
  if (IsSuccess()) {
    envelope["success"] = true;
    if (!data_.isNull()) envelope["data"] = data_;
    return envelope;
  }
  envelope["success"] = false;
  Json::Value error(Json::objectValue);
  error["code"] = answered_ ? errorCode_ : 100;
  if (answered_ && !errors_.isNull()) error["errors"] = errors_;
  envelope["error"] = error;
  return envelope;
}

namespace APIValidator {
bool IsBelong(const APIParameter<std::string>& parameter, const Json::Value& list) {
  if (!parameter.IsSet() || parameter.IsInvalid() || !list.isArray()) return false;
  for (const Json::Value& item : list) {
    if (item.isString() && item.asString() == parameter.Get()) return true;
  }
  return false;
}
}  // namespace APIValidator

namespace WebAPIUtil {

Json::Value ParseJson(const std::string& text) {
  Json::CharReaderBuilder builder;
  builder["failIfExtra"] = true;
  builder["rejectDupKeys"] = false;
  std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  std::string errors;
  if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) {
    return Json::Value();
  }
  return value;
}

std::string ToText(const Json::Value& value) {
  switch (value.type()) {
    case Json::nullValue:
      return std::string();
    case Json::stringValue:
      return value.asString();
    case Json::intValue:
      return std::to_string(value.asLargestInt());
    case Json::uintValue:
      return std::to_string(value.asLargestUInt());
    case Json::booleanValue:
      return value.asBool() ? "true" : "false";
    default: {
      Json::StreamWriterBuilder builder;
      builder["indentation"] = "";
      return Json::writeString(builder, value);
    }
  }
}

int ToInt(const Json::Value& value) {
  switch (value.type()) {
    case Json::intValue: {
      long long v = value.asLargestInt();
      return v > INT_MAX ? INT_MAX : v < INT_MIN ? INT_MIN : static_cast<int>(v);
    }
    case Json::uintValue: {
      unsigned long long v = value.asLargestUInt();
      return v > static_cast<unsigned long long>(INT_MAX) ? INT_MAX : static_cast<int>(v);
    }
    case Json::realValue: {
      double v = value.asDouble();
      if (!(v == v)) return 0;
      return v >= INT_MAX ? INT_MAX : v <= INT_MIN ? INT_MIN : static_cast<int>(v);
    }
    case Json::stringValue: {
      long long v = strtoll(value.asCString(), nullptr, 10);
      return v > INT_MAX ? INT_MAX : v < INT_MIN ? INT_MIN : static_cast<int>(v);
    }
    case Json::booleanValue:
      return value.asBool() ? 1 : 0;
    default:
      return 0;
  }
}

}  // namespace WebAPIUtil
}  // namespace QUOR
