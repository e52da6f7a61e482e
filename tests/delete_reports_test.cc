// Whole-program cases of the delete-reports command: the menu, each choice
// and its questions, ownership, the index rewritten less exactly what was
// deleted, and hostile entries that must not make the tool remove anything
// outside the reports directory.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "product_paths.h"
#include "tests/harness.h"
#include "testing/lock_free_appender.h"
#include "testing/scan_fixtures.h"

namespace {

namespace fs = std::filesystem;
using harness::ReadFile;

const std::string kKeyBanner =
    "\nschscan_str_toolname\ntul_zvcopyright_string\ntul_zvcopyright_footer\n\n";
const std::string kCommand = "schscan_args_delrpt";
const std::string kKeyMenu =
    "schscan_str_deletereports:\n"
    "\t1. schscan_str_deltereportsforschedulescan.\n"
    "\t2. schscan_str_verbosedelete.\n"
    "\t3. schscan_str_deleteall.\n"
    "\t4. schscan_str_exit.\n";
const std::string kChoicePrompt = "cli_usrInput_menuNumber";
const std::string kNamePrompt = "\nEnter scheduled scan name:";
const std::string kKeyBlock =
    "\nschscan_rpt_schdscan\nschscan_rpt_date_format\n\nschscan_confirm_delete:";
const std::string kDeleted = "schscan_msg_rpt_deleted.\n";

struct Report {
  std::string path;
  tagSCAN_REPORT_ENTRY entry;
};

Report Add(const std::string& scanName, std::uint32_t userId, const std::string& dateTime = "d") {
  const std::string path = scan_service::AddReport(scanName, dateTime, userId, scanName + "\n");
  EXPECT_FALSE(path.empty());
  return {path, scan_service::MakeReportEntry(scanName, dateTime, path, userId)};
}

// The index that a rewrite leaves with exactly `reports`.
std::string IndexOf(const std::vector<Report>& reports) {
  std::string bytes(8, '\0');
  const auto count = static_cast<std::uint32_t>(reports.size());
  for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<char>(count >> (8 * i)));
  bytes.append(7, '\0');
  for (const Report& report : reports)
    bytes.append(reinterpret_cast<const char*>(&report.entry), sizeof report.entry);
  return bytes;
}

harness::RunResult RunDelete(const std::string& input, std::optional<uid_t> user = std::nullopt,
                             const std::string& word = kCommand) {
  harness::RunOptions options;
  options.args = {word};
  options.input = input;
  options.user = user;
  return harness::RunTool(options);
}

void ExpectOutput(const harness::RunResult& run, const std::string& afterBanner) {
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_FALSE(run.timedOut);
  EXPECT_EQ(run.output, kKeyBanner + afterBanner);
}

std::vector<bool> Existing(const std::vector<Report>& reports) {
  std::vector<bool> exists;
  for (const Report& report : reports) exists.push_back(fs::exists(report.path));
  return exists;
}

TEST(DeleteReports, MenuRulesAndLeaving) {
  harness::ResetProductDir(false);
  ExpectOutput(RunDelete("x\n0\n5\n 1\n4\n"),
               kKeyMenu + kChoicePrompt + "schscan_valid_number_int.\n" + kChoicePrompt +
                   "schscan_valid_menunumber.\n" + kChoicePrompt + "schscan_valid_menunumber.\n" +
                   kChoicePrompt + "schscan_valid_number_int.\n" + kChoicePrompt);
  EXPECT_FALSE(fs::exists(kReportIndexPath));
}

TEST(DeleteReports, MissingOrEmptyIndex) {
  harness::ResetProductDir(false);
  scantest::StoreScan(scantest::MakeScan("Daily"));
  const std::string missing = "schscan_msg_noreportstoview.\n";  // 1001, from the dispatcher
  ExpectOutput(RunDelete("3\n"), kKeyMenu + kChoicePrompt + missing);
  ExpectOutput(RunDelete("1\nDaily\n"), kKeyMenu + kChoicePrompt + kNamePrompt + missing);
  harness::WriteFile(kReportIndexPath, std::string(19, '\0'), 0666);
  for (const char* choice : {"1\nDaily\n", "2\n", "3\n"}) {
    const std::string prompts = kChoicePrompt + (choice[0] == '1' ? kNamePrompt : "");
    ExpectOutput(RunDelete(choice), kKeyMenu + prompts + "schscan_str_noreportstodelete.\n");
  }
  harness::WriteFile(kReportIndexPath, std::string(18, '\0'), 0666);
  ExpectOutput(RunDelete("2\n"), kKeyMenu + kChoicePrompt + "\nschscan_str_fileopfailed.\n");
}

