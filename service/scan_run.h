// One run of a scheduled scan, as the scheduler starts it and as
// `schscand --run NAME` starts it by hand: the report file, the scan as its
// owner, the actions, the index entry, the retention of old reports and the
// scan's last run in the service's state.
#pragma once

#include <chrono>
#include <csignal>
#include <string>

namespace service {

struct RunSettings {
  std::string databaseDir;
  // Progress on standard output (files, data, rate, directory).
  bool showProgress = false;
  // How long the run waits for the index lock before it keeps its entry.
  std::chrono::milliseconds lockWait{2000};
};

// Runs the stored scan `scanName` now. Returns the exit status: 0 clean, 1
// infected files found, 2 an error (also: no such scan, its owner has no
// passwd entry, it is running already). Messages go to standard error.
// `stop` (set by SIGTERM or SIGINT) interrupts the scan, whose report is
// then written and marked interrupted.
int RunScanNow(const std::string& scanName, const RunSettings& settings,
               const volatile std::sig_atomic_t& stop);

}  // namespace service
