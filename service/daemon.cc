#include "service/daemon.h"

#include <malloc.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "product_paths.h"
#include "reports/report_index.h"
#include "service/index_work.h"
#include "service/report_text.h"
#include "service/scan_engine.h"
#include "service/scheduler.h"
#include "service/service_log.h"
#include "service/service_state.h"
#include "service/state_files.h"
#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"

extern char** environ;

namespace service {
namespace {

using std::chrono::seconds;
using SteadyClock = std::chrono::steady_clock;

constexpr auto kTick = std::chrono::milliseconds(1000);
// Beyond this, the wall clock moved apart from the steady one.
constexpr auto kJumpTolerance = seconds(2);
// The store is read again at least this often, changed or not.
constexpr auto kStoreRecheck = seconds(60);
constexpr auto kIndexRetry = seconds(5);
constexpr auto kIndexLockWait = std::chrono::milliseconds(1000);

Instant WallNow() { return std::chrono::floor<seconds>(std::chrono::system_clock::now()); }

// What tells a changed store apart: its file and its write-ahead log.
struct StoreStamp {
  struct FileStamp {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = -1;
    long long modified = 0;
    bool operator==(const FileStamp&) const = default;
  };
  FileStamp database;
  FileStamp log;
  bool operator==(const StoreStamp&) const = default;
};

StoreStamp::FileStamp StampOf(const std::string& path) {
  StoreStamp::FileStamp stamp;
  struct stat status {};
  if (stat(path.c_str(), &status) == 0) {
    stamp = {status.st_dev, status.st_ino, status.st_size,
             static_cast<long long>(status.st_mtim.tv_sec) * 1000000000LL + status.st_mtim.tv_nsec};
  }
  return stamp;
}

StoreStamp StampStore() {
  char resolved[PATH_MAX];
  const std::string path = realpath(kTaskListPath, resolved) != nullptr ? resolved : kTaskListPath;
  return {StampOf(path), StampOf(path + "-wal")};
}

// The first line of the boot id file; "" when it cannot be read.
std::string ReadBootId(const std::string& path) {
  std::string error;
  const auto text = ReadSmallFile(path, 256, &error);
  if (!text) {
    LogLine("the boot id cannot be read from " + path + (error.empty() ? "" : ": " + error));
    return "";
  }
  std::string id = text->substr(0, text->find('\n'));
  while (!id.empty() && (id.back() == ' ' || id.back() == '\r')) id.pop_back();
  return id;
}

// Adds kept index entries and trims old reports, apart from the runs, with
// bounded waits for the index lock: a user who stops her own delete-reports
// holds it, and must hold up nothing else.
class IndexWorker {
 public:
  explicit IndexWorker(std::string keptDirectory)
      : kept_(std::move(keptDirectory)), thread_([this] { Work(); }) {}
  IndexWorker(const IndexWorker&) = delete;
  IndexWorker& operator=(const IndexWorker&) = delete;
  ~IndexWorker() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
  }

  // A run ended: its entry may wait, and the scan may have too many reports.
  void RunEnded() {
    {
      std::lock_guard lock(mutex_);
      trimWanted_ = true;
    }
    wake_.notify_one();
  }

 private:
  void Work() {
    std::unique_lock lock(mutex_);
    for (bool first = true; !stopping_; first = false) {
      if (!first) wake_.wait_for(lock, kIndexRetry);
      if (stopping_) break;
      bool trim = trimWanted_;
      lock.unlock();
      std::string error;
      const IndexUpdate added = kept_.AddToIndex(kIndexLockWait, &error);
      if (added == IndexUpdate::kFailed && error != lastError_) LogLine(error);
      lastError_ = added == IndexUpdate::kFailed ? error : "";
      if (added == IndexUpdate::kDone && waited_) LogLine("the kept index entries are added");
      waited_ = added != IndexUpdate::kDone;
      if (trim && added == IndexUpdate::kDone) {
        const IndexUpdate trimmed = TrimReports(kReportsKeptPerScan, kIndexLockWait, &error);
        if (trimmed == IndexUpdate::kFailed) LogLine(error);
        trim = trimmed != IndexUpdate::kDone;
      }
      lock.lock();
      trimWanted_ = trimWanted_ && trim;
    }
  }

  const KeptEntries kept_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool stopping_ = false;
  bool trimWanted_ = true;
  bool waited_ = false;
  std::string lastError_;
  std::thread thread_;  // last: it starts once the rest is there
};

class Daemon {
 public:
  Daemon(const DaemonSettings& settings, const ServiceState& state)
      : settings_(settings), state_(state) {}

  int Run();

