// The scanning side of a run: a child of the service's process that takes
// the scan owner's ids and groups, as cron does for a crontab, walks and
// scans the scan's directories, acts on infected files, and tells the
// service's side what it finds over the run's channel. So the scan reads,
// reports and removes only what its owner could.
#pragma once

#include <sys/types.h>

#include <string>

#include "service/scan_engine.h"
#include "service/tree_scan.h"

namespace service {

struct OwnerIds {
  uid_t uid = 0;
  gid_t gid = 0;
  std::string login;  // for the supplementary groups; "" for none
};

// Starts the scanning child on `socket` (the child's end of the channel;
// the caller closes it after the fork). Returns the child's pid, or -1 with
// errno set. The child stops early on SIGTERM or SIGINT, and always ends
// with a kTotals message unless it cannot take the owner's ids.
pid_t StartOwnerScan(const OwnerIds& owner, const TreeScanRequest& request,
                     const ScanEngine& engine, int socket, int parentSocket);

}  // namespace service
