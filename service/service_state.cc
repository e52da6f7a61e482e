#include "service/service_state.h"

#include <unistd.h>

#include <cstring>
#include <initializer_list>
#include <sstream>
#include <string_view>
#include <vector>

#include "service/state_files.h"

namespace service {
namespace {

constexpr std::size_t kMaxStateFile = 64 << 20;
constexpr std::size_t kMaxSmallFile = 4096;

const char* const kSubdirectories[] = {"quarantine", "pending", "running"};

std::string FirstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

// The lines of the runs' files: "owner seconds-since-epoch word...", each
// word escaped. Lines that do not read are left out; `take` gets the owner,
// the moment and `count` words.
template <typename Take>
void ForEachRunLine(const std::string& text, std::size_t count, Take take) {
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream fields(line);
    std::uint32_t owner = 0;
    long long seconds = 0;
    if (!(fields >> owner >> seconds)) continue;
    std::vector<std::string> words;
    for (std::string word; words.size() < count && fields >> word;) {
      auto unescaped = UnescapeWord(word);
      if (!unescaped) break;
      words.push_back(std::move(*unescaped));
    }
    if (words.size() == count) take(owner, Instant{std::chrono::seconds{seconds}}, words);
  }
}

std::string RunLine(std::uint32_t owner, Instant at, std::initializer_list<std::string_view> words) {
  std::string line = std::to_string(owner) + ' ' + std::to_string(at.time_since_epoch().count());
  for (const std::string_view word : words) line += ' ' + EscapeWord(word);
  return line + '\n';
}

}  // namespace

ScanKey KeyOf(const tagSCHEDULE_SCAN_ENTRY& scan) {
  return ScanKey{scan.dwUserId, std::string(scan.szScanName, strnlen(scan.szScanName, SCAN_NAME_SIZE))};
}

bool ServiceState::Prepare(std::string* error) const {
  if (!EnsurePrivateDirectory(directory_, error)) return false;
  for (const char* name : kSubdirectories) {
    if (!EnsurePrivateDirectory(PathOf(name), error)) return false;
  }
  return true;
}

std::map<ScanKey, LastRun> ServiceState::LastRuns(std::string* error) const {
  std::map<ScanKey, LastRun> runs;
  if (const auto text = ReadSmallFile(PathOf("last-runs"), kMaxStateFile, error)) {
    ForEachRunLine(*text, 2, [&](std::uint32_t owner, Instant start, const auto& words) {
      runs[ScanKey{owner, words[1]}] = LastRun{start, words[0]};
    });
  }
  return runs;
}

bool ServiceState::WriteRuns(const std::map<ScanKey, LastRun>& runs, std::string* error) const {
  std::string text;
  for (const auto& [scan, run] : runs) text += RunLine(scan.owner, run.start, {run.result, scan.name});
  return ReplaceFile(PathOf("last-runs"), text, error);
}

bool ServiceState::RecordRun(const ScanKey& scan, const LastRun& run, std::string* error) const {
  const FileLock lock(PathOf("last-runs.lock"), FileLock::Wait::kBlock);
  std::map<ScanKey, LastRun> runs = LastRuns(error);
  if (!error->empty()) return false;
  runs[scan] = run;
  return WriteRuns(runs, error);
}

bool ServiceState::KeepRunsOf(const std::set<ScanKey>& scans, std::string* error) const {
  const FileLock lock(PathOf("last-runs.lock"), FileLock::Wait::kBlock);
  std::map<ScanKey, LastRun> runs = LastRuns(error);
  if (!error->empty()) return false;
  const std::size_t before = runs.size();
  std::erase_if(runs, [&](const auto& run) { return !scans.contains(run.first); });
  return runs.size() == before || WriteRuns(runs, error);
}

std::map<ScanKey, Instant> ServiceState::UpcomingRuns(std::string* error) const {
  std::map<ScanKey, Instant> runs;
  if (const auto text = ReadSmallFile(PathOf("upcoming"), kMaxStateFile, error)) {
    ForEachRunLine(*text, 1, [&](std::uint32_t owner, Instant at, const auto& words) {
      runs[ScanKey{owner, words[0]}] = at;
    });
  }
  return runs;
}

bool ServiceState::SetUpcomingRuns(const std::map<ScanKey, Instant>& runs, std::string* error) const {
  std::string text;
  for (const auto& [scan, at] : runs) text += RunLine(scan.owner, at, {scan.name});
  return ReplaceFile(PathOf("upcoming"), text, error);
}

void ServiceState::ForgetUpcomingRuns() const { unlink(PathOf("upcoming").c_str()); }

std::optional<std::string> ServiceState::BootId(std::string* error) const {
  const auto text = ReadSmallFile(PathOf("boot-id"), kMaxSmallFile, error);
  if (!text) return std::nullopt;
  return FirstLine(*text);
}

bool ServiceState::SetBootId(const std::string& bootId, std::string* error) const {
  return ReplaceFile(PathOf("boot-id"), bootId + "\n", error);
}

std::string ServiceState::DatabaseStatus() const {
  std::string error;
  const auto text = ReadSmallFile(PathOf("database"), kMaxSmallFile, &error);
  return text ? FirstLine(*text) : "";
}

bool ServiceState::SetDatabaseStatus(const std::string& line, std::string* error) const {
  return ReplaceFile(PathOf("database"), line + "\n", error);
}

}  // namespace service
