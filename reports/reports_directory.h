// The reports directory. Index entries, which anyone may have written, name
// the report files; a report is opened or removed only as one plain file name
// directly inside the directory, which is reached without following a
// symbolic link, so that nothing outside it is ever read or removed.
#pragma once

class ReportsDirectory {
 public:
  ReportsDirectory() = default;
  ReportsDirectory(const ReportsDirectory&) = delete;
  ReportsDirectory& operator=(const ReportsDirectory&) = delete;
  ~ReportsDirectory();

  // The report that `reportPath` names, opened for reading, when it is a
  // regular file (no link followed); -1 otherwise.
  int OpenReport(const char* reportPath);

  // Removes the report file that `reportPath` names (a symbolic link in the
  // directory is removed itself, not its target). A path that fails the
  // check, a missing file and a failed removal all leave things as they are.
  void RemoveReport(const char* reportPath);

 private:
  // The directory's descriptor, opened on first use; -1 when it cannot be.
  int Directory();

  int fd_ = -1;
  bool opened_ = false;
};
