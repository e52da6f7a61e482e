#include "reports/report_index.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
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
  bool Finish() {
    if (!Flush()) return false;
    unsigned char header[REPORT_HEADER_SIZE] = {};
    for (int i = 0; i < 4; ++i) header[i] = static_cast<unsigned char>(count_ >> (8 * i));
    return WriteFully(fd_, header, sizeof header, REPORT_HEADER_OFFSET);
  }

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
        fd_(mkostemp(path_.data(), O_CLOEXEC)) {}
  TemporaryIndex(const TemporaryIndex&) = delete;
  TemporaryIndex& operator=(const TemporaryIndex&) = delete;
  ~TemporaryIndex() {
    if (fd_.valid() && !renamed_) unlink(path_.c_str());
  }
  int fd() const { return fd_.get(); }
  bool valid() const { return fd_.valid(); }
  bool RenameOverIndex() {
    renamed_ = rename(path_.c_str(), kReportIndexPath) == 0;
    return renamed_;
  }

 private:
  std::string path_;
  FileDescriptor fd_;
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

// Opens and locks the file that the index path names once the lock is granted:
// a rewriter that held the lock before may have renamed a new index in.
// Returns the descriptor, or -1 with `resultCode` set.
int OpenLockedIndex(struct stat* locked, bool* lockGranted, std::uint32_t* resultCode) {
  for (;;) {
    if (!CreateIndexIfMissing()) return -1;
    const int fd = open(kReportIndexPath, O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0) {
      *resultCode = SCHSCAN_ERR_LIST_ACCESS;
      return -1;
    }
    *lockGranted = LockReportIndex(fd) == 0;  // a refused lock does not stop the rewrite
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

// The rewrite: under the whole-file write lock of the index, `produce`
// writes the new contents into a temporary file through an EntryWriter (it
// may read the locked index, whose descriptor it gets), and the temporary
// file replaces the index by a rename. Readers see the old or the new index,
// never a part of one.
template <typename Produce>
bool RewriteIndex(std::uint32_t* resultCode, Produce&& produce) {
  *resultCode = SCHSCAN_OK;
  struct stat old {};
  bool lockGranted = false;
  FileDescriptor index(OpenLockedIndex(&old, &lockGranted, resultCode));
  if (!index.valid()) return false;
  if (lockGranted) RemoveStaleTemporaries();
  bool written = false;
  {
    TemporaryIndex temporary;
    if (temporary.valid() && TakeOverAttributes(temporary.fd(), old)) {
      EntryWriter writer(temporary.fd());
      written = produce(index.get(), writer) && writer.Finish() && fsync(temporary.fd()) == 0 &&
                temporary.RenameOverIndex();
    }
  }
  if (written) SyncReportsDirectory();
  UnlockReportIndex(index.get());
  return written;
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

bool WriteReportIndex(const ReportList& reportList, std::uint32_t* resultCode) {
  // How many copies of each entry, by its bytes, are still to be taken out.
  std::unordered_map<std::string_view, std::size_t> takeOut;
  for (const std::size_t index : reportList.TakenOut()) ++takeOut[BytesOf(reportList[index])];
  return RewriteIndex(resultCode, [&](int index, EntryWriter& writer) {
    bool writeFailed = false;
    auto keep = [&](const tagSCAN_REPORT_ENTRY& entry) {
      const auto found = takeOut.find(BytesOf(entry));
      if (found != takeOut.end() && found->second > 0) {
        --found->second;
      } else if (!writeFailed) {
        writeFailed = !writer.Add(entry);
      }
    };
    off_t offset = REPORT_ENTRIES_OFFSET;
    // The scan service appends without the lock; what it appended while the
    // index was being copied is taken in as well, until the file stops
    // growing (or, against an endless stream, for a bounded number of rounds).
    for (int round = 0; round < kMaxCatchUpRounds; ++round) {
      if (!ForEachEntry(index, &offset, keep) || writeFailed) return false;
      struct stat now {};
      if (fstat(index, &now) != 0) return false;
      if (now.st_size < offset + static_cast<off_t>(REPORT_ENTRY_SIZE)) break;
    }
    return true;
  });
}
