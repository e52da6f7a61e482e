// Whole-program cases of the entry and dispatch: argument count, command
// words, help, and the language fixed whatever the environment says.
#include <gtest/gtest.h>

#include "tests/harness.h"

namespace {

using harness::RunTool;

std::string KeyBanner() {
  return "\nschscan_str_toolname\ntul_zvcopyright_string\ntul_zvcopyright_footer\n\n";
}

std::string KeyUsage() {
  return "schscan_msg_usagestr\nschscan_str_option :\n"
         "\t--schscan_str_help\t\tschscan_msg_help_display.\n"
         "\t--schscan_str_add\t\tschscan_str_addnewscan.\n"
         "\t--schscan_str_view\t\tschscan_str_view_schldscn.\n"
         "\t--schscan_str_modify\tschscan_msg_modify_existingscan.\n"
         "\t--schscan_str_delete\tschscan_msg_delete_schscan.\n"
         "\t--schscan_str_report\tschscan_msg_view_scan_report.\n"
         "\t--schscan_str_deleterpt\tschscan_msg_delete_scan_report.\n";
}

TEST(Dispatch, WithoutCatalogueWordsAreKeys) {
  harness::ResetProductDir(false);
  struct Case {
    std::vector<std::string> args;
    int exitStatus;
  } cases[] = {
      {{}, 255},
      {{"schscan_str_args_help", "extra"}, 255},
      {{"--help"}, 255},  // without the catalogue the word is the key itself
      {{"schscan_str_args_HELP"}, 255},
      {{"schscan_str_args_help"}, 0},
  };
  for (const Case& c : cases) {
    const auto run = RunTool(c.args);
    EXPECT_EQ(run.exitStatus, c.exitStatus) << testing::PrintToString(c.args);
    EXPECT_EQ(run.output, KeyBanner() + KeyUsage()) << testing::PrintToString(c.args);
  }
}

TEST(Dispatch, WithCatalogueSpeaksEnglishWhateverTheEnvironment) {
  harness::ResetProductDir(true);
  const std::string english =
      "\nKorvane Scheduled Scan Manager\n"
      "Copyright (C) 2026 Korvane. All rights reserved.\n"
      "Use of this program is subject to the Korvane licence agreement.\n\n"
      "Usage: " + harness::ToolPath() + " <option>\nOptions :\n"
      "\t--help\t\tDisplay this help.\n"
      "\t--add\t\tAdd a new scheduled scan.\n"
      "\t--view\t\tView the scheduled scans.\n"
      "\t--modify\tModify an existing scheduled scan.\n"
      "\t--delete\tDelete a scheduled scan.\n"
      "\t--reports\tView scan reports.\n"
      "\t--delreports\tDelete scan reports.\n";
  for (const std::vector<std::string>& environment :
       {std::vector<std::string>{},
        {"LANGUAGE=fr:de", "LANG=de_DE.UTF-8", "LC_ALL=C", "LC_MESSAGES=fr_FR.UTF-8"}}) {
    harness::RunOptions options;
    options.args = {"--help"};
    options.extraEnvironment = environment;
    const auto run = RunTool(options);
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.output, english);
  }
  for (const char* wrong : {"--HELP", "--Help", "help", "schscan_str_args_help"}) {
    const auto run = RunTool({wrong});
    EXPECT_EQ(run.exitStatus, 255) << wrong;
    EXPECT_EQ(run.output, english) << wrong;
  }
}

// Ctrl-C and the end of input at a prompt end the command with the line
// break and exit status 0, all earlier output intact and in order.
TEST(Dispatch, InterruptAndEndOfInputAtAPrompt) {
  struct Case {
    bool withCatalogue;
    const char* word;
    const char* prompt;
  } cases[] = {
      {false, "schscan_str_args_delete",
       "schscan_msg_delete_schscan:\nschscan_msg_enterscanname"},
      {true, "--delete", "Delete a scheduled scan:\nEnter the scheduled scan name: "},
  };
  for (const Case& c : cases) {
    harness::ResetProductDir(c.withCatalogue);
    harness::RunOptions options;
    options.args = {c.word};
    options.interruptAfter = c.prompt;
    const auto interrupted = RunTool(options);
    const auto ended = RunTool({c.word});
    for (const auto& run : {interrupted, ended}) {
      EXPECT_EQ(run.exitStatus, 0) << c.word;
      ASSERT_GE(run.output.size(), std::string(c.prompt).size() + 1) << c.word;
      EXPECT_EQ(run.output.substr(run.output.size() - std::string(c.prompt).size() - 1),
                std::string(c.prompt) + "\n")
          << c.word;
    }
  }
}

}  // namespace
