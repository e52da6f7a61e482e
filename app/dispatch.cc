#include "app/dispatch.h"

#include <cstdint>
#include <cstring>

#include "app/banner.h"
#include "console/interrupt.h"
#include "console/message_catalogue.h"
#include "console/message_print.h"
#include "app/result_messages.h"
#include "commands/delete_scan_reports.h"
#include "commands/view_scan_reports.h"
#include "commands/add_scheduled_scan.h"
#include "commands/delete_scheduled_scan.h"
#include "commands/modify_scheduled_scan.h"
#include "commands/view_scheduled_scans.h"

namespace {

constexpr int kExitUsage = -1;

struct CommandEntry {
  const char* wordKey;
  Command command;
  bool (*run)(std::uint32_t* resultCode);
  const char* successKey;  // printed by the dispatcher after success, if any
};

// In the order of comparison; the help word is matched before these.
constexpr CommandEntry kCommands[] = {
    {TextKey("schscan_str_args_add"), Command::kAdd, AddScheduledScan, nullptr},
    {TextKey("schscan_str_args_view"), Command::kView, ViewScheduledScans, nullptr},
    {TextKey("schscan_str_args_modify"), Command::kModify, ModifyScheduledScan, nullptr},
    {TextKey("schscan_str_args_delete"), Command::kDelete, DeleteScheduledScan,
     TextKey("schscan_msg_scan_deleted_success")},
    {TextKey("schscan_str_args_reports"), Command::kViewReports, ViewScanReports, nullptr},
    {TextKey("schscan_args_delrpt"), Command::kDeleteReports, DeleteScanReports, nullptr},
};

bool IsWord(const char* argument, const char* wordKey) {
  return std::strcmp(argument, GetMessageText(wordKey)) == 0;
}

int RunCommand(const CommandEntry& entry) {
  PrintBanner();
  std::uint32_t resultCode;
  if (entry.run(&resultCode)) {
    if (entry.successKey != nullptr) PrintMessageLine(entry.successKey);
  } else {
    PrintCommandFailure(entry.command, resultCode);
  }
  return 0;
}

int ShowUsage(const char* programPath, int exitStatus) {
  PrintBanner();
  PrintUsage(programPath);
  return exitStatus;
}

}  // namespace

int RunCommandLine(int argc, char** argv) {
  const char* programPath = argc > 0 ? argv[0] : "schscan";
  if (argc != 2) return ShowUsage(programPath, kExitUsage);
  InstallInterruptHandler();
  const char* word = argv[1];
  if (IsWord(word, TextKey("schscan_str_args_help"))) return ShowUsage(programPath, 0);
  for (const CommandEntry& entry : kCommands) {
    if (IsWord(word, entry.wordKey)) return RunCommand(entry);
  }
  return ShowUsage(programPath, kExitUsage);
}
