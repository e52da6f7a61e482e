// Another process at work on the index while the tool uses it: a rewrite in
// place between the table of view reports and the user's choice. (Appends
// racing the rewrite of delete reports are the index's unit test's.)
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

#include "product_paths.h"
#include "reports/report_index.h"
#include "testing/lock_free_appender.h"
#include "testing/scan_fixtures.h"
#include "tests/harness.h"

namespace {

using testing_support::MakeReportEntry;

// The chosen row's entry is read again from the index; when a rewrite in
// place changed it meanwhile, nothing else is shown.
TEST(Races, AnEntryChangedAfterTheTableIsNotShown) {
  harness::ResetProductDir(false);
  testing_support::SeedScansAndReports();
  const auto other = MakeReportEntry("Weekly16charName", "d2",
                                     std::string(kReportsDir) + "/schd0001.rpt", 1);
  harness::RunOptions options;
  options.args = {"schscan_str_args_reports"};
  options.steps = {{"schscan_confirm_view_report:", "y"}, {"schscan_msg_enter_rptno:", "1"}};
  options.user = 1;
  options.watchOutput = [&](pid_t, const std::string& output) {
    if (!output.ends_with("schscan_confirm_view_report:")) return;
    const int index = open(kReportIndexPath, O_WRONLY);
    EXPECT_EQ(pwrite(index, &other, sizeof other, 19 + 1316), 1316);
    close(index);
  };
  const harness::RunResult run = harness::RunTool(options);
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_TRUE(run.output.ends_with("\nschscan_msg_enter_rptno:")) << run.output;
}

}  // namespace
