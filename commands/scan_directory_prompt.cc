#include "commands/scan_directory_prompt.h"

#include <cctype>
#include <cstring>

#include "console/console_input.h"
#include "console/message_print.h"
#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"

namespace {

bool IsSpace(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

// True when `a` without its final "/" begins `b`.
bool SlashPrefixOf(const char* a, std::size_t aLength, const char* b) {
  return aLength > 0 && a[aLength - 1] == '/' && std::strncmp(a, b, aLength - 1) == 0;
}

void PrintRefusal(std::uint32_t code, const char* path) {
  switch (code) {
    case SCHSCAN_ERR_PATH_NOT_FOUND: PrintFormatS("schscan_valid_pathexist", path); break;
    case SCHSCAN_ERR_NOT_FOLDER: PrintFormatS("schscan_valid_folder", path); break;
    case SCHSCAN_ERR_PATH_PERMISSION: PrintFormatS("schscan_valid_pathpermission", path); break;
    default: PrintFormatS("schscan_valid_pathallowedornot", path); break;
  }
  PrintLiteral(".\n");
}

}  // namespace

bool IsDuplicateDirectory(const char* path, const ScanItemList& items) {
  const std::size_t pathLength = std::strlen(path);
  for (std::size_t i = 0; i < items.size(); ++i) {
    const char* item = items.PathAt(i);
    if (std::strcmp(path, item) == 0 || SlashPrefixOf(path, pathLength, item) ||
        SlashPrefixOf(item, std::strlen(item), path)) {
      return true;
    }
  }
  return false;
}

bool PromptScanDirectory(const ScanItemList& items, char* item) {
  if (item == nullptr) return false;
  PrintLiteral("\n");
  PrintText("schscan_msg_enter_dir");
  PrintLiteral(":");
  char line[kInputLineSize];
  const std::size_t count = ReadLine(line, sizeof line);
  // The rest of a line too long for one read is dropped rather than taken as
  // the answer to the next question.
  if (count == sizeof line - 1 && line[count - 1] != '\n') DiscardRestOfLine();

  char path[SCAN_ITEM_SIZE] = {};
  const char* word = line;
  while (*word != '\0' && IsSpace(*word)) ++word;
  std::size_t length = 0;
  while (word[length] != '\0' && !IsSpace(word[length])) ++length;
  if (length == 0) {
    PrintMessageLine("schscan_valid_dirpath");
    return false;
  }
  std::memcpy(path, word, length);

  std::uint32_t code = SCHSCAN_OK;
  if (!ValidateDirectoryPath(path, &code)) {
    PrintRefusal(code, path);
    return false;
  }
  if (IsDuplicateDirectory(path, items)) {
    PrintFormatS("schscan_valid_alreadypathexist", path);
    PrintLiteral(".\n");
    return false;
  }
  std::memcpy(item, path, length + 1);
  return true;
}
