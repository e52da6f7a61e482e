// One run's report file in the reports directory, named schdNNNN.rpt: the
// name is drawn at random among those that no index entry names and no file
// holds. Created with mode 0600 and given 0666 when it is complete, as the
// tool expects of a report.
#pragma once

#include <string>
#include <string_view>

#include "reports/report_index.h"

namespace service {

class ReportFile {
 public:
  ReportFile() = default;
  ReportFile(const ReportFile&) = delete;
  ReportFile& operator=(const ReportFile&) = delete;
  ~ReportFile();

  // Creates the file under a free name; false with `*error` set when no
  // name is free (`*noFreeName`) or the file cannot be created.
  bool Create(const ReportList& index, bool* noFreeName, std::string* error);

  // The full path, as the index entry names it.
  const std::string& path() const { return path_; }

  // Adds text; a failed write is remembered and reported by Finish.
  void Write(std::string_view text);
  // Writes what is buffered, flushes the file to disk and sets mode 0666.
  bool Finish(std::string* error);

 private:
  bool Flush();

  int fd_ = -1;
  std::string path_;
  std::string buffer_;
  int writeError_ = 0;
};

}  // namespace service
