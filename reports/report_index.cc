#include "reports/report_index.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>

#include "product_paths.h"
#include "taskstore/result_codes.h"

namespace {

std::string_view BytesOf(const tagSCAN_REPORT_ENTRY& entry) {
  return {reinterpret_cast<const char*>(&entry), sizeof entry};
}

// Entries are read and written in chunks of this many.
constexpr std::size_t kChunkEntries = 64;
// The list is reserved from the file's size up to this many entries, so that
// a sparse file claiming a huge size cannot make the reservation fail.
constexpr std::size_t kMaxReservedEntries = std::size_t{1} << 20;
// Rounds of taking in entries that the scan service appends while a rewrite
// copies the index.
constexpr int kMaxCatchUpRounds = 100;
constexpr mode_t kNewIndexMode = 0666;  // what the scan service sets

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() {
    if (fd_ >= 0) close(fd_);
  }
  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  int release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }

 private:
  int fd_;
};

// Reads until `size` bytes came or the file ended; -1 on a read error.
ssize_t ReadFully(int fd, void* buffer, std::size_t size, off_t offset = -1) {
  std::size_t done = 0;
  while (done < size) {
    char* to = static_cast<char*>(buffer) + done;
    const ssize_t n = offset < 0 ? read(fd, to, size - done)
                                 : pread(fd, to, size - done, offset + static_cast<off_t>(done));
    if (n < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    if (n == 0) break;
    done += static_cast<std::size_t>(n);
  }
  return static_cast<ssize_t>(done);
}

bool WriteFully(int fd, const void* buffer, std::size_t size, off_t offset) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t n = pwrite(fd, static_cast<const char*>(buffer) + done, size - done,
                             offset + static_cast<off_t>(done));
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (n == 0) return false;
    done += static_cast<std::size_t>(n);
  }
  return true;
}

// Hands every whole entry from `*offset` to the end of the file to `take`
// and moves `*offset` past them; a trailing incomplete entry stays unread.
// False on a read error.
template <typename Take>
bool ForEachEntry(int fd, off_t* offset, Take&& take) {
  const auto chunk = std::make_unique<tagSCAN_REPORT_ENTRY[]>(kChunkEntries);
  const std::size_t chunkBytes = kChunkEntries * REPORT_ENTRY_SIZE;
  for (;;) {
    const ssize_t got = ReadFully(fd, chunk.get(), chunkBytes, *offset);
    if (got < 0) return false;
    const std::size_t whole = static_cast<std::size_t>(got) / REPORT_ENTRY_SIZE;
    for (std::size_t i = 0; i < whole; ++i) take(chunk[i]);
    *offset += static_cast<off_t>(whole * REPORT_ENTRY_SIZE);
    if (static_cast<std::size_t>(got) < chunkBytes) return true;
  }
}

// Writes the header: `count` entries, the reserved bytes zero.
bool WriteCount(int fd, std::uint32_t count) {
  unsigned char header[REPORT_HEADER_SIZE] = {};
  for (int i = 0; i < 4; ++i) header[i] = static_cast<unsigned char>(count >> (8 * i));
  return WriteFully(fd, header, sizeof header, REPORT_HEADER_OFFSET);
}

// Writes entries from offset 19 on, a chunk at a time, and the header last.
class EntryWriter {
 public:
  explicit EntryWriter(int fd)
      : fd_(fd), chunk_(std::make_unique<tagSCAN_REPORT_ENTRY[]>(kChunkEntries)) {}

  bool Add(const tagSCAN_REPORT_ENTRY& entry) {
    chunk_[pending_++] = entry;
    ++count_;
    return pending_ < kChunkEntries || Flush();
  }

  // Writes what is pending, then the header; bytes 0 to 7 stay a hole.
  bool Finish() { return Flush() && WriteCount(fd_, count_); }

  // Where the entries written so far end, once finished.
  off_t End() const { return offset_; }
  std::uint32_t Count() const { return count_; }

 private:
  bool Flush() {
    const std::size_t bytes = pending_ * REPORT_ENTRY_SIZE;
    if (bytes > 0 && !WriteFully(fd_, chunk_.get(), bytes, offset_)) return false;
    offset_ += static_cast<off_t>(bytes);
    pending_ = 0;
    return true;
  }

