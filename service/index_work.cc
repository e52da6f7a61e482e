#include "service/index_work.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "reports/reports_directory.h"
#include "service/state_files.h"
#include "taskstore/result_codes.h"

namespace service {
namespace {

constexpr std::string_view kEntrySuffix = ".entry";

std::string_view BytesOf(const tagSCAN_REPORT_ENTRY& entry) {
  return {reinterpret_cast<const char*>(&entry), sizeof entry};
}

// The kept entries' file names, oldest first (the names sort by time).
std::vector<std::string> KeptFiles(const std::string& directory) {
  std::vector<std::string> names;
  DIR* listing = opendir(directory.c_str());
  if (listing == nullptr) return names;
  while (const dirent* item = readdir(listing)) {
    const std::string_view name = item->d_name;
    if (name.size() > kEntrySuffix.size() && name.ends_with(kEntrySuffix)) names.emplace_back(name);
  }
  closedir(listing);
  std::sort(names.begin(), names.end());
  return names;
}

bool ReadEntry(const std::string& path, tagSCAN_REPORT_ENTRY* entry) {
  std::string error;
  const auto bytes = ReadSmallFile(path, sizeof *entry + 1, &error);
  if (!bytes || bytes->size() != sizeof *entry) return false;
  std::memcpy(entry, bytes->data(), sizeof *entry);
  return true;
}

// Paths that the index's entries name.
std::set<std::string> NamedPaths(const ReportList& list) {
  std::set<std::string> paths;
  for (std::size_t i = 0; i < list.size(); ++i)
    paths.insert(FieldText(list[i].szReportPath).c_str());
  return paths;
}

// Removes the files of `removed` entries that no entry of the index as it
// now stands names.
void RemoveUnnamedReports(const std::vector<std::string>& removed) {
  ReportList now;
  std::uint32_t code = SCHSCAN_OK;
  if (!ReadReportIndex(now, 0, &code)) return;  // unsure what is named: remove nothing
  const std::set<std::string> named = NamedPaths(now);
  ReportsDirectory directory;
  for (const std::string& path : removed) {
    if (!named.contains(path)) directory.RemoveReport(path.c_str());
  }
}

bool SameScan(const tagSCAN_REPORT_ENTRY& entry, const std::string& name, std::uint32_t owner) {
  return entry.dwUserId == owner && FieldText(entry.szScanName).c_str() == name;
}

}  // namespace

bool KeptEntries::Keep(const tagSCAN_REPORT_ENTRY& entry, std::string* error) const {
  // Named by the time kept, so that they sort in that order.
  static std::atomic<unsigned> sequence{0};
  const auto now = std::chrono::duration_cast<std::chrono::nanoseconds>(
                       std::chrono::system_clock::now().time_since_epoch())
                       .count();
  char name[64];
  std::snprintf(name, sizeof name, "%020lld-%010d-%04u", static_cast<long long>(now),
                static_cast<int>(getpid()), sequence++ % 10000);
  return ReplaceFile(directory_ + "/" + name + std::string(kEntrySuffix), BytesOf(entry), error);
}

bool KeptEntries::Empty() const { return KeptFiles(directory_).empty(); }

IndexUpdate KeptEntries::AddToIndex(std::chrono::milliseconds lockWait, std::string* error) const {
  const FileLock adding(directory_ + ".lock", FileLock::Wait::kTry);
  if (!adding.held()) return IndexUpdate::kLockBusy;
  const std::vector<std::string> files = KeptFiles(directory_);
  if (files.empty()) return IndexUpdate::kDone;
  // An entry may have gone in before its file could be removed: it is not
  // added twice. Entries name a report and its start, so equal ones are one.
  std::set<std::string, std::less<>> present;
  ReportList index;
  std::uint32_t code = SCHSCAN_OK;
  if (ReadReportIndex(index, 0, &code)) {
    for (std::size_t i = 0; i < index.size(); ++i) present.emplace(BytesOf(index[i]));
  }
  for (const std::string& file : files) {
    const std::string path = directory_ + "/" + file;
    tagSCAN_REPORT_ENTRY entry{};
    if (!ReadEntry(path, &entry)) {
      *error = "a kept index entry cannot be read: " + path;
      unlink(path.c_str());  // a torn file of a crash, nothing to add
      continue;
    }
    if (!present.contains(BytesOf(entry))) {
      const IndexUpdate update = AppendReportIndexEntry(entry, lockWait);
      if (update != IndexUpdate::kDone) {
        if (update == IndexUpdate::kFailed) *error = "the report index cannot be written";
        return update;
      }
    }
    if (unlink(path.c_str()) != 0) {
      *error = "cannot remove " + path + ": " + ErrorText(errno);
      return IndexUpdate::kFailed;
    }
  }
  return IndexUpdate::kDone;
}

EntryFate RecordReportEntry(const tagSCAN_REPORT_ENTRY& entry, const KeptEntries& kept,
                            std::chrono::milliseconds lockWait, std::string* error) {
  if (kept.Empty() && AppendReportIndexEntry(entry, lockWait) == IndexUpdate::kDone)
    return EntryFate::kAdded;
  if (!kept.Keep(entry, error)) return EntryFate::kLost;
  std::string addError;
  return kept.AddToIndex(lockWait, &addError) == IndexUpdate::kDone ? EntryFate::kAdded
                                                                    : EntryFate::kKept;
}

IndexUpdate TrimReports(std::size_t keep, std::chrono::milliseconds lockWait,
                        std::string* error) {
  ReportList index;
  std::uint32_t code = SCHSCAN_OK;
  if (!ReadReportIndex(index, 0, &code)) {
    if (code == SCHSCAN_ERR_LIST_NOT_FOUND) return IndexUpdate::kDone;
    *error = "the report index cannot be read (code " + std::to_string(code) + ")";
    return IndexUpdate::kFailed;
  }
  std::map<std::pair<std::string, std::uint32_t>, std::size_t> counts;
  for (std::size_t i = 0; i < index.size(); ++i)
    ++counts[{FieldText(index[i].szScanName).c_str(), index[i].dwUserId}];
  std::vector<std::string> removed;
  for (std::size_t i = 0; i < index.size(); ++i) {
    std::size_t& count = counts[{FieldText(index[i].szScanName).c_str(), index[i].dwUserId}];
    if (count > keep) {
      --count;
      index.TakeOut(i);
      removed.emplace_back(FieldText(index[i].szReportPath).c_str());
    }
  }
  if (removed.empty()) return IndexUpdate::kDone;
  const IndexUpdate update = WriteReportIndex(index, lockWait);
  if (update == IndexUpdate::kDone) RemoveUnnamedReports(removed);
  if (update == IndexUpdate::kFailed) *error = "the report index cannot be rewritten";
  return update;
}

std::string EvictOldestReport(const std::string& scanName, std::uint32_t owner,
                              std::chrono::milliseconds lockWait, IndexUpdate* update) {
  *update = IndexUpdate::kDone;
  ReportList index;
  std::uint32_t code = SCHSCAN_OK;
  if (!ReadReportIndex(index, 0, &code)) return "";
  for (std::size_t i = 0; i < index.size(); ++i) {
    if (!SameScan(index[i], scanName, owner)) continue;
    index.TakeOut(i);
    std::string path = FieldText(index[i].szReportPath).c_str();
    *update = WriteReportIndex(index, lockWait);
    if (*update != IndexUpdate::kDone) return "";
    RemoveUnnamedReports({path});
    return path;
  }
  return "";
}

}  // namespace service
