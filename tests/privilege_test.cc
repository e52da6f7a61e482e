// The installed privilege model, on a real `cmake --install` of this build
// into a scratch prefix (the product files go to the build's product
// directory). The group is a numeric id that no group file names, so nothing
// is added to the system. Needs root: ordinary users are other user ids.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "product_paths.h"
#include "tests/harness.h"
#include "testing/lock_free_appender.h"
#include "testing/scan_fixtures.h"

namespace {

namespace fs = std::filesystem;

constexpr gid_t kToolGroup = 54321;
constexpr uid_t kNobody = 65534;
constexpr uid_t kDaemon = 1;
const std::string kPrefix = std::string(kProductDir) + "-prefix";
const std::string kInstalledTool = kPrefix + "/bin/schscan";

// Installs afresh; `group` is what SCHSCAN_GROUP says at install time.
void Install(const std::string& group) {
  fs::remove_all(kProductDir);
  fs::remove_all(kPrefix);
  const std::string install = "SCHSCAN_GROUP='" + group + "' '" CMAKE_COMMAND "' --install '" +
                              BUILD_DIR + "' --prefix '" + kPrefix + "' > /dev/null";
  ASSERT_EQ(std::system(install.c_str()), 0) << install;
}

harness::RunResult RunInstalled(const std::string& word, const std::string& input,
                                std::optional<uid_t> user,
                                std::function<void(pid_t, const std::string&)> watch = {}) {
  harness::RunOptions options;
  options.program = kInstalledTool;
  options.args = {word};
  options.input = input;
  options.user = user;
  options.watchOutput = std::move(watch);
  const harness::RunResult run = harness::RunTool(options);
  EXPECT_EQ(run.exitStatus, 0) << run.output.substr(0, 4096);
  return run;
}

// Runs `word` and expects `text` in what it printed.
void ExpectRun(const std::string& word, const std::string& input, std::optional<uid_t> user,
               const std::string& text) {
  const harness::RunResult run = RunInstalled(word, input, user);
  EXPECT_NE(run.output.find(text), std::string::npos)
      << word << " as " << (user ? *user : 0) << ":\n"
      << run.output;
}

// A daily scan at 10:20:30 every 2 days, four options, report only, one
// directory, confirmed.
std::string AddInput(const std::string& name) {
  return name + "\n1\nn\n10\n20\n30\n2\nn\ny\ny\ny\ny\n4\n" + testing_support::ScanDir("a") + "\nn\ny\n";
}

// Those of `paths` that `user`, without any group but its own, can open for
// reading or for writing (creating it), a line each.
std::string OpenableBy(uid_t user, const std::vector<std::string>& paths) {
  harness::RunOptions options;
  options.program = "/bin/sh";
  options.args = {"-c", "for f; do (exec 3<\"$f\") 2>/dev/null && echo \"read $f\";"
                        " (exec 3>>\"$f\") 2>/dev/null && echo \"write $f\"; done", "sh"};
  options.args.insert(options.args.end(), paths.begin(), paths.end());
  options.user = user;
  return harness::RunTool(options).output;
}

std::string ModeAndGroup(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return "missing";
  std::ostringstream text;
  text << std::oct << (status.st_mode & 07777) << std::dec << " " << status.st_gid;
  return text.str();
}

// The "Gid:" and "Groups:" lines of a process.
std::string GroupLines(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  std::string lines;
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("Gid:", 0) != 0 && line.rfind("Groups:", 0) != 0) continue;
    lines += line.substr(0, line.find_last_not_of(" \t") + 1) + "\n";
  }
  return lines;
}

pid_t ChildOf(pid_t parent) {
  const std::string task = "/proc/" + std::to_string(parent) + "/task/" + std::to_string(parent);
  pid_t child = -1;
  std::ifstream(task + "/children") >> child;
  return child;
}

class Privileges : public testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root to install and to take on other user ids";
  }
};

// A sanitized tool cannot run setgid for an ordinary user: its leak check at
// exit cannot inspect a process that is not dumpable, and ends it with status
// 1 before standard output is written out.
constexpr bool kSetgidRunsCleanly = !SCHSCAN_SANITIZED;

