#include "schedule/delete_scheduled_scan.h"

#include "taskstore/result_codes.h"

bool DeleteScheduledScan(std::uint32_t* resultCode) {
  if (resultCode == nullptr) return false;
  *resultCode = SCHSCAN_OK;
  return true;
}
