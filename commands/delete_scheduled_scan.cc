#include "commands/delete_scheduled_scan.h"

#include <unistd.h>

#include "console/interrupt.h"
#include "product_paths.h"
#include "commands/scan_name_prompt.h"
#include "taskstore/result_codes.h"
#include "taskstore/schedule_scan_entry.h"
#include "taskstore/task_store.h"

// No list and no confirmation: the first name the store accepts is deleted.
// The dispatcher prints the success message or the store's refusal.
bool DeleteScheduledScan(std::uint32_t* resultCode) {
  if (resultCode == nullptr) return false;
  *resultCode = SCHSCAN_OK;
  char name[SCAN_NAME_SIZE] = {};
  PromptScanName(ScanNameUse::kDelete, name, resultCode);  // prints the heading too
  return WaitingForOthers(
      [&] { return DeleteScheduleScanTask(kTaskListPath, name, getuid(), resultCode); });
}
