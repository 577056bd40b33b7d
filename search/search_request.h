// The parameters of QUOR.LogCenter.Search, read and checked once for both its methods.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "platform/webapi.h"
#include "sources/log_classes.h"

// Row ids of a search's stores, as follow answers its marks.
struct StoreIds {
  bool given = false;
  std::vector<std::pair<std::string, int64_t>> ids;  // type, row id
};

// Rows whose record key holds one of values are left out (values compare exactly).
struct Exclusion {
  std::string key;     // a user key of the class ("who", "username")
  std::string column;  // its stored column
  std::vector<std::string> values;
};

struct SearchRequest {
  LogClass logClass = LogClass::kSystem;       // one class per search
  std::vector<std::string> types;              // catalogue names, in request order
  bool levels[4] = {false, true, true, true};  // by level number; all when none was asked
  bool levelFiltered = false;
  bool hasFrom = false, hasTo = false;
  int64_t from = 0, to = 0;        // epoch seconds, inclusive
  std::vector<std::string> terms;  // every one must occur
  // Users left out; logs left out are dropped from types as the request is read.
  std::vector<Exclusion> excluded;
  // Only rows above (after) and up to (through) a row id of their store; a store not named
  // is not bounded. For live mode's count of new rows.
  StoreIds after, through;
  std::string sort = "time";  // a record key of the class that sorts
  bool ascending = false;
  int64_t offset = 0;
  int64_t limit = 50;
  int buckets = 60;
  // False ("counts": false): the answer needs only the page; the totals are left out, and a
  // term search's first pages are found without counting its matches.
  bool counts = true;
  // False for the count method: only the totals, no page.
  bool page = true;

  // True when a row must be read to know whether it matches (a store's index counts only by
  // time and level).
  bool FiltersRows() const {
    return !terms.empty() || !excluded.empty() || after.given || through.given;
  }
};

// Reads the request into *search. "exclude" is an object of record keys, each with a list of
// texts: a user key of the class ("who", "username") leaves out the rows of those users,
// "orginalLogType" the logs of a group (a log the request does not name is ignored). "after"
// and "through" ({"<type>": row id, ...}, as follow answers its marks) keep the rows above and
// up to those ids; the plain-text class, without row ids, refuses them. On a bad
// parameter: false with *name and *reason ("type", "required" or "condition") set, for the error
// 120 answer.
bool ReadSearchRequest(const QUOR::APIRequest& request, SearchRequest* search, std::string* name,
                       std::string* reason);

// The terms of q: runs of non-blank characters, or, when a double quote begins a term, the
// text up to the next double quote as one term (an unclosed quote runs to the end). A quote
// inside a word is a character of it (tag="View is one term). Empty terms are dropped.
std::vector<std::string> SplitTerms(const std::string& q);
