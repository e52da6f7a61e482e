#include <gtest/gtest.h>

#include "testing/command_paths.h"

namespace testing_support {
namespace {

using DeleteScheduledScan = PathTest;
TEST_P(DeleteScheduledScan, Path) { ExpectPath(GetParam()); }
INSTANTIATE_TEST_SUITE_P(Paths, DeleteScheduledScan, testing::ValuesIn(DeletePaths()), PathName);

}  // namespace
}  // namespace testing_support
