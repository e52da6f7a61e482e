// Golden transcripts: one English run of each command, byte for byte, kept
// as data files in tests/golden/ (NAME.in is what the user types, NAME.out
// what the tool prints). Every run starts from the same seeded store, index
// and report files. In the files, @PRODUCT_DIR@, @SCAN_DIR@ and @TOOL@ stand
// for the paths of this build. The runs ask for other languages through the
// environment, which must change nothing. SCHSCAN_RECORD_GOLDEN=1 writes the
// .out files anew from what the tool prints now.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "product_paths.h"
#include "tests/harness.h"
#include "testing/lock_free_appender.h"
#include "testing/scan_fixtures.h"

namespace {

std::string Replace(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos;
       at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
  return text;
}

std::string ScanDirRoot() {
  const std::string a = testing_support::ScanDir("a");
  return a.substr(0, a.size() - 2);
}

// Placeholders to paths, or (`back`) paths to placeholders.
std::string Substitute(std::string text, bool back) {
  const std::pair<std::string, std::string> names[] = {
      {"@SCAN_DIR@", ScanDirRoot()}, {"@TOOL@", harness::ToolPath()}, {"@PRODUCT_DIR@", kProductDir}};
  for (const auto& [placeholder, path] : names)
    text = back ? Replace(text, path, placeholder) : Replace(text, placeholder, path);
  return text;
}

void Seed() {
  harness::ResetProductDir(true);
  testing_support::ScanDir("b");
  tagSCHEDULE_SCAN_ENTRY nightly = testing_support::MakeScan("Nightly", 0);
  nightly.nHour = 2;
  nightly.nMinute = 30;
  nightly.nSecond = 0;
  nightly.nRecurEvery = 1;
  nightly.bRepeatScan = 0;
  nightly.byScanOptions = SCAN_OPT_ARCHIVE | SCAN_OPT_PACKED;
  nightly.nScanAction = ACTION_REPORT_ONLY;
  testing_support::StoreScan(nightly);
  tagSCHEDULE_SCAN_ENTRY weekly = testing_support::MakeScan("Weekly16charName", 1);
  weekly.byFrequency = FREQ_WEEKLY;
  weekly.byWeekDay = 2;
  weekly.byRepeatUnit = REPEAT_UNIT_MINUTES;
  weekly.nRepeatInterval = 90;
  weekly.byScanOptions = SCAN_OPT_SPYWARE;
  weekly.nScanAction = ACTION_REPAIR_DELETE;
  testing_support::SetDirectories(weekly, {testing_support::ScanDir("a"), testing_support::ScanDir("b")});
  testing_support::StoreScan(weekly);
  tagSCHEDULE_SCAN_ENTRY boot = testing_support::MakeScan("Boot", 0);
  boot.bFirstBootScan = 1;
  boot.byScanOptions = 0x0f;
  boot.nScanAction = ACTION_DELETE;
  testing_support::StoreScan(boot);
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
    options.extraEnvironment = {"LANGUAGE=fr:de", "LANG=de_DE.UTF-8", "LC_ALL=C",
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
