// Shows one report file through the system pager.
#pragma once

#include "reports/reports_directory.h"

// Runs `more` by its absolute path, waits for it and ignores how it ended.
// No shell ever sees the path. The pager runs with the user's own ids: it can
// start a shell, so it never gets the group (or user) that an installed,
// setgid tool runs with. While it runs the tool ignores SIGINT and SIGQUIT, as
// the keys are meant for the pager, which starts with their default
// dispositions. Standard output is flushed first, so the report follows what
// the tool printed before it.
//
// A tool without extra privileges hands `reportPath` to the pager as its one
// argument, whatever the path holds. A privileged tool opens the report
// itself through `reports` (a regular file directly inside the reports
// directory) and gives it to the pager as standard input: the user may not be
// able to reach the directory without the tool's group, and must not use the
// tool to read any other file.
void ShowReportInPager(const char* reportPath, ReportsDirectory& reports);
