#include "schedule/view_scheduled_scans.h"

#include "taskstore/result_codes.h"

bool ViewScheduledScans(std::uint32_t* resultCode) {
  if (resultCode == nullptr) return false;
  *resultCode = SCHSCAN_OK;
  return true;
}
