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

// Enough draws to find the last free name among the 10,000 many times over.
constexpr int kMaxNameDraws = 1000000;

bool WriteAll(int fd, const void* data, std::size_t size) {
  const char* from = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t n = write(fd, from, size);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    from += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

void CopyCut(char* field, std::size_t width, const std::string& text) {
  std::memcpy(field, text.data(), std::min(text.size(), width - 1));
}

bool CreateIndexWithZeroHeader(const std::string& indexPath) {
  const int fd = open(indexPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0) return false;
  const unsigned char header[REPORT_HEADER_SIZE] = {};
  const bool ok = lseek(fd, REPORT_HEADER_OFFSET, SEEK_SET) >= 0 &&
                  WriteAll(fd, header, sizeof header);
  return close(fd) == 0 && ok;
}

bool BumpReportCount(const std::string& indexPath) {
  const int fd = open(indexPath.c_str(), O_RDWR | O_CLOEXEC);
  if (fd < 0) return false;
  unsigned char header[REPORT_HEADER_SIZE] = {};
  bool ok = lseek(fd, REPORT_HEADER_OFFSET, SEEK_SET) >= 0 && read(fd, header, sizeof header) > 0;
  if (ok) {
    std::uint32_t count = 0;
    for (int i = 3; i >= 0; --i) count = (count << 8) | header[i];
    ++count;
    for (int i = 0; i < 4; ++i) header[i] = static_cast<unsigned char>(count >> (8 * i));
    ok = lseek(fd, REPORT_HEADER_OFFSET, SEEK_SET) >= 0 && WriteAll(fd, header, sizeof header);
  }
  return close(fd) == 0 && ok && chmod(indexPath.c_str(), 0666) == 0;
}

bool AppendWholeEntry(const std::string& indexPath, const tagSCAN_REPORT_ENTRY& entry) {
  const int fd = open(indexPath.c_str(), O_RDWR | O_APPEND | O_CLOEXEC);
  if (fd < 0) return false;
  const bool ok = WriteAll(fd, &entry, sizeof entry);
  return close(fd) == 0 && ok && chmod(indexPath.c_str(), 0666) == 0;
}

// Creates the report file at `path` (0600 while written, 0666 once closed);
// false if it exists already or cannot be written.
bool WriteReportFile(const std::string& path, const std::string& text) {
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  const bool ok = WriteAll(fd, text.data(), text.size());
  return close(fd) == 0 && ok && chmod(path.c_str(), 0666) == 0;
}

std::string RandomReportName() {
  static std::mt19937 generator{std::random_device{}()};
  char name[32];
  std::snprintf(name, sizeof name, "schd%02u%02u.rpt", static_cast<unsigned>(generator() % 100),
                static_cast<unsigned>(generator() % 100));
  return name;
}

std::string AddEntryFor(const std::string& path, const std::string& scanName,
                        const std::string& dateTime, std::uint32_t userId) {
  const bool added = AppendReportEntry(MakeReportEntry(scanName, dateTime, path, userId));
  return added ? path : std::string();
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
  if (access(kReportIndexPath, F_OK) != 0 && !CreateIndexWithZeroHeader(kReportIndexPath))
    return false;
  return BumpReportCount(kReportIndexPath) && AppendWholeEntry(kReportIndexPath, entry);
}

std::string AddReport(const std::string& scanName, const std::string& dateTime,
                      std::uint32_t userId, const std::string& text) {
  for (int draw = 0; draw < kMaxNameDraws; ++draw) {
    const std::string path = std::string(kReportsDir) + "/" + RandomReportName();
    if (access(path.c_str(), F_OK) == 0) continue;
    if (!WriteReportFile(path, text)) {
      if (errno == EEXIST) continue;
      return "";
    }
    return AddEntryFor(path, scanName, dateTime, userId);
  }
  return "";
}

std::string AddNamedReport(const std::string& fileName, const std::string& scanName,
                           const std::string& dateTime, std::uint32_t userId,
                           const std::string& text) {
  const std::string path = std::string(kReportsDir) + "/" + fileName;
  if (!WriteReportFile(path, text)) return "";
  return AddEntryFor(path, scanName, dateTime, userId);
}

}  // namespace testing_support
