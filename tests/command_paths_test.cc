// The commands run whole, from the tables of paths in testing/paths/. Every
// path is run from its seed, answering each prompt as it appears; then what
// the tool printed after the last answer and on standard error, its exit
// status, and what it left in the store and the reports directory are
// checked. Every prompt of every path is also met once with standard input
// ending there and once with SIGINT while the tool waits: both must end the
// tool with the same output, a line break last, exit status 0, and the store
// and the index unchanged (delete reports removes each report file as its
// deletion is confirmed). Then Ctrl-C while the tool waits for another
// process, and another process rewriting the index while view reports shows
// it.
//
// Last, the golden transcripts: one English run of each command, byte for
// byte, kept as data files in tests/golden/ (NAME.in is what the user types,
// NAME.out what the tool prints). Every run starts from the same seeded
// store, index and report files. In the files, @PRODUCT_DIR@, @SCAN_DIR@ and
// @TOOL@ stand for the paths of this build. The runs ask for other languages
// through the environment, which must change nothing.
// SCHSCAN_RECORD_GOLDEN=1 writes the .out files anew from what the tool
// prints now.
#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <string>

#include "product_paths.h"
#include "reports/report_index.h"
#include "testing/command_paths.h"
#include "testing/lock_free_appender.h"
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

INSTANTIATE_TEST_SUITE_P(Commands, PathTest, testing::ValuesIn(AllPaths()), PathName);

TEST(EveryPrompt, EndOfInputAndCtrlCEndTheCommandAndChangeNothing) {
  std::set<std::string> tried;  // command, user, previous prompt and prompt
  int prompts = 0;
  for (const CommandPath& path : AllPaths()) {
    harness::ResetProductDir(false);
    SeedFor(path);
    const std::string store = DumpStore();
    const std::string reports = ReportsState();
    for (std::size_t i = 0; i < path.steps.size(); ++i) {
      const std::string& prompt = path.steps[i].prompt;
      const std::string before = i == 0 ? "" : path.steps[i - 1].prompt;
      if (!tried.insert(path.command + std::to_string(path.user) + before + "|" + prompt).second)
        continue;
      ++prompts;
      SCOPED_TRACE(path.command + ", " + path.what + ", at: " + prompt);
      harness::RunOptions options;
      options.args = {path.command};
      options.steps.assign(path.steps.begin(), path.steps.begin() + static_cast<long>(i));
      options.steps.push_back({prompt, kNoAnswer});
      if (path.user != 0) options.user = path.user;
      options.timeoutMilliseconds = 2000;
      const harness::RunResult ended = harness::RunTool(options);
      options.steps.back().answer = kInterrupt;
      const harness::RunResult interrupted = harness::RunTool(options);
      for (const harness::RunResult& run : {ended, interrupted}) {
        EXPECT_EQ(run.exitStatus, 0);
        ASSERT_EQ(run.answeredAt.size(), i + 1) << run.output;
      }
      EXPECT_TRUE(ended.output.ends_with(prompt + "\n")) << ended.output;
      EXPECT_EQ(interrupted.output, ended.output);
      EXPECT_EQ(DumpStore(), store);
      const std::string now = ReportsState();
      EXPECT_EQ(path.command == "schscan_args_delrpt" ? now.substr(0, now.find(';')) : now,
                path.command == "schscan_args_delrpt" ? reports.substr(0, reports.find(';'))
                                                       : reports);
    }
  }
  EXPECT_GE(prompts, 100);
}

