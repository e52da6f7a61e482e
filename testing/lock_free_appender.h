// Adds reports to the product's index the way the scan service of the
// original product does, without any lock: it bumps the header count in
// place, then appends the entry with O_APPEND, and leaves the index and each
// report file with permission bits 0666. The tests need such a writer beside
// the tool's rewrite, which must keep what it appends; the benchmarks make
// their report data with it.
#pragma once

#include <cstdint>
#include <string>

#include "product_paths.h"
#include "reports/report_index.h"

namespace testing_support {

// An entry whose strings are cut to their field widths less one and padded
// with NULs, as the service fills them.
tagSCAN_REPORT_ENTRY MakeReportEntry(const std::string& scanName, const std::string& dateTime,
                                     const std::string& reportPath, std::uint32_t userId);

// Adds `entry` to the index exactly as the service does, creating the index
// with a zero header when it is missing. False when nothing was added.
bool AppendReportEntry(const tagSCAN_REPORT_ENTRY& entry);

// Writes `text` into a new report file with a free schdNNNN.rpt name (drawn
// at random, as the service draws it) and adds its entry. Returns the report
// path, or "" when nothing was added. There are only 10,000 such names: for
// more reports, use AddNamedReport or point entries at shared files.
std::string AddReport(const std::string& scanName, const std::string& dateTime,
                      std::uint32_t userId, const std::string& text);

// The same with a chosen file name in the reports directory, which must not
// exist yet (benchmarks that need more than 10,000 report files).
std::string AddNamedReport(const std::string& fileName, const std::string& scanName,
                           const std::string& dateTime, std::uint32_t userId,
                           const std::string& text);

}  // namespace testing_support
