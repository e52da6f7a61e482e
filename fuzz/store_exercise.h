// Every task store call against the task list file that a fuzz target made
// in the product directory:
// listing for both users, details, both name checks, add, modify and delete.
// The file may be anything; the calls must only succeed or fail, and
// whatever they hand back must be records with terminated strings.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "product_paths.h"
#include "taskstore/result_codes.h"
#include "taskstore/schedule_scan_entry.h"
#include "taskstore/task_store.h"

namespace fuzz {

inline void CheckRecord(const tagSCHEDULE_SCAN_ENTRY& scan) {
  Require(strnlen(scan.szScanName, SCAN_NAME_SIZE) < SCAN_NAME_SIZE,
          "a stored name came back without its NUL");
  const std::size_t items = scan.vecScanItems.size();
  Require(items <= 100000, "an item list of absurd size came back");
  for (std::size_t i = 0; i < items; ++i) {
    Require(strnlen(scan.vecScanItems.PathAt(i), SCAN_ITEM_SIZE) < SCAN_ITEM_SIZE,
            "a stored directory came back without its NUL");
  }
}

// The task list gone, with the side files of the last input's connection.
inline void RemoveTaskList() {
  for (const char* suffix : {"", "-journal", "-wal", "-shm"})
    unlink((std::string(kTaskListPath) + suffix).c_str());
}

inline tagSCHEDULE_SCAN_ENTRY NewScan(const char* name, std::uint32_t owner) {
  tagSCHEDULE_SCAN_ENTRY scan;
  PrepareNewScheduleScanEntry(&scan);
  std::memcpy(scan.szScanName, name, std::strlen(name));
  scan.dwUserId = owner;
  scan.byFrequency = FREQ_WEEKLY;
  scan.byWeekDay = 2;
  scan.nHour = 4;
  scan.nRecurEvery = 3;
  scan.vecScanItems.AppendPath("/tmp");
  return scan;
}

inline void ExerciseStore() {
  const char* file = kTaskListPath;
  std::uint32_t code = SCHSCAN_OK;
  std::vector<std::string> names = {"Daily1", ""};
  for (const std::uint32_t user : {0u, 1000u}) {
    ScheduleScanList scans;
    if (ReadScheduleScanTaskList(file, scans, user, &code)) {
      for (const tagSCHEDULE_SCAN_ENTRY& scan : scans) {
        CheckRecord(scan);
        if (names.size() < 4) names.emplace_back(scan.szScanName);
      }
    }
  }
  for (const std::string& name : names) {
    for (const std::uint32_t user : {0u, 1000u}) {
      ValidateTaskName(name.c_str(), kNameMustBeNew, user, &code);
      ValidateTaskName(name.c_str(), kNameMustExist, user, &code);
      tagSCHEDULE_SCAN_ENTRY scan;
      PrepareNewScheduleScanEntry(&scan);
      std::memcpy(scan.szScanName, name.data(), std::min(name.size(), SCAN_NAME_SIZE - 1));
      if (GetScheduleScanTaskDetails(file, &scan, user, &code)) {
        CheckRecord(scan);
        scan.nHour = 5;
        ModifyScheduleScanTask(file, &scan, user, &code);
      }
    }
  }
  tagSCHEDULE_SCAN_ENTRY added = NewScan("FuzzAdded", 1000);
  AddScheduleScanTask(file, &added, &code);
  tagSCHEDULE_SCAN_ENTRY modified = NewScan(names.back().c_str(), 1000);
  ModifyScheduleScanTask(file, &modified, 0, &code);
  DeleteScheduleScanTask(file, names.back().c_str(), 1000, &code);
  DeleteScheduleScanTask(file, names.back().c_str(), 0, &code);
  ScheduleScanList after;
  if (ReadScheduleScanTaskList(file, after, 0, &code)) {
    for (const tagSCHEDULE_SCAN_ENTRY& scan : after) CheckRecord(scan);
  }
}

}  // namespace fuzz
