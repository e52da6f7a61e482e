// The task list file as an SQLite database: opening it (creating it with mode
// 0660 on the first add, through the symbolic link that an install makes to
// the store's own directory), its schema and version, transactions and
// prepared statements. A failure anywhere is thrown as a StoreFailure that carries the
// result code; the exported functions turn it into their false result.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace tskvault {

// Version of the schema, kept in PRAGMA user_version. Version 2 added each
// scan's anchor; a store of version 1 is upgraded when it is opened.
inline constexpr int kSchemaVersion = 2;
// Permission bits of a newly created task list, whatever the umask.
inline constexpr mode_t kTaskListMode = 0660;
// How long a change waits for another process's change before failing: a
// writer that stopped half way keeps others from writing no longer than
// this. Readers never wait for a writer: the store keeps a write-ahead log.
inline constexpr int kBusyTimeoutMilliseconds = 3000;

struct StoreFailure {
  std::uint32_t code;
};

[[noreturn]] void Fail(std::uint32_t code);

// Maps an SQLite result code to ours: permission and open problems become
// SCHSCAN_ERR_LIST_ACCESS, everything else SCHSCAN_ERR_LIST_OPERATION.
std::uint32_t ResultCodeOfSqlite(int sqliteCode);

class Statement {
 public:
  Statement(sqlite3* db, const char* sql);
  ~Statement();
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  Statement& Bind(int index, std::int64_t value);
  Statement& BindText(int index, std::string_view text);
  Statement& BindBlob(int index, const void* data, std::size_t size);
  // Steps once: true when a row is ready, false when the statement is done.
  bool Step();
  // Steps a statement that returns no row, then resets it for new bindings.
  void Run();
  void Reset();

  std::int64_t Int(int column) const;
  // The bytes of a text or blob column; valid until the next Step.
  std::string_view Bytes(int column) const;

 private:
  sqlite3* db_;
  sqlite3_stmt* statement_ = nullptr;
};

class TaskStoreDatabase {
 public:
  enum class Open {
    kExisting,  // a missing file fails with SCHSCAN_ERR_LIST_NOT_FOUND
    kCreate,    // a missing file is created, empty, with kTaskListMode
  };

  TaskStoreDatabase(const char* taskListPath, Open how);
  ~TaskStoreDatabase();
  TaskStoreDatabase(const TaskStoreDatabase&) = delete;
  TaskStoreDatabase& operator=(const TaskStoreDatabase&) = delete;

  sqlite3* handle() const { return db_; }
  void Execute(const char* sql);
  std::int64_t LastInsertId() const;

 private:
  void UpgradeFromVersion1();

  sqlite3* db_ = nullptr;
};

// One transaction; rolled back unless committed. A write transaction takes
// the write lock at once (BEGIN IMMEDIATE), so that a check and the change
// that depends on it see the same store.
class Transaction {
 public:
  enum class Kind { kRead, kWrite };

  Transaction(TaskStoreDatabase& database, Kind kind);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  // False for a file that holds no schema yet (created, never written).
  // Throws SCHSCAN_ERR_LIST_OPERATION for a database that is not a task
  // list of this version.
  bool HasSchema();
  // Creates the tables in an empty file; part of this transaction.
  void CreateSchema();
  void Commit();

 private:
  TaskStoreDatabase& database_;
  bool open_ = false;
};

}  // namespace tskvault
