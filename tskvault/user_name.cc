// GetUserNameFormUserID: the login name of a user id from the password
// database. An id without an entry fails with SCHSCAN_ERR_NAME_NOT_CONFIGURED;
// a failing lookup with SCHSCAN_ERR_LIST_OPERATION.
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <vector>

#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"

namespace {

constexpr std::size_t kLargestBuffer = std::size_t{1} << 20;

std::uint32_t LookUpUserName(std::uint32_t userId, std::string& userName) {
  const long suggested = sysconf(_SC_GETPW_R_SIZE_MAX);
  std::size_t size = suggested > 0 ? static_cast<std::size_t>(suggested) : 1024;
  for (;;) {
    std::vector<char> buffer(size);
    passwd entry{};
    passwd* found = nullptr;
    const int error = getpwuid_r(userId, &entry, buffer.data(), buffer.size(), &found);
    if (error == ERANGE && size < kLargestBuffer) {
      size *= 2;
      continue;
    }
    if (error != 0) return SCHSCAN_ERR_LIST_OPERATION;
    if (found == nullptr || found->pw_name == nullptr) return SCHSCAN_ERR_NAME_NOT_CONFIGURED;
    userName = found->pw_name;
    return SCHSCAN_OK;
  }
}

}  // namespace

bool GetUserNameFormUserID(std::uint32_t userId, std::string& userName,
                           std::uint32_t* resultCode) {
  if (resultCode == nullptr) return false;
  std::uint32_t code = SCHSCAN_ERR_LIST_OPERATION;
  try {
    code = LookUpUserName(userId, userName);
  } catch (const std::exception&) {  // out of memory
  }
  if (code == SCHSCAN_OK) return true;
  *resultCode = code;
  return false;
}
