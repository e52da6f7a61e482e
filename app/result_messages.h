// Turns a failed command's result code into its message. Only the dispatcher
// does this, after the command has ended.
#pragma once

#include <cstdint>

enum class Command { kAdd, kView, kModify, kDelete, kViewReports, kDeleteReports };

void PrintCommandFailure(Command command, std::uint32_t resultCode);
