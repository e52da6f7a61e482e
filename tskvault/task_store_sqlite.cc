// The scheduled scans in the task list database: listing, lookup, add,
// modify, delete and the name check. Each call opens the database, does its
// work in one transaction and closes it again; nothing is kept between calls.
#include <cstring>
#include <ctime>
#include <exception>
#include <iterator>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "product_paths.h"
#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"
#include "tskvault/scan_record_rules.h"
#include "tskvault/task_store_database.h"

namespace {

using tskvault::Fail;
using tskvault::StoreFailure;
using tskvault::Statement;
using tskvault::TaskStoreDatabase;
using tskvault::Transaction;

constexpr std::uint32_t kSuperUser = 0;

// Column order shared by every query that reads a whole scan.
constexpr char kSelectScans[] =
    "SELECT id, name, owner, frequency, first_boot, hour, minute, second, repeat_scan,"
    " recur_every, repeat_interval, repeat_unit, week_day, reserved1, action, options,"
    " reserved2, anchor FROM scans ";
// Parameters 3 to 16 are the scan's fields, bound by BindScanFields; 17 is
// the time of the change, which becomes the scan's anchor: the moment it was
// added, or its frequency, weekday, recurrence, start time or first-boot
// setting last changed.
constexpr char kInsertScan[] =
    "INSERT INTO scans (name, owner, frequency, first_boot, hour, minute, second, repeat_scan,"
    " recur_every, repeat_interval, repeat_unit, week_day, reserved1, action, options,"
    " reserved2, anchor) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14,"
    " ?15, ?16, ?17)";
constexpr char kUpdateScan[] =
    "UPDATE scans SET frequency = ?3, first_boot = ?4, hour = ?5, minute = ?6, second = ?7,"
    " repeat_scan = ?8, recur_every = ?9, repeat_interval = ?10, repeat_unit = ?11,"
    " week_day = ?12, reserved1 = ?13, action = ?14, options = ?15, reserved2 = ?16,"
    " anchor = CASE WHEN frequency = ?3 AND first_boot = ?4 AND hour = ?5 AND minute = ?6"
    " AND second = ?7 AND recur_every = ?9 AND week_day = ?12 THEN anchor ELSE ?17 END"
    " WHERE id = ?1";

// Runs `body` and turns its failure into false with the result code. Without
// a place for the result code nothing is done.
template <typename Body>
bool Guarded(std::uint32_t* resultCode, Body&& body) {
  if (resultCode == nullptr) return false;
  try {
    body();
    return true;
  } catch (const StoreFailure& failure) {
    *resultCode = failure.code;
  } catch (const std::exception&) {  // out of memory
    *resultCode = SCHSCAN_ERR_LIST_OPERATION;
  }
  return false;
}

template <typename T>
T Narrow(std::int64_t value) {
  if (value < std::numeric_limits<T>::min() || value > std::numeric_limits<T>::max())
    Fail(SCHSCAN_ERR_LIST_OPERATION);
  return static_cast<T>(value);
}

// Copies a stored string into a character field, NUL-terminated with the rest
// of the field zero. A string that does not fit is refused, not cut.
void CopyString(std::string_view stored, char* field, std::size_t fieldSize) {
  if (stored.size() >= fieldSize) Fail(SCHSCAN_ERR_LIST_OPERATION);
  std::memset(field, 0, fieldSize);
  // An empty value has no bytes to copy, and may have no address either.
  if (!stored.empty()) std::memcpy(field, stored.data(), stored.size());
}

void CopyBytes(std::string_view stored, std::uint8_t* field, std::size_t fieldSize) {
  if (stored.size() != fieldSize) Fail(SCHSCAN_ERR_LIST_OPERATION);
  std::memcpy(field, stored.data(), fieldSize);
}

// Fills every field but the item list from a row of kSelectScans; returns
// the scan's id.
std::int64_t ReadScanRow(const Statement& row, tagSCHEDULE_SCAN_ENTRY& entry) {
  CopyString(row.Bytes(1), entry.szScanName, SCAN_NAME_SIZE);
  entry.dwUserId = Narrow<std::uint32_t>(row.Int(2));
  entry.byFrequency = Narrow<std::uint8_t>(row.Int(3));
  entry.bFirstBootScan = Narrow<std::uint8_t>(row.Int(4));
  entry.nHour = Narrow<std::int16_t>(row.Int(5));
  entry.nMinute = Narrow<std::int16_t>(row.Int(6));
  entry.nSecond = Narrow<std::int16_t>(row.Int(7));
  entry.bRepeatScan = Narrow<std::uint8_t>(row.Int(8));
  entry.nRecurEvery = Narrow<std::int16_t>(row.Int(9));
  entry.nRepeatInterval = Narrow<std::int16_t>(row.Int(10));
  entry.byRepeatUnit = Narrow<std::uint8_t>(row.Int(11));
  entry.byWeekDay = Narrow<std::uint8_t>(row.Int(12));
  CopyBytes(row.Bytes(13), entry.abyReserved1, sizeof entry.abyReserved1);
  entry.nScanAction = Narrow<std::int16_t>(row.Int(14));
  entry.byScanOptions = Narrow<std::uint8_t>(row.Int(15));
  CopyBytes(row.Bytes(16), entry.abyReserved2, sizeof entry.abyReserved2);
  return row.Int(0);
}

void AppendStoredPath(std::string_view stored, ScanItemList& items) {
  tagSCAN_ITEM item;  // CopyString fills all of it
  CopyString(stored, item.szPath, sizeof item.szPath);
  // cppcheck-suppress uninitvar
  items.Append(item);
}

void BindScanFields(Statement& statement, const tagSCHEDULE_SCAN_ENTRY& entry) {
  statement.Bind(3, entry.byFrequency)
      .Bind(4, entry.bFirstBootScan)
      .Bind(5, entry.nHour)
      .Bind(6, entry.nMinute)
      .Bind(7, entry.nSecond)
      .Bind(8, entry.bRepeatScan)
      .Bind(9, entry.nRecurEvery)
      .Bind(10, entry.nRepeatInterval)
      .Bind(11, entry.byRepeatUnit)
      .Bind(12, entry.byWeekDay)
      .BindBlob(13, entry.abyReserved1, sizeof entry.abyReserved1)
      .Bind(14, entry.nScanAction)
      .Bind(15, entry.byScanOptions)
      .BindBlob(16, entry.abyReserved2, sizeof entry.abyReserved2)
      .Bind(17, static_cast<std::int64_t>(std::time(nullptr)));
}

void InsertItems(TaskStoreDatabase& database, std::int64_t scanId, const ScanItemList& items) {
  Statement insert(database.handle(),
                   "INSERT INTO items (scan_id, position, path) VALUES (?1, ?2, ?3)");
  for (std::size_t i = 0; i < items.size(); ++i) {
    const char* path = items.PathAt(i);
    insert.Bind(1, scanId)
        .Bind(2, static_cast<std::int64_t>(i))
        .BindBlob(3, path, strnlen(path, SCAN_ITEM_SIZE));
    insert.Run();
  }
}

void DeleteItems(TaskStoreDatabase& database, std::int64_t scanId) {
  Statement remove(database.handle(), "DELETE FROM items WHERE scan_id = ?1");
  remove.Bind(1, scanId).Run();
}

struct ScanOwner {
  std::int64_t id;
  std::uint32_t owner;
};

// The scan called `name`, if any.
bool FindScan(TaskStoreDatabase& database, std::string_view name, ScanOwner& found) {
  Statement lookup(database.handle(), "SELECT id, owner FROM scans WHERE name = ?1");
  lookup.BindText(1, name);
  if (!lookup.Step()) return false;
  found = {lookup.Int(0), Narrow<std::uint32_t>(lookup.Int(1))};
  return true;
}

bool HoldsAnyScan(TaskStoreDatabase& database) {
  Statement any(database.handle(), "SELECT EXISTS (SELECT 1 FROM scans)");
  return any.Step() && any.Int(0) != 0;
}

// The id of the existing scan `name` that `userId` may read, change or
// delete: SCHSCAN_ERR_LIST_NOT_FOUND when the store holds no scan at all,
// SCHSCAN_ERR_NAME_NOT_CONFIGURED when none has that name,
// SCHSCAN_ERR_OTHER_USER when it is another user's and the caller is not the
// super-user.
std::int64_t FindUsersScan(TaskStoreDatabase& database, Transaction& transaction,
                           std::string_view name, std::uint32_t userId) {
  if (!transaction.HasSchema() || !HoldsAnyScan(database)) Fail(SCHSCAN_ERR_LIST_NOT_FOUND);
  ScanOwner scan{};
  if (!FindScan(database, name, scan)) Fail(SCHSCAN_ERR_NAME_NOT_CONFIGURED);
  if (scan.owner != userId && userId != kSuperUser) Fail(SCHSCAN_ERR_OTHER_USER);
  return scan.id;
}

// Refuses a name that is already in use: SCHSCAN_ERR_NAME_CONFIGURED when
// `userId` owns it, SCHSCAN_ERR_OTHER_USER when another user does (also for
// the super-user, since names are unique across all users).
void RefuseUsedName(TaskStoreDatabase& database, std::string_view name, std::uint32_t userId) {
  ScanOwner scan{};
  if (FindScan(database, name, scan)) {
    Fail(scan.owner == userId ? SCHSCAN_ERR_NAME_CONFIGURED : SCHSCAN_ERR_OTHER_USER);
  }
}

void CheckNewName(const char* taskListPath, const char* scanName, std::uint32_t userId) {
  if (scanName == nullptr) Fail(SCHSCAN_ERR_NAME_EMPTY);
  const std::string_view name = scanName;
  if (const std::uint32_t code = tskvault::CheckNewScanName(name); code != SCHSCAN_OK) Fail(code);
  try {
    TaskStoreDatabase database(taskListPath, TaskStoreDatabase::Open::kExisting);
    Transaction transaction(database, Transaction::Kind::kRead);
    if (transaction.HasSchema()) RefuseUsedName(database, name, userId);
  } catch (const StoreFailure& failure) {
    if (failure.code != SCHSCAN_ERR_LIST_NOT_FOUND) throw;  // no store yet: every name is new
  }
}

void CheckExistingName(const char* taskListPath, const char* scanName, std::uint32_t userId) {
  if (scanName == nullptr) Fail(SCHSCAN_ERR_NAME_NOT_CONFIGURED);
  TaskStoreDatabase database(taskListPath, TaskStoreDatabase::Open::kExisting);
  Transaction transaction(database, Transaction::Kind::kRead);
  FindUsersScan(database, transaction, scanName, userId);
}

// `anchors`, when given, receives each listed scan's anchor.
void ListScans(const char* taskListPath, ScheduleScanList& scanList, std::uint32_t userId,
               std::vector<std::int64_t>* anchors = nullptr) {
  TaskStoreDatabase database(taskListPath, TaskStoreDatabase::Open::kExisting);
  Transaction transaction(database, Transaction::Kind::kRead);
  if (!transaction.HasSchema()) return;

  // Records are built in a list of our own and handed over whole, so that a
  // failure half way leaves the caller's list as it was.
  const bool everyone = userId == kSuperUser;
  Statement count(database.handle(), everyone ? "SELECT count(*) FROM scans"
                                              : "SELECT count(*) FROM scans WHERE owner = ?1");
  if (!everyone) count.Bind(1, userId);
  if (!count.Step()) Fail(SCHSCAN_ERR_LIST_OPERATION);
  ScheduleScanList scans;
  std::vector<std::int64_t> ids;  // ids[i] is the id of scans[i], ascending
  scans.reserve(Narrow<std::uint32_t>(count.Int(0)));
  ids.reserve(scans.capacity());

  const std::string scanQuery =
      std::string(kSelectScans) + (everyone ? "ORDER BY id" : "WHERE owner = ?1 ORDER BY id");
  Statement scanRows(database.handle(), scanQuery.c_str());
  if (!everyone) scanRows.Bind(1, userId);
  std::vector<std::int64_t> anchorsRead;
  while (scanRows.Step()) {
    tagSCHEDULE_SCAN_ENTRY& entry = scans.emplace_back();
    PrepareNewScheduleScanEntry(&entry);
    ids.push_back(ReadScanRow(scanRows, entry));
    if (anchors != nullptr) anchorsRead.push_back(scanRows.Int(17));
  }

  // Items come in the same id order, so one walk merges them in. A scan's
  // items are gathered in `pending` and copied into its record at their
  // exact size, which keeps a long list from holding spare capacity.
  Statement itemRows(database.handle(),
                     everyone ? "SELECT scan_id, path FROM items ORDER BY scan_id, position"
                              : "SELECT scan_id, path FROM items WHERE scan_id IN"
                                " (SELECT id FROM scans WHERE owner = ?1)"
                                " ORDER BY scan_id, position");
  if (!everyone) itemRows.Bind(1, userId);
  ScanItemList pending;
  std::size_t next = 0;  // the record whose items are being gathered
  const auto flush = [&] {
    if (pending.empty()) return;
    scans[next].vecScanItems = pending;
    pending.Clear();
  };
  while (next < ids.size() && itemRows.Step()) {
    const std::int64_t scanId = itemRows.Int(0);
    if (scanId != ids[next]) {
      flush();
      while (next < ids.size() && ids[next] < scanId) ++next;
      if (next == ids.size() || ids[next] != scanId) continue;  // not a listed scan
    }
    AppendStoredPath(itemRows.Bytes(1), pending);
  }
  flush();
  transaction.Commit();

  if (anchors != nullptr) anchors->insert(anchors->end(), anchorsRead.begin(), anchorsRead.end());
  if (scanList.empty()) {
    scanList = std::move(scans);
  } else {
    scanList.insert(scanList.end(), std::make_move_iterator(scans.begin()),
                    std::make_move_iterator(scans.end()));
  }
}

void FetchScan(const char* taskListPath, tagSCHEDULE_SCAN_ENTRY& entry, std::uint32_t userId) {
  TaskStoreDatabase database(taskListPath, TaskStoreDatabase::Open::kExisting);
  Transaction transaction(database, Transaction::Kind::kRead);
  const std::int64_t id =
      FindUsersScan(database, transaction, tskvault::ScanNameOf(entry), userId);

  tagSCHEDULE_SCAN_ENTRY stored;
  PrepareNewScheduleScanEntry(&stored);
  const std::string scanQuery = std::string(kSelectScans) + "WHERE id = ?1";
  Statement scanRow(database.handle(), scanQuery.c_str());
  scanRow.Bind(1, id);
  if (!scanRow.Step()) Fail(SCHSCAN_ERR_LIST_OPERATION);
  ReadScanRow(scanRow, stored);
  Statement itemRows(database.handle(),
                     "SELECT path FROM items WHERE scan_id = ?1 ORDER BY position");
  itemRows.Bind(1, id);
  while (itemRows.Step()) AppendStoredPath(itemRows.Bytes(0), stored.vecScanItems);
  transaction.Commit();
  entry = std::move(stored);
}

void AddScan(const char* taskListPath, const tagSCHEDULE_SCAN_ENTRY& entry) {
  if (!tskvault::IsStorableScanRecord(entry)) Fail(SCHSCAN_ERR_LIST_OPERATION);
  const std::string_view name = tskvault::ScanNameOf(entry);
  const std::uint32_t owner = entry.dwUserId;

  TaskStoreDatabase database(taskListPath, TaskStoreDatabase::Open::kCreate);
  Transaction transaction(database, Transaction::Kind::kWrite);
  if (!transaction.HasSchema()) transaction.CreateSchema();
  // Checked under the write lock, so two runs adding one name store it once.
  RefuseUsedName(database, name, owner);
  Statement insert(database.handle(), kInsertScan);
  insert.BindText(1, name).Bind(2, owner);
  BindScanFields(insert, entry);
  insert.Run();
  InsertItems(database, database.LastInsertId(), entry.vecScanItems);
  transaction.Commit();
}

void ModifyScan(const char* taskListPath, const tagSCHEDULE_SCAN_ENTRY& entry,
                std::uint32_t userId) {
  if (!tskvault::IsStorableScanRecord(entry)) Fail(SCHSCAN_ERR_LIST_OPERATION);
  TaskStoreDatabase database(taskListPath, TaskStoreDatabase::Open::kExisting);
  Transaction transaction(database, Transaction::Kind::kWrite);
  const std::int64_t id =
      FindUsersScan(database, transaction, tskvault::ScanNameOf(entry), userId);
  // The row, and with it the scan's place in the list and its owner, stay.
  Statement update(database.handle(), kUpdateScan);
  update.Bind(1, id);
  BindScanFields(update, entry);
  update.Run();
  DeleteItems(database, id);
  InsertItems(database, id, entry.vecScanItems);
  transaction.Commit();
}

void DeleteScan(const char* taskListPath, const char* scanName, std::uint32_t userId) {
  if (scanName == nullptr) Fail(SCHSCAN_ERR_NAME_NOT_CONFIGURED);
  TaskStoreDatabase database(taskListPath, TaskStoreDatabase::Open::kExisting);
  Transaction transaction(database, Transaction::Kind::kWrite);
  const std::int64_t id = FindUsersScan(database, transaction, scanName, userId);
  DeleteItems(database, id);
  Statement remove(database.handle(), "DELETE FROM scans WHERE id = ?1");
  remove.Bind(1, id).Run();
  transaction.Commit();
}

void RequirePath(const char* taskListPath) {
  if (taskListPath == nullptr) Fail(SCHSCAN_ERR_LIST_ACCESS);
}

}  // namespace