  int fd_;
  std::unique_ptr<tagSCAN_REPORT_ENTRY[]> chunk_;
  std::size_t pending_ = 0;
  std::uint32_t count_ = 0;
  off_t offset_ = REPORT_ENTRIES_OFFSET;
};

// Temporary indexes are ".schdmain.rpt." and six random characters.
std::string TemporaryPrefix() { return std::string(".") + kReportIndexName + "."; }

// The new index, written beside the old one and renamed over it; removed
// again unless it was renamed.
class TemporaryIndex {
 public:
  TemporaryIndex()
      : path_(std::string(kReportsDir) + "/" + TemporaryPrefix() + "XXXXXX"),
        fd_(mkostemp(path_.data(), O_CLOEXEC)),
        error_(fd_.valid() ? 0 : errno) {}
  TemporaryIndex(const TemporaryIndex&) = delete;
  TemporaryIndex& operator=(const TemporaryIndex&) = delete;
  ~TemporaryIndex() {
    if (fd_.valid() && !renamed_) unlink(path_.c_str());
  }
  int fd() const { return fd_.get(); }
  bool valid() const { return fd_.valid(); }
  // Why it could not be created.
  int error() const { return error_; }
  bool RenameOverIndex() {
    renamed_ = rename(path_.c_str(), kReportIndexPath) == 0;
    return renamed_;
  }

 private:
  std::string path_;
  FileDescriptor fd_;
  int error_;
  bool renamed_ = false;
};

// Makes the index exist: created as the scan service would leave it. Asked
// by opening, with the effective ids, as every later step is: an installed
// tool reaches the reports directory through its group, which access() and
// its real ids would not count.
bool CreateIndexIfMissing() {
  FileDescriptor created(
      open(kReportIndexPath, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, kNewIndexMode));
  if (!created.valid()) return errno == EEXIST;  // another process was first
  return fchmod(created.get(), kNewIndexMode) == 0;
}

// How long a rewrite or an append waits for the whole-file lock: for ever
// (the tool, whose user can interrupt it) or up to a bound (the service,
// which a user who stops her own rewrite must not hold up).
struct LockWait {
  bool bounded = false;
  std::chrono::milliseconds limit{0};
};

// Interval at which a bounded wait asks for the lock again.
constexpr std::chrono::milliseconds kLockPollInterval{5};

enum class LockOutcome { kGranted, kBusy, kRefused };

// Takes the whole-file write lock on `fd` as `wait` allows. A lock refused
// for any reason but another holder (a file system without locks) is
// kRefused: callers go on without it, as the tool always has.
LockOutcome TakeLock(int fd, LockWait wait) {
  if (!wait.bounded) return LockReportIndex(fd) == 0 ? LockOutcome::kGranted : LockOutcome::kRefused;
  const auto deadline = std::chrono::steady_clock::now() + wait.limit;
  for (;;) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (fcntl(fd, F_SETLK, &lock) == 0) return LockOutcome::kGranted;
    if (errno != EAGAIN && errno != EACCES && errno != EINTR) return LockOutcome::kRefused;
    if (std::chrono::steady_clock::now() >= deadline) return LockOutcome::kBusy;
    std::this_thread::sleep_for(kLockPollInterval);
  }
}

// Opens and locks the file that the index path names once the lock is granted:
// a rewriter that held the lock before may have renamed a new index in.
// Returns the descriptor, or -1 with `resultCode` set (SCHSCAN_OK and
// `*busy` when a bounded wait ran out).
int OpenLockedIndex(LockWait wait, struct stat* locked, bool* lockGranted, bool* busy,
                    std::uint32_t* resultCode) {
  *busy = false;
  for (;;) {
    if (!CreateIndexIfMissing()) return -1;
    const int fd = open(kReportIndexPath, O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0) {
      *resultCode = SCHSCAN_ERR_LIST_ACCESS;
      return -1;
    }
    const LockOutcome outcome = TakeLock(fd, wait);
    if (outcome == LockOutcome::kBusy) {
      close(fd);
      *busy = true;
      return -1;
    }
    *lockGranted = outcome == LockOutcome::kGranted;
    struct stat named {};
    if (fstat(fd, locked) != 0 || !S_ISREG(locked->st_mode)) {
      close(fd);
      *resultCode = SCHSCAN_ERR_LIST_ACCESS;
      return -1;
    }
    if (lstat(kReportIndexPath, &named) == 0 && named.st_dev == locked->st_dev &&
        named.st_ino == locked->st_ino)
      return fd;
    close(fd);  // releases the lock on the replaced file
  }
}

