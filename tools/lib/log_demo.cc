// Realistic log stores for a demo appliance root.
#include "tools/lib/log_demo.h"

#include <sqlite3.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "platform/disk_codes.h"
#include "platform/logfiles.h"
#include "tools/lib/log_schemas.h"
#include "tools/lib/root_layout.h"

const char kDemoModelName[] = "QS-920+";

namespace {

constexpr time_t kSpan = 120 * 24 * 3600;  // the months the logs cover

// A deterministic source of choices: the standard fixes mt19937_64's sequence, and the
// reductions below are our own, so a seed gives the same content everywhere.
class Random {
 public:
  explicit Random(uint64_t seed) : engine_(seed) {}
  uint64_t Below(uint64_t n) { return n == 0 ? 0 : engine_() % n; }
  bool Chance(int percent) { return Below(100) < static_cast<uint64_t>(percent); }
  template <typename T, size_t N>
  const T& Pick(const T (&items)[N]) {
    return items[Below(N)];
  }

 private:
  std::mt19937_64 engine_;
};

const char* const kUsers[] = {"admin",   "alice", "björn", "Zoë",        "SYSTEM",
                              "o'brien", "李雷",  "guest", "backup-svc", "Anna Müller"};
const char* const kAddresses[] = {
    "192.168.1.23", "192.168.1.57", "10.0.0.8", "172.16.4.200", "fe80::a00:27ff:fe4e:66a1",
    "2001:db8::42", "127.0.0.1"};
const char* const kPackages[] = {"Media Server", "Photo Station", "Mail \"Plus\"", "VPN, Server"};
const char* const kShares[] = {"photos", "Büro, Akten", "music \"live\"", "homes", "backup"};
const char* const kFiles[] = {
    "/photos/Urlaub 2024/Strand, Möwe \"best\".jpg",
    "/photos/Urlaub 2024/IMG_0042.HEIC",
    "/Büro, Akten/Rechnung Nr. 17 (Kopie).pdf",
    "/music/Björk - Jóga.flac",
    "/homes/alice/Report Q3, final \"v2\".docx",
    "/homes/李雷/项目计划.xlsx",
    "/video/Family [2023]/Geburtstag 50% Rabatt_*.mp4",
    "/backup/db_dump_2024-03-05.sql.gz",
    "/homes/o'brien/notes.txt",
    "/photos/Raw",
    "/video/Family [2023]",
};

struct Message {
  const char* level;
  const char* text;  // "%s" is filled with a user, package, share or address by the writer
};

const Message kSystemMessages[] = {
    {"info", "User [%s] logged in from the web administration."},
    {"info", "System started to boot up."},
    {"info", "Package [%s] was started."},
    {"info", "Shared folder [%s] was created."},
    {"info", "Scheduled task [Scrub volume 1] finished."},
    {"info", "Update 7.2-64570 was installed."},
    {"notice", "Time was synchronized with [pool.ntp.org]."},
    {"warning", "Volume [1] usage reached 85%%."},
    {"warning", "Certificate for [%s] expires in 14 days."},
    {"warning", "Fan [2] runs below its expected speed."},
    {"err", "Failed to send a notification email: SMTP server [mail.example.com] timed out."},
    {"err", "Package [%s] stopped unexpectedly."},
    {"err", "Storage pool [1] is degraded."},
};
const Message kConnectionMessages[] = {
    {"info", "User [%s] signed in from [%s] via [Web]."},
    {"info", "User [%s] signed out."},
    {"info", "User [%s] connected from [%s] via [SMB]."},
    {"warning", "User [%s] failed to sign in from [%s]: wrong password."},
    {"err", "IP address [%s] was blocked after 10 failed sign-ins."},
};
const Message kNetworkBackupMessages[] = {
    {"info", "Network backup task [Offsite %s] started."},
    {"info", "Network backup task [Offsite %s] finished: 12,345 files, 6.7 GB."},
    {"warning", "Network backup task [Offsite %s] skipped 3 files in use."},
    {"err", "Network backup task [Offsite %s] failed: destination unreachable."},
};
const Message kBackupMessages[] = {
    {"info", "Backup task [%s] started."},
    {"info", "Backup task [%s] finished: 1,234 files, 5.6 GB."},
    {"warning", "Backup task [%s] skipped 2 files that changed while reading."},
    {"err", "Backup task [%s] failed: destination \"USB1\" is full."},
};
const Message kCopyMessages[] = {
    {"info", "USB copy task [%s] copied 123 files to [photos/2024]."},
    {"warning", "USB copy task [%s] found no new files."},
    {"err", "USB copy task [%s] failed: the device was removed."},
};
const Message kBackupServerMessages[] = {
    {"info", "Client [%s] connected."},
    {"info", "Version 42 of client [%s] was rotated."},
    {"warning", "Client [%s] has not backed up for 7 days."},
    {"err", "Client [%s] sent a damaged version index."},
};
const char* const kTaskNames[] = {"Daily Photos", "Büro, wöchentlich", "Camera \"SD\"",
                                  "laptop-anna", "Server 2"};

// The messages of each log kind; the first kind of each family is also its fallback.
struct MessageSet {
  const char* kind;
  const Message* messages;
  size_t count;
};
#define QUOR_MESSAGES(kind, array) \
  { kind, array, sizeof array / sizeof array[0] }
const MessageSet kMessageSets[] = {
    QUOR_MESSAGES("system", kSystemMessages),
    QUOR_MESSAGES("connection", kConnectionMessages),
    QUOR_MESSAGES("netbkplog", kNetworkBackupMessages),
    QUOR_MESSAGES("bkplog", kBackupMessages),
    QUOR_MESSAGES("copylog", kCopyMessages),
    QUOR_MESSAGES("bkpserverlog", kBackupServerMessages),
};
#undef QUOR_MESSAGES

const MessageSet& MessagesOf(const std::string& kind, const char* fallback) {
  const MessageSet* found = nullptr;
  for (const MessageSet& set : kMessageSets) {
    if (kind == set.kind) return set;
    if (std::string(fallback) == set.kind) found = &set;
  }
  return *found;
}

// Log times: rows spread evenly over the span, in writing order, with a little jitter.
time_t RowTime(int64_t i, int64_t rows, time_t end, Random* random) {
  time_t start = end - kSpan;
  time_t step = rows > 0 ? kSpan / rows : kSpan;
  return start + static_cast<time_t>(kSpan * i / (rows > 0 ? rows : 1)) +
         static_cast<time_t>(random->Below(step > 1 ? step : 1));
}

// A few rows of each database store carry no time, as services sometimes wrote them.
bool WithoutTime(int64_t i, int64_t rows) {
  return rows >= 10 && (i == rows / 3 || i == rows / 2 || i == 2 * rows / 3);
}

std::string Fill(const char* text, const std::string& a, const std::string& b) {
  char buffer[512];
  snprintf(buffer, sizeof buffer, text, a.c_str(), b.c_str());
  return buffer;
}

// Mostly information, some warnings, few errors, as real logs go.
const Message& PickMessage(const Message* messages, size_t count, Random* random) {
  uint64_t r = random->Below(100);
  std::string wanted = r < 80 ? "info" : r < 93 ? "warning" : "err";
  std::vector<size_t> matching;
  for (size_t i = 0; i < count; ++i) {
    std::string level = messages[i].level;
    if (level == wanted || (wanted == "info" && level == "notice")) matching.push_back(i);
  }
  return messages[matching.empty() ? random->Below(count)
                                   : matching[random->Below(matching.size())]];
}

// One SQLite file written in a single transaction through one prepared insert.
class BulkWriter {
 public:
  ~BulkWriter() {
    sqlite3_finalize(insert_);
    sqlite3_close(db_);
  }

