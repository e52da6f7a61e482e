#include "commands/scan_detail_table.h"

#include "console/message_catalogue.h"
#include "console/message_print.h"

namespace {

using C = DetailCondition;
using A = DetailArgument;

bool IsTimed(const tagSCHEDULE_SCAN_ENTRY& e) { return e.bFirstBootScan == 0; }

bool Holds(const DetailLine& line, const tagSCHEDULE_SCAN_ENTRY& e) {
  switch (line.condition) {
    case C::kAlways:
      return true;
    case C::kFrequencyKnown:
      return e.byFrequency == FREQ_DAILY || e.byFrequency == FREQ_WEEKLY;
    case C::kDaily:
      return e.byFrequency == FREQ_DAILY;
    case C::kWeekly:
      return e.byFrequency == FREQ_WEEKLY;
    case C::kWeeklyWithDay:
      return e.byFrequency == FREQ_WEEKLY && WeekDayName(e.byWeekDay) != nullptr;
    case C::kFirstBoot:
      return e.bFirstBootScan == 1;
    case C::kTimed:
      return IsTimed(e);
    case C::kTimedDaily:
      return IsTimed(e) && e.byFrequency == FREQ_DAILY;
    case C::kTimedWeekly:
      return IsTimed(e) && e.byFrequency == FREQ_WEEKLY;
    case C::kTimedRepeat:
      return IsTimed(e) && e.bRepeatScan == 1;
    case C::kOption:
      return (e.byScanOptions & line.value) != 0;
    case C::kAction:
      return e.nScanAction == line.value;
    case C::kEachItem:
      return !e.vecScanItems.empty();
  }
  return false;
}

const char* RepeatUnitWord(const tagSCHEDULE_SCAN_ENTRY& e) {
  return e.byRepeatUnit == REPEAT_UNIT_HOURS ? GetMessageText("schscan_str_hours")
                                             : GetMessageText("schscan_str_minutes");
}

void PrintLine(const DetailLine& line, const tagSCHEDULE_SCAN_ENTRY& e, std::size_t item) {
  const char* label = line.label != nullptr ? GetMessageText(line.label) : "";
  switch (line.argument) {
    case A::kNone:
      break;
    case A::kText:
      PrintText(line.key);
      break;
    case A::kLabel:
      PrintFormatS(line.key, label);
      break;
    case A::kLabelName:
      PrintFormatSS(line.key, label, e.szScanName);
      break;
    case A::kLabelWeekDay:
      PrintFormatSS(line.key, label, WeekDayName(e.byWeekDay));
      break;
    case A::kLabelTime:
      PrintFormatSDDD(line.key, label, e.nHour, e.nMinute, e.nSecond);
      break;
    case A::kRecurrence:
      PrintFormatD(line.key, e.nRecurEvery);
      break;
    case A::kRepeat:
      PrintFormatDS(line.key, e.nRepeatInterval, RepeatUnitWord(e));
      break;
    case A::kEmpty:
      PrintFormatS(line.key, "");
      break;
    case A::kEmptyPath:
      PrintFormatSS(line.key, "", e.vecScanItems.PathAt(item));
      break;
  }
  PrintLiteral(line.lineEnd);
}

// Lines in order; a line whose condition fails is left out.
constexpr DetailLine kAddSummary[] = {
    {C::kAlways, 0, A::kNone, nullptr, nullptr, "\n"},
    {C::kAlways, 0, A::kText, TextKey("Schedule scan details"), nullptr, " :\n"},
    {C::kAlways, 0, A::kLabelName, FormatSSKey("schscan_scandetail_format1"),
     TextKey("schscan_str_scanname"), ".\n"},
    {C::kFrequencyKnown, 0, A::kLabel, FormatSKey("schscan_scandetail_format2"),
     TextKey("schscan_str_scanfrequency"), ""},
    {C::kDaily, 0, A::kText, TextKey("schscan_str_daily"), nullptr, ".\n"},
    {C::kWeekly, 0, A::kText, TextKey("schscan_str_weekly"), nullptr, ".\n"},
    {C::kWeeklyWithDay, 0, A::kLabelWeekDay, FormatSSKey("schscan_scandetail_format1"),
     TextKey("schscan_str_weekday"), ".\n"},
    {C::kFirstBoot, 0, A::kLabel, FormatSKey("schscan_msg_enabled"),
     TextKey("schscan_str_firstbootscan"), ".\n"},
    {C::kTimed, 0, A::kLabelTime, FormatSDDDKey("schscan_scandetail_format_time"),
     TextKey("schscan_str_scantime_2"), ".\n"},
    {C::kTimedDaily, 0, A::kRecurrence, FormatDKey("schscan_msg_scanrecurring_days"), nullptr,
     ".\n"},
    {C::kTimedWeekly, 0, A::kRecurrence, FormatDKey("schscan_msg_scanrecurring_week"), nullptr,
     ".\n"},
    {C::kTimedRepeat, 0, A::kRepeat, FormatDSKey("schscan_msg_repeatscan_on"), nullptr, ".\n"},
    {C::kAlways, 0, A::kLabel, FormatSKey("schscan_scandetail_format_scanoption"),
     TextKey("schscan_str_scanoption"), ":\n"},
    {C::kOption, SCAN_OPT_ARCHIVE, A::kEmpty, FormatSKey("schscan_scandetail_archivefiles"),
     nullptr, ".\n"},
    {C::kOption, SCAN_OPT_SPYWARE, A::kEmpty, FormatSKey("schscan_scandetail_spyware"), nullptr,
     ".\n"},
    {C::kOption, SCAN_OPT_DUMP, A::kEmpty, FormatSKey("schscan_scandetal_dump"), nullptr, ".\n"},
    {C::kOption, SCAN_OPT_PACKED, A::kEmpty, FormatSKey("schscan_scandetail_packedfiles"), nullptr,
     ".\n"},
    {C::kAlways, 0, A::kLabel, FormatSKey("schscan_scandetail_format2"),
     TextKey("schscan_str_scanneraction"), " :\n"},
    {C::kAction, ACTION_REPAIR_ONLY, A::kEmpty, FormatSKey("schscan_scandetail_format3"), nullptr,
     ".\n"},
    {C::kAction, ACTION_REPAIR_DELETE, A::kEmpty,
     FormatSKey("schscan_scandetail_repairdelete_output"), nullptr, ".\n"},
    {C::kAction, ACTION_DELETE, A::kEmpty, FormatSKey("schscan_scandetail_format_deleted"), nullptr,
     ".\n"},
    {C::kAction, ACTION_REPORT_ONLY, A::kEmpty, FormatSKey("schscan_scandetail_format_report"),
     nullptr, ".\n"},
    {C::kAlways, 0, A::kLabel, FormatSKey("schscan_scandetail_format2"),
     TextKey("schscan_str_directorytoscan"), "\n"},
    {C::kEachItem, 0, A::kEmptyPath, FormatSSKey("schscan_scandetail_format4"), nullptr, "\n"},
};

constexpr DetailLine kDetailView[] = {
    {C::kAlways, 0, A::kNone, nullptr, nullptr, "\n"},
    {C::kAlways, 0, A::kLabelName, FormatSSKey("schscan_scandetail_format1"),
     TextKey("schscan_str_scanname"), ".\n"},
    {C::kFrequencyKnown, 0, A::kLabel, FormatSKey("schscan_scandetail_format2"),
     TextKey("schscan_str_scanfrequency"), ""},
    {C::kDaily, 0, A::kText, TextKey("schscan_str_daily"), nullptr, ".\n"},
    {C::kWeekly, 0, A::kText, TextKey("schscan_str_weekly"), nullptr, ".\n"},
    {C::kWeeklyWithDay, 0, A::kLabelWeekDay, FormatSSKey("schscan_scandetail_format1"),
     TextKey("schscan_str_scanon"), ".\n"},
    {C::kFirstBoot, 0, A::kLabel, FormatSKey("schscan_str_enable"),
     TextKey("schscan_str_firstbootscan"), ".\n"},
    {C::kTimed, 0, A::kLabelTime, FormatSDDDKey("schscan_scandetail_format_time"),
     TextKey("schscan_str_scantime"), ".\n"},
    {C::kTimedDaily, 0, A::kRecurrence, FormatDKey("schscan_msg_scanrecurring_days"), nullptr,
     ".\n"},
    {C::kTimedWeekly, 0, A::kRecurrence, FormatDKey("schscan_msg_scanrecurring_week"), nullptr,
     ".\n"},
    {C::kTimedRepeat, 0, A::kRepeat, FormatDSKey("schscan_msg_repeatscan_on"), nullptr, ".\n"},
    {C::kAlways, 0, A::kLabel, FormatSKey("schscan_scandetail_format2"),
     TextKey("schscan_str_scanneroption"), "\n"},
    {C::kOption, SCAN_OPT_ARCHIVE, A::kEmpty, FormatSKey("schscan_msg_scanarchive"), nullptr,
     ".\n"},
    {C::kOption, SCAN_OPT_SPYWARE, A::kEmpty, FormatSKey("schscan_scandetail_spyware"), nullptr,
     ".\n"},
    {C::kOption, SCAN_OPT_DUMP, A::kEmpty, FormatSKey("schscan_scandetal_dump"), nullptr, ".\n"},
    {C::kOption, SCAN_OPT_PACKED, A::kEmpty, FormatSKey("schscan_msg_scanpacked"), nullptr, ".\n"},
    {C::kAlways, 0, A::kLabel, FormatSKey("schscan_scandetail_format2"),
     TextKey("schscan_str_scanneraction"), "\n"},
    {C::kAction, ACTION_REPAIR_ONLY, A::kEmpty, FormatSKey("schscan_scandetail_format3"), nullptr,
     ".\n"},
    {C::kAction, ACTION_REPAIR_DELETE, A::kEmpty,
     FormatSKey("schscan_scandetail_repairdelete_output"), nullptr, ".\n"},
    {C::kAction, ACTION_DELETE, A::kEmpty, FormatSKey("schscan_scandetail_format_deleted"), nullptr,
     ".\n"},
    {C::kAction, ACTION_REPORT_ONLY, A::kEmpty, FormatSKey("schscan_scandetail_format_report"),
     nullptr, ".\n"},
    {C::kAlways, 0, A::kLabel, FormatSKey("schscan_scandetail_format2"),
     TextKey("schscan_str_directoriestoscan"), "\n"},
    {C::kEachItem, 0, A::kEmptyPath, FormatSSKey("schscan_scandetail_format4"), nullptr, "\n"},
};

}  // namespace

void PrintDetailTable(std::span<const DetailLine> table, const tagSCHEDULE_SCAN_ENTRY& entry) {
  for (const DetailLine& line : table) {
    if (!Holds(line, entry)) continue;
    const std::size_t times = line.condition == C::kEachItem ? entry.vecScanItems.size() : 1;
    for (std::size_t item = 0; item < times; ++item) PrintLine(line, entry, item);
  }
}

void PrintAddScanSummary(const tagSCHEDULE_SCAN_ENTRY& entry) {
  PrintDetailTable(kAddSummary, entry);
}

void PrintScanDetailView(const tagSCHEDULE_SCAN_ENTRY& entry) {
  PrintDetailTable(kDetailView, entry);
}
