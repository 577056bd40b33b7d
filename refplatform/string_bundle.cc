// Localized-text bundles over the platform's text files.
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "key_value_file.h"
#include "platform/root.h"
#include "platform/stringbundle.h"
#include "texts_cache.h"

namespace {

const char kTextsDir[] = "/usr/quor/quorman/webman/texts/";
const char kDefaultLanguage[] = "en";

std::string ConfiguredLanguage() {
  std::string language;
  if (ReadKeyValue(QuorResolvePath("/etc/quor.conf"), "language", &language) <= 0 ||
      language.empty()) {
    return kDefaultLanguage;
  }
  return language;
}

// A language name is used as a directory name: refuse anything that could leave the folder.
bool IsSafeLanguage(const std::string& language) {
  if (language.empty() || language.size() > 16) return false;
  for (char c : language) {
    if (!isalnum(static_cast<unsigned char>(c)) && c != '_' && c != '-') return false;
  }
  return true;
}

}  // namespace

// Internal to the library, although nested in an exported class.
struct __attribute__((visibility("hidden"))) StringBundle::Impl {
  std::vector<std::string> sections;
  std::mutex mutex;  // guards the members below
  std::string ownLanguage;
  // The texts last seen per language. Versions replaced by a changed file are kept in retired,
  // so the pointers the bundle handed out stay valid as long as the bundle.
  std::map<std::string, std::shared_ptr<const TextSections>> languages;
  std::vector<std::shared_ptr<const TextSections>> retired;

  const TextSections& Load(const std::string& language) {
    static const TextSections kNone;
    if (!IsSafeLanguage(language)) return kNone;
    std::shared_ptr<const TextSections> texts =
        CachedTextsFile(QuorResolvePath(kTextsDir + language + "/strings"));
    std::shared_ptr<const TextSections>& current = languages[language];
    if (current != texts) {
      if (current != nullptr) retired.push_back(std::move(current));
      current = std::move(texts);
    }
    return *current;
  }

  const char* Find(const TextSections& texts, const char* key) const {
    for (const std::string& name : sections) {
      auto s = texts.find(name);
      if (s == texts.end()) continue;
      auto k = s->second.find(key);
      if (k != s->second.end()) return k->second.c_str();
    }
    return nullptr;
  }
};

StringBundle::StringBundle(const char* section1, const char* section2, const char* section3,
                           const char* section4, const char* section5, const char* section6)
    : impl_(new Impl) {
  for (const char* s : {section1, section2, section3, section4, section5, section6}) {
    if (s == nullptr) break;
    impl_->sections.push_back(s);
  }
}

StringBundle::~StringBundle() = default;

const char* StringBundle::Text(const char* key, const char* language) {
  if (key == nullptr) return "";
  std::lock_guard<std::mutex> lock(impl_->mutex);
  if (impl_->ownLanguage.empty()) impl_->ownLanguage = ConfiguredLanguage();
  std::string wanted = language != nullptr && language[0] != '\0' ? language : impl_->ownLanguage;
  // Texts are kept for the bundle's life (current or retired), so the pointers outlive the lock.
  if (const char* text = impl_->Find(impl_->Load(wanted), key)) return text;
  if (wanted != kDefaultLanguage) {
    if (const char* text = impl_->Find(impl_->Load(kDefaultLanguage), key)) return text;
  }
  return "";
}
