#include "tskvault/scan_record_rules.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"
#include "testing/scan_fixtures.h"

namespace {

TEST(ScanRecordRules, NewNames) {
  EXPECT_EQ(tskvault::CheckNewScanName(""), SCHSCAN_ERR_NAME_EMPTY);
  EXPECT_EQ(tskvault::CheckNewScanName("Scan1"), SCHSCAN_OK);
  EXPECT_EQ(tskvault::CheckNewScanName(std::string(254, '9')), SCHSCAN_OK);
  EXPECT_EQ(tskvault::CheckNewScanName(std::string(255, '9')), SCHSCAN_ERR_NAME_LENGTH);
  for (const char* name : {"a b", "a_b", "a-b", "a.b", "a\r", "caf\xc3\xa9"})
    EXPECT_EQ(tskvault::CheckNewScanName(name), SCHSCAN_ERR_NAME_LENGTH) << name;
}

// Records by their fields (testing_support::Describe), each one field or two
// away from the first, which the store takes: daily at 10:20:30 every 2
// days, repeated every 3 hours, archives, repair only.
TEST(ScanRecordRules, AllowedValues) {
  const struct {
    const char* what;
    const char* fields;
    bool storable;
  } cases[] = {
      {"as made", "u1000 f0 d0 b0 10:20:30 r2 p1/3/0 o1 a0", true},
      {"weekly on Saturday", "u1000 f1 d7 b0 10:20:30 r2 p1/3/0 o1 a0", true},
      {"weekly on day 8", "u1000 f1 d8 b0 10:20:30 r2 p1/3/0 o1 a0", false},
      {"daily ignores weekday", "u1000 f0 d99 b0 10:20:30 r2 p1/3/0 o1 a0", true},
      {"frequency 2", "u1000 f2 d0 b0 10:20:30 r2 p1/3/0 o1 a0", false},
      {"hour 24", "u1000 f0 d0 b0 24:20:30 r2 p1/3/0 o1 a0", false},
      {"second -1", "u1000 f0 d0 b0 10:20:-1 r2 p1/3/0 o1 a0", false},
      {"every 90 days", "u1000 f0 d0 b0 10:20:30 r90 p1/3/0 o1 a0", true},
      {"every 91 days", "u1000 f0 d0 b0 10:20:30 r91 p1/3/0 o1 a0", false},
      {"every 16 weeks", "u1000 f1 d7 b0 10:20:30 r16 p1/3/0 o1 a0", false},
      {"first boot ignores time and repeat", "u1000 f0 d0 b1 -5:20:30 r0 p9/3/0 o1 a0", true},
      {"first boot flag 2", "u1000 f0 d0 b2 10:20:30 r2 p1/3/0 o1 a0", false},
      {"every 1439 minutes", "u1000 f0 d0 b0 10:20:30 r2 p1/1439/1 o1 a0", true},
      {"every 1440 minutes", "u1000 f0 d0 b0 10:20:30 r2 p1/1440/1 o1 a0", false},
      {"every 23 hours", "u1000 f0 d0 b0 10:20:30 r2 p1/23/0 o1 a0", true},
      {"every 24 hours", "u1000 f0 d0 b0 10:20:30 r2 p1/24/0 o1 a0", false},
      {"repeat unit 2", "u1000 f0 d0 b0 10:20:30 r2 p1/3/2 o1 a0", false},
      {"no repeat ignores interval", "u1000 f0 d0 b0 10:20:30 r2 p0/-7/5 o1 a0", true},
      {"repeat flag 2", "u1000 f0 d0 b0 10:20:30 r2 p2/3/0 o1 a0", false},
      {"action 3", "u1000 f0 d0 b0 10:20:30 r2 p1/3/0 o1 a3", true},
      {"action 4", "u1000 f0 d0 b0 10:20:30 r2 p1/3/0 o1 a4", false},
      {"options 0x0f", "u1000 f0 d0 b0 10:20:30 r2 p1/3/0 o15 a0", true},
      {"options 0x10", "u1000 f0 d0 b0 10:20:30 r2 p1/3/0 o16 a0", false},
  };
  for (const auto& c : cases) {
    const std::string description = std::string("Scan ") + c.fields + " [/d]";
    EXPECT_EQ(tskvault::IsStorableScanRecord(testing_support::ScanFrom(description)), c.storable)
        << c.what;
  }
}

TEST(ScanRecordRules, NamesAndItems) {
  const struct {
    const char* what;
    std::function<void(tagSCHEDULE_SCAN_ENTRY&)> change;
    bool storable;
  } cases[] = {
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
    tagSCHEDULE_SCAN_ENTRY entry = testing_support::MakeScan("Scan", 1000, {"/d"});
    c.change(entry);
    EXPECT_EQ(tskvault::IsStorableScanRecord(entry), c.storable) << c.what;
  }
}

}  // namespace
