#pragma once

#include <cstdint>

// Command function: true for success; false with `resultCode` set.
bool DeleteScheduledScan(std::uint32_t* resultCode);
