#include "reports/view_scan_reports.h"

#include <unistd.h>

#include "cli/console_input.h"
#include "cli/message_catalogue.h"
#include "cli/message_print.h"
#include "reports/report_index.h"
#include "reports/report_pager.h"
#include "taskstore/result_codes.h"

namespace {

// Names up to this long fit the name column of the table.
constexpr std::size_t kShortScanName = 15;

void PrintSeparator() {
  PrintFormat0("-----------------------------------------------------------------------\n");
}

void PrintReportTable(const ReportList& reports) {
  PrintSeparator();
  PrintFormatSS("schscan_viewreport_format_datetime", GetMessageText("schscan_str_reportno"),
                GetMessageText("schscan_msg_schedulescan"));
  PrintLiteral("\n");
  PrintSeparator();
  int number = 0;
  for (const tagSCAN_REPORT_ENTRY& entry : reports) {
    const FieldText scanName(entry.szScanName);
    const FieldText dateTime(entry.szDateTime);
    ++number;
    if (scanName.size() <= kShortScanName) {
      PrintFormatDSS("schscan_viewreport_format_tasktime", number, scanName.c_str(),
                     dateTime.c_str());
    } else {
      PrintFormatDSS("schscan_viewreport_format_tasktime2", number, scanName.c_str(),
                     dateTime.c_str());
    }
    PrintLiteral("\n");
  }
  PrintSeparator();
}

// Asks until the answer is yes or no.
bool WantsToViewAReport() {
  for (;;) {
    PrintLiteral("\n");
    PrintText("schscan_confirm_view_report");
    PrintLiteral(":");
    char answer = 0;
    ReadYesNo(&answer, 'Y');
    if (answer == 'Y' || answer == 'y') return true;
    if (answer == 'N' || answer == 'n') return false;
    PrintMessageLine("schscan_valid_options");
  }
}

// Asks until the answer is the number of a row of the table.
std::size_t ReadReportNumber(std::size_t rows) {
  for (;;) {
    PrintLiteral("\n");
    PrintText("schscan_msg_enter_rptno");
    PrintLiteral(":");
    std::int32_t number = 0;
    if (!ReadNumber(&number)) {
      PrintMessageLine("schscan_valid_number_int");
    } else if (number < 1 || static_cast<std::size_t>(number) > rows) {
      PrintMessageLine("schscan_valid_rptno");
    } else {
      return static_cast<std::size_t>(number);
    }
  }
}

}  // namespace

bool ViewScanReports(std::uint32_t* resultCode) {
  if (resultCode == nullptr) return false;
  *resultCode = SCHSCAN_OK;
  ReportList reports;
  if (!ReadReportIndex(reports, getuid(), resultCode)) return false;
  if (reports.empty()) {
    PrintMessageLine("schscan_msg_noreportstoview");
    return true;
  }
  PrintReportTable(reports);
  if (!WantsToViewAReport()) return true;
  const std::size_t number = ReadReportNumber(reports.size());
  // Any path is shown, however long or strange: it reaches the pager as one
  // argument, never through a shell.
  const FieldText reportPath(reports[number - 1].szReportPath);
  ShowReportInPager(reportPath.c_str());
  return true;
}