// Ctrl-C ends the command at once while it waits for another process: for
// the index's lock (a delete-reports of another user holding it) and in the
// task store's wait for a writer (a stopped add holding the store).
TEST(EveryWait, CtrlCEndsTheCommandAtOnce) {
  harness::ResetProductDir(false);
  SeedScansAndReports();
  const int index = open(kReportIndexPath, O_RDWR);
  ASSERT_EQ(LockReportIndex(index), 0);
  sqlite3* store = nullptr;
  ASSERT_EQ(sqlite3_open(kTaskListPath, &store), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(store, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
  const struct {
    const char* command;
    Step lastStep;
  } waits[] = {{"schscan_args_delrpt", {"cli_usrInput_menuNumber", "3"}},
               {"schscan_str_args_delete", {"schscan_msg_enterscanname", "Boot"}}};
  for (const auto& wait : waits) {
    SCOPED_TRACE(wait.command);
    harness::RunOptions options;
    options.args = {wait.command};
    options.steps = {wait.lastStep, {"", kInterrupt}};
    options.timeoutMilliseconds = 2000;
    const harness::RunResult run = harness::RunTool(options);
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_TRUE(run.output.ends_with(wait.lastStep.prompt + "\n")) << run.output;
  }
  sqlite3_close_v2(store);
  close(index);
}

// The chosen row's entry is read again from the index; when a rewrite in
// place changed it meanwhile, nothing else is shown.
TEST(Races, AnEntryChangedAfterTheTableIsNotShown) {
  harness::ResetProductDir(false);
  SeedScansAndReports();
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

// Placeholders to paths, or (`back`) paths to placeholders.
std::string Substitute(std::string text, bool back) {
  const std::string scanDirs = ScanDir("a").substr(0, ScanDir("a").size() - 2);
  const std::pair<std::string, std::string> names[] = {
      {"@SCAN_DIR@", scanDirs}, {"@TOOL@", harness::ToolPath()}, {"@PRODUCT_DIR@", kProductDir}};
  for (const auto& [placeholder, path] : names) {
    const std::string& from = back ? path : placeholder;
    const std::string& to = back ? placeholder : path;
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
      text.replace(at, from.size(), to);
  }
  return text;
}

void Seed() {
  harness::ResetProductDir(true);
  testing_support::StoreScan(
      testing_support::ScanFrom("Nightly u0 f0 d0 b0 02:30:00 r1 p0/3/0 o9 a3 [a]"));
  testing_support::StoreScan(
      testing_support::ScanFrom("Weekly16charName u1 f1 d2 b0 10:20:30 r2 p1/90/1 o2 a1 [a b]"));
  testing_support::StoreScan(
      testing_support::ScanFrom("Boot u0 f0 d0 b1 10:20:30 r2 p1/3/0 o15 a2 [a]"));
  testing_support::AddNamedReport("schd0001.rpt", "Nightly", "2026-11-20 02:30:00", 0,
                                  "Report of Nightly, 20 November\n");
  testing_support::AddNamedReport("schd0002.rpt", "Weekly16charName", "2026-11-16 10:20:30", 1,
                                  "Report of Weekly16charName\n");
  testing_support::AddNamedReport("schd0003.rpt", "Nightly", "2026-11-21 02:30:00", 0,
                                  "Report of Nightly, 21 November\n");
}

TEST(Golden, EachCommandPrintsItsTranscript) {
  const bool record = std::getenv("SCHSCAN_RECORD_GOLDEN") != nullptr;
  for (const char* command : {"help", "add", "view", "modify", "delete", "reports", "delreports"}) {
    SCOPED_TRACE(command);
    Seed();
    const std::string base = std::string(GOLDEN_DIR) + "/" + command;
    harness::RunOptions options;
    options.args = {std::string("--") + command};
    options.input = Substitute(harness::ReadFile(base + ".in"), false);
    // The language is fixed, whatever the environment asks for.
    options.environment = {"LANGUAGE=fr:de", "LANG=de_DE.UTF-8", "LC_ALL=C",
                                "LC_MESSAGES=fr_FR.UTF-8"};
    const harness::RunResult run = harness::RunTool(options);
    EXPECT_EQ(run.exitStatus, 0);
    const std::string output = Substitute(run.output, true);
    if (record) {
      harness::WriteFile(base + ".out", output);
    } else {
      EXPECT_EQ(output, harness::ReadFile(base + ".out"));
    }
  }
}

}  // namespace
}  // namespace testing_support
