#include "commands/view_scheduled_scans.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "console/interrupt.h"
#include "console/message_catalogue.h"
#include "console/message_print.h"
#include "product_paths.h"
#include "commands/scan_details.h"
#include "console/questions.h"
#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"

namespace {

constexpr std::size_t kColumnWidth = 15;  // longer names use the wrapping formats

void PrintTableHeader(bool withOwner) {
  PrintText("schscan_msg_schedulescans");
  PrintLiteral(":\n");
  PrintFormatSS("schscan_scanld_format", GetMessageText("schscan_msg_schedulescan"),
                GetMessageText("schscan_str_time"));
  if (withOwner) std::printf("  %-15s", GetMessageText("schscan_str_username"));
  PrintLiteral("  ");
  PrintText("schscan_str_frequency");
  PrintLiteral("\n");
}

// The login name of the owner, or the text of "schscan_str_unknown".
std::string OwnerName(std::uint32_t userId) {
  std::string name;
  std::uint32_t ignored = SCHSCAN_OK;
  if (!GetUserNameFormUserID(userId, name, &ignored)) name = GetMessageText("schscan_str_unknown");
  return name;
}

void PrintTimeColumn(const tagSCHEDULE_SCAN_ENTRY& entry) {
  if (entry.bFirstBootScan == 1) {
    PrintFormatS("schscan_scheduletask_format3", GetMessageText("schscan_str_firstboot"));
  } else if (entry.bFirstBootScan == 0) {
    char time[1024] = {};
    FormatTextDDD(time, sizeof time, "%02d:%02d:%02d", entry.nHour, entry.nMinute, entry.nSecond);
    PrintFormatS("schscan_scheduletask_format3", time);
  }
}

// A frequency or weekday the table cannot name shows the "unknown" word in
// its place; the row still ends.
void PrintFrequencyColumn(const tagSCHEDULE_SCAN_ENTRY& entry) {
  if (entry.byFrequency == FREQ_DAILY) {
    PrintText("schscan_str_daily");
  } else if (entry.byFrequency == FREQ_WEEKLY) {
    const char* day = WeekDayName(entry.byWeekDay);
    PrintFormatS("schscan_str_weeklyon",
                 day != nullptr ? day : GetMessageText("schscan_str_unknown"));
  } else {
    PrintText("schscan_str_unknown");
  }
  PrintLiteral(".\n");
}

// One row: number, name, start time, the owner when `withOwner`, frequency.
void PrintScanTableRow(std::size_t index, const tagSCHEDULE_SCAN_ENTRY& entry, bool withOwner) {
  const int number = static_cast<int>(index + 1);
  if (strnlen(entry.szScanName, SCAN_NAME_SIZE) <= kColumnWidth) {
    PrintFormatDS("schscan_scheduletask_format", number, entry.szScanName);
  } else {
    PrintFormatDS("schscan_scheduletask_format2", number, entry.szScanName);
  }
  const std::string owner = withOwner ? OwnerName(entry.dwUserId) : std::string();
  PrintTimeColumn(entry);
  if (withOwner) {
    if (owner.size() <= kColumnWidth) {
      PrintFormatS("schscan_scheduletask_format4", owner.c_str());
    } else {
      PrintFormatS("schscan_scheduletask_format5", owner.c_str());
    }
  }
  PrintFrequencyColumn(entry);
}

}  // namespace

bool ViewScheduledScans(std::uint32_t* resultCode) {
  if (resultCode == nullptr) return false;
  *resultCode = SCHSCAN_OK;
  ScheduleScanList scans;
  if (!WaitingForOthers(
          [&] { return ReadScheduleScanTaskList(kTaskListPath, scans, getuid(), resultCode); }))
    return false;
  if (scans.empty()) {
    PrintMessageLine("schscan_msg_noscan_schled");
    return true;
  }
  const bool withOwner = getuid() == 0;
  PrintTableHeader(withOwner);
  for (std::size_t i = 0; i < scans.size(); ++i) PrintScanTableRow(i, scans[i], withOwner);

  if (!AskYesNo({"\n", TextKey("schscan_confirm_scandetail_view"), ":"})) return true;
  const std::int32_t number = AskNumber({"\n", TextKey("schscan_msg_enteridtoviewdetail"), ":"}, 1,
                                        static_cast<std::int32_t>(scans.size()),
                                        {"", Format0Key("schscan_valid_scannumber"), ".\n", true});
  PrintScanDetailView(scans[static_cast<std::size_t>(number - 1)]);
  return true;
}
