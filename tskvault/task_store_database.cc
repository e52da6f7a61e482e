#include "tskvault/task_store_database.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <limits>
#include <string>

#include "taskstore/result_codes.h"

namespace tskvault {
namespace {

// Scans keep their creation order in `id` (a modified scan keeps its row);
// items keep their order in `position`. Names are unique across all users
// and compared byte for byte. Every field of the record has a column, the
// reserved bytes included, so a fetched record equals the stored one.
constexpr char kCreateSchema[] = R"sql(
CREATE TABLE scans (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL UNIQUE CHECK (length(name) BETWEEN 1 AND 254),
  owner INTEGER NOT NULL CHECK (owner BETWEEN 0 AND 4294967295),
  frequency INTEGER NOT NULL,
  first_boot INTEGER NOT NULL,
  hour INTEGER NOT NULL,
  minute INTEGER NOT NULL,
  second INTEGER NOT NULL,
  repeat_scan INTEGER NOT NULL,
  recur_every INTEGER NOT NULL,
  repeat_interval INTEGER NOT NULL,
  repeat_unit INTEGER NOT NULL,
  week_day INTEGER NOT NULL,
  reserved1 BLOB NOT NULL CHECK (length(reserved1) = 2),
  action INTEGER NOT NULL,
  options INTEGER NOT NULL,
  reserved2 BLOB NOT NULL CHECK (length(reserved2) = 21),
  anchor INTEGER NOT NULL
);
CREATE INDEX scans_by_owner ON scans (owner);
CREATE TABLE items (
  scan_id INTEGER NOT NULL REFERENCES scans (id) ON DELETE CASCADE,
  position INTEGER NOT NULL,
  path BLOB NOT NULL CHECK (length(path) BETWEEN 1 AND 1023),
  PRIMARY KEY (scan_id, position)
) WITHOUT ROWID;
PRAGMA user_version = 2;
)sql";
static_assert(kSchemaVersion == 2, "kCreateSchema sets the version");

// Version 1 had no anchor: its scans get the moment of the upgrade.
constexpr char kUpgradeFrom1[] = R"sql(
ALTER TABLE scans ADD COLUMN anchor INTEGER NOT NULL DEFAULT 0;
UPDATE scans SET anchor = CAST(strftime('%s', 'now') AS INTEGER);
PRAGMA user_version = 2;
)sql";

void Check(int sqliteCode) {
  if (sqliteCode != SQLITE_OK) Fail(ResultCodeOfSqlite(sqliteCode));
}

// Creates the task list file if it does not exist yet. The file is created
// here rather than by SQLite so that its mode is exactly kTaskListMode.
void CreateFileIfMissing(const char* path) {
  const int fd = open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kTaskListMode);
  if (fd < 0) {
    if (errno == EEXIST) return;
    Fail(SCHSCAN_ERR_LIST_ACCESS);
  }
  const bool modeSet = fchmod(fd, kTaskListMode) == 0;  // the umask may have cleared bits
  const bool closed = close(fd) == 0;
  if (!modeSet || !closed) Fail(SCHSCAN_ERR_LIST_ACCESS);
}

// The file that `path` names: an install makes the task list a symbolic link
// (owned by root, in a directory only root may change) to a directory of
// the store's own, where the store keeps its side files beside it.
std::string TaskListFile(const char* path) {
  char target[4096];
  const ssize_t length = readlink(path, target, sizeof target - 1);
  if (length <= 0) return path;  // not a link
  const std::string link = path;
  std::string named(target, static_cast<std::size_t>(length));
  if (named[0] == '/' || link.find('/') == std::string::npos) return named;
  return link.substr(0, link.rfind('/') + 1) + named;
}

}  // namespace

void Fail(std::uint32_t code) { throw StoreFailure{code}; }

std::uint32_t ResultCodeOfSqlite(int sqliteCode) {
  switch (sqliteCode & 0xff) {
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
    case SQLITE_READONLY:
    case SQLITE_AUTH:
      return SCHSCAN_ERR_LIST_ACCESS;
    default:
      return SCHSCAN_ERR_LIST_OPERATION;
  }
}

Statement::Statement(sqlite3* db, const char* sql) : db_(db) {
  const int rc = sqlite3_prepare_v2(db, sql, -1, &statement_, nullptr);
  if (rc != SQLITE_OK) {
    sqlite3_finalize(statement_);
    Fail(ResultCodeOfSqlite(rc));
  }
}

Statement::~Statement() { sqlite3_finalize(statement_); }

Statement& Statement::Bind(int index, std::int64_t value) {
  Check(sqlite3_bind_int64(statement_, index, value));
  return *this;
}

Statement& Statement::BindText(int index, std::string_view text) {
  if (text.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
    Fail(SCHSCAN_ERR_LIST_OPERATION);
  Check(sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()),
                               SQLITE_TRANSIENT));
  return *this;
}

Statement& Statement::BindBlob(int index, const void* data, std::size_t size) {
  if (size > static_cast<std::size_t>(std::numeric_limits<int>::max()))
    Fail(SCHSCAN_ERR_LIST_OPERATION);
  Check(sqlite3_bind_blob(statement_, index, data, static_cast<int>(size),
                               SQLITE_TRANSIENT));
  return *this;
}

