// Whole-program cases of the view-reports command: the table and its
// numbering, the question and number rules, showing a report through the
// pager, owners, and hostile index entries that must be shown, not run.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "product_paths.h"
#include "tests/harness.h"
#include "testing/lock_free_appender.h"

namespace {

using harness::RunOptions;
using harness::RunTool;

const std::string kKeyBanner =
    "\nschscan_str_toolname\ntul_zvcopyright_string\ntul_zvcopyright_footer\n\n";
const std::string kSeparator = std::string(71, '-') + "\n";
const std::string kCommand = "schscan_str_args_reports";
const std::string kEnglishBanner =
    "\nKorvane Scheduled Scan Manager\n"
    "Copyright (C) 2026 Korvane. All rights reserved.\n"
    "Use of this program is subject to the Korvane licence agreement.\n\n";
const std::string kKeyTableHead = kSeparator + "schscan_viewreport_format_datetime\n" + kSeparator;
const std::string kKeyQuestion = "\nschscan_confirm_view_report:";
const std::string kKeyNumberPrompt = "\nschscan_msg_enter_rptno:";

std::string KeyRows(int count) {
  std::string rows;
  for (int i = 0; i < count; ++i) rows += "schscan_viewreport_format_tasktime\n";
  return rows;
}

// What `more` writes for one file when its output is not a terminal.
std::string Paged(const std::string& path, const std::string& text) {
  return "::::::::::::::\n" + path + "\n::::::::::::::\n" + text;
}

harness::RunResult RunView(const std::string& input, std::optional<uid_t> user = std::nullopt,
                           const std::string& word = kCommand) {
  RunOptions options;
  options.args = {word};
  options.input = input;
  options.user = user;
  return RunTool(options);
}

void ExpectOutput(const harness::RunResult& run, const std::string& output) {
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_FALSE(run.timedOut);
  EXPECT_EQ(run.output, output);
}

TEST(ViewReports, IndexMissingEmptyOrShort) {
  harness::ResetProductDir(false);
  // 1001, from the dispatcher
  ExpectOutput(RunView(""), kKeyBanner + "schscan_msg_noreportstoview.\n");
  harness::WriteFile(kReportIndexPath, std::string(5, '\0'), 0666);
  ExpectOutput(RunView(""), kKeyBanner + "\nschscan_str_fileopfailed.\n");  // 1005
  harness::WriteFile(kReportIndexPath, std::string(8, '\0') + "\x07" + std::string(10, '\0'),
                     0666);  // header only, whatever its count says
  ExpectOutput(RunView(""), kKeyBanner + "schscan_msg_noreportstoview.\n");
}

TEST(ViewReports, QuestionAndNumberRulesThenThePagerShowsTheChosenReport) {
  harness::ResetProductDir(false);
  scan_service::AddReport("First", "d1", 0, "first report\n");
  const std::string second = scan_service::AddReport("Second", "d2", 1, "second report\n");
  scan_service::AddReport("Third", "d3", 65534, "third report\n");
  ExpectOutput(RunView("x\nyes please\n\nabc\n-1\n0\n4\n 2\n2\n"),
               kKeyBanner + kKeyTableHead + KeyRows(3) + kSeparator + kKeyQuestion +
                   "schscan_valid_options.\n" + kKeyQuestion + "schscan_valid_options.\n" +
                   kKeyQuestion + kKeyNumberPrompt + "schscan_valid_number_int.\n" +
                   kKeyNumberPrompt + "schscan_valid_number_int.\n" + kKeyNumberPrompt +
                   "schscan_valid_rptno.\n" + kKeyNumberPrompt + "schscan_valid_rptno.\n" +
                   kKeyNumberPrompt + "schscan_valid_number_int.\n" + kKeyNumberPrompt +
                   Paged(second, "second report\n"));
  for (const char* no : {"n\n", "No\n"}) {
    ExpectOutput(RunView(no), kKeyBanner + kKeyTableHead + KeyRows(3) + kSeparator + kKeyQuestion);
  }
}

TEST(ViewReports, OrdinaryUsersSeeOnlyTheirOwnReports) {
  harness::ResetProductDir(true);
  scan_service::AddReport("RootScan", "Mon 10:00", 0, "root's\n");
  const std::string mine = scan_service::AddReport("UserScan", "Tue 11:00", 1, "user 1's\n");
  scan_service::AddReport("RootScan", "Wed 12:00", 0, "root's again\n");
  const std::string head =
      kEnglishBanner + kSeparator + "Report no.  Scheduled scan    Date and time\n" + kSeparator;
  ExpectOutput(RunView("\n1\n", 1, "--reports"),
               head + "1           UserScan          Tue 11:00\n" + kSeparator +
                   "\nView a report (Y/n):\nEnter the report number:" + Paged(mine, "user 1's\n"));
  ExpectOutput(RunView("", 65534, "--reports"), kEnglishBanner + "There are no reports to view.\n");
  ExpectOutput(RunView("n\n", std::nullopt, "--reports"),
               head + "1           RootScan          Mon 10:00\n" +
                   "2           UserScan          Tue 11:00\n" +
                   "3           RootScan          Wed 12:00\n" + kSeparator +
                   "\nView a report (Y/n):");
}

TEST(ViewReports, LongNamesAndFieldsWithoutTerminatorAreCutAtTheirWidth) {
  harness::ResetProductDir(true);
  scan_service::AddReport(std::string(15, 'a'), "d15", 0, "");
  scan_service::AddReport(std::string(16, 'b'), "d16", 0, "");
  tagSCAN_REPORT_ENTRY unterminated;
  std::memset(&unterminated, 'z', sizeof unterminated);
  unterminated.dwUserId = 0;
  ASSERT_TRUE(scan_service::AppendReportEntry(unterminated));
  const auto run = RunView("n\n", std::nullopt, "--reports");
  const std::string rows = "1           " + std::string(15, 'a') + "   d15\n" + "2           " +
                           std::string(16, 'b') + "\n" + std::string(30, ' ') + "d16\n" +
                           "3           " + std::string(256, 'z') + "\n" + std::string(30, ' ') +
                           std::string(32, 'z') + "\n" + kSeparator;
  EXPECT_NE(run.output.find(rows + "\nView a report (Y/n):"), std::string::npos) << run.output;
  EXPECT_EQ(run.output.find("schscan_"), std::string::npos);
}

TEST(ViewReports, HostilePathsAreShownNeverRun) {
  harness::ResetProductDir(false);
  const std::string marker = std::string(kProductDir) + "/pwned";
  const std::string reports = std::string(kReportsDir) + "/";
  // A shell would run these in the tool's working directory, the test's own.
  const std::string metaFile = reports + "r$(touch pwned);touch pwned;.rpt";
  harness::WriteFile(metaFile, "shown, not run\n", 0666);
  const std::string paths[] = {
      "/x/reports/a;touch " + marker, metaFile,
      "`touch " + marker + "`",       reports + std::string(1023 - reports.size(), 'L'),
      std::string(1024, 'M'),  // no terminator in the field
  };
  for (const std::string& path : paths) {
    auto entry = scan_service::MakeReportEntry("Hostile", "now", "", 0);
    std::memcpy(entry.szReportPath, path.data(), path.size());
    ASSERT_TRUE(scan_service::AppendReportEntry(entry));
  }
  for (int number = 1; number <= 5; ++number) {
    const auto run = RunView("y\n" + std::to_string(number) + "\n");
    const std::string prompt = kKeyQuestion + kKeyNumberPrompt;
    const std::string shown = run.output.substr(run.output.find(prompt) + prompt.size());
    EXPECT_EQ(shown, number == 2 ? Paged(metaFile, "shown, not run\n") : "") << number;
    EXPECT_EQ(run.exitStatus, 0);
  }
  EXPECT_EQ(access(marker.c_str(), F_OK), -1);
  EXPECT_EQ(access("pwned", F_OK), -1);
}

TEST(ViewReports, InterruptAtTheQuestionEndsWithALineBreak) {
  harness::ResetProductDir(false);
  scan_service::AddReport("Scan", "d", 0, "text\n");
  RunOptions options;
  options.args = {kCommand};
  options.interruptAfter = kKeyQuestion;
  const auto run = RunTool(options);
  ExpectOutput(run, kKeyBanner + kKeyTableHead + KeyRows(1) + kSeparator + kKeyQuestion + "\n");
}

}  // namespace
