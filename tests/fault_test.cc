// The tool killed at random moments, and storage that refuses to be written.
// Whatever happens, the task list passes SQLite's integrity check and holds
// either the old or the new scans, the report index is either the old or
// the new file, and a refused write ends in the dispatcher's message for it
// with nothing half-written.
#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "product_paths.h"
#include "tests/harness.h"
#include "testing/lock_free_appender.h"
#include "testing/scan_fixtures.h"

namespace {

namespace fs = std::filesystem;
using scantest::MakeDir;

const std::string kJournal = std::string(kTaskListPath) + "-journal";

long long NowMicroseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000000LL + now.tv_nsec / 1000;
}

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// The rows of PRAGMA integrity_check ("ok" for a sound file); opening the
// store rolls back a journal that a killed run left behind.
std::string IntegrityCheck() {
  sqlite3* db = nullptr;
  std::string result;
  if (sqlite3_open_v2(kTaskListPath, &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
    sqlite3_exec(
        db, "PRAGMA integrity_check",
        [](void* out, int, char** values, char**) {
          *static_cast<std::string*>(out) += values[0] ? values[0] : "NULL";
          return 0;
        },
        &result, nullptr);
  }
  sqlite3_close(db);
  return result.empty() ? "cannot open" : result;
}

// The whole store, checked: what old and new states are compared by.
std::string StoreState() { return IntegrityCheck() + "\n" + scantest::DumpStore(); }

// Temporary files that rewrites of the index leave in the reports directory.
int StrayIndexFiles() {
  int count = 0;
  for (const auto& entry : fs::directory_iterator(kReportsDir))
    if (entry.path().filename().string().starts_with(".schdmain.rpt.")) ++count;
  return count;
}

// An index of `count` entries, every other one user 1's, the rest 65534's.
// Their report files do not exist: deleting reports only forgets them.
std::string IndexBytes(int count, bool withNobodys = true) {
  std::string bytes(8, '\0');
  std::uint32_t kept = 0;
  std::string entries;
  for (int i = 0; i < count; ++i) {
    const std::uint32_t owner = i % 2 == 0 ? 1 : 65534;
    if (owner == 65534 && !withNobodys) continue;
    const auto entry = scan_service::MakeReportEntry(
        "Scan" + std::to_string(i), "d" + std::to_string(i),
        std::string(kReportsDir) + "/gone" + std::to_string(i) + ".rpt", owner);
    entries.append(reinterpret_cast<const char*>(&entry), sizeof entry);
    ++kept;
  }
  for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<char>(kept >> (8 * i)));
  return bytes + std::string(7, '\0') + entries;
}

struct KillCase {
  std::string command;
  std::string input;
  std::optional<uid_t> user;
  std::string lastPrompt;              // the store call or the rewrite follows it
  std::function<void()> restore;       // lays out the old state again
  std::function<bool()> leftHalfDone;  // a journal or a temporary file remains
  std::function<std::string()> state;  // read after leftHalfDone
};

struct Figures {
  int runs = 0, killed = 0, old = 0, updated = 0, halfDone = 0;
};

// Runs the command to its end a few times to learn when its last prompt
// comes and when it ends, then `times` times killed at a random moment:
// half anywhere in the run, half between the last prompt and the end.
Figures KillRepeatedly(const KillCase& c, int times, const char* label) {
  c.restore();
  const std::string oldState = c.state();
  harness::RunOptions options;
  options.args = {c.command};
  options.input = c.input;
  options.user = c.user;
  std::vector<long long> promptAt;
  std::vector<long long> endAt;
  std::string newState;
  for (int i = 0; i < 5; ++i) {
    c.restore();
    long long start = NowMicroseconds();
    long long prompt = -1;
    options.watchOutput = [&](pid_t, const std::string& output) {
      if (EndsWith(output, c.lastPrompt)) prompt = NowMicroseconds() - start;  // the last one
    };
    const harness::RunResult run = harness::RunTool(options);
    endAt.push_back(NowMicroseconds() - start);
    promptAt.push_back(prompt);
    EXPECT_EQ(run.exitStatus, 0);
    newState = c.state();
  }
  // The earliest last prompt, and the slowest end with a margin: a kill
  // after the end finds the new state, which is as good an outcome.
  const long long prompt = std::max(0LL, *std::min_element(promptAt.begin(), promptAt.end()));
  const long long end = std::max(prompt + 1, *std::max_element(endAt.begin(), endAt.end()) * 5 / 4);
  EXPECT_NE(newState, oldState);

  Figures figures;
  std::mt19937 random(20261122);
  options.watchOutput = {};
  for (int i = 0; i < times; ++i) {
    c.restore();
    const long long from = i % 2 == 0 ? 0 : prompt;
    options.killAfterMicroseconds = std::uniform_int_distribution<long long>(from, end)(random);
    const harness::RunResult run = harness::RunTool(options);
    ++figures.runs;
    if (run.killed) ++figures.killed;
    if (c.leftHalfDone()) ++figures.halfDone;
    const std::string state = c.state();
    if (state == oldState) {
      ++figures.old;
    } else if (state == newState) {
      ++figures.updated;
    } else {
      ADD_FAILURE() << label << " run " << i << " killed after " << *options.killAfterMicroseconds
                    << " us left neither state:\n"
                    << state;
    }
  }
  std::printf(
      "[ figures  ] %s: %d runs, %d killed; %d old, %d new; %d killed half-done "
      "(last prompt at %lld us, end at %lld us)\n",
      label, figures.runs, figures.killed, figures.old, figures.updated, figures.halfDone, prompt,
      end);
  EXPECT_EQ(figures.old + figures.updated, times);
  return figures;
}

