// The schemas of the log stores that the platform's services write; tools and tests create
// stores with them.
#pragma once

// System, connection and network-backup logs.
#define QUOR_SYSTEM_LOG_SCHEMA                                                          \
  "CREATE TABLE logs (id INTEGER PRIMARY KEY AUTOINCREMENT, time INTEGER, level TEXT, " \
  "username TEXT, msg TEXT); CREATE INDEX logs_time ON logs (time);"

// Each transfer log.
#define QUOR_TRANSFER_LOG_SCHEMA                                                            \
  "CREATE TABLE logs (id INTEGER PRIMARY KEY AUTOINCREMENT, time INTEGER, ip TEXT, "        \
  "username TEXT, cmd TEXT, filesize INTEGER, filename TEXT, isdir INTEGER); CREATE INDEX " \
  "logs_time ON logs (time);"

// The disk log.
#define QUOR_DISK_LOG_SCHEMA                                                                   \
  "CREATE TABLE logs (id INTEGER PRIMARY KEY AUTOINCREMENT, level TEXT, time INTEGER, "        \
  "logtime INTEGER, model TEXT, serial TEXT, container TEXT, slot TEXT, path TEXT, msg TEXT, " \
  "info TEXT, SHOW INTEGER);"

// Set on every new store before its schema: pages freed by deleting rows can be given back to
// the file system a few at a time (PRAGMA incremental_vacuum), and readers never wait for the
// one writer (write-ahead log).
#define QUOR_NEW_STORE_PRAGMAS "PRAGMA auto_vacuum=INCREMENTAL; PRAGMA journal_mode=WAL;"
