#include "fuzz/fuzz_support.h"

#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <vector>

#include "console/interrupt.h"
#include "product_paths.h"
#include "reports/report_index.h"
#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"

namespace fs = std::filesystem;

namespace fuzz {
namespace {

void Die(const std::string& what) {
  std::fprintf(stderr, "fuzz support: %s: %s\n", what.c_str(), std::strerror(errno));
  std::abort();
}

void WriteAll(int fd, const void* data, std::size_t size) {
  const char* from = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t n = write(fd, from, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) Die("write");
    from += n;
    size -= static_cast<std::size_t>(n);
  }
}

std::string ReadFileOrDie(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) Die("open " + path);
  std::string contents;
  char chunk[4096];
  for (;;) {
    const ssize_t n = read(fd, chunk, sizeof chunk);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) Die("read " + path);
    if (n == 0) break;
    contents.append(chunk, static_cast<std::size_t>(n));
  }
  close(fd);
  return contents;
}

void WriteFileWithMode(const std::string& path, const std::string& contents, mode_t mode) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
  if (fd < 0) Die("create " + path);
  WriteAll(fd, contents.data(), contents.size());
  if (fchmod(fd, mode) != 0 || close(fd) != 0) Die("close " + path);
}

// ---- the seeded product ----

const std::string kReportsDirectory = kReportsDir;
const std::string kOutsideFile = std::string(kProductDir) + "/outside.rpt";

struct SeededProduct {
  std::string store;  // the task list file, byte for byte
  std::string index;  // the report index, byte for byte
  std::vector<std::string> reportFiles;
};
SeededProduct g_seeded;

tagSCHEDULE_SCAN_ENTRY MakeScan(const char* name, std::uint32_t owner,
                                std::initializer_list<const char*> directories) {
  tagSCHEDULE_SCAN_ENTRY scan;
  PrepareNewScheduleScanEntry(&scan);
  std::memcpy(scan.szScanName, name, std::strlen(name));
  scan.dwUserId = owner;
  scan.byFrequency = FREQ_DAILY;
  scan.nHour = 10;
  scan.nMinute = 20;
  scan.nSecond = 30;
  scan.nRecurEvery = 2;
  for (const char* directory : directories) scan.vecScanItems.AppendPath(directory);
  return scan;
}

void AddSeedScan(tagSCHEDULE_SCAN_ENTRY scan) {
  std::uint32_t code = SCHSCAN_OK;
  if (!AddScheduleScanTask(kTaskListPath, &scan, &code)) {
    std::fprintf(stderr, "fuzz support: seeding scan %s failed with %u\n", scan.szScanName, code);
    std::abort();
  }
}

// Scans of both users, of every schedule shape: daily and weekly, timed and
// first boot, repeated by hours and by minutes, a name too long for the
// table's column, one and several directories.
void SeedStore() {
  for (const char* suffix : {"", "-journal", "-wal", "-shm"}) {
    unlink((std::string(kTaskListPath) + suffix).c_str());
  }
  tagSCHEDULE_SCAN_ENTRY daily = MakeScan("Daily1", kRootUser, {"/usr", "/var"});
  daily.bRepeatScan = 1;
  daily.byRepeatUnit = REPEAT_UNIT_HOURS;
  daily.nRepeatInterval = 3;
  daily.byScanOptions = SCAN_OPT_ARCHIVE;
  AddSeedScan(std::move(daily));

  tagSCHEDULE_SCAN_ENTRY weekly = MakeScan("Weekly2", kOtherUser, {"/tmp"});
  weekly.byFrequency = FREQ_WEEKLY;
  weekly.byWeekDay = 3;
  weekly.nRecurEvery = 1;
  weekly.byScanOptions = SCAN_OPT_ARCHIVE | SCAN_OPT_SPYWARE | SCAN_OPT_DUMP | SCAN_OPT_PACKED;
  weekly.nScanAction = ACTION_REPORT_ONLY;
  AddSeedScan(std::move(weekly));

  tagSCHEDULE_SCAN_ENTRY boot = MakeScan("Boot3", kOtherUser, {"/etc", "/usr/share"});
  boot.byFrequency = FREQ_WEEKLY;
  boot.byWeekDay = 7;
  boot.bFirstBootScan = 1;
  boot.nScanAction = ACTION_DELETE;
  AddSeedScan(std::move(boot));

  tagSCHEDULE_SCAN_ENTRY longName =
      MakeScan("NightlyScanOfTheSystemDirectories", kRootUser, {"/usr/lib"});
  longName.bRepeatScan = 1;
  longName.byRepeatUnit = REPEAT_UNIT_MINUTES;
  longName.nRepeatInterval = 45;
  longName.nScanAction = ACTION_REPAIR_DELETE;
  AddSeedScan(std::move(longName));

  g_seeded.store = ReadFileOrDie(kTaskListPath);
}

