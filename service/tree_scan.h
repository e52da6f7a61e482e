// The walk of a scan's directories: their regular files are scanned on
// several threads with one engine, and infected ones are reported,
// quarantined or deleted as the scan's action says.
//
// Nothing below a root is reached by a path: every entry is opened relative
// to its directory's descriptor without following symbolic links, and an
// infected file is removed only while its name still leads to the file that
// was scanned. Pseudo file systems (proc, sysfs, cgroup and the like) are not
// entered.
#pragma once

#include <sys/stat.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "service/scan_engine.h"
#include "taskstore/schedule_scan_entry.h"

namespace service {

struct Detection {
  std::string path;       // as walked: the root as configured, then "/"-joined names
  std::string signature;
  std::string action;     // what was done, for the report: "reported", "deleted", ...
};

struct TreeScanTotals {
  std::uint64_t files = 0;         // regular files scanned
  std::uint64_t bytes = 0;         // their sizes
  std::uint64_t infected = 0;
  std::uint64_t actions = 0;       // files quarantined or deleted
  std::uint64_t errors = 0;        // files that could not be scanned, and places not accessible
  std::uint64_t skippedDumps = 0;  // memory and core dumps left out (dump option clear)
};

// Receives what a tree scan finds. Calls come from the scanning threads, one
// at a time (the scan serializes them).
class TreeScanSink {
 public:
  virtual ~TreeScanSink() = default;
  virtual void Detected(const Detection& detection) = 0;
  // A directory the scan could not enter, or a file it could not open or
  // read, with the reason ("Permission denied", "No such file or directory").
  virtual void NotAccessible(const std::string& path, const std::string& reason) = 0;
  // Keeps a copy of the infected file open at `fd` (`status` is its fstat)
  // in the quarantine; returns the quarantine's id for it, or "" when it
  // could not be kept. The file itself is not removed here.
  virtual std::string Quarantine(int fd, const struct stat& status, const std::string& path,
                                 const std::string& signature) = 0;
  // The copy `id` is not needed: the file it was copied from could not be removed.
  virtual void DropQuarantined(const std::string& id) = 0;
  // Now and then (at most every 250 ms, from one thread): the totals so far
  // and the directory being walked.
  virtual void Progress(const TreeScanTotals& totals, const std::string& directory) = 0;
};

struct TreeScanRequest {
  std::vector<std::string> roots;  // the scan's directories, in order
  std::int16_t action = ACTION_REPORT_ONLY;
  unsigned threads = 1;            // scanning threads (at least 1)
};

// Walks every root and scans its files on `threads` threads; returns the
// totals. Stops early (no new files) once `stop` is set; files being scanned
// finish. A root is opened as configured, so a symbolic link naming it is
// followed; below it none is.
TreeScanTotals ScanTrees(const TreeScanRequest& request, const ScanEngine& engine,
                         TreeScanSink& sink, const std::atomic<bool>& stop);

}  // namespace service
