// Whole-program test harness: runs the built tool against the scratch product
// directory of the test build, as root or as another user, answers its
// prompts as they appear, and captures what it prints byte for byte.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "testing/command_paths.h"

namespace harness {

using testing_support::Step;

struct RunOptions {
  std::vector<std::string> args;  // after the program path
  std::string input;              // all of standard input, unless there are steps
  // Sent in turn, each once the output printed since the one before ends
  // with its prompt (an empty prompt: at once): the answer and a line feed,
  // the end of input (kNoAnswer), or SIGINT (kInterrupt, after which standard
  // input stays open). After the last answer standard input ends.
  std::vector<Step> steps;
  std::optional<uid_t> user;             // run under this user and group id (needs root)
  std::vector<std::string> environment;  // "NAME=value", besides PATH and LANG
  std::string program;                   // the tool to run; empty: ToolPath()
  int timeoutMilliseconds = 20000;       // then SIGKILL
  // SIGKILL this many microseconds after the tool was started.
  std::optional<long> killAfterMicroseconds;
  // Called with the tool's process id and all output so far, each time more
  // arrives and before any answer to it; the tool waits for its next answer
  // while this runs.
  std::function<void(pid_t, const std::string&)> watchOutput;
};

struct RunResult {
  std::string output;
  std::string errors;                   // standard error
  std::vector<std::size_t> answeredAt;  // the output's length as each step was answered
  int exitStatus = -1;  // -1 when the tool did not exit normally, or was killed at the timeout
};

// Empties the product directory and lays it out as an install does (task
// store library, reports directory), with or without the compiled catalogue.
// The directories are writable by everyone so that ordinary users can work.
void ResetProductDir(bool withCatalogue = false);

// The path the tool runs from (a copy reachable by every user); its usage
// text names this path.
const std::string& ToolPath();

RunResult RunTool(const RunOptions& options);

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& contents, mode_t mode = 0644);

}  // namespace harness
