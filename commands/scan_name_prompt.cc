#include "commands/scan_name_prompt.h"

#include <unistd.h>

#include <cstring>

#include "console/interrupt.h"
#include "console/console_input.h"
#include "console/message_print.h"
#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"

namespace {

constexpr char kScanNameChars[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789\n";
constexpr std::size_t kMaxNameLine = 255;  // the line feed counted
constexpr std::size_t kNameReadSize = 1023;  // at most 1022 characters a read

constexpr const char* kSpecialChar = TextKey("schscan_valid_scanname_specialchar");

// How one use of the prompt differs from the others.
struct NameUseTraits {
  const char* headingKey;  // nullptr: the command prints its own heading
  const char* headingEnd;
  const char* promptLead;
  const char* promptKey;
  bool promptIsFormat;  // printed as a format without arguments
  std::int32_t mode;
  const char* onNameConfigured;  // 1019
  const char* onOtherUser;       // 1026
  const char* onNameLength;      // 1030
  const char* onNameEmpty;       // 1031
};

constexpr NameUseTraits kAddUse = {
    TextKey("schscan_msg_addnewscan"), "\n",   "\n",
    TextKey("schscan_msg_enterscanname"), false, kNameMustBeNew,
    TextKey("schscan_valid_scanname_exist"), TextKey("schscan_msg_scanname_exist"),
    TextKey("schscan_valid_scanname_length"), TextKey("schscan_valid_scanname_empty")};
constexpr NameUseTraits kModifyUse = {
    TextKey("schscan_msg_modify_existingscan"), ":\n", "\n",
    TextKey("schscan_msg_enterscanname"), false, kNameMustExist,
    TextKey("schscan_valid_scanname_exist"), TextKey("schscan_msg_scanname_exist"),
    kSpecialChar, kSpecialChar};
constexpr NameUseTraits kDeleteUse = {
    TextKey("schscan_msg_delete_schscan"), ":\n", "",
    TextKey("schscan_msg_enterscanname"), false, kNameMustExist,
    TextKey("schscan_valid_scanname_exist"), kSpecialChar, kSpecialChar, kSpecialChar};
constexpr NameUseTraits kDeleteReportsUse = {
    nullptr, nullptr, "", Format0Key("\nEnter scheduled scan name:"), true, kNameMustExist,
    kSpecialChar, kSpecialChar, kSpecialChar, kSpecialChar};

const NameUseTraits& TraitsOf(ScanNameUse use) {
  switch (use) {
    case ScanNameUse::kAdd: return kAddUse;
    case ScanNameUse::kModify: return kModifyUse;
    case ScanNameUse::kDelete: return kDeleteUse;
    case ScanNameUse::kDeleteReports: break;
  }
  return kDeleteReportsUse;
}

const char* RefusalKey(const NameUseTraits& traits, std::uint32_t code) {
  switch (code) {
    case SCHSCAN_ERR_NAME_CONFIGURED: return traits.onNameConfigured;
    case SCHSCAN_ERR_OTHER_USER: return traits.onOtherUser;
    case SCHSCAN_ERR_NAME_LENGTH: return traits.onNameLength;
    case SCHSCAN_ERR_NAME_EMPTY: return traits.onNameEmpty;
    default: return kSpecialChar;
  }
}

void PrintPrompt(const NameUseTraits& traits) {
  PrintLiteral(traits.promptLead);
  if (traits.promptIsFormat) {
    PrintFormat0(traits.promptKey);
  } else {
    PrintText(traits.promptKey);
  }
}

// A NUL character, which the set does not hold, stops strspn short too.
bool HasOnlyNameCharacters(const char* line, std::size_t length) {
  return std::strspn(line, kScanNameChars) == length;
}

}  // namespace

void PromptScanName(ScanNameUse use, char* name, std::uint32_t* resultCode) {
  const NameUseTraits& traits = TraitsOf(use);
  if (traits.headingKey != nullptr) {
    PrintText(traits.headingKey);
    PrintLiteral(traits.headingEnd);
  }
  char line[kInputLineSize];
  for (;;) {
    std::memset(name, 0, SCAN_NAME_SIZE);
    PrintPrompt(traits);
    const std::size_t length = ReadLine(line, kNameReadSize);
    if (length > kMaxNameLine) {
      PrintMessageLine("schscan_valid_scanname_length");
      if (line[length - 1] != '\n') DiscardRestOfLine();
      continue;
    }
    if (!HasOnlyNameCharacters(line, length)) {
      PrintMessageLine(kSpecialChar);
      continue;
    }
    std::memcpy(name, line, std::strcspn(line, "\n"));
    if (WaitingForOthers([&] { return ValidateTaskName(name, traits.mode, getuid(), resultCode); }))
      return;
    PrintMessageLine(RefusalKey(traits, *resultCode));
  }
}