  bool Open(const std::string& path, const char* schema, const char* insert, std::string* error) {
    if (!MakeParentDirectories(path, error)) return false;
    unlink(path.c_str());
    if (sqlite3_open(path.c_str(), &db_) != SQLITE_OK ||
        sqlite3_exec(db_,
                     "PRAGMA auto_vacuum=INCREMENTAL; PRAGMA synchronous=OFF; "
                     "PRAGMA journal_mode=MEMORY;",
                     nullptr, nullptr, nullptr) != SQLITE_OK ||
        sqlite3_exec(db_, schema, nullptr, nullptr, nullptr) != SQLITE_OK ||
        sqlite3_exec(db_, "BEGIN", nullptr, nullptr, nullptr) != SQLITE_OK ||
        sqlite3_prepare_v2(db_, insert, -1, &insert_, nullptr) != SQLITE_OK) {
      return Fail(path, error);
    }
    path_ = path;
    return true;
  }

  sqlite3_stmt* row() { return insert_; }

  bool Insert(std::string* error) {
    bool ok = sqlite3_step(insert_) == SQLITE_DONE;
    sqlite3_reset(insert_);
    sqlite3_clear_bindings(insert_);
    return ok || Fail(path_, error);
  }

  // Commits the rows and leaves the store as every new store is (QUOR_NEW_STORE_PRAGMAS): the
  // bulk load itself runs with an in-memory journal.
  bool Commit(std::string* error) {
    return (sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr) == SQLITE_OK &&
            sqlite3_exec(db_, QUOR_NEW_STORE_PRAGMAS, nullptr, nullptr, nullptr) == SQLITE_OK) ||
           Fail(path_, error);
  }

