// The text of a scan report: a header that says what ran, one line per
// detection, the places the scan could not enter, and a summary. Every
// text that comes from a scan, a user or a file system is shown with its
// control characters escaped, so that it keeps to its line.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "service/tree_scan.h"

namespace service {

// How a run ended, beside what it found.
enum class RunEnd {
  kCompleted,
  kInterrupted,  // stopped by SIGTERM or the interrupt key
  kFailed,       // it could not scan at all (the database, the scanning process)
};

struct RunFacts {
  std::string scanName;
  std::uint32_t owner = 0;
  std::string ownerName;  // "" without a passwd entry
  std::string started;    // local "YYYY-MM-DD HH:MM:SS"
  std::vector<std::string> directories;
  std::uint8_t options = 0;  // SCAN_OPT_* bits
  std::int16_t action = 0;   // ACTION_* value
  std::string database;      // "version V, N signatures" or why it did not load
};

// `text` with control characters and backslashes written as \n, \t, \\ or \xHH.
std::string Printable(std::string_view text);

std::string ReportHeader(const RunFacts& facts);
std::string DetectionLine(const Detection& detection);
std::string NotAccessibleLine(const std::string& path, const std::string& reason);
// The summary; `failure` says why a run that failed could not scan.
std::string ReportSummary(const TreeScanTotals& totals, RunEnd end, const std::string& ended,
                          std::chrono::seconds duration, const std::string& failure);

// The one-word result that --status shows: "N infected", "interrupted",
// "error" or "clean".
std::string ResultText(const TreeScanTotals& totals, RunEnd end);
// The exit status of --run: 1 when anything was found, else 2 after any
// error or an interruption, else 0.
int ExitStatus(const TreeScanTotals& totals, RunEnd end);

// "12.3 MiB" and the like.
std::string DataSize(std::uint64_t bytes);

}  // namespace service
