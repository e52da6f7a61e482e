#include "commands/add_scheduled_scan.h"

#include <unistd.h>

#include <cstring>

#include "console/interrupt.h"
#include "console/message_print.h"
#include "product_paths.h"
#include "commands/scan_details.h"
#include "commands/scan_name_prompt.h"
#include "commands/scan_settings_prompts.h"
#include "console/questions.h"
#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"

namespace {

// Time of day, recurrence and repetition: asked only for a scan that does not
// run at first boot.
void AskTimedSchedule(tagSCHEDULE_SCAN_ENTRY& entry) {
  AskScanTime(kAddWizardTexts, entry);
  entry.nRecurEvery = AskRecurrence(kAddWizardTexts, entry.byFrequency);
  entry.bRepeatScan = AskYesNo({"\n", TextKey("schscan_ask_repeatscan"), ":"}) ? 1 : 0;
  if (entry.bRepeatScan == 1) AskRepeatInterval(kAddWizardTexts, entry);
}

}  // namespace

bool AddScheduledScan(std::uint32_t* resultCode) {
  if (resultCode == nullptr) return false;
  *resultCode = SCHSCAN_OK;

  // Everything is asked into this record; nothing is stored before the user
  // confirms, so an interrupted wizard leaves the store as it was.
  tagSCHEDULE_SCAN_ENTRY entry;
  PrepareNewScheduleScanEntry(&entry);
  entry.dwUserId = getuid();

  char name[SCAN_NAME_SIZE] = {};
  PromptScanName(ScanNameUse::kAdd, name, resultCode);                     // prints the heading too
  std::memcpy(entry.szScanName, name, strnlen(name, SCAN_NAME_SIZE - 1));  // the rest stays zero

  entry.byFrequency = AskFrequency(kAddWizardTexts);
  if (entry.byFrequency == FREQ_WEEKLY) entry.byWeekDay = AskWeekDay(kAddWizardTexts);
  entry.bFirstBootScan = AskFirstBootScan() ? 1 : 0;
  if (entry.bFirstBootScan == 0) AskTimedSchedule(entry);

  PrintLiteral("\n");
  PrintText("schscan_msg_scanner_option");
  PrintLiteral(":\n");
  entry.byScanOptions = AskScanOptions();
  entry.nScanAction = AskScanAction();
  AskDirectories(entry.vecScanItems);

  PrintAddScanSummary(entry);
  if (!AskYesNo({"\n", TextKey("schscan_confirm_add_schscan"), ":"})) {
    PrintFormat0("schscan_msg_scanadded_failure");
    PrintLiteral(".\n");
    return true;
  }
  if (!WaitingForOthers([&] { return AddScheduleScanTask(kTaskListPath, &entry, resultCode); }))
    return false;
  PrintFormatS("schscan_msg_scanadded_success", entry.szScanName);
  PrintLiteral(".\n");
  return true;
}