 private:
  bool Fail(const std::string& path, std::string* error) {
    *error = path + ": " + (db_ != nullptr ? sqlite3_errmsg(db_) : "cannot open");
    return false;
  }

  sqlite3* db_ = nullptr;
  sqlite3_stmt* insert_ = nullptr;
  std::string path_;
};

void BindText(sqlite3_stmt* stmt, int index, const std::string& text) {
  sqlite3_bind_text(stmt, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

void BindTime(sqlite3_stmt* stmt, int index, int64_t i, int64_t rows, time_t t) {
  if (WithoutTime(i, rows)) {
    sqlite3_bind_null(stmt, index);
  } else {
    sqlite3_bind_int64(stmt, index, t);
  }
}

// An info value for a disk event's template member.
std::string DiskInfoValue(const std::string& code, const std::string& field, Random* random) {
  if (field == "test") return random->Chance(70) ? "quick" : "extended";
  if (field == "temperature") return std::to_string(48 + random->Below(18));
  if (field == "threshold") return "55";
  if (field == "limit") return "100";
  if (field == "hours") return std::to_string(10000 * (1 + random->Below(5)));
  if (code == "health_status_changed") return field == "from" ? "Healthy" : "Warning";
  if (code == "firmware_updated") return field == "from" ? "80.00A80" : "82.00A82";
  int64_t base = static_cast<int64_t>(random->Below(40));
  return std::to_string(field == "to" ? base + 1 + random->Below(20) : base + 1);
}

std::string DiskInfo(const DiskEventCode& code, Random* random) {
  std::string json = "{";
  std::string fields = code.fields;
  size_t pos = 0;
  while (!fields.empty() && pos <= fields.size()) {
    size_t comma = fields.find(',', pos);
    std::string field = fields.substr(pos, comma == std::string::npos ? comma : comma - pos);
    std::string value = DiskInfoValue(code.code, field, random);
    if (json.size() > 1) json += ",";
    bool number = value.find_first_not_of("0123456789") == std::string::npos;
    json += "\"" + field + "\":" + (number ? value : "\"" + value + "\"");
    if (comma == std::string::npos) break;
    pos = comma + 1;
  }
  return json + "}";
}

struct Drive {
  const char* model;
  const char* serial;
  bool expansion;  // in expansion unit 1, else in the unit itself
  int bay;
};
const Drive kDrives[] = {
    {"WDC WD40EFRX-68N32N0", "WD-WCC7K4HJ2KXY", false, 1},
    {"WDC WD40EFRX-68N32N0", "WD-WCC7K1AA93LD", false, 2},
    {"ST4000VN008-2DR166", "ZGY8N3QF", false, 3},
    {"ST4000VN008-2DR166", "ZGY8N4TT", false, 4},
    {"HGST HUS726T4TALA6L4", "V6GKJ2XR", true, 1},
    {"HGST HUS726T4TALA6L4", "V6GKJ7PA", true, 2},
};

// Writes the lines of a plain-text log, oldest first, until both minimums are reached.
bool WriteLines(const std::string& path, int64_t minLines, int64_t minBytes,
                const std::function<std::string(int64_t)>& line, std::string* error) {
  std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "w"), fclose);
  if (!file) {
    *error = "cannot write " + path;
    return false;
  }
  int64_t bytes = 0;
  for (int64_t i = 0; i < minLines || bytes < minBytes; ++i) {
    std::string text = line(i) + "\n";
    if (fwrite(text.data(), 1, text.size(), file.get()) != text.size()) {
      *error = "cannot write " + path;
      return false;
    }
    bytes += static_cast<int64_t>(text.size());
  }
  return true;
}

// The date text of the plain-text logs, formatted once a minute: conversions of local time
// are the slow part of writing a large log.
class DateTexts {
 public:
  std::string At(time_t t) {
    if (t / 60 != minute_) {
      minute_ = t / 60;
      prefix_ = QUORLogConvertTime1(minute_ * 60).substr(0, 17);  // "YYYY/MM/DD HH:MM:"
    }
    char seconds[4];
    snprintf(seconds, sizeof seconds, "%02d", static_cast<int>(t % 60));
    return prefix_ + seconds;
  }

