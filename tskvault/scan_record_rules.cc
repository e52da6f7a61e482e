#include "tskvault/scan_record_rules.h"

#include <cstring>

#include "taskstore/result_codes.h"

namespace tskvault {
namespace {

bool IsNameCharacter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
}

bool InRange(int value, int low, int high) { return value >= low && value <= high; }

bool IsFlag(std::uint8_t value) { return value == 0 || value == 1; }

bool HasStorablePaths(const ScanItemList& items) {
  const std::size_t count = items.size();
  if (count < 1 || count > MAX_SCAN_ITEMS) return false;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t length = strnlen(items.PathAt(i), SCAN_ITEM_SIZE);
    if (length == 0 || length == SCAN_ITEM_SIZE) return false;
  }
  return true;
}

}  // namespace

std::uint32_t CheckNewScanName(std::string_view name) {
  if (name.empty()) return SCHSCAN_ERR_NAME_EMPTY;
  if (name.size() > kMaxScanNameLength) return SCHSCAN_ERR_NAME_LENGTH;
  for (const char c : name) {
    if (!IsNameCharacter(c)) return SCHSCAN_ERR_NAME_LENGTH;
  }
  return SCHSCAN_OK;
}

std::string_view ScanNameOf(const tagSCHEDULE_SCAN_ENTRY& entry) {
  return {entry.szScanName, strnlen(entry.szScanName, SCAN_NAME_SIZE)};
}

bool IsStorableScanRecord(const tagSCHEDULE_SCAN_ENTRY& entry) {
  // Packed fields are read by value, never through a pointer.
  const std::uint8_t frequency = entry.byFrequency;
  const std::uint8_t firstBoot = entry.bFirstBootScan;
  const std::uint8_t repeat = entry.bRepeatScan;
  const std::uint8_t repeatUnit = entry.byRepeatUnit;
  const std::int16_t hour = entry.nHour;
  const std::int16_t minute = entry.nMinute;
  const std::int16_t second = entry.nSecond;
  const std::int16_t recurEvery = entry.nRecurEvery;
  const std::int16_t repeatInterval = entry.nRepeatInterval;
  const std::int16_t action = entry.nScanAction;

  if (CheckNewScanName(ScanNameOf(entry)) != SCHSCAN_OK) return false;
  if (frequency != FREQ_DAILY && frequency != FREQ_WEEKLY) return false;
  if (frequency == FREQ_WEEKLY && !InRange(entry.byWeekDay, 1, 7)) return false;
  if (!IsFlag(firstBoot)) return false;
  if (firstBoot == 0) {
    if (!InRange(hour, 0, 23) || !InRange(minute, 0, 59) || !InRange(second, 0, 59)) return false;
    if (!InRange(recurEvery, 1, frequency == FREQ_DAILY ? 90 : 15)) return false;
    if (!IsFlag(repeat)) return false;
    if (repeat == 1) {
      if (repeatUnit != REPEAT_UNIT_HOURS && repeatUnit != REPEAT_UNIT_MINUTES) return false;
      if (!InRange(repeatInterval, 1, repeatUnit == REPEAT_UNIT_HOURS ? 23 : 1439)) return false;
    }
  }
  if (!InRange(action, ACTION_REPAIR_ONLY, ACTION_REPORT_ONLY)) return false;
  if ((entry.byScanOptions & 0xf0) != 0) return false;
  return HasStorablePaths(entry.vecScanItems);
}

}  // namespace tskvault
