#include "service/service_state.h"

#include <cstring>
#include <sstream>

#include "service/state_files.h"

namespace service {
namespace {

constexpr std::size_t kMaxStateFile = 64 << 20;
constexpr std::size_t kMaxSmallFile = 4096;

const char* const kSubdirectories[] = {"quarantine", "pending", "running"};

std::string FirstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

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
  const auto text = ReadSmallFile(PathOf("last-runs"), kMaxStateFile, error);
  if (!text) return runs;
  std::istringstream lines(*text);
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream words(line);
    std::uint32_t owner = 0;
    long long start = 0;
    std::string result;
    std::string name;
    if (!(words >> owner >> start >> result >> name)) continue;
    const auto resultText = UnescapeWord(result);
    const auto nameText = UnescapeWord(name);
    if (!resultText || !nameText) continue;
    runs[ScanKey{owner, *nameText}] =
        LastRun{std::chrono::sys_seconds(std::chrono::seconds(start)), *resultText};
  }
  return runs;
}

bool ServiceState::WriteRuns(const std::map<ScanKey, LastRun>& runs, std::string* error) const {
  std::string text;
  for (const auto& [scan, run] : runs) {
    text += std::to_string(scan.owner) + ' ' +
            std::to_string(run.start.time_since_epoch().count()) + ' ' + EscapeWord(run.result) +
            ' ' + EscapeWord(scan.name) + '\n';
  }
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
