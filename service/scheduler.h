// When the service starts each scan's runs: the timed runs of the rule
// (run_schedule.h), one catch-up run for runs missed while the service was
// not running, the machine was suspended or the clock jumped forward, and
// the first-boot runs. Pure logic: the caller brings the time, the scans,
// the last runs and whether the boot is new, and takes the runs due.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "service/run_schedule.h"
#include "service/service_state.h"
#include "taskstore/schedule_scan_entry.h"

namespace service {

using Steady = std::chrono::steady_clock::time_point;

// A stored scan's schedule: its record (the directories are not needed) and
// the moment its schedule was set.
struct ScanSchedule {
  ScanKey key;
  tagSCHEDULE_SCAN_ENTRY record;
  Instant anchor;
};

// The schedule fields of `record` in a record without directories.
tagSCHEDULE_SCAN_ENTRY ScheduleOnly(const tagSCHEDULE_SCAN_ENTRY& record);

class Scheduler {
 public:
  // `lastRuns`: from the service's state; `newBoot`: whether the boot id
  // differs from the one stored. Delayed runs come `startDelay` after the
  // time they are found.
  Scheduler(std::chrono::seconds startDelay, std::map<ScanKey, LastRun> lastRuns, bool newBoot)
      : startDelay_(startDelay), lastRuns_(std::move(lastRuns)), newBoot_(newBoot) {}

  // The store's scans, at start and after every change of the store. A scan
  // seen for the first time gets a catch-up run when a run time fell between
  // its last run (or its anchor) and now: after the start delay at the first
  // call, at once later (it came due just before the store was read). At the
  // first call, first-boot scans get their run on a new boot. A scan whose
  // schedule changed counts its runs from now.
  void SetScans(std::vector<ScanSchedule> scans, Instant now, Steady steadyNow,
                const date::time_zone& zone);

  // The scans due now, each once. `discontinuity`: since the last call the
  // wall clock moved otherwise than the steady one (a jump, a resume), or
  // the zone changed: timed runs passed over get one catch-up run.
  std::vector<ScanKey> Due(Instant now, Steady steadyNow, bool discontinuity,
                           const date::time_zone& zone);

  // The earliest moment at which Due may have something; for the caller's sleep.
  std::optional<Steady> NextWake(Instant now, Steady steadyNow) const;

  // Each scan's next run as the scheduler sees it: the earlier of its timed
  // run and a delayed one.
  std::map<ScanKey, Instant> Upcoming(Instant now, Steady steadyNow) const;

 private:
  struct Entry {
    ScanSchedule schedule;
    std::optional<Instant> next;     // the next timed run
    std::optional<Steady> delayed;   // a catch-up or first-boot run
  };

  std::optional<Instant> NextAfter(const Entry& entry, Instant after,
                                   const date::time_zone& zone) const;

  std::chrono::seconds startDelay_;
  std::map<ScanKey, LastRun> lastRuns_;
  bool newBoot_;
  bool started_ = false;
  std::map<ScanKey, Entry> entries_;
};

}  // namespace service
