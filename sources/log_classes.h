// The core's table of log classes: for each kind of store, what every method reads about it
// (its record keys and their columns, the columns a search looks in, its level expression, its
// row decoder, where its stores lie). The first module, the search module, the writer and the
// index all read this table; nothing above it spells these facts again.
#pragma once

#include <memory>
#include <string>

#include "platform/logdb.h"
#include "platform/slibc.h"
#include "sources/log_record.h"

// The four classes, one per kind of store.
enum class LogClass { kTransfer, kSystem, kPlain, kDisk };

// One record key of a class and where it comes from.
struct LogColumn {
  const char* key;     // record key; null ends a class's list
  const char* column;  // the select's column that holds it (stored, or added by the merged select)
  const char*
      sortBy;      // SQL expression a search orders the key by (null: the class sorts in memory)
  bool listSorts;  // the list method accepts the column as its sort field
};

// Turns one result's rows into records, in result order.
class RowDecoder {
 public:
  virtual ~RowDecoder() = default;
  // The row's level number (1 to 3; 1 for a class without levels).
  virtual int Level(QUORDBROW row) const = 0;
  // The row's time column, or null when the row has none.
  virtual const char* Time(QUORDBROW row) const = 0;
  // The row's id column, or null when the select has none.
  virtual const char* Id(QUORDBROW row) const = 0;
  // Sets the record's keys from the row, in the order records show them; levelWord is the
  // "level" text (ignored by a class without levels).
  virtual void Decode(QUORDBROW row, const char* levelWord, LogRecord* record) = 0;
};

struct LogClassInfo {
  LogClass id;
  const char* name;                    // "transfer", "system", "plain", "disk"
  const char* const* types;            // the catalogue's class list (null-terminated)
  bool (*isMember)(const char* type);  // the catalogue's class test (letter case ignored)
  bool merges;                         // several types of one request are read together
  const LogColumn* columns;            // the record keys, in record order
  const char* const* searchedColumns;  // where a search term may occur (null-terminated)
  const char* listPatternColumn;       // where the list's keyword pattern runs (database classes)
  const char* severity;                // SQL: a row's level number 1..3
  // The store of type (a name of this class), resolved under the appliance root; false when
  // type has none.
  bool (*storePath)(const char* type, std::string* path);
  // A search term's condition on a row ("(... OR ...)"); null for the plain-text class.
  std::string (*termCondition)(const LogClassInfo& info, const std::string& term);
  // A decoder of result's rows; null for the plain-text class, whose lines its source parses.
  std::unique_ptr<RowDecoder> (*decoder)(PQUORDBRESULT result);
};

// The four rows, in the order a request is routed: transfer, system, plain-text, disk.
constexpr int kLogClassCount = 4;
extern const LogClassInfo kLogClasses[kLogClassCount];

const LogClassInfo& ClassInfo(LogClass id);

// The first class (in routing order) that holds every item of list (AllLogTypesAre: an empty
// list lands in the first class); null when none does.
const LogClassInfo* ClassOfTypes(PSLIBSZLIST list);

// The class of one catalogue type (class lists ignore letter case), or null.
const LogClassInfo* ClassOfType(const char* type);

// The column of record key in the class, or null.
const LogColumn* FindColumn(const LogClassInfo& info, const std::string& key);

// The store of any type: its class's storePath; false for a name of no class or without store.
bool StorePathOf(const char* type, std::string* path);

// The disk log's keyword condition: the keyword in model, serial, container, the slot (its
// display form read back), the stored event codes whose texts hold it, and info. The joints
// after the first are a bare "OR", as clients and logs have always seen the statement.
// contains makes each containment condition (the list's GenSQLRegexp; a search's terms fold).
std::string DiskKeywordCondition(const std::string& keyword,
                                 std::string (*contains)(const std::string&,
                                                         const std::string&) = GenSQLRegexp);
