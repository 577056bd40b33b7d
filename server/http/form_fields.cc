// Request fields and cookies.
#include "server/http/form_fields.h"

#include "platform/webapi.h"
#include "server/dispatch/dispatch.h"

namespace {

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string Trim(const std::string& text) {
  size_t first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return "";
  size_t last = text.find_last_not_of(" \t");
  return text.substr(first, last - first + 1);
}

}  // namespace

std::string RequestFields::Raw(const std::string& name) const {
  const Json::Value* found = raw.find(name.data(), name.data() + name.size());
  return found != nullptr ? found->asString() : "";
}

bool PercentDecode(const std::string& text, bool plusIsSpace, std::string* decoded) {
  decoded->clear();
  for (size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '+' && plusIsSpace) {
      decoded->push_back(' ');
    } else if (c == '%') {
      if (i + 2 >= text.size()) return false;
      int high = HexDigit(text[i + 1]);
      int low = HexDigit(text[i + 2]);
      if (high < 0 || low < 0) return false;
      decoded->push_back(static_cast<char>(high * 16 + low));
      i += 2;
    } else {
      decoded->push_back(c);
    }
  }
  return true;
}

bool AddUrlEncoded(const std::string& text, RequestFields* fields, std::string* error) {
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find('&', start);
    if (end == std::string::npos) end = text.size();
    std::string pair = text.substr(start, end - start);
    start = end + 1;
    if (pair.empty()) continue;
    size_t equals = pair.find('=');
    std::string name, value;
    if (!PercentDecode(pair.substr(0, equals), true, &name) ||
        !PercentDecode(equals == std::string::npos ? "" : pair.substr(equals + 1), true, &value)) {
      *error = "malformed percent escape in the request fields";
      return false;
    }
    if (name.empty()) continue;
    fields->raw[name] = value;
    fields->params[name] = DecodeParamValue(value);
  }
  return true;
}

bool AddJsonObject(const std::string& body, RequestFields* fields, std::string* error) {
  Json::Value object;
  try {
    object = QUOR::WebAPIUtil::ParseJson(body);
  } catch (...) {
    // Nesting deeper than the reader allows: refused below like any other non-object.
  }
  if (!object.isObject()) {
    *error = "the request body is not one JSON object";
    return false;
  }
  for (const std::string& name : object.getMemberNames()) {
    fields->params[name] = object[name];
    fields->raw[name] = QUOR::WebAPIUtil::ToText(object[name]);
  }
  return true;
}

std::string CookieValue(const std::string& header, const std::string& name) {
  size_t start = 0;
  while (start < header.size()) {
    size_t end = header.find(';', start);
    if (end == std::string::npos) end = header.size();
    std::string pair = Trim(header.substr(start, end - start));
    start = end + 1;
    size_t equals = pair.find('=');
    if (equals != std::string::npos && pair.compare(0, equals, name) == 0 &&
        equals == name.size()) {
      return pair.substr(equals + 1);
    }
  }
  return "";
}
