// Shared pieces of the fuzz targets: invariants that abort like a crash, and
// the product directory of the build, which each target takes for itself.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "product_paths.h"
#include "testing/scan_fixtures.h"

namespace fuzz {

// A broken invariant: prints `what` and aborts, which the fuzzer reports.
inline void Require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "invariant broken: %s\n", what);
  std::abort();
}

inline void WriteFile(const char* path, const void* data, std::size_t size) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
  Require(file.flush().good(), "the input could not be written");
}

// Takes the product directory for the life of the process (fuzz processes of
// one build take turns) and lays it out afresh.
inline void TakeProduct() {
  const std::filesystem::path lock = std::string(kProductDir) + ".fuzz-lock";
  std::filesystem::create_directories(lock.parent_path());
  const int fd = open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  Require(fd >= 0 && flock(fd, LOCK_EX) == 0, "the product directory's lock");  // held until exit
  testing_support::ResetProduct();
}

}  // namespace fuzz
