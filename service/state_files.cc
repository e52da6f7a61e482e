#include "service/state_files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace service {
namespace {

bool WriteAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

std::string DirectoryOf(const std::string& path) {
  const auto slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace

std::string ErrorText(int error) { return std::strerror(error); }

bool EnsurePrivateDirectory(const std::string& path, std::string* error) {
  if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
    *error = "cannot create " + path + ": " + ErrorText(errno);
    return false;
  }
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    *error = "cannot examine " + path + ": " + ErrorText(errno);
    return false;
  }
  if (!S_ISDIR(status.st_mode)) {
    *error = path + " is not a directory";
    return false;
  }
  if (status.st_uid != geteuid() || (status.st_mode & 0022) != 0) {
    *error = path + " must belong to the service's user and be writable by it alone";
    return false;
  }
  return true;
}

bool ReplaceFile(const std::string& path, std::string_view content, std::string* error) {
  std::string temporary = path + ".XXXXXX";
  const int fd = mkostemp(temporary.data(), O_CLOEXEC);  // mode 0600
  if (fd < 0) {
    *error = "cannot create a file beside " + path + ": " + ErrorText(errno);
    return false;
  }
  const bool written = WriteAll(fd, content) && fsync(fd) == 0;
  const int writeError = errno;
  if (close(fd) != 0 || !written) {
    *error = "cannot write " + temporary + ": " + ErrorText(written ? errno : writeError);
    unlink(temporary.c_str());
    return false;
  }
  if (rename(temporary.c_str(), path.c_str()) != 0) {
    *error = "cannot replace " + path + ": " + ErrorText(errno);
    unlink(temporary.c_str());
    return false;
  }
  // The rename is made; a failed flush of the directory changes nothing now.
  const int directory = open(DirectoryOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory >= 0) {
    fsync(directory);
    close(directory);
  }
  return true;
}

std::optional<std::string> ReadSmallFile(const std::string& path, std::size_t maxBytes,
                                         std::string* error) {
  error->clear();
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (fd < 0) {
    if (errno != ENOENT) *error = "cannot open " + path + ": " + ErrorText(errno);
    return std::nullopt;
  }
  std::string content;
  struct stat status {};
  if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
    *error = path + " is not a regular file";
    close(fd);
    return std::nullopt;
  }
  char buffer[4096];
  while (content.size() < maxBytes) {
    const ssize_t n = read(fd, buffer, std::min(sizeof buffer, maxBytes - content.size()));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      *error = "cannot read " + path + ": " + ErrorText(errno);
      close(fd);
      return std::nullopt;
    }
    if (n == 0) break;
    content.append(buffer, static_cast<std::size_t>(n));
  }
  close(fd);
  return content;
}

FileLock::FileLock(const std::string& path, Wait wait) {
  fd_ = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd_ < 0) {
    error_ = errno;
    return;
  }
  const int operation = LOCK_EX | (wait == Wait::kTry ? LOCK_NB : 0);
  int result;
  do {
    result = flock(fd_, operation);
  } while (result != 0 && errno == EINTR && wait == Wait::kBlock);
  held_ = result == 0;
  if (!held_) error_ = errno;
}

FileLock::~FileLock() {
  if (fd_ >= 0) close(fd_);  // releases the lock
}

std::string EscapeWord(std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string word;
  word.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte == '%' || byte < '!' || byte > '~') {
      word += '%';
      word += kHex[byte >> 4];
      word += kHex[byte & 0xF];
    } else {
      word += c;
    }
  }
  return word;
}

std::optional<std::string> UnescapeWord(std::string_view word) {
  std::string text;
  text.reserve(word.size());
  for (std::size_t i = 0; i < word.size(); ++i) {
    if (word[i] != '%') {
      text += word[i];
      continue;
    }
    if (i + 2 >= word.size()) return std::nullopt;
    const int high = HexValue(word[i + 1]);
    const int low = HexValue(word[i + 2]);
    if (high < 0 || low < 0) return std::nullopt;
    text += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return text;
}

}  // namespace service