TEST(DeleteReports, OneScanByNameAsRootAndAsItsOwner) {
  harness::ResetProductDir(false);
  scantest::StoreScan(scantest::MakeScan("Daily"));
  scantest::StoreScan(scantest::MakeScan("Mine", 1));
  const std::vector<Report> reports = {Add("Daily", 0), Add("Other", 0), Add("Daily", 0),
                                       Add("Daily", 0), Add("Mine", 1),  Add("Dailyx", 0)};
  // The name must pass the tool's checks and the store's.
  ExpectOutput(RunDelete("1\nDaily scan\nUnknown\nDaily\n"),
               kKeyMenu + kChoicePrompt + kNamePrompt + "schscan_valid_scanname_specialchar.\n" +
                   kNamePrompt + "schscan_valid_scanname_specialchar.\n" + kNamePrompt + kDeleted);
  EXPECT_EQ(Existing(reports), (std::vector<bool>{false, true, false, false, true, true}));
  EXPECT_EQ(ReadFile(kReportIndexPath), IndexOf({reports[1], reports[4], reports[5]}));

  ExpectOutput(RunDelete("1\nDaily\n"),
               kKeyMenu + kChoicePrompt + kNamePrompt + "schscan_msg_norptfound.\n");
  // An ordinary user cannot name another user's scan; his own works.
  ExpectOutput(RunDelete("1\nDaily\nMine\n", 1),
               kKeyMenu + kChoicePrompt + kNamePrompt + "schscan_valid_scanname_specialchar.\n" +
                   kNamePrompt + kDeleted);
  EXPECT_EQ(ReadFile(kReportIndexPath), IndexOf({reports[1], reports[5]}));
}

