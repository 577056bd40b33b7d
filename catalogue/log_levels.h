// The three log levels: every spelling the stores, searches, records and exports use, in one
// table.
#pragma once

struct LogLevel {
  int number;              // 1 information, 2 warning, 3 error; higher is more severe
  const char* searchName;  // the name a search's level list takes
  const char* stored;      // the database logs' spelling ("err", "warning"; info is anything else)
  const char* recordWord;  // the word of list records
  const char* exportWord;  // the word of export documents
};

// Information, warning, error (numbers 1, 2, 3), then a row whose number is 0.
extern const LogLevel kLogLevels[];

// The row of level number (1 to 3); information for any other number.
const LogLevel& LogLevelOf(int number);

// The row whose stored spelling is text, or null.
const LogLevel* LogLevelByStored(const char* text);
// The row whose record word is text, or null.
const LogLevel* LogLevelByRecordWord(const char* text);
// The row whose search name is text, or null.
const LogLevel* LogLevelBySearchName(const char* text);
