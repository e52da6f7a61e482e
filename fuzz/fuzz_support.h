// Shared pieces of the fuzz targets: standard input fed from each input, the
// end of input turned into an exception, a scratch directory for files made
// from inputs, and the product directory seeded with a known task store and
// report index that the whole-command targets reset before every input.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace fuzz {

// Thrown by the end-of-input hook once an input's standard input is used up.
struct EndOfInput {};

// Once per process: standard input becomes an in-memory file, standard output
// goes to /dev/null (unless SCHSCAN_FUZZ_SHOW_OUTPUT is set in the
// environment), and the end of standard input throws EndOfInput instead of
// ending the process.
void SetUpConsole();

// Makes `data` the whole of standard input, to be read from its start.
void FeedStandardInput(const std::uint8_t* data, std::size_t size);

// The pieces in which successive reads of at most `readSize` - 1 characters,
// each stopping after a line feed, take `data` (as fgets reads it).
std::vector<std::string> SplitAsLineReads(const std::uint8_t* data, std::size_t size,
                                          std::size_t readSize);

// Runs `body` until it returns or the input is used up.
template <typename Body>
void RunToEndOfInput(Body&& body) {
  try {
    body();
  } catch (const EndOfInput&) {
  }
  std::fflush(stdout);
}

// A broken invariant: prints `what` and aborts, which the fuzzer reports.
[[noreturn]] void Fail(const char* what);
inline void Require(bool condition, const char* what) {
  if (!condition) Fail(what);
}

// A directory of this process's own for files made from inputs.
const std::string& ScratchDir();
void WriteFileOrDie(const std::string& path, const void* data, std::size_t size);
bool FileExists(const std::string& path);

// Users of the seeded data: the super-user and one ordinary user.
inline constexpr std::uint32_t kRootUser = 0;
inline constexpr std::uint32_t kOtherUser = 1000;

// Lays out the product directory (catalogue, task store, report index and
// report files, a file outside the reports directory that index entries point
// at) and keeps its seeded contents. Waits while another fuzz process holds
// the product directory. Call once.
void SetUpSeededProduct();
// Puts the seeded task store, report index and report files back.
void ResetSeededProduct();
// Files that no command may ever remove, whatever an index entry names.
void CheckProtectedFilesRemain();

// Makes `uid` the real user id for the scope, the effective user staying the
// super-user, as the tool runs for an ordinary user when installed with extra
// privileges. Does nothing unless the process runs as the super-user.
class RealUserScope {
 public:
  explicit RealUserScope(std::uint32_t uid);
  RealUserScope(const RealUserScope&) = delete;
  RealUserScope& operator=(const RealUserScope&) = delete;
  ~RealUserScope();

 private:
  bool switched_ = false;
};

}  // namespace fuzz