bool ReadScheduleScanTaskList(const char* taskListPath, ScheduleScanList& scanList,
                              std::uint32_t userId, std::uint32_t* resultCode) {
  return Guarded(resultCode, [&] {
    RequirePath(taskListPath);
    ListScans(taskListPath, scanList, userId);
  });
}

bool ReadScheduleScanTaskListWithAnchors(const char* taskListPath, ScheduleScanList& scanList,
                                         std::vector<std::int64_t>& anchors,
                                         std::uint32_t* resultCode) {
  return Guarded(resultCode, [&] {
    RequirePath(taskListPath);
    ListScans(taskListPath, scanList, kSuperUser, &anchors);
  });
}

bool ValidateTaskName(const char* scanName, std::int32_t mode, std::uint32_t userId,
                      std::uint32_t* resultCode) {
  return Guarded(resultCode, [&] {
    if (mode == kNameMustBeNew) {
      CheckNewName(kTaskListPath, scanName, userId);
    } else if (mode == kNameMustExist) {
      CheckExistingName(kTaskListPath, scanName, userId);
    } else {
      Fail(SCHSCAN_ERR_LIST_OPERATION);
    }
  });
}

bool GetScheduleScanTaskDetails(const char* taskListPath, tagSCHEDULE_SCAN_ENTRY* entry,
                                std::uint32_t userId, std::uint32_t* resultCode) {
  return Guarded(resultCode, [&] {
    RequirePath(taskListPath);
    if (entry == nullptr) Fail(SCHSCAN_ERR_LIST_OPERATION);
    FetchScan(taskListPath, *entry, userId);
  });
}

bool ModifyScheduleScanTask(const char* taskListPath, tagSCHEDULE_SCAN_ENTRY* entry,
                            std::uint32_t userId, std::uint32_t* resultCode) {
  return Guarded(resultCode, [&] {
    RequirePath(taskListPath);
    if (entry == nullptr) Fail(SCHSCAN_ERR_LIST_OPERATION);
    ModifyScan(taskListPath, *entry, userId);
  });
}

bool AddScheduleScanTask(const char* taskListPath, tagSCHEDULE_SCAN_ENTRY* entry,
                         std::uint32_t* resultCode) {
  return Guarded(resultCode, [&] {
    RequirePath(taskListPath);
    if (entry == nullptr) Fail(SCHSCAN_ERR_LIST_OPERATION);
    AddScan(taskListPath, *entry);
  });
}

bool DeleteScheduleScanTask(const char* taskListPath, const char* scanName, std::uint32_t userId,
                            std::uint32_t* resultCode) {
  return Guarded(resultCode, [&] {
    RequirePath(taskListPath);
    DeleteScan(taskListPath, scanName, userId);
  });
}
