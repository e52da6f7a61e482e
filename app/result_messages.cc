#include "app/result_messages.h"

#include "console/message_print.h"
#include "taskstore/result_codes.h"

namespace {

struct FailureMessage {
  Command command;
  std::uint32_t codes[4];  // unused slots hold SCHSCAN_OK, which never matches
  const char* key;
  bool lineBreakBefore;
};

constexpr FailureMessage kFailureMessages[] = {
    {Command::kAdd, {SCHSCAN_ERR_NAME_CONFIGURED}, TextKey("schscan_valid_scheld_config"), true},
    {Command::kAdd, {SCHSCAN_ERR_OTHER_USER}, TextKey("schscan_msg_scanname_exist"), true},
    {Command::kAdd, {SCHSCAN_ERR_LIST_READ}, TextKey("schscan_msg_scanoperation_fail"), false},
    {Command::kAdd, {SCHSCAN_ERR_LIST_NOT_FOUND}, TextKey("schscan_valid_scanname_exist_2"), true},
    {Command::kAdd,
     {SCHSCAN_ERR_LIST_ACCESS, SCHSCAN_ERR_LIST_OPERATION, SCHSCAN_ERR_LIST_SEEK,
      SCHSCAN_ERR_NAME_NOT_CONFIGURED},
     TextKey("schscan_msg_scanoperation_fail"),
     true},
    {Command::kView, {SCHSCAN_ERR_LIST_NOT_FOUND}, TextKey("schscan_valid_scheld_config"), true},
    {Command::kView, {SCHSCAN_ERR_NAME_CONFIGURED}, TextKey("schscan_valid_scanforuser"), true},
    {Command::kView, {SCHSCAN_ERR_OTHER_USER}, TextKey("schscan_valid_scanforanotheruser"), false},
    {Command::kView, {SCHSCAN_ERR_NAME_NOT_CONFIGURED}, TextKey("schscan_valid_scanname"), true},
    {Command::kView,
     {SCHSCAN_ERR_LIST_ACCESS, SCHSCAN_ERR_LIST_OPERATION, SCHSCAN_ERR_LIST_SEEK,
      SCHSCAN_ERR_LIST_READ},
     TextKey("Scheduled scan operation failed"),
     true},
    {Command::kModify, {SCHSCAN_ERR_LIST_NOT_FOUND}, TextKey("schscan_valid_scheld_config"), true},
    {Command::kModify, {SCHSCAN_ERR_NAME_CONFIGURED}, TextKey("schscan_valid_scanname_exist"), true},
    {Command::kModify, {SCHSCAN_ERR_OTHER_USER}, TextKey("schscan_valid_scanforanotheruser"), false},
    {Command::kModify, {SCHSCAN_ERR_NAME_NOT_CONFIGURED}, TextKey("schscan_valid_scanname"), true},
    {Command::kModify,
     {SCHSCAN_ERR_LIST_ACCESS, SCHSCAN_ERR_LIST_OPERATION, SCHSCAN_ERR_LIST_SEEK,
      SCHSCAN_ERR_LIST_READ},
     TextKey("schscan_msg_scanoperation_fail"),
     true},
    {Command::kDelete, {SCHSCAN_ERR_LIST_NOT_FOUND}, TextKey("schscan_str_scanlist_empty"), false},
    {Command::kDelete, {SCHSCAN_ERR_NAME_CONFIGURED}, TextKey("schscan_valid_scanname_exist"), true},
    {Command::kDelete, {SCHSCAN_ERR_OTHER_USER}, TextKey("schscan_valid_scanforanotheruser"), false},
    {Command::kDelete, {SCHSCAN_ERR_NAME_NOT_CONFIGURED}, TextKey("schscan_valid_scanname"), true},
    {Command::kDelete,
     {SCHSCAN_ERR_LIST_ACCESS, SCHSCAN_ERR_LIST_OPERATION, SCHSCAN_ERR_LIST_SEEK,
      SCHSCAN_ERR_LIST_READ},
     TextKey("schscan_msg_scanoperation_fail"),
     true},
    {Command::kViewReports, {SCHSCAN_ERR_LIST_NOT_FOUND}, TextKey("schscan_msg_noreportstoview"), false},
    {Command::kViewReports,
     {SCHSCAN_ERR_LIST_ACCESS, SCHSCAN_ERR_LIST_OPERATION, SCHSCAN_ERR_LIST_SEEK,
      SCHSCAN_ERR_LIST_READ},
     TextKey("schscan_str_fileopfailed"),
     true},
    {Command::kDeleteReports, {SCHSCAN_ERR_LIST_NOT_FOUND}, TextKey("schscan_msg_noreportstoview"), false},
    {Command::kDeleteReports,
     {SCHSCAN_ERR_LIST_ACCESS, SCHSCAN_ERR_LIST_OPERATION, SCHSCAN_ERR_LIST_SEEK,
      SCHSCAN_ERR_LIST_READ},
     TextKey("schscan_str_fileopfailed"),
     true},
};

const FailureMessage* FindFailureMessage(Command command, std::uint32_t resultCode) {
  if (resultCode == SCHSCAN_OK) return nullptr;
  for (const FailureMessage& message : kFailureMessages) {
    if (message.command != command) continue;
    for (std::uint32_t code : message.codes) {
      if (code == resultCode) return &message;
    }
  }
  return nullptr;
}

}  // namespace

void PrintCommandFailure(Command command, std::uint32_t resultCode) {
  const FailureMessage* message = FindFailureMessage(command, resultCode);
  if (message == nullptr) {
    PrintFormatD("schscan_msg_invalid_config", static_cast<int>(resultCode));
    PrintLiteral("\n");
    return;
  }
  if (message->lineBreakBefore) PrintLiteral("\n");
  PrintMessageLine(message->key);
}
