#include "service/scan_engine.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>

#include "taskstore/schedule_scan_entry.h"
#include "testing/scan_fixtures.h"
#include "testing/signature_database.h"

namespace {

using service::FileVerdict;
using service::ScanEngine;
using service::Verdict;
using testing_support::Sample;

constexpr std::uint8_t kArchive = SCAN_OPT_ARCHIVE;
constexpr std::uint8_t kSpyware = SCAN_OPT_SPYWARE;
constexpr std::uint8_t kDump = SCAN_OPT_DUMP;
constexpr std::uint8_t kEvery = SCAN_OPT_ARCHIVE | SCAN_OPT_SPYWARE | SCAN_OPT_DUMP | SCAN_OPT_PACKED;

// libclamav's name for a detection by a database it does not know as official.
std::string Reported(const char* signature) { return std::string(signature) + ".UNOFFICIAL"; }

// A scratch directory with our signature database in db/.
class ScanEngineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(mkdir(database_.c_str(), 0700), 0) << std::strerror(errno);
    testing_support::WriteSignatureDatabase(database_);
  }

  std::unique_ptr<ScanEngine> MustLoad(std::uint8_t options) {
    std::string error;
    auto engine = ScanEngine::Load(database_, options, &error);
    EXPECT_NE(engine, nullptr) << error;
    return engine;
  }

  std::string WriteSample(Sample sample) {
    const std::string path = root_ + "/sample" + std::to_string(static_cast<int>(sample));
    testing_support::WriteFile(path, testing_support::SampleContent(sample));
    return path;
  }

  // Opens `path`, scans it from a descriptor whose offset is past the file's
  // headers, and closes it again.
  static FileVerdict ScanPath(const ScanEngine& engine, const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return {Verdict::kError, "", "open: " + std::string(std::strerror(errno))};
    EXPECT_EQ(lseek(fd, 20, SEEK_SET), 20) << std::strerror(errno);
    FileVerdict verdict = engine.Scan(fd, path.c_str());
    EXPECT_EQ(close(fd), 0) << std::strerror(errno);
    return verdict;
  }

  testing_support::ScratchDirectory scratch_;
  const std::string root_ = scratch_.path();
  const std::string database_ = scratch_ / "db";
};

TEST_F(ScanEngineTest, VerdictsFollowTheOptionBits) {
  struct Row {
    const char* what;
    std::uint8_t options;
    Sample sample;
    Verdict verdict;
    std::string signature;
  };
  const std::string kMarkerSignature = Reported(testing_support::kMarkerSignature);
  const std::string kHashSignature = Reported(testing_support::kHashSignature);
  const std::string kPuaSignature = Reported(testing_support::kPuaSignature);
  const std::string kEicarSignature = Reported(testing_support::kEicarSignature);
  const Row rows[] = {
      {"clean", kEvery, Sample::kClean, Verdict::kClean, ""},
      {"empty", kEvery, Sample::kEmpty, Verdict::kClean, ""},
      {"marker", 0, Sample::kMarker, Verdict::kInfected, kMarkerSignature},
      {"hash", 0, Sample::kHashContent, Verdict::kInfected, kHashSignature},
      {"EICAR", 0, Sample::kEicar, Verdict::kInfected, kEicarSignature},
      {"zip, archives on", kArchive, Sample::kZippedMarker, Verdict::kInfected, kMarkerSignature},
      {"zip, archives off", kEvery & ~kArchive, Sample::kZippedMarker, Verdict::kClean, ""},
      {"PUA, spyware off", kEvery & ~kSpyware, Sample::kPuaMarker, Verdict::kClean, ""},
      {"PUA, spyware on", kSpyware, Sample::kPuaMarker, Verdict::kInfected, kPuaSignature},
      {"PUA and real", kSpyware, Sample::kPuaAndMarker, Verdict::kInfected, kMarkerSignature},
      {"core, dumps off", kEvery & ~kDump, Sample::kElfCore, Verdict::kSkippedDump, ""},
      {"core, dumps on", kDump, Sample::kElfCore, Verdict::kInfected, kMarkerSignature},
      {"big-endian core", 0, Sample::kElfCoreBigEndian, Verdict::kSkippedDump, ""},
      {"minidump", 0, Sample::kMinidump, Verdict::kSkippedDump, ""},
      {"full dump", 0, Sample::kFullDump, Verdict::kSkippedDump, ""},
      {"minidump, dumps on", kDump, Sample::kMinidump, Verdict::kInfected, kMarkerSignature},
      {"ELF executable", 0, Sample::kElfExecutable, Verdict::kInfected, kMarkerSignature},
  };
  std::map<std::uint8_t, std::unique_ptr<ScanEngine>> engines;
  for (const Row& row : rows) {
    auto& engine = engines[row.options];
    if (engine == nullptr) engine = MustLoad(row.options);
    ASSERT_NE(engine, nullptr) << row.what;
    const FileVerdict verdict = ScanPath(*engine, WriteSample(row.sample));
    EXPECT_EQ(verdict.verdict, row.verdict) << row.what << ": " << verdict.error;
    EXPECT_EQ(verdict.signature, row.signature) << row.what;
  }
}

