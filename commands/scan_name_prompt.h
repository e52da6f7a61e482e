// The scan name prompt shared by add, modify, delete and delete reports.
#pragma once

#include <cstdint>

enum class ScanNameUse { kAdd, kModify, kDelete, kDeleteReports };

// Prints the heading of `use` once (delete reports prints its own), then asks
// until the tool's checks and the task store's ValidateTaskName accept a
// name. `name` (SCAN_NAME_SIZE bytes) then holds it, NUL-terminated. Each
// refusal by the store leaves its code in `resultCode`.
void PromptScanName(ScanNameUse use, char* name, std::uint32_t* resultCode);