// Gives the new index the old one's permission bits and, where the caller
// may, its owner.
bool TakeOverAttributes(int fd, const struct stat& old) {
  if (geteuid() == 0 && fchown(fd, old.st_uid, old.st_gid) != 0) return false;
  return fchmod(fd, old.st_mode & 0777) == 0;
}

// Removes the temporary indexes that killed rewrites left behind. Only the
// holder of the lock writes a temporary index, so while the lock is held
// every other one is stale.
void RemoveStaleTemporaries() {
  const std::string prefix = TemporaryPrefix();
  DIR* directory = opendir(kReportsDir);
  if (directory == nullptr) return;
  while (const dirent* entry = readdir(directory)) {
    const std::string_view name = entry->d_name;
    if (name.size() == prefix.size() + 6 && name.substr(0, prefix.size()) == prefix) {
      unlinkat(dirfd(directory), entry->d_name, 0);  // gone already is as good
    }
  }
  closedir(directory);
}

// Makes the rename itself survive a crash; the new index is in place
// whether or not this succeeds, so its result does not change the outcome.
void SyncReportsDirectory() {
  FileDescriptor dir(open(kReportsDir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (dir.valid() && fsync(dir.get()) != 0) {
    // Nothing to undo: the rename has been made.
  }
}

// Whether an entry of the index stays: each entry taken out of the list
// removes one equal entry, the first met in file order.
class EntryFilter {
 public:
  explicit EntryFilter(const ReportList& list) {
    for (const std::size_t index : list.TakenOut()) ++toRemove_[BytesOf(list[index])];
  }
  bool Keeps(const tagSCAN_REPORT_ENTRY& entry) {
    const auto found = toRemove_.find(BytesOf(entry));
    if (found == toRemove_.end() || found->second == 0) return true;
    --found->second;
    return false;
  }

 private:
  std::unordered_map<std::string_view, std::size_t> toRemove_;
};

// Copies the kept entries of `index` from `*offset` to its end into
// `writer`, and moves `*offset` past them. With `untilStill`, goes on while
// the file grows (entries that others append without the lock), for a
// bounded number of rounds.
bool CopyKeptEntries(int index, off_t* offset, EntryFilter& filter, EntryWriter& writer,
                     bool untilStill) {
  bool writeFailed = false;
  for (int round = 0; round < kMaxCatchUpRounds; ++round) {
    const bool read = ForEachEntry(index, offset, [&](const tagSCAN_REPORT_ENTRY& entry) {
      if (!writeFailed && filter.Keeps(entry)) writeFailed = !writer.Add(entry);
    });
    if (!read || writeFailed) return false;
    struct stat now {};
    if (!untilStill) return true;
    if (fstat(index, &now) != 0) return false;
    if (now.st_size < *offset + static_cast<off_t>(REPORT_ENTRY_SIZE)) return true;
  }
  return true;
}

// Carries what others appended to the replaced index after `*offset` into
// the new one, at its end, for as long as the old file grows. `fresh` is
// the new index, locked, whose header counts `count` entries so far.
bool CarryTail(int old, off_t* offset, EntryFilter& filter, int fresh, std::uint32_t count) {
  std::uint32_t carried = 0;
  bool failed = fcntl(fresh, F_SETFL, O_APPEND) != 0;
  for (int round = 0; round < kMaxCatchUpRounds && !failed; ++round) {
    struct stat now {};
    if (fstat(old, &now) != 0) return false;
    if (now.st_size < *offset + static_cast<off_t>(REPORT_ENTRY_SIZE)) break;
    failed = !ForEachEntry(old, offset, [&](const tagSCAN_REPORT_ENTRY& entry) {
      if (failed || !filter.Keeps(entry)) return;
      failed = write(fresh, &entry, sizeof entry) != static_cast<ssize_t>(sizeof entry);
      ++carried;
    });
  }
  return !failed && fcntl(fresh, F_SETFL, 0) == 0 &&
         (carried == 0 || (WriteCount(fresh, count + carried) && fsync(fresh) == 0));
}

// The rewrite in place, where no new index can take the old one's place:
// the kept entries move down over the ones taken out, and the file is cut
// after them. A kill part-way leaves a partial index.
bool RewriteInPlace(int index, EntryFilter& filter) {
  EntryWriter writer(index);
  off_t offset = REPORT_ENTRIES_OFFSET;
  return CopyKeptEntries(index, &offset, filter, writer, true) && writer.Finish() &&
         ftruncate(index, writer.End()) == 0 && fsync(index) == 0;
}

int SetWholeFileLock(int fileDescriptor, short type) {
  if (fileDescriptor <= 0) return -1;
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = 0;
  lock.l_len = 0;  // the whole file, however far it grows
  lock.l_pid = getpid();
  return fcntl(fileDescriptor, F_SETLKW, &lock);
}

}  // namespace

int LockReportIndex(int fileDescriptor) { return SetWholeFileLock(fileDescriptor, F_WRLCK); }

int UnlockReportIndex(int fileDescriptor) { return SetWholeFileLock(fileDescriptor, F_UNLCK); }

ReportIndexReader::~ReportIndexReader() {
  if (fd_ >= 0) close(fd_);
}

bool ReportIndexReader::Open(std::uint32_t* resultCode) {
  *resultCode = SCHSCAN_OK;
  // Not blocking: a FIFO in the index's place fails at the seek instead.
  // Whether the index exists is asked by opening it with the effective ids,
  // not by access(): the real user of an installed, setgid tool cannot even
  // search the reports directory, and would never find an index there.
  FileDescriptor index(open(kReportIndexPath, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!index.valid()) {
    *resultCode = errno == ENOENT || errno == ENOTDIR ? SCHSCAN_ERR_LIST_NOT_FOUND
                                                      : SCHSCAN_ERR_LIST_ACCESS;
    return false;
  }
  if (lseek(index.get(), REPORT_HEADER_OFFSET, SEEK_SET) < 0) {
    *resultCode = SCHSCAN_ERR_LIST_SEEK;
    return false;
  }
  unsigned char header[REPORT_HEADER_SIZE];
  if (ReadFully(index.get(), header, sizeof header) != static_cast<ssize_t>(sizeof header)) {
    *resultCode = SCHSCAN_ERR_LIST_READ;
    return false;
  }
  struct stat status {};
  if (fstat(index.get(), &status) == 0 && status.st_size > off_t{REPORT_ENTRIES_OFFSET}) {
    entriesAtOpen_ = static_cast<std::uint64_t>(status.st_size - off_t{REPORT_ENTRIES_OFFSET}) /
                     REPORT_ENTRY_SIZE;
  }
  if (fd_ >= 0) close(fd_);
  fd_ = index.release();
  return true;
}

void ReportIndexReader::ForEach(std::uint32_t ownerFilter, const TakeEntry& take) {
  off_t offset = REPORT_ENTRIES_OFFSET;
  std::uint64_t number = 0;
  // A read error ends the entries where they stand, as the end of file does.
  ForEachEntry(fd_, &offset, [&](const tagSCAN_REPORT_ENTRY& entry) {
    if (ownerFilter == 0 || entry.dwUserId == ownerFilter) take(entry, number);
    ++number;
  });
}

bool ReportIndexReader::ReadAgain(std::uint64_t number, tagSCAN_REPORT_ENTRY* entry) const {
  const off_t offset = REPORT_ENTRIES_OFFSET + static_cast<off_t>(number * REPORT_ENTRY_SIZE);
  return ReadFully(fd_, entry, sizeof *entry, offset) == static_cast<ssize_t>(sizeof *entry);
}

bool ReadReportIndex(ReportList& reportList, std::uint32_t ownerFilter,
                     std::uint32_t* resultCode) {
  ReportIndexReader reader;
  if (!reader.Open(resultCode)) return false;
  const std::size_t sizeBefore = reportList.size();
  try {
    reportList.Reserve(sizeBefore +
                       std::min<std::uint64_t>(reader.EntriesAtOpen(), kMaxReservedEntries));
    reader.ForEach(ownerFilter, [&](const tagSCAN_REPORT_ENTRY& entry, std::uint64_t) {
      reportList.Append(entry);
    });
    return true;
  } catch (const std::bad_alloc&) {
    // An index too large to hold is reported like an unreadable one.
  }
  *resultCode = SCHSCAN_ERR_LIST_READ;
  return false;
}

namespace {

bool RewriteIndex(const ReportList& reportList, LockWait wait, bool* busy,
                  std::uint32_t* resultCode) {
  *resultCode = SCHSCAN_OK;
  struct stat old {};
  bool lockGranted = false;
  FileDescriptor index(OpenLockedIndex(wait, &old, &lockGranted, busy, resultCode));
  if (!index.valid()) return false;
  if (lockGranted) RemoveStaleTemporaries();
  // A new index, written beside the old one, locked and renamed over it, so
  // that readers see one or the other; then what was appended to the old
  // file after it was read, up to the rename and beyond, goes into the new.
  bool written = false;
  bool inPlace = false;
  {
    TemporaryIndex temporary;
    inPlace = temporary.error() == EACCES || temporary.error() == EPERM;
    if (temporary.valid() && TakeOverAttributes(temporary.fd(), old)) {
      EntryFilter filter(reportList);
      EntryWriter writer(temporary.fd());
      off_t offset = REPORT_ENTRIES_OFFSET;
      if (CopyKeptEntries(index.get(), &offset, filter, writer, false) && writer.Finish() &&
          fsync(temporary.fd()) == 0) {
        LockReportIndex(temporary.fd());  // as with the old index, a refused lock does not stop
        if (temporary.RenameOverIndex()) {
          SyncReportsDirectory();
          written = CarryTail(index.get(), &offset, filter, temporary.fd(), writer.Count());
          UnlockReportIndex(temporary.fd());
        } else {
          // A directory whose sticky bit keeps us from replacing another
          // user's index.
          inPlace = errno == EACCES || errno == EPERM;
        }
      }
    }
  }
  if (inPlace) {
    EntryFilter filter(reportList);
    written = RewriteInPlace(index.get(), filter);
  }
  UnlockReportIndex(index.get());
  return written;
}

}  // namespace

bool WriteReportIndex(const ReportList& reportList, std::uint32_t* resultCode) {
  bool busy = false;
  return RewriteIndex(reportList, LockWait{}, &busy, resultCode);
}

IndexUpdate WriteReportIndex(const ReportList& reportList, std::chrono::milliseconds lockWait) {
  bool busy = false;
  std::uint32_t code = SCHSCAN_OK;
  if (RewriteIndex(reportList, LockWait{true, lockWait}, &busy, &code)) return IndexUpdate::kDone;
  return busy ? IndexUpdate::kLockBusy : IndexUpdate::kFailed;
}

IndexUpdate AppendReportIndexEntry(const tagSCAN_REPORT_ENTRY& entry,
                                   std::chrono::milliseconds lockWait) {
  struct stat locked {};
  bool lockGranted = false;
  bool busy = false;
  std::uint32_t code = SCHSCAN_OK;
  FileDescriptor index(
      OpenLockedIndex(LockWait{true, lockWait}, &locked, &lockGranted, &busy, &code));
  if (!index.valid()) return busy ? IndexUpdate::kLockBusy : IndexUpdate::kFailed;
  // The entry goes after the last whole one: a torn tail that a killed
  // writer left is overwritten rather than shifting every later entry.
  const std::uint64_t whole =
      locked.st_size > off_t{REPORT_ENTRIES_OFFSET}
          ? static_cast<std::uint64_t>(locked.st_size - off_t{REPORT_ENTRIES_OFFSET}) /
                REPORT_ENTRY_SIZE
          : 0;
  const off_t at = REPORT_ENTRIES_OFFSET + static_cast<off_t>(whole * REPORT_ENTRY_SIZE);
  const std::uint32_t count =
      static_cast<std::uint32_t>(std::min<std::uint64_t>(whole + 1, UINT32_MAX));
  const bool written = WriteFully(index.get(), &entry, sizeof entry, at) &&
                       (locked.st_size <= at + off_t{REPORT_ENTRY_SIZE} ||
                        ftruncate(index.get(), at + off_t{REPORT_ENTRY_SIZE}) == 0) &&
                       WriteCount(index.get(), count) && fsync(index.get()) == 0;
  if (lockGranted) UnlockReportIndex(index.get());
  return written ? IndexUpdate::kDone : IndexUpdate::kFailed;
}
