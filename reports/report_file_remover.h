// Removes report files named by index entries, which anyone may have
// written: only a file directly inside the reports directory is removed.
#pragma once

#include <string>

// The file name in `reportPath` when the path is `reportsDirectory`, "/", and
// one plain file name (no "/", not "." or ".."); nullptr otherwise.
const char* PlainReportFileName(const char* reportPath, const char* reportsDirectory);

class ReportFileRemover {
 public:
  explicit ReportFileRemover(std::string reportsDirectory);
  ReportFileRemover(const ReportFileRemover&) = delete;
  ReportFileRemover& operator=(const ReportFileRemover&) = delete;
  ~ReportFileRemover();

  // Removes the file that `reportPath` names, relative to a descriptor of the
  // reports directory opened without following a symbolic link, so that
  // nothing outside the directory is ever removed (a symbolic link in the
  // directory is removed itself, not its target). A path that fails the
  // check, a missing file and a failed removal all leave things as they are.
  void Remove(const char* reportPath);

 private:
  std::string reportsDirectory_;
  int directoryFd_ = -1;
  bool opened_ = false;
};
