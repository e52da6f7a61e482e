#include "commands/modify_scheduled_scan.h"

#include <unistd.h>

#include <cstring>

#include "console/interrupt.h"
#include "console/message_catalogue.h"
#include "console/message_print.h"
#include "product_paths.h"
#include "commands/scan_name_prompt.h"
#include "commands/scan_settings_prompts.h"
#include "console/questions.h"
#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"

namespace {

// What the fetched record was, before any change; it decides which current
// values are shown and which new values are required without a question.
struct StoredSchedule {
  std::uint8_t frequency;
  bool wasWeekly;
  bool wasFirstBoot;
};

// The change question of a setting whose current value was just shown.
bool AskToChange(const char* key) { return AskYesNo({"", key, ":"}); }

void ModifyFrequency(tagSCHEDULE_SCAN_ENTRY& entry) {
  // A stored frequency that is neither daily nor weekly cannot be kept: a
  // new one is required without showing or asking.
  if (entry.byFrequency == FREQ_DAILY || entry.byFrequency == FREQ_WEEKLY) {
    PrintFormat0("\nScheduled scan frequency: ");
    PrintMessageLine(entry.byFrequency == FREQ_DAILY ? TextKey("schscan_str_daily")
                                                     : TextKey("schscan_str_weekly"));
    if (!AskToChange(TextKey("schscan_confirm_scanfrequency"))) return;
  }
  entry.byFrequency = AskFrequency(kModifyWizardTexts);
}

void ModifyWeekDay(tagSCHEDULE_SCAN_ENTRY& entry, const StoredSchedule& stored) {
  if (entry.byFrequency != FREQ_WEEKLY) return;  // a daily scan keeps its stored weekday
  const char* day = WeekDayName(entry.byWeekDay);
  // A weekday outside 1 to 7 counts as missing, like that of a daily scan.
  if (stored.wasWeekly && day != nullptr) {
    PrintLiteral("\n");
    PrintFormatS("schscan_scandetail_format5", day);
    PrintLiteral(".\n");
    if (!AskToChange(TextKey("schscan_confirm_day_schscan"))) return;
  }
  entry.byWeekDay = AskWeekDay(kModifyWizardTexts);
}

void ModifyFirstBoot(tagSCHEDULE_SCAN_ENTRY& entry) {
  PrintLiteral("\n");
  PrintMessageLine(entry.bFirstBootScan == 1 ? TextKey("schscan_msg_firstboot_on")
                                             : TextKey("schscan_msg_firstboot_off"));
  if (!AskToChange(TextKey("schscan_confirm_firstboot"))) return;
  entry.bFirstBootScan = AskFirstBootScan() ? 1 : 0;
}

void ModifyScanTime(tagSCHEDULE_SCAN_ENTRY& entry, const StoredSchedule& stored) {
  if (!stored.wasFirstBoot) {
    PrintLiteral("\n");
    PrintFormatDDD("schscan_msg_scantime", entry.nHour, entry.nMinute, entry.nSecond);
    PrintLiteral(".\n");
    if (!AskToChange(TextKey("schscan_confirm_change_scantime"))) return;
  }
  AskScanTime(kModifyWizardTexts, entry);
}

void ModifyRecurrence(tagSCHEDULE_SCAN_ENTRY& entry, const StoredSchedule& stored) {
  if (!stored.wasFirstBoot && entry.byFrequency == stored.frequency) {
    const bool daily = entry.byFrequency == FREQ_DAILY;
    PrintLiteral("\n");
    if (daily) {
      PrintFormatD("schscan_msg_scanrecurring_days", entry.nRecurEvery);
    } else {
      PrintFormatD("schscan_msg_scanrecurring_week", entry.nRecurEvery);
    }
    PrintLiteral(".");
    const char* question = daily ? TextKey("schscan_confirm_recurrence_days")
                                 : TextKey("schscan_confirm_recurrence_weeks");
    if (!AskYesNo({"\n", question, ":"})) return;
  }
  entry.nRecurEvery = AskRecurrence(kModifyWizardTexts, entry.byFrequency);
}

void ModifyRepeat(tagSCHEDULE_SCAN_ENTRY& entry) {
  PrintLiteral("\n");
  if (entry.bRepeatScan == 1) {
    PrintFormatDS(
        "schscan_msg_repeatscan_on", entry.nRepeatInterval,
        GetMessageText(entry.byRepeatUnit == REPEAT_UNIT_HOURS ? TextKey("schscan_str_hours")
                                                               : TextKey("schscan_str_minutes")));
    PrintLiteral(".\n");
  } else {
    PrintMessageLine("schscan_msg_repeatscan_off");
  }
  if (!AskToChange(TextKey("schscan_confirm_change_repeatscan"))) return;
  // Turning repetition off keeps the stored interval and unit.
  entry.bRepeatScan = AskYesNo({"", TextKey("schscan_confirm_repeatscan_schdday"), ":"}) ? 1 : 0;
  if (entry.bRepeatScan == 1) AskRepeatInterval(kModifyWizardTexts, entry);
}

void ModifyScanOptions(tagSCHEDULE_SCAN_ENTRY& entry) {
  struct OptionLine {
    std::uint8_t bit;
    const char* key;
  };
  constexpr OptionLine kOptionLines[] = {
      {SCAN_OPT_ARCHIVE, TextKey("schscan_scandetail_archivefiles_2")},
      {SCAN_OPT_SPYWARE, TextKey("schscan_msg_scan_spyware_2")},
      {SCAN_OPT_DUMP, TextKey("schscan_msg_scan_dump_2")},
      {SCAN_OPT_PACKED, TextKey("schscan_scandetail_packedfiles_2")},
  };
  PrintLiteral("\n");
  PrintText("schscan_msg_scanner_option");
  PrintLiteral(":\n");
  for (const OptionLine& line : kOptionLines) {
    if ((entry.byScanOptions & line.bit) == 0) continue;
    PrintLiteral("\t");
    PrintMessageLine(line.key);
  }
  if (!AskToChange(TextKey("schddmn_confirm_scanoption"))) return;
  entry.byScanOptions = AskScanOptions();
}

void ModifyScanAction(tagSCHEDULE_SCAN_ENTRY& entry) {
  constexpr const char* kActions[] = {
      TextKey("schscan_msg_repaironly"), TextKey("schscan_msg_repairdelete"),
      TextKey("schscan_msg_delete"), TextKey("schscan_msg_reportonly")};
  PrintLiteral("\n");
  PrintText("schscan_msg_scan_action");
  PrintLiteral(":\n");
  if (entry.nScanAction >= ACTION_REPAIR_ONLY && entry.nScanAction <= ACTION_REPORT_ONLY) {
    PrintLiteral("\t");
    PrintMessageLine(kActions[entry.nScanAction]);
  }
  if (!AskToChange(TextKey("schddmn_confirm_actionforvirus"))) return;
  entry.nScanAction = AskScanAction();
}

// Shows each directory and asks whether to remove it; after a removal the
// next directory has moved into the same position.
void RemoveDirectories(ScanItemList& items) {
  for (std::size_t i = 0; i < items.size();) {
    PrintLiteral("\n");
    PrintText("schscan_str_directorytoscan");
    PrintLiteral(" : ");
    PrintLiteral(items.PathAt(i));
    PrintLiteral("\n");
    if (AskYesNo({"", TextKey("schddmn_confirm_deletescanitem"), ":"})) {
      items.RemoveAt(i);
    } else {
      ++i;
    }
  }
}

// The scan must end with at least one directory.
void AddMoreDirectories(ScanItemList& items) {
  for (;;) {
    if (AskYesNo({"", TextKey("schscan_confirm_addmore_dir"), ":"})) {
      AskDirectories(items);
      return;
    }
    if (!items.empty()) return;
    PrintMessageLine("schscan_valid_directorytoscan");
  }
}

}  // namespace

