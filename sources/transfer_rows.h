// File-transfer rows turned into records as the list shows them: the time as text, the size
// in its largest unit, "isdir" as "true" or "false".
#pragma once

#include "platform/logdb.h"
#include "sources/log_classes.h"
#include "sources/log_record.h"
#include "sources/record_fields.h"

class TransferRowDecoder : public RowDecoder {
 public:
  // The columns of result's rows it reads, in this order (kId reads as null where the
  // select has no row id).
  enum Column { kTime, kIp, kUser, kCmd, kSize, kFile, kOriginalType, kType, kIsDir, kId };
  explicit TransferRowDecoder(PQUORDBRESULT result);

  const char* Field(QUORDBROW row, Column column) const { return columns_.Field(row, column); }
  int Level(QUORDBROW) const override { return 1; }
  const char* Time(QUORDBROW row) const override { return Field(row, kTime); }
  const char* Id(QUORDBROW row) const override { return Field(row, kId); }
  // Sets "time", "ip", "username", "cmd", "filesize", "descr", "orginalLogType", "logtype" and
  // "isdir" of record from the row, in that order (transfers have no level).
  void Decode(QUORDBROW row, const char* levelWord, LogRecord* record) override;

 private:
  RowColumns columns_;
  TimeTexts times_;
};
