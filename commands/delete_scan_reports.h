#pragma once

#include <cstdint>

// Command function: true for success; false with `resultCode` set.
bool DeleteScanReports(std::uint32_t* resultCode);
