// The report index reader and rewriter against files that the scan service's
// way of appending produced: layout, owner filter, byte-exact rewrite, the
// whole-file lock, and entries appended while rewrites run.
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

namespace {

namespace fs = std::filesystem;

class ReportIndexTest : public testing::Test {
 protected:
  void SetUp() override {
    char directory[] = "/tmp/report_index_test.XXXXXX";
    ASSERT_NE(mkdtemp(directory), nullptr);
    where_.directory = directory;
    where_.indexPath = where_.directory + "/schdmain.rpt";
  }
  void TearDown() override { fs::remove_all(where_.directory); }

  const char* Index() const { return where_.indexPath.c_str(); }

  tagSCAN_REPORT_ENTRY Append(const std::string& scanName, std::uint32_t userId) {
    const auto entry = scan_service::MakeReportEntry(scanName, "2026-11-22 10:00",
                                                     where_.directory + "/" + scanName, userId);
    EXPECT_TRUE(scan_service::AppendReportEntry(entry, where_));
    return entry;
  }

  std::string Bytes() const {
    std::ifstream in(where_.indexPath, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
  }

  void Resize(off_t size) const { ASSERT_EQ(truncate(Index(), size), 0); }

  ReportList Read(std::uint32_t filter = 0) const {
    ReportList list;
    std::uint32_t code = 99;
    EXPECT_TRUE(ReadReportIndexAt(Index(), list, filter, &code));
    EXPECT_EQ(code, SCHSCAN_OK);
    return list;
  }

  std::vector<std::string> Names(const ReportList& list) const {
    std::vector<std::string> names;
    for (const auto& entry : list) names.push_back(FieldText(entry.szScanName).c_str());
    return names;
  }

  scan_service::ReportsLocation where_;
};

std::string Le32(std::uint32_t value) {
  std::string bytes;
  for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<char>(value >> (8 * i)));
  return bytes;
}

TEST_F(ReportIndexTest, ReadFailsOnMissingOrShortIndex) {
  ReportList list;
  std::uint32_t code = 0;
  EXPECT_FALSE(ReadReportIndexAt(Index(), list, 0, &code));
  EXPECT_EQ(code, SCHSCAN_ERR_LIST_NOT_FOUND);
  Append("a", 0);
  for (off_t size : {0, 1, 8, 18}) {
    Resize(size);
    EXPECT_FALSE(ReadReportIndexAt(Index(), list, 0, &code)) << size;
    EXPECT_EQ(code, SCHSCAN_ERR_LIST_READ) << size;
  }
  ASSERT_EQ(unlink(Index()), 0);
  ASSERT_EQ(mkfifo(Index(), 0666), 0);  // never blocks on a FIFO
  EXPECT_FALSE(ReadReportIndexAt(Index(), list, 0, &code));
  EXPECT_EQ(code, SCHSCAN_ERR_LIST_SEEK);
  EXPECT_TRUE(list.empty());
}

TEST_F(ReportIndexTest, ReadTakesWholeEntriesWhateverTheCountSays) {
  for (const char* name : {"a", "b", "c"}) Append(name, 0);
  EXPECT_EQ(Bytes().size(), 19u + 3 * 1316);
  EXPECT_EQ(Bytes().substr(8, 4), Le32(3));
  for (off_t trailing : {1, 1315}) {
    Resize(19 + 3 * 1316 + trailing);
    EXPECT_EQ(Names(Read()), (std::vector<std::string>{"a", "b", "c"})) << trailing;
  }
  Resize(19 + 2 * 1316);  // the count still says 3
  EXPECT_EQ(Names(Read()), (std::vector<std::string>{"a", "b"}));
  Resize(19);
  EXPECT_TRUE(Read().empty());
}

TEST_F(ReportIndexTest, OwnerFilterKeepsFileOrder) {
  Append("a", 1000);
  Append("b", 0);
  Append("c", 1000);
  Append("d", 5);
  EXPECT_EQ(Names(Read(0)), (std::vector<std::string>{"a", "b", "c", "d"}));
  EXPECT_EQ(Names(Read(1000)), (std::vector<std::string>{"a", "c"}));
  EXPECT_TRUE(Read(7).empty());
}

TEST_F(ReportIndexTest, RewriteIsByteExactAndKeepsPermissions) {
  Append("old", 0);
  ASSERT_EQ(chmod(Index(), 0640), 0);
  ReportList list(2);
  std::memset(&list[0], 0xA5, sizeof list[0]);  // no NUL anywhere
  list[1] = scan_service::MakeReportEntry("b", "now", "/r/b", 42);
  std::uint32_t code = 99;
  ASSERT_TRUE(WriteReportIndexAt(Index(), list, &code));
  EXPECT_EQ(code, SCHSCAN_OK);
  const std::string expected = std::string(8, '\0') + Le32(2) + std::string(7, '\0') +
                               std::string(reinterpret_cast<const char*>(list.data()), 2 * 1316);
  EXPECT_EQ(Bytes(), expected);
  const ReportList back = Read();
  ASSERT_EQ(back.size(), 2u);
  EXPECT_EQ(std::memcmp(back.data(), list.data(), 2 * 1316), 0);
  struct stat status {};
  ASSERT_EQ(stat(Index(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0640u);

  ASSERT_TRUE(WriteReportIndexAt(Index(), {}, &code));
  EXPECT_EQ(Bytes(), std::string(19, '\0'));
  EXPECT_EQ(fs::directory_iterator(where_.directory)->path(), where_.indexPath);  // no leftovers
}

// A rewrite killed before its rename leaves its temporary index behind; the
// next rewrite, holding the lock, removes it and nothing else.
TEST_F(ReportIndexTest, RewriteRemovesTemporariesOfKilledRewrites) {
  Append("old", 0);
  const std::string stale = where_.directory + "/.schdmain.rpt.Ab3xY9";
  const std::string kept[] = {where_.directory + "/.schdmain.rpt.keep",
                              where_.directory + "/schd0101.rpt"};
  for (const std::string& path : {stale, kept[0], kept[1]}) std::ofstream(path) << "x";
  std::uint32_t code = 99;
  ASSERT_TRUE(WriteReportIndexAt(Index(), {}, &code));
  EXPECT_FALSE(fs::exists(stale));
  for (const std::string& path : kept) EXPECT_TRUE(fs::exists(path)) << path;
}

TEST_F(ReportIndexTest, RewriteCreatesAMissingIndexAndReportsFailures) {
  std::uint32_t code = 99;
  ASSERT_TRUE(WriteReportIndexAt(Index(), {}, &code));
  EXPECT_EQ(Bytes(), std::string(19, '\0'));
  const std::string nowhere = where_.directory + "/missing/schdmain.rpt";
  EXPECT_FALSE(WriteReportIndexAt(nowhere.c_str(), {}, &code));
  EXPECT_EQ(code, SCHSCAN_OK);
  ASSERT_EQ(unlink(Index()), 0);
  ASSERT_EQ(mkdir(Index(), 0777), 0);
  EXPECT_FALSE(WriteReportIndexAt(Index(), {}, &code));
  EXPECT_EQ(code, SCHSCAN_ERR_LIST_ACCESS);
}

TEST_F(ReportIndexTest, RewriteWithoutDropsExactlyTheDeletedCopies) {
  const auto a = Append("a", 0);
  Append("b", 0);
  Append("a", 0);
  const auto c = Append("c", 0);
  Append("a", 0);
  const ReportList readBefore = Read();
  Append("late", 1);  // appended after the command read the index
  std::uint32_t code = 99;
  ASSERT_TRUE(WriteReportIndexWithoutAt(Index(), {&a, &readBefore[2], &c}, &code));
  EXPECT_EQ(Names(Read()), (std::vector<std::string>{"b", "a", "late"}));
  EXPECT_EQ(Bytes().substr(8, 11), Le32(3) + std::string(7, '\0'));
}

TEST_F(ReportIndexTest, StreamingReaderReadsItsOwnFileAgainAfterARewrite) {
  Append("a", 1);
  Append("b", 2);
  Append("c", 1);
  ReportIndexReader reader;
  std::uint32_t code = 99;
  ASSERT_TRUE(reader.Open(Index(), &code));
  EXPECT_EQ(reader.EntriesAtOpen(), 3u);
  std::vector<std::uint64_t> numbers;
  reader.ForEach(
      1, [&](const tagSCAN_REPORT_ENTRY&, std::uint64_t number) { numbers.push_back(number); });
  EXPECT_EQ(numbers, (std::vector<std::uint64_t>{0, 2}));
  ASSERT_TRUE(WriteReportIndexAt(Index(), {}, &code));  // a new file is renamed in
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

TEST_F(ReportIndexTest, SecondRewriteWaitsForTheLockButReadersDoNot) {
  const auto a = Append("a", 0);
  const int held = open(Index(), O_RDWR);
  ASSERT_GT(held, 0);
  ASSERT_EQ(LockReportIndex(held), 0);
  const pid_t reader = Spawn([&] {
    ReportList list;
    std::uint32_t code = 0;
    return ReadReportIndexAt(Index(), list, 0, &code) && list.size() == 1;
  });
  EXPECT_TRUE(EndsWithin(reader, 10000));
  const pid_t rewriter = Spawn([&] {
    std::uint32_t code = 0;
    return WriteReportIndexWithoutAt(Index(), {&a}, &code);
  });
  EXPECT_FALSE(EndsWithin(rewriter, 300));
  EXPECT_EQ(Read().size(), 1u);
  EXPECT_EQ(UnlockReportIndex(held), 0);
  EXPECT_TRUE(EndsWithin(rewriter, 10000));
  EXPECT_TRUE(Read().empty());
  close(held);
  EXPECT_EQ(LockReportIndex(0), -1);
  EXPECT_EQ(UnlockReportIndex(-1), -1);
}

TEST_F(ReportIndexTest, RewriterThatWaitedRereadsTheIndexRenamedInMeanwhile) {
  const auto a = Append("a", 0);
  const auto b = Append("b", 0);
  Append("c", 0);
  const int held = open(Index(), O_RDWR);
  ASSERT_EQ(LockReportIndex(held), 0);
  std::uint32_t code = 0;
  const pid_t first = Spawn([&] { return WriteReportIndexWithoutAt(Index(), {&a}, &code); });
  const pid_t second = Spawn([&] { return WriteReportIndexWithoutAt(Index(), {&b}, &code); });
  usleep(200000);  // both wait for the lock on the same file
  close(held);
  EXPECT_TRUE(EndsWithin(first, 10000));
  EXPECT_TRUE(EndsWithin(second, 10000));
  EXPECT_EQ(Names(Read()), (std::vector<std::string>{"c"}));
}

// Entries are unique by name here; a set of names per snapshot.
std::set<std::string> NameSet(const ReportList& list) {
  std::set<std::string> names;
  for (const auto& entry : list) names.insert(FieldText(entry.szScanName).c_str());
  return names;
}

TEST_F(ReportIndexTest, DeleteAllUnderAConcurrentAppenderLosesNothingAppendedBeforeItsLock) {
  Append("first", 0);
  const pid_t appender = Spawn([&] {
    for (int i = 0; i < 4000; ++i) {
      const auto entry = scan_service::MakeReportEntry("e" + std::to_string(i), "t", "/r", 0);
      if (!scan_service::AppendReportEntry(entry, where_)) return false;
    }
    return true;
  });
  int rounds = 0;
  int status = 0;
  while (waitpid(appender, &status, WNOHANG) == 0 || rounds < 3) {
    const ReportList read = Read();  // what a delete-all deletes
    usleep(1000);
    const std::set<std::string> beforeLock = NameSet(Read());
    ReportEntryRefs deleted;
    for (const auto& entry : read) deleted.push_back(&entry);
    std::uint32_t code = 0;
    ASSERT_TRUE(WriteReportIndexWithoutAt(Index(), deleted, &code));
    const std::set<std::string> after = NameSet(Read());
    const std::set<std::string> deletedNames = NameSet(read);
    for (const std::string& name : beforeLock) {
      EXPECT_EQ(after.count(name), deletedNames.count(name) ? 0u : 1u)
          << name << " round " << rounds;
    }
    ++rounds;
  }
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

}  // namespace
