// Ctrl-C or the end of input at any prompt of the scheduled scan commands
// ends the tool with a line break and exit status 0, and stores nothing.
#include <gtest/gtest.h>

#include "testing/scan_fixtures.h"

namespace {

using namespace scantest;

TEST(ScanCommandsInterrupted, LeaveTheStoreAsItWas) {
  harness::ResetProductDir(false);
  StoreScan(MakeScan("Scan1", 0));
  const std::string before = DumpStore();
  const std::string dir = MakeDir("b");
  struct Case {
    const char* command;
    std::string input;
    std::string stopsAfter;
    bool ctrlC;
  } cases[] = {
      {"schscan_str_args_add", "New\n1\n", "\nschscan_msg_firstbootscan:", true},
      {"schscan_str_args_add", "New\n1\nn\n10\n20\n30\n2\nn\ny\nn\nn\nn\n1\n" + dir + "\nn\n",
       "\nschscan_confirm_add_schscan:", false},
      {"schscan_str_args_modify", "Scan1\ny\n2\n3\nn\nn\n4\nn\nn\nn\n",
       "schddmn_confirm_deletescanitem:", true},
      {"schscan_str_args_modify", "Scan1\ny\n2\n", "schscan_enter_weekday:", false},
      {"schscan_str_args_modify", "Scan1\nn\nn\nn\nn\nn\nn\nn\ny\n",
       "schscan_confirm_addmore_dir:", false},
      {"schscan_str_args_delete", "", "schscan_msg_enterscanname", true},
      {"schscan_str_args_view", "y\n", "\nschscan_msg_enteridtoviewdetail:", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.command) + " at " + c.stopsAfter);
    harness::RunOptions options;
    options.args = {c.command};
    options.input = c.input;
    if (c.ctrlC) options.interruptAfter = c.stopsAfter;
    const harness::RunResult run = harness::RunTool(options);
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_FALSE(run.timedOut);
    const std::string end = c.stopsAfter + "\n";
    ASSERT_GE(run.output.size(), end.size());
    EXPECT_EQ(run.output.substr(run.output.size() - end.size()), end) << run.output;
    EXPECT_EQ(DumpStore(), before);
  }
}

}  // namespace
