#include <gtest/gtest.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"
#include "testing/scan_fixtures.h"

namespace {

using testing_support::ScratchDirectory;

std::uint32_t CheckPath(const std::string& path) {
  std::uint32_t code = SCHSCAN_OK;
  return ValidateDirectoryPath(path.c_str(), &code) ? SCHSCAN_OK : code;
}

TEST(DirectoryPathCheck, Codes) {
  ScratchDirectory scratch;
  ASSERT_EQ(mkdir((scratch / "proc").c_str(), 0755), 0);
  std::ofstream(scratch / "file").close();
  ASSERT_EQ(symlink("/dev", (scratch / "devices").c_str()), 0);
  ASSERT_EQ(symlink(scratch.path().c_str(), (scratch / "here").c_str()), 0);

  const struct {
    std::string path;
    std::uint32_t code;
  } cases[] = {
      {scratch.path(), SCHSCAN_OK},
      {scratch / "here", SCHSCAN_OK},
      {scratch / "proc", SCHSCAN_OK},  // only the system's own /proc is refused
      {"/", SCHSCAN_OK},
      {"", SCHSCAN_ERR_PATH_NOT_ALLOWED},
      {"tmp", SCHSCAN_ERR_PATH_NOT_ALLOWED},
      {"./", SCHSCAN_ERR_PATH_NOT_ALLOWED},
      {"/" + std::string(1023, 'x'), SCHSCAN_ERR_PATH_NOT_ALLOWED},  // does not fit an item
      {scratch / "missing", SCHSCAN_ERR_PATH_NOT_FOUND},
      {scratch / "file/below", SCHSCAN_ERR_PATH_NOT_FOUND},
      {scratch / "file", SCHSCAN_ERR_NOT_FOLDER},
      {"/proc", SCHSCAN_ERR_PATH_NOT_ALLOWED},
      {"/proc/self", SCHSCAN_ERR_PATH_NOT_ALLOWED},
      {"/./proc", SCHSCAN_ERR_PATH_NOT_ALLOWED},
      {"//sys/kernel", SCHSCAN_ERR_PATH_NOT_ALLOWED},
      {"/dev/../dev", SCHSCAN_ERR_PATH_NOT_ALLOWED},
      {scratch / "devices", SCHSCAN_ERR_PATH_NOT_ALLOWED},
      {scratch / "here/../../../../../../dev", SCHSCAN_ERR_PATH_NOT_ALLOWED},
  };
  for (const auto& c : cases) EXPECT_EQ(CheckPath(c.path), c.code) << c.path;
}

TEST(DirectoryPathCheck, NameThatOnlyBeginsLikeASystemDirectory) {
  if (geteuid() != 0) GTEST_SKIP() << "creating a directory in / needs root";
  char beside[] = "/procXXXXXX";
  ASSERT_NE(mkdtemp(beside), nullptr);
  EXPECT_EQ(CheckPath(beside), SCHSCAN_OK);
  rmdir(beside);
}

// Permissions are those of the real user: checked in a child that has
// become the unprivileged user nobody.
TEST(DirectoryPathCheck, RealUserNeedsReadAndSearch) {
  if (geteuid() != 0) GTEST_SKIP() << "switching to another user needs root";
  ScratchDirectory scratch;
  ASSERT_EQ(chmod(scratch.path().c_str(), 0755), 0);
  const struct {
    const char* name;
    mode_t mode;
    std::uint32_t code;
  } cases[] = {
      {"open", 0755, SCHSCAN_OK},
      {"locked", 0700, SCHSCAN_ERR_PATH_PERMISSION},
      {"readOnly", 0744, SCHSCAN_ERR_PATH_PERMISSION},
      {"searchOnly", 0711, SCHSCAN_ERR_PATH_PERMISSION},
  };
  for (const auto& c : cases) {
    ASSERT_EQ(mkdir((scratch / c.name).c_str(), c.mode), 0);
    ASSERT_EQ(chmod((scratch / c.name).c_str(), c.mode), 0);
  }
  ASSERT_EQ(mkdir((scratch / "locked/inner").c_str(), 0755), 0);

  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const uid_t nobody = 65534;
    if (setgroups(0, nullptr) != 0 || setresgid(nobody, nobody, nobody) != 0 ||
        setresuid(nobody, nobody, nobody) != 0)
      _exit(100);
    int wrong = 0;
    for (const auto& c : cases) wrong += CheckPath(scratch / c.name) != c.code;
    wrong += CheckPath(scratch / "locked/inner") != SCHSCAN_ERR_PATH_PERMISSION;
    wrong += CheckPath(scratch / "locked/missing") != SCHSCAN_ERR_PATH_PERMISSION;
    _exit(wrong);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << "checks that gave the wrong code (100: no switch)";
}

}  // namespace
