// Records as the sources build them.
#include "sources/log_record.h"

#include <string.h>

#include "platform/webapi.h"

LogRecord::Field& LogRecord::Add(const char* key) {
  if (count_ == kMaxFields) return overflow_;
  Field& field = fields_[count_++];
  field.key = key;
  return field;
}

std::string& LogRecord::Set(const char* key) {
  Field& field = Add(key);
  field.pointed = nullptr;
  field.owned.clear();
  return field.owned;
}

void LogRecord::Point(const char* key, const char* text) {
  Add(key).pointed = text != nullptr ? text : "";
}

bool LogRecord::Find(const char* key, std::string_view* text, int* hint) const {
  if (key == nullptr) return false;
  if (hint != nullptr && *hint >= 0 && *hint < count_ &&
      (fields_[*hint].key == key || strcmp(fields_[*hint].key, key) == 0)) {
    *text = this->text(*hint);
    return true;
  }
  for (int i = 0; i < count_; ++i) {
    if (strcmp(fields_[i].key, key) == 0) {
      if (hint != nullptr) *hint = i;
      *text = this->text(i);
      return true;
    }
  }
  return false;
}

Json::Value LogRecord::ToJson() const {
  Json::Value object(Json::objectValue);
  for (int i = 0; i < count_; ++i) {
    std::string_view value = text(i);
    Json::Value member(value.data(), value.data() + value.size());
    // Static keys are taken by reference, saving a copy of each key in each record.
    if (keysStatic_) {
      object[Json::StaticString(fields_[i].key)] = std::move(member);
    } else {
      object[fields_[i].key] = std::move(member);
    }
  }
  return object;
}

void LogRecord::FromJson(const Json::Value& object) {
  Clear();
  if (!object.isObject()) return;
  ownedKeys_ = object.getMemberNames();
  keysStatic_ = false;
  for (const std::string& key : ownedKeys_) {
    Set(key.c_str()) = QUOR::WebAPIUtil::ToText(object[key]);
  }
}
