#pragma once

#include <cstdint>

// Command function: true for success; false with `resultCode` set.
bool ModifyScheduledScan(std::uint32_t* resultCode);
