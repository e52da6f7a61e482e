// The report index reader and rewriter on indexes that the scan service's
// way of appending produced, in the test build's product directory: the
// rewrite, the whole-file lock, and entries appended while rewrites run. The
// layout's cases (short files, wrong counts, torn entries, strings without a
// NUL, the owner filter) are the seed corpus of fuzz/fuzz_report_index.cc,
// which the test build replays; a missing index and one that is a FIFO are
// paths of view reports.
#include "reports/report_index.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <iterator>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "taskstore/result_codes.h"
#include "testing/lock_free_appender.h"
#include "testing/scan_fixtures.h"

namespace {

namespace fs = std::filesystem;
using testing_support::AppendReportEntry;
using testing_support::MakeReportEntry;

void Append(const std::string& scanName, std::uint32_t userId = 0) {
  EXPECT_TRUE(AppendReportEntry(MakeReportEntry(scanName, "d", "/r/" + scanName, userId)));
}

ReportList Read() {
  ReportList list;
  std::uint32_t code = 99;
  EXPECT_TRUE(ReadReportIndex(list, 0, &code));
  EXPECT_EQ(code, SCHSCAN_OK);
  return list;
}

std::string Names(const ReportList& list) {
  std::string names;
  for (std::size_t i = 0; i < list.size(); ++i)
    names += FieldText(list[i].szScanName).c_str() + std::string(" ");
  return names;
}

// Reads the index, takes out the entries at `positions` and rewrites it.
bool TakeOut(std::initializer_list<std::size_t> positions, std::uint32_t* code) {
  ReportList list = Read();
  for (const std::size_t position : positions) list.TakeOut(position);
  return WriteReportIndex(list, code);
}

std::string IndexBytes() {
  std::ostringstream bytes;
  bytes << std::ifstream(kReportIndexPath, std::ios::binary).rdbuf();
  return bytes.str();
}

class ReportIndexTest : public testing::Test {
 protected:
  void SetUp() override { testing_support::ResetProduct(); }
};

// The rewrite takes out the entries taken out of the list, keeps what was
// appended since the read and the index's mode, and leaves no temporary
// file; a reader that opened the old index still reads its entries.
TEST_F(ReportIndexTest, RewriteTakesOutTheEntriesTakenOutAndNothingElse) {
  for (const char* name : {"a", "b", "c"}) Append(name);
  ReportIndexReader reader;
  std::uint32_t code = 99;
  ASSERT_TRUE(reader.Open(&code));
  ReportList list = Read();
  list.TakeOut(0);
  list.TakeOut(2);
  Append("late", 1);  // appended after the command read the index
  ASSERT_EQ(chmod(kReportIndexPath, 0640), 0);
  ASSERT_TRUE(WriteReportIndex(list, &code));
  EXPECT_EQ(code, SCHSCAN_OK);
  EXPECT_EQ(Names(Read()), "b late ");
  struct stat status {};
  ASSERT_EQ(stat(kReportIndexPath, &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0640u);
  tagSCAN_REPORT_ENTRY entry{};
  ASSERT_TRUE(reader.ReadAgain(2, &entry));
  EXPECT_STREQ(entry.szScanName, "c");
  EXPECT_FALSE(reader.ReadAgain(4, &entry));

  ASSERT_TRUE(TakeOut({0, 1}, &code));
  EXPECT_EQ(IndexBytes(), std::string(19, '\0'));
  EXPECT_EQ(std::distance(fs::directory_iterator(kReportsDir), {}), 1);  // the index alone
}

// A rewrite killed before its rename leaves its temporary index behind; the
// next rewrite, holding the lock, removes it and nothing else. A missing
// index is created; one that cannot be opened fails with 1002.
TEST_F(ReportIndexTest, RewriteCleansUpCreatesAndFails) {
  const std::string reports = std::string(kReportsDir) + "/";
  std::uint32_t code = 99;
  ASSERT_TRUE(WriteReportIndex(ReportList(), &code));
  EXPECT_EQ(IndexBytes(), std::string(19, '\0'));
  for (const char* name : {".schdmain.rpt.Ab3xY9", ".schdmain.rpt.keep", "schd0101.rpt"})
    std::ofstream(reports + name) << "x";
  ASSERT_TRUE(WriteReportIndex(ReportList(), &code));
  EXPECT_FALSE(fs::exists(reports + ".schdmain.rpt.Ab3xY9"));
  EXPECT_TRUE(fs::exists(reports + ".schdmain.rpt.keep"));
  EXPECT_TRUE(fs::exists(reports + "schd0101.rpt"));
  ASSERT_EQ(unlink(kReportIndexPath), 0);
  ASSERT_EQ(mkdir(kReportIndexPath, 0777), 0);
  EXPECT_FALSE(WriteReportIndex(ReportList(), &code));
  EXPECT_EQ(code, SCHSCAN_ERR_LIST_ACCESS);
}

// Runs `work` in a child process; returns its pid.
template <typename Work>
pid_t Spawn(Work work) {
  const pid_t pid = fork();
  if (pid == 0) _exit(work() ? 0 : 1);
  return pid;
}

// True when the child ended, with status 0, within `milliseconds`.
bool EndsWithin(pid_t pid, int milliseconds) {
  for (int waited = 0; waited <= milliseconds; waited += 10) {
    int status = 0;
    if (waitpid(pid, &status, WNOHANG) == pid) return WIFEXITED(status) && WEXITSTATUS(status) == 0;
    usleep(10000);
  }
  return false;
}

// A rewrite whose writes fail (here past a file size limit, as on a full
// disk) fails with 0, and leaves the index as it was and no temporary file.
TEST_F(ReportIndexTest, RewriteThatCannotWriteChangesNothing) {
  for (const char* name : {"a", "b", "c"}) Append(name);
  const std::string before = IndexBytes();
  const pid_t rewriter = Spawn([] {
    const rlimit lessThanAnEntry = {1000, 1000};
    std::uint32_t code = 99;
    return signal(SIGXFSZ, SIG_IGN) != SIG_ERR && setrlimit(RLIMIT_FSIZE, &lessThanAnEntry) == 0 &&
           !TakeOut({1}, &code) && code == SCHSCAN_OK;
  });
  EXPECT_TRUE(EndsWithin(rewriter, 10000));
  EXPECT_EQ(IndexBytes(), before);
  EXPECT_EQ(std::distance(fs::directory_iterator(kReportsDir), {}), 1);  // the index alone
}

// Rewriters wait for the lock, readers do not; a rewriter that waited while
// another renamed a new index in rereads that one.
TEST_F(ReportIndexTest, RewritersTakeTurnsAndReadersDoNotWait) {
  for (const char* name : {"a", "b", "c"}) Append(name);
  const int held = open(kReportIndexPath, O_RDWR);
  ASSERT_EQ(LockReportIndex(held), 0);
  const pid_t reader = Spawn([] { return Read().size() == 3; });
  EXPECT_TRUE(EndsWithin(reader, 10000));
  std::uint32_t code = 0;
  const pid_t first = Spawn([&] { return TakeOut({0}, &code); });
  const pid_t second = Spawn([&] { return TakeOut({1}, &code); });
  EXPECT_FALSE(EndsWithin(first, 300));
  EXPECT_EQ(Read().size(), 3u);
  EXPECT_EQ(UnlockReportIndex(held), 0);
  EXPECT_TRUE(EndsWithin(first, 10000));
  EXPECT_TRUE(EndsWithin(second, 10000));
  EXPECT_EQ(Names(Read()), "c ");
  close(held);
  EXPECT_EQ(LockReportIndex(0), -1);
  EXPECT_EQ(UnlockReportIndex(-1), -1);
}

// The scan service appends without the lock, also in the moments after a
// rewrite's last read of the old index and before its rename: what lands in
// the old file then is carried into the new one. Rewrites that each take out
// every other entry they read keep every other entry, once.
TEST_F(ReportIndexTest, RewritesKeepEveryEntryAnAppenderAddsMeanwhile) {
  constexpr int kEntries = 1000;
  Append("e0");
  const pid_t appender = Spawn([] {
    for (int i = 1; i < kEntries; ++i) {
      if (!AppendReportEntry(MakeReportEntry("e" + std::to_string(i), "t", "/r", 0))) return false;
      if (i % 2 == 0) usleep(500);
    }
    return true;
  });
  std::set<std::string> takenOut;
  int status = 0;
  while (waitpid(appender, &status, WNOHANG) == 0) {
    ReportList list = Read();
    for (std::size_t i = 0; i < list.size(); i += 2) {
      list.TakeOut(i);
      takenOut.insert(FieldText(list[i].szScanName).c_str());
    }
    std::uint32_t code = 0;
    ASSERT_TRUE(WriteReportIndex(list, &code));
  }
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  const ReportList left = Read();
  std::set<std::string> all = takenOut;
  for (std::size_t i = 0; i < left.size(); ++i) all.insert(FieldText(left[i].szScanName).c_str());
  EXPECT_EQ(left.size() + takenOut.size(), static_cast<std::size_t>(kEntries));
  EXPECT_EQ(all.size(), static_cast<std::size_t>(kEntries));  // none lost, none twice
}

}  // namespace
