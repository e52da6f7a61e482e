// The task store: the product's library tskvault.so, which keeps the
// scheduled scans in the task list file. Every function returns true for
// success and otherwise leaves a result code (taskstore/result_codes.h) in
// `resultCode`.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "taskstore/schedule_scan_entry.h"

#define TSKVAULT_API __attribute__((visibility("default")))

// Name check modes of ValidateTaskName.
inline constexpr std::int32_t kNameMustExist = 0;
inline constexpr std::int32_t kNameMustBeNew = 1;

// Appends the scans that `userId` may see (0: every scan) in creation order.
TSKVAULT_API bool ReadScheduleScanTaskList(const char* taskListPath, ScheduleScanList& scanList,
                                           std::uint32_t userId, std::uint32_t* resultCode);
// For the scan service: every scan, as for the super-user, and in `anchors`
// (anchors[i] for scanList[i]) the moment its schedule was set, in seconds
// since the epoch: when it was added, or last changed in frequency, weekday,
// recurrence, start time or first boot (its runs are counted from then).
// Scans of a store made before anchors were kept have the moment it was
// upgraded.
TSKVAULT_API bool ReadScheduleScanTaskListWithAnchors(const char* taskListPath,
                                                      ScheduleScanList& scanList,
                                                      std::vector<std::int64_t>& anchors,
                                                      std::uint32_t* resultCode);
// Writes the login name of `userId` into `userName` (emptied by the caller).
TSKVAULT_API bool GetUserNameFormUserID(std::uint32_t userId, std::string& userName,
                                        std::uint32_t* resultCode);
// Checks a name for a new scan (kNameMustBeNew) or an existing one
// (kNameMustExist) in the product's task list.
TSKVAULT_API bool ValidateTaskName(const char* scanName, std::int32_t mode, std::uint32_t userId,
                                   std::uint32_t* resultCode);
// Fills `entry` (whose szScanName names the scan) from the store.
TSKVAULT_API bool GetScheduleScanTaskDetails(const char* taskListPath,
                                             tagSCHEDULE_SCAN_ENTRY* entry, std::uint32_t userId,
                                             std::uint32_t* resultCode);
// Replaces the stored scan named by entry->szScanName; the owner is kept.
TSKVAULT_API bool ModifyScheduleScanTask(const char* taskListPath, tagSCHEDULE_SCAN_ENTRY* entry,
                                         std::uint32_t userId, std::uint32_t* resultCode);
// Adds a new scan owned by entry->dwUserId; creates the task list if needed.
TSKVAULT_API bool AddScheduleScanTask(const char* taskListPath, tagSCHEDULE_SCAN_ENTRY* entry,
                                      std::uint32_t* resultCode);
TSKVAULT_API bool DeleteScheduleScanTask(const char* taskListPath, const char* scanName,
                                         std::uint32_t userId, std::uint32_t* resultCode);
// Checks a directory to scan: absolute, existing, a directory, readable and
// searchable by the real user, and not under /proc, /sys or /dev.
TSKVAULT_API bool ValidateDirectoryPath(const char* directoryPath, std::uint32_t* resultCode);
