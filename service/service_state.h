// What the scan service remembers between runs, in its state directory: the
// last run of each scan, the boot id it last saw, and how its last load of
// the signature database went. Each is a small text file, replaced whole.
#pragma once

#include <chrono>
#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "service/run_schedule.h"
#include "taskstore/schedule_scan_entry.h"

namespace service {

// A scan as the service knows it: names are unique in the store, but a name
// deleted by one user may come back as another's.
struct ScanKey {
  std::uint32_t owner = 0;
  std::string name;
  auto operator<=>(const ScanKey&) const = default;
};

// The key of a stored scan: its owner and its name, bounded by the field.
ScanKey KeyOf(const tagSCHEDULE_SCAN_ENTRY& scan);

struct LastRun {
  Instant start{};
  // "clean", "N infected", "error" or "interrupted".
  std::string result;
};

class ServiceState {
 public:
  explicit ServiceState(std::string directory) : directory_(std::move(directory)) {}

  // Makes the directory and its subdirectories exist, private to the service.
  bool Prepare(std::string* error) const;

  // A file or subdirectory of the state directory.
  std::string PathOf(const std::string& name) const { return directory_ + "/" + name; }

  // The last run of each scan; lines that do not read are left out.
  std::map<ScanKey, LastRun> LastRuns(std::string* error) const;
  bool RecordRun(const ScanKey& scan, const LastRun& run, std::string* error) const;
  // Forgets the runs of scans that are gone from the store.
  bool KeepRunsOf(const std::set<ScanKey>& scans, std::string* error) const;

  // The runs the running service has put off (catch-up and first-boot
  // runs), for --status; the file goes when the service stops.
  std::map<ScanKey, Instant> UpcomingRuns(std::string* error) const;
  bool SetUpcomingRuns(const std::map<ScanKey, Instant>& runs, std::string* error) const;
  void ForgetUpcomingRuns() const;

  // The boot id seen last; nullopt when none was stored yet.
  std::optional<std::string> BootId(std::string* error) const;
  bool SetBootId(const std::string& bootId, std::string* error) const;

  // One line: how the last load of the signature database went.
  std::string DatabaseStatus() const;
  bool SetDatabaseStatus(const std::string& line, std::string* error) const;

 private:
  bool WriteRuns(const std::map<ScanKey, LastRun>& runs, std::string* error) const;

  std::string directory_;
};

}  // namespace service
