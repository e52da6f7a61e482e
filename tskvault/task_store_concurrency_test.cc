// Several processes at one store, and writers killed half way.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <random>
#include <set>
#include <vector>

#include "tskvault/task_store_test_support.h"

namespace {

using tskvault_test::Add;
using tskvault_test::MakeScan;
using tskvault_test::QueryStore;
using tskvault_test::ScratchDirectory;

// Starts one child per body, all released at the same moment; returns their
// pids. A child's exit status is what its body returns.
std::vector<pid_t> StartTogether(const std::vector<std::function<int()>>& bodies) {
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
  return children;
}

std::vector<int> ExitStatuses(const std::vector<pid_t>& children) {
  std::vector<int> statuses;
  for (const pid_t child : children) {
    int status = 0;
    waitpid(child, &status, 0);
    statuses.push_back(WIFEXITED(status) ? WEXITSTATUS(status) : -1);
  }
  return statuses;
}

ScheduleScanList ListAll(const std::string& store) {
  ScheduleScanList list;
  std::uint32_t code = SCHSCAN_OK;
  EXPECT_TRUE(ReadScheduleScanTaskList(store.c_str(), list, 0, &code)) << code;
  return list;
}

TEST(TaskStoreConcurrency, EightWritersAddingAtOnceLoseNothing) {
  ScratchDirectory scratch;
  const std::string store = scratch / "tsklst.inf";
  constexpr int kWriters = 8;
  constexpr int kScansEach = 50;
  std::vector<std::function<int()>> bodies;
  for (int writer = 0; writer < kWriters; ++writer) {
    bodies.push_back([&store, writer] {
      for (int i = 0; i < kScansEach; ++i) {
        const std::string name = "W" + std::to_string(writer) + "S" + std::to_string(i);
        if (Add(store, MakeScan(name, 1000 + writer, {"/a", "/b"})) != SCHSCAN_OK) return 1;
      }
      return 0;
    });
  }
  EXPECT_EQ(ExitStatuses(StartTogether(bodies)), std::vector<int>(kWriters, 0));
  EXPECT_EQ(QueryStore(store, "PRAGMA integrity_check"), "ok");
  const ScheduleScanList list = ListAll(store);
  EXPECT_EQ(list.size(), std::size_t{kWriters * kScansEach});
  std::set<std::string> names;
  for (const auto& entry : list) {
    names.insert(entry.szScanName);
    EXPECT_EQ(entry.vecScanItems.size(), 2u);
  }
  EXPECT_EQ(names.size(), list.size());
}

TEST(TaskStoreConcurrency, OneNameAddedAtOnceIsStoredOnce) {
  ScratchDirectory scratch;
  const std::string store = scratch / "tsklst.inf";
  std::vector<std::function<int()>> bodies;
  for (int writer = 0; writer < 6; ++writer) {
    bodies.push_back([&store, writer] {
      const std::uint32_t code = Add(store, MakeScan("Shared", 1000 + writer % 2));
      return code == SCHSCAN_OK ? 0 : code == SCHSCAN_ERR_NAME_CONFIGURED ? 1
                                  : code == SCHSCAN_ERR_OTHER_USER        ? 2
                                                                          : 3;
    });
  }
  const std::vector<int> statuses = ExitStatuses(StartTogether(bodies));
  EXPECT_EQ(std::count(statuses.begin(), statuses.end(), 0), 1);
  EXPECT_EQ(std::count(statuses.begin(), statuses.end(), 3), 0);
  EXPECT_EQ(QueryStore(store, "SELECT count(*) FROM scans"), "1");
}

// A scan whose item count is also written into its reserved bytes, so that a
// half-written change would show as a mismatch.
tagSCHEDULE_SCAN_ENTRY CountedScan(int scan, int items) {
  tagSCHEDULE_SCAN_ENTRY entry = MakeScan("Crash" + std::to_string(scan), 0, {});
  for (int i = 0; i < items; ++i)
    entry.vecScanItems.AppendPath(("/s" + std::to_string(scan) + "/" + std::to_string(i)).c_str());
  entry.abyReserved2[0] = static_cast<std::uint8_t>(items);
  return entry;
}

TEST(TaskStoreConcurrency, KilledWriterLeavesAConsistentStore) {
  ScratchDirectory scratch;
  const std::string store = scratch / "tsklst.inf";
  std::mt19937 random(20261122);
  for (int round = 0; round < 20; ++round) {
    const pid_t writer = fork();
    ASSERT_GE(writer, 0);
    if (writer == 0) {
      for (int step = 0;; ++step) {
        const int scan = (round * 7 + step) % 30;
        tagSCHEDULE_SCAN_ENTRY entry = CountedScan(scan, 1 + (round + step) % 100);
        std::uint32_t code = SCHSCAN_OK;
        if (!ModifyScheduleScanTask(store.c_str(), &entry, 0, &code)) {
          tagSCHEDULE_SCAN_ENTRY fresh = CountedScan(scan, 1 + step % 100);
          AddScheduleScanTask(store.c_str(), &fresh, &code);
        }
      }
    }
    const timespec delay{0, std::uniform_int_distribution<long>(1, 40)(random) * 1000000L};
    nanosleep(&delay, nullptr);
    ASSERT_EQ(kill(writer, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(waitpid(writer, &status, 0), writer);

    if (access(store.c_str(), F_OK) != 0) continue;  // killed before the first add
    ASSERT_EQ(QueryStore(store, "PRAGMA integrity_check"), "ok") << "round " << round;
    for (const auto& entry : ListAll(store)) {
      const std::size_t count = entry.vecScanItems.size();
      ASSERT_EQ(count, entry.abyReserved2[0]) << entry.szScanName << ", round " << round;
      const std::string prefix = "/s" + std::string(entry.szScanName + 5) + "/";
      for (std::size_t i = 0; i < count; ++i)
        ASSERT_EQ(entry.vecScanItems.PathAt(i), prefix + std::to_string(i)) << round;
    }
  }
}

}  // namespace
