// The quarantine: a root-only directory that keeps copies of infected files
// that a scan removed, each under a random id, with where it was, whose it
// was, its mode, and what was found in it. A kept file can be put back.
//
// For each id the directory holds ID.data (the copy) and ID.info, one line:
//   seconds-since-epoch uid gid mode signature path
// with signature and path escaped (state_files.h). An id without its info
// file is not kept: the info is written last.
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace service {

struct QuarantinedFile {
  std::string id;
  std::chrono::sys_seconds when{};
  std::uint32_t uid = 0;
  std::uint32_t gid = 0;
  std::uint32_t mode = 0;
  std::string signature;
  std::string path;
};

class Quarantine {
 public:
  explicit Quarantine(std::string directory) : directory_(std::move(directory)) {}

  // Copies the whole of the open file `fd` (`status` is its fstat) into the
  // quarantine; returns its new id, or "" with `*error` set.
  std::string Keep(int fd, const struct stat& status, const std::string& path,
                   const std::string& signature, std::string* error) const;
  // Removes the copy `id`.
  void Drop(const std::string& id) const;

  // What the quarantine holds, oldest first.
  std::vector<QuarantinedFile> List(std::string* error) const;

  // Puts file `id` back where it was, with its owner and mode: at the place
  // its path names, reached without following any symbolic link, and never
  // over an existing file. The copy leaves the quarantine once it is back.
  bool Restore(const std::string& id, std::string* error) const;

 private:
  std::string directory_;
};

}  // namespace service
