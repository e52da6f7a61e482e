// The file primitives of the scan service's state: a private directory,
// whole files replaced atomically, small files read with a bound, a lock
// file, and the escaping that keeps any name on one line of a text file.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace service {

// Makes `path` a directory with mode 0700 when it is missing; refuses one
// that is a symbolic link, is not ours, or that others may write.
bool EnsurePrivateDirectory(const std::string& path, std::string* error);

// Replaces `path` with `content`: written to a new file (mode 0600) beside
// it, flushed, and renamed over it.
bool ReplaceFile(const std::string& path, std::string_view content, std::string* error);

// The whole of `path` up to `maxBytes`; nullopt when it is missing, and with
// `*error` set when it cannot be read (or is not a regular file).
std::optional<std::string> ReadSmallFile(const std::string& path, std::size_t maxBytes,
                                         std::string* error);

// An exclusive flock on a lock file (created 0600), released on
// destruction. Not held when the file cannot be opened or the lock not had.
class FileLock {
 public:
  enum class Wait { kBlock, kTry };
  FileLock(const std::string& path, Wait wait);
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  ~FileLock();
  bool held() const { return held_; }
  // errno of the failure, when not held.
  int error() const { return error_; }

 private:
  int fd_ = -1;
  bool held_ = false;
  int error_ = 0;
};

// `text` with '%', bytes below '!' and above '~' written as %XX, so that it
// is one word of a line.
std::string EscapeWord(std::string_view text);
// The reverse; nullopt for a malformed escape.
std::optional<std::string> UnescapeWord(std::string_view word);

// The text of errno `error`.
std::string ErrorText(int error);

}  // namespace service
