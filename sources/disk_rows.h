// Disk-log rows turned into records as the list shows them: the event's time by the drive's
// clock where earlier, the drive's slot and the event's text decoded by the storage manager.
#pragma once

#include "platform/logdb.h"
#include "sources/log_classes.h"
#include "sources/log_record.h"
#include "sources/record_fields.h"

class DiskRowDecoder : public RowDecoder {
 public:
  // The columns of result's rows it reads, in this order.
  enum Column {
    kLevel,
    kTime,
    kLogtime,
    kContainer,
    kModel,
    kSerial,
    kSlot,
    kPath,
    kMsg,
    kInfo,
    kId
  };
  // Reads the unit's model name (a debug message when the platform has none).
  explicit DiskRowDecoder(PQUORDBRESULT result);

  const char* Field(QUORDBROW row, Column column) const { return columns_.Field(row, column); }
  int Level(QUORDBROW row) const override;
  const char* Time(QUORDBROW row) const override { return Field(row, kTime); }
  const char* Id(QUORDBROW row) const override { return columns_.Field(row, kId); }
  // Sets "level", "time", "model", "serial", "container", "slot" and "msg" of record from the
  // row, in that order. Rows are decoded in result order: a row without a container decodes its
  // slot as the row before did. A slot or event the decoders cannot read is logged and shown as
  // stored ("-" when nothing is).
  void Decode(QUORDBROW row, const char* levelWord, LogRecord* record) override;

 private:
  RowColumns columns_;
  char model_[64] = "";
  bool inThisUnit_ = false;
  TimeTexts times_;
};
