// Whole-program test harness: runs the built tool against the scratch product
// directory of the test build, with a scripted standard input, as root or as
// another user, and captures standard output byte for byte.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace harness {

struct RunOptions {
  std::vector<std::string> args;  // after the program path
  std::string input;              // all of standard input
  std::optional<uid_t> user;      // run under this user and group id (needs root)
  // Send SIGINT once the output ends with this text; standard input then
  // stays open instead of ending after `input`.
  std::string interruptAfter;
  std::vector<std::string> extraEnvironment;  // "NAME=value"
  std::string program;                        // the tool to run; empty: ToolPath()
  int timeoutMilliseconds = 20000;            // then SIGKILL, and timedOut is set
  // Files the tool writes may not grow past this size (RLIMIT_FSIZE); the
  // tool ignores SIGXFSZ, so a write beyond it fails with EFBIG.
  std::optional<rlim_t> fileSizeLimit;
  // SIGKILL this many microseconds after the tool was started, unless it
  // has ended by then.
  std::optional<long> killAfterMicroseconds;
  // Called with the tool's process id and all output so far, each time more
  // arrives; the tool waits (its output pipe full) while this runs.
  std::function<void(pid_t, const std::string&)> watchOutput;
  // No input is sent before the output ends with this text (after
  // watchOutput has seen it).
  std::string holdInputUntil;
};

struct RunResult {
  std::string output;
  int exitStatus = -1;   // -1 when the tool did not exit normally
  bool timedOut = false;
  bool killed = false;   // ended by the SIGKILL of killAfterMicroseconds
};

// Empties the product directory and lays it out as an install does (task
// store library, reports directory), with or without the compiled catalogue.
// The directories are writable by everyone so that ordinary users can work.
void ResetProductDir(bool withCatalogue = false);

// The path the tool runs from (a copy reachable by every user); its usage
// text names this path.
const std::string& ToolPath();

RunResult RunTool(const RunOptions& options);

// Convenience: run with these arguments and input as root (or the test user).
RunResult RunTool(std::vector<std::string> args, std::string input = "");

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& contents, mode_t mode = 0644);

}  // namespace harness
