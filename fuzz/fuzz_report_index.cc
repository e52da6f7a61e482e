// The report index routines on an index file of arbitrary bytes: the whole
// list read with and without an owner filter, the streaming reader of view
// reports (each entry, and each entry read again by its number), every string
// field bounded by its width, and both rewrites, read back.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "reports/report_index.h"
#include "taskstore/result_codes.h"

namespace {

bool SameEntry(const tagSCAN_REPORT_ENTRY& a, const tagSCAN_REPORT_ENTRY& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

bool SameList(const ReportList& a, const ReportList& b) {
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
ReportList EntriesOf(const std::uint8_t* data, std::size_t size) {
  ReportList entries;
  for (std::size_t at = REPORT_ENTRIES_OFFSET; at + REPORT_ENTRY_SIZE <= size;
       at += REPORT_ENTRY_SIZE) {
    tagSCAN_REPORT_ENTRY entry;
    std::memcpy(&entry, data + at, sizeof entry);
    entries.push_back(entry);
  }
  return entries;
}

ReportList ReadBack(const std::string& path) {
  ReportList list;
  std::uint32_t code = SCHSCAN_OK;
  fuzz::Require(ReadReportIndexAt(path.c_str(), list, 0, &code), "a rewritten index is unreadable");
  return list;
}

void CheckRewrittenLayout(const std::string& path, std::size_t entries) {
  const std::string bytes = [&] {
    std::string contents;
    if (FILE* file = std::fopen(path.c_str(), "rb")) {
      char chunk[4096];
      std::size_t n;
      while ((n = std::fread(chunk, 1, sizeof chunk, file)) > 0) contents.append(chunk, n);
      std::fclose(file);
    }
    return contents;
  }();
  fuzz::Require(bytes.size() == REPORT_ENTRIES_OFFSET + entries * REPORT_ENTRY_SIZE,
                "a rewritten index has the wrong size");
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(bytes[i]); };
  std::uint32_t count = 0;
  for (int i = 3; i >= 0; --i) count = (count << 8) | byte(REPORT_HEADER_OFFSET + i);
  fuzz::Require(count == entries, "a rewritten index counts the wrong number of entries");
  for (std::size_t i = 0; i < REPORT_HEADER_OFFSET; ++i) {
    fuzz::Require(byte(i) == 0, "a rewritten index wrote its reserved bytes");
  }
  for (std::size_t i = REPORT_HEADER_OFFSET + 4; i < REPORT_ENTRIES_OFFSET; ++i) {
    fuzz::Require(byte(i) == 0, "a rewritten index has a nonzero reserved header byte");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string path = fuzz::ScratchDir() + "/schdmain.rpt";
  fuzz::WriteFileOrDie(path, data, size);
  const ReportList expected = EntriesOf(data, size);

  ReportList all;
  std::uint32_t code = SCHSCAN_OK;
  const bool read = ReadReportIndexAt(path.c_str(), all, 0, &code);
  if (size < REPORT_ENTRIES_OFFSET) {
    fuzz::Require(!read && code == SCHSCAN_ERR_LIST_READ, "a short index was not refused");
    return 0;
  }
  fuzz::Require(read && code == SCHSCAN_OK, "a readable index was refused");
  fuzz::Require(SameList(all, expected), "the list is not the file's whole entries");
  for (const tagSCAN_REPORT_ENTRY& entry : all) {
    CheckField(entry.szDateTime);
    CheckField(entry.szScanName);
    CheckField(entry.szReportPath);
  }

  // An owner filter keeps exactly that owner's entries, in order.
  const std::uint32_t owner = all.empty() ? 1000 : all.back().dwUserId;
  ReportList owned;
  fuzz::Require(ReadReportIndexAt(path.c_str(), owned, owner, &code), "a filtered read failed");
  ReportList expectedOwned;
  for (const tagSCAN_REPORT_ENTRY& entry : expected) {
    if (owner == 0 || entry.dwUserId == owner) expectedOwned.push_back(entry);
  }
  fuzz::Require(SameList(owned, expectedOwned), "the owner filter kept the wrong entries");

  // The streaming reader: the same entries, numbered, each readable again.
  {
    ReportIndexReader reader;
    fuzz::Require(reader.Open(path.c_str(), &code), "the streaming reader refused the index");
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

  // The delete-reports rewrite without every other entry keeps the rest.
  ReportEntryRefs deleted;
  for (std::size_t i = 0; i < all.size(); i += 2) deleted.push_back(&all[i]);
  ReportList remaining;
  {
    std::vector<bool> taken(deleted.size(), false);
    for (const tagSCAN_REPORT_ENTRY& entry : expected) {
      bool drop = false;
      for (std::size_t j = 0; j < deleted.size() && !drop; ++j) {
        if (!taken[j] && SameEntry(*deleted[j], entry)) taken[j] = drop = true;
      }
      if (!drop) remaining.push_back(entry);
    }
  }
  fuzz::Require(WriteReportIndexWithoutAt(path.c_str(), deleted, &code),
                "the rewrite without deleted entries failed");
  CheckRewrittenLayout(path, remaining.size());
  fuzz::Require(SameList(ReadBack(path), remaining), "the rewrite kept the wrong entries");

  // The plain rewrite writes the list back as it was read.
  fuzz::Require(WriteReportIndexAt(path.c_str(), all, &code), "the rewrite failed");
  CheckRewrittenLayout(path, all.size());
  fuzz::Require(SameList(ReadBack(path), all), "the rewrite changed the entries");
  return 0;
}
