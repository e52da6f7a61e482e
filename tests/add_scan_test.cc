// Whole-program runs of the add wizard: full runs for each kind of schedule,
// every range and its message, the Enter-means-yes defaults, the directory
// rules and limit, the confirmation, and the store's refusal.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <cctype>
#include <map>

#include "product_paths.h"
#include "testing/scan_fixtures.h"

namespace {

using namespace scantest;

bool IsYes(std::string answer) {
  for (char& c : answer) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return answer.empty() || answer == "y" || answer == "yes";
}

// Answers to the wizard, in its order; `refused` lists answers that a
// question (named as in Ask below) refuses before it gets its real one.
struct AddRun {
  std::string name = "Scan1";
  std::string frequency = "1";
  std::string weekDay{};
  std::string firstBoot = "n";
  std::string hour = "10", minute = "20", second = "30";
  std::string recurrence = "2";
  std::string repeat = "n";
  std::string repeatUnit{}, repeatInterval{};
  std::array<std::string, 4> options = {"y", "n", "n", "n"};
  std::string action = "1";
  std::vector<std::string> dirs = {MakeDir("a")};
  std::string addMore = "y";
  std::string confirm = "y";
  std::multimap<std::string, std::pair<std::string, std::string>> refused{};
};

// The question `id` with its refused answers first.
Script Question(const AddRun& run, const std::string& id, const std::string& prompt,
                const std::string& answer) {
  Script script;
  const auto [first, last] = run.refused.equal_range(id);
  for (auto it = first; it != last; ++it)
    script += Reject(prompt, it->second.first, it->second.second);
  return script + Ask(prompt, answer);
}

std::string SummaryKeys(const AddRun& run) {
  const bool daily = run.frequency == "1";
  std::string text =
      "\nSchedule scan details :\nschscan_scandetail_format1.\nschscan_scandetail_format2";
  text += daily ? "schscan_str_daily.\n" : "schscan_str_weekly.\nschscan_scandetail_format1.\n";
  if (IsYes(run.firstBoot)) {
    text += "schscan_msg_enabled.\n";
  } else {
    text += "schscan_scandetail_format_time.\n";
    text += daily ? "schscan_msg_scanrecurring_days.\n" : "schscan_msg_scanrecurring_week.\n";
    if (IsYes(run.repeat)) text += "schscan_msg_repeatscan_on.\n";
  }
  text += "schscan_scandetail_format_scanoption:\n";
  const char* optionKeys[] = {"schscan_scandetail_archivefiles", "schscan_scandetail_spyware",
                              "schscan_scandetal_dump", "schscan_scandetail_packedfiles"};
  for (int i = 0; i < 4; ++i) {
    if (IsYes(run.options[i])) text += optionKeys[i] + std::string(".\n");
  }
  const char* actionKeys[] = {
      "schscan_scandetail_format3", "schscan_scandetail_repairdelete_output",
      "schscan_scandetail_format_deleted", "schscan_scandetail_format_report"};
  text += "schscan_scandetail_format2 :\n" + std::string(actionKeys[std::stoi(run.action) - 1]) +
          ".\nschscan_scandetail_format2\n";
  for (std::size_t i = 0; i < std::min<std::size_t>(run.dirs.size(), MAX_SCAN_ITEMS); ++i) {
    text += "schscan_scandetail_format4\n";
  }
  return text;
}

// Up to the confirmation and its outcome; `storeAccepts` false: the store
// refuses and the wizard prints nothing after the answer.
Script AddWizard(const AddRun& run, bool storeAccepts = true) {
  Script s = Out("schscan_msg_addnewscan\n") +
             Question(run, "name", "\nschscan_msg_enterscanname", run.name);
  s += Out("\nschscan_msg_scan_frequency:\n\t1. schscan_msg_dailyscan.\n\t2. "
           "schscan_msg_weeklyscan.\n") +
       Question(run, "frequency", "cli_usrInput_menuNumber", run.frequency);
  if (run.frequency == "2") s += Question(run, "weekday", "schscan_enter_weekday:", run.weekDay);
  s += Question(run, "firstboot", "\nschscan_msg_firstbootscan:", run.firstBoot);
  if (!IsYes(run.firstBoot)) {
    s += Out("schscan_msg_enterscantime:\n") +
         Question(run, "hour", "schscan_msg_enterhours:", run.hour) +
         Question(run, "minute", "schscan_msg_enter_minutes:", run.minute) +
         Question(run, "second", "schscan_msg_enter_seconds:", run.second);
    s += run.frequency == "1"
             ? Question(run, "recurrence", "\nschscan_msg_days_recurscan:", run.recurrence)
             : Question(run, "recurrence", "\nschscan_msg_recurscan_week:", run.recurrence);
    s += Question(run, "repeat", "\nschscan_ask_repeatscan:", run.repeat);
    if (IsYes(run.repeat)) {
      s += Out("schscan_msg_repeatescan_time:\n\t1. schscan_str_hour\n\t2. schscan_str_minute\n") +
           Question(run, "unit", "cli_usrInput_menuNumber", run.repeatUnit);
      s += run.repeatUnit == "1"
               ? Question(run, "interval", "schscan_msg_enter_hours:", run.repeatInterval)
               : Question(run, "interval", "schscan_msg_enter_minutes_2:", run.repeatInterval);
    }
  }
  s += Out("\nschscan_msg_scanner_option:\n") +
       OptionsEntry(run.options[0], run.options[1], run.options[2], run.options[3]);
  s += Out("\nschscan_msg_scan_action:\n\t1. schscan_msg_repaironly.\n\t2. "
           "schscan_msg_repairdelete.\n"
           "\t3. schscan_msg_delete.\n\t4. schscan_msg_reportonly.\n") +
       Question(run, "action", "cli_usrInput_menuNumber", run.action);
  for (std::size_t i = 0; i < run.dirs.size(); ++i) {
    s += Question(run, "dir" + std::to_string(i), "\nschscan_msg_enter_dir:", run.dirs[i]);
    if (i == MAX_SCAN_ITEMS) {
      s += PressKeyAfterLimit();
    } else {
      s += Ask("schscan_confirm_addmore_item:", i + 1 < run.dirs.size() ? run.addMore : "n");
    }
  }
  s += Out(SummaryKeys(run)) +
       Question(run, "confirm", "\nschscan_confirm_add_schscan:", run.confirm);
  if (!IsYes(run.confirm)) return s + Out("schscan_msg_scanadded_failure.\n");
  return storeAccepts ? s + Out("schscan_msg_scanadded_success.\n") : s;
}

class AddScan : public testing::Test {
 protected:
  void SetUp() override { harness::ResetProductDir(false); }
};

TEST_F(AddScan, FullRunsStoreWhatWasAnswered) {
  struct Case {
    const char* what;
    AddRun run;
    const char* stored;
  };
  const std::vector<std::string> ab = {MakeDir("a"), MakeDir("b")};
  const Case cases[] = {
      {"daily, timed, once", {}, "Scan1 u0 f0 d0 b0 10:20:30 r2 p0/0/0 o1 a0 [a]"},
      {"daily, timed, every 5 hours",
       {.repeat = "y",
        .repeatUnit = "1",
        .repeatInterval = "5",
        .options = {"n", "y", "n", "y"},
        .action = "3"},
       "Scan1 u0 f0 d0 b0 10:20:30 r2 p1/5/0 o10 a2 [a]"},
      {"weekly, timed, every 90 minutes",
       {.frequency = "2",
        .weekDay = "3",
        .recurrence = "4",
        .repeat = "Y",
        .repeatUnit = "2",
        .repeatInterval = "90",
        .action = "4",
        .dirs = ab},
       "Scan1 u0 f1 d3 b0 10:20:30 r4 p1/90/1 o1 a3 [a b]"},
      {"daily, first boot",
       {.firstBoot = "y", .action = "2"},
       "Scan1 u0 f0 d0 b1 00:00:00 r0 p0/0/0 o1 a1 [a]"},
      {"weekly, first boot",
       {.frequency = "2", .weekDay = "7", .firstBoot = "yes"},
       "Scan1 u0 f1 d7 b1 00:00:00 r0 p0/0/0 o1 a0 [a]"},
      {"Enter means yes everywhere",
       {.firstBoot = "", .options = {"", "", "", ""}, .dirs = ab, .addMore = "", .confirm = ""},
       "Scan1 u0 f0 d0 b1 00:00:00 r0 p0/0/0 o15 a0 [a b]"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    harness::ResetProductDir(false);
    ExpectRun("schscan_str_args_add", AddWizard(c.run));
    EXPECT_EQ(DescribeStored("Scan1"), c.stored);
  }
}

TEST_F(AddScan, EveryRangeRefusesItsBoundariesWithItsMessage) {
  const std::string notNumber = "schscan_valid_number_int.\n";
  const std::string invalidOption = "schscan_valid_options.\n";
  auto refuse = [](AddRun& run, const std::string& id, std::vector<std::string> answers,
                   const std::string& message) {
    for (const std::string& a : answers) run.refused.insert({id, {a, message}});
  };
  AddRun daily{.hour = "23",
               .minute = "59",
               .second = "59",
               .recurrence = "90",
               .repeat = "y",
               .repeatUnit = "1",
               .repeatInterval = "23",
               .action = "4"};
  refuse(daily, "frequency", {"0", "3"}, "schscan_valid_menunumber.\n");
  refuse(daily, "frequency", {"", "-1", " 1", "+1", "1 ", "x"}, notNumber);
  refuse(daily, "firstboot", {"ye", "yess", "nope", "q"}, invalidOption);
  refuse(daily, "hour", {"24", "99999"}, "schscan_valid_hourtime.\n");
  refuse(daily, "minute", {"60"}, "schscan_valid_time_minutes.\n");
  refuse(daily, "second", {"60"}, "schscan_valid_time_seconds.\n");
  refuse(daily, "recurrence", {"0", "91"}, "schscan_valid_days.\n");
  refuse(daily, "unit", {"0", "3"}, "schscan_valid_menunumber.\n");
  refuse(daily, "interval", {"0", "24"}, "schscan_valid_hours.\n");
  refuse(daily, "action", {"0", "5"}, "schscan_valid_menunumber.\n");
  refuse(daily, "confirm", {"x"}, invalidOption);
  ExpectRun("schscan_str_args_add", AddWizard(daily));
  EXPECT_EQ(DescribeStored("Scan1"), "Scan1 u0 f0 d0 b0 23:59:59 r90 p1/23/0 o1 a3 [a]");

  harness::ResetProductDir(false);
  AddRun weekly{.frequency = "2",
                .weekDay = "1",
                .hour = "0",
                .minute = "0",
                .second = "0",
                .recurrence = "15",
                .repeat = "y",
                .repeatUnit = "2",
                .repeatInterval = "1439"};
  refuse(weekly, "weekday", {"0", "8"}, "schscan_valid_weekday.\n");
  refuse(weekly, "repeat", {"x"}, invalidOption);
  refuse(weekly, "recurrence", {"0", "16"}, "schscan_valid_weeks.\n");
  refuse(weekly, "interval", {"0", "1440"}, "schscan_valid_minutes.\n");
  ExpectRun("schscan_str_args_add", AddWizard(weekly));
  EXPECT_EQ(DescribeStored("Scan1"), "Scan1 u0 f1 d1 b0 00:00:00 r15 p1/1439/1 o1 a0 [a]");
}

TEST_F(AddScan, DirectoriesMayNeitherRepeatNorNest) {
  AddRun run;
  const std::string data = MakeDir("data");
  run.dirs = {data, MakeDir("data2"), MakeDir("data/sub2")};
  const std::string exists = "schscan_valid_alreadypathexist.\n";
  run.refused = {
      {"dir0", {"", "schscan_valid_dirpath.\n"}},
      {"dir0", {data + "/missing", "schscan_valid_pathexist.\n"}},
      {"dir1", {data, exists}},
      {"dir1", {data + "/", exists}},
      {"dir1", {data + "/missing /tmp", "schscan_valid_pathexist.\n"}},
  };
  ExpectRun("schscan_str_args_add", AddWizard(run));
  EXPECT_EQ(DescribeStored("Scan1"),
            "Scan1 u0 f0 d0 b0 10:20:30 r2 p0/0/0 o1 a0 [data data2 data/sub2]");
}

TEST_F(AddScan, TheHundredAndFirstDirectoryIsDropped) {
  AddRun run;
  run.dirs.clear();
  std::string stored;
  for (int i = 0; i <= 100; ++i) {
    const std::string name = "n" + std::to_string(1000 + i);
    run.dirs.push_back(MakeDir(name));
    if (i < 100) stored += (i == 0 ? "" : " ") + name;
  }
  ExpectRun("schscan_str_args_add", AddWizard(run));
  EXPECT_EQ(DescribeStored("Scan1"), "Scan1 u0 f0 d0 b0 10:20:30 r2 p0/0/0 o1 a0 [" + stored + "]");
}

TEST_F(AddScan, DecliningStoresNothing) {
  ExpectRun("schscan_str_args_add", AddWizard({.confirm = "n"}));
  EXPECT_EQ(DescribeStored("Scan1"), "none");
}

TEST_F(AddScan, OrdinaryUserOwnsTheScanAndNamesAreUniqueAcrossUsers) {
  StoreScan(MakeScan("Taken", 0));
  StoreScan(MakeScan("Mine", 1));
  AddRun run;
  run.refused = {{"name", {"Taken", "schscan_msg_scanname_exist.\n"}},
                 {"name", {"Mine", "schscan_valid_scanname_exist.\n"}},
                 {"name", {"", "schscan_valid_scanname_empty.\n"}},
                 {"name", {"Scan_1", "schscan_valid_scanname_specialchar.\n"}}};
  ExpectRun("schscan_str_args_add", AddWizard(run), "", 1);
  EXPECT_EQ(DescribeStored("Scan1"), "Scan1 u1 f0 d0 b0 10:20:30 r2 p0/0/0 o1 a0 [a]");
}

TEST_F(AddScan, WithCatalogueTheSummaryShowsEveryValue) {
  harness::ResetProductDir(true);
  const AddRun run{.frequency = "2",
                   .weekDay = "3",
                   .recurrence = "4",
                   .repeat = "y",
                   .repeatUnit = "2",
                   .repeatInterval = "90",
                   .options = {"y", "n", "n", "y"},
                   .action = "4",
                   .dirs = {MakeDir("a"), MakeDir("b")}};
  const auto result = RunScript("--add", AddWizard(run));
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.output.find("schscan_"), std::string::npos) << result.output;
  const std::string summary =
      "\nScheduled scan details :\n"
      "Scan name                 Scan1.\n"
      "Scan frequency            Weekly.\n"
      "Day of the week           Tuesday.\n"
      "Scan time                 10:20:30.\n"
      "The scan runs every 4 week(s).\n"
      "The scan repeats every 90 minute(s) during the scan day.\n"
      "Scanner options           :\n"
      "\tScan archive files.\n"
      "\tScan packed executables.\n"
      "Action on infected files   :\n"
      "\tReport only.\n"
      "Directory to scan         \n"
      "\t" +
      run.dirs[0] + "\n\t" + run.dirs[1] +
      "\n"
      "\nAdd this scheduled scan (Y/n):The scheduled scan Scan1 was added.\n";
  ASSERT_GE(result.output.size(), summary.size());
  EXPECT_EQ(result.output.substr(result.output.size() - summary.size()), summary);
}

// The store refuses to write a task list the user may only read.
TEST_F(AddScan, StoreRefusalIsReportedByTheDispatcher) {
  StoreScan(MakeScan("Other", 0));
  ASSERT_EQ(chmod(kTaskListPath, 0644), 0);
  const std::string before = DumpStore();
  ExpectRun("schscan_str_args_add", AddWizard(AddRun{}, false),
            "\nschscan_msg_scanoperation_fail.\n", 1);
  EXPECT_EQ(DumpStore(), before);
}

}  // namespace
