#include <gtest/gtest.h>

#include "testing/command_paths.h"

namespace testing_support {
namespace {

using ModifyScheduledScan = PathTest;
TEST_P(ModifyScheduledScan, Path) { ExpectPath(GetParam()); }
INSTANTIATE_TEST_SUITE_P(Paths, ModifyScheduledScan, testing::ValuesIn(ModifyPaths()), PathName);

}  // namespace
}  // namespace testing_support
