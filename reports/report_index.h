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

using ReportList = std::vector<tagSCAN_REPORT_ENTRY>;
// Entries that a command deleted, by address in the list it read.
using ReportEntryRefs = std::vector<const tagSCAN_REPORT_ENTRY*>;

// Appends to `reportList`, in file order, every whole entry of the product's
// index whose owner is `ownerFilter` (0: every entry). False with 1001 when
// the index does not exist, 1002 when it cannot be opened, 1004 when it cannot
// be positioned, 1005 when its header is short or the list cannot be held. A
// read error part-way ends the list where it stands, like the end of file.
bool ReadReportIndex(ReportList& reportList, std::uint32_t ownerFilter,
                     std::uint32_t* resultCode);

// Replaces the product's index with a header counting `reportList` and its
// entries in list order. False with 1002 when the index cannot be opened,
// with 0 for any other failure; the old index is then left as it was.
bool WriteReportIndex(const ReportList& reportList, std::uint32_t* resultCode);

// Rewrites the product's index as it stands once the rewrite lock is held,
// less one copy of each of `deletedEntries` (compared as whole entries), so
// that entries appended after the caller read the index are kept. Result
// codes as WriteReportIndex.
bool WriteReportIndexWithout(const ReportEntryRefs& deletedEntries, std::uint32_t* resultCode);

// The same operations on the index at `indexPath`; a rewrite places its
// temporary file in the directory of `indexPath`.
bool ReadReportIndexAt(const char* indexPath, ReportList& reportList, std::uint32_t ownerFilter,
                       std::uint32_t* resultCode);
bool WriteReportIndexAt(const char* indexPath, const ReportList& reportList,
                        std::uint32_t* resultCode);
bool WriteReportIndexWithoutAt(const char* indexPath, const ReportEntryRefs& deletedEntries,
                               std::uint32_t* resultCode);

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
  bool Open(const char* indexPath, std::uint32_t* resultCode);
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
