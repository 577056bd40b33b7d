// quor-logd: the platform's log writer. Follows the machine's journal (or a folder of journal
// files) into the system and connection log stores under the appliance root.
//   quor-logd --root ROOT [--journal | --journal-dir DIR] [--config FILE]
//             [--udp ADDR:PORT] [--tcp ADDR:PORT] [--tls ADDR:PORT --cert F --key F [--ca F]]
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "logd/config.h"
#include "logd/entry_queue.h"
#include "logd/journal_follower.h"
#include "logd/syslog/receiver.h"
#include "logd/writer.h"
#include "platform/root.h"
#include "platform/systemlog.h"

namespace {

struct Arguments {
  std::string root;
  bool journal = false;
  std::string journalDir;
  std::string config;
  std::vector<std::pair<std::string, std::string>> syslog;  // receiver options, in order
};

int Usage() {
  fprintf(stderr,
          "usage: quor-logd --root ROOT [--journal | --journal-dir DIR] [--config FILE]\n"
          "                 [--udp ADDR:PORT] [--tcp ADDR:PORT]\n"
          "                 [--tls ADDR:PORT --cert FILE --key FILE [--ca FILE]]\n");
  return 2;
}

bool Parse(int argc, char** argv, Arguments* args) {
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    bool hasValue = i + 1 < argc;
    if (arg == "--root" && hasValue) {
      args->root = argv[++i];
    } else if (arg == "--journal") {
      args->journal = true;
    } else if (arg == "--journal-dir" && hasValue) {
      args->journalDir = argv[++i];
    } else if (arg == "--config" && hasValue) {
      args->config = argv[++i];
    } else if (arg.rfind("--", 0) == 0 && logd::syslog::IsSyslogCommandLineOption(arg.substr(2)) &&
               hasValue) {
      args->syslog.emplace_back(arg.substr(2), argv[++i]);
    } else {
      return false;
    }
  }
  return !args->root.empty() && !(args->journal && !args->journalDir.empty());
}

// Whether this machine keeps a journal at all (a container often has none).
bool MachineHasJournal() {
  struct stat st;
  return stat("/var/log/journal", &st) == 0 || stat("/run/log/journal", &st) == 0;
}

// Both to the system log and to standard error, so that `make run` shows it too.
void Say(int priority, const std::string& text) {
  SLIBCSysLog(priority, "quor-logd: %s", text.c_str());
  fprintf(stderr, "quor-logd: %s\n", text.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  Arguments args;
  if (!Parse(argc, argv, &args)) return Usage();
  setenv("QUOR_ROOT", args.root.c_str(), 1);
  // Signals are taken by sigwait below, never by a handler; threads started later inherit the
  // mask.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGTERM);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  logd::LogdConfig config;
  std::string configPath = args.config.empty() ? QuorResolvePath(logd::kConfigPath) : args.config;
  std::string error;
  if (!logd::LoadConfig(configPath, &config, &error)) {
    Say(LOG_ERR, error);
    return 1;
  }
  for (const auto& [name, value] : args.syslog) {  // the command line adds to the file
    if (!logd::syslog::SetSyslogOption(name, value, &config.syslog, &error)) {
      Say(LOG_ERR, error);
      return 2;
    }
  }
  logd::EntryQueue queue(config.queueEntries, config.queueBytes);
  logd::WriterOptions options;
  options.paths[0] = QuorResolvePath("/var/log/quorlog/.QUORSYSDB");
  options.paths[1] = QuorResolvePath("/var/log/quorlog/.QUORCONNDB");
  options.limits[0] = config.system;
  options.limits[1] = config.connection;
  logd::Writer writer(&queue, options);
  if (!writer.Open(&error)) {
    Say(LOG_ERR, "cannot open the stores: " + error);
    return 1;
  }

  // The inputs: each is opened here from the positions the stores hold, after the writer and
  // before it starts, and stopped before the queue closes.
  std::unique_ptr<logd::JournalFollower> journal;
  if (args.journal && !MachineHasJournal()) {
    Say(LOG_NOTICE, "this machine keeps no journal; not following one");
  } else if (args.journal || !args.journalDir.empty()) {
    journal = std::make_unique<logd::JournalFollower>(&queue, args.journalDir);
    if (!journal->Open(writer.Position(logd::Store::kSystem, logd::kJournalInput),
                       writer.Position(logd::Store::kConnection, logd::kJournalInput), &error)) {
      Say(LOG_ERR, error);
      return 1;
    }
  }

  // The syslog receiver binds its addresses here too, so that a taken port fails the start.
  std::unique_ptr<logd::syslog::SyslogReceiver> receiver;
  if (config.syslog.Enabled()) {
    receiver = std::make_unique<logd::syslog::SyslogReceiver>(config.syslog, &queue);
    if (!receiver->Start(&error)) {
      Say(LOG_ERR, "syslog receiver: " + error);
      return 1;
    }
  }

  writer.Start();
  if (journal) journal->Start();
  Say(LOG_INFO, "started on " + args.root +
                    (journal ? ", following " + (args.journalDir.empty()
                                                     ? std::string("the machine's journal")
                                                     : "the journal in " + args.journalDir)
                             : std::string()));
  int signal = 0;
  sigwait(&stopSignals, &signal);

  if (journal) journal->Stop();
  if (receiver) receiver->Stop();
  queue.Close();
  writer.Join();
  const logd::WriterStats& stats = writer.stats();
  char summary[768];
  snprintf(summary, sizeof summary,
           "stopped (%s): %llu rows written in %llu batches, %llu rows retired, %llu removed "
           "for space; longest write transaction %.1f ms, longest retention transaction %.1f "
           "ms (%llu of %llu transactions over 25 ms; the most CPU time of one %.1f ms), longest "
           "wait for a store %.1f ms; at most %lld rows over a row limit; waited for readers to "
           "leave the write-ahead log %llu times (%llu times it started over; longest wait %.1f "
           "ms), the log at most %lld pages",
           strsignal(signal), static_cast<unsigned long long>(stats.rowsWritten.load()),
           static_cast<unsigned long long>(stats.batches.load()),
           static_cast<unsigned long long>(stats.rowsRetired.load()),
           static_cast<unsigned long long>(stats.rowsFreedForSpace.load()),
           stats.longestWriteUs.load() / 1000.0, stats.longestTrimUs.load() / 1000.0,
           static_cast<unsigned long long>(stats.longTransactions.load()),
           static_cast<unsigned long long>(stats.transactions.load()),
           stats.longestCpuUs.load() / 1000.0, stats.longestLockWaitUs.load() / 1000.0,
           static_cast<long long>(stats.mostRowsOverCap.load()),
           static_cast<unsigned long long>(stats.walWaits.load()),
           static_cast<unsigned long long>(stats.walRestarts.load()),
           stats.longestWalWaitUs.load() / 1000.0,
           static_cast<long long>(stats.mostWalPages.load()));
  Say(LOG_INFO, summary);
  if (stats.indexLockWaits > 0) {
    Say(LOG_INFO, std::to_string(stats.indexLockWaits.load()) +
                      " steps of the search index waited out another indexer's turn");
  }
  if (stats.indexFailures > 0) {
    Say(LOG_WARNING, std::to_string(stats.indexFailures.load()) +
                         " steps of the search index failed; the last: " + writer.LastIndexError());
  }
  return 0;
}
