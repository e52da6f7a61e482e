#include "taskstore/schedule_scan_entry.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

template <typename T>
T ReadAt(const tagSCHEDULE_SCAN_ENTRY& entry, std::size_t offset) {
  T value;
  std::memcpy(&value, reinterpret_cast<const unsigned char*>(&entry) + offset, sizeof value);
  return value;
}

TEST(ScheduleScanEntry, FieldsLieAtTheirOffsets) {
  tagSCHEDULE_SCAN_ENTRY entry;
  PrepareNewScheduleScanEntry(&entry);
  std::memcpy(entry.szScanName, std::string(254, 'N').c_str(), 255);
  entry.byFrequency = 1;
  entry.bFirstBootScan = 1;
  entry.nHour = 0x0102;
  entry.nMinute = 0x0304;
  entry.nSecond = -2;
  entry.bRepeatScan = 1;
  entry.nRecurEvery = 15;
  entry.nRepeatInterval = 1439;
  entry.byRepeatUnit = 1;
  entry.byWeekDay = 7;
  entry.nScanAction = 3;
  entry.byScanOptions = 0x0f;
  entry.dwUserId = 0x11223344;
  entry.vecScanItems.AppendPath("/data");

  const auto* bytes = reinterpret_cast<const unsigned char*>(&entry);
  EXPECT_EQ(bytes[253], 'N');
  EXPECT_EQ(bytes[254], 0);
  EXPECT_EQ(bytes[255], 0);
  EXPECT_EQ(bytes[256], 1);
  EXPECT_EQ(bytes[257], 1);
  EXPECT_EQ(bytes[258], 0x02);  // little-endian
  EXPECT_EQ(bytes[259], 0x01);
  EXPECT_EQ(ReadAt<std::int16_t>(entry, 260), 0x0304);
  EXPECT_EQ(ReadAt<std::int16_t>(entry, 262), -2);
  EXPECT_EQ(bytes[264], 1);
  EXPECT_EQ(ReadAt<std::int16_t>(entry, 265), 15);
  EXPECT_EQ(ReadAt<std::int16_t>(entry, 267), 1439);
  EXPECT_EQ(bytes[269], 1);
  EXPECT_EQ(bytes[270], 7);
  EXPECT_EQ(ReadAt<std::int16_t>(entry, 273), 3);
  EXPECT_EQ(bytes[275], 0x0f);
  EXPECT_EQ(ReadAt<std::uint32_t>(entry, 321), 0x11223344u);

  auto* first = ReadAt<tagSCAN_ITEM*>(entry, 297);
  auto* last = ReadAt<tagSCAN_ITEM*>(entry, 305);
  auto* endOfStorage = ReadAt<tagSCAN_ITEM*>(entry, 313);
  EXPECT_EQ(last - first, 1);
  EXPECT_GE(endOfStorage - first, 1);
  EXPECT_STREQ(first->szPath, "/data");
  EXPECT_EQ(first->szPath[1023], 0);
}

TEST(ScheduleScanEntry, PreparedRecordIsZeroAndEmpty) {
  tagSCHEDULE_SCAN_ENTRY entry;
  std::memset(reinterpret_cast<unsigned char*>(&entry), 0xab, 297);
  PrepareNewScheduleScanEntry(&entry);
  const auto* bytes = reinterpret_cast<const unsigned char*>(&entry);
  for (std::size_t i = 0; i < 297; ++i) ASSERT_EQ(bytes[i], 0) << "offset " << i;
  EXPECT_EQ(entry.vecScanItems.size(), 0u);
}

TEST(ScheduleScanEntry, RecordsInAListLieBackToBack) {
  ScheduleScanList list(3);
  EXPECT_EQ(reinterpret_cast<const unsigned char*>(&list[1]) -
                reinterpret_cast<const unsigned char*>(&list[0]),
            325);
  EXPECT_EQ(reinterpret_cast<const unsigned char*>(&list[2]) -
                reinterpret_cast<const unsigned char*>(&list[0]),
            650);
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
