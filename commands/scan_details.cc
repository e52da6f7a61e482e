#include "commands/scan_details.h"

#include "console/message_catalogue.h"
#include "console/message_print.h"

namespace {

// Where the summary and the detail view differ.
struct DetailKeys {
  const char* heading;  // nullptr: none
  const char* weekDayLabel;
  const char* firstBootFormat;
  const char* timeLabel;
  const char* optionsFormat;
  const char* optionsLabel;
  const char* optionsEnd;
  const char* archiveFormat;
  const char* packedFormat;
  const char* actionEnd;
  const char* directoriesLabel;
};

constexpr DetailKeys kAddSummary = {
    TextKey("Schedule scan details"),     TextKey("schscan_str_weekday"),
    FormatSKey("schscan_msg_enabled"),    TextKey("schscan_str_scantime_2"),
    FormatSKey("schscan_scandetail_format_scanoption"), TextKey("schscan_str_scanoption"),
    ":\n",                                FormatSKey("schscan_scandetail_archivefiles"),
    FormatSKey("schscan_scandetail_packedfiles"), " :\n",
    TextKey("schscan_str_directorytoscan")};

constexpr DetailKeys kDetailView = {
    nullptr,                              TextKey("schscan_str_scanon"),
    FormatSKey("schscan_str_enable"),     TextKey("schscan_str_scantime"),
    FormatSKey("schscan_scandetail_format2"), TextKey("schscan_str_scanneroption"),
    "\n",                                 FormatSKey("schscan_msg_scanarchive"),
    FormatSKey("schscan_msg_scanpacked"), "\n",
    TextKey("schscan_str_directoriestoscan")};

// A heading in the two-column layout: the label, padded.
void PrintLabel(const char* format, const char* labelKey) {
  PrintFormatS(format, GetMessageText(labelKey));
}

void PrintDetails(const DetailKeys& keys, const tagSCHEDULE_SCAN_ENTRY& e) {
  PrintLiteral("\n");
  if (keys.heading != nullptr) {
    PrintText(keys.heading);
    PrintLiteral(" :\n");
  }
  PrintFormatSS("schscan_scandetail_format1", GetMessageText("schscan_str_scanname"),
                e.szScanName);
  PrintLiteral(".\n");
  const bool daily = e.byFrequency == FREQ_DAILY;
  const bool weekly = e.byFrequency == FREQ_WEEKLY;
  if (daily || weekly) {
    PrintLabel(FormatSKey("schscan_scandetail_format2"), TextKey("schscan_str_scanfrequency"));
    PrintMessageLine(daily ? TextKey("schscan_str_daily") : TextKey("schscan_str_weekly"));
  }
  if (const char* day = WeekDayName(e.byWeekDay); weekly && day != nullptr) {
    PrintFormatSS("schscan_scandetail_format1", GetMessageText(keys.weekDayLabel), day);
    PrintLiteral(".\n");
  }
  if (e.bFirstBootScan == 1) {
    PrintLabel(keys.firstBootFormat, TextKey("schscan_str_firstbootscan"));
    PrintLiteral(".\n");
  } else if (e.bFirstBootScan == 0) {
    PrintFormatSDDD("schscan_scandetail_format_time", GetMessageText(keys.timeLabel), e.nHour,
                    e.nMinute, e.nSecond);
    PrintLiteral(".\n");
    if (daily) PrintFormatD("schscan_msg_scanrecurring_days", e.nRecurEvery);
    if (weekly) PrintFormatD("schscan_msg_scanrecurring_week", e.nRecurEvery);
    if (daily || weekly) PrintLiteral(".\n");
    if (e.bRepeatScan == 1) {
      PrintFormatDS("schscan_msg_repeatscan_on", e.nRepeatInterval,
                    GetMessageText(e.byRepeatUnit == REPEAT_UNIT_HOURS
                                       ? TextKey("schscan_str_hours")
                                       : TextKey("schscan_str_minutes")));
      PrintLiteral(".\n");
    }
  }
  PrintLabel(keys.optionsFormat, keys.optionsLabel);
  PrintLiteral(keys.optionsEnd);
  const struct {
    std::uint8_t bit;
    const char* format;
  } options[] = {{SCAN_OPT_ARCHIVE, keys.archiveFormat},
                 {SCAN_OPT_SPYWARE, FormatSKey("schscan_scandetail_spyware")},
                 {SCAN_OPT_DUMP, FormatSKey("schscan_scandetal_dump")},
                 {SCAN_OPT_PACKED, keys.packedFormat}};
  for (const auto& option : options) {
    if ((e.byScanOptions & option.bit) == 0) continue;
    PrintFormatS(option.format, "");
    PrintLiteral(".\n");
  }
  PrintLabel(FormatSKey("schscan_scandetail_format2"), TextKey("schscan_str_scanneraction"));
  PrintLiteral(keys.actionEnd);
  constexpr const char* kActions[] = {
      FormatSKey("schscan_scandetail_format3"), FormatSKey("schscan_scandetail_repairdelete_output"),
      FormatSKey("schscan_scandetail_format_deleted"), FormatSKey("schscan_scandetail_format_report")};
  if (e.nScanAction >= ACTION_REPAIR_ONLY && e.nScanAction <= ACTION_REPORT_ONLY) {
    PrintFormatS(kActions[e.nScanAction], "");
    PrintLiteral(".\n");
  }
  PrintLabel(FormatSKey("schscan_scandetail_format2"), keys.directoriesLabel);
  PrintLiteral("\n");
  for (std::size_t i = 0; i < e.vecScanItems.size(); ++i) {
    PrintFormatSS("schscan_scandetail_format4", "", e.vecScanItems.PathAt(i));
    PrintLiteral("\n");
  }
}

}  // namespace

void PrintAddScanSummary(const tagSCHEDULE_SCAN_ENTRY& entry) { PrintDetails(kAddSummary, entry); }

void PrintScanDetailView(const tagSCHEDULE_SCAN_ENTRY& entry) { PrintDetails(kDetailView, entry); }
