// PromptScanName on arbitrary standard input, against the seeded task store.
// The first byte picks the use (add, modify, delete, delete reports) and the
// caller (the super-user or an ordinary user); the rest is what the user
// types. The prompt asks again and again; every name it accepts must be a
// NUL-terminated name of 1 to 254 letters and digits (or empty, where the
// store accepts that) that the store accepts for that use.
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <string>

#include "fuzz/fuzz_support.h"
#include "commands/scan_name_prompt.h"
#include "taskstore/result_codes.h"
#include "taskstore/schedule_scan_entry.h"
#include "taskstore/task_store.h"

namespace {

constexpr ScanNameUse kUses[] = {ScanNameUse::kAdd, ScanNameUse::kModify, ScanNameUse::kDelete,
                                 ScanNameUse::kDeleteReports};

bool IsNameCharacter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
}

// The input's lines without their line feeds; a last line without one too.
std::set<std::string> WholeLines(const std::uint8_t* data, std::size_t size) {
  std::set<std::string> lines;
  std::string line;
  for (std::size_t i = 0; i < size; ++i) {
    if (data[i] == '\n') {
      lines.insert(line);
      line.clear();
    } else {
      line.push_back(static_cast<char>(data[i]));
    }
  }
  if (!line.empty()) lines.insert(line);
  return lines;
}

void CheckAccepted(ScanNameUse use, const char (&name)[SCAN_NAME_SIZE + 8],
                   const std::set<std::string>& lines) {
  for (std::size_t i = SCAN_NAME_SIZE; i < sizeof name; ++i) {
    fuzz::Require(name[i] == '\x5a', "the prompt wrote past the name buffer");
  }
  const std::size_t length = strnlen(name, SCAN_NAME_SIZE);
  fuzz::Require(length <= 254, "an accepted name is too long or not terminated");
  for (std::size_t i = 0; i < length; ++i) {
    fuzz::Require(IsNameCharacter(name[i]), "an accepted name holds a forbidden character");
  }
  fuzz::Require(lines.count(std::string(name, length)) == 1,
                "an accepted name is not a whole line of the input");
  std::uint32_t code = SCHSCAN_OK;
  const std::int32_t mode = use == ScanNameUse::kAdd ? kNameMustBeNew : kNameMustExist;
  fuzz::Require(ValidateTaskName(name, mode, getuid(), &code),
                "the prompt accepted a name the store refuses");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::SetUpSeededProduct();
  fuzz::SetUpConsole();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const ScanNameUse use = kUses[data[0] & 3];
  fuzz::RealUserScope user((data[0] & 4) != 0 ? fuzz::kOtherUser : fuzz::kRootUser);
  const std::set<std::string> lines = WholeLines(data + 1, size - 1);
  fuzz::FeedStandardInput(data + 1, size - 1);
  fuzz::RunToEndOfInput([&] {
    for (;;) {
      char name[SCAN_NAME_SIZE + 8];
      std::memset(name, '\x5a', sizeof name);
      std::uint32_t code = SCHSCAN_OK;
      PromptScanName(use, name, &code);
      CheckAccepted(use, name, lines);
    }
  });
  return 0;
}
