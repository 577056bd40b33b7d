// System, connection and network-backup rows turned into records as the list shows them.
#pragma once

#include "platform/logdb.h"
#include "sources/log_classes.h"
#include "sources/log_record.h"
#include "sources/record_fields.h"

class SystemRowDecoder : public RowDecoder {
 public:
  explicit SystemRowDecoder(PQUORDBRESULT result);

  int Level(QUORDBROW row) const override;
  const char* Time(QUORDBROW row) const override { return columns_.Field(row, kTime); }
  const char* Id(QUORDBROW row) const override { return columns_.Field(row, kId); }
  // Sets "time", "level", "who", "descr", "orginalLogType" and "logtype" of record from the
  // row, in that order; a row without time reads as time 0.
  void Decode(QUORDBROW row, const char* levelWord, LogRecord* record) override;

 private:
  // The columns read, in the class's record order, then the row id.
  enum Column { kTime, kLevel, kUser, kMsg, kOriginalType, kType, kId };
  RowColumns columns_;
  TimeTexts times_;
};
