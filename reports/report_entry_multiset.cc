#include "reports/report_entry_multiset.h"

#include <cstring>
#include <functional>
#include <string_view>

namespace {

std::size_t HashOf(const tagSCAN_REPORT_ENTRY& entry) {
  return std::hash<std::string_view>{}(
      std::string_view(reinterpret_cast<const char*>(&entry), sizeof entry));
}

bool SameEntry(const tagSCAN_REPORT_ENTRY& a, const tagSCAN_REPORT_ENTRY& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

}  // namespace

ReportEntryMultiset::ReportEntryMultiset(const ReportEntryRefs& entries) {
  std::size_t capacity = 16;
  while (capacity < 2 * entries.size()) capacity *= 2;  // at most half full
  slots_.resize(capacity);
  mask_ = capacity - 1;
  for (const tagSCAN_REPORT_ENTRY* entry : entries) {
    const std::size_t hash = HashOf(*entry);
    Slot& slot = Find(*entry, hash);
    if (slot.entry == nullptr) {
      slot.entry = entry;
      slot.hash = hash;
    }
    ++slot.copies;
  }
}

bool ReportEntryMultiset::TakeOne(const tagSCAN_REPORT_ENTRY& entry) {
  Slot& slot = Find(entry, HashOf(entry));
  if (slot.entry == nullptr || slot.copies == 0) return false;
  --slot.copies;  // the slot stays, so that the probe sequences stay whole
  return true;
}

ReportEntryMultiset::Slot& ReportEntryMultiset::Find(const tagSCAN_REPORT_ENTRY& entry,
                                                     std::size_t hash) {
  for (std::size_t i = hash & mask_;; i = (i + 1) & mask_) {
    Slot& slot = slots_[i];
    if (slot.entry == nullptr) return slot;
    if (slot.hash == hash && SameEntry(*slot.entry, entry)) return slot;
  }
}
