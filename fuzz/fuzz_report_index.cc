// The report index routines on an index file of arbitrary bytes: the whole
// list read with and without an owner filter, the streaming reader of view
// reports (each entry, and each entry read again by its number), every string
// field bounded by its width, and the rewrite, read back.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "product_paths.h"
#include "reports/report_index.h"
#include "taskstore/result_codes.h"

namespace {

bool SameEntry(const tagSCAN_REPORT_ENTRY& a, const tagSCAN_REPORT_ENTRY& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

using Entries = std::vector<tagSCAN_REPORT_ENTRY>;

bool SameList(const ReportList& a, const Entries& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (!SameEntry(a[i], b[i])) return false;
  }
  return true;
}

template <std::size_t N>
void CheckField(const char (&field)[N]) {
  const FieldText text(field);
  fuzz::Require(text.size() <= N && std::strlen(text.c_str()) == text.size() &&
                    std::memcmp(text.c_str(), field, text.size()) == 0,
                "a string field is not bounded by its width");
}

// The index file's whole entries, as the layout defines them.
Entries EntriesOf(const std::uint8_t* data, std::size_t size) {
  Entries entries;
  for (std::size_t at = REPORT_ENTRIES_OFFSET; at + REPORT_ENTRY_SIZE <= size;
       at += REPORT_ENTRY_SIZE) {
    tagSCAN_REPORT_ENTRY entry;
    std::memcpy(&entry, data + at, sizeof entry);
    entries.push_back(entry);
  }
  return entries;
}

ReportList Read(std::uint32_t owner) {
  ReportList list;
  std::uint32_t code = SCHSCAN_OK;
  fuzz::Require(ReadReportIndex(list, owner, &code) && code == SCHSCAN_OK,
                "a readable index was refused");
  return list;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::SetUpSeededProduct();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::WriteFileOrDie(kReportIndexPath, data, size);
  const Entries expected = EntriesOf(data, size);
  ReportList all;
  std::uint32_t code = SCHSCAN_OK;
  if (size < REPORT_ENTRIES_OFFSET) {
    fuzz::Require(!ReadReportIndex(all, 0, &code) && code == SCHSCAN_ERR_LIST_READ,
                  "a short index was not refused");
    return 0;
  }
  all = Read(0);
  fuzz::Require(SameList(all, expected), "the list is not the file's whole entries");
  for (std::size_t i = 0; i < all.size(); ++i) {
    CheckField(all[i].szDateTime);
    CheckField(all[i].szScanName);
    CheckField(all[i].szReportPath);
  }

  // An owner filter keeps exactly that owner's entries, in order.
  const std::uint32_t owner = expected.empty() ? 1000 : expected.back().dwUserId;
  Entries owned;
  for (const tagSCAN_REPORT_ENTRY& entry : expected) {
    if (owner == 0 || entry.dwUserId == owner) owned.push_back(entry);
  }
  fuzz::Require(SameList(Read(owner), owned), "the owner filter kept the wrong entries");

  // The streaming reader: the same entries, numbered, each readable again.
  {
    ReportIndexReader reader;
    fuzz::Require(reader.Open(&code), "the streaming reader refused the index");
    fuzz::Require(reader.EntriesAtOpen() == expected.size(), "the reader miscounted the entries");
    std::uint64_t next = 0;
    reader.ForEach(owner, [&](const tagSCAN_REPORT_ENTRY& entry, std::uint64_t number) {
      while (next < expected.size() && owner != 0 && expected[next].dwUserId != owner) ++next;
      fuzz::Require(number == next && next < expected.size() && SameEntry(entry, expected[next]),
                    "the reader handed out the wrong entry or number");
      tagSCAN_REPORT_ENTRY again;
      fuzz::Require(reader.ReadAgain(number, &again) && SameEntry(again, entry),
                    "an entry read again differs");
      ++next;
    });
    tagSCAN_REPORT_ENTRY beyond;
    fuzz::Require(!reader.ReadAgain(expected.size(), &beyond), "an entry past the end was read");
  }

  // The rewrite without every other entry keeps the rest, first copies of
  // equal entries going first, under a header that counts them.
  Entries remaining;
  {
    Entries taken;
    for (std::size_t i = 0; i < all.size(); i += 2) {
      all.TakeOut(i);
      taken.push_back(all[i]);
    }
    for (const tagSCAN_REPORT_ENTRY& entry : expected) {
      auto match = std::find_if(taken.begin(), taken.end(),
                                [&](const auto& t) { return SameEntry(t, entry); });
      if (match != taken.end()) {
        taken.erase(match);
      } else {
        remaining.push_back(entry);
      }
    }
  }
  fuzz::Require(WriteReportIndex(all, &code), "the rewrite failed");
  const ReportList back = Read(0);
  fuzz::Require(SameList(back, remaining), "the rewrite kept the wrong entries");
  unsigned char header[REPORT_ENTRIES_OFFSET] = {};
  FILE* file = std::fopen(kReportIndexPath, "rb");
  fuzz::Require(file != nullptr && std::fread(header, 1, sizeof header, file) == sizeof header,
                "the rewritten index has no header");
  std::fclose(file);
  std::uint32_t count = 0;
  for (int i = 3; i >= 0; --i) count = (count << 8) | header[REPORT_HEADER_OFFSET + i];
  fuzz::Require(count == remaining.size(), "the rewritten header counts the wrong number");
  for (std::size_t i = 0; i < sizeof header; ++i) {
    fuzz::Require(header[i] == 0 || (i >= REPORT_HEADER_OFFSET && i < REPORT_HEADER_OFFSET + 4),
                  "the rewritten index has a nonzero reserved byte");
  }
  return 0;
}
