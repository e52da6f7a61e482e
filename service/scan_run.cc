#include "service/scan_run.h"

#include <poll.h>
#include <pwd.h>
#include <sched.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "product_paths.h"
#include "reports/report_index.h"
#include "service/index_work.h"
#include "service/owner_scan.h"
#include "service/quarantine.h"
#include "service/report_file.h"
#include "service/report_text.h"
#include "service/run_channel.h"
#include "service/run_schedule.h"
#include "service/scan_engine.h"
#include "service/service_log.h"
#include "service/service_state.h"
#include "service/state_files.h"
#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"

namespace service {
namespace {

// Places the scan could not enter, listed in the report up to this many.
constexpr std::size_t kMaxNotAccessibleLines = 10000;
constexpr auto kPollInterval = std::chrono::milliseconds(200);
constexpr auto kTrimLockWait = std::chrono::milliseconds(500);

void Log(const std::string& line) { LogLine(line); }

template <std::size_t N>
void CopyField(char (&field)[N], const std::string& text) {
  std::memset(field, 0, N);
  std::memcpy(field, text.data(), std::min(text.size(), N - 1));
}

// What the service's side learns from the scanning child.
struct ScanOutcome {
  TreeScanTotals totals;
  RunEnd end = RunEnd::kCompleted;
  std::string failure;
  std::vector<std::string> notAccessible;
  std::size_t notAccessibleCount = 0;
  std::uint64_t detections = 0;
};

// The service's side of a run: serves the child's messages until the
// channel ends.
class RunServer {
 public:
  RunServer(ReportFile& report, const Quarantine& quarantine, bool showProgress)
      : report_(report), quarantine_(quarantine), showProgress_(showProgress) {}

  void Serve(int socket, pid_t child, const volatile std::sig_atomic_t& stop,
             ScanOutcome* outcome) {
    bool forwarded = false;
    bool gotTotals = false;
    for (;;) {
      if (stop != 0 && !forwarded) {
        kill(child, SIGTERM);
        forwarded = true;
      }
      pollfd ready{socket, POLLIN, 0};
      const int polled = poll(&ready, 1, static_cast<int>(kPollInterval.count()));
      if (polled == 0 || (polled < 0 && errno == EINTR)) continue;
      Message message;
      bool interrupted = false;
      if (!ReceiveMessage(socket, &message, &interrupted)) {
        if (interrupted) continue;
        break;
      }
      if (message.kind == MessageKind::kTotals) {
        outcome->totals = message.totals;
        gotTotals = true;
      } else {
        Handle(socket, message, outcome);
      }
    }
    if (showProgress_ && progressShown_) std::fputs("\r\033[K", stdout);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (forwarded) {
      outcome->end = RunEnd::kInterrupted;
    } else if (!gotTotals || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      outcome->end = RunEnd::kFailed;
      outcome->failure = WIFSIGNALED(status)
                             ? std::string("the scanning process was killed by signal ") +
                                   std::to_string(WTERMSIG(status))
                             : "the scanning process ended before the scan did";
    }
  }

 private:
  void Handle(int socket, Message& message, ScanOutcome* outcome) {
    const auto& texts = message.texts;
    switch (message.kind) {
      case MessageKind::kDetection:
        if (texts.size() == 3) {
          report_.Write(DetectionLine(Detection{texts[0], texts[1], texts[2]}));
          ++outcome->detections;
        }
        break;
      case MessageKind::kNotAccessible:
        if (texts.size() == 2 && ++outcome->notAccessibleCount <= kMaxNotAccessibleLines)
          outcome->notAccessible.push_back(NotAccessibleLine(texts[0], texts[1]));
        break;
      case MessageKind::kQuarantine: {
        Message reply;
        reply.kind = MessageKind::kKept;
        reply.texts = {texts.size() == 2 ? Keep(message.fd, texts[0], texts[1]) : ""};
        close(message.fd);
        SendMessage(socket, reply);
        break;
      }
      case MessageKind::kDrop:
        // Only a copy made in this run, whatever id the other side names.
        if (texts.size() == 1 && keptIds_.erase(texts[0]) == 1) quarantine_.Drop(texts[0]);
        break;
      case MessageKind::kProgress:
        if (texts.size() == 1) ShowProgress(message.totals, texts[0]);
        break;
      default:
        break;
    }
  }