// Scans that the store keeps around the one a case changes.
std::string SeedStore(int others) {
  harness::ResetProductDir(false);
  for (int i = 0; i < others; ++i)
    scantest::StoreScan(scantest::MakeScan("Other" + std::to_string(i)));
  return harness::ReadFile(kTaskListPath);
}

void RestoreStore(const std::string& bytes) {
  fs::remove(kJournal);
  harness::WriteFile(kTaskListPath, bytes, 0666);
}

// Answers that add `count` directories, then say no more.
std::string Directories(const std::string& prefix, int count) {
  std::string input;
  for (int i = 0; i < count; ++i)
    input += MakeDir(prefix + std::to_string(i)) + (i + 1 < count ? "\ny\n" : "\nn\n");
  return input;
}

TEST(KilledAtRandom, AddLeavesTheOldOrTheNewStore) {
  const std::string store = SeedStore(20);
  const KillCase add = {
      "schscan_str_args_add",
      "Added\n1\nn\n10\n20\n30\n2\nn\nn\nn\nn\nn\n1\n" + Directories("n", 30) + "y\n",
      std::nullopt,
      "\nschscan_confirm_add_schscan:",
      [&] { RestoreStore(store); },
      [] { return fs::exists(kJournal); },
      StoreState};
  KillRepeatedly(add, 100, "add");
}

TEST(KilledAtRandom, ModifyLeavesTheOldOrTheNewScanWithAllItsDirectories) {
  SeedStore(10);
  tagSCHEDULE_SCAN_ENTRY target = scantest::MakeScan("Target", 65534);
  std::vector<std::string> directories;
  for (int i = 0; i < 30; ++i) directories.push_back(MakeDir("o" + std::to_string(i)));
  scantest::SetDirectories(target, directories);
  scantest::StoreScan(target);
  const std::string store = harness::ReadFile(kTaskListPath);
  // New time, every directory removed and 30 others added, as the owner.
  std::string input = "Target\nn\nn\ny\n1\n2\n3\nn\nn\nn\nn\n";
  for (int i = 0; i < 30; ++i) input += "y\n";
  input += "y\n" + Directories("m", 30);
  const KillCase modify = {"schscan_str_args_modify",
                           input,
                           65534,
                           "schscan_confirm_addmore_item:",
                           [&] { RestoreStore(store); },
                           [] { return fs::exists(kJournal); },
                           StoreState};
  KillRepeatedly(modify, 100, "modify");
}

// User 65534 deletes all his reports: the new index keeps user 1's.
KillCase DeleteReportsCase(const std::string& index) {
  return {"schscan_args_delrpt",
          "3\n",
          65534,
          "cli_usrInput_menuNumber",
          [index] { harness::WriteFile(kReportIndexPath, index, 0666); },
          [strays = std::make_shared<int>(StrayIndexFiles())] {
            const int before = std::exchange(*strays, StrayIndexFiles());
            return *strays > before;
          },
          [] { return harness::ReadFile(kReportIndexPath); }};
}

TEST(KilledAtRandom, DeleteReportsLeavesTheOldOrTheNewIndex) {
  harness::ResetProductDir(false);
  KillRepeatedly(DeleteReportsCase(IndexBytes(40)), 100, "delete reports, 40 entries");
  KillRepeatedly(DeleteReportsCase(IndexBytes(20000)), 10, "delete reports, 20000 entries");
  // Whatever temporary files the killed rewrites left, none is taken for the
  // index: a whole run still reads and rewrites the index itself.
  harness::WriteFile(kReportIndexPath, IndexBytes(40), 0666);
  harness::RunOptions options;
  options.args = {"schscan_args_delrpt"};
  options.input = "3\n";
  options.user = 65534;
  EXPECT_EQ(harness::RunTool(options).exitStatus, 0);
  EXPECT_EQ(harness::ReadFile(kReportIndexPath), IndexBytes(40, false));
  std::printf("[ figures  ] %d temporary index files left by killed rewrites\n", StrayIndexFiles());
}

