// Dispatch of one web-API call and the parameter decoding rule shared by `call` and HTTP.
#include "server/dispatch/dispatch.h"

#include <json/reader.h>
#include <json/writer.h>

#include <stdlib.h>

#include <climits>
#include <memory>

void DispatchCall(const ModuleRegistry& registry, const std::string& api, int version,
                  const std::string& method, QUOR::APIRequest* request,
                  QUOR::APIResponse* response) {
  const MethodEntry* entry = registry.Find(api, version, method);
  if (entry == nullptr) {
    response->SetError(kErrorUnknownMethod);
    return;
  }
  try {
    if (entry->checker != nullptr && !entry->checker(request, response)) return;
    entry->handler(request, response);
  } catch (...) {
    response->SetError(kErrorNoAnswer);
  }
}

Json::Value DecodeParamValue(const std::string& text) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["strictRoot"] = false;  // a bare number, text or literal is a whole value too
  std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  std::string errors;
  try {
    if (!text.empty() && reader->parse(text.data(), text.data() + text.size(), &value, &errors)) {
      return value;
    }
  } catch (...) {
    // Nesting deeper than the reader's limit: not a value this server takes as JSON.
  }
  return Json::Value(text);
}

std::string EnvelopeText(const QUOR::APIResponse& response) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  // Written by hand so that "success" leads, as clients read it first.
  Json::Value envelope = response.Envelope();
  std::string text = envelope["success"].asBool() ? "{\"success\":true" : "{\"success\":false";
  for (const char* key : {"data", "error"}) {
    if (!envelope.isMember(key)) continue;
    text += std::string(",\"") + key + "\":" + Json::writeString(builder, envelope[key]);
  }
  return text + "}";
}

bool ParseApiVersion(const std::string& text, int* version) {
  if (text.empty()) return false;
  char* end = nullptr;
  long value = strtol(text.c_str(), &end, 10);
  if (*end != '\0' || value < INT_MIN || value > INT_MAX) return false;
  *version = static_cast<int>(value);
  return true;
}
