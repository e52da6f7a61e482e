// The command line of schscand: what to do, and the settings it is done with.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace service {

enum class Mode {
  kDaemon,      // no mode option: run every stored scan at its times
  kStatus,      // --status
  kRun,         // --run NAME
  kNext,        // --next NAME
  kQuarantine,  // --quarantine
  kRestore,     // --restore ID
  kHelp,        // --help
  kVersion,     // --version
};

struct ServiceOptions {
  Mode mode = Mode::kDaemon;
  std::string scanName;   // of --run and --next
  std::string restoreId;  // of --restore
  int count = 5;          // of --next
  std::optional<std::string> from;  // of --next, as given
  std::string databaseDir = "/var/lib/clamav";
  std::chrono::seconds startDelay{120};
  std::string bootIdFile = "/proc/sys/kernel/random/boot_id";
};

// Parses the arguments after the program name. Options take their value as
// the next argument or after "="; one mode at most. False with a one-line
// message for anything else.
bool ParseServiceOptions(int argc, const char* const* argv, ServiceOptions* options,
                         std::string* error);

// What --help prints.
const char* UsageText();

}  // namespace service
