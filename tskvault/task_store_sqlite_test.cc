#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"
#include "testing/scan_fixtures.h"

namespace {

using testing_support::AddScan;
using testing_support::MakeScan;

constexpr std::uint32_t kAlice = 1000;
constexpr std::uint32_t kBob = 2000;
constexpr std::uint32_t kRoot = 0;

// The product's store, with Alice's scan "Mine" and Bob's scan "Theirs".
void SeedTwoScans() {
  testing_support::ResetProduct();
  ASSERT_EQ(AddScan(MakeScan("Mine", kAlice)), SCHSCAN_OK);
  ASSERT_EQ(AddScan(MakeScan("Theirs", kBob)), SCHSCAN_OK);
}

class TaskStoreTest : public ::testing::Test {
 protected:
  void SetUp() override { SeedTwoScans(); }

  std::vector<std::string> ListNames(std::uint32_t user) {
    ScheduleScanList list;
    std::uint32_t code = SCHSCAN_OK;
    EXPECT_TRUE(ReadScheduleScanTaskList(store_.c_str(), list, user, &code)) << code;
    std::vector<std::string> names;
    for (const auto& entry : list) names.emplace_back(entry.szScanName);
    return names;
  }

  const std::string store_ = kTaskListPath;
};

std::uint32_t CheckName(const std::string& name, std::int32_t mode, std::uint32_t user) {
  std::uint32_t code = SCHSCAN_OK;
  return ValidateTaskName(name.c_str(), mode, user, &code) ? SCHSCAN_OK : code;
}

TEST_F(TaskStoreTest, NewNameCodes) {
  const struct {
    std::string name;
    std::uint32_t user;
    std::uint32_t code;
  } cases[] = {
      {"", kAlice, SCHSCAN_ERR_NAME_EMPTY},
      {std::string(255, 'a'), kAlice, SCHSCAN_ERR_NAME_LENGTH},
      {"Daily scan", kAlice, SCHSCAN_ERR_NAME_LENGTH},
      {"scan_1", kAlice, SCHSCAN_ERR_NAME_LENGTH},
      {"Mine", kAlice, SCHSCAN_ERR_NAME_CONFIGURED},
      {"Mine", kBob, SCHSCAN_ERR_OTHER_USER},
      {"Mine", kRoot, SCHSCAN_ERR_OTHER_USER},
      {"mine", kAlice, SCHSCAN_OK},  // names are case-sensitive
      {std::string(254, 'a'), kAlice, SCHSCAN_OK},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(CheckName(c.name, kNameMustBeNew, c.user), c.code) << c.name;
  }
  EXPECT_EQ(CheckName("Mine", 7, kAlice), SCHSCAN_ERR_LIST_OPERATION);
  testing_support::ResetProduct();
  EXPECT_EQ(CheckName("Mine", kNameMustBeNew, kAlice), SCHSCAN_OK);  // no store yet
}

// Mode 0 and the three by-name calls answer alike.
TEST(TaskStoreByName, CodesOfEveryByNameCall) {
  using Call = std::function<std::uint32_t(const char*, std::uint32_t)>;
  const Call calls[] = {
      [](const char* name, std::uint32_t user) { return CheckName(name, kNameMustExist, user); },
      [](const char* name, std::uint32_t user) {
        tagSCHEDULE_SCAN_ENTRY entry = MakeScan(name, 0);
        std::uint32_t code = SCHSCAN_OK;
        return GetScheduleScanTaskDetails(kTaskListPath, &entry, user, &code) ? SCHSCAN_OK : code;
      },
      [](const char* name, std::uint32_t user) {
        tagSCHEDULE_SCAN_ENTRY entry = MakeScan(name, 0, {"/changed"});
        std::uint32_t code = SCHSCAN_OK;
        return ModifyScheduleScanTask(kTaskListPath, &entry, user, &code) ? SCHSCAN_OK : code;
      },
      [](const char* name, std::uint32_t user) {
        std::uint32_t code = SCHSCAN_OK;
        return DeleteScheduleScanTask(kTaskListPath, name, user, &code) ? SCHSCAN_OK : code;
      },
  };
  enum class Store { kMissing, kEmptied, kTwoScans };
  const struct {
    Store store;
    const char* name;
    std::uint32_t user;
    std::uint32_t code;
  } cases[] = {
      {Store::kMissing, "Mine", kAlice, SCHSCAN_ERR_LIST_NOT_FOUND},
      {Store::kEmptied, "Mine", kAlice, SCHSCAN_ERR_LIST_NOT_FOUND},
      {Store::kTwoScans, "Nope", kAlice, SCHSCAN_ERR_NAME_NOT_CONFIGURED},
      {Store::kTwoScans, "mine", kAlice, SCHSCAN_ERR_NAME_NOT_CONFIGURED},
      {Store::kTwoScans, "Theirs", kAlice, SCHSCAN_ERR_OTHER_USER},
      {Store::kTwoScans, "Theirs", kRoot, SCHSCAN_OK},
      {Store::kTwoScans, "Mine", kAlice, SCHSCAN_OK},
  };
  for (std::size_t call = 0; call < std::size(calls); ++call) {
    for (const auto& c : cases) {
      testing_support::ResetProduct();
      if (c.store != Store::kMissing) SeedTwoScans();
      if (c.store == Store::kEmptied) {
        std::uint32_t code = SCHSCAN_OK;
        ASSERT_TRUE(DeleteScheduleScanTask(kTaskListPath, "Mine", kAlice, &code));
        ASSERT_TRUE(DeleteScheduleScanTask(kTaskListPath, "Theirs", kBob, &code));
      }
      EXPECT_EQ(calls[call](c.name, c.user), c.code)
          << "call " << call << ", name " << c.name << ", user " << c.user;
    }
  }
}

TEST_F(TaskStoreTest, ListsByOwnerInCreationOrder) {
  ASSERT_EQ(AddScan(MakeScan("Third", kAlice)), SCHSCAN_OK);
  tagSCHEDULE_SCAN_ENTRY changed = MakeScan("Mine", kBob, {"/a", "/b"});
  std::uint32_t code = SCHSCAN_OK;
  ASSERT_TRUE(ModifyScheduleScanTask(store_.c_str(), &changed, kAlice, &code)) << code;

  EXPECT_EQ(ListNames(kRoot), (std::vector<std::string>{"Mine", "Theirs", "Third"}));
  EXPECT_EQ(ListNames(kAlice), (std::vector<std::string>{"Mine", "Third"}));  // owner kept
  EXPECT_EQ(ListNames(kBob), (std::vector<std::string>{"Theirs"}));
  EXPECT_EQ(ListNames(3000), std::vector<std::string>{});

  // The list is appended to, each record with its own items.
  ScheduleScanList list;
  list.push_back(MakeScan("Caller", kAlice, {"/x"}));
  ASSERT_TRUE(ReadScheduleScanTaskList(store_.c_str(), list, kAlice, &code)) << code;
  ASSERT_EQ(list.size(), 3u);
  EXPECT_STREQ(list[0].vecScanItems.PathAt(0), "/x");
  ASSERT_EQ(list[1].vecScanItems.size(), 2u);
  EXPECT_STREQ(list[1].vecScanItems.PathAt(1), "/b");
  EXPECT_STREQ(list[2].vecScanItems.PathAt(0), testing_support::ScanDir("a").c_str());

  list.clear();
  testing_support::ResetProduct();
  EXPECT_FALSE(ReadScheduleScanTaskList(kTaskListPath, list, kRoot, &code));
  EXPECT_EQ(code, SCHSCAN_ERR_LIST_NOT_FOUND);
}

TEST_F(TaskStoreTest, DeletingTheLastScanLeavesAnEmptyStore) {
  std::uint32_t code = SCHSCAN_OK;
  ASSERT_TRUE(DeleteScheduleScanTask(store_.c_str(), "Mine", kAlice, &code));
  ASSERT_TRUE(DeleteScheduleScanTask(store_.c_str(), "Theirs", kRoot, &code));
  EXPECT_EQ(ListNames(kRoot), std::vector<std::string>{});
  EXPECT_EQ(testing_support::QueryStore(store_, "SELECT count(*) FROM items"), "0");
  EXPECT_EQ(AddScan(MakeScan("Mine", kBob)), SCHSCAN_OK);  // the name is free again
}

TEST_F(TaskStoreTest, AddAndModifyRefuse) {
  EXPECT_EQ(AddScan(MakeScan("Mine", kAlice)), SCHSCAN_ERR_NAME_CONFIGURED);
  EXPECT_EQ(AddScan(MakeScan("Mine", kRoot)), SCHSCAN_ERR_OTHER_USER);
  EXPECT_EQ(AddScan(MakeScan("Theirs", kAlice)), SCHSCAN_ERR_OTHER_USER);

  tagSCHEDULE_SCAN_ENTRY bad = MakeScan("New", kAlice);
  bad.nHour = 24;
  tagSCHEDULE_SCAN_ENTRY none = MakeScan("New", kAlice);
  none.vecScanItems.Clear();
  EXPECT_EQ(AddScan(none), SCHSCAN_ERR_LIST_OPERATION);
  std::uint32_t code = SCHSCAN_OK;
  EXPECT_FALSE(AddScheduleScanTask(store_.c_str(), &bad, &code));
  EXPECT_EQ(code, SCHSCAN_ERR_LIST_OPERATION);
  std::memcpy(bad.szScanName, "Mine", 5);
  EXPECT_FALSE(ModifyScheduleScanTask(store_.c_str(), &bad, kAlice, &code));
  EXPECT_EQ(code, SCHSCAN_ERR_LIST_OPERATION);
  EXPECT_EQ(ListNames(kRoot), (std::vector<std::string>{"Mine", "Theirs"}));
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

TEST(TaskStoreRoundTrip, EveryFieldComesBackUnchanged) {
  testing_support::ScratchDirectory scratch;
  const std::string store = scratch / "tsklst.inf";
  tagSCHEDULE_SCAN_ENTRY entry = MakeScan(std::string(254, 'Z'), 4294967294u);
  entry.vecScanItems.Clear();
  entry.byFrequency = FREQ_WEEKLY;
  entry.bFirstBootScan = 1;  // time, recurrence and repeat unused: kept as they are
  entry.nHour = -300;
  entry.nMinute = 32767;
  entry.nSecond = -32768;
  entry.bRepeatScan = 200;
  entry.nRecurEvery = -1;
  entry.nRepeatInterval = 9999;
  entry.byRepeatUnit = 7;
  entry.byWeekDay = 7;
  entry.abyReserved1[0] = 0xff;
  entry.abyReserved1[1] = 0x01;
  entry.nScanAction = ACTION_REPORT_ONLY;
  entry.byScanOptions = 0x0f;
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

// A task list whose tables lost their checks (written by some other program)
// may hold empty strings where the store never writes them: they read as
// empty fields. Found by fuzzing: an empty value was copied from a null
// address (undefined behaviour, caught by UBSan).
TEST(TaskStoreForeignRows, EmptyStoredStringsReadAsEmptyFields) {
  testing_support::ScratchDirectory scratch;
  const std::string store = scratch / "tsklst.inf";
  std::ofstream(store).close();
  for (const char* sql :
       {"CREATE TABLE scans (id INTEGER PRIMARY KEY, name, owner, frequency, first_boot, hour,"
        " minute, second, repeat_scan, recur_every, repeat_interval, repeat_unit, week_day,"
        " reserved1, action, options, reserved2)",
        "CREATE TABLE items (scan_id, position, path)", "PRAGMA user_version = 1",
        "INSERT INTO scans VALUES (1, '', 0, 0, 0, 10, 0, 0, 0, 1, 0, 0, 0, zeroblob(2), 0, 0,"
        " zeroblob(21))",
        "INSERT INTO items VALUES (1, 0, x'')"}) {
    ASSERT_EQ(testing_support::QueryStore(store, sql), "") << sql;
  }
  ScheduleScanList list;
  std::uint32_t code = SCHSCAN_OK;
  ASSERT_TRUE(ReadScheduleScanTaskList(store.c_str(), list, kRoot, &code)) << code;
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].szScanName[0], '\0');
  ASSERT_EQ(list[0].vecScanItems.size(), 1u);
  EXPECT_EQ(list[0].vecScanItems.PathAt(0)[0], '\0');
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
TEST_F(TaskStoreTest, AnchorsFollowScheduleChangesOnly) {
  const std::int64_t now = std::time(nullptr);
  EXPECT_NEAR(static_cast<double>(AnchorOf("Mine")), static_cast<double>(now), 5);
  const struct {
    const char* what;
    std::function<void(tagSCHEDULE_SCAN_ENTRY&)> change;
    bool moves;
  } changes[] = {
      {"directories, options, action, repeat",
       [](auto& e) {
         e.vecScanItems.AppendPath("/more");
         e.byScanOptions = 0x0f;
         e.nScanAction = ACTION_DELETE;
         e.nRepeatInterval = 7;
       },
       false},
      {"frequency", [](auto& e) { e.byFrequency = FREQ_WEEKLY, e.byWeekDay = 2; }, true},
      {"start time", [](auto& e) { e.nSecond = 31; }, true},
      {"recurrence", [](auto& e) { e.nRecurEvery = 3; }, true},
      {"first boot", [](auto& e) { e.bFirstBootScan = 1; }, true},
  };
  for (const auto& c : changes) {
    ASSERT_EQ(testing_support::QueryStore(store_, "UPDATE scans SET anchor = 1000"), "");
    tagSCHEDULE_SCAN_ENTRY entry = MakeScan("Mine", kAlice);
    c.change(entry);
    std::uint32_t code = SCHSCAN_OK;
    ASSERT_TRUE(ModifyScheduleScanTask(store_.c_str(), &entry, kAlice, &code)) << code;
    EXPECT_EQ(AnchorOf("Mine") != 1000, c.moves) << c.what;
    EXPECT_EQ(AnchorOf("Theirs"), 1000) << c.what;
  }
  // A store of the first version gets the anchors of its upgrade.
  for (const char* sql : {"ALTER TABLE scans DROP COLUMN anchor", "PRAGMA user_version = 1"})
    ASSERT_EQ(testing_support::QueryStore(store_, sql), "") << sql;
  EXPECT_NEAR(static_cast<double>(AnchorOf("Theirs")), static_cast<double>(now), 5);
  EXPECT_EQ(testing_support::QueryStore(store_, "PRAGMA user_version"), "2");
}

TEST(UserName, KnownAndUnknownIds) {
  std::string name = "previous contents";
  std::uint32_t code = SCHSCAN_OK;
  ASSERT_TRUE(GetUserNameFormUserID(0, name, &code));
  EXPECT_EQ(name, "root");
  EXPECT_FALSE(GetUserNameFormUserID(3999999999u, name, &code));  // no such user
  EXPECT_EQ(code, SCHSCAN_ERR_NAME_NOT_CONFIGURED);
}

}  // namespace