  // Quarantines the file the child sent, provided it is the regular file
  // that the path names: what is recorded comes from the descriptor and
  // the file system, not from the child's word.
  std::string Keep(int fd, const std::string& path, const std::string& signature) {
    struct stat sent {};
    struct stat named {};
    if (fd < 0 || fstat(fd, &sent) != 0 || !S_ISREG(sent.st_mode) ||
        lstat(path.c_str(), &named) != 0 || named.st_dev != sent.st_dev ||
        named.st_ino != sent.st_ino) {
      Log("not quarantined: " + Printable(path) + " is not the file that was scanned");
      return "";
    }
    std::string error;
    std::string id = quarantine_.Keep(fd, sent, path, signature, &error);
    if (id.empty()) {
      Log(error);
    } else {
      keptIds_.insert(id);
    }
    return id;
  }

  void ShowProgress(const TreeScanTotals& totals, const std::string& directory) {
    if (!showProgress_) return;
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started_).count();
    std::string shown = Printable(directory);
    constexpr std::size_t kWidth = 48;
    if (shown.size() > kWidth) shown = "..." + shown.substr(shown.size() - (kWidth - 3));
    std::printf("\r\033[K%llu files, %s, %.0f files/s, in %s",
                static_cast<unsigned long long>(totals.files), DataSize(totals.bytes).c_str(),
                seconds > 0 ? static_cast<double>(totals.files) / seconds : 0.0, shown.c_str());
    std::fflush(stdout);
    progressShown_ = true;
  }

  ReportFile& report_;
  const Quarantine& quarantine_;
  const bool showProgress_;
  bool progressShown_ = false;
  std::set<std::string> keptIds_;
  const std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
};

struct StoredScan {
  tagSCHEDULE_SCAN_ENTRY entry{};
  bool found = false;
};

bool FindScan(const std::string& name, StoredScan* scan, std::string* error) {
  ScheduleScanList list;
  std::vector<std::int64_t> anchors;
  std::uint32_t code = SCHSCAN_OK;
  if (!ReadScheduleScanTaskListWithAnchors(kTaskListPath, list, anchors, &code)) {
    if (code == SCHSCAN_ERR_LIST_NOT_FOUND) return true;
    *error = "the task store cannot be read (code " + std::to_string(code) + ")";
    return false;
  }
  for (const tagSCHEDULE_SCAN_ENTRY& entry : list) {
    if (KeyOf(entry).name == name) {
      scan->entry = entry;
      scan->found = true;
    }
  }
  return true;
}

// The cores this process may run on: its affinity mask, which taskset and a
// unit's CPUAffinity narrow, else every core of the machine.
unsigned UsableCores() {
  cpu_set_t cores;
  CPU_ZERO(&cores);
  if (sched_getaffinity(0, sizeof cores, &cores) == 0 && CPU_COUNT(&cores) > 0)
    return static_cast<unsigned>(CPU_COUNT(&cores));
  return std::max(1u, std::thread::hardware_concurrency());
}

std::string Now(std::chrono::sys_seconds* instant) {
  *instant = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  return FormatLocalMoment(*instant, SystemZone());
}

// Creates the report under a free name; when none is left, the scan's
// oldest report makes room.
bool CreateReport(ReportFile& report, const std::string& name, std::uint32_t owner,
                  std::chrono::milliseconds lockWait, std::string* error) {
  for (int attempt = 0; attempt < 2; ++attempt) {
    // An index that cannot be read names no report: the directory alone
    // says which names are taken.
    ReportList index;
    std::uint32_t code = SCHSCAN_OK;
    ReadReportIndex(index, 0, &code);
    bool noFreeName = false;
    if (report.Create(index, &noFreeName, error)) return true;
    if (!noFreeName || attempt > 0) return false;
    IndexUpdate update = IndexUpdate::kDone;
    if (EvictOldestReport(name, owner, lockWait, &update).empty()) {
      *error += update == IndexUpdate::kDone ? ", and the scan has no report of its own to replace"
                                             : ", and the index cannot be rewritten now";
      return false;
    }
  }
  return false;
}

}  // namespace

