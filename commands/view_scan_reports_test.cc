#include <gtest/gtest.h>

#include "testing/command_paths.h"

namespace testing_support {
namespace {

using ViewScanReports = PathTest;
TEST_P(ViewScanReports, Path) { ExpectPath(GetParam()); }
INSTANTIATE_TEST_SUITE_P(Paths, ViewScanReports, testing::ValuesIn(ViewReportsPaths()), PathName);

}  // namespace
}  // namespace testing_support