 private:
  time_t minute_ = -1;
  std::string prefix_;
};

}  // namespace

bool WriteSystemLog(const std::string& path, const char* kind, int64_t rows, uint64_t seed,
                    time_t end, std::string* error) {
  std::string k = kind;
  const MessageSet& set = MessagesOf(k, "system");
  BulkWriter writer;
  if (!writer.Open(path, QUOR_SYSTEM_LOG_SCHEMA,
                   "INSERT INTO logs (time, level, username, msg) VALUES (?, ?, ?, ?)", error)) {
    return false;
  }
  Random random(seed);
  for (int64_t i = 0; i < rows; ++i) {
    const Message& m = PickMessage(set.messages, set.count, &random);
    std::string user = random.Pick(kUsers);
    std::string first = k == "netbkplog"    ? std::to_string(1 + random.Below(3))
                        : k == "connection" ? user
                        : random.Chance(50) ? random.Pick(kPackages)
                                            : random.Pick(kShares);
    sqlite3_stmt* row = writer.row();
    BindTime(row, 1, i, rows, RowTime(i, rows, end, &random));
    BindText(row, 2, m.level);
    BindText(row, 3, user);
    BindText(row, 4, Fill(m.text, first, random.Pick(kAddresses)));
    if (!writer.Insert(error)) return false;
  }
  return writer.Commit(error);
}

bool WriteTransferLog(const std::string& path, int64_t rows, uint64_t seed, time_t end,
                      std::string* error) {
  static const char* const kCommands[] = {"upload", "download", "download", "delete",
                                          "mkdir",  "rename",   "read",     "write"};
  BulkWriter writer;
  if (!writer.Open(path, QUOR_TRANSFER_LOG_SCHEMA,
                   "INSERT INTO logs (time, ip, username, cmd, filesize, filename, isdir) VALUES "
                   "(?, ?, ?, ?, ?, ?, ?)",
                   error)) {
    return false;
  }
  Random random(seed);
  for (int64_t i = 0; i < rows; ++i) {
    std::string cmd = random.Pick(kCommands);
    std::string file = random.Pick(kFiles);
    bool dir = cmd == "mkdir" || file.find('.') == std::string::npos;
    // Sizes from a few bytes to several gigabytes, spread over the units.
    int shift = static_cast<int>(random.Below(4)) * 10;
    int64_t size =
        (static_cast<int64_t>(shift == 30 ? 1 + random.Below(8) : random.Below(1024)) << shift) +
        static_cast<int64_t>(random.Below(1024));
    if (dir) size = 0;
    sqlite3_stmt* row = writer.row();
    BindTime(row, 1, i, rows, RowTime(i, rows, end, &random));
    BindText(row, 2, random.Pick(kAddresses));
    BindText(row, 3, random.Pick(kUsers));
    BindText(row, 4, cmd);
    sqlite3_bind_int64(row, 5, size);
    BindText(row, 6, file);
    sqlite3_bind_int(row, 7, dir ? 1 : 0);
    if (!writer.Insert(error)) return false;
  }
  return writer.Commit(error);
}

bool WriteDiskLog(const std::string& path, const std::string& model, int64_t rows, uint64_t seed,
                  time_t end, std::string* error) {
  int codes = 0;
  while (kDiskEventCodes[codes].code != nullptr) ++codes;
  BulkWriter writer;
  if (!writer.Open(path, QUOR_DISK_LOG_SCHEMA,
                   "INSERT INTO logs (level, time, logtime, model, serial, container, slot, path, "
                   "msg, info, SHOW) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
                   error)) {
    return false;
  }
  Random random(seed);
  for (int64_t i = 0; i < rows; ++i) {
    const DiskEventCode& code = kDiskEventCodes[random.Below(codes)];
    const Drive& drive = random.Pick(kDrives);
    time_t t = RowTime(i, rows, end, &random);
    // The drive's own clock is sometimes a little behind the unit's.
    time_t logtime = random.Chance(30) ? t - static_cast<time_t>(random.Below(120)) : t;
    std::string slot = std::to_string(drive.bay);
    std::string devicePath = "/dev/sata" + slot;
    if (drive.expansion) {
      slot = "1-" + slot;
      devicePath = "/dev/eunit1/sata" + std::to_string(drive.bay);
    }
    sqlite3_stmt* row = writer.row();
    BindText(row, 1, code.level);
    BindTime(row, 2, i, rows, t);
    sqlite3_bind_int64(row, 3, logtime);
    BindText(row, 4, drive.model);
    BindText(row, 5, drive.serial);
    if (random.Chance(3)) {
      sqlite3_bind_null(row, 6);  // the storage manager did not know the enclosure
    } else {
      BindText(row, 6, drive.expansion ? "QX517-1" : model);
    }
    BindText(row, 7, slot);
    BindText(row, 8, devicePath);
    BindText(row, 9, code.code);
    BindText(row, 10, DiskInfo(code, &random));
    sqlite3_bind_int(row, 11, random.Chance(5) ? 0 : 1);
    if (!writer.Insert(error)) return false;
  }
  return writer.Commit(error);
}

