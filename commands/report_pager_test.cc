#include "commands/report_pager.h"

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "product_paths.h"
#include "testing/scan_fixtures.h"

namespace {

namespace fs = std::filesystem;

void SomeHandler(int) {}

// Runs `show` in a child process with standard output sent to a file;
// returns what it printed.
template <typename Show>
std::string Output(Show show) {
  const fs::path file = fs::path(kProductDir) / "out";
  const pid_t child = fork();
  if (child == 0) {
    const int out = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (out < 0 || dup2(out, STDOUT_FILENO) < 0) _exit(1);
    show();
    std::fflush(stdout);
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  std::stringstream text;
  text << std::ifstream(file).rdbuf();
  return text.str();
}

// The tool's own output comes first, and its SIGINT handler is back once
// the pager has ended.
TEST(ReportPager, ShowsAfterWhatWasPrintedAndGivesTheKeysBack) {
  testing_support::ResetProduct();
  const fs::path report = fs::path(kReportsDir) / "schd0001.rpt";
  std::ofstream(report) << "report text\n";
  const std::string output = Output([&] {
    struct sigaction handler {};
    handler.sa_handler = SomeHandler;
    sigemptyset(&handler.sa_mask);
    sigaction(SIGINT, &handler, nullptr);
    std::fputs("before\n", stdout);  // still buffered when the pager starts
    ReportsDirectory reports;
    ShowReportInPager(report.c_str(), reports);
    struct sigaction now {};
    sigaction(SIGINT, nullptr, &now);
    if (now.sa_handler != SomeHandler) _exit(2);
  });
  EXPECT_EQ(output, "before\nreport text\n");
}

// A setgid tool: the reports directory is reachable through its group only,
// and the pager gets nothing but plain reports.
TEST(ReportPager, PrivilegedToolPagesOnlyPlainReportsFromStandardInput) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to take on other ids";
  testing_support::ResetProduct();
  const fs::path reports = kReportsDir;
  std::ofstream(reports / "schd0001.rpt") << "the report\n";
  std::ofstream(fs::path(kProductDir) / "secret") << "not for users\n";
  fs::create_symlink(fs::path(kProductDir) / "secret", reports / "link.rpt");
  ASSERT_EQ(chown(reports.c_str(), 0, 4242), 0);
  ASSERT_EQ(chmod(reports.c_str(), 0770), 0);
  const std::string output = Output([&] {
    if (setgroups(0, nullptr) != 0 || setresgid(1, 4242, 4242) != 0 || setresuid(1, 1, 1) != 0)
      _exit(3);
    ReportsDirectory directory;
    for (const fs::path& path : {reports / "schd0001.rpt", reports / "link.rpt",
                                 fs::path(kProductDir) / "secret", reports / ".." / "secret"})
      ShowReportInPager(path.c_str(), directory);
  });
  EXPECT_EQ(output, "the report\n");
}

}  // namespace
