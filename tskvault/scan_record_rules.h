// What the task store accepts: names for new scans, and the values of a
// record that is added or modified.
#pragma once

#include <cstdint>
#include <string_view>

#include "taskstore/schedule_scan_entry.h"

namespace tskvault {

// Longest scan name, leaving room for its NUL and one spare byte in
// szScanName, as the name prompt allows.
inline constexpr std::size_t kMaxScanNameLength = SCAN_NAME_SIZE - 2;

// SCHSCAN_OK for a usable new name; SCHSCAN_ERR_NAME_EMPTY for an empty one;
// SCHSCAN_ERR_NAME_LENGTH for one that is too long or holds a character
// outside A-Z, a-z, 0-9.
std::uint32_t CheckNewScanName(std::string_view name);

// The record's name up to its NUL; the whole field when it has none (which
// CheckNewScanName then refuses as too long).
std::string_view ScanNameOf(const tagSCHEDULE_SCAN_ENTRY& entry);

// True when every field that the record uses holds an allowed value: a valid
// name, frequency daily or weekly, a weekday 1-7 for a weekly scan; for a
// timed scan a time of day and a recurrence of 1-90 days or 1-15 weeks, and
// for a repeated one an interval of 1-23 hours or 1-1439 minutes; an action
// 0-3, only the four known option bits, and 1 to MAX_SCAN_ITEMS non-empty,
// NUL-terminated paths. Fields that the record does not use (the time of a
// first-boot scan, the weekday of a daily one, ...) may hold anything.
bool IsStorableScanRecord(const tagSCHEDULE_SCAN_ENTRY& entry);

}  // namespace tskvault
