// The task store on a task list that it did not write, two targets from this
// source. fuzz_store_file takes the input's bytes as the file; its seeds are
// real task lists, so mutations reach the database's pages and schema as well
// as its header. fuzz_store_rows (FUZZ_STORE_ROWS) builds a task list with the
// right tables and version whose columns hold what the input says: an integer
// of any size, a text or a blob of any length (with NULs), a real or NULL,
// rows that break the links between scans and items. Then every store call
// (listing for both users, details, both name checks, add, modify, delete)
// must only succeed or fail, handing back nothing but records whose strings
// end within their fields.
#include <sqlite3.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"

namespace {

void CheckRecord(const tagSCHEDULE_SCAN_ENTRY& scan) {
  fuzz::Require(strnlen(scan.szScanName, SCAN_NAME_SIZE) < SCAN_NAME_SIZE,
                "a stored name came back without its NUL");
  fuzz::Require(scan.vecScanItems.size() <= MAX_SCAN_ITEMS * 1000,
                "an item list of absurd size came back");
  for (std::size_t i = 0; i < scan.vecScanItems.size(); ++i) {
    fuzz::Require(strnlen(scan.vecScanItems.PathAt(i), SCAN_ITEM_SIZE) < SCAN_ITEM_SIZE,
                  "a stored directory came back without its NUL");
  }
}

void ExerciseStore() {
  const char* file = kTaskListPath;
  std::uint32_t code = SCHSCAN_OK;
  std::vector<std::string> names = {"Daily1", ""};
  for (const std::uint32_t user : {0u, 1000u}) {
    ScheduleScanList scans;
    if (!ReadScheduleScanTaskList(file, scans, user, &code)) continue;
    for (const tagSCHEDULE_SCAN_ENTRY& scan : scans) {
      CheckRecord(scan);
      if (names.size() < 4) names.emplace_back(scan.szScanName);
    }
  }
  for (const std::string& name : names) {
    for (const std::uint32_t user : {0u, 1000u}) {
      ValidateTaskName(name.c_str(), kNameMustBeNew, user, &code);
      ValidateTaskName(name.c_str(), kNameMustExist, user, &code);
      tagSCHEDULE_SCAN_ENTRY scan = testing_support::MakeScan(name, 0, {"/tmp"});
      if (GetScheduleScanTaskDetails(file, &scan, user, &code)) {
        CheckRecord(scan);
        scan.nHour = 5;
        ModifyScheduleScanTask(file, &scan, user, &code);
      }
    }
  }
  tagSCHEDULE_SCAN_ENTRY added = testing_support::MakeScan("FuzzAdded", 1000, {"/tmp"});
  AddScheduleScanTask(file, &added, &code);
  tagSCHEDULE_SCAN_ENTRY modified = testing_support::MakeScan(names.back(), 1000, {"/tmp"});
  ModifyScheduleScanTask(file, &modified, 0, &code);
  DeleteScheduleScanTask(file, names.back().c_str(), 1000, &code);
  DeleteScheduleScanTask(file, names.back().c_str(), 0, &code);
  ScheduleScanList after;
  if (ReadScheduleScanTaskList(file, after, 0, &code)) {
    for (const tagSCHEDULE_SCAN_ENTRY& scan : after) CheckRecord(scan);
  }
}

#ifdef FUZZ_STORE_ROWS

// Takes bytes off the front of the input; zeros once it is used up.
struct InputBytes {
  const std::uint8_t* data;
  std::size_t size;
  std::uint8_t Byte() { return size > 0 ? (--size, *data++) : 0; }
  std::int64_t Int64() {
    std::uint64_t value = 0;
    for (int i = 0; i < 8; ++i) value = (value << 8) | Byte();
    return static_cast<std::int64_t>(value);
  }
  std::string Bytes(std::size_t length) {
    std::string bytes;
    while (bytes.size() < length && size > 0) bytes.push_back(static_cast<char>(Byte()));
    return bytes;
  }
};

// Building the task list must succeed; SQLite's message says why it did not.
void Check(int rc, sqlite3* db) {
  fuzz::Require(rc == SQLITE_OK || rc == SQLITE_DONE, sqlite3_errmsg(db));
}

// Binds one value of the kind that the next input byte chooses. Lengths
// reach past the store's field widths (256 names, 1024 paths).
void BindValue(sqlite3_stmt* statement, int index, InputBytes& in) {
  const std::uint8_t kind = in.Byte();
  std::string bytes;
  switch (kind % 8) {
    case 0: sqlite3_bind_int64(statement, index, static_cast<std::int8_t>(in.Byte())); break;
    case 1: sqlite3_bind_int64(statement, index, in.Int64()); break;
    case 2:
      bytes = in.Bytes(in.Byte());
      sqlite3_bind_text(statement, index, bytes.data(), static_cast<int>(bytes.size()),
                        SQLITE_TRANSIENT);
      break;
    case 3:
      bytes = in.Bytes(in.Byte());
      sqlite3_bind_blob(statement, index, bytes.data(), static_cast<int>(bytes.size()),
                        SQLITE_TRANSIENT);
      break;
    case 4:  // a long run of one byte: a name or a path exactly at, or past, its width
      bytes.assign(250 + in.Byte() * 4u, static_cast<char>('A' + kind / 8 % 26));
      sqlite3_bind_text(statement, index, bytes.data(), static_cast<int>(bytes.size()),
                        SQLITE_TRANSIENT);
      break;
    case 5: sqlite3_bind_double(statement, index, static_cast<double>(in.Int64()) / 7.0); break;
    case 6: sqlite3_bind_null(statement, index); break;
    default: sqlite3_bind_int64(statement, index, in.Byte() % 4); break;
  }
}

// Inserts up to `maxRows` rows of `columns` values each.
void InsertRows(sqlite3* db, const char* sql, int columns, int maxRows, InputBytes& in) {
  sqlite3_stmt* insert = nullptr;
  Check(sqlite3_prepare_v2(db, sql, -1, &insert, nullptr), db);
  for (int row = in.Byte() % maxRows; row > 0; --row) {
    for (int column = 1; column <= columns; ++column) BindValue(insert, column, in);
    sqlite3_step(insert);  // a repeated scan id is ignored
    sqlite3_reset(insert);
  }
  sqlite3_finalize(insert);
}

void WriteTaskList(const std::uint8_t* data, std::size_t size) {
  InputBytes in{data, size};
  sqlite3* db = nullptr;
  Check(sqlite3_open_v2(kTaskListPath, &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr),
        db);
  Check(sqlite3_exec(db,
                     "CREATE TABLE scans (id INTEGER PRIMARY KEY, name, owner, frequency,"
                     " first_boot, hour, minute, second, repeat_scan, recur_every,"
                     " repeat_interval, repeat_unit, week_day, reserved1, action, options,"
                     " reserved2);"
                     "CREATE TABLE items (scan_id, position, path);"
                     "PRAGMA user_version = 1; BEGIN;",
                     nullptr, nullptr, nullptr),
        db);
  InsertRows(db, "INSERT OR IGNORE INTO scans VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9,"
             " ?10, ?11, ?12, ?13, ?14, ?15, ?16, ?17)", 17, 6, in);
  InsertRows(db, "INSERT INTO items VALUES (?1, ?2, ?3)", 3, 12, in);
  Check(sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr), db);
  sqlite3_close(db);
}

#else

void WriteTaskList(const std::uint8_t* data, std::size_t size) {
  fuzz::WriteFile(kTaskListPath, data, size);
}

#endif

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::TakeProduct();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  for (const char* suffix : {"", "-journal", "-wal", "-shm"})  // of the last input's connection
    unlink((std::string(kTaskListPath) + suffix).c_str());
  WriteTaskList(data, size);
  ExerciseStore();
  return 0;
}
