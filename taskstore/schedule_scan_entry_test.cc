#include "taskstore/schedule_scan_entry.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

TEST(ScheduleScanEntry, PreparedRecordIsZeroAndEmpty) {
  tagSCHEDULE_SCAN_ENTRY entry;
  std::memset(reinterpret_cast<unsigned char*>(&entry), 0xab, 297);
  PrepareNewScheduleScanEntry(&entry);
  const auto* bytes = reinterpret_cast<const unsigned char*>(&entry);
  for (std::size_t i = 0; i < 297; ++i) ASSERT_EQ(bytes[i], 0) << "offset " << i;
  EXPECT_EQ(entry.vecScanItems.size(), 0u);
}

std::string Paths(const ScanItemList& list) {
  std::string joined;
  for (std::size_t i = 0; i < list.size(); ++i) joined += std::string(list.PathAt(i)) + ";";
  return joined;
}

TEST(ScanItemList, AppendRemoveClearCopy) {
  ScanItemList list;
  for (int i = 0; i < 100; ++i) list.AppendPath(("/d" + std::to_string(i)).c_str());
  EXPECT_EQ(list.size(), 100u);
  list.RemoveAt(0);
  list.RemoveAt(98);
  list.RemoveAt(50);
  EXPECT_EQ(list.size(), 97u);
  EXPECT_STREQ(list.PathAt(0), "/d1");
  EXPECT_STREQ(list.PathAt(49), "/d50");
  EXPECT_STREQ(list.PathAt(50), "/d52");
  EXPECT_STREQ(list.PathAt(96), "/d98");

  ScanItemList copy(list);
  ScanItemList assigned;
  assigned.AppendPath("/old");
  assigned = list;
  EXPECT_EQ(Paths(copy), Paths(list));
  EXPECT_EQ(Paths(assigned), Paths(list));
  EXPECT_NE(copy.PathAt(0), list.PathAt(0));  // deep copy

  ScanItemList moved(std::move(copy));
  EXPECT_EQ(copy.size(), 0u);
  EXPECT_EQ(moved.size(), 97u);

  list.Clear();
  EXPECT_EQ(list.size(), 0u);
  list.AppendPath("/again");
  EXPECT_EQ(Paths(list), "/again;");
}

}  // namespace
