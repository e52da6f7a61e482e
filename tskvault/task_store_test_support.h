// For the store's tests only: a scratch directory for task list files,
// records that the store accepts, and direct SQL on a store file.
#pragma once

#include <sqlite3.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <stdexcept>
#include <string>

#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"

namespace tskvault_test {

// A fresh directory under /tmp, removed with everything in it at the end.
class ScratchDirectory {
 public:
  explicit ScratchDirectory(const char* pattern = "/tmp/tskvault-test-XXXXXX") : path_(pattern) {
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("mkdtemp " + path_);
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// A daily scan at 10:30:00, every day, not repeated, that the store accepts.
inline tagSCHEDULE_SCAN_ENTRY MakeScan(const std::string& name, std::uint32_t owner,
                                       std::initializer_list<const char*> paths = {"/data"}) {
  tagSCHEDULE_SCAN_ENTRY entry;
  PrepareNewScheduleScanEntry(&entry);
  name.copy(entry.szScanName, SCAN_NAME_SIZE - 1);
  entry.nHour = 10;
  entry.nMinute = 30;
  entry.nRecurEvery = 1;
  entry.dwUserId = owner;
  for (const char* path : paths) entry.vecScanItems.AppendPath(path);
  return entry;
}

// Adds `entry`; returns SCHSCAN_OK or the store's result code.
inline std::uint32_t Add(const std::string& store, tagSCHEDULE_SCAN_ENTRY entry) {
  std::uint32_t code = SCHSCAN_OK;
  return AddScheduleScanTask(store.c_str(), &entry, &code) ? SCHSCAN_OK : code;
}

// The first column of the first row of `sql` on the store file, as text;
// "" for no row, "(error)" when the statement fails.
inline std::string QueryStore(const std::string& store, const char* sql) {
  sqlite3* db = nullptr;
  std::string value = "(error)";
  if (sqlite3_open_v2(store.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
    sqlite3_busy_timeout(db, 30000);
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) == SQLITE_OK) {
      const int rc = sqlite3_step(statement);
      const unsigned char* text = rc == SQLITE_ROW ? sqlite3_column_text(statement, 0) : nullptr;
      if (rc == SQLITE_ROW || rc == SQLITE_DONE)
        value = text != nullptr ? reinterpret_cast<const char*>(text) : "";
    }
    sqlite3_finalize(statement);
  }
  sqlite3_close_v2(db);
  return value;
}

}  // namespace tskvault_test