int RunScanNow(const std::string& scanName, const RunSettings& settings,
               const volatile std::sig_atomic_t& stop) {
  const ServiceState state(kStateDir);
  std::string error;
  if (!state.Prepare(&error)) {
    Log(error);
    return 2;
  }
  StoredScan scan;
  if (!FindScan(scanName, &scan, &error)) {
    Log(error);
    return 2;
  }
  if (!scan.found) {
    Log("no scan is named " + Printable(scanName));
    return 2;
  }
  const tagSCHEDULE_SCAN_ENTRY& entry = scan.entry;
  const std::uint32_t owner = entry.dwUserId;
  const passwd* user = getpwuid(owner);
  if (user == nullptr) {
    Log("scan " + Printable(scanName) + " skipped: its owner " + std::to_string(owner) +
        " has no passwd entry");
    return 2;
  }
  const OwnerIds ids{user->pw_uid, user->pw_gid, user->pw_name};
  const ScanKey key{owner, scanName};
  const FileLock running(state.PathOf("running/" + std::to_string(owner) + "-" +
                                      EscapeWord(scanName)),
                         FileLock::Wait::kTry);
  if (!running.held()) {
    Log("scan " + Printable(scanName) + " is running already");
    return 2;
  }

  std::chrono::sys_seconds started{};
  RunFacts facts;
  facts.scanName = scanName;
  facts.owner = owner;
  facts.ownerName = ids.login;
  facts.started = Now(&started);
  facts.options = entry.byScanOptions;
  facts.action = entry.nScanAction;
  for (std::size_t i = 0; i < entry.vecScanItems.size(); ++i)
    facts.directories.emplace_back(entry.vecScanItems.PathAt(i));

  std::string databaseError;
  const std::unique_ptr<ScanEngine> engine =
      ScanEngine::Load(settings.databaseDir, entry.byScanOptions, &databaseError);
  std::string stateError;
  if (engine) {
    facts.database = engine->Description();
    state.SetDatabaseStatus("loaded " + facts.started + ": " + facts.database, &stateError);
  } else {
    facts.database = "not loaded: " + databaseError;
    state.SetDatabaseStatus("failed " + facts.started + ": " + databaseError, &stateError);
    Log("scan " + Printable(scanName) + ": the signature database did not load: " + databaseError);
  }

  ReportFile report;
  if (!CreateReport(report, scanName, owner, settings.lockWait, &error)) {
    Log("scan " + Printable(scanName) + " did not run: " + error);
    state.RecordRun(key, LastRun{started, "error"}, &stateError);
    return 2;
  }
  report.Write(ReportHeader(facts));

  ScanOutcome outcome;
  if (!engine) {
    outcome.end = RunEnd::kFailed;
    outcome.failure = "the signature database did not load";
  } else {
    TreeScanRequest request;
    request.roots = facts.directories;
    request.action = entry.nScanAction;
    request.threads = UsableCores();
    int sockets[2];
    pid_t child = -1;
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets) == 0) {
      child = StartOwnerScan(ids, request, *engine, sockets[1], sockets[0]);
      close(sockets[1]);
      if (child < 0) close(sockets[0]);
    }
    if (child < 0) {
      outcome.end = RunEnd::kFailed;
      outcome.failure = "the scanning process could not start: " + ErrorText(errno);
    } else {
      const Quarantine quarantine(kQuarantineDir);
      RunServer(report, quarantine, settings.showProgress).Serve(sockets[0], child, stop, &outcome);
      close(sockets[0]);
    }
  }

  if (outcome.detections == 0) report.Write("(none)\n");
  report.Write("\nNot accessible (path, reason):\n");
  for (const std::string& line : outcome.notAccessible) report.Write(line);
  if (outcome.notAccessibleCount > outcome.notAccessible.size()) {
    report.Write("... and " +
                 std::to_string(outcome.notAccessibleCount - outcome.notAccessible.size()) +
                 " more\n");
  }
  if (outcome.notAccessibleCount == 0) report.Write("(none)\n");
  std::chrono::sys_seconds ended{};
  const std::string endedText = Now(&ended);
  report.Write(ReportSummary(outcome.totals, outcome.end, endedText,
                             std::max(ended - started, std::chrono::seconds(0)), outcome.failure));
  const std::string result = ResultText(outcome.totals, outcome.end);
  int status = ExitStatus(outcome.totals, outcome.end);
  if (!report.Finish(&error)) {
    Log(error);
    status = std::max(status, 2);
  }

  tagSCAN_REPORT_ENTRY indexEntry{};
  CopyField(indexEntry.szDateTime, facts.started);
  CopyField(indexEntry.szScanName, scanName);
  CopyField(indexEntry.szReportPath, report.path());
  indexEntry.dwUserId = owner;
  const KeptEntries kept(state.PathOf("pending"));
  switch (RecordReportEntry(indexEntry, kept, settings.lockWait, &error)) {
    case EntryFate::kAdded:
      if (TrimReports(kReportsKeptPerScan, kTrimLockWait, &error) == IndexUpdate::kFailed)
        Log(error);
      break;
    case EntryFate::kKept:
      Log("the report index cannot take the entry of " + report.path() +
          " now (another process holds its lock, or it cannot be written): the entry is kept,"
          " and the service adds it as soon as it can");
      break;
    case EntryFate::kLost:
      Log("the entry of " + report.path() + " could not be added nor kept: " + error);
      status = std::max(status, 2);
      break;
  }
  if (!state.RecordRun(key, LastRun{started, result}, &stateError)) Log(stateError);
  if (settings.showProgress) {
    std::printf("%s: %s, report %s\n", Printable(scanName).c_str(), result.c_str(),
                report.path().c_str());
    std::fflush(stdout);
  }
  return status;
}

}  // namespace service
