#include "service/tree_scan.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

namespace service {
namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kProgressEvery = std::chrono::milliseconds(250);
// Files waiting for a scanning thread, per thread: enough to keep them busy
// while the walk reads a slow directory, few enough to bound the directory
// descriptors the waiting files keep open.
constexpr std::size_t kQueuedPerThread = 16;
constexpr unsigned kMostThreads = 256;

std::string ErrnoText(int number) { return std::generic_category().message(number); }

std::string Join(const std::string& directory, const std::string& name) {
  return directory.ends_with('/') ? directory + name : directory + "/" + name;
}

// File systems that hold no files of anyone's: kernel state, control files
// and mount points that mount on access. devtmpfs reports tmpfs's type and so
// is walked; its device nodes are never opened.
bool IsPseudoFileSystem(std::uint32_t type) {
  constexpr std::uint32_t kConfigFs = 0x62656570;
  constexpr std::uint32_t kFuseControl = 0x65735543;
  constexpr std::uint32_t kMessageQueue = 0x19800202;
  switch (type) {
    case PROC_SUPER_MAGIC: case SYSFS_MAGIC: case DEVPTS_SUPER_MAGIC: case CGROUP_SUPER_MAGIC:
    case CGROUP2_SUPER_MAGIC: case DEBUGFS_MAGIC: case TRACEFS_MAGIC: case SECURITYFS_MAGIC:
    case BPF_FS_MAGIC: case PSTOREFS_MAGIC: case kConfigFs: case kFuseControl:
    case kMessageQueue: case BINFMTFS_MAGIC: case AUTOFS_SUPER_MAGIC:
      return true;
    default:
      return false;
  }
}

// An open directory of the walk. It stays open while the walk reads it and
// while any of its files waits for a scanning thread or is being scanned.
struct Directory {
  explicit Directory(std::string walkedPath) : path(std::move(walkedPath)) {}
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;
  ~Directory() {
    // Closing a directory read only loses nothing, whatever it returns.
    if (stream != nullptr) static_cast<void>(closedir(stream));
    else if (fd >= 0) static_cast<void>(close(fd));
  }

  std::string path;
  int fd = -1;
  DIR* stream = nullptr;  // read by the walk alone
};

// A file to scan: a name in a directory.
struct Work {
  std::shared_ptr<const Directory> directory;
  std::string name;
};

class TreeScan {
 public:
  TreeScan(const TreeScanRequest& request, const ScanEngine& engine, TreeScanSink& sink,
           const std::atomic<bool>& stop)
      : request_(request), engine_(engine), sink_(sink), stop_(stop),
        capacity_(kQueuedPerThread * std::clamp(request.threads, 1u, kMostThreads)) {}
  TreeScan(const TreeScan&) = delete;
  TreeScan& operator=(const TreeScan&) = delete;
  ~TreeScan() { Finish(); }

  TreeScanTotals Run() {
    const unsigned threads = std::clamp(request_.threads, 1u, kMostThreads);
    for (unsigned i = 0; i < threads; ++i) {
      try {
        workers_.emplace_back(&TreeScan::Serve, this);
      } catch (const std::system_error&) {
        break;  // no more threads: those started do; with none, the walk scans itself
      }
    }
    for (const std::string& root : request_.roots) {
      if (Stopped()) break;
      Walk(root);
    }
    Finish();
    return totals_;
  }

 private:
  bool Stopped() const { return stop_.load(std::memory_order_relaxed); }

