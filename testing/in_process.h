// Runs the tool's entry inside the calling process, for the command tests:
// standard input is an in-memory file holding the given bytes, standard
// output an in-memory file that is read back. This file's source stands in
// for console/interrupt.cc at link time: the end of standard input ends the
// running command (an exception), not the process, and no SIGINT handler is
// installed.
#pragma once

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
// name) and `input` as standard input, as user and group `user` without
// supplementary groups when the process runs as the super-user (as
// `setpriv --reuid --regid --clear-groups` would run it; the saved ids stay
// the super-user's, who takes them back after the run).
InProcessRun RunInProcess(const std::vector<std::string>& args, std::string_view input,
                          std::uint32_t user = 0);

}  // namespace testing_support
