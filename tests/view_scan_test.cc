// Whole-program runs of the view command: the scan table for the super-user
// (with owners) and for an ordinary user, the detail view, odd stored
// values, and the store's codes as the dispatcher reports them.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "product_paths.h"
#include "testing/scan_fixtures.h"

namespace {

using namespace scantest;

constexpr const char* kView = "schscan_str_args_view";
const std::string kRootHeader =
    "schscan_msg_schedulescans:\nschscan_scanld_format  schscan_str_username  "
    "schscan_str_frequency\n";
const std::string kUserHeader =
    "schscan_msg_schedulescans:\nschscan_scanld_format  schscan_str_frequency\n";
const Script kNoDetails = Ask("\nschscan_confirm_scandetail_view:", "n");

class ViewScan : public testing::Test {
 protected:
  void SetUp() override { harness::ResetProductDir(false); }

  // Four scans: a 15-character name of root's, a weekly 16-character name of
  // daemon's, a first-boot scan of a user without a login name, and a weekly
  // first-boot scan of daemon's with every option and two directories.
  void SeedFourScans() {
    StoreScan(MakeScan("Daily15charName", 0));
    tagSCHEDULE_SCAN_ENTRY weekly = MakeScan("Weekly16charName", 1);
    weekly.byFrequency = FREQ_WEEKLY;
    weekly.byWeekDay = 2;
    weekly.bRepeatScan = 0;
    weekly.byScanOptions = 0;
    weekly.nScanAction = ACTION_REPAIR_DELETE;
    StoreScan(weekly);
    tagSCHEDULE_SCAN_ENTRY boot = MakeScan("Boot", 4242);
    boot.bFirstBootScan = 1;
    boot.nScanAction = ACTION_DELETE;
    StoreScan(boot);
    tagSCHEDULE_SCAN_ENTRY bootWeekly = MakeScan("BootWeekly", 1);
    bootWeekly.byFrequency = FREQ_WEEKLY;
    bootWeekly.byWeekDay = 7;
    bootWeekly.bFirstBootScan = 1;
    bootWeekly.byScanOptions = 0x0f;
    bootWeekly.nScanAction = ACTION_REPORT_ONLY;
    SetDirectories(bootWeekly, {MakeDir("a"), MakeDir("b")});
    StoreScan(bootWeekly);
  }
};

const std::string kRootTable =
    kRootHeader +
    "schscan_scheduletask_formatschscan_scheduletask_format3schscan_scheduletask_format4"
    "schscan_str_daily.\n"
    "schscan_scheduletask_format2schscan_scheduletask_format3schscan_scheduletask_format4"
    "schscan_str_weeklyon.\n"
    // the unknown owner's word, a key of 19 characters here, takes the long format
    "schscan_scheduletask_formatschscan_scheduletask_format3schscan_scheduletask_format5"
    "schscan_str_daily.\n"
    "schscan_scheduletask_formatschscan_scheduletask_format3schscan_scheduletask_format4"
    "schscan_str_weeklyon.\n";

TEST_F(ViewScan, RootSeesEveryScanWithItsOwner) {
  SeedFourScans();
  ExpectRun(kView, Out(kRootTable) + kNoDetails);
}

TEST_F(ViewScan, OrdinaryUserSeesOnlyHisScansWithoutOwners) {
  SeedFourScans();
  const std::string row = "schscan_scheduletask_format3schscan_str_weeklyon.\n";
  ExpectRun(kView,
            Out(kUserHeader + "schscan_scheduletask_format2" + row + "schscan_scheduletask_format" +
                row) +
                Reject("\nschscan_confirm_scandetail_view:", "x", "schscan_valid_options.\n") +
                kNoDetails,
            "", 1);
  ExpectRun(kView, Out("schscan_msg_noscan_schled.\n"), "", 65534);
}

TEST_F(ViewScan, DetailViewOfEachKindOfScan) {
  SeedFourScans();
  const std::string tail = "schscan_scandetail_format2\n";
  struct Case {
    const char* number;
    std::string details;
  } cases[] = {
      {"1",
       "\nschscan_scandetail_format1.\nschscan_scandetail_format2schscan_str_daily.\n"
       "schscan_scandetail_format_time.\nschscan_msg_scanrecurring_days.\n"
       "schscan_msg_repeatscan_on.\nschscan_scandetail_format2\nschscan_msg_scanarchive.\n"
       "schscan_scandetail_format2\nschscan_scandetail_format3.\n" +
           tail + "schscan_scandetail_format4\n"},
      {"2",
       "\nschscan_scandetail_format1.\nschscan_scandetail_format2schscan_str_weekly.\n"
       "schscan_scandetail_format1.\nschscan_scandetail_format_time.\n"
       "schscan_msg_scanrecurring_week.\nschscan_scandetail_format2\n"
       "schscan_scandetail_format2\nschscan_scandetail_repairdelete_output.\n" +
           tail + "schscan_scandetail_format4\n"},
      {"3",
       "\nschscan_scandetail_format1.\nschscan_scandetail_format2schscan_str_daily.\n"
       "schscan_str_enable.\nschscan_scandetail_format2\nschscan_msg_scanarchive.\n"
       "schscan_scandetail_format2\nschscan_scandetail_format_deleted.\n" +
           tail + "schscan_scandetail_format4\n"},
      {"4",
       "\nschscan_scandetail_format1.\nschscan_scandetail_format2schscan_str_weekly.\n"
       "schscan_scandetail_format1.\nschscan_str_enable.\nschscan_scandetail_format2\n"
       "schscan_msg_scanarchive.\nschscan_scandetail_spyware.\nschscan_scandetal_dump.\n"
       "schscan_msg_scanpacked.\nschscan_scandetail_format2\n"
       "schscan_scandetail_format_report.\n" +
           tail + "schscan_scandetail_format4\nschscan_scandetail_format4\n"},
  };
  const std::string prompt = "\nschscan_msg_enteridtoviewdetail:";
  for (const Case& c : cases) {
    SCOPED_TRACE(c.number);
    ExpectRun(kView, Out(kRootTable) + Ask("\nschscan_confirm_scandetail_view:", "") +
                         Reject(prompt, "0", "schscan_valid_scannumber.\n") +
                         Reject(prompt, "5", "schscan_valid_scannumber.\n") +
                         Reject(prompt, "-1", "schscan_valid_number_int.\n") +
                         Reject(prompt, " 1", "schscan_valid_number_int.\n") +
                         Reject(prompt, "", "schscan_valid_number_int.\n") + Ask(prompt, c.number) +
                         Out(c.details));
  }
}

// A frequency that is neither daily nor weekly and a weekday outside 1 to 7
// are shown as unknown in the table and left out of the detail view.
TEST_F(ViewScan, OddStoredValuesAreNeverUsedAsWords) {
  StoreScan(MakeScan("OddFrequency", 0));
  SetStoredColumn("OddFrequency", "frequency", 7);
  tagSCHEDULE_SCAN_ENTRY weekly = MakeScan("OddDay", 0);
  weekly.byFrequency = FREQ_WEEKLY;
  weekly.byWeekDay = 1;
  StoreScan(weekly);
  SetStoredColumn("OddDay", "week_day", 9);

  const std::string table =
      kRootHeader +
      "schscan_scheduletask_formatschscan_scheduletask_format3schscan_scheduletask_format4"
      "schscan_str_unknown.\n"
      "schscan_scheduletask_formatschscan_scheduletask_format3schscan_scheduletask_format4"
      "schscan_str_weeklyon.\n";
  const std::string rest = "schscan_scandetail_format_time.\n";
  const std::string options =
      "schscan_msg_repeatscan_on.\nschscan_scandetail_format2\nschscan_msg_scanarchive.\n"
      "schscan_scandetail_format2\nschscan_scandetail_format3.\nschscan_scandetail_format2\n"
      "schscan_scandetail_format4\n";
  const Script ask = Out(table) + Ask("\nschscan_confirm_scandetail_view:", "y");
  ExpectRun(kView, ask + Ask("\nschscan_msg_enteridtoviewdetail:", "1") +
                       Out("\nschscan_scandetail_format1.\n" + rest + options));
  ExpectRun(kView, ask + Ask("\nschscan_msg_enteridtoviewdetail:", "2") +
                       Out("\nschscan_scandetail_format1.\nschscan_scandetail_format2"
                           "schscan_str_weekly.\n" +
                           rest + "schscan_msg_scanrecurring_week.\n" + options));

  harness::ResetProductDir(true);
  StoreScan(MakeScan("OddFrequency", 0));
  SetStoredColumn("OddFrequency", "frequency", 7);
  StoreScan(weekly);
  SetStoredColumn("OddDay", "week_day", 9);
  const auto run = RunScript("--view", Ask("", "n"));
  EXPECT_NE(
      run.output.find("\n1    OddFrequency     10:20:30    root             unknown.\n"
                      "2    OddDay           10:20:30    root             Weekly on unknown.\n"),
      std::string::npos)
      << run.output;
}

TEST_F(ViewScan, StoreCodesAsTheDispatcherReportsThem) {
  ExpectRun(kView, Out(""), "\nschscan_valid_scheld_config.\n");  // no task list yet
  StoreScan(MakeScan("Gone", 0));
  ExpectRun("schscan_str_args_delete",
            Ask("schscan_msg_delete_schscan:\nschscan_msg_enterscanname", "Gone"),
            "schscan_msg_scan_deleted_success.\n");
  ExpectRun(kView, Out("schscan_msg_noscan_schled.\n"));  // a task list without scans
  ASSERT_EQ(chmod(kTaskListPath, 0600), 0);
  ExpectRun(kView, Out(""), "\nScheduled scan operation failed.\n", 1);
}

TEST_F(ViewScan, WithCatalogueEveryValueShowsInEnglish) {
  harness::ResetProductDir(true);
  SeedFourScans();
  const auto run = RunScript("--view", Ask("", "y") + Ask("", "2"));
  EXPECT_EQ(run.exitStatus, 0);
  const std::string banner = "Use of this program is subject to the Korvane licence agreement.\n\n";
  ASSERT_NE(run.output.find(banner), std::string::npos);
  EXPECT_EQ(run.output.substr(run.output.find(banner) + banner.size()),
            "Scheduled scans:\n"
            "No.  Scheduled scan   Time        Owner            Frequency\n"
            "1    Daily15charName  10:20:30    root             Daily.\n"
            "2    Weekly16charName\n"
            "                      10:20:30    daemon           Weekly on Monday.\n"
            "3    Boot             First boot  unknown          Daily.\n"
            "4    BootWeekly       First boot  daemon           Weekly on Saturday.\n"
            "\nView the details of a scheduled scan (Y/n):"
            "\nEnter the number of the scheduled scan:\n"
            "Scan name                 Weekly16charName.\n"
            "Scan frequency            Weekly.\n"
            "Day of the week           Monday.\n"
            "Scan time                 10:20:30.\n"
            "The scan runs every 2 week(s).\n"
            "Scanner options           \n"
            "Action on infected files  \n"
            "\tRepair, and delete what cannot be repaired.\n"
            "Directories to scan       \n"
            "\t" +
                MakeDir("a") + "\n");
}

}  // namespace
