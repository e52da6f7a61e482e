#include "reports/reports_directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

#include "product_paths.h"

namespace {

// The file name in `reportPath` when the path is the reports directory, "/",
// and one plain file name (no "/", not "." or ".."), and the name is neither
// the index's nor that of one of its temporaries; nullptr otherwise.
const char* PlainReportFileName(const char* reportPath) {
  const std::size_t directoryLength = std::strlen(kReportsDir);
  if (std::strncmp(reportPath, kReportsDir, directoryLength) != 0 ||
      reportPath[directoryLength] != '/')
    return nullptr;
  const std::string_view name = reportPath + directoryLength + 1;
  const std::string temporaries = std::string(".") + kReportIndexName + ".";
  if (name.empty() || name.find('/') != name.npos || name == "." || name == ".." ||
      name == kReportIndexName || name.starts_with(temporaries))
    return nullptr;
  return name.data();
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
  errno = ENOENT;
  if (name == nullptr || Directory() < 0) return -1;
  const int report = openat(fd_, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  struct stat status {};
  if (report >= 0 && (fstat(report, &status) != 0 || !S_ISREG(status.st_mode))) {
    close(report);
    errno = ENOENT;
    return -1;
  }
  if (report < 0 && errno == ELOOP) errno = ENOENT;  // a symbolic link is no report
  return report;
}

void ReportsDirectory::RemoveReport(const char* reportPath) {
  const char* name = PlainReportFileName(reportPath);
  struct stat status {};
  if (name == nullptr || Directory() < 0 || fstatat(fd_, name, &status, AT_SYMLINK_NOFOLLOW) != 0 ||
      !S_ISREG(status.st_mode))
    return;
  if (unlinkat(fd_, name, 0) != 0) {
    // Not removable: the entry leaves the index all the same.
  }
}
