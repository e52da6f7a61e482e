#pragma once

#include <cstdint>

// Command function: true for success; false with `resultCode` set.
bool AddScheduledScan(std::uint32_t* resultCode);
