// Paths through the six commands, one table per command in testing/paths/
// (its README gives the format): the prompts a user meets in order, the
// answer typed at each, and what the run leaves behind. The command tests run
// every path in-process and check each prompt and the outcome; the interrupt
// test ends every path at every prompt, by the end of input and by Ctrl-C.
// The tool runs without the catalogue, so every text is its key.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace testing_support {

struct Step {
  std::string prompt;  // how the output ends when the tool waits for the answer
  std::string answer;  // typed, with a line feed; kNoAnswer: the input ends there
};

inline const std::string kNoAnswer = "\x04";

struct CommandPath;
void PrintTo(const CommandPath& path, std::ostream* out);

struct CommandPath {
  std::string what;
  std::string command;  // the command word: a command key
  std::uint32_t user = 0;
  std::vector<Step> steps;
  std::string after;    // exactly what is printed after the last answer
  // The outcome; when both are empty, the store and the index are unchanged.
  std::string scan;     // Describe of the stored scan this names ("NAME none": no such scan)
  std::string reports;  // ReportsState after the run
  std::function<void()> seed = {};  // changes to the standard seed, if any
  std::string errors = {};          // exactly what goes to standard error
};

// The answers of `steps`, a line each, up to the first kNoAnswer.
std::string InputOf(const std::vector<Step>& steps);

const std::vector<CommandPath>& AddPaths();
const std::vector<CommandPath>& ModifyPaths();
const std::vector<CommandPath>& ViewPaths();
const std::vector<CommandPath>& DeletePaths();
const std::vector<CommandPath>& ViewReportsPaths();
const std::vector<CommandPath>& DeleteReportsPaths();

// Seeds (ResetProduct, SeedScansAndReports, the path's own seed), runs
// `path` in-process and checks every prompt, what follows the
// last answer, and the outcome (GoogleTest expectations).
void ExpectPath(const CommandPath& path);

// A test per path: TEST_P(Suite, Path) { ExpectPath(GetParam()); }, then
// INSTANTIATE_TEST_SUITE_P(Paths, Suite, testing::ValuesIn(table), PathName).
using PathTest = testing::TestWithParam<CommandPath>;
inline void PrintTo(const CommandPath& path, std::ostream* out) { *out << path.what; }
std::string PathName(const testing::TestParamInfo<CommandPath>& info);

}  // namespace testing_support
