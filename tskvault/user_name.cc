// GetUserNameFormUserID: the login name of a user id from the password
// database. An id without an entry fails with SCHSCAN_ERR_NAME_NOT_CONFIGURED;
// a failing lookup with SCHSCAN_ERR_LIST_OPERATION. Answers are remembered
// for the life of the process: a listing asks once per scan, mostly about the
// same few owners, and each lookup in the password database reads the file.
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <mutex>
#include <unordered_map>
#include <utility>
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

// Answers of the password database by user id: SCHSCAN_OK and the name, or
// SCHSCAN_ERR_NAME_NOT_CONFIGURED. Failed lookups are not remembered.
std::uint32_t CachedUserName(std::uint32_t userId, std::string& userName) {
  static std::mutex mutex;
  static std::unordered_map<std::uint32_t, std::pair<std::uint32_t, std::string>> answers;
  const std::lock_guard<std::mutex> lock(mutex);
  if (const auto known = answers.find(userId); known != answers.end()) {
    if (known->second.first == SCHSCAN_OK) userName = known->second.second;
    return known->second.first;
  }
  std::string name;
  const std::uint32_t code = LookUpUserName(userId, name);
  if (code != SCHSCAN_ERR_LIST_OPERATION) answers.emplace(userId, std::make_pair(code, name));
  if (code == SCHSCAN_OK) userName = std::move(name);
  return code;
}

}  // namespace

bool GetUserNameFormUserID(std::uint32_t userId, std::string& userName,
                           std::uint32_t* resultCode) {
  if (resultCode == nullptr) return false;
  std::uint32_t code = SCHSCAN_ERR_LIST_OPERATION;
  try {
    code = CachedUserName(userId, userName);
  } catch (const std::exception&) {  // out of memory
  }
  if (code == SCHSCAN_OK) return true;
  *resultCode = code;
  return false;
}
