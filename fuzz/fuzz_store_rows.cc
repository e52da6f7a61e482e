// The task store reading a task list whose tables have the right names and
// version but hold values that the store itself never writes: each column
// of each row is an integer of any size, a text or a blob of any length
// (with NULs), a real or NULL, as the input says, and rows may break the
// links between scans and items. Every store call must only succeed or fail,
// handing back nothing but well-formed records.
#include <sqlite3.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz/fuzz_support.h"
#include "fuzz/store_exercise.h"

namespace {

// Takes bytes off the front of the input; zeros once it is used up.
class InputBytes {
 public:
  InputBytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  std::uint8_t Byte() { return size_ > 0 ? (--size_, *data_++) : 0; }
  std::int64_t Int64() {
    std::uint64_t value = 0;
    for (int i = 0; i < 8; ++i) value = (value << 8) | Byte();
    return static_cast<std::int64_t>(value);
  }
  std::string Bytes(std::size_t length) {
    std::string bytes;
    while (bytes.size() < length && size_ > 0) bytes.push_back(static_cast<char>(Byte()));
    return bytes;
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
};

void Check(int rc, sqlite3* db) {
  if (rc != SQLITE_OK && rc != SQLITE_DONE) {
    std::fprintf(stderr, "building the task list failed: %s\n", sqlite3_errmsg(db));
    std::abort();
  }
}

// Binds one value of the kind that the next input byte chooses. Lengths
// reach past the store's field widths (256 names, 1024 paths).
void BindValue(sqlite3_stmt* statement, int index, InputBytes& in) {
  const std::uint8_t kind = in.Byte();
  switch (kind % 8) {
    case 0: sqlite3_bind_int64(statement, index, static_cast<std::int8_t>(in.Byte())); break;
    case 1: sqlite3_bind_int64(statement, index, in.Int64()); break;
    case 2: {
      const std::string text = in.Bytes(in.Byte());
      sqlite3_bind_text(statement, index, text.data(), static_cast<int>(text.size()),
                        SQLITE_TRANSIENT);
      break;
    }
    case 3: {
      const std::string blob = in.Bytes(in.Byte());
      sqlite3_bind_blob(statement, index, blob.data(), static_cast<int>(blob.size()),
                        SQLITE_TRANSIENT);
      break;
    }
    case 4: {
      // A long run of one byte: a name or a path exactly at, or past, its width.
      const std::size_t length = 250 + in.Byte() * 4u;
      const std::string text(length, static_cast<char>('A' + kind / 8 % 26));
      sqlite3_bind_text(statement, index, text.data(), static_cast<int>(text.size()),
                        SQLITE_TRANSIENT);
      break;
    }
    case 5: sqlite3_bind_double(statement, index, static_cast<double>(in.Int64()) / 7.0); break;
    case 6: sqlite3_bind_null(statement, index); break;
    default: sqlite3_bind_int64(statement, index, in.Byte() % 4); break;
  }
}

void BuildTaskList(InputBytes& in) {
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
  sqlite3_stmt* scan = nullptr;
  Check(sqlite3_prepare_v2(db,
                           "INSERT OR IGNORE INTO scans VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8,"
                           " ?9, ?10, ?11, ?12, ?13, ?14, ?15, ?16, ?17)",
                           -1, &scan, nullptr),
        db);
  const int scans = in.Byte() % 6;
  for (int row = 0; row < scans; ++row) {
    for (int column = 1; column <= 17; ++column) BindValue(scan, column, in);
    sqlite3_step(scan);  // a repeated id is ignored
    sqlite3_reset(scan);
  }
  sqlite3_finalize(scan);
  sqlite3_stmt* item = nullptr;
  Check(sqlite3_prepare_v2(db, "INSERT INTO items VALUES (?1, ?2, ?3)", -1, &item, nullptr), db);
  const int items = in.Byte() % 12;
  for (int row = 0; row < items; ++row) {
    for (int column = 1; column <= 3; ++column) BindValue(item, column, in);
    Check(sqlite3_step(item), db);
    sqlite3_reset(item);
  }
  sqlite3_finalize(item);
  Check(sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr), db);
  sqlite3_close(db);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::SetUpSeededProduct();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::RemoveTaskList();
  InputBytes in(data, size);
  BuildTaskList(in);
  fuzz::ExerciseStore();
  return 0;
}
