// The scan service's work on the report index: adding each run's entry
// under the index lock without ever waiting on it for long, keeping the
// entries that cannot go in yet and adding them later in the order they
// came, and keeping at most so many reports of each scan.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "reports/report_index.h"

namespace service {

// The most reports kept of one scan (its name and owner).
inline constexpr std::size_t kReportsKeptPerScan = 100;

// Entries that wait, one file each, in a directory of the service's state.
class KeptEntries {
 public:
  explicit KeptEntries(std::string directory) : directory_(std::move(directory)) {}

  bool Keep(const tagSCAN_REPORT_ENTRY& entry, std::string* error) const;
  bool Empty() const;

  // Adds the kept entries to the index in the order they were kept, each
  // once, waiting at most `lockWait` for the lock each time; stops at the
  // first that cannot go in. kDone once none is left. Only one process adds
  // at a time: the others find kLockBusy.
  IndexUpdate AddToIndex(std::chrono::milliseconds lockWait, std::string* error) const;

 private:
  std::string directory_;
};

enum class EntryFate {
  kAdded,  // in the index
  kKept,   // waits in the state directory; added later
  kLost,   // neither: `error` says why
};

// Records a run's entry: straight into the index when no kept entry waits
// before it and the lock comes within `lockWait`, else kept.
EntryFate RecordReportEntry(const tagSCAN_REPORT_ENTRY& entry, const KeptEntries& kept,
                            std::chrono::milliseconds lockWait, std::string* error);

// Takes the oldest reports, in index order, of every scan that has more than
// `keep` out of the index, and removes their files unless another entry
// still names them.
IndexUpdate TrimReports(std::size_t keep, std::chrono::milliseconds lockWait,
                        std::string* error);

// Takes the oldest report of the scan `scanName` of `owner` out of the index
// and removes its file; "" when the scan has none, or the index could not be
// rewritten (then `*update` says how). Returns the freed path.
std::string EvictOldestReport(const std::string& scanName, std::uint32_t owner,
                              std::chrono::milliseconds lockWait, IndexUpdate* update);

}  // namespace service
