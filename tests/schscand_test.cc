// The scan service as a whole: schscand runs scans that schscan keeps, on a
// tiny signature database of our own, writes their reports where schscan
// finds them, and keeps running through what goes wrong.
#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <functional>
#include <map>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "product_paths.h"
#include "reports/report_index.h"
#include "taskstore/result_codes.h"
#include "testing/index_lock_holder.h"
#include "testing/lock_free_appender.h"
#include "testing/scan_fixtures.h"
#include "testing/signature_database.h"
#include "tests/harness.h"

namespace {

namespace fs = std::filesystem;
using testing_support::Sample;
using testing_support::SampleContent;

constexpr uid_t kNobody = 65534;

struct Ran {
  int status = -1;
  std::string out;
  std::string err;
};

// schscand with `args`, as root or as `user`, its output into files of `dir`.
class Process {
 public:
  Process(const std::string& dir, std::vector<std::string> args, std::optional<uid_t> user = {})
      : out_(dir + "/out"), err_(dir + "/err") {
    std::vector<std::string> argv;
    if (user) argv = {"/usr/bin/setpriv", "--reuid=" + std::to_string(*user),
                      "--regid=" + std::to_string(*user), "--clear-groups", "--"};
    argv.push_back(SCHSCAND_BINARY);
    argv.insert(argv.end(), args.begin(), args.end());
    pid_ = fork();
    if (pid_ == 0) {
      const int in = open("/dev/null", O_RDONLY);
      const int out = open(out_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      const int err = open(err_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      if (dup2(in, 0) < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0) _exit(126);
      std::vector<char*> pointers;
      for (std::string& a : argv) pointers.push_back(a.data());
      pointers.push_back(nullptr);
      execv(pointers[0], pointers.data());
      _exit(127);
    }
  }
  ~Process() {
    if (pid_ > 0) Stop();
  }
  void Signal(int signal) const { kill(pid_, signal); }
  std::string Err() const { return harness::ReadFile(err_); }
  Ran Stop(int signal = SIGTERM) {
    Signal(signal);
    return Wait();
  }
  Ran Wait() {
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, harness::ReadFile(out_), Err()};
  }

 private:
  std::string out_, err_;
  pid_t pid_ = -1;
};

bool WaitFor(const std::function<bool()>& done, std::chrono::seconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

std::vector<tagSCAN_REPORT_ENTRY> IndexOf(const std::string& scanName) {
  ReportList list;
  std::uint32_t code = SCHSCAN_OK;
  std::vector<tagSCAN_REPORT_ENTRY> entries;
  if (!ReadReportIndex(list, 0, &code)) return entries;
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (FieldText(list[i].szScanName).c_str() == scanName) entries.push_back(list[i]);
  }
  return entries;
}

std::string ReportOf(const tagSCAN_REPORT_ENTRY& entry) {
  return harness::ReadFile(FieldText(entry.szReportPath).c_str());
}

// The infected samples of every tree, by name; clean.txt is there too.
const std::map<std::string, Sample> kInfected = {
    {"marker.bin", Sample::kMarker},
    {"hash.bin", Sample::kHashContent},
    {"sub/eicar.com", Sample::kEicar},
    {"sub/archive.zip", Sample::kZippedMarker},
};

std::string SignatureOf(Sample sample) {
  const char* name = sample == Sample::kEicar         ? testing_support::kEicarSignature
                     : sample == Sample::kHashContent ? testing_support::kHashSignature
                                                      : testing_support::kMarkerSignature;
  return std::string(name) + ".UNOFFICIAL";
}

class Schscand : public ::testing::Test {
 protected:
  void SetUp() override {
    harness::ResetProductDir(true);
    fs::remove_all(kStateDir);
    fs::create_directories(scratch_ / "db");
    testing_support::WriteSignatureDatabase(scratch_ / "db");
  }

  // A tree of the infected samples and clean.txt, readable by everyone.
  std::string Tree(const std::string& name) {
    const std::string root = testing_support::ScanDir(name);
    fs::remove_all(root);
    fs::create_directories(root + "/sub");
    chmod(root.c_str(), 0755);
    chmod((root + "/sub").c_str(), 0755);
    testing_support::WriteFile(root + "/clean.txt", SampleContent(Sample::kClean));
    for (const auto& [file, sample] : kInfected)
      testing_support::WriteFile(root + "/" + file, SampleContent(sample));
    return root;
  }

