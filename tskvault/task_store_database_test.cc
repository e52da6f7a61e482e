#include "tskvault/task_store_database.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <vector>

#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"
#include "testing/scan_fixtures.h"

namespace {

using testing_support::AddScan;
using testing_support::MakeScan;
using testing_support::QueryStore;
using testing_support::ScratchDirectory;

std::uint32_t ListCode(const std::string& store) {
  ScheduleScanList list;
  std::uint32_t code = SCHSCAN_OK;
  return ReadScheduleScanTaskList(store.c_str(), list, 0, &code) ? SCHSCAN_OK : code;
}

TEST(TaskStoreDatabase, FirstAddCreatesTheFileWithMode0660WhateverTheUmask) {
  for (const mode_t mask : {mode_t{0}, mode_t{077}}) {
    ScratchDirectory scratch;
    const std::string store = scratch / "tsklst.inf";
    const mode_t previous = umask(mask);
    const std::uint32_t code = AddScan(MakeScan("First", 0), store.c_str());
    umask(previous);
    ASSERT_EQ(code, SCHSCAN_OK);
    struct stat status {};
    ASSERT_EQ(stat(store.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, tskvault::kTaskListMode) << "umask " << mask;
    EXPECT_EQ(QueryStore(store, "PRAGMA user_version"), std::to_string(tskvault::kSchemaVersion));
  }
}

// Anything but a task list is an operation error; an empty file (as a run
// that died right after creating it leaves) is a store without scans; a
// missing directory is no store, and none can be made there.
TEST(TaskStoreDatabase, CodesForFilesItDidNotWrite) {
  ScratchDirectory scratch;
  const std::string garbage = scratch / "garbage.inf";
  std::ofstream(garbage) << std::string(4096, 'x');
  const std::string foreign = scratch / "foreign.inf";
  ASSERT_EQ(AddScan(MakeScan("Scan", 0), foreign.c_str()), SCHSCAN_OK);
  ASSERT_EQ(QueryStore(foreign, "PRAGMA user_version = 9"), "");
  const std::string otherTables = scratch / "other.inf";
  std::ofstream(otherTables).close();
  ASSERT_EQ(QueryStore(otherTables, "CREATE TABLE t (x)"), "");

  for (const std::string& store : {garbage, foreign, otherTables}) {
    EXPECT_EQ(ListCode(store), SCHSCAN_ERR_LIST_OPERATION) << store;
    EXPECT_EQ(AddScan(MakeScan("New", 0), store.c_str()), SCHSCAN_ERR_LIST_OPERATION) << store;
  }
  const std::string empty = scratch / "empty.inf";
  std::ofstream(empty).close();
  EXPECT_EQ(ListCode(empty), SCHSCAN_OK);
  EXPECT_EQ(AddScan(MakeScan("First", 0), empty.c_str()), SCHSCAN_OK);
  const std::string nowhere = scratch / "no/such/dir/tsklst.inf";
  EXPECT_EQ(AddScan(MakeScan("First", 0), nowhere.c_str()), SCHSCAN_ERR_LIST_ACCESS);
  EXPECT_EQ(ListCode(nowhere), SCHSCAN_ERR_LIST_NOT_FOUND);
}

// A change that cannot be written (past a file size limit, as on a full
// disk) is an operation error and leaves the store as it was.
TEST(TaskStoreDatabase, AChangeThatCannotBeWrittenChangesNothing) {
  ScratchDirectory scratch;
  const std::string store = scratch / "tsklst.inf";
  ASSERT_EQ(AddScan(MakeScan("First", 0), store.c_str()), SCHSCAN_OK);
  const pid_t child = fork();
  if (child == 0) {
    // Room for the store's shared memory (32 KiB), not for a hundred long paths.
    const rlimit limit = {65536, 65536};
    const std::vector<std::string> paths(100, "/" + std::string(1000, 'd'));
    _exit(signal(SIGXFSZ, SIG_IGN) != SIG_ERR && setrlimit(RLIMIT_FSIZE, &limit) == 0 &&
                  AddScan(MakeScan("Second", 0, paths), store.c_str()) ==
                      SCHSCAN_ERR_LIST_OPERATION
              ? 0
              : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_EQ(QueryStore(store, "PRAGMA integrity_check"), "ok");
  EXPECT_EQ(QueryStore(store, "SELECT group_concat(name) FROM scans"), "First");
}

}  // namespace
