// Runs the tool's entry inside the calling process, for the command tests and
// the fuzz targets: standard input is an in-memory file holding the given
// bytes, standard output an in-memory file that is read back. This file's
// source stands in for console/interrupt.cc at link time: the end of standard
// input ends the running command (an exception), not the process, and no
// SIGINT handler is installed.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace testing_support {

struct InProcessRun {
  std::string output;               // everything the command printed, in order
  std::string errors;               // what went to standard error
  std::vector<std::size_t> reads;   // the output's length at each read of standard input
  bool endedByEndOfInput = false;   // the input ran out while the command asked
  int exitStatus = 0;               // what the entry returned, 0 when the input ran out
};

// Runs the tool with the command-line arguments `args` (after the program
// name), `input` as standard input, as `user` (see UserScope). Standard
// output is kept unless `keepOutput` is false (the fuzz targets).
InProcessRun RunInProcess(const std::vector<std::string>& args, std::string_view input,
                          std::uint32_t user = 0, bool keepOutput = true);

// For the scope, the process runs as user and group `uid` without
// supplementary groups, as `setpriv --reuid --regid --clear-groups` would run
// a program; the saved ids stay the super-user's, who takes them back at the
// end. Does nothing for uid 0 or unless the process runs as the super-user.
class UserScope {
 public:
  explicit UserScope(std::uint32_t uid);
  UserScope(const UserScope&) = delete;
  UserScope& operator=(const UserScope&) = delete;
  ~UserScope();

 private:
  std::vector<gid_t> groups_;
  bool switched_ = false;
};

}  // namespace testing_support
