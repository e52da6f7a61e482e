#include "testing/command_paths.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>

#include "product_paths.h"
#include "reports/report_index.h"
#include "taskstore/task_store.h"
#include "testing/in_process.h"
#include "testing/lock_free_appender.h"
#include "testing/scan_fixtures.h"

namespace fs = std::filesystem;

namespace testing_support {
namespace {

void Write(const std::string& path, const std::string& contents) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << contents;
  chmod(path.c_str(), 0666);
}

// The standard seed's scan of that name replaced by `scan`.
void ReplaceScan(const tagSCHEDULE_SCAN_ENTRY& scan) {
  std::uint32_t code = 0;
  DeleteScheduleScanTask(kTaskListPath, scan.szScanName, 0, &code);
  StoreScan(scan);
}

tagSCHEDULE_SCAN_ENTRY WeeklyScan(const char* name) {
  tagSCHEDULE_SCAN_ENTRY scan = MakeScan(name, 0);
  scan.byFrequency = FREQ_WEEKLY;
  scan.byWeekDay = 5;
  scan.nRecurEvery = 3;
  return scan;
}

// The reports of the standard seed gone, index and files, and in their place
// entries naming `paths` as root's reports of a scan.
void ReplaceReports(const std::vector<std::string>& paths) {
  fs::remove(kReportIndexPath);
  for (int i = 1; i <= 3; ++i)
    fs::remove(std::string(kReportsDir) + "/schd000" + std::to_string(i) + ".rpt");
  for (const std::string& path : paths) {
    tagSCAN_REPORT_ENTRY entry = MakeReportEntry("Hostile", "now", "", 0);
    std::memcpy(entry.szReportPath, path.data(), std::min(path.size(), sizeof entry.szReportPath));
    AppendReportEntry(entry);
  }
}

// The changes to the standard seed that paths name.
const std::map<std::string, std::function<void()>>& Seeds() {
  static const std::map<std::string, std::function<void()>> seeds = {
      {"read-only store", [] { SetStoreMode(0644); }},
      {"unreadable store", [] { SetStoreMode(0600); }},
      {"no task list", [] { fs::remove(kTaskListPath); }},
      {"no scans",
       [] {
         for (const char* name : {"Daily15charName", "Weekly16charName", "Boot"}) {
           std::uint32_t code = 0;
           DeleteScheduleScanTask(kTaskListPath, name, 0, &code);
         }
       }},
      {"Weekly", [] { StoreScan(WeeklyScan("Weekly")); }},
      {"Weekly on day 0",
       [] {
         StoreScan(WeeklyScan("Weekly"));
         SetStoredColumn("Weekly", "week_day", 0);
       }},
      {"WeeklyBoot",
       [] {
         tagSCHEDULE_SCAN_ENTRY scan = WeeklyScan("WeeklyBoot");
         scan.bFirstBootScan = 1;
         scan.nRecurEvery = 60;
         StoreScan(scan);
       }},
      {"odd frequency", [] { SetStoredColumn("Daily15charName", "frequency", 7); }},
      {"odd frequency and weekday",
       [] {
         SetStoredColumn("Daily15charName", "frequency", 7);
         SetStoredColumn("Weekly16charName", "week_day", 9);
       }},
      {"directories a b c",
       [] { ReplaceScan(MakeScan("Daily15charName", 0, {ScanDir("a"), ScanDir("b"), ScanDir("c")})); }},
      {"hundred directories",
       [] {
         std::vector<std::string> dirs;
         for (int i = 0; i < 100; ++i) dirs.push_back(ScanDir("n" + std::to_string(i)));
         ReplaceScan(MakeScan("Daily15charName", 0, dirs));
       }},
      {"no index", [] { fs::remove(kReportIndexPath); }},
      {"empty index", [] { Write(kReportIndexPath, std::string(19, '\0')); }},
      {"short index", [] { Write(kReportIndexPath, std::string(18, '\0')); }},
      {"header-only index",
       [] { Write(kReportIndexPath, std::string(8, '\0') + "\x07" + std::string(10, '\0')); }},
      {"hostile entries to show",
       [] {
         const std::string reports = std::string(kReportsDir) + "/";
         const std::string meta = reports + "r$(touch pwned);touch pwned;.rpt";
         ReplaceReports({"/x/reports/a;touch " + std::string(kProductDir) + "/pwned", meta,
                         "`touch " + std::string(kProductDir) + "/pwned`",
                         reports + std::string(300, 'L'), std::string(1024, 'M')});
         Write(meta, "shown, not run\n");
       }},
      {"user 1's report gone",
       [] { fs::remove(std::string(kReportsDir) + "/schd0002.rpt"); }},
      {"root's entry names user 1's report",
       [] {
         AppendReportEntry(MakeReportEntry("Daily15charName", "d4",
                                           std::string(kReportsDir) + "/schd0002.rpt", 0));
       }},
      {"user 1's entries name the index, a temporary and a directory",
       [] {
         const std::string reports = std::string(kReportsDir) + "/";
         for (const char* name : {"schdmain.rpt", ".schdmain.rpt.Ab3xY", "sub"})
           AppendReportEntry(MakeReportEntry("Weekly16charName", name, reports + name, 1));
         Write(reports + ".schdmain.rpt.Ab3xY", "a temporary index\n");
         fs::create_directory(reports + "sub");
       }},
      {"reports directory of root's, 0755",
       [] {
         chmod(kReportsDir, 0755);
         chmod(kReportIndexPath, 0666);
       }},
      {"sticky reports directory", [] { chmod(kReportsDir, 01777); }},
      {"hostile entries to remove",
       [] {
         const std::string product = std::string(kProductDir) + "/";
         const std::string reports = std::string(kReportsDir) + "/";
         ReplaceReports({product + "victim", reports + "../victim", reports + "link.rpt",
                         "$(rm -f " + reports + "victim)",
                         reports + std::string(1023 - reports.size(), 'L'),
                         std::string(1024, '/')});
         Write(product + "victim", "keep\n");
         Write(reports + "victim", "keep\n");
         Write(reports + "a;b", "odd name\n");
         fs::create_symlink(product + "victim", reports + "link.rpt");
       }},
  };
  return seeds;
}

// A text of a paths file: escapes and placeholders resolved.
std::string Text(const std::string& raw) {
  std::string text;
  for (std::size_t i = 0; i < raw.size(); ++i) {
    if (raw[i] == '\\' && i + 1 < raw.size()) {
      const char e = raw[++i];
      text.push_back(e == 'n' ? '\n' : e == 't' ? '\t' : e);
    } else if (raw.compare(i, 5, "{dir:") == 0) {
      const std::size_t end = raw.find('}', i);
      text += ScanDir(raw.substr(i + 5, end - i - 5));
      i = end;
    } else if (raw.compare(i, 9, "{reports}") == 0) {
      text += kReportsDir;
      i += 8;
    } else if (raw.compare(i, 9, "{product}") == 0) {
      text += kProductDir;
      i += 8;
    } else {
      text.push_back(raw[i]);
    }
  }
  return text;
}

std::vector<CommandPath> ReadPaths(const char* name) {
  std::ifstream file(std::string(PATHS_DIR) + "/" + name);
  if (!file) throw std::runtime_error(std::string("cannot read ") + name);
  std::vector<CommandPath> paths;
  std::map<std::string, std::vector<Step>> blocks;
  std::vector<Step>* steps = nullptr;  // where steps go: a block, or the last path
  std::string command;
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    const std::size_t colon = line.find(": ");
    const std::string word = line.substr(0, line.find(':'));
    const std::string value = colon == std::string::npos ? "" : line.substr(colon + 2);
    if (word == "command") {
      command = value;
    } else if (word == "path") {
      paths.push_back({value, command});
      steps = &paths.back().steps;
    } else if (word == "block") {
      steps = &blocks[value];
    } else if (line == "end") {
      steps = paths.empty() ? nullptr : &paths.back().steps;
    } else if (word == "use") {
      steps->insert(steps->end(), blocks.at(value).begin(), blocks.at(value).end());
    } else if (word == "as") {
      paths.back().user = static_cast<std::uint32_t>(std::stoul(value));
    } else if (word == "seed") {
      paths.back().seed = Seeds().at(value);
    } else if (word == "after") {
      paths.back().after = Text(value);
    } else if (word == "errors") {
      paths.back().errors = Text(value);
    } else if (word == "scan") {
      paths.back().scan = Text(value);
    } else if (word == "reports") {
      paths.back().reports = value;
    } else {
      const std::size_t arrow = line.rfind(" >");
      if (arrow == std::string::npos) throw std::runtime_error(name + (": " + line));
      std::string answer = line.substr(std::min(line.size(), arrow + 3));
      if (line.compare(arrow, 3, " >|") == 0) answer = kNoAnswer;
      if (answer.size() >= 2 && answer.front() == '"' && answer.back() == '"')
        answer = answer.substr(1, answer.size() - 2);
      steps->push_back({Text(line.substr(0, arrow)), Text(answer)});
    }
  }
  return paths;
}

