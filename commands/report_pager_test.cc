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

namespace {

namespace fs = std::filesystem;

void SomeHandler(int) {}

class ReportPagerTest : public testing::Test {
 protected:
  void SetUp() override {
    char scratch[] = "/tmp/report_pager_test.XXXXXX";
    ASSERT_NE(mkdtemp(scratch), nullptr);
    root_ = scratch;
    ASSERT_EQ(chmod(scratch, 0755), 0);
    reports_ = root_ / "reports";
    fs::create_directory(reports_);
  }
  void TearDown() override { fs::remove_all(root_); }

  // Runs `show` in a child process with standard output sent to a file;
  // returns what it printed.
  template <typename Show>
  std::string Output(Show show) {
    const fs::path file = root_ / "out";
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

  fs::path root_;
  fs::path reports_;
};

TEST_F(ReportPagerTest, PathIsOneArgumentOutputStaysInOrderHandlerComesBack) {
  const fs::path report = reports_ / "a b;touch pwned";
  std::ofstream(report) << "report text\n";
  const std::string output = Output([&] {
    struct sigaction handler {};
    handler.sa_handler = SomeHandler;
    sigemptyset(&handler.sa_mask);
    sigaction(SIGINT, &handler, nullptr);
    std::fputs("before\n", stdout);  // still buffered when the pager starts
    ShowReportInPager(report.c_str(), reports_.c_str());
    struct sigaction now {};
    sigaction(SIGINT, nullptr, &now);
    if (now.sa_handler != SomeHandler) _exit(2);
  });
  EXPECT_EQ(output,
            "before\n::::::::::::::\n" + report.string() + "\n::::::::::::::\nreport text\n");
  EXPECT_FALSE(fs::exists("pwned"));
}

// A setgid tool: the reports directory is reachable through its group only.
TEST_F(ReportPagerTest, PrivilegedToolPagesOnlyPlainReportsFromStandardInput) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to take on other ids";
  const fs::path report = reports_ / "schd0001.rpt";
  std::ofstream(report) << "the report\n";
  std::ofstream(root_ / "secret") << "not for users\n";
  fs::create_symlink(root_ / "secret", reports_ / "link.rpt");
  ASSERT_EQ(chown(reports_.c_str(), 0, 4242), 0);
  ASSERT_EQ(chmod(reports_.c_str(), 0770), 0);
  const std::string output = Output([&] {
    const gid_t toolGroup = 4242;
    if (setgroups(0, nullptr) != 0 || setresgid(1, toolGroup, toolGroup) != 0 ||
        setresuid(1, 1, 1) != 0)
      _exit(3);
    for (const fs::path& path :
         {report, reports_ / "link.rpt", root_ / "secret", reports_ / ".." / "secret"})
      ShowReportInPager(path.c_str(), reports_.c_str());
  });
  EXPECT_EQ(output, "the report\n");
}

}  // namespace
