#include "fuzz/fuzz_support.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "product_paths.h"
#include "reports/report_index.h"
#include "testing/lock_free_appender.h"
#include "testing/scan_fixtures.h"

namespace fs = std::filesystem;

namespace fuzz {
namespace {

const std::string kOutsideFile = std::string(kProductDir) + "/outside.rpt";

struct Seeded {
  std::string store;
  std::string index;
} g_seeded;

[[noreturn]] void Die(const std::string& what) {
  std::fprintf(stderr, "fuzz support: %s: %s\n", what.c_str(), std::strerror(errno));
  std::abort();
}

std::string ReadFileOrDie(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) Die("open " + path);
  std::ostringstream contents;
  contents << in.rdbuf();
  return contents.str();
}

// Rewrites `path` with `contents` unless it holds them already: a command
// that only read leaves nothing to write back (nor to sync again).
void RestoreFile(const char* path, const std::string& contents) {
  std::ifstream in(path, std::ios::binary);
  std::string current(contents.size() + 1, '\0');
  in.read(current.data(), static_cast<std::streamsize>(current.size()));
  if (in.gcount() == static_cast<std::streamsize>(contents.size()) &&
      current.compare(0, contents.size(), contents) == 0)
    return;
  WriteFileOrDie(path, contents.data(), contents.size());
}

void CopyCatalogue() {
#ifdef LANG_MO_FILE
  const std::string directory = std::string(kCatalogueDir) + "/en_US/LC_MESSAGES";
  fs::create_directories(directory);
  const std::string contents = ReadFileOrDie(LANG_MO_FILE);
  WriteFileOrDie(directory + "/lang.mo", contents.data(), contents.size());
#endif
}

void AppendWithPath(const std::string& path, std::uint32_t owner) {
  tagSCAN_REPORT_ENTRY entry = testing_support::MakeReportEntry("Daily15charName", "d", "", owner);
  std::memcpy(entry.szReportPath, path.data(), std::min(path.size(), sizeof entry.szReportPath));
  testing_support::AppendReportEntry(entry);
}

}  // namespace

void Fail(const char* what) {
  std::fprintf(stderr, "invariant broken: %s\n", what);
  std::abort();
}

void WriteFileOrDie(const std::string& path, const void* data, std::size_t size) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) Die("create " + path);
  for (std::size_t done = 0; done < size;) {
    const ssize_t n = write(fd, static_cast<const char*>(data) + done, size - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) Die("write " + path);
    done += static_cast<std::size_t>(n);
  }
  if (fchmod(fd, 0666) != 0 || close(fd) != 0) Die("close " + path);
}

void SetUpSeededProduct() {
  const std::string lockPath = std::string(kProductDir) + ".fuzz-lock";
  fs::create_directories(fs::path(lockPath).parent_path());
  const int lock = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (lock < 0 || flock(lock, LOCK_EX) != 0) Die("lock " + lockPath);  // held until exit
  testing_support::ResetProduct();
  CopyCatalogue();
  testing_support::SeedScansAndReports();
  tagSCAN_REPORT_ENTRY unterminated;
  std::memset(&unterminated, 'N', sizeof unterminated);
  unterminated.dwUserId = 1;
  testing_support::AppendReportEntry(unterminated);
  AppendWithPath(kOutsideFile, 0);
  AppendWithPath(std::string(kReportsDir) + "/../tsklst.inf", 1);
  WriteFileOrDie(kOutsideFile, "not a report\n", 13);
  g_seeded = {ReadFileOrDie(kTaskListPath), ReadFileOrDie(kReportIndexPath) + "partial entry"};
  ResetSeededProduct();
}

void ResetSeededProduct() {
  for (const char* suffix : {"-journal", "-wal", "-shm"})
    unlink((std::string(kTaskListPath) + suffix).c_str());
  RestoreFile(kTaskListPath, g_seeded.store);
  RestoreFile(kReportIndexPath, g_seeded.index);
  for (int i = 1; i <= 3; ++i) {
    const std::string report = std::string(kReportsDir) + "/schd000" + std::to_string(i) + ".rpt";
    if (access(report.c_str(), F_OK) != 0) WriteFileOrDie(report, "report\n", 7);
  }
}

void CheckProtectedFilesRemain() {
  Require(access(kOutsideFile.c_str(), F_OK) == 0, "a file outside the reports directory was removed");
  Require(access(kTaskListPath, F_OK) == 0, "the task list was removed");
}

}  // namespace fuzz
