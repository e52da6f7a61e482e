#include <gtest/gtest.h>

#include "testing/command_paths.h"

namespace testing_support {
namespace {

using ViewScheduledScans = PathTest;
TEST_P(ViewScheduledScans, Path) { ExpectPath(GetParam()); }
INSTANTIATE_TEST_SUITE_P(Paths, ViewScheduledScans, testing::ValuesIn(ViewPaths()), PathName);

}  // namespace
}  // namespace testing_support
