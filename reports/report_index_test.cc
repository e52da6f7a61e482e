// The report index reader and rewriter against files that the original
// service's way of appending produced, in the test build's product
// directory: layout, owner filter, the rewrite, the whole-file lock, and
// entries appended while rewrites run.
#include "reports/report_index.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
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

class ReportIndexTest : public testing::Test {
 protected:
  void SetUp() override { testing_support::ResetProduct(); }

  static tagSCAN_REPORT_ENTRY Append(const std::string& scanName, std::uint32_t userId = 0) {
    const auto entry = MakeReportEntry(scanName, "2026-11-22 10:00", "/r/" + scanName, userId);
    EXPECT_TRUE(AppendReportEntry(entry));
    return entry;
  }

  static std::string Bytes() {
    std::ifstream in(kReportIndexPath, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
  }

  static void Resize(off_t size) { ASSERT_EQ(truncate(kReportIndexPath, size), 0); }

  static ReportList Read(std::uint32_t filter = 0) {
    ReportList list;
    std::uint32_t code = 99;
    EXPECT_TRUE(ReadReportIndex(list, filter, &code));
    EXPECT_EQ(code, SCHSCAN_OK);
    return list;
  }

  static std::string Names(const ReportList& list) {
    std::string names;
    for (std::size_t i = 0; i < list.size(); ++i)
      names += FieldText(list[i].szScanName).c_str() + std::string(" ");
    return names;
  }

  static bool RewriteAsItStands(std::uint32_t* code) { return WriteReportIndex(ReportList(), code); }

  // Reads the index, takes out the entries at `positions` and rewrites it.
  static bool TakeOut(std::initializer_list<std::size_t> positions, std::uint32_t* code) {
    ReportList list = Read();
    for (const std::size_t position : positions) list.TakeOut(position);
    return WriteReportIndex(list, code);
  }
};

std::string Le32(std::uint32_t value) {
  std::string bytes;
  for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<char>(value >> (8 * i)));
  return bytes;
}

TEST_F(ReportIndexTest, ReadFailsOnMissingOrShortIndex) {
  ReportList list;
  std::uint32_t code = 0;
  EXPECT_FALSE(ReadReportIndex(list, 0, &code));
  EXPECT_EQ(code, SCHSCAN_ERR_LIST_NOT_FOUND);
  Append("a");
  for (off_t size : {0, 1, 8, 18}) {
    Resize(size);
    EXPECT_FALSE(ReadReportIndex(list, 0, &code)) << size;
    EXPECT_EQ(code, SCHSCAN_ERR_LIST_READ) << size;
  }
  ASSERT_EQ(unlink(kReportIndexPath), 0);
  ASSERT_EQ(mkfifo(kReportIndexPath, 0666), 0);  // never blocks on a FIFO
  EXPECT_FALSE(ReadReportIndex(list, 0, &code));
  EXPECT_EQ(code, SCHSCAN_ERR_LIST_SEEK);
  EXPECT_TRUE(list.empty());
}

TEST_F(ReportIndexTest, ReadTakesWholeEntriesInFileOrderWhateverTheCountSays) {
  Append("a", 1000);
  Append("b");
  Append("c", 1000);
  EXPECT_EQ(Bytes().size(), 19u + 3 * 1316);
  EXPECT_EQ(Bytes().substr(8, 4), Le32(3));
  EXPECT_EQ(Names(Read(1000)), "a c ");
  EXPECT_EQ(Names(Read(7)), "");
  for (off_t trailing : {1, 1315}) {
    Resize(19 + 3 * 1316 + trailing);
    EXPECT_EQ(Names(Read()), "a b c ") << trailing;
  }
  Resize(19 + 2 * 1316);  // the count still says 3
  EXPECT_EQ(Names(Read()), "a b ");
  Resize(19);
  EXPECT_TRUE(Read().empty());
}

