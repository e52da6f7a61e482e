// Builds report data in the product's reports directory of this build, with
// the test-support appender, so that the benchmarks run the tool against what
// the scan service writes.
//
//   make_report_index view COUNT    COUNT entries of four users, all pointing
//                                   at one shared report file (there are only
//                                   10,000 schdNNNN names)
//   make_report_index delete COUNT  COUNT entries of root, each with its own
//                                   schdNNNN.rpt file (COUNT <= 10,000)
//
// The index must not exist yet.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "product_paths.h"
#include "testing/lock_free_appender.h"

namespace {

constexpr std::uint32_t kUsers[] = {0, 1000, 1001, 65534};
constexpr const char kReportText[] = "Scan report\nFiles scanned: 1234\nThreats found: 0\n";

std::string ScanName(int i) {
  // Short and long names, so that both row formats are printed.
  return (i % 3 == 0 ? "NightlyFullSystemScan" : "Daily") + std::to_string(i % 100);
}

std::string DateTime(int i) {
  char text[32];
  std::snprintf(text, sizeof text, "2026-11-%02d %02d:%02d:%02d", 1 + i % 28, i % 24, i % 60,
                (i / 60) % 60);
  return text;
}

int MakeViewData(int count) {
  const std::string shared =
      testing_support::AddNamedReport("shared.rpt", ScanName(0), DateTime(0), 0, kReportText);
  if (shared.empty()) return 1;
  for (int i = 1; i < count; ++i) {
    const auto entry = testing_support::MakeReportEntry(ScanName(i), DateTime(i), shared,
                                                     kUsers[i % 4]);
    if (!testing_support::AppendReportEntry(entry)) return 1;
  }
  return 0;
}

int MakeDeleteData(int count) {
  for (int i = 0; i < count; ++i) {
    if (testing_support::AddReport(ScanName(i), DateTime(i), 0, kReportText).empty()) return 1;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const int count = argc == 3 ? std::atoi(argv[2]) : 0;
  if (count <= 0 || access(kReportIndexPath, F_OK) == 0) {
    std::fprintf(stderr, "usage: %s view|delete COUNT (with no index at %s yet)\n", argv[0],
                 kReportIndexPath);
    return 2;
  }
  const int status = std::strcmp(argv[1], "view") == 0     ? MakeViewData(count)
                     : std::strcmp(argv[1], "delete") == 0 ? MakeDeleteData(count)
                                                           : 2;
  if (status != 0) std::fprintf(stderr, "%s: could not add the reports\n", argv[0]);
  return status;
}
