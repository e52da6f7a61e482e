#pragma once

#include <cstddef>
#include <cstdint>

#include "taskstore/schedule_scan_entry.h"

// Command function: true for success; false with `resultCode` set.
bool ViewScheduledScans(std::uint32_t* resultCode);

// One row of the scan table for the scan at `index` (counted from 0): number,
// name, start time, the owner when `withOwner`, frequency, line break.
void PrintScanTableRow(std::size_t index, const tagSCHEDULE_SCAN_ENTRY& entry, bool withOwner);
