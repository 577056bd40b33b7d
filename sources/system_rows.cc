// System, connection and network-backup rows turned into records.
#include "sources/system_rows.h"

#include "catalogue/text_helpers.h"

SystemRowDecoder::SystemRowDecoder(PQUORDBRESULT result)
    : columns_(result, {"time", "level", "username", "msg", "orginalLogType", "logtype", "id"}) {}

int SystemRowDecoder::Level(QUORDBROW row) const {
  return LevelNumber(columns_.Field(row, kLevel));
}

void SystemRowDecoder::Decode(QUORDBROW row, const char* levelWord, LogRecord* record) {
  const char* time = Time(row);
  times_.Convert(ReadInteger(time != nullptr ? time : ""), &record->Set("time"));
  record->Point("level", levelWord);
  record->Point("who", columns_.Field(row, kUser));
  record->Point("descr", columns_.Field(row, kMsg));
  record->Point("orginalLogType", columns_.Field(row, kOriginalType));
  record->Point("logtype", columns_.Field(row, kType));
}
