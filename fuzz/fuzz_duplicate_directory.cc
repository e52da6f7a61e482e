// IsDuplicateDirectory on arbitrary paths: the first line of the input is the
// new path, each further line a path already in the list. The answer must
// agree with the duplicate rules.
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/directory_rules.h"
#include "fuzz/fuzz_support.h"
#include "commands/scan_directory_prompt.h"
#include "taskstore/schedule_scan_entry.h"

namespace {

// A path as the list holds it: up to its NUL, at most SCAN_ITEM_SIZE - 1 bytes.
std::string AsItemPath(const std::string& line) {
  return line.substr(0, line.find('\0')).substr(0, SCAN_ITEM_SIZE - 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> lines(1);
  for (std::size_t i = 0; i < size; ++i) {
    if (data[i] == '\n') {
      if (lines.size() == MAX_SCAN_ITEMS + 1) break;
      lines.emplace_back();
    } else {
      lines.back().push_back(static_cast<char>(data[i]));
    }
  }
  const std::string path = AsItemPath(lines[0]);
  std::vector<std::string> expectedItems;
  ScanItemList items;
  for (std::size_t i = 1; i < lines.size(); ++i) {
    expectedItems.push_back(AsItemPath(lines[i]));
    items.AppendPath(lines[i].c_str());
  }
  fuzz::Require(
      IsDuplicateDirectory(path.c_str(), items) == fuzz::ExpectedDuplicate(path, expectedItems),
      "IsDuplicateDirectory disagrees with the duplicate rules");
  return 0;
}