  // Depth first, so that the directories open for the walk are those of the
  // current path.
  void Walk(const std::string& root) {
    std::vector<std::shared_ptr<Directory>> walking;  // the current path, root first
    if (auto top = Enter(nullptr, root, root)) walking.push_back(std::move(top));
    while (!walking.empty() && !Stopped()) {
      Directory& directory = *walking.back();
      MaybeProgress(directory.path);
      errno = 0;
      const dirent* entry = readdir(directory.stream);
      if (entry == nullptr) {
        if (errno != 0) Unreachable(directory.path, ErrnoText(errno));
        walking.pop_back();
        continue;
      }
      const std::string name = entry->d_name;
      if (name == "." || name == "..") continue;
      unsigned char type = entry->d_type;
      if (type == DT_UNKNOWN) {
        struct stat status;
        if (fstatat(directory.fd, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
          Unreachable(Join(directory.path, name), ErrnoText(errno));
          continue;
        }
        type = S_ISDIR(status.st_mode) ? DT_DIR : S_ISREG(status.st_mode) ? DT_REG : DT_UNKNOWN;
      }
      if (type == DT_DIR) {
        if (auto child = Enter(&directory, name, Join(directory.path, name))) {
          walking.push_back(std::move(child));
        }
      } else if (type == DT_REG) {
        Queue(Work{walking.back(), name});
      }
    }
  }

  // Opens a root as configured, or `name` in `parent` without following a
  // symbolic link. nullptr when it cannot be read (reported), is a pseudo
  // file system, or is no longer a directory.
  std::shared_ptr<Directory> Enter(const Directory* parent, const std::string& name,
                                   std::string path) {
    auto directory = std::make_shared<Directory>(std::move(path));
    directory->fd = parent == nullptr
                        ? open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)
                        : openat(parent->fd, name.c_str(),
                                 O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (directory->fd < 0) {
      // Below a root, a name that turned into a link or a file since it was listed.
      if (parent != nullptr && (errno == ELOOP || errno == ENOTDIR)) return nullptr;
      Unreachable(directory->path, ErrnoText(errno));
      return nullptr;
    }
    struct statfs system;
    if (fstatfs(directory->fd, &system) != 0) {
      Unreachable(directory->path, ErrnoText(errno));
      return nullptr;
    }
    if (IsPseudoFileSystem(static_cast<std::uint32_t>(system.f_type))) return nullptr;
    directory->stream = fdopendir(directory->fd);
    if (directory->stream == nullptr) {
      Unreachable(directory->path, ErrnoText(errno));
      return nullptr;
    }
    return directory;
  }

  // Hands a file to the scanning threads, waiting while the queue is full.
  // A full queue is only woken once it is down to half, so that the walk
  // and the scanning threads do not wake each other for every file.
  void Queue(Work work) {
    if (workers_.empty()) return Scan(work);
    std::unique_lock lock(queueMutex_);
    while (queue_.size() >= capacity_) {
      if (Stopped()) return;
      taken_.wait_for(lock, kProgressEvery);
      lock.unlock();
      MaybeProgress(work.directory->path);
      lock.lock();
    }
    queue_.push_back(std::move(work));
    lock.unlock();
    queued_.notify_one();
  }

  // A scanning thread: scans queued files until the walk is over and the
  // queue empty; once stopped, it drops them.
  void Serve() {
    for (;;) {
      Work work;
      bool room = false;  // the queue just fell to half: time for the walk to fill it
      {
        std::unique_lock lock(queueMutex_);
        queued_.wait(lock, [this] { return !queue_.empty() || walked_; });
        if (queue_.empty()) return;
        work = std::move(queue_.front());
        queue_.pop_front();
        room = queue_.size() == capacity_ / 2;
      }
      if (room) taken_.notify_one();
      if (!Stopped()) Scan(work);
    }
  }

  void Scan(const Work& work) {
    const std::string path = Join(work.directory->path, work.name);
    const int fd = openat(work.directory->fd, work.name.c_str(),
                          O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
      // ELOOP: the name is a symbolic link now, which the walk never follows.
      if (errno != ELOOP) Unreachable(path, ErrnoText(errno));
      return;
    }
    struct stat status;
    if (fstat(fd, &status) != 0) {
      Unreachable(path, ErrnoText(errno));
    } else if (S_ISREG(status.st_mode)) {
      Judge(work, fd, status, path);
    }
    // The file was only read: nothing is lost whatever close says.
    static_cast<void>(close(fd));
  }

  void Judge(const Work& work, int fd, const struct stat& status, const std::string& path) {
    const FileVerdict verdict = engine_.Scan(fd, path.c_str());
    std::lock_guard lock(reportMutex_);
    switch (verdict.verdict) {
      case Verdict::kSkippedDump:
        ++totals_.skippedDumps;
        return;
      case Verdict::kError: {
        // The engine's line names the file first; the sink is given it apart.
        const std::string prefix = path + ": ";
        ++totals_.errors;
        sink_.NotAccessible(path, verdict.error.starts_with(prefix)
                                      ? verdict.error.substr(prefix.size())
                                      : verdict.error);
        return;
      }
      case Verdict::kClean:
      case Verdict::kInfected:
        break;
    }
    ++totals_.files;
    totals_.bytes += static_cast<std::uint64_t>(status.st_size);
    if (verdict.verdict != Verdict::kInfected) return;
    ++totals_.infected;
    std::string action = Act(work, fd, status, path, verdict.signature);
    sink_.Detected(Detection{path, verdict.signature, std::move(action)});
  }

  // Carries out the scan's action on the infected file open at `fd`; what
  // was done, for the report. Called with reportMutex_ held.
  std::string Act(const Work& work, int fd, const struct stat& status, const std::string& path,
                  const std::string& signature) {
    const std::int16_t action = request_.action;
    if (action == ACTION_DELETE) {
      const std::string failure = Remove(work, status);
      if (!failure.empty()) return "not deleted: " + failure;
      ++totals_.actions;
      return "deleted";
    }
    if (action != ACTION_REPAIR_ONLY && action != ACTION_REPAIR_DELETE) return "reported";
    // The engine repairs nothing: the file goes to the quarantine instead.
    const std::string id = sink_.Quarantine(fd, status, path, signature);
    if (id.empty() && action == ACTION_REPAIR_ONLY) return "not quarantined";
    const std::string failure = Remove(work, status);
    if (id.empty()) {
      if (!failure.empty()) return "not deleted: " + failure;
      ++totals_.actions;
      return "deleted (it could not be quarantined)";
    }
    if (!failure.empty()) {
      sink_.DropQuarantined(id);
      return "not quarantined: " + failure;
    }
    ++totals_.actions;
    return "quarantined as " + id + " (it cannot be repaired)";
  }

  // Removes the scanned file, provided its name still leads to it; "" when
  // done, else why not.
  static std::string Remove(const Work& work, const struct stat& scanned) {
    const int directory = work.directory->fd;
    struct stat now;
    if (fstatat(directory, work.name.c_str(), &now, AT_SYMLINK_NOFOLLOW) != 0) {
      return ErrnoText(errno);
    }
    if (now.st_dev != scanned.st_dev || now.st_ino != scanned.st_ino) return "the file changed";
    if (unlinkat(directory, work.name.c_str(), 0) != 0) return ErrnoText(errno);
    return "";
  }

  void Unreachable(const std::string& path, const std::string& reason) {
    std::lock_guard lock(reportMutex_);
    ++totals_.errors;
    sink_.NotAccessible(path, reason);
  }

  // From the walk's thread only.
  void MaybeProgress(const std::string& directory) {
    const Clock::time_point now = Clock::now();
    if (now - lastProgress_ < kProgressEvery) return;
    lastProgress_ = now;
    std::lock_guard lock(reportMutex_);
    sink_.Progress(totals_, directory);
  }

  // Lets the scanning threads finish the queue, and waits for them.
  void Finish() {
    {
      std::lock_guard lock(queueMutex_);
      walked_ = true;
    }
    queued_.notify_all();
    for (std::thread& worker : workers_) {
      if (worker.joinable()) worker.join();
    }
  }

  const TreeScanRequest& request_;
  const ScanEngine& engine_;
  TreeScanSink& sink_;
  const std::atomic<bool>& stop_;
  const std::size_t capacity_;
  std::vector<std::thread> workers_;
  Clock::time_point lastProgress_ = Clock::now();

  std::mutex queueMutex_;  // guards queue_ and walked_
  std::condition_variable queued_;
  std::condition_variable taken_;
  std::deque<Work> queue_;
  bool walked_ = false;

  std::mutex reportMutex_;  // guards totals_ and every call of sink_
  TreeScanTotals totals_;
};

}  // namespace

TreeScanTotals ScanTrees(const TreeScanRequest& request, const ScanEngine& engine,
                         TreeScanSink& sink, const std::atomic<bool>& stop) {
  return TreeScan(request, engine, sink, stop).Run();
}

}  // namespace service