bool ModifyScheduledScan(std::uint32_t* resultCode) {
  if (resultCode == nullptr) return false;
  *resultCode = SCHSCAN_OK;
  const std::uint32_t userId = getuid();

  char name[SCAN_NAME_SIZE] = {};
  PromptScanName(ScanNameUse::kModify, name, resultCode);  // prints the heading too
  tagSCHEDULE_SCAN_ENTRY entry;
  PrepareNewScheduleScanEntry(&entry);
  std::memcpy(entry.szScanName, name, strnlen(name, SCAN_NAME_SIZE - 1));  // the rest stays zero
  if (!WaitingForOthers(
          [&] { return GetScheduleScanTaskDetails(kTaskListPath, &entry, userId, resultCode); }))
    return false;

  // The record is changed in place and handed back whole at the end; until
  // then nothing is stored, so an interrupted wizard changes nothing.
  const StoredSchedule stored = {entry.byFrequency, entry.byFrequency == FREQ_WEEKLY,
                                 entry.bFirstBootScan == 1};
  ModifyFrequency(entry);
  ModifyWeekDay(entry, stored);
  ModifyFirstBoot(entry);
  if (entry.bFirstBootScan == 0) {
    ModifyScanTime(entry, stored);
    ModifyRecurrence(entry, stored);
    ModifyRepeat(entry);
  }
  ModifyScanOptions(entry);
  ModifyScanAction(entry);
  RemoveDirectories(entry.vecScanItems);
  AddMoreDirectories(entry.vecScanItems);

  if (!WaitingForOthers(
          [&] { return ModifyScheduleScanTask(kTaskListPath, &entry, userId, resultCode); }))
    return false;
  PrintFormatS("schscan_msg_scanmodified_success", entry.szScanName);
  PrintLiteral(".\n");
  return true;
}
