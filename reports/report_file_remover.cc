#include "reports/report_file_remover.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <utility>

const char* PlainReportFileName(const char* reportPath, const char* reportsDirectory) {
  const std::size_t directoryLength = std::strlen(reportsDirectory);
  if (std::strncmp(reportPath, reportsDirectory, directoryLength) != 0 ||
      reportPath[directoryLength] != '/')
    return nullptr;
  const char* name = reportPath + directoryLength + 1;
  if (*name == '\0' || std::strchr(name, '/') != nullptr || std::strcmp(name, ".") == 0 ||
      std::strcmp(name, "..") == 0)
    return nullptr;
  return name;
}

ReportFileRemover::ReportFileRemover(std::string reportsDirectory)
    : reportsDirectory_(std::move(reportsDirectory)) {}

ReportFileRemover::~ReportFileRemover() {
  if (directoryFd_ >= 0) close(directoryFd_);
}

void ReportFileRemover::Remove(const char* reportPath) {
  const char* name = PlainReportFileName(reportPath, reportsDirectory_.c_str());
  if (name == nullptr) return;
  if (!opened_) {
    opened_ = true;
    directoryFd_ =
        open(reportsDirectory_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  }
  if (directoryFd_ < 0) return;
  if (unlinkat(directoryFd_, name, 0) != 0) {
    // Already gone or not removable: the entry leaves the index all the same.
  }
}
