#include <gtest/gtest.h>

#include "testing/command_paths.h"

namespace testing_support {
namespace {

using AddScheduledScan = PathTest;
TEST_P(AddScheduledScan, Path) { ExpectPath(GetParam()); }
INSTANTIATE_TEST_SUITE_P(Paths, AddScheduledScan, testing::ValuesIn(AddPaths()), PathName);

}  // namespace
}  // namespace testing_support