tagSCAN_REPORT_ENTRY MakeReport(const std::string& scanName, const std::string& dateTime,
                                const std::string& path, std::uint32_t owner) {
  tagSCAN_REPORT_ENTRY entry{};
  std::memcpy(entry.szScanName, scanName.data(),
              std::min(scanName.size(), sizeof entry.szScanName));
  std::memcpy(entry.szDateTime, dateTime.data(),
              std::min(dateTime.size(), sizeof entry.szDateTime));
  std::memcpy(entry.szReportPath, path.data(), std::min(path.size(), sizeof entry.szReportPath));
  entry.dwUserId = owner;
  return entry;
}

// Reports of both users, entries whose strings fill their fields without a
// NUL, and entries that name files outside the reports directory (which no
// command may remove), then a trailing piece of an entry.
void SeedReports() {
  fs::create_directories(kReportsDirectory);
  g_seeded.reportFiles = {kReportsDirectory + "/schd0101.rpt", kReportsDirectory + "/schd0202.rpt",
                          kReportsDirectory + "/schd0203.rpt"};
  const std::vector<tagSCAN_REPORT_ENTRY> entries = {
      MakeReport("Daily1", "Tue Jan  2 10:20:30 2024", g_seeded.reportFiles[0], kRootUser),
      MakeReport("Weekly2", "Wed Jan  3 01:02:03 2024", g_seeded.reportFiles[1], kOtherUser),
      MakeReport("NightlyScanOfTheSystemDirectories", "Thu Jan  4 23:59:59 2024",
                 g_seeded.reportFiles[2], kOtherUser),
      MakeReport(std::string(REPORT_SCAN_NAME_SIZE, 'N'), std::string(REPORT_DATE_TIME_SIZE, 'D'),
                 kReportsDirectory + "/" + std::string(REPORT_PATH_SIZE, 'P'), kRootUser),
      MakeReport("Daily1", "Fri Jan  5 10:20:30 2024", kOutsideFile, kRootUser),
      MakeReport("Weekly2", "Sat Jan  6 01:02:03 2024", kReportsDirectory + "/../tsklst.inf",
                 kOtherUser),
  };
  std::string index(REPORT_ENTRIES_OFFSET, '\0');
  index[REPORT_HEADER_OFFSET] = static_cast<char>(entries.size());
  for (const tagSCAN_REPORT_ENTRY& entry : entries) {
    index.append(reinterpret_cast<const char*>(&entry), sizeof entry);
  }
  index.append(100, 'x');
  g_seeded.index = index;
}

void CopyCatalogue() {
#ifdef LANG_MO_FILE
  if (!FileExists(LANG_MO_FILE)) return;
  const std::string directory = std::string(kCatalogueDir) + "/en_US/LC_MESSAGES";
  fs::create_directories(directory);
  // Replaced by a rename, never rewritten in place: other processes of the
  // build (the prompt targets) may have the catalogue mapped, and a mapped
  // file cut short kills them with SIGBUS.
  const std::string path = directory + "/lang.mo";
  const std::string contents = ReadFileOrDie(LANG_MO_FILE);
  if (FileExists(path) && ReadFileOrDie(path) == contents) return;
  const std::string temporary = path + "." + std::to_string(getpid());
  WriteFileWithMode(temporary, contents, 0644);
  if (rename(temporary.c_str(), path.c_str()) != 0) Die("rename " + temporary);
#endif
}

// Held for the life of the process: fuzz processes that share the product
// directory take turns.
void LockProductDirectory() {
  const std::string lockPath = std::string(kProductDir) + ".fuzz-lock";
  fs::create_directories(fs::path(lockPath).parent_path());
  const int fd = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) Die("open " + lockPath);
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    std::fprintf(stderr, "fuzz support: waiting for another process using %s\n", kProductDir);
    if (flock(fd, LOCK_EX) != 0) Die("flock " + lockPath);
  }
}

}  // namespace

void Fail(const char* what) {
  std::fprintf(stderr, "invariant broken: %s\n", what);
  std::abort();
}

