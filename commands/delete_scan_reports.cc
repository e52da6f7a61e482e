#include "commands/delete_scan_reports.h"

#include <unistd.h>

#include <cstring>
#include <string>
#include <unordered_set>

#include "commands/scan_name_prompt.h"
#include "console/interrupt.h"
#include "console/console_input.h"
#include "console/message_print.h"
#include "console/questions.h"
#include "reports/report_index.h"
#include "reports/reports_directory.h"
#include "taskstore/result_codes.h"
#include "taskstore/schedule_scan_entry.h"

namespace {

enum Choice : std::int32_t {
  kOneScan = 1,
  kOneByOne = 2,
  kAll = 3,
  kLeave = 4,
};

// Shows the entry and asks until the answer is yes or no.
bool ConfirmDeletion(const tagSCAN_REPORT_ENTRY& entry) {
  const FieldText scanName(entry.szScanName);
  const FieldText dateTime(entry.szDateTime);
  for (;;) {
    PrintLiteral("\n");
    PrintFormatS("schscan_rpt_schdscan", scanName.c_str());
    PrintLiteral("\n");
    PrintFormatS("schscan_rpt_date_format", dateTime.c_str());
    PrintLiteral("\n");
    PrintLiteral("\n");
    PrintText("schscan_confirm_delete");
    PrintLiteral(":");
    char answer = 0;
    ReadYesNo(&answer, 'Y');
    if (answer == 'Y' || answer == 'y') return true;
    if (answer == 'N' || answer == 'n') return false;
    PrintMessageLine("schscan_valid_options");
  }
}

bool IsNamed(const tagSCAN_REPORT_ENTRY& entry, const char* scanName) {
  return std::strcmp(FieldText(entry.szScanName).c_str(), scanName) == 0;
}

bool ShouldDelete(std::int32_t choice, const tagSCAN_REPORT_ENTRY& entry, const char* scanName) {
  switch (choice) {
    case kOneScan: return IsNamed(entry, scanName);
    case kOneByOne: return ConfirmDeletion(entry);
    default: return true;
  }
}

}  // namespace

bool DeleteScanReports(std::uint32_t* resultCode) {
  if (resultCode == nullptr) return false;
  *resultCode = SCHSCAN_OK;
  constexpr const char* kChoices[] = {
      TextKey("schscan_str_deltereportsforschedulescan"), TextKey("schscan_str_verbosedelete"),
      TextKey("schscan_str_deleteall"), TextKey("schscan_str_exit")};
  PrintMenu("", TextKey("schscan_str_deletereports"), kChoices);
  const std::int32_t choice = AskNumber(kMenuNumberPrompt, kOneScan, kLeave, kMenuNumberError);
  if (choice == kLeave) return true;
  char scanName[SCAN_NAME_SIZE] = {};
  if (choice == kOneScan) PromptScanName(ScanNameUse::kDeleteReports, scanName, resultCode);

  ReportList reports;
  if (!ReadReportIndex(reports, 0, resultCode)) return false;
  if (reports.empty()) {
    PrintMessageLine("schscan_str_noreportstodelete");
    return true;
  }
  const std::uint32_t caller = getuid();
  // The files that other owners' entries name: an ordinary user's entry that
  // names one too leaves the index, but its file stays, for it may be another
  // user's report written under a name drawn again.
  std::unordered_set<std::string> othersFiles;
  for (std::size_t i = 0; i < reports.size() && caller != 0; ++i) {
    if (reports[i].dwUserId != caller) othersFiles.insert(FieldText(reports[i].szReportPath).c_str());
  }
  // Each deleted entry loses its file at once; the index is rewritten once,
  // at the end, less exactly the entries taken out here.
  ReportsDirectory directory;
  for (std::size_t i = 0; i < reports.size(); ++i) {
    const tagSCAN_REPORT_ENTRY& entry = reports[i];
    if (caller != 0 && entry.dwUserId != caller) continue;
    if (!ShouldDelete(choice, entry, scanName)) continue;
    const FieldText path(entry.szReportPath);
    if (othersFiles.count(path.c_str()) == 0) directory.RemoveReport(path.c_str());
    reports.TakeOut(i);
  }

  const std::size_t deleted = reports.TakenOut().size();
  if (deleted == 0) {
    if (choice != kOneByOne) PrintMessageLine("schscan_msg_norptfound");
    return true;
  }
  if (!WaitingForOthers([&] { return WriteReportIndex(reports, resultCode); })) return false;
  PrintFormatD("schscan_msg_rpt_deleted", static_cast<int>(deleted));
  PrintLiteral(".\n");
  return true;
}
