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
