// PromptScanDirectory on arbitrary standard input, asked again and again as
// the wizards ask it. The first byte picks the directories already listed
// and the caller (the super-user or an ordinary user); the rest is what the
// user types. Each accepted directory must be a NUL-terminated absolute path
// that the store accepts and that is no duplicate of a listed one; it is
// then listed too. A refusal must leave the buffer untouched.
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/directory_rules.h"
#include "fuzz/fuzz_support.h"
#include "commands/scan_directory_prompt.h"
#include "taskstore/result_codes.h"
#include "taskstore/schedule_scan_entry.h"
#include "taskstore/task_store.h"

namespace {

const std::vector<std::vector<std::string>> kListedDirectories = {
    {},
    {"/usr"},
    {"/usr/"},
    {"/"},
    {"/tmp", "/var/", "/usr/share"},
    {"/etc", "/e"},
    {"/tmp/"},
    {"/usr/lib", "/usr/bin", "/usr/sbin", "/usr/include"},
};

bool IsAllZero(const char* buffer, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) {
    if (buffer[i] != '\0') return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::SetUpConsole();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  std::vector<std::string> listed = kListedDirectories[data[0] % kListedDirectories.size()];
  fuzz::RealUserScope user((data[0] & 0x80) != 0 ? fuzz::kOtherUser : fuzz::kRootUser);
  ScanItemList items;
  for (const std::string& path : listed) items.AppendPath(path.c_str());
  fuzz::FeedStandardInput(data + 1, size - 1);
  fuzz::RunToEndOfInput([&] {
    while (items.size() < MAX_SCAN_ITEMS) {
      tagSCAN_ITEM item{};
      if (!PromptScanDirectory(items, item.szPath)) {
        fuzz::Require(IsAllZero(item.szPath, sizeof item.szPath),
                      "a refused directory changed the buffer");
        continue;
      }
      const std::size_t length = strnlen(item.szPath, sizeof item.szPath);
      fuzz::Require(length > 0 && length < sizeof item.szPath && item.szPath[0] == '/',
                    "an accepted directory is not a terminated absolute path");
      fuzz::Require(IsAllZero(item.szPath + length, sizeof item.szPath - length),
                    "an accepted directory left bytes after its NUL");
      std::uint32_t code = SCHSCAN_OK;
      fuzz::Require(ValidateDirectoryPath(item.szPath, &code),
                    "the prompt accepted a directory the store refuses");
      fuzz::Require(!fuzz::ExpectedDuplicate(item.szPath, listed),
                    "the prompt accepted a duplicate directory");
      listed.emplace_back(item.szPath);
      items.Append(item);
    }
  });
  return 0;
}
