#include "reports/report_pager.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

namespace fs = std::filesystem;

void CountingHandler(int) {}

// Runs `show` with standard output sent to a file; returns what it printed.
template <typename Show>
std::string CaptureOutput(const fs::path& file, Show show) {
  std::fflush(stdout);
  const int saved = dup(STDOUT_FILENO);
  const int out = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  dup2(out, STDOUT_FILENO);
  close(out);
  show();
  std::fflush(stdout);
  dup2(saved, STDOUT_FILENO);
  close(saved);
  std::stringstream text;
  text << std::ifstream(file).rdbuf();
  return text.str();
}

TEST(ReportPager, PathIsOneArgumentOutputStaysInOrderHandlerComesBack) {
  char scratch[] = "/tmp/report_pager_test.XXXXXX";
  ASSERT_NE(mkdtemp(scratch), nullptr);
  const fs::path root = scratch;
  const fs::path report = root / "a b;touch pwned";
  std::ofstream(report) << "report text\n";
  struct sigaction handler {};
  handler.sa_handler = CountingHandler;
  sigemptyset(&handler.sa_mask);
  ASSERT_EQ(sigaction(SIGINT, &handler, nullptr), 0);

  const std::string output = CaptureOutput(root / "out", [&] {
    std::fputs("before\n", stdout);  // still buffered when the pager starts
    ShowReportInPager(report.c_str());
  });
  EXPECT_EQ(output, "before\n::::::::::::::\n" + report.string() + "\n::::::::::::::\nreport text\n");
  EXPECT_FALSE(fs::exists("pwned"));
  struct sigaction now {};
  ASSERT_EQ(sigaction(SIGINT, nullptr, &now), 0);
  EXPECT_EQ(now.sa_handler, CountingHandler);
  fs::remove_all(root);
}

}  // namespace
