// One command of the tool, run whole through its entry (banner, command,
// failure message) on arbitrary standard input, against the product
// directory reset to its seeded task store, report index and report files
// before every input. SCHSCAN_FUZZ_COMMAND names the command word's key; the
// build makes one target per command. The first input byte picks the caller
// (odd: an ordinary user, else the super-user); the rest is what the user
// types. The end of input ends the command as Ctrl-C does; no command may
// remove a file that is not a report in the reports directory.
#include <signal.h>

#include <cstdint>

#include "app/dispatch.h"
#include "console/message_catalogue.h"
#include "fuzz/fuzz_support.h"

#ifndef SCHSCAN_FUZZ_COMMAND
#error "SCHSCAN_FUZZ_COMMAND must name the command word's key"
#endif

namespace {

struct sigaction g_fuzzerInterrupt {};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::SetUpSeededProduct();
  fuzz::SetUpConsole();
  sigaction(SIGINT, nullptr, &g_fuzzerInterrupt);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  fuzz::ResetSeededProduct();
  {
    fuzz::RealUserScope user((data[0] & 1) != 0 ? fuzz::kOtherUser : fuzz::kRootUser);
    fuzz::FeedStandardInput(data + 1, size - 1);
    char program[] = "schscan";
    char* argv[] = {program, const_cast<char*>(GetMessageText(SCHSCAN_FUZZ_COMMAND)), nullptr};
    fuzz::RunToEndOfInput([&] { RunCommandLine(2, argv); });
  }
  // The tool's own Ctrl-C handler gives way to the fuzzer's again.
  sigaction(SIGINT, &g_fuzzerInterrupt, nullptr);
  fuzz::CheckProtectedFilesRemain();
  return 0;
}
