// One scheduled scan shown setting by setting: the add wizard's summary
// before its confirmation, and the view command's detail view. Both print the
// same lines in the same order; a few labels, keys and line ends differ.
// Lines whose value cannot be shown (a frequency that is neither daily nor
// weekly, a weekday outside 1 to 7) are left out.
#pragma once

#include "taskstore/schedule_scan_entry.h"

void PrintAddScanSummary(const tagSCHEDULE_SCAN_ENTRY& entry);
void PrintScanDetailView(const tagSCHEDULE_SCAN_ENTRY& entry);
