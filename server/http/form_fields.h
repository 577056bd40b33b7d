// Request fields from query strings, form bodies and JSON bodies, and cookies.
#pragma once

#include <json/value.h>

#include <string>

// The named fields of one request. params holds each value as the methods see it (decoded by
// the parameter rule for query and form values; as sent for a JSON body); raw holds the text
// the client sent, for fields that are never decoded (account, password, token).
struct RequestFields {
  Json::Value params{Json::objectValue};
  Json::Value raw{Json::objectValue};

  std::string Raw(const std::string& name) const;
};

// Decodes %XX escapes (and '+' as a blank when plusIsSpace). False for a malformed escape.
bool PercentDecode(const std::string& text, bool plusIsSpace, std::string* decoded);

// Adds the fields of an "a=1&b=2" text; a later field replaces an earlier one of the same
// name. False with *error for a malformed escape.
bool AddUrlEncoded(const std::string& text, RequestFields* fields, std::string* error);

// Adds the members of a JSON object body. False with *error when the body is not one object.
bool AddJsonObject(const std::string& body, RequestFields* fields, std::string* error);

// The value of cookie name in a Cookie header, or "" when absent.
std::string CookieValue(const std::string& header, const std::string& name);
