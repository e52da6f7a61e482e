// The report index routines on an index file of arbitrary bytes: the whole
// list read with and without an owner filter, the streaming reader of view
// reports (each entry, and each entry read again by its number), and the
// rewrite, read back with its header. The
// seed corpus, replayed in the test build, holds the layout's cases: a short
// file, a header alone, a count that is wrong, a torn last entry, duplicate
// entries, strings without a NUL.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "reports/report_index.h"
#include "taskstore/result_codes.h"

namespace {

using Entries = std::vector<tagSCAN_REPORT_ENTRY>;

bool Same(const tagSCAN_REPORT_ENTRY& a, const tagSCAN_REPORT_ENTRY& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// Reads the index with `owner` as the filter; aborts with `what` unless the
// list is `want`.
void ExpectList(std::uint32_t owner, const Entries& want, const char* what) {
  ReportList list;
  std::uint32_t code = SCHSCAN_OK;
  fuzz::Require(ReadReportIndex(list, owner, &code) && code == SCHSCAN_OK,
                "a readable index was refused");
  bool same = list.size() == want.size();
  for (std::size_t i = 0; same && i < want.size(); ++i) same = Same(list[i], want[i]);
  fuzz::Require(same, what);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::TakeProduct();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::WriteFile(kReportIndexPath, data, size);
  ReportList all;
  std::uint32_t code = SCHSCAN_OK;
  if (size < REPORT_ENTRIES_OFFSET) {
    fuzz::Require(!ReadReportIndex(all, 0, &code) && code == SCHSCAN_ERR_LIST_READ,
                  "a short index was not refused");
    return 0;
  }
  // The file's whole entries, as the layout defines them.
  Entries expected;
  for (std::size_t at = REPORT_ENTRIES_OFFSET; at + REPORT_ENTRY_SIZE <= size;
       at += REPORT_ENTRY_SIZE) {
    expected.emplace_back();
    std::memcpy(&expected.back(), data + at, REPORT_ENTRY_SIZE);
  }
  ExpectList(0, expected, "the list is not the file's whole entries");

  // An owner filter keeps exactly that owner's entries, in order.
  const std::uint32_t owner = expected.empty() ? 1000 : expected.back().dwUserId;
  Entries owned;
  std::copy_if(expected.begin(), expected.end(), std::back_inserter(owned),
               [&](const auto& entry) { return owner == 0 || entry.dwUserId == owner; });
  ExpectList(owner, owned, "the owner filter kept the wrong entries");

  // The streaming reader: the same entries, numbered, each readable again.
  {
    ReportIndexReader reader;
    fuzz::Require(reader.Open(&code) && reader.EntriesAtOpen() == expected.size(),
                  "the streaming reader miscounted the entries");
    std::uint64_t next = 0;
    std::size_t handedOut = 0;
    reader.ForEach(owner, [&](const tagSCAN_REPORT_ENTRY& entry, std::uint64_t number) {
      while (next < expected.size() && owner != 0 && expected[next].dwUserId != owner) ++next;
      tagSCAN_REPORT_ENTRY again;
      fuzz::Require(number == next && next < expected.size() && Same(entry, expected[next]) &&
                        reader.ReadAgain(number, &again) && Same(again, entry),
                    "the reader handed out the wrong entry or number");
      ++next;
      ++handedOut;
    });
    tagSCAN_REPORT_ENTRY beyond;
    fuzz::Require(handedOut == owned.size() && !reader.ReadAgain(expected.size(), &beyond),
                  "the reader handed out too few entries, or one past the end");
  }

  // The rewrite without every other entry keeps the rest, first copies of
  // equal entries going first, under a header that counts them.
  ReadReportIndex(all, 0, &code);
  Entries taken;
  for (std::size_t i = 0; i < all.size(); i += 2) {
    all.TakeOut(i);
    taken.push_back(all[i]);
  }
  Entries remaining;
  for (const tagSCAN_REPORT_ENTRY& entry : expected) {
    const auto match =
        std::find_if(taken.begin(), taken.end(), [&](const auto& t) { return Same(t, entry); });
    if (match != taken.end()) {
      taken.erase(match);
    } else {
      remaining.push_back(entry);
    }
  }
  fuzz::Require(WriteReportIndex(all, &code), "the rewrite failed");
  ExpectList(0, remaining, "the rewrite kept the wrong entries");
  std::string header(REPORT_ENTRIES_OFFSET, '\0');
  for (int i = 0; i < 4; ++i)
    header[REPORT_HEADER_OFFSET + i] = static_cast<char>(remaining.size() >> (8 * i));
  std::ifstream index(kReportIndexPath, std::ios::binary);
  std::string written(REPORT_ENTRIES_OFFSET, '\0');
  index.read(written.data(), static_cast<std::streamsize>(written.size()));
  fuzz::Require(written == header, "the rewritten header is not zeros and the count of what is left");
  return 0;
}