TEST_F(Privileges, OrdinaryUsersReachScansAndReportsThroughTheToolOnly) {
  if (!kSetgidRunsCleanly) GTEST_SKIP() << "a sanitized tool cannot end cleanly as setgid";
  Install(std::to_string(kToolGroup));
  EXPECT_EQ(ModeAndGroup(kInstalledTool), "2755 54321");
  EXPECT_EQ(ModeAndGroup(kProductDir), "755 54321");
  EXPECT_EQ(ModeAndGroup(kReportsDir), "2770 54321");
  const std::string storeDir = std::string(kProductDir) + "/store";
  EXPECT_EQ(ModeAndGroup(storeDir), "2770 54321");
  EXPECT_EQ(fs::read_symlink(kTaskListPath), "store/tsklst.inf");
  // The group may write the store's and the reports' directories only: not
  // where the tool's library, its catalogue or the store's link lie.
  for (const auto& entry : fs::recursive_directory_iterator(kProductDir)) {
    struct stat status {};
    ASSERT_EQ(lstat(entry.path().c_str(), &status), 0);
    const std::string path = entry.path();
    if (path.starts_with(storeDir) || path.starts_with(kReportsDir)) continue;
    EXPECT_FALSE(S_ISLNK(status.st_mode) ? status.st_uid != 0 : (status.st_mode & S_IWGRP) != 0)
        << path;
  }

  // Root uses the store first; an ordinary user can add after it.
  ExpectRun("--add", AddInput("RootScan"), std::nullopt, "The scheduled scan RootScan was added");
  ExpectRun("--add", AddInput("NobodyScan"), kNobody, "The scheduled scan NobodyScan was added");
  ExpectRun("--add", AddInput("DaemonScan"), kDaemon, "The scheduled scan DaemonScan was added");
  const harness::RunResult view = RunInstalled("--view", "n\n", kNobody);
  EXPECT_NE(view.output.find("NobodyScan"), std::string::npos) << view.output;
  EXPECT_EQ(view.output.find("DaemonScan"), std::string::npos) << view.output;
  EXPECT_EQ(testing_support::DescribeStored("NobodyScan"),
            "NobodyScan u65534 f0 d0 b0 10:20:30 r2 p0/0/0 o15 a3 [a]");
  ExpectRun("--delete", "NobodyScan\n", kNobody, "The scheduled scan was deleted");
  EXPECT_EQ(testing_support::DescribeStored("NobodyScan"), "NobodyScan none");
  EXPECT_NE(testing_support::DumpStore().find("DaemonScan u1 "), std::string::npos);

  // Reports as the scan service (root) writes them.
  const std::string mine = testing_support::AddReport("NobodyScan", "d1", kNobody, "nobody's\n");
  const std::string daemons = testing_support::AddReport("DaemonScan", "d2", kDaemon, "daemon's\n");
  testing_support::AddReport("NobodyScan", "d3", kNobody, "nobody's too\n");
  ExpectRun("--reports", "y\n1\n", kNobody, "nobody's\n");
  ExpectRun("--delreports", "3\n", kNobody, "2 report(s) deleted");
  EXPECT_FALSE(fs::exists(mine));
  EXPECT_TRUE(fs::exists(daemons));
  ExpectRun("--reports", "y\n1\n", kDaemon, "daemon's\n");

  // No scan or report can be opened by an ordinary user directly: neither
  // what the install made nor what the tool made for that user. (The
  // library and the catalogue are for everyone to read.)
  std::vector<std::string> paths = {kTaskListPath, kReportIndexPath, daemons,
                                    std::string(kProductDir) + "/planted",
                                    std::string(kReportsDir) + "/planted"};
  for (const std::string& data : {storeDir, std::string(kReportsDir)})
    for (const auto& entry : fs::recursive_directory_iterator(data))
      if (entry.is_regular_file()) paths.push_back(entry.path());
  for (const uid_t user : {kNobody, kDaemon}) EXPECT_EQ(OpenableBy(user, paths), "") << user;
  EXPECT_FALSE(fs::exists(std::string(kProductDir) + "/planted"));
}

// `more` is started for the user, so it must not keep the tool's group in
// any of its group ids, nor hold the report file (through which its shell
// escape could write the report or link it out of the closed directory): it
// reads a pipe. A report longer than the output pipe holds keeps the pager
// running while it is looked at.
TEST_F(Privileges, PagerRunsWithoutTheToolsGroupOrTheReportFile) {
  if (!kSetgidRunsCleanly) GTEST_SKIP() << "a sanitized tool cannot end cleanly as setgid";
  Install(std::to_string(kToolGroup));
  testing_support::AddReport("NobodyScan", "d1", kNobody,
                          "first line of the report\n" + std::string(1 << 20, 'x') + "\n");
  std::string toolGroups;
  std::string pagerGroups;
  std::string pagerInput;
  RunInstalled("--reports", "y\n1\n", kNobody, [&](pid_t tool, const std::string& output) {
    if (!pagerGroups.empty() || output.find("first line of the report") == std::string::npos)
      return;
    toolGroups = GroupLines(tool);
    const pid_t pager = ChildOf(tool);
    pagerGroups = pager > 0 ? GroupLines(pager) : "no pager";
    pagerInput = fs::read_symlink("/proc/" + std::to_string(pager) + "/fd/0").string();
  });
  EXPECT_EQ(toolGroups, "Gid:\t65534\t54321\t54321\t54321\nGroups:\n");  // the test's premise
  EXPECT_EQ(pagerGroups, "Gid:\t65534\t65534\t65534\t65534\nGroups:\n");
  EXPECT_TRUE(pagerInput.starts_with("pipe:")) << pagerInput;
}

}  // namespace
