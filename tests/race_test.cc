// Other processes at work on the index while the tool uses it: an appender
// that takes no lock while a user stops and continues her own
// delete-reports, and a rewrite in place between the table and the choice.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

#include "product_paths.h"
#include "reports/report_index.h"
#include "testing/lock_free_appender.h"
#include "testing/scan_fixtures.h"
#include "tests/harness.h"

namespace {

using testing_support::AppendReportEntry;
using testing_support::MakeReportEntry;

// Stopped again and again while it rewrites, also after its last read of the
// old index and before its rename, the rewriter keeps every entry appended
// while it stood.
TEST(Races, AStoppedRewriterKeepsWhatWasAppendedMeanwhile) {
  harness::ResetProductDir(false);
  for (int i = 0; i < 20000; ++i)
    AppendReportEntry(MakeReportEntry("Mine", "d", std::string(kReportsDir) + "/gone", 65534));
  int appended = 0;
  harness::RunOptions options;
  options.args = {"schscan_args_delrpt"};
  options.input = "3\n";
  options.user = 65534;
  options.watchOutput = [&](pid_t tool, const std::string& output) {
    if (!output.ends_with("cli_usrInput_menuNumber")) return;
    for (int stops = 0; stops < 400 && kill(tool, 0) == 0; ++stops) {
      kill(tool, SIGSTOP);
      if (AppendReportEntry(MakeReportEntry("Other" + std::to_string(appended), "d", "/r", 1)))
        ++appended;
      kill(tool, SIGCONT);
      usleep(500);
    }
  };
  EXPECT_EQ(harness::RunTool(options).exitStatus, 0);
  ReportList left;
  std::uint32_t code = 0;
  ASSERT_TRUE(ReadReportIndex(left, 0, &code));
  EXPECT_EQ(left.size(), static_cast<std::size_t>(appended));
}

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
