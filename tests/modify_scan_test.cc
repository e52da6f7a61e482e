// Whole-program runs of the modify wizard: which steps are shown and asked,
// required without a question, or left out for each change of frequency and
// first-boot setting, the values each run keeps, ranges, directories, other
// users' scans and the store's refusal.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>

#include "product_paths.h"
#include "testing/scan_fixtures.h"

namespace {

using namespace scantest;

constexpr const char* kModify = "schscan_str_args_modify";

Script Name(const std::string& name) {
  return Out("schscan_msg_modify_existingscan:\n") + Ask("\nschscan_msg_enterscanname", name);
}
Script FrequencyShown(bool daily, const std::string& answer) {
  return Out(std::string("\nScheduled scan frequency: ") +
             (daily ? "schscan_str_daily.\n" : "schscan_str_weekly.\n")) +
         Ask("schscan_confirm_scanfrequency:", answer);
}
Script NewFrequency(const std::string& choice) {
  return FrequencyMenu("schscan_msg_scanfrequency", choice);
}
Script WeekDayShown(const std::string& answer) {
  return Out("\nschscan_scandetail_format5.\n") + Ask("schscan_confirm_day_schscan:", answer);
}
Script FirstBootShown(bool on, const std::string& answer) {
  return Out(on ? "\nschscan_msg_firstboot_on.\n" : "\nschscan_msg_firstboot_off.\n") +
         Ask("schscan_confirm_firstboot:", answer);
}
Script TimeShown(const std::string& answer) {
  return Out("\nschscan_msg_scantime.\n") + Ask("schscan_confirm_change_scantime:", answer);
}
Script NewTime(const std::string& h, const std::string& m, const std::string& s) {
  return TimeEntry("\n", h, m, s);
}
Script RecurrenceShown(bool daily, const std::string& answer) {
  return daily ? Out("\nschscan_msg_scanrecurring_days.") +
                     Ask("\nschscan_confirm_recurrence_days:", answer)
               : Out("\nschscan_msg_scanrecurring_week.") +
                     Ask("\nschscan_confirm_recurrence_weeks:", answer);
}
Script NewRecurrence(bool daily, const std::string& value) {
  return daily ? Ask("\nschscan_msg_days_recurscan:", value)
               : Ask("schscan_msg_recurscan_week:", value);
}
Script RepeatShown(bool on, const std::string& answer) {
  return Out(on ? "\nschscan_msg_repeatscan_on.\n" : "\nschscan_msg_repeatscan_off.\n") +
         Ask("schscan_confirm_change_repeatscan:", answer);
}
const std::string kRepeatUnitMenu =
    "schscan_msg_entertimetoscan:\n\t1. schscan_str_hour\n\t2. schscan_str_minute\n";
Script NewRepeat(const std::string& answer) {
  return Ask("schscan_confirm_repeatscan_schdday:", answer);
}
Script OptionsShown(const std::string& lines, const std::string& answer) {
  return Out("\nschscan_msg_scanner_option:\n" + lines) +
         Ask("schddmn_confirm_scanoption:", answer);
}
Script ActionShown(const std::string& line, const std::string& answer) {
  return Out("\nschscan_msg_scan_action:\n" + line) +
         Ask("schddmn_confirm_actionforvirus:", answer);
}
Script ItemShown(const std::string& path, const std::string& answer) {
  return Out("\nschscan_str_directorytoscan : " + path + "\n") +
         Ask("schddmn_confirm_deletescanitem:", answer);
}
Script AddMoreDirs(const std::string& answer) {
  return Ask("schscan_confirm_addmore_dir:", answer);
}
const Script kModified = Out("schscan_msg_scanmodified_success.\n");
// Every setting of MakeScan kept, up to the directories.
Script KeepSchedule() {
  return FrequencyShown(true, "n") + FirstBootShown(false, "n") + TimeShown("n") +
         RecurrenceShown(true, "n") + RepeatShown(true, "n");
}
Script KeepSettings() {
  return OptionsShown("\tschscan_scandetail_archivefiles_2.\n", "n") +
         ActionShown("\tschscan_msg_repaironly.\n", "n");
}
Script KeepTheRest() {
  return KeepSettings() + ItemShown(MakeDir("a"), "n") + AddMoreDirs("n") + kModified;
}

using Change = std::function<void(tagSCHEDULE_SCAN_ENTRY&)>;

// MakeScan("Scan1") with `change`: daily, 10:20:30, every 2 days, repeated
// every 3 hours, archives, repair only, directory a.
tagSCHEDULE_SCAN_ENTRY Seed(const Change& change = {}) {
  tagSCHEDULE_SCAN_ENTRY scan = MakeScan("Scan1");
  if (change) change(scan);
  return scan;
}

class ModifyScan : public testing::Test {
 protected:
  void SetUp() override { harness::ResetProductDir(false); }
};

TEST_F(ModifyScan, StepsFollowTheChangesOfFrequencyAndFirstBoot) {
  const auto weekly = [](tagSCHEDULE_SCAN_ENTRY& s) {
    s.byFrequency = FREQ_WEEKLY;
    s.byWeekDay = 5;
    s.nRecurEvery = 3;
  };
  const auto boot = [](tagSCHEDULE_SCAN_ENTRY& s) {
    s.bFirstBootScan = 1;
    s.nRecurEvery = 60;
  };
  struct Case {
    const char* what;
    tagSCHEDULE_SCAN_ENTRY seed;
    Script steps;
    const char* stored;
  } cases[] = {
      {"no to everything", Seed(), KeepSchedule(),
       "Scan1 u0 f0 d0 b0 10:20:30 r2 p1/3/0 o1 a0 [a]"},
      {"daily to weekly", Seed(),
       FrequencyShown(true, "y") + NewFrequency("2") + WeekDayEntry("3") +
           FirstBootShown(false, "n") + TimeShown("n") + NewRecurrence(false, "4") +
           RepeatShown(true, "n"),
       "Scan1 u0 f1 d3 b0 10:20:30 r4 p1/3/0 o1 a0 [a]"},
      {"weekly to daily keeps the weekday", Seed(weekly),
       FrequencyShown(false, "y") + NewFrequency("1") + FirstBootShown(false, "n") +
           TimeShown("n") + NewRecurrence(true, "60") + RepeatShown(true, "n"),
       "Scan1 u0 f0 d5 b0 10:20:30 r60 p1/3/0 o1 a0 [a]"},
      {"weekly stays weekly on another day", Seed(weekly),
       FrequencyShown(false, "n") + WeekDayShown("y") + WeekDayEntry("7") +
           FirstBootShown(false, "n") + TimeShown("n") + RecurrenceShown(false, "n") +
           RepeatShown(true, "n"),
       "Scan1 u0 f1 d7 b0 10:20:30 r3 p1/3/0 o1 a0 [a]"},
      {"daily chosen again counts as unchanged", Seed(),
       FrequencyShown(true, "y") + NewFrequency("1") + FirstBootShown(false, "n") + TimeShown("n") +
           RecurrenceShown(true, "y") + NewRecurrence(true, "9") + RepeatShown(true, "n"),
       "Scan1 u0 f0 d0 b0 10:20:30 r9 p1/3/0 o1 a0 [a]"},
      {"first boot on keeps time, recurrence and repeat", Seed(),
       FrequencyShown(true, "n") + FirstBootShown(false, "y") + FirstBootEntry("y"),
       "Scan1 u0 f0 d0 b1 10:20:30 r2 p1/3/0 o1 a0 [a]"},
      {"first boot off requires time and recurrence", Seed(boot),
       FrequencyShown(true, "n") + FirstBootShown(true, "y") + FirstBootEntry("n") +
           NewTime("0", "0", "0") + NewRecurrence(true, "1") + RepeatShown(true, "n"),
       "Scan1 u0 f0 d0 b0 00:00:00 r1 p1/3/0 o1 a0 [a]"},
      {"first boot stays, weekly now, keeps its recurrence", Seed(boot),
       FrequencyShown(true, "y") + NewFrequency("2") + WeekDayEntry("1") +
           FirstBootShown(true, "n"),
       "Scan1 u0 f1 d1 b1 10:20:30 r60 p1/3/0 o1 a0 [a]"},
      {"weekly first boot to daily timed", Seed([&](auto& s) {
         weekly(s);
         boot(s);
       }),
       FrequencyShown(false, "y") + NewFrequency("1") + FirstBootShown(true, "y") +
           FirstBootEntry("n") + NewTime("23", "59", "59") + NewRecurrence(true, "90") +
           RepeatShown(true, "n"),
       "Scan1 u0 f0 d5 b0 23:59:59 r90 p1/3/0 o1 a0 [a]"},
      {"repeat switched to minutes", Seed(),
       FrequencyShown(true, "n") + FirstBootShown(false, "n") + TimeShown("n") +
           RecurrenceShown(true, "n") + RepeatShown(true, "y") + NewRepeat("y") +
           Out(kRepeatUnitMenu) + Ask("cli_usrInput_menuNumber", "2") +
           Ask("schscan_msg_enter_minutes_2:", "1439"),
       "Scan1 u0 f0 d0 b0 10:20:30 r2 p1/1439/1 o1 a0 [a]"},
      {"repeat off keeps interval and unit", Seed(),
       FrequencyShown(true, "n") + FirstBootShown(false, "n") + TimeShown("n") +
           RecurrenceShown(true, "n") + RepeatShown(true, "y") + NewRepeat("n"),
       "Scan1 u0 f0 d0 b0 10:20:30 r2 p0/3/0 o1 a0 [a]"},
  };
  for (Case& c : cases) {
    SCOPED_TRACE(c.what);
    harness::ResetProductDir(false);
    StoreScan(c.seed);
    ExpectRun(kModify, Name("Scan1") + c.steps + KeepTheRest());
    EXPECT_EQ(DescribeStored("Scan1"), c.stored);
  }
}

// A stored frequency outside daily and weekly is replaced without a question;
// a weekly scan's weekday outside 1 to 7 is required anew.
TEST_F(ModifyScan, OddStoredValuesRequireNewOnes) {
  StoreScan(Seed());
  SetStoredColumn("Scan1", "frequency", 7);
  ExpectRun(kModify, Name("Scan1") + NewFrequency("2") + WeekDayEntry("4") +
                         FirstBootShown(false, "n") + TimeShown("n") + NewRecurrence(false, "15") +
                         RepeatShown(true, "n") + KeepTheRest());
  EXPECT_EQ(DescribeStored("Scan1"), "Scan1 u0 f1 d4 b0 10:20:30 r15 p1/3/0 o1 a0 [a]");

  SetStoredColumn("Scan1", "week_day", 0);
  ExpectRun(kModify, Name("Scan1") + FrequencyShown(false, "n") + WeekDayEntry("6") +
                         FirstBootShown(false, "n") + TimeShown("n") + RecurrenceShown(false, "n") +
                         RepeatShown(true, "n") + KeepTheRest());
  EXPECT_EQ(DescribeStored("Scan1"), "Scan1 u0 f1 d6 b0 10:20:30 r15 p1/3/0 o1 a0 [a]");
}

TEST_F(ModifyScan, RangesAndAnswersAreCheckedWithTheModifyMessages) {
  StoreScan(Seed());
  const std::string invalid = "schscan_valid_options.\n";
  const std::string notNumber = "schscan_valid_number_int.\n";
  ExpectRun(
      kModify,
      Name("Scan1") +
          Reject("\nScheduled scan frequency: schscan_str_daily.\nschscan_confirm_scanfrequency:",
                 "x", invalid) +
          Ask("schscan_confirm_scanfrequency:", "") + NewFrequency("2") +
          Reject("schscan_enter_weekday:", "0", "schscan_valid_weekdays.\n") +
          Reject("schscan_enter_weekday:", "8", "schscan_valid_weekdays.\n") + WeekDayEntry("2") +
          FirstBootShown(false, "") + Reject("\nschscan_msg_firstbootscan:", "maybe", invalid) +
          FirstBootEntry("no") + TimeShown("yes") + Out("\nschscan_msg_enterscantime:\n") +
          Reject("schscan_msg_enterhours:", "24", "schscan_valid_hourtime.\n") +
          Ask("schscan_msg_enterhours:", "0") +
          Reject("schscan_msg_enter_minutes:", "60", "Please enter valid time (minutes).\n") +
          Reject("schscan_msg_enter_minutes:", "x", notNumber) +
          Ask("schscan_msg_enter_minutes:", "59") +
          Reject("schscan_msg_enter_seconds:", "60", "schscan_valid_time_seconds.\n") +
          Ask("schscan_msg_enter_seconds:", "0") +
          Reject("schscan_msg_recurscan_week:", "0", "schscan_valid_weeks.\n") +
          Reject("schscan_msg_recurscan_week:", "16", "schscan_valid_weeks.\n") +
          NewRecurrence(false, "15") + RepeatShown(true, "") +
          Reject("schscan_confirm_repeatscan_schdday:", "x", invalid) + NewRepeat("") +
          Out(kRepeatUnitMenu) + Reject("cli_usrInput_menuNumber", "3", invalid) +
          Ask("cli_usrInput_menuNumber", "1") +
          Reject("Enter repeat time in hours (1-23):", "0", "Please enter hours between 1-23.\n") +
          Reject("Enter repeat time in hours (1-23):", "24", "Please enter hours between 1-23.\n") +
          Ask("Enter repeat time in hours (1-23):", "23") +
          OptionsShown("\tschscan_scandetail_archivefiles_2.\n", "") +
          OptionsEntry("n", "", "Y", "") + ActionShown("\tschscan_msg_repaironly.\n", "") +
          Reject(ActionEntry("5").output, "0", "schscan_valid_menunumber.\n") +
          Ask("cli_usrInput_menuNumber", "3") + ItemShown(MakeDir("a"), "n") + AddMoreDirs("n") +
          kModified);
  EXPECT_EQ(DescribeStored("Scan1"), "Scan1 u0 f1 d2 b0 00:59:00 r15 p1/23/0 o14 a2 [a]");
}

TEST_F(ModifyScan, DirectoriesAreRemovedInPlaceAndTheListNeverEndsEmpty) {
  const std::string a = MakeDir("a"), b = MakeDir("b"), c = MakeDir("c");
  StoreScan(Seed([&](auto& s) { SetDirectories(s, {a, b, c}); }));
  const Script head = Name("Scan1") + KeepSchedule() + KeepSettings();
  ExpectRun(kModify, head + ItemShown(a, "y") + ItemShown(b, "") + ItemShown(c, "n") +
                         AddMoreDirs("n") + kModified);
  EXPECT_EQ(DescribeStored("Scan1"), "Scan1 u0 f0 d0 b0 10:20:30 r2 p1/3/0 o1 a0 [c]");

  ExpectRun(kModify, head + ItemShown(c, "y") + AddMoreDirs("n") +
                         Out("schscan_valid_directorytoscan.\n") + AddMoreDirs("") +
                         DirEntry(c + "/", "y") + DirEntry(a, "n") + kModified);
  EXPECT_EQ(DescribeStored("Scan1"), "Scan1 u0 f0 d0 b0 10:20:30 r2 p1/3/0 o1 a0 [c/ a]");
}

TEST_F(ModifyScan, AFullListRefusesOneMoreDirectory) {
  std::vector<std::string> dirs;
  for (int i = 0; i < 100; ++i) dirs.push_back(MakeDir("n" + std::to_string(1000 + i)));
  StoreScan(Seed([&](auto& s) { SetDirectories(s, dirs); }));
  const std::string before = DescribeStored("Scan1");
  Script steps = Name("Scan1") + KeepSchedule() + KeepSettings();
  for (const std::string& dir : dirs) steps += ItemShown(dir, "n");
  steps += AddMoreDirs("y") + Ask("\nschscan_msg_enter_dir:", MakeDir("extra")) +
           PressKeyAfterLimit() + kModified;
  ExpectRun(kModify, steps);
  EXPECT_EQ(DescribeStored("Scan1"), before);
}

TEST_F(ModifyScan, OnlyRootChangesAnotherUsersScan) {
  StoreScan(MakeScan("Root", 0));
  StoreScan(MakeScan("Daemon", 1));
  // Daemon is refused root's scan at the name prompt until the input ends.
  const std::string before = DumpStore();
  ExpectRun(kModify,
            Out("schscan_msg_modify_existingscan:\n") +
                Reject("\nschscan_msg_enterscanname", "Root", "schscan_msg_scanname_exist.\n") +
                Reject("\nschscan_msg_enterscanname", "Nothing",
                       "schscan_valid_scanname_specialchar.\n") +
                Out("\nschscan_msg_enterscanname"),
            "\n", 1);
  EXPECT_EQ(DumpStore(), before);

  ExpectRun(kModify, Name("Daemon") + FrequencyShown(true, "n") + FirstBootShown(false, "y") +
                         FirstBootEntry("y") + KeepTheRest());
  EXPECT_EQ(DescribeStored("Daemon"), "Daemon u1 f0 d0 b1 10:20:30 r2 p1/3/0 o1 a0 [a]");
}

TEST_F(ModifyScan, StoreRefusalIsReportedByTheDispatcher) {
  StoreScan(MakeScan("Scan1", 1));
  ASSERT_EQ(chmod(kTaskListPath, 0644), 0);
  const std::string before = DumpStore();
  ExpectRun(kModify,
            Name("Scan1") + KeepSchedule() + KeepSettings() + ItemShown(MakeDir("a"), "n") +
                AddMoreDirs("n"),
            "\nschscan_msg_scanoperation_fail.\n", 1);
  EXPECT_EQ(DumpStore(), before);
}

TEST_F(ModifyScan, WithCatalogueInEnglish) {
  harness::ResetProductDir(true);
  StoreScan(Seed());
  const Script steps = Name("Scan1") + FrequencyShown(true, "y") + NewFrequency("2") +
                       WeekDayEntry("3") + FirstBootShown(false, "n") + TimeShown("n") +
                       NewRecurrence(false, "4") + RepeatShown(true, "n") + KeepTheRest();
  const auto run = RunScript("--modify", steps);
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(run.output.find("schscan_"), std::string::npos) << run.output;
  for (const char* line :
       {"\nScan frequency: Daily.\nChange the scan frequency (Y/n):",
        "\nScan time: 10:20:30.\nChange the scan time (Y/n):",
        "\nThe scan repeats every 3 hour(s) during the scan day.\n", "\tScan archive files.\n",
        "\tRepair only.\n", "(Y/n):The scheduled scan Scan1 was modified.\n"}) {
    EXPECT_NE(run.output.find(line), std::string::npos) << line;
  }
  EXPECT_EQ(DescribeStored("Scan1"), "Scan1 u0 f1 d3 b0 10:20:30 r4 p1/3/0 o1 a0 [a]");
}

}  // namespace
