// A multiset of whole report entries, for taking the entries that one run
// deleted out of the index as it stands at rewrite time: an entry that the
// run deleted j times loses j of its copies, whatever order they come in.
// Expected cost per entry is constant (a hash of the 1316 bytes).
#pragma once

#include <cstddef>
#include <vector>

#include "reports/report_index.h"

class ReportEntryMultiset {
 public:
  // The entries are referred to, not copied: they must outlive the set.
  explicit ReportEntryMultiset(const ReportEntryRefs& entries);

  // True when `entry` is in the set, which then holds one copy fewer.
  bool TakeOne(const tagSCAN_REPORT_ENTRY& entry);

 private:
  struct Slot {
    const tagSCAN_REPORT_ENTRY* entry = nullptr;  // nullptr: empty slot
    std::size_t hash = 0;
    std::size_t copies = 0;
  };

  // The slot of an entry equal to `entry`, or the empty slot where it goes.
  Slot& Find(const tagSCAN_REPORT_ENTRY& entry, std::size_t hash);

  std::vector<Slot> slots_;
  std::size_t mask_ = 0;
};
