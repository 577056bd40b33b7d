// Disk-log rows turned into records.
#include "sources/disk_rows.h"

#include <string.h>

#include "catalogue/text_helpers.h"
#include "platform/disk.h"
#include "platform/slibc.h"
#include "sources/core_log.h"

namespace {

namespace Disk = QUOR::SDS::STORAGE_MANAGER::Disk;

const char kInfoFile[] = "/etc.defaults/quorinfo.conf";
const char kModelKey[] = "upnpmodelname";

const char* OrDash(const char* text) { return text != nullptr && text[0] != '\0' ? text : "-"; }

}  // namespace

DiskRowDecoder::DiskRowDecoder(PQUORDBRESULT result)
    : columns_(result, {"level", "time", "logtime", "container", "model", "serial", "slot", "path",
                        "msg", "info", "id"}) {
  if (SLIBCFileGetKeyValue(kInfoFile, kModelKey, model_, sizeof model_, 0) < 1) {
    LOG_DEBUG_HERE("Failed to get value of %s in %s", kModelKey, kInfoFile);
    model_[0] = '\0';
  }
}

int DiskRowDecoder::Level(QUORDBROW row) const { return LevelNumber(Field(row, kLevel)); }

void DiskRowDecoder::Decode(QUORDBROW row, const char* levelWord, LogRecord* record) {
  record->Point("level", levelWord);
  const char* time = Field(row, kTime);
  const char* logtime = Field(row, kLogtime);
  long long seconds = ReadInteger(time != nullptr ? time : "");
  if (logtime != nullptr && ReadInteger(logtime) < seconds) seconds = ReadInteger(logtime);
  times_.Convert(static_cast<time_t>(seconds), &record->Set("time"));
  const char* container = Field(row, kContainer);
  record->Point("model", OrDash(Field(row, kModel)));
  record->Point("serial", OrDash(Field(row, kSerial)));
  record->Point("container", OrDash(container));
  if (container != nullptr) {
    size_t length = strlen(model_);
    inThisUnit_ = length > 0 && strncmp(container, model_, length) == 0;
  }
  char text[1024];
  memset(text, 0, sizeof text);
  const char* slot = Field(row, kSlot);
  const char* devicePath = Field(row, kPath);
  if (Disk::DiskSlotConverter(devicePath, slot, inThisUnit_, text, sizeof text) < 0) {
    LOG_ERROR_HERE("Failed to convert slot %s of %s", LogText(slot), LogText(devicePath));
  }
  record->Set("slot", OrDash(text));
  memset(text, 0, sizeof text);
  const char* msg = Field(row, kMsg);
  if (Disk::DiskLogConverter(msg, Field(row, kInfo), text, sizeof text) < 0) {
    LOG_ERROR_HERE("Failed to convert disk log message %s", LogText(msg));
  }
  record->Set("msg", OrDash(text));
}
