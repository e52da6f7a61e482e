#include "testing/scan_fixtures.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <sstream>
#include <vector>

#include "reports/report_index.h"
#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"
#include "testing/lock_free_appender.h"

namespace testing_support {
namespace {

const std::string& DirRoot() {
  static const std::string root = std::string(kProductDir) + "-dirs/";
  return root;
}

[[noreturn]] void Abort(const std::string& what) {
  std::fprintf(stderr, "scan fixtures: %s\n", what.c_str());
  std::abort();
}

// Sets the fields that Describe shows between the name and the directories.
void SetFields(tagSCHEDULE_SCAN_ENTRY& scan, const std::string& fields) {
  unsigned owner = 0;
  int f[12] = {};
  if (std::sscanf(fields.c_str(), " u%u f%d d%d b%d %d:%d:%d r%d p%d/%d/%d o%d a%d", &owner,
                  &f[0], &f[1], &f[2], &f[3], &f[4], &f[5], &f[6], &f[7], &f[8], &f[9], &f[10],
                  &f[11]) != 13)
    Abort("not a scan's fields: " + fields);
  scan.dwUserId = owner;
  scan.byFrequency = f[0];
  scan.byWeekDay = f[1];
  scan.bFirstBootScan = f[2];
  scan.nHour = f[3];
  scan.nMinute = f[4];
  scan.nSecond = f[5];
  scan.nRecurEvery = f[6];
  scan.bRepeatScan = f[7];
  scan.nRepeatInterval = f[8];
  scan.byRepeatUnit = f[9];
  scan.byScanOptions = f[10];
  scan.nScanAction = f[11];
}

}  // namespace

void ResetProduct() {
  std::filesystem::remove_all(kProductDir);
  std::filesystem::create_directories(kReportsDir);
  if (chmod(kProductDir, 0777) != 0 || chmod(kReportsDir, 0777) != 0) Abort("chmod product");
}

tagSCHEDULE_SCAN_ENTRY MakeScan(const std::string& name, std::uint32_t owner,
                                const std::vector<std::string>& paths) {
  tagSCHEDULE_SCAN_ENTRY scan;
  PrepareNewScheduleScanEntry(&scan);
  std::memcpy(scan.szScanName, name.data(), std::min(name.size(), SCAN_NAME_SIZE - 1));
  SetFields(scan, "u" + std::to_string(owner) + " f0 d0 b0 10:20:30 r2 p1/3/0 o1 a0");
  for (const std::string& path : paths.empty() ? std::vector<std::string>{ScanDir("a")} : paths)
    scan.vecScanItems.AppendPath(path.c_str());
  return scan;
}

std::string ScanDir(const std::string& name) {
  const std::string path = DirRoot() + name;
  std::filesystem::create_directories(path);
  for (std::filesystem::path p = path; p.string().size() >= DirRoot().size() - 1;
       p = p.parent_path()) {
    if (chmod(p.c_str(), 0755) != 0) Abort("chmod " + p.string());
  }
  return path;
}

std::uint32_t AddScan(tagSCHEDULE_SCAN_ENTRY scan, const char* taskList) {
  std::uint32_t code = SCHSCAN_OK;
  return AddScheduleScanTask(taskList, &scan, &code) ? SCHSCAN_OK : code;
}

void StoreScan(const tagSCHEDULE_SCAN_ENTRY& scan) {
  if (const std::uint32_t code = AddScan(scan); code != SCHSCAN_OK)
    Abort("storing " + std::string(scan.szScanName) + ": " + std::to_string(code));
  SetStoreMode(0666);
}

void SetStoreMode(mode_t mode) {
  for (const char* suffix : {"", "-wal", "-shm"}) {
    const std::string file = kTaskListPath + std::string(suffix);
    if (chmod(file.c_str(), mode) != 0 && errno != ENOENT) Abort("chmod " + file);
  }
}

std::string QueryStore(const std::string& taskList, const char* sql) {
  sqlite3* db = nullptr;
  std::optional<std::string> first;  // the first column of the first row
  int rc = sqlite3_open_v2(taskList.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
  if (rc == SQLITE_OK) {
    sqlite3_busy_timeout(db, 30000);
    int persist = 1;  // as the store keeps the side files
    sqlite3_file_control(db, "main", SQLITE_FCNTL_PERSIST_WAL, &persist);
    rc = sqlite3_exec(db, sql, [](void* out, int, char** values, char**) {
      static_cast<std::optional<std::string>*>(out)->emplace(values[0] ? values[0] : "");
      return 1;  // no more rows
    }, &first, nullptr);
  }
  sqlite3_close_v2(db);
  return rc == SQLITE_OK || (rc == SQLITE_ABORT && first) ? first.value_or("") : "(error)";
}

void SetStoredColumn(const std::string& name, const char* column, int value) {
  const std::string sql = "UPDATE scans SET " + std::string(column) + " = " +
                          std::to_string(value) + " WHERE name = '" + name + "'";
  if (QueryStore(kTaskListPath, sql.c_str()) != "") Abort(sql);
}

std::string Describe(const tagSCHEDULE_SCAN_ENTRY& scan) {
  char fields[256];
  std::snprintf(fields, sizeof fields, " u%u f%d d%d b%d %02d:%02d:%02d r%d p%d/%d/%d o%d a%d [",
                static_cast<unsigned>(scan.dwUserId), scan.byFrequency, scan.byWeekDay,
                scan.bFirstBootScan, scan.nHour, scan.nMinute, scan.nSecond, scan.nRecurEvery,
                scan.bRepeatScan, scan.nRepeatInterval, scan.byRepeatUnit, scan.byScanOptions,
                scan.nScanAction);
  std::string text = scan.szScanName + std::string(fields);
  for (std::size_t i = 0; i < scan.vecScanItems.size(); ++i) {
    std::string path = scan.vecScanItems.PathAt(i);
    if (path.rfind(DirRoot(), 0) == 0) path.erase(0, DirRoot().size());
    text += (i == 0 ? "" : " ") + path;
  }
  return text + "]";
}

std::string DumpStore() {
  ScheduleScanList scans;
  std::uint32_t code = SCHSCAN_OK;
  if (!ReadScheduleScanTaskList(kTaskListPath, scans, 0, &code))
    return "error " + std::to_string(code);
  std::string dump;
  for (const tagSCHEDULE_SCAN_ENTRY& scan : scans) dump += Describe(scan) + "\n";
  return dump;
}

std::string DescribeStored(const std::string& name) {
  std::istringstream dump(DumpStore());
  for (std::string line; std::getline(dump, line);) {
    if (line.starts_with(name + " ")) return line;
  }
  return name + " none";
}

tagSCHEDULE_SCAN_ENTRY ScanFrom(const std::string& description) {
  const std::size_t space = description.find(' ');
  const std::size_t open = description.find('[');
  if (space == std::string::npos || open == std::string::npos || description.back() != ']')
    Abort("not a scan's description: " + description);
  std::vector<std::string> paths;
  std::istringstream names(description.substr(open + 1, description.size() - open - 2));
  for (std::string name; names >> name;) paths.push_back(name[0] == '/' ? name : ScanDir(name));
  tagSCHEDULE_SCAN_ENTRY scan = MakeScan(description.substr(0, space), 0, paths);
  SetFields(scan, description.substr(space, open - space));
  return scan;
}

void SeedScansAndReports() {
  StoreScan(ScanFrom("Daily15charName u0 f0 d0 b0 10:20:30 r2 p1/3/0 o1 a0 [a]"));
  StoreScan(ScanFrom("Weekly16charName u1 f1 d3 b0 10:20:30 r4 p0/3/0 o0 a1 [a b]"));
  StoreScan(ScanFrom("Boot u4242 f0 d0 b1 10:20:30 r2 p1/3/0 o15 a2 [a]"));
  const char* names[] = {"Daily15charName", "Weekly16charName", "Daily15charName"};
  for (int i = 1; i <= 3; ++i) {
    AddNamedReport("schd000" + std::to_string(i) + ".rpt", names[i - 1], "d" + std::to_string(i),
                   i == 2 ? 1 : 0, "report " + std::to_string(i) + "\n");
  }
}

std::string ReportsState() {
  std::string state;
  ReportList list;
  std::uint32_t code = 0;
  if (!ReadReportIndex(list, 0, &code)) state = "error " + std::to_string(code);
  for (std::size_t i = 0; i < list.size(); ++i)
    state += (i == 0 ? "" : " ") + std::string(FieldText(list[i].szDateTime).c_str());
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(kProductDir)) {
    const std::string name = entry.path().lexically_relative(kProductDir);
    if (!entry.is_directory() && !name.starts_with("tsklst.inf") && name != "tskvault.so" &&
        name != "reports/schdmain.rpt")
      files.push_back(name);
  }
  std::sort(files.begin(), files.end());
  state += ";";
  for (const std::string& file : files) state += " " + file;
  return state;
}

ScratchDirectory::ScratchDirectory() : path_("/tmp/schscan-scratch-XXXXXX") {
  if (mkdtemp(path_.data()) == nullptr) Abort("mkdtemp " + path_);
}

ScratchDirectory::~ScratchDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace testing_support
