// The HTML export document: an HTTP attachment holding one table of log records.
#pragma once

#include <json/value.h>
#include <stdio.h>

#include <string>
#include <vector>

// The HTTP header block and the document up to the opened heading row ("<tr>"), titled title
// (printed as given, not escaped), offered as fileName.
void WriteHtmlHead(FILE* out, const std::string& fileName, const char* title);

// The rest of the document for the records of effectiveType: heading cells and one row per
// record in the layout of the type (cells escaped, headings not), then the closing tags. With
// no records, or a type without a layout (logged), the heading row is left open and only the
// closing tags follow: clients of the download expect that exact short document.
void WriteHtmlBody(FILE* out, const std::string& effectiveType, const std::string& language,
                   const std::vector<Json::Value>& records);
