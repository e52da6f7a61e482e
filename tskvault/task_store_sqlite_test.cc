// The task store's calls on the test build's product store and on scratch
// stores: the codes of the calls that take a name, listing, refusals, every
// field of a record, and anchors. (Rows that other programs wrote are the
// store fuzz targets', whose inputs the test build replays; owners' names
// are what view prints.)
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"
#include "testing/scan_fixtures.h"

namespace {

using testing_support::AddScan;
using testing_support::MakeScan;
using testing_support::QueryStore;

constexpr std::uint32_t kAlice = 1000;
constexpr std::uint32_t kBob = 2000;
constexpr std::uint32_t kRoot = 0;

enum class Store { kMissing, kEmptied, kTwoScans };

// The product's store afresh: none, or Alice's scan "Mine" and Bob's scan
// "Theirs", both deleted again for kEmptied.
void Seed(Store store = Store::kTwoScans) {
  testing_support::ResetProduct();
  if (store == Store::kMissing) return;
  ASSERT_EQ(AddScan(MakeScan("Mine", kAlice)), SCHSCAN_OK);
  ASSERT_EQ(AddScan(MakeScan("Theirs", kBob)), SCHSCAN_OK);
  std::uint32_t code = SCHSCAN_OK;
  if (store == Store::kEmptied) {
    ASSERT_TRUE(DeleteScheduleScanTask(kTaskListPath, "Mine", kAlice, &code));
    ASSERT_TRUE(DeleteScheduleScanTask(kTaskListPath, "Theirs", kBob, &code));
  }
}

std::vector<std::string> Names(std::uint32_t user) {
  ScheduleScanList list;
  std::uint32_t code = SCHSCAN_OK;
  EXPECT_TRUE(ReadScheduleScanTaskList(kTaskListPath, list, user, &code)) << code;
  std::vector<std::string> names;
  for (const auto& entry : list) names.emplace_back(entry.szScanName);
  return names;
}

enum class Call { kMustBeNew, kAdd, kMustExist, kDetails, kModify, kDelete };

std::uint32_t CodeOf(Call call, const std::string& name, std::uint32_t user,
                     const char* store = kTaskListPath) {
  tagSCHEDULE_SCAN_ENTRY entry = MakeScan(name, user, {"/changed"});
  std::uint32_t code = SCHSCAN_OK;
  bool done = false;
  switch (call) {
    case Call::kMustBeNew: done = ValidateTaskName(name.c_str(), kNameMustBeNew, user, &code); break;
    case Call::kAdd: done = AddScheduleScanTask(store, &entry, &code); break;
    case Call::kMustExist: done = ValidateTaskName(name.c_str(), kNameMustExist, user, &code); break;
    case Call::kDetails: done = GetScheduleScanTaskDetails(store, &entry, user, &code); break;
    case Call::kModify: done = ModifyScheduleScanTask(store, &entry, user, &code); break;
    case Call::kDelete: done = DeleteScheduleScanTask(store, name.c_str(), user, &code); break;
  }
  return done ? SCHSCAN_OK : code;
}

// The codes of the calls for a new name and of those for an existing one.
// Names are unique across users: even the super-user cannot take another's.
TEST(TaskStore, CodesOfTheCallsThatTakeAName) {
  const struct {
    Store store;
    std::string name;
    std::uint32_t user;
    std::uint32_t asNew;
    std::uint32_t asExisting;
  } cases[] = {
      {Store::kMissing, "Mine", kAlice, SCHSCAN_OK, SCHSCAN_ERR_LIST_NOT_FOUND},
      {Store::kEmptied, "Mine", kAlice, SCHSCAN_OK, SCHSCAN_ERR_LIST_NOT_FOUND},
      {Store::kTwoScans, "Mine", kAlice, SCHSCAN_ERR_NAME_CONFIGURED, SCHSCAN_OK},
      {Store::kTwoScans, "Mine", kBob, SCHSCAN_ERR_OTHER_USER, SCHSCAN_ERR_OTHER_USER},
      {Store::kTwoScans, "Theirs", kRoot, SCHSCAN_ERR_OTHER_USER, SCHSCAN_OK},
      {Store::kTwoScans, "mine", kAlice, SCHSCAN_OK, SCHSCAN_ERR_NAME_NOT_CONFIGURED},
      {Store::kTwoScans, std::string(254, 'a'), kBob, SCHSCAN_OK,
       SCHSCAN_ERR_NAME_NOT_CONFIGURED},
  };
  for (const auto& c : cases) {
    for (const Call call : {Call::kMustBeNew, Call::kAdd, Call::kMustExist, Call::kDetails,
                            Call::kModify, Call::kDelete}) {
      Seed(c.store);
      EXPECT_EQ(CodeOf(call, c.name, c.user), call < Call::kMustExist ? c.asNew : c.asExisting)
          << "call " << static_cast<int>(call) << ", " << c.name << " as " << c.user;
    }
  }
  // A new name follows the record's rules; a mode of neither kind is refused.
  EXPECT_EQ(CodeOf(Call::kMustBeNew, "", kAlice), SCHSCAN_ERR_NAME_EMPTY);
  EXPECT_EQ(CodeOf(Call::kMustBeNew, "scan_1", kAlice), SCHSCAN_ERR_NAME_LENGTH);
  std::uint32_t code = SCHSCAN_OK;
  EXPECT_FALSE(ValidateTaskName("Mine", 7, kAlice, &code));
  EXPECT_EQ(code, SCHSCAN_ERR_LIST_OPERATION);
  // No store path at all is a store that cannot be opened.
  for (const Call call : {Call::kAdd, Call::kDetails, Call::kModify, Call::kDelete})
    EXPECT_EQ(CodeOf(call, "Mine", kAlice, nullptr), SCHSCAN_ERR_LIST_ACCESS);
  ScheduleScanList list;
  EXPECT_FALSE(ReadScheduleScanTaskList(nullptr, list, kAlice, &code));
  EXPECT_EQ(code, SCHSCAN_ERR_LIST_ACCESS);
}

TEST(TaskStore, ListsEachOwnersScansInCreationOrder) {
  Seed();
  ASSERT_EQ(AddScan(MakeScan("Third", kAlice)), SCHSCAN_OK);
  tagSCHEDULE_SCAN_ENTRY changed = MakeScan("Mine", kBob, {"/a", "/b"});
  std::uint32_t code = SCHSCAN_OK;
  ASSERT_TRUE(ModifyScheduleScanTask(kTaskListPath, &changed, kAlice, &code)) << code;
  EXPECT_EQ(Names(kRoot), (std::vector<std::string>{"Mine", "Theirs", "Third"}));
  EXPECT_EQ(Names(kAlice), (std::vector<std::string>{"Mine", "Third"}));  // owner kept
  EXPECT_EQ(Names(kBob), (std::vector<std::string>{"Theirs"}));
  EXPECT_EQ(Names(3000), std::vector<std::string>{});

  // The list is appended to, each record with its own items.
  ScheduleScanList list;
  list.push_back(MakeScan("Caller", kAlice, {"/x"}));
  ASSERT_TRUE(ReadScheduleScanTaskList(kTaskListPath, list, kAlice, &code)) << code;
  ASSERT_EQ(list.size(), 3u);
  EXPECT_STREQ(list[0].vecScanItems.PathAt(0), "/x");
  ASSERT_EQ(list[1].vecScanItems.size(), 2u);
  EXPECT_STREQ(list[1].vecScanItems.PathAt(1), "/b");
  EXPECT_STREQ(list[2].vecScanItems.PathAt(0), testing_support::ScanDir("a").c_str());

  // Deleting every scan leaves an empty store, items and all.
  for (const char* name : {"Mine", "Theirs", "Third"})
    ASSERT_TRUE(DeleteScheduleScanTask(kTaskListPath, name, kRoot, &code)) << code;
  EXPECT_EQ(Names(kRoot), std::vector<std::string>{});
  EXPECT_EQ(QueryStore(kTaskListPath, "SELECT count(*) FROM items"), "0");
  testing_support::ResetProduct();
  EXPECT_FALSE(ReadScheduleScanTaskList(kTaskListPath, list, kRoot, &code));
  EXPECT_EQ(code, SCHSCAN_ERR_LIST_NOT_FOUND);
}

// A record against the rules is an operation error for add and for modify,
// and changes nothing.
TEST(TaskStore, RefusesRecordsAgainstTheRules) {
  Seed();
  tagSCHEDULE_SCAN_ENTRY late = testing_support::ScanFrom("Mine u1000 f0 d0 b0 24:20:30 r2 p1/3/0 o1 a0 [a]");
  std::uint32_t code = SCHSCAN_OK;
  EXPECT_FALSE(ModifyScheduleScanTask(kTaskListPath, &late, kAlice, &code));
  EXPECT_EQ(code, SCHSCAN_ERR_LIST_OPERATION);
  EXPECT_EQ(AddScan(testing_support::ScanFrom("New u1000 f0 d0 b0 24:20:30 r2 p1/3/0 o1 a0 [a]")),
            SCHSCAN_ERR_LIST_OPERATION);
  tagSCHEDULE_SCAN_ENTRY empty = MakeScan("New", kAlice);
  empty.vecScanItems.Clear();
  EXPECT_EQ(AddScan(empty), SCHSCAN_ERR_LIST_OPERATION);
  EXPECT_EQ(testing_support::DescribeStored("Mine"),
            testing_support::Describe(MakeScan("Mine", kAlice)));
  EXPECT_EQ(Names(kRoot), (std::vector<std::string>{"Mine", "Theirs"}));
}

void ExpectSameRecord(const tagSCHEDULE_SCAN_ENTRY& got, const tagSCHEDULE_SCAN_ENTRY& want) {
  // Everything before the item list, byte for byte (names are zero-padded).
  EXPECT_EQ(std::memcmp(&got, &want, offsetof(tagSCHEDULE_SCAN_ENTRY, vecScanItems)), 0);
  EXPECT_EQ(std::uint32_t{got.dwUserId}, std::uint32_t{want.dwUserId});  // by value: packed
  ASSERT_EQ(got.vecScanItems.size(), want.vecScanItems.size());
  for (std::size_t i = 0; i < want.vecScanItems.size(); ++i) {
    ASSERT_EQ(std::memcmp(got.vecScanItems.PathAt(i), want.vecScanItems.PathAt(i),
                          SCAN_ITEM_SIZE),
              0)
        << "item " << i;
  }
}

TEST(TaskStore, EveryFieldComesBackUnchanged) {
  testing_support::ScratchDirectory scratch;
  const std::string store = scratch / "tsklst.inf";
  // First boot: time, recurrence and repeat are unused, and kept as they are.
  tagSCHEDULE_SCAN_ENTRY entry = testing_support::ScanFrom(
      std::string(254, 'Z') + " u4294967294 f1 d7 b1 -300:32767:-32768 r-1 p200/9999/7 o15 a3 [/]");
  entry.vecScanItems.Clear();
  entry.abyReserved1[0] = 0xff;
  entry.abyReserved1[1] = 0x01;
  for (std::size_t i = 0; i < sizeof entry.abyReserved2; ++i) entry.abyReserved2[i] = 0x80 + i;
  entry.vecScanItems.AppendPath(("/" + std::string(1022, 'p')).c_str());
  for (int i = 1; i < 100; ++i) entry.vecScanItems.AppendPath(("/dir/" + std::to_string(i)).c_str());
  ASSERT_EQ(AddScan(MakeScan("Before", 1), store.c_str()), SCHSCAN_OK);
  ASSERT_EQ(AddScan(MakeScan(entry.szScanName, 0), store.c_str()), SCHSCAN_OK);  // replaced below

  std::uint32_t code = SCHSCAN_OK;
  ASSERT_TRUE(ModifyScheduleScanTask(store.c_str(), &entry, kRoot, &code)) << code;
  entry.dwUserId = 0;  // modify keeps the stored owner
  tagSCHEDULE_SCAN_ENTRY fetched = MakeScan(entry.szScanName, 12345, {"/stale"});
  ASSERT_TRUE(GetScheduleScanTaskDetails(store.c_str(), &fetched, kRoot, &code)) << code;
  ExpectSameRecord(fetched, entry);
  ScheduleScanList list;
  ASSERT_TRUE(ReadScheduleScanTaskList(store.c_str(), list, kRoot, &code)) << code;
  ASSERT_EQ(list.size(), 2u);
  ExpectSameRecord(list[1], entry);
}

std::int64_t AnchorOf(const char* name) {
  ScheduleScanList list;
  std::vector<std::int64_t> anchors;
  std::uint32_t code = SCHSCAN_OK;
  EXPECT_TRUE(ReadScheduleScanTaskListWithAnchors(kTaskListPath, list, anchors, &code)) << code;
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (std::string(list[i].szScanName) == name) return anchors[i];
  }
  return -1;
}

