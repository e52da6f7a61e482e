#include "commands/view_scan_reports.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "commands/report_pager.h"
#include "console/message_catalogue.h"
#include "console/message_print.h"
#include "console/questions.h"
#include "reports/report_index.h"
#include "reports/reports_directory.h"
#include "taskstore/result_codes.h"

namespace {

// Names up to this long fit the name column of the table.
constexpr std::size_t kShortScanName = 15;

void PrintSeparator() {
  PrintFormat0("-----------------------------------------------------------------------\n");
}

void PrintTableHead() {
  PrintSeparator();
  PrintFormatSS("schscan_viewreport_format_datetime", GetMessageText("schscan_str_reportno"),
                GetMessageText("schscan_msg_schedulescan"));
  PrintLiteral("\n");
  PrintSeparator();
}

void PrintRow(int number, const tagSCAN_REPORT_ENTRY& entry) {
  const FieldText scanName(entry.szScanName);
  const FieldText dateTime(entry.szDateTime);
  if (scanName.size() <= kShortScanName) {
    PrintFormatDSS("schscan_viewreport_format_tasktime", number, scanName.c_str(),
                   dateTime.c_str());
  } else {
    PrintFormatDSS("schscan_viewreport_format_tasktime2", number, scanName.c_str(),
                   dateTime.c_str());
  }
  PrintLiteral("\n");
}

// Prints the table of the caller's reports as the index is read, a row per
// entry, and returns the entry number in the file of each row. Only these
// numbers are kept, not the entries: a long index is listed at the pace of
// reading it, in little memory.
std::vector<std::uint64_t> ListReports(ReportIndexReader& index, std::uint32_t caller) {
  std::vector<std::uint64_t> rows;
  index.ForEach(caller, [&rows](const tagSCAN_REPORT_ENTRY& entry, std::uint64_t number) {
    if (rows.empty()) PrintTableHead();
    rows.push_back(number);
    PrintRow(static_cast<int>(rows.size()), entry);
  });
  if (!rows.empty()) PrintSeparator();
  return rows;
}

}  // namespace

bool ViewScanReports(std::uint32_t* resultCode) {
  if (resultCode == nullptr) return false;
  *resultCode = SCHSCAN_OK;
  ReportIndexReader index;
  if (!index.Open(resultCode)) return false;
  const std::vector<std::uint64_t> rows = ListReports(index, getuid());
  if (rows.empty()) {
    PrintMessageLine("schscan_msg_noreportstoview");
    return true;
  }
  if (!AskYesNo({"\n", TextKey("schscan_confirm_view_report"), ":"})) return true;
  const std::int32_t number =
      AskNumber({"\n", TextKey("schscan_msg_enter_rptno"), ":"}, 1,
                static_cast<std::int32_t>(std::min<std::size_t>(rows.size(), INT32_MAX)),
                {"", TextKey("schscan_valid_rptno"), ".\n"});
  // The chosen row's entry, from the same open file as the table. Any path is
  // shown, however long or strange: it reaches the pager as one argument,
  // never through a shell.
  tagSCAN_REPORT_ENTRY entry;
  ReportsDirectory reports;
  if (index.ReadAgain(rows[static_cast<std::size_t>(number) - 1], &entry)) {
    ShowReportInPager(FieldText(entry.szReportPath).c_str(), reports);
  }
  return true;
}
