// The parameters of QUOR.LogCenter.Search, read and checked once for both its methods.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/webapi.h"
#include "sources/log_classes.h"

struct SearchRequest {
  LogClass logClass = LogClass::kSystem;       // one class per search
  std::vector<std::string> types;              // catalogue names, in request order
  bool levels[4] = {false, true, true, true};  // by level number; all when none was asked
  bool levelFiltered = false;
  bool hasFrom = false, hasTo = false;
  int64_t from = 0, to = 0;        // epoch seconds, inclusive
  std::vector<std::string> terms;  // every one must occur
  std::string sort = "time";       // a record key of the class that sorts
  bool ascending = false;
  int64_t offset = 0;
  int64_t limit = 50;
  int buckets = 60;
};

// Reads the request into *search. On a bad parameter: false with *name and *reason ("type",
// "required" or "condition") set, for the error 120 answer.
bool ReadSearchRequest(const QUOR::APIRequest& request, SearchRequest* search, std::string* name,
                       std::string* reason);

// The terms of q: runs of non-blank characters, or, when a double quote begins a term, the
// text up to the next double quote as one term (an unclosed quote runs to the end). A quote
// inside a word is a character of it (tag="View is one term). Empty terms are dropped.
std::vector<std::string> SplitTerms(const std::string& q);
