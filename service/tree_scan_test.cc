#include "service/tree_scan.h"

#include <gtest/gtest.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <tuple>

#include "testing/scan_fixtures.h"
#include "testing/signature_database.h"

namespace {

using service::TreeScanTotals;
using testing_support::Sample;
using testing_support::SampleContent;
using Paths = std::map<std::string, std::string>;

auto Tie(const TreeScanTotals& t) {
  return std::tuple(t.files, t.bytes, t.infected, t.actions, t.errors, t.skippedDumps);
}

bool Exists(const std::string& path) {
  struct stat status;
  return lstat(path.c_str(), &status) == 0;
}

// Records the scan's calls, unlocked: the scan serializes them, and the
// thread sanitizer holds it to that.
struct Sink : service::TreeScanSink {
  enum Keep { kCopy, kFail, kCopyThenReplaceFile } keep = kCopy;
  std::atomic<bool>* stopAtDetection = nullptr;
  Paths found, notAccessible, kept;  // signature and action; reason; bytes kept or "dropped"

  void Detected(const service::Detection& d) override {
    found[d.path] = d.signature + ": " + d.action;
    if (stopAtDetection != nullptr) *stopAtDetection = true;
  }
  void NotAccessible(const std::string& path, const std::string& why) override {
    notAccessible[path] = why;
  }
  std::string Quarantine(int fd, const struct stat& status, const std::string& path,
                         const std::string&) override {
    std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
    if (keep == kFail || pread(fd, bytes.data(), bytes.size(), 0) != status.st_size) return "";
    if (keep == kCopyThenReplaceFile) {
      testing_support::WriteFile(path + "~", "new");
      EXPECT_EQ(rename((path + "~").c_str(), path.c_str()), 0) << std::strerror(errno);
    }
    kept[path] = bytes;
    return path;
  }
  void DropQuarantined(const std::string& id) override { kept[id] = "dropped"; }
  void Progress(const TreeScanTotals&, const std::string&) override {}
};

class TreeScanTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(base_ + "/db");
    std::filesystem::create_directories(base_ + "/outside/dir");
    testing_support::WriteSignatureDatabase(base_ + "/db");
    testing_support::WriteFile(base_ + "/outside/dir/marker.txt", SampleContent(Sample::kMarker));
    ASSERT_EQ(symlink("tree", (base_ + "/rootlink").c_str()), 0);
    std::string error;
    engine_ = service::ScanEngine::Load(base_ + "/db", SCAN_OPT_ARCHIVE, &error);
    ASSERT_NE(engine_, nullptr) << error;
    MakeTree();
  }

  // The tree afresh: samples, links out of it, a FIFO.
  void MakeTree() {
    std::filesystem::remove_all(tree_);
    std::filesystem::create_directories(tree_ + "/a/b/c");
    std::filesystem::create_directories(tree_ + "/many");
    files_ = {{"marker.txt", Sample::kMarker},    {"eicar.com", Sample::kEicar},
              {"clean.txt", Sample::kClean},      {"archive.zip", Sample::kZippedMarker},
              {"core", Sample::kElfCore},         {"a/b/note.txt", Sample::kClean},
              {"a/b/c/deep.txt", Sample::kMarker}};
    for (int i = 0; i < 30; ++i)
      files_["many/" + std::to_string(i)] = i % 3 ? Sample::kClean : Sample::kMarker;
    for (const auto& [name, sample] : files_)
      testing_support::WriteFile(tree_ + "/" + name, SampleContent(sample));
    ASSERT_EQ(symlink("../outside/dir/marker.txt", (tree_ + "/link").c_str()), 0);
    ASSERT_EQ(symlink("../outside/dir", (tree_ + "/dirlink").c_str()), 0);
    ASSERT_EQ(mkfifo((tree_ + "/fifo").c_str(), 0600), 0) << std::strerror(errno);
  }

  TreeScanTotals Scan(const service::TreeScanRequest& request, Sink& sink) {
    const std::atomic<bool> stop(false);
    return service::ScanTrees(request, *engine_, sink, stop);
  }

  testing_support::ScratchDirectory scratch_;
  const std::string base_ = scratch_.path();
  const std::string tree_ = scratch_ / "tree";
  std::map<std::string, Sample> files_;
  std::unique_ptr<service::ScanEngine> engine_;
};

