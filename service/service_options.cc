#include "service/service_options.h"

#include <charconv>
#include <string_view>

namespace service {
namespace {

constexpr long kMaxCount = 100000;
constexpr long kMaxStartDelay = 7L * 24 * 3600;

bool ParseNumber(std::string_view text, long low, long high, long* value) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *value);
  return error == std::errc() && end == text.data() + text.size() && *value >= low &&
         *value <= high;
}

struct ModeOption {
  std::string_view name;
  Mode mode;
  bool takesValue;
};

constexpr ModeOption kModes[] = {
    {"--status", Mode::kStatus, false},     {"--run", Mode::kRun, true},
    {"--next", Mode::kNext, true},          {"--quarantine", Mode::kQuarantine, false},
    {"--restore", Mode::kRestore, true},    {"--help", Mode::kHelp, false},
    {"--version", Mode::kVersion, false},
};

}  // namespace

bool ParseServiceOptions(int argc, const char* const* argv, ServiceOptions* options,
                         std::string* error) {
  bool modeGiven = false;
  bool countGiven = false;
  for (int i = 0; i < argc; ++i) {
    std::string_view name = argv[i];
    std::optional<std::string_view> inlineValue;
    if (const auto equals = name.find('='); name.starts_with("--") && equals != name.npos) {
      inlineValue = name.substr(equals + 1);
      name = name.substr(0, equals);
    }
    // The option's value: after "=", else the next argument.
    const auto value = [&](std::string_view* out) {
      if (inlineValue) {
        *out = *inlineValue;
        return true;
      }
      if (i + 1 >= argc) {
        *error = std::string("option ") + std::string(name) + " needs a value";
        return false;
      }
      *out = argv[++i];
      return true;
    };
    std::string_view text;
    const ModeOption* mode = nullptr;
    for (const ModeOption& candidate : kModes) {
      if (candidate.name == name) mode = &candidate;
    }
    if (mode != nullptr) {
      if (modeGiven) {
        *error = "only one of --status, --run, --next, --quarantine, --restore, --help, "
                 "--version may be given";
        return false;
      }
      modeGiven = true;
      options->mode = mode->mode;
      if (!mode->takesValue) {
        if (inlineValue) {
          *error = std::string("option ") + std::string(name) + " takes no value";
          return false;
        }
        continue;
      }
      if (!value(&text)) return false;
      if (text.empty()) {
        *error = std::string("option ") + std::string(name) + " needs a value";
        return false;
      }
      (mode->mode == Mode::kRestore ? options->restoreId : options->scanName) = text;
    } else if (name == "--count") {
      long count = 0;
      if (!value(&text)) return false;
      if (!ParseNumber(text, 1, kMaxCount, &count)) {
        *error = "--count takes a number from 1 to " + std::to_string(kMaxCount);
        return false;
      }
      options->count = static_cast<int>(count);
      countGiven = true;
    } else if (name == "--from") {
      if (!value(&text)) return false;
      options->from = std::string(text);
    } else if (name == "--database") {
      if (!value(&text)) return false;
      if (text.empty()) {
        *error = "--database needs a directory";
        return false;
      }
      options->databaseDir = text;
    } else if (name == "--start-delay") {
      long seconds = 0;
      if (!value(&text)) return false;
      if (!ParseNumber(text, 0, kMaxStartDelay, &seconds)) {
        *error = "--start-delay takes a number of seconds from 0 to " +
                 std::to_string(kMaxStartDelay);
        return false;
      }
      options->startDelay = std::chrono::seconds(seconds);
    } else if (name == "--boot-id-file") {
      if (!value(&text)) return false;
      if (text.empty()) {
        *error = "--boot-id-file needs a path";
        return false;
      }
      options->bootIdFile = text;
    } else {
      *error = "unknown argument: " + std::string(argv[i]);
      return false;
    }
  }
  if ((countGiven || options->from) && options->mode != Mode::kNext) {
    *error = "--count and --from go with --next";
    return false;
  }
  return true;
}

const char* UsageText() {
  return "Usage: schscand [OPTION]...\n"
         "Runs the scheduled scans that schscan keeps, each at its times and as its owner.\n"
         "\n"
         "Without a mode option, runs as the service, in the foreground.\n"
         "  --status                  list each scan with its next and last run\n"
         "  --run NAME                run scan NAME now, in the foreground\n"
         "  --next NAME               print the next run times of scan NAME\n"
         "      --count N             how many (default 5)\n"
         "      --from 'YYYY-MM-DD HH:MM:SS'  after this local moment instead of now\n"
         "  --quarantine              list the files kept in the quarantine\n"
         "  --restore ID              put quarantined file ID back in its place\n"
         "  --help                    show this help\n"
         "  --version                 show the version\n"
         "\n"
         "Settings:\n"
         "  --database DIR            signature database (default /var/lib/clamav)\n"
         "  --start-delay SECONDS     wait before the runs due at start (default 120)\n"
         "  --boot-id-file PATH       where the boot id is read\n"
         "                            (default /proc/sys/kernel/random/boot_id)\n"
         "\n"
         "Everything but --help and --version needs root.\n"
         "Exit status of --run: 0 clean, 1 infected files found, 2 error.\n";
}

}  // namespace service
