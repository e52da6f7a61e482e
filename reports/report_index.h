// The report index: the binary file in which the scan service records each
// report it writes, and which this tool reads, and rewrites after deleting
// reports. Layout, integers little-endian:
//   bytes 0-7     reserved; never written, so a hole that reads as zeros
//   bytes 8-18    tagSCAN_REPORT_HEADER
//   bytes 19-     tagSCAN_REPORT_ENTRY, 1316 bytes each, in append order
// The file is world-writable, so every entry is untrusted: its strings need
// not hold a NUL and are bounded by their field widths wherever they are used.
#pragma once

#include <bit>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <vector>

inline constexpr std::size_t REPORT_HEADER_OFFSET = 8;
inline constexpr std::size_t REPORT_HEADER_SIZE = 11;
inline constexpr std::size_t REPORT_ENTRIES_OFFSET = REPORT_HEADER_OFFSET + REPORT_HEADER_SIZE;
inline constexpr std::size_t REPORT_ENTRY_SIZE = 1316;
inline constexpr std::size_t REPORT_DATE_TIME_SIZE = 32;
inline constexpr std::size_t REPORT_SCAN_NAME_SIZE = 256;
inline constexpr std::size_t REPORT_PATH_SIZE = 1024;

#pragma pack(push, 1)
struct tagSCAN_REPORT_HEADER {
  std::uint32_t dwReportCount;  // entries as last written; no reader relies on it
  std::uint8_t abyReserved[7];
};
#pragma pack(pop)

// Copied whole between the file and memory.
struct tagSCAN_REPORT_ENTRY {
  char szDateTime[REPORT_DATE_TIME_SIZE];
  char szScanName[REPORT_SCAN_NAME_SIZE];
  char szReportPath[REPORT_PATH_SIZE];
  std::uint32_t dwUserId;
};

static_assert(sizeof(tagSCAN_REPORT_HEADER) == REPORT_HEADER_SIZE);
static_assert(sizeof(tagSCAN_REPORT_ENTRY) == REPORT_ENTRY_SIZE);
static_assert(offsetof(tagSCAN_REPORT_ENTRY, szScanName) == 32);
static_assert(offsetof(tagSCAN_REPORT_ENTRY, szReportPath) == 288);
static_assert(offsetof(tagSCAN_REPORT_ENTRY, dwUserId) == 1312);
static_assert(std::endian::native == std::endian::little,
              "entries are copied whole between the file and memory");

// A NUL-terminated copy of a string field, cut at the field's width when the
// field holds no NUL: the way every entry string is printed or compared.
template <std::size_t N>
class FieldText {
 public:
  explicit FieldText(const char (&field)[N]) : size_(strnlen(field, N)) {
    std::memcpy(text_, field, size_);
    text_[size_] = '\0';
  }
  const char* c_str() const { return text_; }
  std::size_t size() const { return size_; }

 private:
  std::size_t size_;
  char text_[N + 1];
};

// The entries of the index in file order, as ReadReportIndex found them. A
// command takes entries out by their position, which does not move; the
// rewrite then removes exactly those entries from the index as it stands
// under its lock, so that what the scan service appended since the read is
// kept.
class ReportList {
 public:
  std::size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }
  const tagSCAN_REPORT_ENTRY& operator[](std::size_t index) const { return entries_[index]; }
  void Append(const tagSCAN_REPORT_ENTRY& entry) { entries_.push_back(entry); }
  void Reserve(std::size_t count) { entries_.reserve(count); }
  void TakeOut(std::size_t index) { takenOut_.push_back(index); }
  // Positions of the entries taken out, in the order they were taken out.
  const std::vector<std::size_t>& TakenOut() const { return takenOut_; }

 private:
  std::vector<tagSCAN_REPORT_ENTRY> entries_;
  std::vector<std::size_t> takenOut_;
};

// Appends to `reportList`, in file order, every whole entry of the index
// whose owner is `ownerFilter` (0: every entry). False with 1001 when the
// index does not exist, 1002 when it cannot be opened, 1004 when it cannot be
// positioned, 1005 when its header is short or the list cannot be held. A
// read error part-way ends the list where it stands, like the end of file.
bool ReadReportIndex(ReportList& reportList, std::uint32_t ownerFilter,
                     std::uint32_t* resultCode);

// Rewrites the index under its whole-file write lock: the index as it then
// stands less one copy of each entry taken out of `reportList` (compared as
// whole entries), with a header that counts what is left. The new index
// replaces the old by a rename, so that readers see one or the other. False
// with 1002 when the index cannot be opened, with 0 for any other failure;
// the old index is then left as it was.
bool WriteReportIndex(const ReportList& reportList, std::uint32_t* resultCode);

// How an update of the index with a bounded wait for its lock ended.
enum class IndexUpdate { kDone, kLockBusy, kFailed };

// The rewrite above for a caller that must not wait on the lock without
// limit: kLockBusy when another process held it for all of `lockWait`.
IndexUpdate WriteReportIndex(const ReportList& reportList, std::chrono::milliseconds lockWait);

// Adds `entry` after the last whole entry of the index, under the same
// whole-file lock as the rewrite (waiting at most `lockWait` for it), and
// counts it in the header; the index is created when missing. An entry
// appended without the lock could be lost to a rewrite that renames its new
// index in meanwhile.
IndexUpdate AppendReportIndexEntry(const tagSCAN_REPORT_ENTRY& entry,
                                   std::chrono::milliseconds lockWait);

// One read of an index, for a caller that streams the entries instead of
// holding them all: each whole entry is handed out in file order with its
// number in the file (0 for the first), and can be read again by that number
// for as long as the reader lives, since the open file keeps its entries
// whatever rewrite renames a new index in meanwhile.
class ReportIndexReader {
 public:
  ReportIndexReader() = default;
  ReportIndexReader(const ReportIndexReader&) = delete;
  ReportIndexReader& operator=(const ReportIndexReader&) = delete;
  ~ReportIndexReader();

  // Opens the index and reads past its header; false with the result codes
  // of ReadReportIndex.
  bool Open(std::uint32_t* resultCode);
  // Calls `take` for each whole entry whose owner is `ownerFilter` (0: every
  // entry), up to the end of the file or a read error.
  using TakeEntry = std::function<void(const tagSCAN_REPORT_ENTRY& entry, std::uint64_t number)>;
  void ForEach(std::uint32_t ownerFilter, const TakeEntry& take);
  // Reads entry `number` of the opened file again; false if it is not whole
  // there any more (someone shortened the file).
  bool ReadAgain(std::uint64_t number, tagSCAN_REPORT_ENTRY* entry) const;
  // The number of whole entries the file held when it was opened.
  std::uint64_t EntriesAtOpen() const { return entriesAtOpen_; }

 private:
  int fd_ = -1;
  std::uint64_t entriesAtOpen_ = 0;
};

// The whole-file write lock of a rewrite: waits until granted. Returns the
// result of the lock call (0 or -1); a descriptor that is not positive is
// refused with -1.
int LockReportIndex(int fileDescriptor);
int UnlockReportIndex(int fileDescriptor);
