#include "commands/scan_directory_prompt.h"

#include <gtest/gtest.h>

namespace {

TEST(IsDuplicateDirectory, RepeatsContainsOrLiesInside) {
  struct Case {
    std::vector<const char*> list;
    const char* path;
    bool duplicate;
  } cases[] = {
      {{}, "/", false},
      {{"/data"}, "/data", true},
      {{"/data"}, "/data/", true},  // the item once the slash is dropped
      {{"/data"}, "/data2", false},
      {{"/data"}, "/data/sub", false},  // neither side ends in a slash
      {{"/data/"}, "/data/sub", true},
      {{"/data/"}, "/database", true},  // no separator needed after the prefix
      {{"/data/"}, "/dat", false},
      {{"/data/sub"}, "/data/", true},
      {{"/data/sub"}, "/data", false},
      {{"/home/user/"}, "/home/username", true},
      {{"/x", "/y"}, "/", true},  // an empty prefix matches any item
      {{"/"}, "/anything", true},
      {{"/Data"}, "/data", false},  // case-sensitive
      {{"/a", "/b", "/c/"}, "/c/d", true},
  };
  for (const Case& c : cases) {
    ScanItemList items;
    for (const char* item : c.list) items.AppendPath(item);
    EXPECT_EQ(IsDuplicateDirectory(c.path, items), c.duplicate) << c.path;
  }
}

}  // namespace