// Past the limit of the wizards' shared directory question: a hundred
// directories, then one more, refused.
void AddHundredAndOneDirectories(std::vector<Step>& steps) {
  for (int i = 0; i < 100; ++i) {
    steps.push_back({"enter_dir:", ScanDir("n" + std::to_string(i))});
    steps.push_back({"addmore_item:", "y"});
  }
  steps.push_back({"enter_dir:", ScanDir("extra")});
  steps.push_back({"valid_scan_items.\nschscan_msg_presskey.", ""});
}

}  // namespace

std::string InputOf(const std::vector<Step>& steps) {
  std::string input;
  for (const Step& step : steps) {
    if (step.answer == kNoAnswer) break;
    input += step.answer + "\n";
  }
  return input;
}

// The first path of add.paths and of modify.paths says no to everything it
// can; the paths past the directory limit begin as it does.
const std::vector<CommandPath>& AddPaths() {
  static const std::vector<CommandPath> paths = [] {
    std::vector<CommandPath> read = ReadPaths("add.paths");
    std::vector<Step> steps(read[0].steps.begin(), read[0].steps.end() - 3);
    AddHundredAndOneDirectories(steps);
    steps.push_back({"confirm_add_schscan:", "y"});
    std::string scan = "Scan1 u0 f0 d0 b0 10:20:30 r2 p0/0/0 o1 a0 [";
    for (int i = 0; i < 100; ++i) scan += (i == 0 ? "n" : " n") + std::to_string(i);
    read.push_back({"the hundred and first directory is dropped", read[0].command, 0, steps,
                    "schscan_msg_scanadded_success.\n", scan + "]"});
    return read;
  }();
  return paths;
}

