#include <gtest/gtest.h>

#include "testing/command_paths.h"

namespace testing_support {
namespace {

using DeleteScanReports = PathTest;
TEST_P(DeleteScanReports, Path) { ExpectPath(GetParam()); }
INSTANTIATE_TEST_SUITE_P(Paths, DeleteScanReports, testing::ValuesIn(DeleteReportsPaths()), PathName);

}  // namespace
}  // namespace testing_support