// The rewrite takes out one copy of each entry taken out of the list, wherever
// it now stands, keeps what was appended since the read, counts what is left
// in the header, keeps the index's mode, and leaves no temporary file.
TEST_F(ReportIndexTest, RewriteTakesOutExactlyTheEntriesTakenOut) {
  Append("a");
  Append("b");
  Append("a");
  Append("c");
  Append("a");
  tagSCAN_REPORT_ENTRY odd;
  std::memset(&odd, 0xA5, sizeof odd);  // no NUL anywhere
  ASSERT_TRUE(AppendReportEntry(odd));
  ReportList list = Read();
  for (const std::size_t position : {0, 2, 3}) list.TakeOut(position);
  Append("late", 1);  // appended after the command read the index
  ASSERT_EQ(chmod(kReportIndexPath, 0640), 0);
  std::uint32_t code = 99;
  ASSERT_TRUE(WriteReportIndex(list, &code));
  EXPECT_EQ(code, SCHSCAN_OK);
  const ReportList left = Read();
  ASSERT_EQ(left.size(), 4u);
  EXPECT_EQ(Names(left).substr(0, 4), "b a ");
  EXPECT_EQ(std::memcmp(&left[2], &odd, sizeof odd), 0);
  EXPECT_EQ(Bytes().substr(0, 19), std::string(8, '\0') + Le32(4) + std::string(7, '\0'));
  struct stat status {};
  ASSERT_EQ(stat(kReportIndexPath, &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0640u);

  ASSERT_TRUE(TakeOut({0, 1, 2, 3}, &code));
  EXPECT_EQ(Bytes(), std::string(19, '\0'));
  EXPECT_EQ(fs::directory_iterator(kReportsDir)->path(), kReportIndexPath);  // no leftovers
}

// A rewrite killed before its rename leaves its temporary index behind; the
// next rewrite, holding the lock, removes it and nothing else. A missing
// index is created; one that cannot be opened fails with 1002.
TEST_F(ReportIndexTest, RewriteCleansUpCreatesAndFails) {
  const std::string reports = std::string(kReportsDir) + "/";
  std::uint32_t code = 99;
  ASSERT_TRUE(RewriteAsItStands(&code));
  EXPECT_EQ(Bytes(), std::string(19, '\0'));
  for (const char* name : {".schdmain.rpt.Ab3xY9", ".schdmain.rpt.keep", "schd0101.rpt"})
    std::ofstream(reports + name) << "x";
  ASSERT_TRUE(RewriteAsItStands(&code));
  EXPECT_FALSE(fs::exists(reports + ".schdmain.rpt.Ab3xY9"));
  EXPECT_TRUE(fs::exists(reports + ".schdmain.rpt.keep"));
  EXPECT_TRUE(fs::exists(reports + "schd0101.rpt"));
  ASSERT_EQ(unlink(kReportIndexPath), 0);
  ASSERT_EQ(mkdir(kReportIndexPath, 0777), 0);
  EXPECT_FALSE(RewriteAsItStands(&code));
  EXPECT_EQ(code, SCHSCAN_ERR_LIST_ACCESS);
}

TEST_F(ReportIndexTest, StreamingReaderReadsItsOwnFileAgainAfterARewrite) {
  Append("a", 1);
  Append("b", 2);
  Append("c", 1);
  ReportIndexReader reader;
  std::uint32_t code = 99;
  ASSERT_TRUE(reader.Open(&code));
  EXPECT_EQ(reader.EntriesAtOpen(), 3u);
  std::vector<std::uint64_t> numbers;
  reader.ForEach(
      1, [&](const tagSCAN_REPORT_ENTRY&, std::uint64_t number) { numbers.push_back(number); });
  EXPECT_EQ(numbers, (std::vector<std::uint64_t>{0, 2}));
  ASSERT_TRUE(TakeOut({0, 1, 2}, &code));  // a new file is renamed in
  tagSCAN_REPORT_ENTRY entry{};
  ASSERT_TRUE(reader.ReadAgain(2, &entry));
  EXPECT_STREQ(entry.szScanName, "c");
  EXPECT_FALSE(reader.ReadAgain(3, &entry));
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

// Rewriters wait for the lock, readers do not; a rewriter that waited while
// another renamed a new index in rereads that one.
TEST_F(ReportIndexTest, RewritersTakeTurnsAndReadersDoNotWait) {
  Append("a");
  Append("b");
  Append("c");
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

TEST_F(ReportIndexTest, DeleteAllUnderAConcurrentAppenderLosesNothingAppendedBeforeItsLock) {
  Append("first");
  const pid_t appender = Spawn([] {
    for (int i = 0; i < 4000; ++i) {
      if (!AppendReportEntry(MakeReportEntry("e" + std::to_string(i), "t", "/r", 0))) return false;
    }
    return true;
  });
  int rounds = 0;
  int status = 0;
  while (waitpid(appender, &status, WNOHANG) == 0 || rounds < 3) {
    ReportList read = Read();  // what a delete-all deletes
    usleep(1000);
    const std::string beforeLock = Names(Read());
    for (std::size_t i = 0; i < read.size(); ++i) read.TakeOut(i);
    std::uint32_t code = 0;
    ASSERT_TRUE(WriteReportIndex(read, &code));
    const std::string after = Names(Read());
    // Every name appended before the rewrite took its lock, and not deleted,
    // is still there: `after` begins with what `beforeLock` held beyond `read`.
    EXPECT_TRUE(after.starts_with(beforeLock.substr(Names(read).size()))) << rounds;
    ++rounds;
  }
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

// The original service appends without the lock, also in the moments after
// a rewrite's last read of the old index and before its rename: what lands in
// the old file then is carried into the new one.
TEST_F(ReportIndexTest, RewritesKeepEveryEntryAnAppenderAddsMeanwhile) {
  Append("first");
  const pid_t appender = Spawn([] {
    for (int i = 0; i < 400; ++i) {
      if (!AppendReportEntry(MakeReportEntry("e" + std::to_string(i), "t", "/r", 0))) return false;
      usleep(1000);
    }
    return true;
  });
  int status = 0;
  while (waitpid(appender, &status, WNOHANG) == 0) {
    std::uint32_t code = 0;
    ASSERT_TRUE(RewriteAsItStands(&code));
  }
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  const ReportList all = Read();
  std::set<std::string> names;
  for (std::size_t i = 0; i < all.size(); ++i) names.insert(FieldText(all[i].szScanName).c_str());
  EXPECT_EQ(names.size(), 401u);
  EXPECT_EQ(all.size(), 401u);
}

}  // namespace
