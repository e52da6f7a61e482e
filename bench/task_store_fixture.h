// A large task list for the benchmarks: scans named Scan00000, Scan00001, ...
// owned by four users in turn, each with a few directories.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"

namespace bench {

inline tagSCHEDULE_SCAN_ENTRY MakeBenchScan(const std::string& name, int number,
                                            int directories) {
  tagSCHEDULE_SCAN_ENTRY entry;
  PrepareNewScheduleScanEntry(&entry);
  name.copy(entry.szScanName, SCAN_NAME_SIZE - 1);
  entry.byFrequency = static_cast<std::uint8_t>(number % 2);
  entry.byWeekDay = static_cast<std::uint8_t>(1 + number % 7);
  entry.nHour = static_cast<std::int16_t>(number % 24);
  entry.nMinute = static_cast<std::int16_t>(number % 60);
  entry.nRecurEvery = 1;
  entry.nScanAction = ACTION_REPORT_ONLY;
  entry.byScanOptions = SCAN_OPT_ARCHIVE | SCAN_OPT_PACKED;
  entry.dwUserId = static_cast<std::uint32_t>(number % 4) * 1000;
  for (int d = 0; d < directories; ++d) {
    const std::string path =
        "/home/user" + std::to_string(number % 4) + "/projects/" + std::to_string(number) + "/d" +
        std::to_string(d);
    entry.vecScanItems.AppendPath(path.c_str());
  }
  return entry;
}

// Adds `scans` scans through the store's own add call; false (with a message
// on stderr) when one is refused.
inline bool FillTaskStore(const std::string& path, int scans, int directories) {
  for (int number = 0; number < scans; ++number) {
    char name[16];
    std::snprintf(name, sizeof name, "Scan%05d", number);
    tagSCHEDULE_SCAN_ENTRY entry = MakeBenchScan(name, number, directories);
    std::uint32_t code = SCHSCAN_OK;
    if (!AddScheduleScanTask(path.c_str(), &entry, &code)) {
      std::fprintf(stderr, "adding %s to %s failed with %u\n", name, path.c_str(), code);
      return false;
    }
  }
  return true;
}

}  // namespace bench
