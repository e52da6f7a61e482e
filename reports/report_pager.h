// Shows one report file through the system pager.
#pragma once

// Runs `more` by its absolute path with `reportPath` as its one argument (no
// shell sees the path), waits for it and ignores how it ended. While it runs
// the tool ignores SIGINT and SIGQUIT, as the keys are meant for the pager;
// the pager itself starts with their default dispositions. Standard output is
// flushed first, so the report follows what the tool printed before it.
void ShowReportInPager(const char* reportPath);
