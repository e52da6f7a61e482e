// The service's log: standard error, which the journal keeps under systemd.
// One write per line, so that lines of several processes never mix.
#pragma once

#include <unistd.h>

#include <string>

namespace service {

inline void LogLine(const std::string& text) {
  const std::string line = "schscand: " + text + "\n";
  // Nothing better can be done with a log line that cannot be written.
  if (write(STDERR_FILENO, line.data(), line.size()) < 0) return;
}

}  // namespace service
