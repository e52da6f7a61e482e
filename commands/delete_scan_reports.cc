#include "commands/delete_scan_reports.h"

#include <unistd.h>

#include <cstring>

#include "console/console_input.h"
#include "console/message_print.h"
#include "product_paths.h"
#include "reports/report_file_remover.h"
#include "reports/report_index.h"
#include "commands/scan_name_prompt.h"
#include "taskstore/result_codes.h"
#include "taskstore/schedule_scan_entry.h"

namespace {

enum Choice : std::int32_t {
  kOneScan = 1,
  kOneByOne = 2,
  kAll = 3,
  kLeave = 4,
};

void PrintMenu() {
  PrintText("schscan_str_deletereports");
  PrintLiteral(":\n");
  PrintLiteral("\t1. ");
  PrintMessageLine("schscan_str_deltereportsforschedulescan");
  PrintLiteral("\t2. ");
  PrintMessageLine("schscan_str_verbosedelete");
  PrintLiteral("\t3. ");
  PrintMessageLine("schscan_str_deleteall");
  PrintLiteral("\t4. ");
  PrintMessageLine("schscan_str_exit");
}

std::int32_t ReadChoice() {
  for (;;) {
    PrintText("cli_usrInput_menuNumber");
    std::int32_t choice = 0;
    if (!ReadNumber(&choice)) {
      PrintMessageLine("schscan_valid_number_int");
    } else if (choice < kOneScan || choice > kLeave) {
      PrintMessageLine("schscan_valid_menunumber");
    } else {
      return choice;
    }
  }
}

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
  PrintMenu();
  const std::int32_t choice = ReadChoice();
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
  // Each deleted entry loses its file at once; the index is rewritten once,
  // at the end, less exactly the entries deleted here.
  ReportFileRemover remover(kReportsDir);
  ReportEntryRefs deleted;
  for (const tagSCAN_REPORT_ENTRY& entry : reports) {
    if (caller != 0 && entry.dwUserId != caller) continue;
    if (!ShouldDelete(choice, entry, scanName)) continue;
    remover.Remove(FieldText(entry.szReportPath).c_str());
    deleted.push_back(&entry);
  }

  if (deleted.empty()) {
    if (choice != kOneByOne) PrintMessageLine("schscan_msg_norptfound");
    return true;
  }
  if (!WriteReportIndexWithout(deleted, resultCode)) return false;
  PrintFormatD("schscan_msg_rpt_deleted", static_cast<int>(deleted.size()));
  PrintLiteral(".\n");
  return true;
}
