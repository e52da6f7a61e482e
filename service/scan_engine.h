// The scan service's signature engine: libclamav loaded with the databases of
// one directory and compiled for one scan's option bits (byScanOptions). The
// first Load initialises libclamav for the process and sends its warnings and
// errors to standard error, through a message callback of ours.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

struct cl_engine;

namespace service {

enum class Verdict { kClean, kInfected, kSkippedDump, kError };

struct FileVerdict {
  Verdict verdict = Verdict::kClean;
  std::string signature;  // the detection's name, for kInfected
  std::string error;      // one line naming the file, for kError
};

class ScanEngine {
 public:
  // Loads every signature database in `databaseDir` and compiles the engine
  // for a scan with these SCAN_OPT_* bits. Returns nullptr with `*error` set
  // to one line when the directory is missing, holds no signatures or holds
  // a database the engine refuses.
  static std::unique_ptr<ScanEngine> Load(const std::string& databaseDir, std::uint8_t scanOptions,
                                          std::string* error);
  ScanEngine(const ScanEngine&) = delete;
  ScanEngine& operator=(const ScanEngine&) = delete;
  ~ScanEngine();

  // "version 27000, 8700000 signatures", or "unversioned, 3 signatures".
  std::string Description() const;

  // Files up to this size are scanned from a buffer that each scanning
  // thread keeps; larger ones are read by libclamav itself.
  static constexpr std::size_t kBufferedFileSize = std::size_t{4} << 20;

  // Scans the whole of the open regular file `fd`, whatever its offset: it is
  // read by position, and libclamav leaves the offset at 0. `path` is only
  // for messages. Several threads may scan with one engine at once.
  FileVerdict Scan(int fd, const char* path) const;

 private:
  // The databases' version number as text, or "unversioned" when none of
  // them carries one (our own databases).
  std::string DatabaseVersion() const;
  ScanEngine(cl_engine* engine, std::uint8_t scanOptions);

  cl_engine* engine_;
  std::uint8_t scanOptions_;
  unsigned signatures_ = 0;
};

}  // namespace service
