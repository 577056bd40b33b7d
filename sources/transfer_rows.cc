// File-transfer rows turned into records.
#include "sources/transfer_rows.h"

#include <string.h>

TransferRowDecoder::TransferRowDecoder(PQUORDBRESULT result)
    : columns_(result, {"time", "ip", "username", "cmd", "filesize", "filename", "orginalLogType",
                        "logtype", "isdir", "id"}) {}

void TransferRowDecoder::Decode(QUORDBROW row, const char*, LogRecord* record) {
  const char* time = Time(row);
  times_.Convert(ReadInteger(time != nullptr ? time : ""), &record->Set("time"));
  record->Point("ip", Field(row, kIp));
  record->Point("username", Field(row, kUser));
  record->Point("cmd", Field(row, kCmd));
  const char* size = Field(row, kSize);
  record->Set("filesize", FileSizeText(size != nullptr ? size : ""));
  record->Point("descr", Field(row, kFile));
  record->Point("orginalLogType", Field(row, kOriginalType));
  record->Point("logtype", Field(row, kType));
  const char* isdir = Field(row, kIsDir);
  record->Point("isdir", isdir != nullptr && strcmp(isdir, "1") == 0 ? "true" : "false");
}
