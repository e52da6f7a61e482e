#include "testing/scan_fixtures.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "product_paths.h"
#include "taskstore/task_store.h"

namespace scantest {
namespace {

const std::string& DirRoot() {
  static const std::string root = std::string(kProductDir) + "-dirs/";
  return root;
}

}  // namespace

Script operator+(Script a, const Script& b) { return a += b; }
Script& operator+=(Script& a, const Script& b) {
  a.output += b.output;
  a.input += b.input;
  return a;
}
Script Out(const std::string& text) { return {text, ""}; }
Script Ask(const std::string& prompt, const std::string& answer) { return {prompt, answer + "\n"}; }
Script Reject(const std::string& prompt, const std::string& answer, const std::string& message) {
  return {prompt + message, answer + "\n"};
}

harness::RunResult RunScript(const std::string& word, const Script& script,
                             std::optional<uid_t> user) {
  harness::RunOptions options;
  options.args = {word};
  options.input = script.input;
  options.user = user;
  return harness::RunTool(options);
}

void ExpectRun(const char* commandKey, const Script& script, const std::string& after,
               std::optional<uid_t> user) {
  const harness::RunResult run = RunScript(commandKey, script, user);
  EXPECT_EQ(run.exitStatus, 0);
  EXPECT_EQ(run.output, kKeyBanner + script.output + after);
}

std::string MakeDir(const std::string& name) {
  const std::string path = DirRoot() + name;
  std::filesystem::create_directories(path);
  for (std::filesystem::path p = path; p.string().size() >= DirRoot().size() - 1;
       p = p.parent_path()) {
    if (chmod(p.c_str(), 0755) != 0) throw std::runtime_error("chmod " + p.string());
  }
  return path;
}

tagSCHEDULE_SCAN_ENTRY MakeScan(const std::string& name, std::uint32_t owner) {
  tagSCHEDULE_SCAN_ENTRY scan;
  PrepareNewScheduleScanEntry(&scan);
  std::memcpy(scan.szScanName, name.data(), std::min(name.size(), SCAN_NAME_SIZE - 1));
  scan.dwUserId = owner;
  scan.nHour = 10;
  scan.nMinute = 20;
  scan.nSecond = 30;
  scan.nRecurEvery = 2;
  scan.bRepeatScan = 1;
  scan.nRepeatInterval = 3;
  scan.byRepeatUnit = REPEAT_UNIT_HOURS;
  scan.byScanOptions = SCAN_OPT_ARCHIVE;
  scan.nScanAction = ACTION_REPAIR_ONLY;
  SetDirectories(scan, {MakeDir("a")});
  return scan;
}

void SetDirectories(tagSCHEDULE_SCAN_ENTRY& scan, const std::vector<std::string>& paths) {
  scan.vecScanItems.Clear();
  for (const std::string& path : paths) scan.vecScanItems.AppendPath(path.c_str());
}

void StoreScan(const tagSCHEDULE_SCAN_ENTRY& scan) {
  tagSCHEDULE_SCAN_ENTRY copy = scan;
  std::uint32_t code = 0;
  ASSERT_TRUE(AddScheduleScanTask(kTaskListPath, &copy, &code)) << code;
  ASSERT_EQ(chmod(kTaskListPath, 0666), 0);
}

void SetStoredColumn(const std::string& name, const char* column, int value) {
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open_v2(kTaskListPath, &db, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
  const std::string sql = std::string("UPDATE scans SET ") + column + " = ?1 WHERE name = ?2";
  sqlite3_stmt* statement = nullptr;
  EXPECT_EQ(sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr), SQLITE_OK);
  sqlite3_bind_int(statement, 1, value);
  sqlite3_bind_text(statement, 2, name.c_str(), -1, SQLITE_TRANSIENT);
  EXPECT_EQ(sqlite3_step(statement), SQLITE_DONE);
  EXPECT_EQ(sqlite3_changes(db), 1);
  sqlite3_finalize(statement);
  sqlite3_close(db);
}

std::optional<tagSCHEDULE_SCAN_ENTRY> FetchScan(const std::string& name) {
  tagSCHEDULE_SCAN_ENTRY scan;
  PrepareNewScheduleScanEntry(&scan);
  std::memcpy(scan.szScanName, name.data(), std::min(name.size(), SCAN_NAME_SIZE - 1));
  std::uint32_t code = 0;
  if (!GetScheduleScanTaskDetails(kTaskListPath, &scan, 0, &code)) return std::nullopt;
  return scan;
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

std::string DescribeStored(const std::string& name) {
  const auto scan = FetchScan(name);
  return scan ? Describe(*scan) : "none";
}

std::string DumpStore() {
  ScheduleScanList scans;
  std::uint32_t code = 0;
  if (!ReadScheduleScanTaskList(kTaskListPath, scans, 0, &code)) {
    return "error " + std::to_string(code);
  }
  std::string dump;
  for (const tagSCHEDULE_SCAN_ENTRY& scan : scans) dump += Describe(scan) + "\n";
  return dump;
}

Script FrequencyMenu(const char* titleKey, const std::string& choice) {
  return Out("\n" + std::string(titleKey) +
             ":\n\t1. schscan_msg_dailyscan.\n\t2. schscan_msg_weeklyscan.\n") +
         Ask("cli_usrInput_menuNumber", choice);
}

Script WeekDayEntry(const std::string& day) { return Ask("schscan_enter_weekday:", day); }

Script FirstBootEntry(const std::string& answer) {
  return Ask("\nschscan_msg_firstbootscan:", answer);
}

Script TimeEntry(const char* lead, const std::string& hour, const std::string& minute,
                 const std::string& second) {
  return Out(lead + std::string("schscan_msg_enterscantime:\n")) +
         Ask("schscan_msg_enterhours:", hour) + Ask("schscan_msg_enter_minutes:", minute) +
         Ask("schscan_msg_enter_seconds:", second);
}

Script OptionsEntry(const std::string& archive, const std::string& spyware, const std::string& dump,
                    const std::string& packed) {
  return Ask("schscan_msg_scan_archive:", archive) + Ask("schscan_msg_scan_spyware:", spyware) +
         Ask("schscan_msg_scan_dump:", dump) + Ask("schscan_msg_scan_packed:", packed);
}

Script ActionEntry(const std::string& choice) {
  return Out("\nschscan_msg_scan_action:\n\t1. schscan_msg_repaironly.\n"
             "\t2. schscan_msg_repairdelete.\n\t3. schscan_msg_delete.\n"
             "\t4. schscan_msg_reportonly.\n") +
         Ask("cli_usrInput_menuNumber", choice);
}

Script DirEntry(const std::string& path, const std::string& more) {
  return Ask("\nschscan_msg_enter_dir:", path) + Ask("schscan_confirm_addmore_item:", more);
}

Script PressKeyAfterLimit() {
  return Out("schscan_valid_scan_items.\nschscan_msg_presskey.") + Script{"", "\n"};
}

}  // namespace scantest
