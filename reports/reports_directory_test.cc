#include "reports/reports_directory.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "product_paths.h"
#include "testing/scan_fixtures.h"

namespace {

namespace fs = std::filesystem;

// Only a regular file with one plain name directly inside the directory is
// ever opened or removed; not a symbolic link, the index or its temporaries.
TEST(ReportsDirectory, ReachesOnlyPlainNamesDirectlyInside) {
  testing_support::ResetProduct();
  const fs::path product = kProductDir;
  const fs::path reports = kReportsDir;
  fs::create_directories(reports / "sub");
  fs::create_directories(product / "reportsx");
  for (const fs::path& file : {product / "outside", reports / "plain.rpt", reports / "b.rpt",
                               reports / "a;rm -rf x", reports / "sub" / "deep.rpt",
                               product / "reportsx" / "c.rpt"})
    std::ofstream(file) << "x";
  fs::create_symlink(product / "outside", reports / "link.rpt");
  for (const char* name : {"schdmain.rpt", ".schdmain.rpt.Ab3xY9"}) std::ofstream(reports / name) << "x";
  const struct {
    std::string path;
    bool opens;
    bool removed;
  } cases[] = {
      {reports / "plain.rpt", true, true},
      {reports / "a;rm -rf x", true, true},  // an odd name, but only a name
      {reports / "link.rpt", false, false},
      {reports / "schdmain.rpt", false, false},
      {reports / ".schdmain.rpt.Ab3xY9", false, false},
      {reports.string() + "/../outside", false, false},
      {reports / "sub" / "deep.rpt", false, false},
      {reports.string() + "//b.rpt", false, false},
      {reports.string() + "/.", false, false},
      {reports.string() + "/", false, false},
      {reports.string() + "x/c.rpt", false, false},
      {product / "outside", false, false},
      {"", false, false},
  };
  ReportsDirectory directory;
  for (const auto& c : cases) {
    const int fd = directory.OpenReport(c.path.c_str());
    EXPECT_EQ(fd >= 0, c.opens) << c.path;
    if (fd >= 0) close(fd);
  }
  for (const auto& c : cases) directory.RemoveReport(c.path.c_str());
  for (const auto& c : cases) {
    const bool gone = !fs::is_symlink(c.path) && !fs::exists(c.path);
    EXPECT_EQ(gone, c.removed || c.path.empty()) << c.path;
  }
  EXPECT_TRUE(fs::exists(product / "outside"));

  // A reports directory that is itself a symbolic link is not followed.
  fs::remove_all(reports);
  fs::create_directory_symlink(product / "elsewhere", reports);
  fs::create_directory(product / "elsewhere");
  std::ofstream(product / "elsewhere" / "r.rpt") << "x";
  ReportsDirectory throughLink;
  EXPECT_LT(throughLink.OpenReport((reports / "r.rpt").c_str()), 0);
  throughLink.RemoveReport((reports / "r.rpt").c_str());
  EXPECT_TRUE(fs::exists(product / "elsewhere" / "r.rpt"));
}

}  // namespace
