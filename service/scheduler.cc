#include "service/scheduler.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace service {
namespace {

bool SameSchedule(const ScanSchedule& a, const ScanSchedule& b) {
  constexpr std::size_t kFrom = offsetof(tagSCHEDULE_SCAN_ENTRY, byFrequency);
  constexpr std::size_t kTo = offsetof(tagSCHEDULE_SCAN_ENTRY, abyReserved1);
  return a.anchor == b.anchor &&
         std::memcmp(reinterpret_cast<const char*>(&a.record) + kFrom,
                     reinterpret_cast<const char*>(&b.record) + kFrom, kTo - kFrom) == 0;
}

}  // namespace

tagSCHEDULE_SCAN_ENTRY ScheduleOnly(const tagSCHEDULE_SCAN_ENTRY& record) {
  tagSCHEDULE_SCAN_ENTRY schedule;
  PrepareNewScheduleScanEntry(&schedule);
  std::memcpy(schedule.szScanName, record.szScanName, sizeof schedule.szScanName);
  schedule.byFrequency = record.byFrequency;
  schedule.bFirstBootScan = record.bFirstBootScan;
  schedule.nHour = record.nHour;
  schedule.nMinute = record.nMinute;
  schedule.nSecond = record.nSecond;
  schedule.bRepeatScan = record.bRepeatScan;
  schedule.nRecurEvery = record.nRecurEvery;
  schedule.nRepeatInterval = record.nRepeatInterval;
  schedule.byRepeatUnit = record.byRepeatUnit;
  schedule.byWeekDay = record.byWeekDay;
  schedule.nScanAction = record.nScanAction;
  schedule.byScanOptions = record.byScanOptions;
  schedule.dwUserId = record.dwUserId;
  return schedule;
}

std::optional<Instant> Scheduler::NextAfter(const Entry& entry, Instant after,
                                            const date::time_zone& zone) const {
  return NextRunAfter(entry.schedule.record, entry.schedule.anchor, after, zone);
}

void Scheduler::SetScans(std::vector<ScanSchedule> scans, Instant now, Steady steadyNow,
                         const date::time_zone& zone) {
  std::map<ScanKey, Entry> entries;
  for (ScanSchedule& scan : scans) {
    const auto known = entries_.find(scan.key);
    if (known != entries_.end() && SameSchedule(known->second.schedule, scan)) {
      entries.emplace(scan.key, std::move(known->second));
      continue;
    }
    Entry entry{std::move(scan), std::nullopt, std::nullopt};
    const ScanKey key = entry.schedule.key;
    if (known != entries_.end()) {
      entry.delayed = known->second.delayed;  // a changed schedule counts from now
    } else {
      // Missed: a run time between the last run (or the anchor) and now.
      const auto last = lastRuns_.find(key);
      const Instant since = last != lastRuns_.end() ? std::max(last->second.start, entry.schedule.anchor)
                                                     : entry.schedule.anchor;
      // Found at start, it was missed while the service did not run; found
      // later, it came due in the moment before the store was read again.
      const auto missed = NextAfter(entry, since, zone);
      if (missed && *missed <= now) entry.delayed = steadyNow + (started_ ? Steady::duration{} : startDelay_);
      const tagSCHEDULE_SCAN_ENTRY& record = entry.schedule.record;
      const bool firstBoot = record.bFirstBootScan == 1;
      const bool today = record.byFrequency != FREQ_WEEKLY ||
                         record.byWeekDay == LocalWeekDay(now, zone);
      if (!started_ && newBoot_ && firstBoot && today) entry.delayed = steadyNow + startDelay_;
    }
    entry.next = NextAfter(entry, now, zone);
    entries.emplace(key, std::move(entry));
  }
  entries_ = std::move(entries);
  started_ = true;
}

std::vector<ScanKey> Scheduler::Due(Instant now, Steady steadyNow, bool discontinuity,
                                    const date::time_zone& zone) {
  std::vector<ScanKey> due;
  for (auto& [key, entry] : entries_) {
    bool run = false;
    if (entry.next && *entry.next <= now) {
      // On time, or passed over by a jump or a suspension: then once, later.
      if (discontinuity) {
        if (!entry.delayed) entry.delayed = steadyNow + startDelay_;
      } else {
        run = true;
      }
    }
    if (entry.next && (discontinuity || *entry.next <= now)) entry.next = NextAfter(entry, now, zone);
    if (entry.delayed && *entry.delayed <= steadyNow) {
      run = true;
      entry.delayed.reset();
    }
    if (run) due.push_back(key);
  }
  return due;
}

std::optional<Steady> Scheduler::NextWake(Instant now, Steady steadyNow) const {
  std::optional<Steady> wake;
  const auto consider = [&](Steady at) {
    if (!wake || at < *wake) wake = at;
  };
  for (const auto& [key, entry] : entries_) {
    if (entry.next) consider(steadyNow + std::max(*entry.next - now, std::chrono::seconds(0)));
    if (entry.delayed) consider(*entry.delayed);
  }
  return wake;
}

std::map<ScanKey, Instant> Scheduler::Upcoming(Instant now, Steady steadyNow) const {
  std::map<ScanKey, Instant> upcoming;
  for (const auto& [key, entry] : entries_) {
    std::optional<Instant> at = entry.next;
    if (entry.delayed) {
      const Instant delayed =
          now + std::chrono::ceil<std::chrono::seconds>(std::max(*entry.delayed - steadyNow,
                                                                 Steady::duration::zero()));
      if (!at || delayed < *at) at = delayed;
    }
    if (at) upcoming.emplace(key, *at);
  }
  return upcoming;
}

}  // namespace service