bool WritePlainLog(const std::string& path, const char* kind, int64_t minLines, int64_t minBytes,
                   uint64_t seed, time_t end, std::string* error) {
  const MessageSet& set = MessagesOf(kind, "bkplog");
  if (!MakeParentDirectories(path, error)) return false;
  // Lines of a large file are spread over the same months as a small one.
  int64_t lines = minBytes > 0 ? std::max<int64_t>(minLines, minBytes / 70) : minLines;
  Random random(seed);
  DateTexts dates;
  return WriteLines(
      path, minLines, minBytes,
      [&](int64_t i) {
        const Message& m = PickMessage(set.messages, set.count, &random);
        std::string user = random.Chance(70) ? "backupd" : random.Pick(kUsers);
        time_t t = RowTime(i < lines ? i : lines - 1, lines, end, &random);
        return std::string(m.level) + "\t" + dates.At(t) + "\t" + user + ":\t" +
               Fill(m.text, random.Pick(kTaskNames), "");
      },
      error);
}

bool BuildDemoRoot(const DemoOptions& options, std::string* error) {
  time_t end = options.end;
  if (end == 0) end = time(nullptr) / 86400 * 86400;
  const std::string& root = options.root;
  int64_t rows = options.rows > 0 ? options.rows : 0;
  uint64_t seed = options.seed;
  std::error_code failed;
  std::filesystem::create_directories(root, failed);
  if (failed || !InstallTexts(root, options.textsDir, error)) {
    if (error->empty()) *error = "cannot create " + root;
    return false;
  }
  if (!WriteTextFile(root + "/etc.defaults/quorinfo.conf",
                     std::string("upnpmodelname=\"") + kDemoModelName +
                         "\"\nunique=\"quor_x86_64_920+\"\nbuildnumber=\"64570\"\n") ||
      !WriteTextFile(root + "/etc/quor.conf",
                     "language=\"en\"\nhostname=\"quor-demo\"\nusbbkp=\"yes\"\nusbcopy=\"yes\"\n"
                     "sdcopy=\"no\"\nnetbkp=\"yes\"\n")) {
    *error = "cannot write the configuration files under " + root;
    return false;
  }
  const std::string dir = root + "/var/log/quorlog/";
  static const char* const kTransferFiles[] = {".FTPXFERDB", ".KYRFMXFERDB", ".WEBDAVXFERDB",
                                               ".SMBXFERDB", ".AFPXFERDB",   ".TFTPXFERDB"};
  bool ok = WriteSystemLog(dir + ".QUORSYSDB", "system", rows, seed, end, error) &&
            WriteSystemLog(dir + ".QUORCONNDB", "connection", rows / 4, seed + 1, end, error) &&
            WriteSystemLog(dir + ".QUORNETBKPDB", "netbkplog", rows / 20, seed + 2, end, error) &&
            WriteDiskLog(dir + ".QUORDISKDB", kDemoModelName, std::max<int64_t>(rows / 50, 40),
                         seed + 3, end, error);
  for (size_t i = 0; ok && i < 6; ++i) {
    ok = WriteTransferLog(dir + kTransferFiles[i], rows / 10, seed + 10 + i, end, error);
  }
  ok = ok &&
       WritePlainLog(root + "/var/log/quorbackup.log", "bkplog", rows / 10, 0, seed + 20, end,
                     error) &&
       WritePlainLog(root + "/var/log/quorcopy.log", "copylog", rows / 20, 0, seed + 21, end,
                     error) &&
       WritePlainLog(root + "/var/log/quorbackup_server.log", "bkpserverlog", rows / 20, 0,
                     seed + 22, end, error);
  return ok;
}
