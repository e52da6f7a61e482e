// The service itself: keeps the stored scans' schedules, starts their runs
// one at a time in the order they came due, each as `schscand --run NAME`
// in a process of its own, and adds kept index entries and trims old
// reports beside them. Runs in the foreground until SIGTERM or SIGINT.
#pragma once

#include <chrono>
#include <string>

namespace service {

struct DaemonSettings {
  std::string databaseDir;
  std::chrono::seconds startDelay{120};
  std::string bootIdFile;
};

// Returns the exit status: 0 after a clean stop, 1 when it cannot start.
int RunDaemon(const DaemonSettings& settings);

}  // namespace service
