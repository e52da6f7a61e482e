// Whole-program runs of the delete command: deleting by name, refusals at
// the name prompt, other users' scans, and the store's refusal.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "product_paths.h"
#include "testing/scan_fixtures.h"

namespace {

using namespace scantest;

constexpr const char* kDelete = "schscan_str_args_delete";
const std::string kHeading = "schscan_msg_delete_schscan:\n";
const std::string kPrompt = "schscan_msg_enterscanname";
const std::string kDeleted = "schscan_msg_scan_deleted_success.\n";

class DeleteScan : public testing::Test {
 protected:
  void SetUp() override {
    harness::ResetProductDir(false);
    StoreScan(MakeScan("Root", 0));
    StoreScan(MakeScan("Daemon", 1));
    StoreScan(MakeScan("Nobody", 65534));
  }
};

TEST_F(DeleteScan, DeletesTheNamedScanOnly) {
  ExpectRun(kDelete, Out(kHeading) + Ask(kPrompt, "Daemon"), kDeleted);
  EXPECT_EQ(DescribeStored("Daemon"), "none");  // root deletes another user's scan
  EXPECT_NE(DescribeStored("Root"), "none");
  EXPECT_NE(DescribeStored("Nobody"), "none");
}

TEST_F(DeleteScan, OrdinaryUserIsRefusedOtherUsersScans) {
  const std::string refused = "schscan_valid_scanname_specialchar.\n";
  ExpectRun(kDelete,
            Out(kHeading) + Reject(kPrompt, "Root", refused) + Reject(kPrompt, "Daemon", refused) +
                Reject(kPrompt, "Missing", refused) + Reject(kPrompt, "No name", refused) +
                Ask(kPrompt, "Nobody"),
            kDeleted, 65534);
  EXPECT_EQ(DumpStore(), DescribeStored("Root") + "\n" + DescribeStored("Daemon") + "\n");
}

TEST_F(DeleteScan, StoreRefusalIsReportedByTheDispatcher) {
  ASSERT_EQ(chmod(kTaskListPath, 0644), 0);
  ExpectRun(kDelete, Out(kHeading) + Ask(kPrompt, "Daemon"), "\nschscan_msg_scanoperation_fail.\n",
            1);
  EXPECT_NE(DescribeStored("Daemon"), "none");
}

TEST_F(DeleteScan, WithCatalogueInEnglish) {
  harness::ResetProductDir(true);
  StoreScan(MakeScan("Root", 0));
  const auto run = RunScript("--delete", Ask("", "Nothing") + Ask("", "Root"));
  EXPECT_EQ(run.exitStatus, 0);
  const std::string tail =
      "Delete a scheduled scan:\n"
      "Enter the scheduled scan name: Invalid scheduled scan name (use only the letters A-Z, "
      "a-z and the digits 0-9).\n"
      "Enter the scheduled scan name: The scheduled scan was deleted.\n";
  EXPECT_EQ(run.output.substr(run.output.size() - std::min(run.output.size(), tail.size())), tail);
  EXPECT_EQ(run.output.find("schscan_"), std::string::npos);
  EXPECT_EQ(DumpStore(), "");
}

}  // namespace