const std::vector<CommandPath>& ModifyPaths() {
  static const std::vector<CommandPath> paths = [] {
    std::vector<CommandPath> read = ReadPaths("modify.paths");
    std::vector<Step> steps(read[0].steps.begin(), read[0].steps.end() - 2);
    for (int i = 0; i < 100; ++i) steps.push_back({"deletescanitem:", "n"});
    steps.push_back({"confirm_addmore_dir:", "y"});
    steps.push_back({"enter_dir:", ScanDir("extra")});
    steps.push_back({"valid_scan_items.\nschscan_msg_presskey.", ""});
    read.push_back({"a full list refuses one more directory", read[0].command, 0, steps,
                    "schscan_msg_scanmodified_success.\n", "", "", Seeds().at("hundred directories")});
    return read;
  }();
  return paths;
}

const std::vector<CommandPath>& ViewPaths() {
  static const std::vector<CommandPath> paths = ReadPaths("view.paths");
  return paths;
}

const std::vector<CommandPath>& DeletePaths() {
  static const std::vector<CommandPath> paths = ReadPaths("delete.paths");
  return paths;
}

const std::vector<CommandPath>& ViewReportsPaths() {
  static const std::vector<CommandPath> paths = ReadPaths("reports.paths");
  return paths;
}

const std::vector<CommandPath>& DeleteReportsPaths() {
  static const std::vector<CommandPath> paths = ReadPaths("delreports.paths");
  return paths;
}

std::string PathName(const testing::TestParamInfo<CommandPath>& info) {
  std::string name = info.param.what;
  for (char& c : name) {
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  }
  return name;
}

void ExpectPath(const CommandPath& path) {
  SCOPED_TRACE(path.command + ": " + path.what);
  ResetProduct();
  SeedScansAndReports();
  if (path.seed) path.seed();
  const std::string store = DumpStore();
  const std::string reports = ReportsState();

  const InProcessRun run = RunInProcess({path.command}, InputOf(path.steps), path.user);
  const bool endsWithoutAnswer = !path.steps.empty() && path.steps.back().answer == kNoAnswer;
  ASSERT_EQ(run.endedByEndOfInput, endsWithoutAnswer) << run.output;
  ASSERT_EQ(run.reads.size(), path.steps.size()) << run.output;
  for (std::size_t i = 0; i < path.steps.size(); ++i) {
    const std::string before = run.output.substr(0, run.reads[i]);
    EXPECT_TRUE(before.ends_with(path.steps[i].prompt))
        << "step " << i << " expected \"" << path.steps[i].prompt << "\", got: "
        << before.substr(before.size() - std::min<std::size_t>(before.size(), 300));
  }
  // What follows the last answer, or the banner when nothing was asked.
  const std::size_t last =
      path.steps.empty() ? run.output.find("footer\n\n") + 8 : run.reads.back();
  EXPECT_EQ(run.output.substr(std::min(last, run.output.size())),
            endsWithoutAnswer ? "\n" : path.after);
  EXPECT_EQ(run.errors, path.errors);
  if (!path.scan.empty()) {
    EXPECT_EQ(DescribeStored(path.scan.substr(0, path.scan.find(' '))), path.scan);
  } else if (path.reports.empty()) {
    EXPECT_EQ(DumpStore(), store);
  }
  EXPECT_EQ(ReportsState(), path.reports.empty() ? reports : path.reports);
  EXPECT_EQ(run.exitStatus, 0);
}

}  // namespace testing_support
