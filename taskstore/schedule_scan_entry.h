// The scheduled scan record exchanged with the task store, byte for byte:
// 325 bytes packed, the directory list as three 8-byte pointers at offset 297.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

inline constexpr std::size_t MAX_SCAN_ITEMS = 100;
inline constexpr std::size_t SCAN_ITEM_SIZE = 1024;
inline constexpr std::size_t SCAN_NAME_SIZE = 256;

enum : std::uint8_t { FREQ_DAILY = 0, FREQ_WEEKLY = 1 };
enum : std::uint8_t { REPEAT_UNIT_HOURS = 0, REPEAT_UNIT_MINUTES = 1 };
enum : std::int16_t {
  ACTION_REPAIR_ONLY = 0,
  ACTION_REPAIR_DELETE = 1,
  ACTION_DELETE = 2,
  ACTION_REPORT_ONLY = 3,
};
enum : std::uint8_t {
  SCAN_OPT_ARCHIVE = 0x01,
  SCAN_OPT_SPYWARE = 0x02,
  SCAN_OPT_DUMP = 0x04,
  SCAN_OPT_PACKED = 0x08,
};

// Indexed by byWeekDay - 1; printed unchanged, never looked up.
inline constexpr const char* kWeekDayNames[7] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                 "Thursday", "Friday", "Saturday"};

// Returns the weekday word for 1 (Sunday) to 7 (Saturday), else nullptr.
const char* WeekDayName(int weekDay);

struct tagSCAN_ITEM {
  char szPath[SCAN_ITEM_SIZE];
};

// A growable array of tagSCAN_ITEM in the three-pointer layout (first, last,
// end of storage) of the standard library's vector. It sits at an odd offset
// in a packed record, so the pointers are kept as bytes and copied in and out
// rather than read in place.
class ScanItemList {
 public:
  ScanItemList() noexcept;
  ScanItemList(const ScanItemList& other);
  ScanItemList(ScanItemList&& other) noexcept;
  ScanItemList& operator=(const ScanItemList& other);
  ScanItemList& operator=(ScanItemList&& other) noexcept;
  ~ScanItemList();

  std::size_t size() const;
  bool empty() const { return size() == 0; }
  // The NUL-terminated path of the item at `index` (counted from 0).
  const char* PathAt(std::size_t index) const;
  // Appends a copy of a whole 1024-byte item.
  void Append(const tagSCAN_ITEM& item);
  // Appends `path` as an item whose bytes after the NUL are zero; the path
  // must be shorter than SCAN_ITEM_SIZE.
  void AppendPath(const char* path);
  void Clear();
  // Removes the item at `index`; later items move down by one.
  void RemoveAt(std::size_t index);

 private:
  tagSCAN_ITEM* First() const;
  tagSCAN_ITEM* Last() const;
  tagSCAN_ITEM* EndOfStorage() const;
  void Set(tagSCAN_ITEM* first, tagSCAN_ITEM* last, tagSCAN_ITEM* endOfStorage);
  void Release();

  unsigned char first_[8];
  unsigned char last_[8];
  unsigned char endOfStorage_[8];
};

#pragma pack(push, 1)
struct tagSCHEDULE_SCAN_ENTRY {
  char szScanName[SCAN_NAME_SIZE];
  std::uint8_t byFrequency;
  std::uint8_t bFirstBootScan;
  std::int16_t nHour;
  std::int16_t nMinute;
  std::int16_t nSecond;
  std::uint8_t bRepeatScan;
  std::int16_t nRecurEvery;
  std::int16_t nRepeatInterval;
  std::uint8_t byRepeatUnit;
  std::uint8_t byWeekDay;
  std::uint8_t abyReserved1[2];
  std::int16_t nScanAction;
  std::uint8_t byScanOptions;
  std::uint8_t abyReserved2[21];
  ScanItemList vecScanItems;
  std::uint32_t dwUserId;
};
#pragma pack(pop)

static_assert(sizeof(void*) == 8, "the record layout assumes 8-byte pointers");
static_assert(sizeof(tagSCAN_ITEM) == 1024);
static_assert(sizeof(ScanItemList) == 24 && alignof(ScanItemList) == 1);
static_assert(sizeof(tagSCHEDULE_SCAN_ENTRY) == 325);
static_assert(offsetof(tagSCHEDULE_SCAN_ENTRY, byFrequency) == 256);
static_assert(offsetof(tagSCHEDULE_SCAN_ENTRY, bFirstBootScan) == 257);
static_assert(offsetof(tagSCHEDULE_SCAN_ENTRY, nHour) == 258);
static_assert(offsetof(tagSCHEDULE_SCAN_ENTRY, nMinute) == 260);
static_assert(offsetof(tagSCHEDULE_SCAN_ENTRY, nSecond) == 262);
static_assert(offsetof(tagSCHEDULE_SCAN_ENTRY, bRepeatScan) == 264);
static_assert(offsetof(tagSCHEDULE_SCAN_ENTRY, nRecurEvery) == 265);
static_assert(offsetof(tagSCHEDULE_SCAN_ENTRY, nRepeatInterval) == 267);
static_assert(offsetof(tagSCHEDULE_SCAN_ENTRY, byRepeatUnit) == 269);
static_assert(offsetof(tagSCHEDULE_SCAN_ENTRY, byWeekDay) == 270);
static_assert(offsetof(tagSCHEDULE_SCAN_ENTRY, abyReserved1) == 271);
static_assert(offsetof(tagSCHEDULE_SCAN_ENTRY, nScanAction) == 273);
static_assert(offsetof(tagSCHEDULE_SCAN_ENTRY, byScanOptions) == 275);
static_assert(offsetof(tagSCHEDULE_SCAN_ENTRY, abyReserved2) == 276);
static_assert(offsetof(tagSCHEDULE_SCAN_ENTRY, vecScanItems) == 297);
static_assert(offsetof(tagSCHEDULE_SCAN_ENTRY, dwUserId) == 321);

// Prepares a new record: name, schedule block, scanner settings block and
// reserved bytes zero, item list empty. The owner is left to the caller.
void PrepareNewScheduleScanEntry(tagSCHEDULE_SCAN_ENTRY* entry);

// Records back to back at a stride of 325 bytes, as the store fills them.
using ScheduleScanList = std::vector<tagSCHEDULE_SCAN_ENTRY>;
