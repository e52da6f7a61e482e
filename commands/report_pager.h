// Shows one report file through the system pager.
#pragma once

#include "reports/reports_directory.h"

// Opens the report through `reports` with the tool's privileges and feeds it
// to `more` (by its absolute path) through a pipe: the pager, which can start
// a shell, never holds the report file, and runs with the user's own ids,
// never the group (or user) that an installed, setgid tool runs with. No
// shell ever sees the path. While the pager runs the tool ignores SIGINT and
// SIGQUIT, as the keys are meant for the pager, which starts with their
// default dispositions; the tool waits for it and ignores how it ended.
// Standard output is flushed first, so the report follows what the tool
// printed before it. A report that cannot be opened is said so on standard
// error as the pager says it of a file.
void ShowReportInPager(const char* reportPath, ReportsDirectory& reports);

// What the pager says of a file it cannot open, on standard error.
void SayCannotOpen(const char* reportPath, int error);
