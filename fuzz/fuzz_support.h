// Shared pieces of the fuzz targets: invariants that abort like a crash, and
// the product directory of the fuzz build, seeded once and put back before
// every input.
#pragma once

#include <cstddef>
#include <string>

namespace fuzz {

// A broken invariant: prints `what` and aborts, which the fuzzer reports.
[[noreturn]] void Fail(const char* what);
inline void Require(bool condition, const char* what) {
  if (!condition) Fail(what);
}

void WriteFileOrDie(const std::string& path, const void* data, std::size_t size);

// Takes the product directory for the life of the process (fuzz processes
// of one build take turns), lays it out with the catalogue, the standard
// seed of scans and reports, index entries whose strings have no NUL or
// whose paths lie outside the reports directory, and a file there that no
// command may remove; keeps what it seeded.
void SetUpSeededProduct();
// Puts the seeded task store, report index and report files back.
void ResetSeededProduct();
// Aborts when a command removed a file that is not a report.
void CheckProtectedFilesRemain();

}  // namespace fuzz
