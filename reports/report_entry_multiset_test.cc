#include "reports/report_entry_multiset.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

tagSCAN_REPORT_ENTRY EntryOf(char fill, std::uint32_t userId) {
  tagSCAN_REPORT_ENTRY entry;
  std::memset(&entry, fill, sizeof entry);
  entry.dwUserId = userId;
  return entry;
}

TEST(ReportEntryMultiset, TakesEachCopyOnceAndComparesWholeEntries) {
  const auto a = EntryOf('a', 1);
  const auto aOtherUser = EntryOf('a', 2);  // differs only in its last bytes
  const auto b = EntryOf('b', 1);
  ReportEntryMultiset set({&a, &b, &a});
  EXPECT_FALSE(set.TakeOne(aOtherUser));
  EXPECT_TRUE(set.TakeOne(a));
  EXPECT_TRUE(set.TakeOne(EntryOf('a', 1)));  // equal bytes, another object
  EXPECT_FALSE(set.TakeOne(a));
  EXPECT_TRUE(set.TakeOne(b));
  EXPECT_FALSE(set.TakeOne(b));
  ReportEntryMultiset empty({});
  EXPECT_FALSE(empty.TakeOne(a));
}

TEST(ReportEntryMultiset, ManyEqualAndManyDistinctEntries) {
  std::vector<tagSCAN_REPORT_ENTRY> entries(3000, EntryOf('x', 0));
  for (std::uint32_t i = 0; i < 1000; ++i) entries[i].dwUserId = i;  // 1000 distinct, 2000 equal
  ReportEntryRefs refs;
  for (const auto& entry : entries) refs.push_back(&entry);
  ReportEntryMultiset set(refs);
  int taken = 0;
  for (const auto& entry : entries) taken += set.TakeOne(entry);
  EXPECT_EQ(taken, 3000);
  EXPECT_FALSE(set.TakeOne(entries[5]));
}

}  // namespace
