// The directory prompt shared by the add and modify wizards.
#pragma once

#include "taskstore/schedule_scan_entry.h"

// Asks once for a directory. True when the task store accepts it and it
// neither repeats, contains nor lies inside a directory of `items`: the path
// is then copied, NUL-terminated, to the start of `item` (SCAN_ITEM_SIZE
// bytes, zeroed by the caller). False, after its message, otherwise.
bool PromptScanDirectory(const ScanItemList& items, char* item);

// The duplicate rules: equal paths, or one path ending in "/" whose text
// without that slash begins the other. Byte-wise; no separator is required
// after the prefix.
bool IsDuplicateDirectory(const char* path, const ScanItemList& items);