// A scan's anchor is when it was added, or when its schedule last changed;
// a change of its directories, options, action or repeat keeps it.
TEST(TaskStore, AnchorsFollowScheduleChangesOnly) {
  Seed();
  const std::int64_t now = std::time(nullptr);
  EXPECT_NEAR(static_cast<double>(AnchorOf("Mine")), static_cast<double>(now), 5);
  // "Mine" as stored is u1000 f0 d0 b0 10:20:30 r2 p1/3/0 o1 a0 [a].
  const struct {
    const char* what;
    const char* changed;
    bool moves;
  } changes[] = {
      {"directories, options, action, repeat", "u1000 f0 d0 b0 10:20:30 r2 p1/7/0 o15 a2 [a /more]",
       false},
      {"frequency", "u1000 f1 d2 b0 10:20:30 r2 p1/3/0 o1 a0 [a]", true},
      {"start time", "u1000 f0 d0 b0 10:20:31 r2 p1/3/0 o1 a0 [a]", true},
      {"recurrence", "u1000 f0 d0 b0 10:20:30 r3 p1/3/0 o1 a0 [a]", true},
      {"first boot", "u1000 f0 d0 b1 10:20:30 r2 p1/3/0 o1 a0 [a]", true},
  };
  for (const auto& c : changes) {
    ASSERT_EQ(QueryStore(kTaskListPath, "UPDATE scans SET anchor = 1000"), "");
    tagSCHEDULE_SCAN_ENTRY entry = testing_support::ScanFrom(std::string("Mine ") + c.changed);
    std::uint32_t code = SCHSCAN_OK;
    ASSERT_TRUE(ModifyScheduleScanTask(kTaskListPath, &entry, kAlice, &code)) << code;
    EXPECT_EQ(AnchorOf("Mine") != 1000, c.moves) << c.what;
    EXPECT_EQ(AnchorOf("Theirs"), 1000) << c.what;
  }
  // A store of the first version gets the anchors of its upgrade.
  for (const char* sql : {"ALTER TABLE scans DROP COLUMN anchor", "PRAGMA user_version = 1"})
    ASSERT_EQ(QueryStore(kTaskListPath, sql), "") << sql;
  EXPECT_NEAR(static_cast<double>(AnchorOf("Theirs")), static_cast<double>(now), 5);
  EXPECT_EQ(QueryStore(kTaskListPath, "PRAGMA user_version"), "2");
}

}  // namespace
