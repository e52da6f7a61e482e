#include "service/report_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bitset>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

#include "product_paths.h"
#include "service/state_files.h"

namespace service {
namespace {

constexpr std::size_t kNames = 10000;
constexpr std::size_t kBufferLimit = std::size_t{64} * 1024;

// The number of a report file name "schdNNNN.rpt", or -1 for another name.
int NameNumber(std::string_view name) {
  if (name.size() != 12 || !name.starts_with("schd") || !name.ends_with(".rpt")) return -1;
  int number = 0;
  for (const char c : name.substr(4, 4)) {
    if (c < '0' || c > '9') return -1;
    number = number * 10 + (c - '0');
  }
  return number;
}

std::string NameOf(std::size_t number) {
  char name[16];
  std::snprintf(name, sizeof name, "schd%02u%02u.rpt", static_cast<unsigned>(number / 100 % 100),
                static_cast<unsigned>(number % 100));
  return name;
}

}  // namespace

ReportFile::~ReportFile() {
  if (fd_ >= 0) close(fd_);
}

bool ReportFile::Create(const ReportList& index, bool* noFreeName, std::string* error) {
  *noFreeName = false;
  const std::string prefix = std::string(kReportsDir) + "/";
  std::bitset<kNames> taken;
  for (std::size_t i = 0; i < index.size(); ++i) {
    const FieldText path(index[i].szReportPath);
    if (std::string_view(path.c_str(), path.size()).starts_with(prefix)) {
      const int number = NameNumber(std::string_view(path.c_str() + prefix.size()));
      if (number >= 0) taken.set(static_cast<std::size_t>(number));
    }
  }
  const int directory = open(kReportsDir, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory < 0) {
    *error = std::string("cannot open ") + kReportsDir + ": " + ErrorText(errno);
    return false;
  }
  DIR* listing = fdopendir(dup(directory));
  if (listing != nullptr) {
    while (const dirent* item = readdir(listing)) {
      const int number = NameNumber(item->d_name);
      if (number >= 0) taken.set(static_cast<std::size_t>(number));
    }
    closedir(listing);
  }
  std::random_device seed;
  std::mt19937 random(seed());
  // A name taken by another run between the listing and the creation is
  // marked and another drawn.
  while (fd_ < 0) {
    std::vector<std::size_t> free;
    for (std::size_t n = 0; n < kNames; ++n) {
      if (!taken.test(n)) free.push_back(n);
    }
    if (free.empty()) {
      *noFreeName = true;
      *error = std::string("no free report name is left in ") + kReportsDir;
      break;
    }
    const std::size_t number =
        free[std::uniform_int_distribution<std::size_t>(0, free.size() - 1)(random)];
    const std::string name = NameOf(number);
    fd_ = openat(directory, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                 0600);
    if (fd_ >= 0) {
      path_ = prefix + name;
    } else if (errno == EEXIST) {
      taken.set(number);
    } else {
      const int failure = errno;
      *error = "cannot create ";
      error->append(prefix).append(name).append(": ").append(ErrorText(failure));
      break;
    }
  }
  close(directory);
  return fd_ >= 0;
}

void ReportFile::Write(std::string_view text) {
  buffer_ += text;
  if (buffer_.size() >= kBufferLimit) Flush();
}

bool ReportFile::Flush() {
  std::string_view rest = buffer_;
  while (!rest.empty() && writeError_ == 0 && fd_ >= 0) {
    const ssize_t n = write(fd_, rest.data(), rest.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      writeError_ = n < 0 ? errno : ENOSPC;
      break;
    }
    rest.remove_prefix(static_cast<std::size_t>(n));
  }
  buffer_.clear();
  return writeError_ == 0;
}

bool ReportFile::Finish(std::string* error) {
  if (fd_ < 0) return false;
  const bool written = Flush() && fsync(fd_) == 0 && fchmod(fd_, 0666) == 0;
  const int failure = writeError_ != 0 ? writeError_ : errno;
  const bool closed = close(fd_) == 0;
  fd_ = -1;
  if (written && closed) return true;
  *error = "cannot write " + path_ + ": " + ErrorText(failure);
  return false;
}

}  // namespace service
