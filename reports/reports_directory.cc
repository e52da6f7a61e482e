#include "reports/reports_directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "product_paths.h"

namespace {

// The file name in `reportPath` when the path is the reports directory, "/",
// and one plain file name (no "/", not "." or ".."); nullptr otherwise.
const char* PlainReportFileName(const char* reportPath) {
  const std::size_t directoryLength = std::strlen(kReportsDir);
  if (std::strncmp(reportPath, kReportsDir, directoryLength) != 0 ||
      reportPath[directoryLength] != '/')
    return nullptr;
  const char* name = reportPath + directoryLength + 1;
  if (*name == '\0' || std::strchr(name, '/') != nullptr || std::strcmp(name, ".") == 0 ||
      std::strcmp(name, "..") == 0)
    return nullptr;
  return name;
}

}  // namespace

ReportsDirectory::~ReportsDirectory() {
  if (fd_ >= 0) close(fd_);
}

int ReportsDirectory::Directory() {
  if (!opened_) {
    opened_ = true;
    fd_ = open(kReportsDir, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  }
  return fd_;
}

int ReportsDirectory::OpenReport(const char* reportPath) {
  const char* name = PlainReportFileName(reportPath);
  if (name == nullptr || Directory() < 0) return -1;
  const int report = openat(fd_, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  struct stat status {};
  if (report >= 0 && (fstat(report, &status) != 0 || !S_ISREG(status.st_mode))) {
    close(report);
    return -1;
  }
  return report;
}

void ReportsDirectory::RemoveReport(const char* reportPath) {
  const char* name = PlainReportFileName(reportPath);
  if (name == nullptr || Directory() < 0) return;
  if (unlinkat(fd_, name, 0) != 0) {
    // Already gone or not removable: the entry leaves the index all the same.
  }
}
