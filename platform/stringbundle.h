// Localized texts of the web administration, grouped in sections.
#pragma once

#include <memory>

// Everything declared below is the platform's exported surface.
#pragma GCC visibility push(default)

// A read-only view of up to six sections of the platform's localized texts. The texts of the
// bundle's language (the key "language" of "/etc/quor.conf", default "en") come from
// "/usr/quor/quorman/webman/texts/<language>/strings", parsed once per process and again when
// the file (or the appliance root) changes; English fills keys that the language lacks. Safe to
// use from several threads at once.
class StringBundle {
 public:
  // The sections to search, in order; the list ends at the first null.
  explicit StringBundle(const char* section1, const char* section2 = nullptr,
                        const char* section3 = nullptr, const char* section4 = nullptr,
                        const char* section5 = nullptr, const char* section6 = nullptr);
  ~StringBundle();
  StringBundle(const StringBundle&) = delete;
  StringBundle& operator=(const StringBundle&) = delete;

  // The text of key in the first section that has it, in the language given or, when that is
  // null or empty, the bundle's own language. The empty text when no section has the key.
  // The pointer stays valid as long as the bundle.
  const char* Text(const char* key, const char* language);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

#pragma GCC visibility pop
