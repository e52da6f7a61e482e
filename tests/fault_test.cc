// The tool killed at random moments, and storage that refuses to be written.
// Whatever happens, the task list passes SQLite's integrity check and holds
// either the old or the new scans, the report index is either the old or
// the new file, and a refused write ends in the dispatcher's message for it
// with nothing half-written.
#include <sys/mount.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
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

long long NowMicroseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000000LL + now.tv_nsec / 1000;
}

// The whole state a command may change, checked: what old and new states are
// compared by. Opening the store rolls back what a killed run left half done.
std::string State() {
  const std::string index = harness::ReadFile(kReportIndexPath);
  return testing_support::QueryStore(kTaskListPath, "PRAGMA integrity_check") + "\n" +
         testing_support::DumpStore() + "index of " + std::to_string(index.size()) + " bytes, " +
         std::to_string(std::hash<std::string>{}(index));
}

// An index of `count` entries, every other one user 1's, the rest 65534's
// (or none of 65534's). Their report files do not exist.
std::string IndexBytes(int count, bool withNobodys = true) {
  std::string entries;
  std::uint32_t kept = 0;
  for (int i = 0; i < count; ++i) {
    const std::uint32_t owner = i % 2 == 0 ? 1 : 65534;
    if (owner == 65534 && !withNobodys) continue;
    const auto entry = testing_support::MakeReportEntry(
        "Scan" + std::to_string(i), "d" + std::to_string(i),
        std::string(kReportsDir) + "/gone" + std::to_string(i) + ".rpt", owner);
    entries.append(reinterpret_cast<const char*>(&entry), sizeof entry);
    ++kept;
  }
  std::string header(19, '\0');
  for (int i = 0; i < 4; ++i) header[8 + i] = static_cast<char>(kept >> (8 * i));
  return header + entries;
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
    const long long start = NowMicroseconds();
    EXPECT_EQ(harness::RunTool(options).exitStatus, 0);
    slowest = std::max(slowest, NowMicroseconds() - start);
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
}

TEST(KilledAtRandom, EachChangeLeavesTheOldOrTheNewState) {
  harness::ResetProductDir(false);
  for (int i = 0; i < 20; ++i)
    testing_support::StoreScan(testing_support::MakeScan("Other" + std::to_string(i), 65534));
  std::vector<std::string> dirs;
  for (int i = 0; i < 30; ++i) dirs.push_back(ScanDir("o" + std::to_string(i)));
  testing_support::StoreScan(testing_support::MakeScan("Target", 65534, dirs));
  const std::string store = harness::ReadFile(kTaskListPath);
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
                 restore(IndexBytes(40)), 100);
  // New time, every directory removed and 30 others added, as the owner.
  std::string modify = "Target\nn\nn\ny\n1\n2\n3\nn\nn\nn\nn\n";
  for (int i = 0; i <= 30; ++i) modify += "y\n";  // each directory removed, then more added
  KillRepeatedly("schscan_str_args_modify", modify + directories, 65534, restore(IndexBytes(40)),
                 100);
  KillRepeatedly("schscan_args_delrpt", "3\n", 65534, restore(IndexBytes(20000)), 40);
  // Whatever temporary files the killed rewrites left, none is taken for the
  // index: a whole run still reads and rewrites the index itself.
  restore(IndexBytes(40))();
  harness::RunOptions options;
  options.args = {"schscan_args_delrpt"};
  options.input = "3\n";
  options.user = 65534;
  EXPECT_EQ(harness::RunTool(options).exitStatus, 0);
  EXPECT_EQ(harness::ReadFile(kReportIndexPath), IndexBytes(40, false));
}

// Storage that refuses the change: each command's failure must be said
// clearly, with the store, the index and the product directory exactly as
// they were. The scan changed holds 100 directories, so that each change
// needs more room than the store's write-ahead log already has. Under a
// file size limit of 0 the store cannot even be read (SQLite writes into its
// shared-memory file when it maps it): the name prompt refuses every name.
// The store starts with an empty write-ahead log (all in the file once the
// last connection closed), so that every change needs room.
enum class Refusal { kFullDisk, kFileSizeLimit, kReadOnlyMount, kNoWritePermission };

// Mounts made here vanish with this test process.
bool PrivateMounts() {
  static const bool made =
      unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  return made;
}

// The product directory moved onto a small tmpfs, filled to the last block.
bool MountFullDisk() {
  const std::string staging = std::string(kProductDir) + "-staging";
  fs::remove_all(staging);
  fs::copy(kProductDir, staging, fs::copy_options::recursive);
  if (mount("tmpfs", kProductDir, "tmpfs", 0, "size=64m,mode=0777") != 0) return false;
  fs::copy(staging, kProductDir, fs::copy_options::recursive);
  fs::remove_all(staging);
  chmod(kReportsDir, 0777);
  FILE* filler = std::fopen((std::string(kProductDir) + "/filler").c_str(), "w");
  if (filler == nullptr) return false;
  std::setvbuf(filler, nullptr, _IONBF, 0);
  const std::string block(4096, 'f');
  while (std::fwrite(block.data(), 1, block.size(), filler) == block.size()) {
  }
  std::fclose(filler);
  return true;
}

