// Ctrl-C and the end of input at every prompt of every command, on the paths
// of the command tables: every prompt is reached by typing the answers before
// it, once with standard input ending there and once with SIGINT while the
// tool waits. Both must end the tool with the same output, a line break
// last, exit status 0, and the store and the index unchanged (delete reports
// removes each report file as its deletion is confirmed).
#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "product_paths.h"
#include "reports/report_index.h"
#include "testing/command_paths.h"
#include "testing/scan_fixtures.h"
#include "tests/harness.h"

namespace {

using namespace testing_support;

TEST(EveryPrompt, EndOfInputAndCtrlCEndTheCommandAndChangeNothing) {
  std::set<std::string> tried;  // command, user, previous prompt and prompt
  int prompts = 0;
  for (const char* table : kPathTables) {
    for (const CommandPath& path : PathsOf(table)) {
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
  }
  RecordProperty("prompts", prompts);
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
    EXPECT_FALSE(run.timedOut);
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_TRUE(run.output.ends_with(wait.lastStep.prompt + "\n")) << run.output;
  }
  sqlite3_close_v2(store);
  close(index);
}

}  // namespace
