// The reports directory. Index entries, which anyone may have written, name
// the report files; a report is opened or removed only when it is a regular
// file with one plain name directly inside the directory (reached without
// following a symbolic link), and neither the index nor one of its
// temporaries, so that nothing else is ever read or removed as a report.
#pragma once

class ReportsDirectory {
 public:
  ReportsDirectory() = default;
  ReportsDirectory(const ReportsDirectory&) = delete;
  ReportsDirectory& operator=(const ReportsDirectory&) = delete;
  ~ReportsDirectory();

  // The report that `reportPath` names, opened for reading; -1 with errno
  // set otherwise (ENOENT for a path that is not a report).
  int OpenReport(const char* reportPath);

  // Removes the report file that `reportPath` names. A path that is not a
  // report, a missing file and a failed removal leave things as they are.
  void RemoveReport(const char* reportPath);

 private:
  // The directory's descriptor, opened on first use; -1 when it cannot be.
  int Directory();

  int fd_ = -1;
  bool opened_ = false;
};
