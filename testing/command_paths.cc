#include "testing/command_paths.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

#include "product_paths.h"
#include "reports/report_index.h"
#include "taskstore/task_store.h"
#include "testing/lock_free_appender.h"
#include "testing/scan_fixtures.h"

namespace fs = std::filesystem;

namespace testing_support {
namespace {

// A text of a paths file: escapes and placeholders resolved.
std::string Text(const std::string& raw) {
  std::string text;
  for (std::size_t i = 0; i < raw.size(); ++i) {
    if (raw[i] == '\\' && i + 1 < raw.size()) {
      const char e = raw[++i];
      text.push_back(e == 'n' ? '\n' : e == 't' ? '\t' : e == 'r' ? '\r' : e == '0' ? '\0' : e);
    } else if (raw.compare(i, 5, "{dir:") == 0) {
      const std::size_t end = raw.find('}', i);
      text += ScanDir(raw.substr(i + 5, end - i - 5));
      i = end;
    } else if (raw.compare(i, 9, "{reports}") == 0 || raw.compare(i, 9, "{product}") == 0) {
      text += raw[i + 1] == 'r' ? kReportsDir : kProductDir;
      i += 8;
    } else {
      text.push_back(raw[i]);
    }
  }
  return text;
}

// Makes one change of a path's seed: "VERB ARGUMENT" or "VERB ARGUMENT > VALUE".
void ApplySeed(const std::string& line) {
  const std::size_t space = line.find(' ');
  const std::size_t arrow = line.find(" > ");
  const std::string verb = line.substr(0, space);
  const std::string argument = Text(line.substr(space + 1, arrow - space - 1));
  const std::string value = arrow == std::string::npos ? "" : Text(line.substr(arrow + 3));
  if (verb == "scan") {  // stored in place of the scan of that name
    const tagSCHEDULE_SCAN_ENTRY scan = ScanFrom(argument);
    std::uint32_t code = 0;
    DeleteScheduleScanTask(kTaskListPath, scan.szScanName, 0, &code);
    StoreScan(scan);
  } else if (verb == "sql") {
    if (QueryStore(kTaskListPath, argument.c_str()) != "") throw std::runtime_error(line);
  } else if (verb == "store-mode") {
    SetStoreMode(static_cast<mode_t>(std::stoul(argument, nullptr, 8)));
  } else if (verb == "chmod") {
    chmod(argument.c_str(), static_cast<mode_t>(std::stoul(value, nullptr, 8)));
  } else if (verb == "remove") {
    fs::remove(argument);
  } else if (verb == "mkdir") {
    fs::create_directory(argument);
  } else if (verb == "fifo") {
    mkfifo(argument.c_str(), 0666);
  } else if (verb == "symlink") {  // in place of what is there: the scratch directories stay
    fs::remove(value);
    fs::create_symlink(argument, value);
  } else if (verb == "move") {
    fs::rename(argument, value);
  } else if (verb == "file") {
    std::ofstream(argument, std::ios::binary | std::ios::trunc) << value;
    chmod(argument.c_str(), 0666);
  } else if (verb == "entry") {  // the path field as it is, without a NUL when it fills it
    std::istringstream words(argument);
    std::uint32_t owner = 0;
    std::string scanName;
    std::string dateTime;
    words >> owner >> scanName >> dateTime;
    tagSCAN_REPORT_ENTRY entry = MakeReportEntry(scanName, dateTime, "", owner);
    std::memcpy(entry.szReportPath, value.data(), std::min(value.size(), sizeof entry.szReportPath));
    AppendReportEntry(entry);
  } else {
    throw std::runtime_error("no such seed: " + line);
  }
}

// Reads a table. A block's lines are kept as they stand and read again
// wherever the block is used.
class TableReader {
 public:
  explicit TableReader(const std::string& table) : table_(table) {}

  std::vector<CommandPath> Read() {
    std::ifstream file(std::string(PATHS_DIR) + "/" + table_);
    if (!file) throw std::runtime_error("cannot read " + table_);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    ReadLines(lines);
    return std::move(paths_);
  }

 private:
  void ReadLines(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
      if (block_ != nullptr && line != "end") {
        block_->push_back(line);
      } else if (!line.empty() && line[0] != '#') {
        ReadLine(line);
      }
    }
  }

  void ReadLine(const std::string& line) {
    const std::size_t colon = line.find(": ");
    const std::string word = line.substr(0, line.find(':'));
    const std::string value = colon == std::string::npos ? "" : line.substr(colon + 2);
    if (word == "command") {
      command_ = value;
    } else if (word == "path") {
      paths_.push_back({value, command_});
    } else if (word == "block") {
      block_ = &blocks_[value];
    } else if (line == "end") {
      block_ = nullptr;
    } else if (word == "use") {  // "use: BLOCK", or "use: BLOCK * COUNT" with {#} counting
      const std::size_t times = value.find(" * ");
      const int count = times == std::string::npos ? 1 : std::stoi(value.substr(times + 3));
      for (int i = 0; i < count; ++i) {
        std::vector<std::string> lines = blocks_.at(value.substr(0, times));
        for (std::string& l : lines) {
          for (std::size_t at; (at = l.find("{#}")) != std::string::npos;)
            l.replace(at, 3, std::to_string(i));
        }
        ReadLines(lines);
      }
    } else if (paths_.empty()) {
      throw std::runtime_error(table_ + ": outside a path: " + line);
    } else if (word == "as") {
      paths_.back().user = static_cast<std::uint32_t>(std::stoul(value));
    } else if (word == "seed") {
      paths_.back().seed.push_back(value);
    } else if (word == "after") {
      paths_.back().after = Text(value);
    } else if (word == "errors") {
      paths_.back().errors = Text(value);
    } else if (word == "scan") {
      paths_.back().scan = Text(value);
    } else if (word == "reports") {
      paths_.back().reports = value;
    } else {
      const std::size_t arrow = line.rfind(" >");
      if (arrow == std::string::npos) throw std::runtime_error(table_ + ": " + line);
      std::string answer = line.substr(std::min(line.size(), arrow + 3));
      if (line.compare(arrow, 3, " >|") == 0) answer = kNoAnswer;
      if (answer.size() >= 2 && answer.front() == '"' && answer.back() == '"')
        answer = answer.substr(1, answer.size() - 2);
      paths_.back().steps.push_back({Text(line.substr(0, arrow)), Text(answer)});
    }
  }

  const std::string table_;
  std::string command_;
  std::vector<CommandPath> paths_;
  std::map<std::string, std::vector<std::string>> blocks_;
  std::vector<std::string>* block_ = nullptr;  // the block being defined
};

}  // namespace

const std::vector<CommandPath>& AllPaths() {
  static const std::vector<CommandPath> paths = [] {
    std::vector<CommandPath> all;
    for (const char* table : {"add", "view", "modify", "delete", "reports", "delreports"}) {
      std::vector<CommandPath> read = TableReader(table + std::string(".paths")).Read();
      all.insert(all.end(), read.begin(), read.end());
    }
    return all;
  }();
  return paths;
}

void SeedFor(const CommandPath& path) {
  SeedScansAndReports();
  for (const std::string& line : path.seed) ApplySeed(line);
}

std::string PathName(const testing::TestParamInfo<CommandPath>& info) {
  const std::string& command = info.param.command;
  std::string name = command.substr(command.rfind('_') + 1) + "_" + info.param.what;
  for (char& c : name) {
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  }
  return name;
}

}  // namespace testing_support
