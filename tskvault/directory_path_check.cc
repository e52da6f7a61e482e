// ValidateDirectoryPath: whether a directory may be scanned. The checks run
// in this order, and the first that fails gives the result code:
//   1. the path is absolute and fits in an item   else SCHSCAN_ERR_PATH_NOT_ALLOWED
//   2. it exists                                  else SCHSCAN_ERR_PATH_NOT_FOUND
//   3. it is a directory                          else SCHSCAN_ERR_NOT_FOLDER
//   4. resolved, it is not /proc, /sys or /dev
//      nor anything below them                    else SCHSCAN_ERR_PATH_NOT_ALLOWED
//   5. the user may read and search it            else SCHSCAN_ERR_PATH_PERMISSION
// Every check runs with the real ids of the caller as its effective ids: an
// installed tool's own group never lets a user learn what lies in a directory
// the user may not search, and a path below one gives
// SCHSCAN_ERR_PATH_PERMISSION whether or not it exists. The system check
// resolves symbolic links, "." and "..", which needs an existing path: a
// missing path below /proc gives SCHSCAN_ERR_PATH_NOT_FOUND.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"

namespace {

constexpr std::string_view kSystemDirectories[] = {"/proc", "/sys", "/dev"};

bool IsAtOrBelow(std::string_view path, std::string_view directory) {
  return path.starts_with(directory) &&
         (path.size() == directory.size() || path[directory.size()] == '/');
}

// For the scope, the effective ids are the real ones; the old ones are taken
// back at the end (the saved ids allow it).
class RealIdsScope {
 public:
  RealIdsScope() {
    switched_ = (effectiveGroup_ == getgid() || setegid(getgid()) == 0) &&
                (effectiveUser_ == getuid() || seteuid(getuid()) == 0);
  }
  RealIdsScope(const RealIdsScope&) = delete;
  RealIdsScope& operator=(const RealIdsScope&) = delete;
  ~RealIdsScope() {
    if (geteuid() != effectiveUser_ && seteuid(effectiveUser_) != 0) std::abort();
    if (getegid() != effectiveGroup_ && setegid(effectiveGroup_) != 0) std::abort();
  }
  bool switched() const { return switched_; }

 private:
  const uid_t effectiveUser_ = geteuid();
  const gid_t effectiveGroup_ = getegid();
  bool switched_ = false;
};

struct FreeDeleter {
  void operator()(char* pointer) const { std::free(pointer); }
};

std::uint32_t CheckDirectory(const char* path) {
  if (path[0] != '/' || strnlen(path, SCAN_ITEM_SIZE) == SCAN_ITEM_SIZE)
    return SCHSCAN_ERR_PATH_NOT_ALLOWED;
  const RealIdsScope realIds;
  if (!realIds.switched()) return SCHSCAN_ERR_LIST_OPERATION;
  struct stat status {};
  if (stat(path, &status) != 0)
    return errno == EACCES ? SCHSCAN_ERR_PATH_PERMISSION : SCHSCAN_ERR_PATH_NOT_FOUND;
  if (!S_ISDIR(status.st_mode)) return SCHSCAN_ERR_NOT_FOLDER;

  const std::unique_ptr<char, FreeDeleter> resolved(realpath(path, nullptr));
  if (!resolved) {
    if (errno == EACCES) return SCHSCAN_ERR_PATH_PERMISSION;
    return errno == ENOMEM ? SCHSCAN_ERR_LIST_OPERATION : SCHSCAN_ERR_PATH_NOT_FOUND;
  }
  for (const std::string_view system : kSystemDirectories) {
    if (IsAtOrBelow(resolved.get(), system)) return SCHSCAN_ERR_PATH_NOT_ALLOWED;
  }
  if (access(path, R_OK | X_OK) != 0) return SCHSCAN_ERR_PATH_PERMISSION;
  return SCHSCAN_OK;
}

}  // namespace

bool ValidateDirectoryPath(const char* directoryPath, std::uint32_t* resultCode) {
  if (resultCode == nullptr) return false;
  const std::uint32_t code =
      directoryPath == nullptr ? SCHSCAN_ERR_PATH_NOT_ALLOWED : CheckDirectory(directoryPath);
  if (code == SCHSCAN_OK) return true;
  *resultCode = code;
  return false;
}
