// Every path of every command's table (testing/paths/): the tool run from the
// path's seed, answering each prompt as it appears, then what it printed after
// the last answer and on standard error, its exit status, and what it left in
// the store and the reports directory.
#include <gtest/gtest.h>

#include <algorithm>

#include "testing/command_paths.h"
#include "testing/scan_fixtures.h"
#include "tests/harness.h"

namespace testing_support {
namespace {

void ExpectPath(const CommandPath& path) {
  harness::ResetProductDir(false);
  SeedFor(path);
  const std::string store = DumpStore();
  const std::string reports = ReportsState();
  harness::RunOptions options;
  options.args = {path.command};
  options.steps = path.steps;
  if (path.user != 0) options.user = path.user;
  options.timeoutMilliseconds = 5000;
  const harness::RunResult run = harness::RunTool(options);
  const std::size_t met = run.answeredAt.size();
  ASSERT_EQ(met, path.steps.size())
      << "never met \"" << path.steps[std::min(met, path.steps.size() - 1)].prompt << "\" in:\n"
      << run.output;
  // What follows the last answer, or the banner when nothing was asked.
  const bool endsWithoutAnswer = met > 0 && path.steps.back().answer == kNoAnswer;
  const std::size_t last = met == 0 ? run.output.find("footer\n\n") + 8 : run.answeredAt.back();
  EXPECT_EQ(run.output.substr(std::min(last, run.output.size())),
            endsWithoutAnswer ? "\n" : path.after);
  EXPECT_EQ(run.errors, path.errors);
  if (!path.scan.empty()) {
    EXPECT_EQ(DescribeStored(path.scan.substr(0, path.scan.find(' '))), path.scan);
  } else if (path.reports.empty()) {
    EXPECT_EQ(DumpStore(), store);
  }
  EXPECT_EQ(ReportsState(), path.reports.empty() ? reports : path.reports);
  EXPECT_EQ(run.exitStatus, 0);
}

TEST_P(PathTest, Run) { ExpectPath(GetParam()); }

INSTANTIATE_TEST_SUITE_P(AddScheduledScan, PathTest, testing::ValuesIn(PathsOf("add.paths")),
                         PathName);
INSTANTIATE_TEST_SUITE_P(ViewScheduledScans, PathTest, testing::ValuesIn(PathsOf("view.paths")),
                         PathName);
INSTANTIATE_TEST_SUITE_P(ModifyScheduledScan, PathTest,
                         testing::ValuesIn(PathsOf("modify.paths")), PathName);
INSTANTIATE_TEST_SUITE_P(DeleteScheduledScan, PathTest,
                         testing::ValuesIn(PathsOf("delete.paths")), PathName);
INSTANTIATE_TEST_SUITE_P(ViewScanReports, PathTest, testing::ValuesIn(PathsOf("reports.paths")),
                         PathName);
INSTANTIATE_TEST_SUITE_P(DeleteScanReports, PathTest,
                         testing::ValuesIn(PathsOf("delreports.paths")), PathName);

}  // namespace
}  // namespace testing_support