TEST(DeleteReports, OneByOneWithQuestions) {
  harness::ResetProductDir(false);
  const std::vector<Report> reports = {Add("A", 0), Add("B", 1), Add("C", 0), Add("D", 0)};
  // Root is asked about every entry: yes, 'x' then no, yes (the default), no.
  ExpectOutput(RunDelete("2\ny\nx\nno\n\nN\n"),
               kKeyMenu + kChoicePrompt + kKeyBlock + kKeyBlock + "schscan_valid_options.\n" +
                   kKeyBlock + kKeyBlock + kKeyBlock + kDeleted);
  EXPECT_EQ(Existing(reports), (std::vector<bool>{false, true, false, true}));
  EXPECT_EQ(ReadFile(kReportIndexPath), IndexOf({reports[1], reports[3]}));

  // Every answer no: nothing after the last question, the index untouched.
  struct stat before {};
  ASSERT_EQ(stat(kReportIndexPath, &before), 0);
  ExpectOutput(RunDelete("2\nn\nn\n"), kKeyMenu + kChoicePrompt + kKeyBlock + kKeyBlock);
  struct stat after {};
  ASSERT_EQ(stat(kReportIndexPath, &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
  // User 1 is asked about his one entry only; user 65534 about none.
  ExpectOutput(RunDelete("2\nyes\n", 1), kKeyMenu + kChoicePrompt + kKeyBlock + kDeleted);
  ExpectOutput(RunDelete("2\n", 65534), kKeyMenu + kChoicePrompt);
  EXPECT_EQ(ReadFile(kReportIndexPath), IndexOf({reports[3]}));
}

TEST(DeleteReports, AllOfTheCallersReportsOthersStayByteIdentical) {
  harness::ResetProductDir(false);
  std::vector<Report> reports = {Add("A", 1), Add("B", 0), Add("C", 1), Add("D", 1),
                                 Add("E", 65534)};
  // Another user's entry with strings that have no terminator.
  Report odd{"", {}};
  std::memset(&odd.entry, 'q', sizeof odd.entry);
  odd.entry.dwUserId = 65534;
  ASSERT_TRUE(scan_service::AppendReportEntry(odd.entry));
  reports.push_back(odd);

  ExpectOutput(RunDelete("3\n", 1), kKeyMenu + kChoicePrompt + kDeleted);
  EXPECT_EQ(Existing({reports[0], reports[1], reports[2], reports[3], reports[4]}),
            (std::vector<bool>{false, true, false, false, true}));
  EXPECT_EQ(ReadFile(kReportIndexPath), IndexOf({reports[1], reports[4], reports[5]}));

  const std::string before = ReadFile(kReportIndexPath);
  ExpectOutput(RunDelete("3\n", 1), kKeyMenu + kChoicePrompt + "schscan_msg_norptfound.\n");
  EXPECT_EQ(ReadFile(kReportIndexPath), before);

  ExpectOutput(RunDelete("3\n"), kKeyMenu + kChoicePrompt + kDeleted);
  EXPECT_EQ(ReadFile(kReportIndexPath), std::string(19, '\0'));
  EXPECT_FALSE(fs::exists(reports[1].path));
  EXPECT_TRUE(fs::is_empty(kReportsDir) ||
              fs::directory_iterator(kReportsDir)->path() == kReportIndexPath);
}

TEST(DeleteReports, HostileEntriesRemoveNothingOutsideTheReportsDirectory) {
  harness::ResetProductDir(false);
  const std::string product = kProductDir;
  const std::string reports = std::string(kReportsDir) + "/";
  harness::WriteFile(product + "/victim", "keep\n", 0666);
  harness::WriteFile(product + "/victim2", "keep\n", 0666);
  fs::create_symlink(product + "/victim2", reports + "link.rpt");
  const std::string meta = reports + "a;rm -f victim;b";
  harness::WriteFile(meta, "odd name\n", 0666);
  const std::vector<std::string> paths = {
      product + "/victim",
      reports + "../victim",
      reports + "link.rpt",
      meta,
      "$(rm -f " + product + "/victim2)",
      reports + std::string(1023 - reports.size(), 'L'),
      std::string(1024, '/'),  // no terminator in the field
  };
  for (const std::string& path : paths) {
    auto entry = scan_service::MakeReportEntry("Hostile", "now", "", 0);
    std::memcpy(entry.szReportPath, path.data(), path.size());
    ASSERT_TRUE(scan_service::AppendReportEntry(entry));
  }
  ExpectOutput(RunDelete("3\n"), kKeyMenu + kChoicePrompt + kDeleted);
  EXPECT_EQ(ReadFile(product + "/victim"), "keep\n");
  EXPECT_EQ(ReadFile(product + "/victim2"), "keep\n");
  EXPECT_FALSE(fs::is_symlink(reports + "link.rpt"));
  EXPECT_FALSE(fs::exists(meta));  // a plain, if odd, name in the directory
  EXPECT_EQ(ReadFile(kReportIndexPath), std::string(19, '\0'));
}

TEST(DeleteReports, WithTheCatalogue) {
  harness::ResetProductDir(true);
  const std::vector<Report> reports = {Add("Weekly", 0, "Mon 10:00"), Add("Daily", 0, "Tue 11:00")};
  const auto run = RunDelete("2\nn\ny\n", std::nullopt, "--delreports");
  EXPECT_EQ(run.exitStatus, 0);
  const std::string expected =
      "Delete scan reports:\n"
      "\t1. Delete the reports of one scheduled scan.\n"
      "\t2. Delete reports one by one.\n"
      "\t3. Delete all reports.\n"
      "\t4. Exit.\n"
      "Enter your choice:"
      "\nScheduled scan : Weekly\nDate and time  : Mon 10:00\n\nDelete this report (Y/n):"
      "\nScheduled scan : Daily\nDate and time  : Tue 11:00\n\nDelete this report (Y/n):"
      "1 report(s) deleted.\n";
  EXPECT_EQ(run.output.substr(run.output.find("Delete scan reports:")), expected);
  EXPECT_EQ(run.output.find("schscan_"), std::string::npos);
  EXPECT_EQ(ReadFile(kReportIndexPath), IndexOf({reports[0]}));
}

}  // namespace
