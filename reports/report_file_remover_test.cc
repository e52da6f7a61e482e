#include "reports/report_file_remover.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;

TEST(PlainReportFileName, OnlyOneNameDirectlyInsideTheDirectory) {
  struct Case {
    const char* path;
    const char* name;  // nullptr: refused
  } cases[] = {
      {"/p/reports/schd0731.rpt", "schd0731.rpt"},
      {"/p/reports/a;rm -rf x", "a;rm -rf x"},  // an odd name, but only a name
      {"/p/reports/a..b", "a..b"},
      {"/p/reports/", nullptr},
      {"/p/reports", nullptr},
      {"/p/reports/.", nullptr},
      {"/p/reports/..", nullptr},
      {"/p/reports/../etc/passwd", nullptr},
      {"/p/reports/sub/x", nullptr},
      {"/p/reports//x", nullptr},
      {"/p/reportsx/a", nullptr},
      {"/p/report/a", nullptr},
      {"reports/a", nullptr},
      {"/etc/passwd", nullptr},
      {"", nullptr},
  };
  for (const Case& c : cases) {
    const char* name = PlainReportFileName(c.path, "/p/reports");
    if (c.name == nullptr) {
      EXPECT_EQ(name, nullptr) << c.path;
    } else {
      EXPECT_STREQ(name, c.name) << c.path;
    }
  }
}

TEST(ReportFileRemover, RemovesNothingOutsideTheDirectory) {
  char scratch[] = "/tmp/report_file_remover_test.XXXXXX";
  ASSERT_NE(mkdtemp(scratch), nullptr);
  const fs::path root = scratch;
  const fs::path reports = root / "reports";
  fs::create_directories(reports / "sub");
  for (const fs::path& file :
       {root / "outside", reports / "plain.rpt", reports / "sub" / "deep.rpt"})
    std::ofstream(file) << "x";
  fs::create_symlink(root / "outside", reports / "link.rpt");

  ReportFileRemover remover(reports.string());
  for (const std::string name : {"plain.rpt", "link.rpt", "../outside", "sub/deep.rpt", "gone"})
    remover.Remove((reports.string() + "/" + name).c_str());
  remover.Remove((root / "outside").c_str());

  EXPECT_FALSE(fs::exists(reports / "plain.rpt"));
  EXPECT_FALSE(fs::is_symlink(reports / "link.rpt"));  // the link goes, not its target
  EXPECT_TRUE(fs::exists(root / "outside"));
  EXPECT_TRUE(fs::exists(reports / "sub" / "deep.rpt"));

  // A reports directory that is itself a symbolic link is not followed.
  const fs::path linkedReports = root / "linked";
  fs::create_directory_symlink(reports / "sub", linkedReports);
  ReportFileRemover throughLink(linkedReports.string());
  throughLink.Remove((linkedReports / "deep.rpt").c_str());
  EXPECT_TRUE(fs::exists(reports / "sub" / "deep.rpt"));
  fs::remove_all(root);
}

}  // namespace
