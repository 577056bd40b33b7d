// HTML escaping and the interface-language text files of the web administration.
#include "platform/webutils.h"

#include "platform/root.h"
#include "texts_file.h"

namespace WebUtils {

std::string EncodeHtml(const std::string& text, bool keepLineBreaks) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      case '\n':
        if (keepLineBreaks) {
          out += "<br>";
          break;
        }
        out += c;
        break;
      default:
        out += c;
    }
  }
  return out;
}

}  // namespace WebUtils

namespace QUOR {
namespace SDS {

Json::Value LocalizedStringParser::ParseTexts(const std::string& path) {
  Json::Value result(Json::objectValue);
  std::string dir = QuorResolvePath(path);
  if (!dir.empty() && dir.back() != '/') dir += '/';
  TextSections sections;
  if (!ReadTextsFile(dir + "strings", &sections)) return result;
  for (const auto& section : sections) {
    Json::Value& object = result[section.first];
    object = Json::Value(Json::objectValue);
    for (const auto& entry : section.second) object[entry.first] = entry.second;
  }
  return result;
}

}  // namespace SDS
}  // namespace QUOR