bool Statement::Step() {
  const int rc = sqlite3_step(statement_);
  if (rc == SQLITE_ROW) return true;
  if (rc == SQLITE_DONE) return false;
  Fail(ResultCodeOfSqlite(rc));
}

void Statement::Run() {
  if (Step()) Fail(SCHSCAN_ERR_LIST_OPERATION);
  Reset();
}

void Statement::Reset() {
  Check(sqlite3_reset(statement_));
  Check(sqlite3_clear_bindings(statement_));
}

std::int64_t Statement::Int(int column) const {
  return sqlite3_column_int64(statement_, column);
}

std::string_view Statement::Bytes(int column) const {
  // Asking for the blob first keeps a text value's bytes as stored.
  const void* data = sqlite3_column_blob(statement_, column);
  const int size = sqlite3_column_bytes(statement_, column);
  if (size == 0) return {};
  if (data == nullptr) Fail(SCHSCAN_ERR_LIST_OPERATION);  // out of memory
  return {static_cast<const char*>(data), static_cast<std::size_t>(size)};
}

TaskStoreDatabase::TaskStoreDatabase(const char* taskListPath, Open how) {
  const std::string file = TaskListFile(taskListPath);
  const char* path = file.c_str();
  if (how == Open::kCreate) {
    CreateFileIfMissing(path);
  } else {
    struct stat status {};
    if (stat(path, &status) != 0) {
      Fail(errno == ENOENT || errno == ENOTDIR ? SCHSCAN_ERR_LIST_NOT_FOUND
                                              : SCHSCAN_ERR_LIST_ACCESS);
    }
  }
  // Without SQLITE_OPEN_CREATE: a file that vanished since is not recreated
  // by SQLite with its own mode. A write-protected file opens for reading.
  // The connection never leaves this call's thread, so it needs no mutex.
  const int rc =
      sqlite3_open_v2(path, &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  if (rc != SQLITE_OK) {
    sqlite3_close_v2(db_);
    db_ = nullptr;
    Fail(SCHSCAN_ERR_LIST_ACCESS);
  }
  try {
    Check(sqlite3_busy_timeout(db_, kBusyTimeoutMilliseconds));
    Check(sqlite3_db_config(db_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr));
    // The write-ahead log and its index stay when the last connection
    // closes, with the task list's owner and mode: a connection of root's
    // never leaves the store to users who could not create them again.
    int persist = 1;
    Check(sqlite3_file_control(db_, "main", SQLITE_FCNTL_PERSIST_WAL, &persist));
    Execute("PRAGMA foreign_keys = ON; PRAGMA trusted_schema = OFF;");
    // Kept in the file once set. A store that others use at this moment
    // stays in its old mode until a later call finds it alone.
    sqlite3_exec(db_, "PRAGMA journal_mode = WAL", nullptr, nullptr, nullptr);
    UpgradeFromVersion1();
  } catch (...) {
    sqlite3_close_v2(db_);
    throw;
  }
}

TaskStoreDatabase::~TaskStoreDatabase() { sqlite3_close_v2(db_); }

// An upgrade that cannot be made now (the caller may only read, or another
// writer holds the store) is left for a later call; until then the store
// counts as another version.
void TaskStoreDatabase::UpgradeFromVersion1() {
  const auto version = [this] {
    Statement query(db_, "PRAGMA user_version");
    return query.Step() ? query.Int(0) : -1;
  };
  if (version() != 1) return;
  try {
    Transaction transaction(*this, Transaction::Kind::kWrite);
    if (version() != 1) return;
    Execute(kUpgradeFrom1);
    transaction.Commit();
  } catch (const StoreFailure&) {
  }
}

void TaskStoreDatabase::Execute(const char* sql) {
  Check(sqlite3_exec(db_, sql, nullptr, nullptr, nullptr));
}

std::int64_t TaskStoreDatabase::LastInsertId() const { return sqlite3_last_insert_rowid(db_); }

Transaction::Transaction(TaskStoreDatabase& database, Kind kind) : database_(database) {
  database_.Execute(kind == Kind::kWrite ? "BEGIN IMMEDIATE" : "BEGIN");
  open_ = true;
}

Transaction::~Transaction() {
  if (open_) sqlite3_exec(database_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

bool Transaction::HasSchema() {
  Statement version(database_.handle(), "PRAGMA user_version");
  if (!version.Step()) Fail(SCHSCAN_ERR_LIST_OPERATION);
  const std::int64_t userVersion = version.Int(0);
  Statement tables(database_.handle(),
                   "SELECT count(*), count(CASE WHEN name IN ('scans', 'items') THEN 1 END)"
                   " FROM sqlite_schema WHERE type = 'table'");
  if (!tables.Step()) Fail(SCHSCAN_ERR_LIST_OPERATION);
  const std::int64_t allTables = tables.Int(0);
  const std::int64_t ourTables = tables.Int(1);
  if (userVersion == 0 && allTables == 0) return false;  // created, never written
  if (userVersion == kSchemaVersion && ourTables == 2) return true;
  Fail(SCHSCAN_ERR_LIST_OPERATION);  // another database, or another version
}

void Transaction::CreateSchema() { database_.Execute(kCreateSchema); }

void Transaction::Commit() {
  database_.Execute("COMMIT");
  open_ = false;
}

}  // namespace tskvault
