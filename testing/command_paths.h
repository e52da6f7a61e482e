// Paths through the six commands, one table per command in testing/paths/
// (its README gives the format): the prompts a user meets in order, the
// answer typed at each, and what the run leaves behind. The command path
// test runs every path and checks each prompt and the outcome, and ends every
// path at every prompt, by the end of input and by Ctrl-C.
// The tool runs without the catalogue, so every text is its key.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace testing_support {

struct Step {
  std::string prompt;  // how the output ends when the tool waits for the answer
  std::string answer;  // typed, with a line feed, or one of the two keys below
};

inline const std::string kNoAnswer = "\x04";   // Ctrl-D: the input ends there
inline const std::string kInterrupt = "\x03";  // Ctrl-C: SIGINT there

struct CommandPath {
  std::string what;
  std::string command;  // the command word: a command key
  std::uint32_t user = 0;
  std::vector<std::string> seed;  // changes to the standard seed, applied in order
  std::vector<Step> steps;
  std::string after;   // exactly what is printed after the last answer
  std::string errors;  // exactly what goes to standard error
  // The outcome; when both are empty, the store and the index are unchanged.
  std::string scan;     // Describe of the stored scan this names ("NAME none": no such scan)
  std::string reports;  // ReportsState after the run
};

// The paths of every table of testing/paths/, table by table, read once.
const std::vector<CommandPath>& AllPaths();

// Seeds the product directory as the path starts from: the standard seed
// (SeedScansAndReports), then the path's own changes.
void SeedFor(const CommandPath& path);

// For TEST_P over the paths: each is named after its command word's last part
// (add, view, modify, delete, reports, delrpt) and what it does.
using PathTest = testing::TestWithParam<CommandPath>;
inline void PrintTo(const CommandPath& path, std::ostream* out) { *out << path.what; }
std::string PathName(const testing::TestParamInfo<CommandPath>& info);

}  // namespace testing_support