TEST_F(ScanEngineTest, FilesOnBothSidesOfTheBufferSizeAreScannedWhole) {
  const auto engine = MustLoad(kEvery & ~kDump);
  ASSERT_NE(engine, nullptr);
  const std::string marked = testing_support::SampleContent(Sample::kMarker);
  const std::string clean = testing_support::SampleContent(Sample::kClean);
  const std::size_t limit = ScanEngine::kBufferedFileSize;
  struct Row {
    const char* what;
    std::string content;
    Verdict verdict;
  } rows[] = {
      {"marked, as large as the buffer", std::string(limit - marked.size(), 'x') + marked,
       Verdict::kInfected},
      {"marked, a byte larger", std::string(limit + 1 - marked.size(), 'x') + marked,
       Verdict::kInfected},
      {"clean, larger", std::string(limit, 'x') + clean, Verdict::kClean},
      {"core dump, larger",
       testing_support::SampleContent(Sample::kElfCore) + std::string(limit, 'x'),
       Verdict::kSkippedDump},
  };
  for (const Row& row : rows) {
    const std::string path = root_ + "/large";
    testing_support::WriteFile(path, row.content);
    const FileVerdict verdict = ScanPath(*engine, path);
    EXPECT_EQ(verdict.verdict, row.verdict) << row.what << ": " << verdict.error;
  }
}

TEST_F(ScanEngineTest, LoadReportsWhyItFailed) {
  const std::string empty = root_ + "/empty";
  const std::string broken = root_ + "/broken";
  const std::string puaOnly = root_ + "/pua";
  for (const std::string& directory : {empty, broken, puaOnly}) {
    ASSERT_EQ(mkdir(directory.c_str(), 0700), 0) << std::strerror(errno);
  }
  testing_support::WriteFile(broken + "/broken.ndb", "Korvane.Broken:0:*:not-hex\n");
  testing_support::WriteFile(puaOnly + "/pua.ndb", "PUA.Korvane.Only:0:*:4b4f52\n");
  struct Row {
    std::string directory;
    std::uint8_t options;
    std::string expected;  // part of the message
  } rows[] = {
      {root_ + "/missing", kEvery, root_ + "/missing: No such file or directory"},
      {database_ + "/korvane.ndb", kEvery, "korvane.ndb: not a directory"},
      {empty, kEvery, "cannot load signatures from " + empty + ": "},
      {broken, kEvery,
       ": Malformed database (Malformed hexstring: not-hex (length: 7); error loading database " +
           broken + "/broken.ndb)"},
      {puaOnly, 0, "no signatures in " + puaOnly},
  };
  for (const Row& row : rows) {
    std::string error;
    EXPECT_EQ(ScanEngine::Load(row.directory, row.options, &error), nullptr) << row.directory;
    EXPECT_NE(error.find(row.expected), std::string::npos) << error;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  }
}

TEST_F(ScanEngineTest, UnreadableFileIsAnErrorNamingIt) {
  const int fd = open(root_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_GE(fd, 0) << std::strerror(errno);
  for (const std::uint8_t options : {std::uint8_t{0}, kEvery}) {
    const auto engine = MustLoad(options);
    ASSERT_NE(engine, nullptr);
    const FileVerdict verdict = engine->Scan(fd, "/the/dir");
    EXPECT_EQ(verdict.verdict, Verdict::kError) << int{options};
    EXPECT_EQ(verdict.error, "/the/dir: Is a directory");
  }
  EXPECT_EQ(close(fd), 0);
}

}  // namespace
