#include "tskvault/scan_record_rules.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"
#include "testing/scan_fixtures.h"

namespace {

using Change = std::function<void(tagSCHEDULE_SCAN_ENTRY&)>;

TEST(ScanRecordRules, NewNames) {
  EXPECT_EQ(tskvault::CheckNewScanName(""), SCHSCAN_ERR_NAME_EMPTY);
  EXPECT_EQ(tskvault::CheckNewScanName("Scan1"), SCHSCAN_OK);
  EXPECT_EQ(tskvault::CheckNewScanName(std::string(254, '9')), SCHSCAN_OK);
  EXPECT_EQ(tskvault::CheckNewScanName(std::string(255, '9')), SCHSCAN_ERR_NAME_LENGTH);
  for (const char* name : {"a b", "a_b", "a-b", "a.b", "a\r", "caf\xc3\xa9"})
    EXPECT_EQ(tskvault::CheckNewScanName(name), SCHSCAN_ERR_NAME_LENGTH) << name;
}

TEST(ScanRecordRules, AllowedValues) {
  const auto weekly = [](tagSCHEDULE_SCAN_ENTRY& e) {
    e.byFrequency = FREQ_WEEKLY;
    e.byWeekDay = 7;
  };
  const auto repeated = [](tagSCHEDULE_SCAN_ENTRY& e) {
    e.bRepeatScan = 1;
    e.byRepeatUnit = REPEAT_UNIT_MINUTES;
    e.nRepeatInterval = 1439;
  };
  const struct {
    const char* what;
    Change change;
    bool storable;
  } cases[] = {
      {"as made", [](auto&) {}, true},
      {"weekly on Saturday", weekly, true},
      {"weekly on day 8", [&](auto& e) { weekly(e); e.byWeekDay = 8; }, false},
      {"daily ignores weekday", [](auto& e) { e.byWeekDay = 99; }, true},
      {"frequency 2", [](auto& e) { e.byFrequency = 2; }, false},
      {"hour 24", [](auto& e) { e.nHour = 24; }, false},
      {"second -1", [](auto& e) { e.nSecond = -1; }, false},
      {"every 90 days", [](auto& e) { e.nRecurEvery = 90; }, true},
      {"every 91 days", [](auto& e) { e.nRecurEvery = 91; }, false},
      {"every 16 weeks", [&](auto& e) { weekly(e); e.nRecurEvery = 16; }, false},
      {"first boot ignores time and repeat",
       [](auto& e) { e.bFirstBootScan = 1; e.nHour = -5; e.nRecurEvery = 0; e.bRepeatScan = 9; },
       true},
      {"every 1439 minutes", repeated, true},
      {"every 1440 minutes", [&](auto& e) { repeated(e); e.nRepeatInterval = 1440; }, false},
      {"every 23 hours", [&](auto& e) { repeated(e); e.byRepeatUnit = 0; e.nRepeatInterval = 23; },
       true},
      {"every 24 hours", [&](auto& e) { repeated(e); e.byRepeatUnit = 0; e.nRepeatInterval = 24; },
       false},
      {"repeat unit 2", [&](auto& e) { repeated(e); e.byRepeatUnit = 2; }, false},
      {"no repeat ignores interval",
       [](auto& e) { e.bRepeatScan = 0; e.nRepeatInterval = -7; e.byRepeatUnit = 5; },
       true},
      {"repeat flag 2", [](auto& e) { e.bRepeatScan = 2; }, false},
      {"action 3", [](auto& e) { e.nScanAction = 3; }, true},
      {"action 4", [](auto& e) { e.nScanAction = 4; }, false},
      {"options 0x0f", [](auto& e) { e.byScanOptions = 0x0f; }, true},
      {"options 0x10", [](auto& e) { e.byScanOptions = 0x10; }, false},
      {"no items", [](auto& e) { e.vecScanItems.Clear(); }, false},
      {"100 items",
       [](auto& e) { for (int i = 1; i < 100; ++i) e.vecScanItems.AppendPath("/d"); }, true},
      {"101 items",
       [](auto& e) { for (int i = 1; i < 101; ++i) e.vecScanItems.AppendPath("/d"); }, false},
      {"empty path", [](auto& e) { e.vecScanItems.AppendPath(""); }, false},
      {"path without NUL",
       [](auto& e) {
         tagSCAN_ITEM item;
         std::memset(item.szPath, 'p', sizeof item.szPath);
         e.vecScanItems.Append(item);
       },
       false},
      {"empty name", [](auto& e) { e.szScanName[0] = 0; }, false},
      {"name without NUL", [](auto& e) { std::memset(e.szScanName, 'n', SCAN_NAME_SIZE); }, false},
  };
  for (const auto& c : cases) {
    tagSCHEDULE_SCAN_ENTRY entry = testing_support::MakeScan("Scan", 1000);
    c.change(entry);
    EXPECT_EQ(tskvault::IsStorableScanRecord(entry), c.storable) << c.what;
  }
}

}  // namespace
