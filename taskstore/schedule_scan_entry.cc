#include "taskstore/schedule_scan_entry.h"

#include <cstring>
#include <new>
#include <utility>

const char* WeekDayName(int weekDay) {
  return (weekDay >= 1 && weekDay <= 7) ? kWeekDayNames[weekDay - 1] : nullptr;
}

namespace {

tagSCAN_ITEM* LoadPointer(const unsigned char (&bytes)[8]) {
  tagSCAN_ITEM* pointer;
  std::memcpy(&pointer, bytes, sizeof bytes);
  return pointer;
}

void StorePointer(unsigned char (&bytes)[8], tagSCAN_ITEM* pointer) {
  std::memcpy(bytes, &pointer, sizeof bytes);
}

tagSCAN_ITEM* Allocate(std::size_t count) {
  return static_cast<tagSCAN_ITEM*>(::operator new(count * sizeof(tagSCAN_ITEM)));
}

}  // namespace

ScanItemList::ScanItemList() noexcept { Set(nullptr, nullptr, nullptr); }

ScanItemList::ScanItemList(const ScanItemList& other) {
  Set(nullptr, nullptr, nullptr);
  const std::size_t count = other.size();
  if (count == 0) return;
  tagSCAN_ITEM* first = Allocate(count);
  std::memcpy(static_cast<void*>(first), other.First(), count * sizeof(tagSCAN_ITEM));
  Set(first, first + count, first + count);
}

ScanItemList::ScanItemList(ScanItemList&& other) noexcept {
  std::memcpy(first_, other.first_, sizeof first_);
  std::memcpy(last_, other.last_, sizeof last_);
  std::memcpy(endOfStorage_, other.endOfStorage_, sizeof endOfStorage_);
  other.Set(nullptr, nullptr, nullptr);
}

ScanItemList& ScanItemList::operator=(const ScanItemList& other) {
  if (this != &other) {
    ScanItemList copy(other);
    *this = std::move(copy);
  }
  return *this;
}

ScanItemList& ScanItemList::operator=(ScanItemList&& other) noexcept {
  if (this != &other) {
    Release();
    std::memcpy(first_, other.first_, sizeof first_);
    std::memcpy(last_, other.last_, sizeof last_);
    std::memcpy(endOfStorage_, other.endOfStorage_, sizeof endOfStorage_);
    other.Set(nullptr, nullptr, nullptr);
  }
  return *this;
}

ScanItemList::~ScanItemList() { Release(); }

tagSCAN_ITEM* ScanItemList::First() const { return LoadPointer(first_); }
tagSCAN_ITEM* ScanItemList::Last() const { return LoadPointer(last_); }
tagSCAN_ITEM* ScanItemList::EndOfStorage() const { return LoadPointer(endOfStorage_); }

void ScanItemList::Set(tagSCAN_ITEM* first, tagSCAN_ITEM* last, tagSCAN_ITEM* endOfStorage) {
  StorePointer(first_, first);
  StorePointer(last_, last);
  StorePointer(endOfStorage_, endOfStorage);
}

void ScanItemList::Release() {
  ::operator delete(First());
  Set(nullptr, nullptr, nullptr);
}

std::size_t ScanItemList::size() const {
  return First() == nullptr ? 0 : static_cast<std::size_t>(Last() - First());
}

const char* ScanItemList::PathAt(std::size_t index) const { return First()[index].szPath; }

void ScanItemList::Append(const tagSCAN_ITEM& item) {
  const std::size_t count = size();
  if (Last() == EndOfStorage()) {
    const std::size_t capacity = count == 0 ? 4 : count * 2;
    tagSCAN_ITEM* first = Allocate(capacity);
    if (count > 0) std::memcpy(static_cast<void*>(first), First(), count * sizeof(tagSCAN_ITEM));
    ::operator delete(First());
    Set(first, first + count, first + capacity);
  }
  std::memcpy(static_cast<void*>(Last()), &item, sizeof item);
  StorePointer(last_, Last() + 1);
}

void ScanItemList::AppendPath(const char* path) {
  tagSCAN_ITEM item{};
  std::memcpy(item.szPath, path, strnlen(path, sizeof item.szPath - 1));
  Append(item);
}

void ScanItemList::Clear() {
  if (First() != nullptr) StorePointer(last_, First());
}

void ScanItemList::RemoveAt(std::size_t index) {
  tagSCAN_ITEM* first = First();
  const std::size_t count = size();
  std::memmove(static_cast<void*>(first + index), first + index + 1,
               (count - index - 1) * sizeof(tagSCAN_ITEM));
  StorePointer(last_, Last() - 1);
}

void PrepareNewScheduleScanEntry(tagSCHEDULE_SCAN_ENTRY* entry) {
  unsigned char* bytes = reinterpret_cast<unsigned char*>(entry);
  std::memset(bytes, 0, SCAN_NAME_SIZE);
  std::memset(bytes + offsetof(tagSCHEDULE_SCAN_ENTRY, byFrequency), 0, 273 - 256);  // schedule
  std::memset(bytes + offsetof(tagSCHEDULE_SCAN_ENTRY, nScanAction), 0, 276 - 273);  // scanner
  std::memset(bytes + offsetof(tagSCHEDULE_SCAN_ENTRY, abyReserved2), 0, 21);
  entry->vecScanItems.Clear();
}
