// The tool killed at random moments: whatever happens, the task list passes
// SQLite's integrity check and holds either the old or the new scans, and the
// report index is either the old or the new file. (Storage that refuses a
// write is the store's and the index's unit tests', and a command path's.)
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "product_paths.h"
#include "testing/lock_free_appender.h"
#include "testing/scan_fixtures.h"
#include "tests/harness.h"

namespace {

namespace fs = std::filesystem;
using testing_support::ScanDir;

// The whole state a command may change, checked: what old and new states are
// compared by. Opening the store rolls back what a killed run left half done.
std::string State() {
  const std::string index = harness::ReadFile(kReportIndexPath);
  return testing_support::QueryStore(kTaskListPath, "PRAGMA integrity_check") + "\n" +
         testing_support::DumpStore() + "index of " + std::to_string(index.size()) + " bytes, " +
         std::to_string(std::hash<std::string>{}(index));
}

// An index of `count` entries, every other one user 1's, the rest 65534's,
// as the scan service appends them (written in place of the index, and read
// back). Their report files do not exist.
std::string IndexBytes(int count) {
  fs::remove(kReportIndexPath);
  for (int i = 0; i < count; ++i) {
    const std::string n = std::to_string(i);
    testing_support::AppendReportEntry(testing_support::MakeReportEntry(
        "Scan" + n, "d" + n, std::string(kReportsDir) + "/gone" + n + ".rpt", i % 2 ? 65534 : 1));
  }
  return harness::ReadFile(kReportIndexPath);
}

// Runs the command whole a few times to learn how long it takes, then
// `times` times killed at a random moment up to a quarter past that. Every
// run must leave the old or the new state.
void KillRepeatedly(const std::string& command, const std::string& input, uid_t user,
                    const std::function<void()>& restore, int times) {
  harness::RunOptions options;
  options.args = {command};
  options.input = input;
  options.user = user;
  restore();
  const std::string oldState = State();
  long long slowest = 0;
  for (int i = 0; i < 3; ++i) {
    restore();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(harness::RunTool(options).exitStatus, 0);
    const auto took = std::chrono::steady_clock::now() - start;
    slowest = std::max<long long>(
        slowest, std::chrono::duration_cast<std::chrono::microseconds>(took).count());
  }
  const std::string newState = State();
  ASSERT_NE(newState, oldState);
  std::mt19937 random(20261122);
  int old = 0;
  for (int i = 0; i < times; ++i) {
    restore();
    options.killAfterMicroseconds =
        std::uniform_int_distribution<long long>(0, slowest * 5 / 4)(random);
    harness::RunTool(options);
    const std::string state = State();
    old += state == oldState;
    if (state != oldState && state != newState)
      ADD_FAILURE() << command << " killed after " << *options.killAfterMicroseconds
                    << " us left neither state:\n" << state;
  }
  std::printf("[ figures  ] %s: %d kills, %d left the old state\n", command.c_str(), times, old);
  // Whatever temporary files the killed runs left, none is taken for the
  // index or the store: a whole run still makes the new state.
  restore();
  options.killAfterMicroseconds.reset();
  EXPECT_EQ(harness::RunTool(options).exitStatus, 0);
  EXPECT_EQ(State(), newState) << command << " after the kills";
}

TEST(KilledAtRandom, EachChangeLeavesTheOldOrTheNewState) {
  harness::ResetProductDir(false);
  for (int i = 0; i < 20; ++i)
    testing_support::StoreScan(testing_support::MakeScan("Other" + std::to_string(i), 65534));
  std::vector<std::string> dirs;
  for (int i = 0; i < 30; ++i) dirs.push_back(ScanDir("o" + std::to_string(i)));
  testing_support::StoreScan(testing_support::MakeScan("Target", 65534, dirs));
  const std::string store = harness::ReadFile(kTaskListPath);
  const std::string forty = IndexBytes(40);
  const std::string many = IndexBytes(20000);
  const auto restore = [&](const std::string& index) {
    return [&store, index] {
      for (const char* side : {"-journal", "-wal", "-shm"}) fs::remove(kTaskListPath + std::string(side));
      harness::WriteFile(kTaskListPath, store, 0666);
      harness::WriteFile(kReportIndexPath, index, 0666);
    };
  };
  std::string directories;  // 30 directories, each followed by whether more come
  for (int i = 0; i < 30; ++i) directories += ScanDir("m" + std::to_string(i)) + (i < 29 ? "\ny\n" : "\nn\n");
  KillRepeatedly("schscan_str_args_add",
                 "Added\n1\nn\n10\n20\n30\n2\nn\nn\nn\nn\nn\n1\n" + directories + "y\n", 65534,
                 restore(forty), 100);
  // New time, every directory removed and 30 others added, as the owner.
  std::string modify = "Target\nn\nn\ny\n1\n2\n3\nn\nn\nn\nn\n";
  for (int i = 0; i <= 30; ++i) modify += "y\n";  // each directory removed, then more added
  KillRepeatedly("schscan_str_args_modify", modify + directories, 65534, restore(forty), 100);
  KillRepeatedly("schscan_args_delrpt", "3\n", 65534, restore(many), 40);
}

}  // namespace
