// End of input and Ctrl-C at every prompt and question of every command.
// Each command is described by a few paths through it (the prompts in order
// and the answer typed at each); every prompt is reached by typing the
// answers before it, once with standard input ending there and once with
// SIGINT while the tool waits. Both must end the tool with the same output,
// a line break last, exit status 0, and the store and the index unchanged.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "product_paths.h"
#include "tests/harness.h"
#include "testing/lock_free_appender.h"
#include "testing/scan_fixtures.h"

namespace {

using scantest::MakeDir;

struct Step {
  std::string prompt;  // what the tool prints last before it reads
  std::string answer;  // typed there, with a line feed, to go further
};
using Steps = std::vector<Step>;

Steps operator+(Steps a, const Steps& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

struct Path {
  std::string command;  // the command key: the tool runs without the catalogue
  Steps steps;
};

const std::string kMenu = "cli_usrInput_menuNumber";
const std::string kName = "schscan_msg_enterscanname";

Steps Time() {
  return {{"schscan_msg_enterhours:", "10"},
          {"schscan_msg_enter_minutes:", "20"},
          {"schscan_msg_enter_seconds:", "30"}};
}
Steps Options(const std::string& answer) {
  return {{"schscan_msg_scan_archive:", answer},
          {"schscan_msg_scan_spyware:", answer},
          {"schscan_msg_scan_dump:", answer},
          {"schscan_msg_scan_packed:", answer}};
}
Steps Directory(const std::string& name, const std::string& more) {
  return {{"\nschscan_msg_enter_dir:", MakeDir(name)}, {"schscan_confirm_addmore_item:", more}};
}
Steps HundredDirectoriesThenPressKey() {
  Steps steps;
  for (int i = 0; i < 100; ++i) steps = steps + Directory("d" + std::to_string(i), "y");
  return steps +
         Steps{{"\nschscan_msg_enter_dir:", MakeDir("d100")}, {"schscan_msg_presskey.", ""}};
}

// Seeded with scans Daily (daily, repeated every 3 hours), Weekly (weekly,
// not repeated) and Boot (at first boot), and two reports of root's.
std::vector<Path> Paths() {
  const std::string add = "schscan_str_args_add";
  const std::string modify = "schscan_str_args_modify";
  const std::string deleteReports = "schscan_args_delrpt";
  return {
      {add, Steps{{kName, "New"},
                  {kMenu, "2"},
                  {"schscan_enter_weekday:", "3"},
                  {"\nschscan_msg_firstbootscan:", "n"}} +
                Time() +
                Steps{{"schscan_msg_recurscan_week:", "2"},
                      {"\nschscan_ask_repeatscan:", "y"},
                      {kMenu, "2"},
                      {"schscan_msg_enter_minutes_2:", "45"}} +
                Options("y") + Steps{{kMenu, "1"}} + Directory("a", "n") +
                Steps{{"\nschscan_confirm_add_schscan:", "y"}}},
      {add, Steps{{kName, "New"}, {kMenu, "1"}, {"\nschscan_msg_firstbootscan:", "n"}} + Time() +
                Steps{{"\nschscan_msg_days_recurscan:", "3"},
                      {"\nschscan_ask_repeatscan:", "y"},
                      {kMenu, "1"},
                      {"schscan_msg_enter_hours:", "4"}}},
      {add, Steps{{kName, "New"}, {kMenu, "1"}, {"\nschscan_msg_firstbootscan:", "y"}} +
                Options("n") + Steps{{kMenu, "1"}} + HundredDirectoriesThenPressKey()},
      {modify, Steps{{kName, "Daily"},
                     {"schscan_confirm_scanfrequency:", "y"},
                     {kMenu, "2"},
                     {"schscan_enter_weekday:", "4"},
                     {"schscan_confirm_firstboot:", "y"},
                     {"\nschscan_msg_firstbootscan:", "n"},
                     {"schscan_confirm_change_scantime:", "y"}} +
                   Time() +
                   Steps{{"schscan_msg_recurscan_week:", "2"},
                         {"schscan_confirm_change_repeatscan:", "y"},
                         {"schscan_confirm_repeatscan_schdday:", "y"},
                         {kMenu, "1"},
                         {"Enter repeat time in hours (1-23):", "5"},
                         {"schddmn_confirm_scanoption:", "y"}} +
                   Options("n") +
                   Steps{{"schddmn_confirm_actionforvirus:", "y"},
                         {kMenu, "2"},
                         {"schddmn_confirm_deletescanitem:", "y"},
                         {"schscan_confirm_addmore_dir:", "y"}} +
                   Directory("b", "n")},
      {modify, Steps{{kName, "Weekly"},
                     {"schscan_confirm_scanfrequency:", "n"},
                     {"schscan_confirm_day_schscan:", "y"},
                     {"schscan_enter_weekday:", "5"},
                     {"schscan_confirm_firstboot:", "n"},
                     {"schscan_confirm_change_scantime:", "n"},
                     {"\nschscan_confirm_recurrence_weeks:", "y"},
                     {"schscan_msg_recurscan_week:", "3"},
                     {"schscan_confirm_change_repeatscan:", "y"},
                     {"schscan_confirm_repeatscan_schdday:", "y"},
                     {kMenu, "2"},
                     {"schscan_msg_enter_minutes_2:", "30"},
                     {"schddmn_confirm_scanoption:", "n"},
                     {"schddmn_confirm_actionforvirus:", "n"},
                     {"schddmn_confirm_deletescanitem:", "n"},
                     {"schscan_confirm_addmore_dir:", "n"}}},
      {modify, Steps{{kName, "Daily"},
                     {"schscan_confirm_scanfrequency:", "n"},
                     {"schscan_confirm_firstboot:", "n"},
                     {"schscan_confirm_change_scantime:", "n"},
                     {"\nschscan_confirm_recurrence_days:", "y"},
                     {"\nschscan_msg_days_recurscan:", "7"},
                     {"schscan_confirm_change_repeatscan:", "n"}}},
      {modify, Steps{{kName, "Boot"},
                     {"schscan_confirm_scanfrequency:", "n"},
                     {"schscan_confirm_firstboot:", "y"},
                     {"\nschscan_msg_firstbootscan:", "n"}} +
                   Time() + Steps{{"\nschscan_msg_days_recurscan:", "1"}}},
      {"schscan_str_args_view",
       {{"\nschscan_confirm_scandetail_view:", "y"}, {"\nschscan_msg_enteridtoviewdetail:", "1"}}},
      {"schscan_str_args_delete", {{kName, "Daily"}}},
      {"schscan_str_args_reports",
       {{"\nschscan_confirm_view_report:", "y"}, {"\nschscan_msg_enter_rptno:", "1"}}},
      {deleteReports, {{kMenu, "1"}, {"\nEnter scheduled scan name:", "Daily"}}},
      {deleteReports,
       {{kMenu, "2"}, {"schscan_confirm_delete:", "n"}, {"schscan_confirm_delete:", "n"}}},
  };
}

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

TEST(EveryPrompt, EndOfInputAndCtrlCEndTheCommandAndChangeNothing) {
  harness::ResetProductDir(false);
  scantest::StoreScan(scantest::MakeScan("Daily"));
  tagSCHEDULE_SCAN_ENTRY weekly = scantest::MakeScan("Weekly");
  weekly.byFrequency = FREQ_WEEKLY;
  weekly.byWeekDay = 3;
  weekly.bRepeatScan = 0;
  scantest::StoreScan(weekly);
  tagSCHEDULE_SCAN_ENTRY boot = scantest::MakeScan("Boot");
  boot.bFirstBootScan = 1;
  scantest::StoreScan(boot);
  scan_service::AddReport("Daily", "d1", 0, "first\n");
  scan_service::AddReport("Daily", "d2", 0, "second\n");
  const std::string store = harness::ReadFile(kTaskListPath);
  const std::string index = harness::ReadFile(kReportIndexPath);
  const std::string journal = std::string(kTaskListPath) + "-journal";

  std::set<std::string> tried;  // command, previous prompt and prompt
  int prompts = 0;
  for (const Path& path : Paths()) {
    std::string input;
    std::string previousPrompt;
    for (const Step& step : path.steps) {
      const std::string place = path.command + "|" + previousPrompt + "|" + step.prompt;
      previousPrompt = step.prompt;
      if (tried.insert(place).second) {
        ++prompts;
        SCOPED_TRACE(path.command + " at prompt " + std::to_string(prompts) + ": " + step.prompt);
        harness::RunOptions options;
        options.args = {path.command};
        options.input = input;
        options.timeoutMilliseconds = 1000;
        const harness::RunResult ended = harness::RunTool(options);
        EXPECT_FALSE(ended.timedOut);
        EXPECT_EQ(ended.exitStatus, 0);
        ASSERT_TRUE(EndsWith(ended.output, step.prompt + "\n")) << ended.output;

        // The same prompt, found by its whole output: earlier prompts may
        // print the same text.
        options.interruptAfter = ended.output.substr(0, ended.output.size() - 1);
        const harness::RunResult interrupted = harness::RunTool(options);
        EXPECT_FALSE(interrupted.timedOut);
        EXPECT_EQ(interrupted.exitStatus, 0);
        EXPECT_EQ(interrupted.output, ended.output);

        EXPECT_EQ(harness::ReadFile(kTaskListPath), store);
        EXPECT_EQ(harness::ReadFile(kReportIndexPath), index);
        EXPECT_FALSE(std::filesystem::exists(journal));
      }
      input += step.answer + "\n";
    }
  }
  RecordProperty("prompts", prompts);
  EXPECT_GE(prompts, 70);
}

}  // namespace
