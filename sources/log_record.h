// Records as the sources build them, and the sinks that take them one at a time.
#pragma once

#include <json/value.h>

#include <string>
#include <string_view>
#include <vector>

// One record: texts under keys, in the order they were set. A source reuses one record row after
// row: texts it computes keep their capacity, and texts it takes from the current row are only
// pointed at, so a row costs no allocation once the first is built. A sink reads the record
// during Add and not after. Keys are static texts (literals, catalogue names) that outlive it.
class LogRecord {
 public:
  static constexpr int kMaxFields = 12;

  void Clear() {
    count_ = 0;
    keysStatic_ = true;
  }

  // Each key is set once per row (after Clear), in the order the record shows them.
  // The record's own text of key, emptied, for the caller to fill.
  std::string& Set(const char* key);
  void Set(const char* key, const char* text) { Set(key).assign(text); }
  void Set(const char* key, const std::string& text) { Set(key).assign(text); }
  // Points key at text (null reads as ""), which must stay unchanged until the record is read.
  void Point(const char* key, const char* text);

  // The text of key into *text; false when the row has no such key. *hint, when given,
  // remembers where the key was found, so that rows of the same shape find it at once.
  bool Find(const char* key, std::string_view* text, int* hint = nullptr) const;

  int size() const { return count_; }
  const char* key(int i) const { return fields_[i].key; }
  std::string_view text(int i) const {
    const Field& f = fields_[i];
    return f.pointed != nullptr ? std::string_view(f.pointed) : std::string_view(f.owned);
  }

  // The record as the Json object a list answer carries: every value a string.
  Json::Value ToJson() const;
  // The reverse, for records that arrive as Json objects: members that are not strings become
  // their text form; keys are copied into the record's own storage.
  void FromJson(const Json::Value& object);

 private:
  struct Field {
    const char* key = nullptr;
    const char* pointed = nullptr;  // the row's text, or null for owned
    std::string owned;
  };
  Field& Add(const char* key);

  Field fields_[kMaxFields];
  Field overflow_;  // where keys beyond kMaxFields go; never read back (no source has as many)
  int count_ = 0;
  std::vector<std::string> ownedKeys_;  // keys taken from Json objects
  bool keysStatic_ = true;              // false while keys point into ownedKeys_
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
