#include "reports/view_scan_reports.h"

#include "taskstore/result_codes.h"

bool ViewScanReports(std::uint32_t* resultCode) {
  if (resultCode == nullptr) return false;
  *resultCode = SCHSCAN_OK;
  return true;
}