TEST_F(TreeScanTest, ActsOnEveryInfectedFileAsTheActionSaysOnAnyNumberOfThreads) {
  struct Row {
    std::int16_t action;
    Sink::Keep keep;
    unsigned threads;
    const char* done;
    bool removed;
    const char* copy;  // what the quarantine ends with: "" nothing, "bytes" the file's, "dropped"
  };
  const Row rows[] = {
      {ACTION_REPORT_ONLY, Sink::kCopy, 1, "reported", false, ""},
      {ACTION_REPORT_ONLY, Sink::kCopy, 4, "reported", false, ""},
      {ACTION_DELETE, Sink::kCopy, 3, "deleted", true, ""},
      {ACTION_REPAIR_ONLY, Sink::kCopy, 2, "quarantined as {} (it cannot be repaired)", true, "bytes"},
      {ACTION_REPAIR_ONLY, Sink::kFail, 2, "not quarantined", false, ""},
      {ACTION_REPAIR_DELETE, Sink::kCopy, 2, "quarantined as {} (it cannot be repaired)", true, "bytes"},
      {ACTION_REPAIR_DELETE, Sink::kFail, 2, "deleted (it could not be quarantined)", true, ""},
      {ACTION_REPAIR_ONLY, Sink::kCopyThenReplaceFile, 2, "not quarantined: the file changed",
       false, "dropped"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.done);
    MakeTree();
    Sink sink;
    sink.keep = row.keep;
    const std::string root = base_ + "/rootlink";  // a link that is a root is followed
    const TreeScanTotals totals =
        Scan({{root, base_ + "/gone", tree_ + "/clean.txt"}, row.action, row.threads}, sink);
    Paths found, kept;
    TreeScanTotals expected{.errors = 2, .skippedDumps = 1};
    for (const auto& [name, sample] : files_) {
      const std::string content = SampleContent(sample);
      const bool infected = sample != Sample::kClean && sample != Sample::kElfCore;
      EXPECT_EQ(Exists(tree_ + "/" + name), !infected || !row.removed) << name;
      expected.files += sample != Sample::kElfCore;
      expected.bytes += sample != Sample::kElfCore ? content.size() : 0;
      if (!infected) continue;
      ++expected.infected;
      expected.actions += row.removed;
      const std::string signature = sample == Sample::kEicar ? testing_support::kEicarSignature
                                                             : testing_support::kMarkerSignature;
      std::string done = row.done;  // "{}" stands for the id, which the sink makes the path
      if (const auto id = done.find("{}"); id != done.npos) done.replace(id, 2, root + "/" + name);
      found[root + "/" + name] = signature + ".UNOFFICIAL: " + done;
      if (*row.copy != '\0') kept[root + "/" + name] = *row.copy == 'b' ? content : row.copy;
    }
    EXPECT_EQ(sink.found, found);
    EXPECT_EQ(sink.kept, kept);
    EXPECT_EQ(Tie(totals), Tie(expected));
    EXPECT_EQ(sink.notAccessible, (Paths{{base_ + "/gone", "No such file or directory"},
                                         {tree_ + "/clean.txt", "Not a directory"}}));
    EXPECT_TRUE(Exists(base_ + "/outside/dir/marker.txt"));
  }
}

TEST_F(TreeScanTest, StopsWhenToldAndSkipsPseudoFileSystems) {
  struct statfs proc;
  const bool haveProc = statfs("/proc/self", &proc) == 0;
  // The root, whether stopped before the start, whether stopped at the first detection.
  const std::tuple<std::string, bool, bool> rows[] = {
      {tree_, true, false}, {tree_, false, true}, {haveProc ? "/proc" : "", false, false}};
  for (const auto& [root, stopBefore, stopAtDetection] : rows) {
    if (root.empty()) continue;
    Sink sink;
    std::atomic<bool> stop(stopBefore);
    if (stopAtDetection) sink.stopAtDetection = &stop;
    const TreeScanTotals totals =
        service::ScanTrees({{root}, ACTION_DELETE, 1}, *engine_, sink, stop);
    // Stopped at its first detection, the one scanning thread takes no other file.
    EXPECT_EQ(totals.infected, stopAtDetection ? 1u : 0u) << root;
    EXPECT_EQ(totals.files == 0, !stopAtDetection) << root;
    EXPECT_EQ(totals.errors + sink.notAccessible.size(), 0u) << root;
  }
}

}  // namespace
