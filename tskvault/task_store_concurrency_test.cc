// Several processes writing one store at the same moment, and a writer that
// stopped half way.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <set>
#include <vector>

#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"
#include "testing/scan_fixtures.h"

namespace {

using testing_support::AddScan;
using testing_support::MakeScan;
using testing_support::QueryStore;

// Runs each body in a child of its own, all released at the same moment;
// returns their exit statuses, which are what the bodies return.
std::vector<int> RunTogether(const std::vector<std::function<int()>>& bodies) {
  int gate[2];
  if (pipe(gate) != 0) return {};
  std::vector<pid_t> children;
  for (const auto& body : bodies) {
    const pid_t child = fork();
    if (child == 0) {
      close(gate[1]);
      char byte;
      while (read(gate[0], &byte, 1) < 0) {
      }
      _exit(body());
    }
    if (child > 0) children.push_back(child);
  }
  close(gate[0]);
  close(gate[1]);  // every child's read now ends
  std::vector<int> statuses;
  for (const pid_t child : children) {
    int status = 0;
    waitpid(child, &status, 0);
    statuses.push_back(WIFEXITED(status) ? WEXITSTATUS(status) : -1);
  }
  return statuses;
}

TEST(TaskStoreConcurrency, WritersAtOnceLoseNothingAndStoreANameOnce) {
  testing_support::ScratchDirectory scratch;
  const std::string store = scratch / "tsklst.inf";
  constexpr int kWriters = 8;
  constexpr int kScansEach = 50;
  std::vector<std::function<int()>> bodies;
  for (int writer = 0; writer < kWriters; ++writer) {
    bodies.push_back([&store, writer] {
      // Every writer also tries the one shared name once, half way.
      int sharedCode = 0;
      for (int i = 0; i < kScansEach; ++i) {
        const std::string name = "W" + std::to_string(writer) + "S" + std::to_string(i);
        if (AddScan(MakeScan(name, 1000 + writer, {"/a", "/b"}), store.c_str()) != SCHSCAN_OK)
          return 9;
        if (i == kScansEach / 2) {
          const std::uint32_t code =
              AddScan(MakeScan("Shared", 1000 + writer % 2, {"/a", "/b"}), store.c_str());
          const bool refused = code == SCHSCAN_ERR_NAME_CONFIGURED || code == SCHSCAN_ERR_OTHER_USER;
          sharedCode = code == SCHSCAN_OK ? 0 : refused ? 1 : 9;
        }
      }
      return sharedCode;
    });
  }
  const std::vector<int> statuses = RunTogether(bodies);
  EXPECT_EQ(std::count(statuses.begin(), statuses.end(), 0), 1);  // one writer got the name
  EXPECT_EQ(std::count(statuses.begin(), statuses.end(), 1), kWriters - 1);
  EXPECT_EQ(QueryStore(store, "PRAGMA integrity_check"), "ok");
  ScheduleScanList list;
  std::uint32_t code = SCHSCAN_OK;
  ASSERT_TRUE(ReadScheduleScanTaskList(store.c_str(), list, 0, &code)) << code;
  EXPECT_EQ(list.size(), std::size_t{kWriters * kScansEach + 1});
  std::set<std::string> names;
  for (const auto& entry : list) {
    names.insert(entry.szScanName);
    EXPECT_EQ(entry.vecScanItems.size(), 2u) << entry.szScanName;
  }
  EXPECT_EQ(names.size(), list.size());
}

}  // namespace

// A writer that stopped half way through its change (here: a connection of
// ours holding the write lock) keeps nobody from reading, and other writers
// give up after a bounded wait with an operation error.
TEST(TaskStoreConcurrency, AStoppedWriterBlocksNeitherReadersNorOtherWritersForLong) {
  testing_support::ResetProduct();
  ASSERT_EQ(AddScan(MakeScan("First", 0)), SCHSCAN_OK);
  sqlite3* writer = nullptr;
  ASSERT_EQ(sqlite3_open(kTaskListPath, &writer), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(writer, "BEGIN EXCLUSIVE; DELETE FROM items;", nullptr, nullptr, nullptr),
            SQLITE_OK);
  const std::vector<int> statuses = RunTogether({
      [] {
        alarm(2);  // a reader that waits fails
        ScheduleScanList list;
        std::uint32_t code = SCHSCAN_OK;
        return ReadScheduleScanTaskList(kTaskListPath, list, 0, &code) && list.size() == 1 ? 0 : 1;
      },
      [] {
        alarm(20);
        return AddScan(MakeScan("Second", 0)) == SCHSCAN_ERR_LIST_OPERATION ? 0 : 1;
      },
  });
  EXPECT_EQ(statuses, (std::vector<int>{0, 0}));
  sqlite3_close_v2(writer);
}
