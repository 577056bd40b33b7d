// Records as the sources build them, and the sinks that take them one at a time.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

// One record: texts under keys, in the order they were set. A source reuses one record row after
// row, so its texts keep their capacity and a row costs no allocation once the first is built.
// Keys are static texts (literals or catalogue names) that outlive the record.
class LogRecord {
 public:
  static constexpr int kMaxFields = 12;

  void Clear() { count_ = 0; }

  // The text of key, emptied, placed after the keys already set. A key set twice in one row
  // keeps its first place. Beyond kMaxFields keys the extra ones share a scratch text that is
  // never read back (no source has that many).
  std::string& Set(const char* key);
  void Set(const char* key, const char* text) { Set(key).assign(text); }
  void Set(const char* key, const std::string& text) { Set(key).assign(text); }

  // The text of key, or null when the row has no such key.
  const std::string* Find(const char* key) const;

  int size() const { return count_; }
  const char* key(int i) const { return keys_[i]; }
  const std::string& text(int i) const { return texts_[i]; }

  // The record as the Json object a list answer carries: every value a string.
  Json::Value ToJson() const;
  // The reverse, for records that arrive as Json objects: members that are not strings become
  // their text form; keys are copied into the record's own storage.
  void FromJson(const Json::Value& object);

 private:
  const char* keys_[kMaxFields] = {};
  std::string texts_[kMaxFields];
  int count_ = 0;
  std::string overflow_;
  std::vector<std::string> ownedKeys_;  // keys taken from Json objects
};

// Where a source sends its records, in result order.
class RecordSink {
 public:
  virtual ~RecordSink() = default;
  virtual void Add(const LogRecord& record) = 0;
  // False when the caller wants only the rows: database sources then skip their count query
  // and return the number of rows they sent.
  virtual bool WantsTotal() const { return true; }
};

// Appends each record as a Json object to a vector the caller owns.
class JsonRecordList : public RecordSink {
 public:
  explicit JsonRecordList(std::vector<Json::Value>* records) : records_(records) {}
  void Add(const LogRecord& record) override { records_->push_back(record.ToJson()); }

 private:
  std::vector<Json::Value>* records_;
};