  void Store(const std::string& name, uid_t owner, const std::string& tree, std::int16_t action,
             std::uint8_t options = SCAN_OPT_ARCHIVE) {
    tagSCHEDULE_SCAN_ENTRY scan = testing_support::MakeScan(name, owner, {tree});
    scan.nScanAction = action;
    scan.byScanOptions = options;
    testing_support::StoreScan(scan);
  }

  Ran Run(std::vector<std::string> args, std::optional<uid_t> user = {}) {
    return Process(scratch_.path(), std::move(args), user).Wait();
  }
  Ran RunScan(const std::string& name) { return Run({"--run", name, "--database", scratch_ / "db"}); }
  std::string StatusLine(const std::string& name) {
    const Ran status = Run({"--status"});
    std::smatch line;
    return std::regex_search(status.out, line, std::regex("\n" + name + " .*")) ? line.str().substr(1) : "";
  }

  testing_support::ScratchDirectory scratch_;
};

// Added with schscan by an ordinary user, run by schscand as that user: the
// report, its index entry, its place in --status and in schscan --reports.
TEST_F(Schscand, ARunOfAScanAddedWithTheToolShowsInTheTool) {
  const std::string tree = Tree("e2e");
  harness::RunOptions add;
  add.args = {"--add"};
  add.input = "Nightly\n1\nn\n10\n0\n0\n1\nn\ny\nn\nn\nn\n4\n" + tree + "\nn\ny\n";
  add.user = kNobody;
  ASSERT_EQ(harness::RunTool(add).exitStatus, 0);

  const Ran run = RunScan("Nightly");
  EXPECT_EQ(run.status, 1) << run.err;
  EXPECT_EQ(run.out, "");  // quiet off a terminal
  const auto entries = IndexOf("Nightly");
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].dwUserId, kNobody);
  EXPECT_TRUE(std::regex_match(FieldText(entries[0].szDateTime).c_str(),
                               std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)")));
  EXPECT_TRUE(std::regex_match(FieldText(entries[0].szReportPath).c_str(),
                               std::regex(std::string(kReportsDir) + R"(/schd\d{4}\.rpt)")));
  const std::string report = ReportOf(entries[0]);
  for (const auto& [file, sample] : kInfected)
    EXPECT_NE(report.find(tree + "/" + file + "\t" + SignatureOf(sample) + "\treported\n"),
              std::string::npos) << file << " in " << report;
  EXPECT_NE(report.find("Owner:            nobody (65534)\n"), std::string::npos) << report;
  EXPECT_NE(report.find("Result:           4 infected\n"), std::string::npos) << report;
  EXPECT_NE(report.find("Files scanned:    5\n"), std::string::npos) << report;
  EXPECT_NE(report.find("Signatures:       unversioned, 3 signatures\n"), std::string::npos) << report;

  harness::RunOptions view;
  view.args = {"--reports"};
  view.input = "y\n1\n";
  view.user = kNobody;
  const std::string shown = harness::RunTool(view).output;
  EXPECT_NE(shown.find(FieldText(entries[0].szDateTime).c_str()), std::string::npos) << shown;
  EXPECT_NE(shown.find("Korvane scheduled scan report"), std::string::npos) << shown;
  EXPECT_TRUE(std::regex_match(StatusLine("Nightly"),
                               std::regex(R"(Nightly +nobody +\d{4}-\d\d-\d\d 10:00:00 +\S+ \S+ +4 infected)")))
      << StatusLine("Nightly");
}

// Each action on each infected file, and the archive bit; quarantined files
// come back with their owner and mode, never over an existing file.
TEST_F(Schscand, ActionsAndTheQuarantine) {
  struct Row {
    std::int16_t action;
    std::uint8_t options;
    const char* done;  // the report's action, up to the end or an id
    bool zipFound;
  };
  const Row rows[] = {
      {ACTION_DELETE, 0, "deleted", false},
      {ACTION_REPAIR_ONLY, SCAN_OPT_ARCHIVE, "quarantined as ", true},
      {ACTION_REPAIR_DELETE, SCAN_OPT_ARCHIVE | SCAN_OPT_PACKED, "quarantined as ", true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.done + std::to_string(row.action));
    SetUp();
    const std::string tree = Tree("actions");
    ASSERT_EQ(chown((tree + "/marker.bin").c_str(), kNobody, kNobody), 0);
    ASSERT_EQ(chmod((tree + "/marker.bin").c_str(), 0640), 0);
    Store("Acting", 0, tree, row.action, row.options);
    EXPECT_EQ(RunScan("Acting").status, 1);
    const std::string report = ReportOf(IndexOf("Acting").at(0));
    for (const auto& [file, sample] : kInfected) {
      const bool found = file != "sub/archive.zip" || row.zipFound;
      EXPECT_EQ(fs::exists(tree + "/" + file), !found) << file;
      EXPECT_EQ(report.find(tree + "/" + file + "\t" + SignatureOf(sample) + "\t" + row.done) !=
                    std::string::npos, found) << file << " in " << report;
    }
    EXPECT_TRUE(fs::exists(tree + "/clean.txt"));
    const Ran listed = Run({"--quarantine"});
    std::smatch kept;
    const std::string marker = tree + "/marker.bin";
    const bool quarantined = std::regex_search(listed.out, kept, std::regex(
        R"((^|\n)([0-9a-f]{16}) \d{4}-\d\d-\d\d \d\d:\d\d:\d\d )" + marker + " " +
        SignatureOf(Sample::kMarker) + "\n"));
    ASSERT_EQ(quarantined, row.action != ACTION_DELETE) << listed.out;
    if (!quarantined) continue;
    const std::string id = kept[2];
    testing_support::WriteFile(marker, "new");
    EXPECT_EQ(Run({"--restore", id}).status, 2);
    EXPECT_EQ(harness::ReadFile(marker), "new");
    fs::remove(marker);
    EXPECT_EQ(Run({"--restore", id}).status, 0);
    struct stat status {};
    ASSERT_EQ(stat(marker.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, kNobody);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    EXPECT_EQ(harness::ReadFile(marker), SampleContent(Sample::kMarker));
    EXPECT_EQ(Run({"--quarantine"}).out.find(id), std::string::npos);
    EXPECT_EQ(Run({"--restore", id}).status, 2);
  }
}

// A user's scan reads, reports and removes only what the user could; the
// quarantine keeps no copy of a file that stays.
TEST_F(Schscand, AUsersScanReachesWhatTheUserMay) {
  const std::pair<std::int16_t, const char*> actions[] = {
      {ACTION_DELETE, "not deleted: Permission denied"},
      {ACTION_REPAIR_ONLY, "not quarantined: Permission denied"}};
  for (const auto& [action, done] : actions) {
    SetUp();
    const std::string tree = testing_support::ScanDir("reach");
    fs::create_directories(tree + "/private");
    ASSERT_EQ(chmod((tree + "/private").c_str(), 0700), 0);
    testing_support::WriteFile(tree + "/private/marker.bin", SampleContent(Sample::kMarker));
    testing_support::WriteFile(tree + "/roots.bin", SampleContent(Sample::kMarker));
    ASSERT_EQ(chmod((tree + "/roots.bin").c_str(), 0644), 0);
    testing_support::WriteFile(tree + "/secret.bin", SampleContent(Sample::kMarker));
    ASSERT_EQ(chmod((tree + "/secret.bin").c_str(), 0600), 0);
    Store("Reach", kNobody, tree, action);
    EXPECT_EQ(RunScan("Reach").status, 1);
    const std::string report = ReportOf(IndexOf("Reach").at(0));
    EXPECT_NE(report.find(tree + "/roots.bin\t" + SignatureOf(Sample::kMarker) + "\t" + done + "\n"),
              std::string::npos) << report;
    EXPECT_NE(report.find("Not accessible (path, reason):\n" + tree + "/private\tPermission denied\n"),
              std::string::npos) << report;
    EXPECT_EQ(report.find("private/marker.bin"), std::string::npos) << report;
    EXPECT_NE(report.find("\n" + tree + "/secret.bin\tPermission denied\n"), std::string::npos) << report;
    EXPECT_TRUE(fs::exists(tree + "/roots.bin"));
    EXPECT_EQ(Run({"--quarantine"}).out, "");
  }
}

// The command line's refusals, and what goes wrong around a run.
TEST_F(Schscand, RefusalsAndFaults) {
  Store("Daily", 0, Tree("faults"), ACTION_REPORT_ONLY);
  Store("Orphan", 4242, Tree("faults"), ACTION_REPORT_ONLY);
  tagSCHEDULE_SCAN_ENTRY boot = testing_support::MakeScan("Boot", 0, {Tree("faults")});
  boot.bFirstBootScan = 1;
  testing_support::StoreScan(boot);
  struct Row {
    std::vector<std::string> args;
    std::optional<uid_t> user;
    int status;
    const char* says;  // in standard output, or error when the status is 2
  };
  const Row rows[] = {
      {{"--help"}, kNobody, 0, "Usage: schscand"},
      {{"--status"}, kNobody, 2, "only root"},
      {{"--run", "Daily"}, kNobody, 2, "only root"},
      {{"--bogus"}, {}, 2, "unknown argument: --bogus"},
      {{"--status", "--run", "Daily"}, {}, 2, "only one of"},
      {{"--status=now"}, {}, 2, "takes no value"},
      {{"--count", "3"}, {}, 2, "--count and --from go with --next"},
      {{"--next", "Daily", "--count", "0"}, {}, 2, "--count takes a number"},
      {{"--next", "Daily", "--from", "2026-02-30 10:00:00"}, {}, 2, "--from takes a local moment"},
      {{"--next", "Boot"}, {}, 0, "at system start-up\n"},
      {{"--next", "Missing"}, {}, 2, "no scan is named Missing"},
      {{"--run", "Missing"}, {}, 2, "no scan is named Missing"},
      {{"--run", "Orphan", "--database", scratch_ / "db"}, {}, 2, "has no passwd entry"},
      {{"--run", "Daily", "--database", scratch_ / "none"}, {}, 2, "did not load"},
      {{"--restore", "0123456789abcdef"}, {}, 2, "no quarantined file"},
  };
  for (const Row& row : rows) {
    const Ran ran = Run(row.args, row.user);
    EXPECT_EQ(ran.status, row.status) << row.args[0];
    EXPECT_NE((row.status == 2 ? ran.err : ran.out).find(row.says), std::string::npos)
        << row.args[0] << ": " << ran.out << ran.err;
  }
  // The failed load shows in the status and in the report of the run.
  EXPECT_TRUE(StatusLine("Daily").ends_with(" error")) << StatusLine("Daily");
  EXPECT_NE(Run({"--status"}).err.find("signature database: failed"), std::string::npos);
  EXPECT_NE(ReportOf(IndexOf("Daily").at(0)).find("Result:           error: the signature database did not load"),
            std::string::npos);
  EXPECT_TRUE(IndexOf("Orphan").empty());
  // A state directory that is a symbolic link is refused, not followed.
  fs::remove_all(kStateDir);
  fs::create_directory_symlink(scratch_.path(), kStateDir);
  const Ran linked = RunScan("Daily");
  EXPECT_EQ(linked.status, 2);
  EXPECT_NE(linked.err.find(std::string(kStateDir) + " is not a directory"), std::string::npos) << linked.err;
  fs::remove(kStateDir);
  // A quarantine that cannot be listed says why.
  fs::create_directory(kStateDir);
  testing_support::WriteFile(kQuarantineDir, "not a directory");
  const Ran listed = Run({"--quarantine"});
  EXPECT_EQ(listed.status, 2);
  EXPECT_NE(listed.err.find(std::string("cannot read ") + kQuarantineDir), std::string::npos) << listed.err;
}

// A scan added while the service runs runs at its time; a first-boot scan
// runs after a new boot only; a run missed while the service was stopped
// comes once, after the start delay.
TEST_F(Schscand, TheServiceRunsScansWhenDue) {
  const std::string tree = Tree("daemon");
  const std::string bootId = scratch_ / "boot_id";
  testing_support::WriteFile(bootId, "boot-1\n");
  const std::vector<std::string> args = {"--start-delay", "1", "--boot-id-file", bootId,
                                         "--database", scratch_ / "db"};
  {
    Process service(scratch_.path(), args);
    ASSERT_TRUE(WaitFor([&] { return service.Err().find("started") != std::string::npos; },
                        std::chrono::seconds(20))) << service.Err();
    const std::time_t soon = std::time(nullptr) + 3;
    std::tm local{};
    localtime_r(&soon, &local);
    tagSCHEDULE_SCAN_ENTRY scan = testing_support::MakeScan("Soon", kNobody, {tree});
    scan.nHour = static_cast<std::int16_t>(local.tm_hour);
    scan.nMinute = static_cast<std::int16_t>(local.tm_min);
    scan.nSecond = static_cast<std::int16_t>(local.tm_sec);
    scan.nRecurEvery = 1;
    scan.bRepeatScan = 0;
    testing_support::StoreScan(scan);
    tagSCHEDULE_SCAN_ENTRY boot = testing_support::MakeScan("AtBoot", 0, {tree});
    boot.bFirstBootScan = 1;
    testing_support::StoreScan(boot);
    EXPECT_TRUE(WaitFor([] { return !IndexOf("Soon").empty(); }, std::chrono::seconds(20)))
        << service.Err();
    EXPECT_NE(StatusLine("Soon").find(" 4 infected"), std::string::npos);
    const Ran stopped = service.Stop();
    EXPECT_EQ(stopped.status, 0);
    EXPECT_NE(stopped.err.find("stopping"), std::string::npos);
  }
  testing_support::StoreScan(testing_support::MakeScan("Missed", 0, {tree}));
  testing_support::SetStoredColumn("Missed", "anchor", static_cast<int>(std::time(nullptr) - 3 * 86400));
  testing_support::WriteFile(bootId, "boot-2\n");
  Process service(scratch_.path(), args);
  EXPECT_TRUE(WaitFor([] { return !IndexOf("AtBoot").empty() && !IndexOf("Missed").empty(); },
                      std::chrono::seconds(20))) << service.Err();
  EXPECT_EQ(IndexOf("Soon").size(), 1u);
  EXPECT_EQ(service.Stop().status, 0);
}

// Report names are drawn among those no entry names: with every other name
// taken, the one left; with none left, the scan's oldest report makes room;
// without a report of its own, the run fails.
TEST_F(Schscand, ReportNamesAreNeverShared) {
  const std::string tree = Tree("names");
  struct Row {
    const char* owner;  // of the entries that name every schdNNNN.rpt but `free`
    int free;           // -1: none
    const char* report; // the run's report file, "" for none
  };
  const Row rows[] = {{"Other", 4321, "schd4321.rpt"}, {"Named", -1, "schd0000.rpt"}, {"Other", -1, ""}};
  for (const Row& row : rows) {
    SetUp();
    Store("Named", 0, tree, ACTION_REPORT_ONLY);
    std::string index(19, '\0');
    for (int n = 0; n < 10000; ++n) {
      if (n == row.free) continue;
      char name[32];
      std::snprintf(name, sizeof name, "/schd%04d.rpt", n);
      const auto entry = testing_support::MakeReportEntry(row.owner, "d", kReportsDir + std::string(name), 0);
      index.append(reinterpret_cast<const char*>(&entry), sizeof entry);
    }
    testing_support::WriteFile(kReportIndexPath, index);
    const Ran run = RunScan("Named");
    const auto entries = IndexOf("Named");
    if (*row.report == '\0') {
      EXPECT_EQ(run.status, 2);
      EXPECT_NE(run.err.find("no free report name"), std::string::npos) << run.err;
      EXPECT_TRUE(StatusLine("Named").ends_with(" error"));
      continue;
    }
    EXPECT_EQ(run.status, 1) << run.err;
    ASSERT_FALSE(entries.empty());
    EXPECT_EQ(FieldText(entries.back().szReportPath).c_str(), kReportsDir + std::string("/") + row.report);
    EXPECT_EQ(entries.size(), *row.owner == 'N' ? 100u : 1u);  // the newest 100 are kept
  }
}

// SIGTERM to the service in the middle of a run (a catch-up run at start):
// the run's report is written and says so.
TEST_F(Schscand, AStoppedRunWritesItsReport) {
  const std::string tree = testing_support::ScanDir("many");
  for (int i = 0; i < 6000; ++i)
    testing_support::WriteFile(tree + "/" + std::to_string(i), SampleContent(Sample::kClean));
  Store("Many", 0, tree, ACTION_REPORT_ONLY);
  testing_support::SetStoredColumn("Many", "anchor", static_cast<int>(std::time(nullptr) - 3 * 86400));
  testing_support::WriteFile(scratch_ / "boot_id", "boot\n");
  Process run(scratch_.path(), {"--start-delay", "0", "--boot-id-file", scratch_ / "boot_id",
                                "--database", scratch_ / "db"});
  const auto reportStarted = [] {
    for (const auto& file : fs::directory_iterator(kReportsDir))
      if (file.path().filename() != kReportIndexName) return true;
    return false;
  };
  ASSERT_TRUE(WaitFor(reportStarted, std::chrono::seconds(20)));
  const Ran stopped = run.Stop();
  EXPECT_EQ(stopped.status, 0) << stopped.err;
  EXPECT_NE(stopped.err.find("scan Many ended: with errors"), std::string::npos) << stopped.err;
  EXPECT_NE(ReportOf(IndexOf("Many").at(0)).find("Result:           interrupted (stopped before the end)"),
            std::string::npos);
  EXPECT_TRUE(StatusLine("Many").ends_with(" interrupted")) << StatusLine("Many");
}

// Entries that runs add under the lock while users' delete-reports rewrite
// the index all stay, in the order they came.
TEST_F(Schscand, AppendsRacingDeleteReportsLoseNothing) {
  constexpr int kAppends = 300;
  const auto entry = [](const char* name, int n, uid_t owner) {
    return testing_support::MakeReportEntry(name, std::to_string(n), "/r", owner);
  };
  const pid_t appender = fork();
  ASSERT_GE(appender, 0);
  if (appender == 0) {
    for (int i = 0; i < kAppends; ++i) {
      if (AppendReportIndexEntry(entry("Kept", i, 8), std::chrono::seconds(10)) != IndexUpdate::kDone) _exit(1);
      usleep(2000);
    }
    _exit(0);
  }
  harness::RunOptions deleteAll;
  deleteAll.args = {"--delreports"};
  deleteAll.input = "3\n";
  deleteAll.user = kNobody;
  int status = 0;
  int rewrites = 0;
  while (waitpid(appender, &status, WNOHANG) == 0) {
    ASSERT_EQ(AppendReportIndexEntry(entry("Gone", rewrites, kNobody), std::chrono::seconds(10)),
              IndexUpdate::kDone);
    ASSERT_EQ(harness::RunTool(deleteAll).exitStatus, 0);
    ++rewrites;
  }
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  std::string dates;
  for (const auto& kept : IndexOf("Kept")) dates += FieldText(kept.szDateTime).c_str() + std::string(" ");
  std::string expected;
  for (int i = 0; i < kAppends; ++i) expected += std::to_string(i) + " ";
  EXPECT_EQ(dates, expected) << rewrites << " rewrites";
  EXPECT_TRUE(IndexOf("Gone").empty());
}

// While a user holds the index lock (a stopped delete-reports), a run ends
// all the same and keeps its entry, which the service adds once the lock
// is free.
TEST_F(Schscand, AHeldIndexLockHoldsUpNoScan) {
  Store("Held", 0, Tree("held"), ACTION_REPORT_ONLY);
  testing_support::IndexLockHolder holder;
  const Ran run = RunScan("Held");
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("the entry is kept, and the service adds it as soon as it can"), std::string::npos)
      << run.err;
  EXPECT_TRUE(IndexOf("Held").empty());
  // A run missed while the service was stopped, put off by the start delay,
  // is the next run that --status shows.
  Store("Missed", 0, Tree("held"), ACTION_REPORT_ONLY);
  testing_support::SetStoredColumn("Missed", "anchor", static_cast<int>(std::time(nullptr) - 3 * 86400));
  const std::time_t inTenMinutes = std::time(nullptr) + 600;
  testing_support::WriteFile(scratch_ / "boot_id", "boot\n");
  Process service(scratch_.path(), {"--start-delay", "600", "--database", scratch_ / "db",
                                    "--boot-id-file", scratch_ / "boot_id"});
  ASSERT_TRUE(WaitFor([&] { return service.Err().find("started") != std::string::npos; },
                      std::chrono::seconds(20)));
  const std::string next = StatusLine("Missed");
  bool soon = false;
  for (std::time_t at = inTenMinutes - 5; at <= inTenMinutes + 5; ++at) {
    std::tm local{};
    localtime_r(&at, &local);
    char text[32];
    std::strftime(text, sizeof text, " %Y-%m-%d %H:%M:%S ", &local);
    soon = soon || next.find(text) != std::string::npos;
  }
  EXPECT_TRUE(soon) << next;
  holder.Release();
  EXPECT_TRUE(WaitFor([] { return IndexOf("Held").size() == 1; }, std::chrono::seconds(30)))
      << service.Err();
}

}  // namespace