 private:
  void CheckDatabase();
  bool NewBoot();
  void ReadStore(bool force);
  void Enqueue(const std::vector<ScanKey>& due);
  void StartNext();
  void Reap(bool wait);
  void PublishUpcoming();
  std::string NameOf(const ScanKey& key) const { return Printable(key.name); }

  const DaemonSettings& settings_;
  const ServiceState& state_;
  std::optional<Scheduler> scheduler_;
  std::optional<IndexWorker> indexWorker_;
  StoreStamp stamp_;
  SteadyClock::time_point storeRead_{};
  std::string storeError_;
  std::deque<ScanKey> queue_;
  std::optional<ScanKey> running_;
  pid_t child_ = -1;
  std::map<ScanKey, Instant> upcoming_;
};

void Daemon::CheckDatabase() {
  std::string error;
  const auto engine = ScanEngine::Load(settings_.databaseDir, 0, &error);
  const std::string when = FormatLocalMoment(WallNow(), SystemZone());
  std::string line;
  if (engine) {
    line = "loaded " + when + ": " + engine->Description();
    LogLine("signature database in " + settings_.databaseDir + ": " + line);
  } else {
    line = "failed " + when + ": " + error;
    LogLine("the signature database in " + settings_.databaseDir +
            " did not load, and scans will fail until it does: " + error);
  }
  if (!state_.SetDatabaseStatus(line, &error)) LogLine(error);
  // The engine is gone; give its memory back before the long wait.
  malloc_trim(0);
}

bool Daemon::NewBoot() {
  const std::string current = ReadBootId(settings_.bootIdFile);
  if (current.empty()) return false;
  std::string error;
  const std::optional<std::string> stored = state_.BootId(&error);
  if (!error.empty()) LogLine(error);
  if (stored && *stored == current) return false;
  if (!state_.SetBootId(current, &error)) LogLine(error);
  // None stored: the first start after installation, which is not a boot.
  return stored.has_value();
}

void Daemon::ReadStore(bool force) {
  const StoreStamp stamp = StampStore();
  const auto steadyNow = SteadyClock::now();
  if (!force && stamp == stamp_ && steadyNow - storeRead_ < kStoreRecheck) return;
  ScheduleScanList list;
  std::vector<std::int64_t> anchors;
  std::uint32_t code = SCHSCAN_OK;
  if (!ReadScheduleScanTaskListWithAnchors(kTaskListPath, list, anchors, &code) &&
      code != SCHSCAN_ERR_LIST_NOT_FOUND) {
    const std::string error = "the task store cannot be read (code " + std::to_string(code) +
                              "); the scans known before stay scheduled";
    if (error != storeError_) LogLine(error);
    storeError_ = error;
    storeRead_ = steadyNow;
    return;
  }
  if (!storeError_.empty()) LogLine("the task store can be read again");
  storeError_.clear();
  stamp_ = stamp;
  storeRead_ = steadyNow;
  std::vector<ScanSchedule> scans;
  std::set<ScanKey> keys;
  scans.reserve(list.size());
  for (std::size_t i = 0; i < list.size(); ++i) {
    ScanKey key = KeyOf(list[i]);
    keys.insert(key);
    scans.push_back(ScanSchedule{std::move(key), ScheduleOnly(list[i]),
                                 Instant{seconds{i < anchors.size() ? anchors[i] : 0}}});
  }
  scheduler_->SetScans(std::move(scans), WallNow(), steadyNow, SystemZone());
  std::string error;
  if (!state_.KeepRunsOf(keys, &error)) LogLine(error);
}

void Daemon::Enqueue(const std::vector<ScanKey>& due) {
  for (const ScanKey& key : due) {
    if (running_ == key) {
      LogLine("scan " + NameOf(key) + " is due while it still runs: this run is skipped");
    } else if (std::find(queue_.begin(), queue_.end(), key) != queue_.end()) {
      LogLine("scan " + NameOf(key) + " is due while it still waits to run: this run is skipped");
    } else {
      queue_.push_back(key);
    }
  }
}

void Daemon::StartNext() {
  if (running_ || queue_.empty()) return;
  const ScanKey key = queue_.front();
  queue_.pop_front();
  std::vector<std::string> arguments = {"schscand", "--run", key.name, "--database",
                                        settings_.databaseDir};
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  // The run starts with the default signal mask and dispositions.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none;
  sigset_t defaults;
  sigemptyset(&none);
  sigemptyset(&defaults);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD, SIGPIPE}) sigaddset(&defaults, signal);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  const int failed = posix_spawn(&child_, "/proc/self/exe", nullptr, &attributes, argv.data(), environ);
  posix_spawnattr_destroy(&attributes);
  if (failed != 0) {
    LogLine("scan " + NameOf(key) + " cannot start: " + ErrorText(failed));
    child_ = -1;
    return;
  }
  running_ = key;
  LogLine("scan " + NameOf(key) + " of user " + std::to_string(key.owner) + " started");
}

