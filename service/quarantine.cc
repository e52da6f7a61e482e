#include "service/quarantine.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <random>
#include <sstream>
#include <tuple>
#include <vector>

#include "service/report_text.h"
#include "service/state_files.h"

namespace service {
namespace {

constexpr std::string_view kInfoSuffix = ".info";
constexpr std::size_t kMaxInfo = std::size_t{16} * 1024;

std::string NewId() {
  std::random_device random;
  char id[17];
  std::snprintf(id, sizeof id, "%08x%08x", random(), random());
  return id;
}

bool IsId(std::string_view id) {
  return id.size() == 16 && std::all_of(id.begin(), id.end(), [](char c) {
           return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
         });
}

// Copies `from` (read by position from 0) into `to`; errno set on failure.
bool CopyFile(int from, int to) {
  char buffer[64 * 1024];
  off_t offset = 0;
  for (;;) {
    const ssize_t got = pread(from, buffer, sizeof buffer, offset);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) return true;
    for (ssize_t done = 0; done < got;) {
      const ssize_t put = write(to, buffer + done, static_cast<std::size_t>(got - done));
      if (put < 0 && errno == EINTR) continue;
      if (put <= 0) {
        if (put == 0) errno = ENOSPC;
        return false;
      }
      done += put;
    }
    offset += got;
  }
}

std::optional<QuarantinedFile> ReadInfo(const std::string& directory, const std::string& id) {
  std::string error;
  const auto text = ReadSmallFile(directory + "/" + id + std::string(kInfoSuffix), kMaxInfo, &error);
  if (!text) return std::nullopt;
  std::istringstream words(*text);
  long long when = 0;
  std::string signature;
  std::string path;
  QuarantinedFile file;
  file.id = id;
  if (!(words >> when >> file.uid >> file.gid >> file.mode >> signature >> path))
    return std::nullopt;
  const auto signatureText = UnescapeWord(signature);
  const auto pathText = UnescapeWord(path);
  if (!signatureText || !pathText) return std::nullopt;
  file.when = std::chrono::sys_seconds(std::chrono::seconds(when));
  file.signature = *signatureText;
  file.path = *pathText;
  return file;
}

// Opens the directory that holds `path` (absolute), one component at a
// time and never through a symbolic link, so that the file goes back to the
// very place its path names; -1 with errno set otherwise. `name` is the last
// component.
int OpenParentDirectory(const std::string& path, std::string* name) {
  if (path.empty() || path.front() != '/') {
    errno = EINVAL;
    return -1;
  }
  std::vector<std::string> parts;
  std::istringstream components(path);
  for (std::string part; std::getline(components, part, '/');) {
    if (part.empty()) continue;
    if (part == "." || part == "..") {
      errno = EINVAL;
      return -1;
    }
    parts.push_back(part);
  }
  if (parts.empty()) {
    errno = EINVAL;
    return -1;
  }
  *name = parts.back();
  parts.pop_back();
  int directory = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (const std::string& part : parts) {
    if (directory < 0) return -1;
    const int next = openat(directory, part.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    const int error = errno;
    close(directory);
    directory = next;
    errno = error;
  }
  return directory;
}

}  // namespace

std::string Quarantine::Keep(int fd, const struct stat& status, const std::string& path,
                             const std::string& signature, std::string* error) const {
  std::string id = NewId();
  const std::string data = directory_ + "/" + id + ".data";
  const int copy = open(data.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (copy < 0) {
    *error = "cannot create " + data + ": " + ErrorText(errno);
    return "";
  }
  const bool copied = CopyFile(fd, copy) && fsync(copy) == 0;
  const int failure = errno;
  close(copy);
  const std::string info = std::to_string(std::chrono::duration_cast<std::chrono::seconds>(
                                              std::chrono::system_clock::now().time_since_epoch())
                                              .count()) +
                           ' ' + std::to_string(status.st_uid) + ' ' +
                           std::to_string(status.st_gid) + ' ' + std::to_string(status.st_mode) +
                           ' ' + EscapeWord(signature) + ' ' + EscapeWord(path) + '\n';
  if (!copied) *error = "cannot copy " + path + " into the quarantine: " + ErrorText(failure);
  if (!copied || !ReplaceFile(directory_ + "/" + id + std::string(kInfoSuffix), info, error)) {
    unlink(data.c_str());
    return "";
  }
  return id;
}

void Quarantine::Drop(const std::string& id) const {
  if (!IsId(id)) return;
  unlink((directory_ + "/" + id + std::string(kInfoSuffix)).c_str());
  unlink((directory_ + "/" + id + ".data").c_str());
}

std::vector<QuarantinedFile> Quarantine::List(std::string* error) const {
  std::vector<QuarantinedFile> files;
  DIR* listing = opendir(directory_.c_str());
  if (listing == nullptr) {
    if (errno != ENOENT) *error = "cannot read " + directory_ + ": " + ErrorText(errno);
    return files;
  }
  while (const dirent* item = readdir(listing)) {
    const std::string_view name = item->d_name;
    if (!name.ends_with(kInfoSuffix)) continue;
    const std::string id(name.substr(0, name.size() - kInfoSuffix.size()));
    if (!IsId(id)) continue;
    if (auto file = ReadInfo(directory_, id)) files.push_back(std::move(*file));
  }
  closedir(listing);
  std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) {
    return std::tie(a.when, a.id) < std::tie(b.when, b.id);
  });
  return files;
}

bool Quarantine::Restore(const std::string& id, std::string* error) const {
  const auto file = IsId(id) ? ReadInfo(directory_, id) : std::nullopt;
  if (!file) {
    *error = "no quarantined file has the id " + id;
    return false;
  }
  const int data = open((directory_ + "/" + id + ".data").c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (data < 0) {
    *error = "the copy of " + id + " cannot be opened: " + ErrorText(errno);
    return false;
  }
  std::string name;
  const int directory = OpenParentDirectory(file->path, &name);
  int restored = -1;
  if (directory >= 0) {
    restored = openat(directory, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                      0600);
  }
  bool done = restored >= 0 && CopyFile(data, restored) &&
              fchown(restored, file->uid, file->gid) == 0 &&
              fchmod(restored, file->mode & 07777) == 0 && fsync(restored) == 0;
  const int failure = errno;
  if (restored >= 0) {
    done = close(restored) == 0 && done;
    if (!done) unlinkat(directory, name.c_str(), 0);
  }
  if (directory >= 0) close(directory);
  close(data);
  if (!done) {
    *error = "cannot put " + Printable(file->path) + " back: " + ErrorText(failure);
    return false;
  }
  Drop(id);
  return true;
}

}  // namespace service