std::vector<std::string> Files() {
  std::vector<std::string> names;
  for (const auto& entry : fs::recursive_directory_iterator(kProductDir))
    names.push_back(entry.path().string() + " " +
                    std::to_string(entry.is_regular_file() ? entry.file_size() : 0));
  std::sort(names.begin(), names.end());
  return names;
}

void RefuseWrites(Refusal refusal) {
  harness::ResetProductDir(false);
  std::vector<std::string> dirs;
  for (int i = 0; i < 100; ++i) dirs.push_back(ScanDir("d" + std::to_string(i)));
  testing_support::StoreScan(testing_support::MakeScan("Mine", 65534, dirs));
  ASSERT_EQ(truncate((kTaskListPath + std::string("-wal")).c_str(), 0), 0);
  harness::WriteFile(kReportIndexPath, IndexBytes(6), 0666);
  struct Unmount {
    bool mounted = false;
    ~Unmount() {
      if (mounted) umount2(kProductDir, MNT_DETACH);
    }
  } guard;
  bool& mounted = guard.mounted;
  if (refusal == Refusal::kFullDisk || refusal == Refusal::kReadOnlyMount) {
    mounted = PrivateMounts() &&
              (refusal == Refusal::kFullDisk
                   ? MountFullDisk()
                   : mount(kProductDir, kProductDir, nullptr, MS_BIND, nullptr) == 0 &&
                         mount(nullptr, kProductDir, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY,
                               nullptr) == 0);
    if (!mounted) GTEST_SKIP() << "cannot mount here";
  }
  if (refusal == Refusal::kNoWritePermission) {
    for (const char* path : {kProductDir, kReportsDir}) ASSERT_EQ(chmod(path, 0755), 0);
    testing_support::SetStoreMode(0644);
    ASSERT_EQ(chmod(kReportIndexPath, 0644), 0);
  }
  const std::string state = State();
  const std::vector<std::string> before = Files();
  const std::string storeFailed = refusal == Refusal::kFileSizeLimit
                                      ? "schscan_msg_enterscanname\n"  // the input ended there
                                      : "\nschscan_msg_scanoperation_fail.\n";
  std::string directories;  // 40 more directories, each followed by whether more come
  for (int i = 0; i < 40; ++i) directories += ScanDir("e" + std::to_string(i)) + (i < 39 ? "\ny\n" : "\nn\n");
  std::string keepEveryDirectory;
  for (int i = 0; i < 100; ++i) keepEveryDirectory += "n\n";
  const struct {
    const char* command;
    std::string input;
    std::string message;
  } cases[] = {
      {"schscan_str_args_add", "Added\n1\ny\nn\nn\nn\nn\n1\n" + directories + "y\n",
       storeFailed},
      {"schscan_str_args_modify",
       "Mine\nn\nn\ny\n1\n2\n3\nn\nn\nn\nn\n" + keepEveryDirectory + "y\n" + directories,
       storeFailed},
      {"schscan_str_args_delete", "Mine\n", storeFailed},
      {"schscan_args_delrpt", "3\n",
       refusal == Refusal::kFullDisk || refusal == Refusal::kFileSizeLimit
           ? "schscan_msg_invalid_config\n"      // 0: a failed write
           : "\nschscan_str_fileopfailed.\n"},  // 1002: no opening
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.command);
    harness::RunOptions options;
    options.args = {c.command};
    options.input = c.input;
    options.user = 65534;
    if (refusal == Refusal::kFileSizeLimit) options.fileSizeLimit = 0;
    const harness::RunResult run = harness::RunTool(options);
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_TRUE(run.output.ends_with(c.message))
        << run.output.substr(run.output.size() - std::min<std::size_t>(run.output.size(), 300));
    EXPECT_EQ(State(), state);
    EXPECT_EQ(Files(), before);  // no journal, no temporary index, nothing else
  }
}

TEST(RefusedStorage, FullDisk) { RefuseWrites(Refusal::kFullDisk); }
TEST(RefusedStorage, FileSizeLimit) { RefuseWrites(Refusal::kFileSizeLimit); }
TEST(RefusedStorage, ReadOnlyMount) { RefuseWrites(Refusal::kReadOnlyMount); }
TEST(RefusedStorage, NoWritePermissionForTheUser) { RefuseWrites(Refusal::kNoWritePermission); }

}  // namespace
