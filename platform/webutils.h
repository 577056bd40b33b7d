// Helpers of the web administration: HTML escaping and the interface-language text files.
#pragma once

#include <json/value.h>

#include <string>

// Everything declared below is the platform's exported surface.
#pragma GCC visibility push(default)

namespace WebUtils {
// text with "&", "<", ">", '"' and "'" replaced by character references. With
// keepLineBreaks, line feeds become "<br>" as well.
std::string EncodeHtml(const std::string& text, bool keepLineBreaks);
}  // namespace WebUtils

namespace QUOR {
namespace SDS {
class LocalizedStringParser {
 public:
  // Parses the file "strings" of the language directory path (resolved under the appliance
  // root; [section] and key="text" lines) into an object of sections, each an object mapping
  // keys to texts. An unreadable file gives an empty object.
  static Json::Value ParseTexts(const std::string& path);
};
}  // namespace SDS
}  // namespace QUOR

#pragma GCC visibility pop
