// Every path of every command's table (testing/paths/), run in-process.
#include <gtest/gtest.h>

#include "testing/command_paths.h"

namespace testing_support {
namespace {

TEST_P(PathTest, Run) { ExpectPath(GetParam()); }

INSTANTIATE_TEST_SUITE_P(AddScheduledScan, PathTest, testing::ValuesIn(PathsOf("add.paths")),
                         PathName);
INSTANTIATE_TEST_SUITE_P(ViewScheduledScans, PathTest, testing::ValuesIn(PathsOf("view.paths")),
                         PathName);
INSTANTIATE_TEST_SUITE_P(ModifyScheduledScan, PathTest,
                         testing::ValuesIn(PathsOf("modify.paths")), PathName);
INSTANTIATE_TEST_SUITE_P(DeleteScheduledScan, PathTest,
                         testing::ValuesIn(PathsOf("delete.paths")), PathName);
INSTANTIATE_TEST_SUITE_P(ViewScanReports, PathTest, testing::ValuesIn(PathsOf("reports.paths")),
                         PathName);
INSTANTIATE_TEST_SUITE_P(DeleteScanReports, PathTest,
                         testing::ValuesIn(PathsOf("delreports.paths")), PathName);

}  // namespace
}  // namespace testing_support
