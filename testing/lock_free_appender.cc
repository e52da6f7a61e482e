#include "testing/lock_free_appender.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>

namespace testing_support {
namespace {

void CopyCut(char* field, std::size_t width, const std::string& text) {
  std::memcpy(field, text.data(), std::min(text.size(), width - 1));
}

// Creates the report file at `path` (0600 while written, 0666 once closed);
// false if it exists already or cannot be written.
bool WriteReportFile(const std::string& path, const std::string& text) {
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  const bool ok = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  return close(fd) == 0 && ok && chmod(path.c_str(), 0666) == 0;
}

}  // namespace

tagSCAN_REPORT_ENTRY MakeReportEntry(const std::string& scanName, const std::string& dateTime,
                                     const std::string& reportPath, std::uint32_t userId) {
  tagSCAN_REPORT_ENTRY entry{};
  CopyCut(entry.szDateTime, sizeof entry.szDateTime, dateTime);
  CopyCut(entry.szScanName, sizeof entry.szScanName, scanName);
  CopyCut(entry.szReportPath, sizeof entry.szReportPath, reportPath);
  entry.dwUserId = userId;
  return entry;
}

bool AppendReportEntry(const tagSCAN_REPORT_ENTRY& entry) {
  // First the count in the header, bumped in place; a missing index is
  // created, and its header read as zeros.
  const int index = open(kReportIndexPath, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (index < 0) return false;
  unsigned char header[REPORT_HEADER_SIZE] = {};
  bool ok = pread(index, header, sizeof header, REPORT_HEADER_OFFSET) >= 0;
  std::uint32_t count = 0;
  std::memcpy(&count, header, sizeof count);  // little-endian, as in the file
  ++count;
  std::memcpy(header, &count, sizeof count);
  ok = pwrite(index, header, sizeof header, REPORT_HEADER_OFFSET) ==
           static_cast<ssize_t>(sizeof header) && ok;
  ok = close(index) == 0 && ok;
  // Then the entry, at the end of the file as it is by then.
  const int end = open(kReportIndexPath, O_WRONLY | O_APPEND | O_CLOEXEC);
  ok = end >= 0 && write(end, &entry, sizeof entry) == static_cast<ssize_t>(sizeof entry) && ok;
  if (end >= 0) ok = close(end) == 0 && ok;
  return ok && chmod(kReportIndexPath, 0666) == 0;
}

std::string AddReport(const std::string& scanName, const std::string& dateTime,
                      std::uint32_t userId, const std::string& text) {
  static std::mt19937 generator{std::random_device{}()};
  // Enough draws to find the last free name among the 10,000 many times over.
  for (int draw = 0; draw < 1000000; ++draw) {
    char name[32];
    std::snprintf(name, sizeof name, "/schd%02u%02u.rpt", static_cast<unsigned>(generator() % 100),
                  static_cast<unsigned>(generator() % 100));
    const std::string path = kReportsDir + std::string(name);
    if (WriteReportFile(path, text))
      return AppendReportEntry(MakeReportEntry(scanName, dateTime, path, userId)) ? path : "";
    if (errno != EEXIST) return "";
  }
  return "";
}

std::string AddNamedReport(const std::string& fileName, const std::string& scanName,
                           const std::string& dateTime, std::uint32_t userId,
                           const std::string& text) {
  const std::string path = std::string(kReportsDir) + "/" + fileName;
  const bool added = WriteReportFile(path, text) &&
                     AppendReportEntry(MakeReportEntry(scanName, dateTime, path, userId));
  return added ? path : "";
}

}  // namespace testing_support