void Daemon::Reap(bool wait) {
  if (child_ < 0) return;
  int status = 0;
  pid_t ended;
  do {
    ended = waitpid(child_, &status, wait ? 0 : WNOHANG);
  } while (ended < 0 && errno == EINTR);
  if (ended == 0) return;
  const std::string name = NameOf(*running_);
  if (ended < 0) {
    LogLine("scan " + name + ": its run cannot be waited for: " + ErrorText(errno));
  } else if (WIFSIGNALED(status)) {
    LogLine("scan " + name + " ended by signal " + std::to_string(WTERMSIG(status)));
  } else {
    static constexpr const char* kEnds[] = {"clean", "infected files found", "with errors"};
    const int code = WEXITSTATUS(status);
    LogLine("scan " + name + " ended: " + (code <= 2 ? kEnds[code] : "exit status " + std::to_string(code)));
  }
  child_ = -1;
  running_.reset();
  indexWorker_->RunEnded();
}

// The runs put off, for --status.
void Daemon::PublishUpcoming() {
  auto upcoming = scheduler_->Upcoming(WallNow(), SteadyClock::now());
  if (upcoming == upcoming_) return;
  std::string error;
  if (state_.SetUpcomingRuns(upcoming, &error)) {
    upcoming_ = std::move(upcoming);
  } else {
    LogLine(error);
  }
}

int Daemon::Run() {
  CheckDatabase();
  std::string error;
  const bool newBoot = NewBoot();
  auto lastRuns = state_.LastRuns(&error);
  if (!error.empty()) LogLine(error);
  scheduler_.emplace(settings_.startDelay, std::move(lastRuns), newBoot);
  indexWorker_.emplace(state_.PathOf("pending"));
  ReadStore(true);
  sd_notify(0, "READY=1\nSTATUS=Scheduling scans");
  LogLine("started");

  sigset_t handled;
  sigemptyset(&handled);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) sigaddset(&handled, signal);
  Instant lastWall = WallNow();
  auto lastSteady = SteadyClock::now();
  const date::time_zone* lastZone = &SystemZone();
  for (;;) {
    PublishUpcoming();
    const auto steadyNow = SteadyClock::now();
    auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(kTick);
    if (const auto wake = scheduler_->NextWake(WallNow(), steadyNow)) {
      wait = std::clamp(std::chrono::ceil<std::chrono::milliseconds>(*wake - steadyNow),
                        std::chrono::milliseconds(0), wait);
    }
    const timespec timeout{static_cast<time_t>(wait.count() / 1000),
                           static_cast<long>(wait.count() % 1000) * 1000000L};
    const int signal = sigtimedwait(&handled, nullptr, &timeout);
    if (signal == SIGTERM || signal == SIGINT) break;
    Reap(false);
    ReadStore(signal == SIGHUP);

    const Instant wallNow = WallNow();
    const auto steady = SteadyClock::now();
    const date::time_zone* zone = &SystemZone();
    const auto drift = (wallNow - lastWall) - std::chrono::duration_cast<seconds>(steady - lastSteady);
    const bool discontinuity = drift > kJumpTolerance || drift < -kJumpTolerance || zone != lastZone;
    if (discontinuity) LogLine("the clock or the time zone changed: the schedules are worked out again");
    lastWall = wallNow;
    lastSteady = steady;
    lastZone = zone;
    Enqueue(scheduler_->Due(wallNow, steady, discontinuity, *zone));
    StartNext();
  }

  sd_notify(0, "STOPPING=1");
  LogLine("stopping");
  if (child_ > 0) {
    kill(child_, SIGTERM);  // its report is written and marked interrupted
    Reap(true);
  }
  indexWorker_.reset();
  state_.ForgetUpcomingRuns();
  return 0;
}

}  // namespace

int RunDaemon(const DaemonSettings& settings) {
  const ServiceState state(kStateDir);
  std::string error;
  if (!state.Prepare(&error)) {
    LogLine(error);
    return 1;
  }
  const FileLock single(state.PathOf("schscand.lock"), FileLock::Wait::kTry);
  if (!single.held()) {
    LogLine("another schscand is running already");
    return 1;
  }
  // The signals are taken by sigtimedwait in the main loop; blocked before
  // any thread starts, so that every thread has them blocked.
  sigset_t handled;
  sigemptyset(&handled);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD}) sigaddset(&handled, signal);
  pthread_sigmask(SIG_BLOCK, &handled, nullptr);
  Daemon daemon(settings, state);
  return daemon.Run();
}

}  // namespace service
