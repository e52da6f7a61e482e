#include "service/index_work.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "product_paths.h"
#include "taskstore/result_codes.h"
#include "testing/index_lock_holder.h"
#include "testing/lock_free_appender.h"
#include "testing/scan_fixtures.h"
#include "testing/signature_database.h"

namespace service {
namespace {

using testing_support::AddNamedReport;
using testing_support::MakeReportEntry;
namespace fs = std::filesystem;

constexpr auto kShortWait = std::chrono::milliseconds(100);

// "name/owner/date" of every entry of the index, in order.
std::vector<std::string> IndexEntries() {
  ReportList list;
  std::uint32_t code = SCHSCAN_OK;
  EXPECT_TRUE(ReadReportIndex(list, 0, &code)) << code;
  std::vector<std::string> entries;
  for (std::size_t i = 0; i < list.size(); ++i) {
    entries.push_back(std::string(FieldText(list[i].szScanName).c_str()) + "/" +
                      std::to_string(list[i].dwUserId) + "/" + FieldText(list[i].szDateTime).c_str());
  }
  return entries;
}

class IndexWork : public ::testing::Test {
 protected:
  void SetUp() override {
    testing_support::ResetProduct();
    fs::remove_all(keptDir_);
    fs::create_directories(keptDir_);
  }
  const std::string keptDir_ = std::string(kProductDir) + "/../kept";
  const KeptEntries kept_{keptDir_};
};

// An entry that cannot go in while another process holds the lock is kept,
// and so is every later one, so that they go in in the order they came, once
// each, when the lock is free again.
TEST_F(IndexWork, EntriesWaitForTheLockInOrderAndGoInOnce) {
  const auto entry = [](const char* date) { return MakeReportEntry("Scan", date, "/r", 7); };
  std::string error;
  ASSERT_EQ(RecordReportEntry(entry("1"), kept_, kShortWait, &error), EntryFate::kAdded);
  {
    testing_support::IndexLockHolder holder;
    EXPECT_EQ(RecordReportEntry(entry("2"), kept_, kShortWait, &error), EntryFate::kKept);
    EXPECT_EQ(AppendReportIndexEntry(entry("x"), kShortWait), IndexUpdate::kLockBusy);
    EXPECT_EQ(TrimReports(0, kShortWait, &error), IndexUpdate::kLockBusy);
  }
  ASSERT_TRUE(kept_.Keep(entry("3"), &error)) << error;
  // Entry 2 went in before a crash took its file away: it is not added twice.
  ASSERT_EQ(AppendReportIndexEntry(entry("2"), kShortWait), IndexUpdate::kDone);
  EXPECT_EQ(RecordReportEntry(entry("4"), kept_, kShortWait, &error), EntryFate::kAdded);
  // A torn kept file (a crash while it was written) is dropped.
  testing_support::WriteFile(keptDir_ + "/0-torn.entry", "torn");
  ASSERT_EQ(kept_.AddToIndex(kShortWait, &error), IndexUpdate::kDone);
  EXPECT_EQ(IndexEntries(), (std::vector<std::string>{"Scan/7/1", "Scan/7/2", "Scan/7/3", "Scan/7/4"}));
  EXPECT_TRUE(kept_.Empty());
  // The header counts the entries appended.
  unsigned char count[4] = {};
  const int index = open(kReportIndexPath, O_RDONLY);
  EXPECT_EQ(pread(index, count, sizeof count, REPORT_HEADER_OFFSET), 4);
  close(index);
  EXPECT_EQ(count[0] | count[1] << 8 | count[2] << 16 | count[3] << 24, 4);
}

// Retention keeps the newest reports of each scan (name and owner), and
// removes the files of those it takes out, unless another entry still names
// the file or it is not a report file of the reports directory.
TEST_F(IndexWork, TrimKeepsTheNewestReportsOfEachScan) {
  const std::string outside = std::string(kProductDir) + "/../outside.rpt";
  testing_support::WriteFile(outside, "x");
  ASSERT_TRUE(testing_support::AppendReportEntry(MakeReportEntry("Scan", "0", outside, 7)));
  std::vector<std::string> paths;
  for (int i = 1; i <= 4; ++i) {
    char name[16];
    std::snprintf(name, sizeof name, "schd00%02d.rpt", i);
    paths.push_back(AddNamedReport(name, "Scan", std::to_string(i), 7, "report"));
  }
  ASSERT_TRUE(testing_support::AppendReportEntry(MakeReportEntry("Scan", "o", paths[1], 8)));
  std::string error;
  ASSERT_EQ(TrimReports(2, kShortWait, &error), IndexUpdate::kDone) << error;
  EXPECT_EQ(IndexEntries(), (std::vector<std::string>{"Scan/7/3", "Scan/7/4", "Scan/8/o"}));
  EXPECT_TRUE(fs::exists(outside));
  EXPECT_FALSE(fs::exists(paths[0]));
  EXPECT_TRUE(fs::exists(paths[1]));  // named by owner 8's entry
  EXPECT_TRUE(fs::exists(paths[2]));

  IndexUpdate update = IndexUpdate::kFailed;
  EXPECT_EQ(EvictOldestReport("Scan", 7, kShortWait, &update), paths[2]);
  EXPECT_EQ(EvictOldestReport("Other", 7, kShortWait, &update), "");
  EXPECT_EQ(update, IndexUpdate::kDone);
  EXPECT_EQ(IndexEntries(), (std::vector<std::string>{"Scan/7/4", "Scan/8/o"}));
  EXPECT_FALSE(fs::exists(paths[2]));
}

}  // namespace
}  // namespace service