void SetUpConsole() {
  const int input = memfd_create("schscan-fuzz-stdin", 0);
  if (input < 0) Die("memfd_create");
  if (dup2(input, STDIN_FILENO) != STDIN_FILENO) Die("dup2 stdin");
  close(input);
  if (std::getenv("SCHSCAN_FUZZ_SHOW_OUTPUT") == nullptr) {
    std::fflush(stdout);
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (null < 0 || dup2(null, STDOUT_FILENO) != STDOUT_FILENO) Die("dup2 stdout");
    close(null);
  }
  SetEndOfInputHookForTesting([] { throw EndOfInput{}; });
}

void FeedStandardInput(const std::uint8_t* data, std::size_t size) {
  if (ftruncate(STDIN_FILENO, 0) != 0) Die("ftruncate stdin");
  std::size_t done = 0;
  while (done < size) {
    const ssize_t n = pwrite(STDIN_FILENO, data + done, size - done, static_cast<off_t>(done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) Die("pwrite stdin");
    done += static_cast<std::size_t>(n);
  }
  // Drops what the stream buffered from the previous input: fseek alone
  // would keep the buffer when the new position lies inside it (a command
  // that ended before the end of its input), and hand the old bytes out again.
  __fpurge(stdin);
  if (lseek(STDIN_FILENO, 0, SEEK_SET) != 0) Die("lseek stdin");
  std::clearerr(stdin);
}

std::vector<std::string> SplitAsLineReads(const std::uint8_t* data, std::size_t size,
                                          std::size_t readSize) {
  std::vector<std::string> pieces;
  std::size_t at = 0;
  while (at < size) {
    std::size_t end = at;
    while (end < size && end - at < readSize - 1) {
      if (data[end++] == '\n') break;
    }
    pieces.emplace_back(reinterpret_cast<const char*>(data) + at, end - at);
    at = end;
  }
  return pieces;
}

const std::string& ScratchDir() {
  // Never destroyed, so that the exit handler that removes it can name it.
  static const std::string* const directory = [] {
    // In memory where the machine has it: the store syncs every change.
    const std::string parent = access("/dev/shm", W_OK) == 0
                                   ? std::string("/dev/shm/schscan-fuzz-scratch")
                                   : std::string(kProductDir) + "-fuzz-scratch";
    auto* path = new std::string(parent + "/" + std::to_string(getpid()));
    fs::remove_all(*path);
    fs::create_directories(*path);
    std::atexit([] {
      std::error_code ignored;
      fs::remove_all(ScratchDir(), ignored);
    });
    return path;
  }();
  return *directory;
}

void WriteFileOrDie(const std::string& path, const void* data, std::size_t size) {
  WriteFileWithMode(path, std::string(static_cast<const char*>(data), size), 0600);
}

bool FileExists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

void SetUpSeededProduct() {
  LockProductDirectory();
  fs::create_directories(kReportsDirectory);
  CopyCatalogue();
  SeedStore();
  SeedReports();
  WriteFileWithMode(kOutsideFile, "not a report of this directory\n", 0644);
  ResetSeededProduct();
}

namespace {

// Rewrites `path` with `contents` unless it holds them already: a command
// that only read leaves nothing to write back (nor to sync again).
void RestoreFile(const char* path, const std::string& contents, mode_t mode) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd >= 0) {
    std::string current(contents.size() + 1, '\0');
    const ssize_t n = read(fd, current.data(), current.size());
    close(fd);
    if (n == static_cast<ssize_t>(contents.size()) &&
        std::memcmp(current.data(), contents.data(), contents.size()) == 0) {
      return;
    }
  }
  WriteFileWithMode(path, contents, mode);
}

}  // namespace

void ResetSeededProduct() {
  for (const char* suffix : {"-journal", "-wal", "-shm"}) {
    unlink((std::string(kTaskListPath) + suffix).c_str());
  }
  RestoreFile(kTaskListPath, g_seeded.store, 0660);
  RestoreFile(kReportIndexPath, g_seeded.index, 0666);
  for (const std::string& report : g_seeded.reportFiles) {
    if (!FileExists(report)) WriteFileWithMode(report, "Scan report\nNo threats found.\n", 0666);
  }
}

void CheckProtectedFilesRemain() {
  Require(FileExists(kOutsideFile), "a file outside the reports directory was removed");
  Require(FileExists(kTaskListPath), "the task list was removed");
}

RealUserScope::RealUserScope(std::uint32_t uid) {
  if (uid == getuid() || geteuid() != 0 || getuid() != 0) return;
  if (setresuid(uid, 0, 0) != 0) Die("setresuid");
  switched_ = true;
}

RealUserScope::~RealUserScope() {
  if (switched_ && setresuid(0, 0, 0) != 0) Die("setresuid back");
}

}  // namespace fuzz
