// Splitting, category mapping and class routing of log-type lists.
#include "catalogue/type_lists.h"

#include <cstring>

#include "catalogue/log_types.h"
#include "sources/core_log.h"

namespace {

struct CategoryWord {
  const char* word;
  const char* logType;
};

const CategoryWord kCategoryWords[] = {
    {"backup", "bkplog"},     {"backupserver", "bkpserverlog"},
    {"usbcopy", "copylog"},   {"netbackup", "netbkplog"},
    {"ftp", "ftpxfer"},       {"filedeck", "kyrfmxfer"},
    {"webdav", "webdavxfer"}, {"cifs", "smbxfer"},
    {"afp", "afpxfer"},       {"tftp", "tftpxfer"},
    {"disk", "disk"},         {"all", "all"},
};

const char* LogTypeOfWord(const char* word) {
  for (const CategoryWord& entry : kCategoryWords) {
    if (strcmp(word, entry.word) == 0) return entry.logType;
  }
  return word;
}

}  // namespace

int SplitLogTypes(const std::string& text, PSLIBSZLIST* list) {
  if (text == "filexfer") {
    PSLIBSZLIST all = SLIBCSzListAlloc(56);
    if (all == nullptr) {
      LOG_ERROR_HERE("memory allocation failed");
      return -1;
    }
    for (const char* const* type = kTransferLogTypes; *type != nullptr; ++type) {
      if (SLIBCSzListPush(&all, *type) < 0) {
        LOG_ERROR_HERE("Set %s into list failed", *type);
        SLIBCSzListFree(all);
        return -1;
      }
    }
    *list = all;
    return 0;
  }
  PSLIBSZLIST items = SLIBCSzListAlloc(256);
  if (items == nullptr) {
    LOG_ERROR_HERE("memory allocation failed");
    return -1;
  }
  if (SLIBCStrSep(text.c_str(), ",", &items) < 0) {
    LOG_ERROR_HERE("SLIBCStrSep failed");
    SLIBCSzListFree(items);
    return -1;
  }
  *list = items;
  return 0;
}

std::string MapCategoriesToLogTypes(const std::string& categories) {
  std::string result;
  PSLIBSZLIST items = SLIBCSzListAlloc(256);
  if (items == nullptr) {
    LOG_ERROR_HERE("memory allocation failed");
  } else if (SLIBCStrSep(categories.c_str(), ",", &items) > 0) {
    for (int i = 0; i < items->nItem; ++i) {
      result += LogTypeOfWord(items->pszItem[i]);
      if (i + 1 < items->nItem) result += ",";
    }
  }
  SLIBCSzListFree(items);
  return result.empty() ? "syslog" : result;
}

std::string GetFirstLogType(const std::string& text) {
  PSLIBSZLIST items = nullptr;
  if (SplitLogTypes(text, &items) < 0 || items->nItem < 1) {
    LOG_ERROR_HERE("Get first logtype failed. log types: %s.", text.c_str());
    SLIBCSzListFree(items);
    return "system";
  }
  std::string first = items->pszItem[0];
  SLIBCSzListFree(items);
  return first;
}

bool AllLogTypesAre(bool (*test)(const char*), PSLIBSZLIST list) {
  if (list == nullptr) return true;
  for (int i = 0; i < list->nItem; ++i) {
    const char* item = list->pszItem[i];
    if (item == nullptr || item[0] == '0') continue;
    if (!test(item)) return false;
  }
  return true;
}
