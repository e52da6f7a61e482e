#include "commands/view_scan_reports.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string_view>
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

// A row of the table: its entry's number in the file, and a digest of the
// path and owner it listed, to know the entry again when it is read anew.
struct Row {
  std::uint64_t number;
  std::size_t pathAndOwner;
};

// szReportPath and dwUserId lie side by side.
std::size_t DigestOfPathAndOwner(const tagSCAN_REPORT_ENTRY& entry) {
  return std::hash<std::string_view>{}(std::string_view(
      entry.szReportPath, sizeof entry.szReportPath + sizeof entry.dwUserId));
}

// Prints the table of the caller's reports as the index is read, a row per
// entry. Only a number and a digest are kept per row, not the entries: a
// long index is listed at the pace of reading it, in little memory.
std::vector<Row> ListReports(ReportIndexReader& index, std::uint32_t caller) {
  std::vector<Row> rows;
  index.ForEach(caller, [&rows](const tagSCAN_REPORT_ENTRY& entry, std::uint64_t number) {
    if (rows.empty()) PrintTableHead();
    rows.push_back({number, DigestOfPathAndOwner(entry)});
    PrintRow(static_cast<int>(rows.size()), entry);
  });
  if (!rows.empty()) PrintSeparator();
  return rows;
}

// True when an entry of another owner than `owner` names `path` too: the
// file may be another user's report, written under a name that the scan
// service drew again after `owner` removed the file.
bool NamedByAnotherOwner(ReportIndexReader& index, const char* path, std::uint32_t owner) {
  bool named = false;
  index.ForEach(0, [&](const tagSCAN_REPORT_ENTRY& entry, std::uint64_t) {
    named = named || (entry.dwUserId != owner &&
                      std::strcmp(FieldText(entry.szReportPath).c_str(), path) == 0);
  });
  return named;
}

}  // namespace

bool ViewScanReports(std::uint32_t* resultCode) {
  if (resultCode == nullptr) return false;
  *resultCode = SCHSCAN_OK;
  ReportIndexReader index;
  if (!index.Open(resultCode)) return false;
  const std::uint32_t caller = getuid();
  const std::vector<Row> rows = ListReports(index, caller);
  if (rows.empty()) {
    PrintMessageLine("schscan_msg_noreportstoview");
    return true;
  }
  if (!AskYesNo({"\n", TextKey("schscan_confirm_view_report"), ":"})) return true;
  const std::int32_t number =
      AskNumber({"\n", TextKey("schscan_msg_enter_rptno"), ":"}, 1,
                static_cast<std::int32_t>(std::min<std::size_t>(rows.size(), INT32_MAX)),
                {"", TextKey("schscan_valid_rptno"), ".\n"});
  // The chosen row's entry, from the same open file as the table: shown only
  // while it still lists the same path and owner (a rewrite in place may have
  // changed it), and for an ordinary user only while no other owner's entry
  // names the file too.
  const Row& row = rows[static_cast<std::size_t>(number) - 1];
  tagSCAN_REPORT_ENTRY entry;
  if (!index.ReadAgain(row.number, &entry)) return true;
  const FieldText path(entry.szReportPath);
  if (DigestOfPathAndOwner(entry) != row.pathAndOwner ||
      (caller != 0 && NamedByAnotherOwner(index, path.c_str(), caller))) {
    SayCannotOpen(path.c_str(), ENOENT);
    return true;
  }
  ReportsDirectory reports;
  ShowReportInPager(path.c_str(), reports);
  return true;
}
