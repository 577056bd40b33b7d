// The bounds on downloads running at once, shared by every worker: one lock file per slot in the
// server's state folder, for the server as a whole and for each user. A download process holds
// its slots' locks until its document is done (or it ends), so a slot frees itself however the
// download ends.
#pragma once

#include <string>

// The slots' folder of the current appliance root.
std::string DownloadSlotsFolder();
// The prefix of the slots of the server as a whole, and of one user's (any name is safe).
std::string ServerSlotPrefix();
std::string UserSlotPrefix(const std::string& user);

class DownloadSlot {
 public:
  DownloadSlot() = default;
  ~DownloadSlot();
  DownloadSlot(const DownloadSlot&) = delete;
  DownloadSlot& operator=(const DownloadSlot&) = delete;

  // Takes a free one of count slots named prefix-0, prefix-1, ... in folder (created 0700 when
  // missing). False when all are taken (or the folder cannot be used; *error says so).
  bool Take(const std::string& folder, const std::string& prefix, int count, std::string* error);
  // Lets go of this process's descriptor without freeing the slot: after fork, the download
  // process keeps it and the worker calls Release.
  void Release();
  int fd() const { return fd_; }

 private:
  int fd_ = -1;
};
