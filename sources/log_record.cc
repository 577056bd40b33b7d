// Records as the sources build them.
#include "sources/log_record.h"

#include <string.h>

#include "platform/webapi.h"

std::string& LogRecord::Set(const char* key) {
  for (int i = 0; i < count_; ++i) {
    if (strcmp(keys_[i], key) == 0) return texts_[i];
  }
  if (count_ == kMaxFields) return overflow_;
  keys_[count_] = key;
  std::string& text = texts_[count_++];
  text.clear();
  return text;
}

const std::string* LogRecord::Find(const char* key) const {
  if (key == nullptr) return nullptr;
  for (int i = 0; i < count_; ++i) {
    if (strcmp(keys_[i], key) == 0) return &texts_[i];
  }
  return nullptr;
}

Json::Value LogRecord::ToJson() const {
  Json::Value object(Json::objectValue);
  for (int i = 0; i < count_; ++i) object[keys_[i]] = texts_[i];
  return object;
}

void LogRecord::FromJson(const Json::Value& object) {
  Clear();
  if (!object.isObject()) return;
  ownedKeys_ = object.getMemberNames();
  for (const std::string& key : ownedKeys_) {
    Set(key.c_str()) = QUOR::WebAPIUtil::ToText(object[key]);
  }
}