// Storage that refuses the change: each command's failure must reach the
// dispatcher as a clear message, with the store, the index and the reports
// directory exactly as they were.
enum class Refusal { kFullDisk, kFileSizeLimit, kReadOnlyMount, kNoWritePermission };

// Mounts made here vanish with this test process.
bool PrivateMounts() {
  static const bool made =
      unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  return made;
}

// Moves the product directory onto a small tmpfs and fills it to the last
// block.
bool MountFullDisk() {
  const std::string staging = std::string(kProductDir) + "-staging";
  fs::remove_all(staging);
  fs::copy(kProductDir, staging, fs::copy_options::recursive);
  fs::remove_all(std::string(kProductDir) + "/");
  fs::create_directories(kProductDir);
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

bool MountReadOnly() {
  return mount(kProductDir, kProductDir, nullptr, MS_BIND, nullptr) == 0 &&
         mount(nullptr, kProductDir, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0;
}

// Takes away what is mounted on the product directory, also when a check
// failed half way.
struct MountedProduct {
  bool mounted = false;
  ~MountedProduct() {
    if (mounted) umount2(kProductDir, MNT_DETACH);
  }
};

void RefuseWrites(Refusal refusal) {
  MountedProduct mounted;
  harness::ResetProductDir(false);
  scantest::StoreScan(scantest::MakeScan("Mine", 65534));
  harness::WriteFile(kReportIndexPath, IndexBytes(6), 0666);
  switch (refusal) {
    case Refusal::kFullDisk:
      mounted.mounted = PrivateMounts() && MountFullDisk();
      if (!mounted.mounted) GTEST_SKIP() << "cannot mount a tmpfs here";
      break;
    case Refusal::kReadOnlyMount:
      mounted.mounted = PrivateMounts() && MountReadOnly();
      if (!mounted.mounted) GTEST_SKIP() << "cannot mount read-only here";
      break;
    case Refusal::kNoWritePermission:
      for (const char* path : {kProductDir, kReportsDir}) ASSERT_EQ(chmod(path, 0755), 0);
      for (const char* path : {kTaskListPath, kReportIndexPath}) ASSERT_EQ(chmod(path, 0644), 0);
      break;
    case Refusal::kFileSizeLimit:
      break;
  }
  const std::string store = harness::ReadFile(kTaskListPath);
  const std::string index = harness::ReadFile(kReportIndexPath);
  const auto files = [] {
    std::vector<std::string> names;
    for (const auto& entry : fs::recursive_directory_iterator(kProductDir))
      names.push_back(entry.path().string() + " " +
                      std::to_string(entry.is_regular_file() ? entry.file_size() : 0));
    std::sort(names.begin(), names.end());
    return names;
  };
  const std::vector<std::string> before = files();

  const std::string storeFailed = "\nschscan_msg_scanoperation_fail.\n";
  const std::string rewriteFailed =
      refusal == Refusal::kFullDisk || refusal == Refusal::kFileSizeLimit
          ? "schscan_msg_invalid_config\n"    // 0: a failed write
          : "\nschscan_str_fileopfailed.\n";  // 1002: no opening
  const struct {
    const char* command;
    std::string input;
    std::string message;
  } cases[] = {
      {"schscan_str_args_add", "Added\n1\ny\nn\nn\nn\nn\n1\n" + MakeDir("a") + "\nn\ny\n",
       storeFailed},
      {"schscan_str_args_modify", "Mine\nn\nn\ny\n1\n2\n3\nn\nn\nn\nn\nn\nn\n", storeFailed},
      {"schscan_str_args_delete", "Mine\n", storeFailed},
      {"schscan_args_delrpt", "3\n", rewriteFailed},
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
    EXPECT_TRUE(EndsWith(run.output, c.message)) << run.output;
    EXPECT_EQ(harness::ReadFile(kTaskListPath), store);
    EXPECT_EQ(harness::ReadFile(kReportIndexPath), index);
    EXPECT_EQ(files(), before);  // no journal, no temporary index, nothing else
  }
  EXPECT_EQ(IntegrityCheck(), "ok");
}

TEST(RefusedStorage, FullDisk) { RefuseWrites(Refusal::kFullDisk); }
TEST(RefusedStorage, FileSizeLimit) { RefuseWrites(Refusal::kFileSizeLimit); }
TEST(RefusedStorage, ReadOnlyMount) { RefuseWrites(Refusal::kReadOnlyMount); }
TEST(RefusedStorage, NoWritePermissionForTheUser) { RefuseWrites(Refusal::kNoWritePermission); }

}  // namespace
