// One command of the tool, run whole through its entry (banner, command,
// failure message) on arbitrary standard input, against the product
// directory reset to its seeded task store, report index and report files
// before every input. SCHSCAN_FUZZ_COMMAND names the command word's key; the
// build makes one target per command. The first input byte picks the caller
// (odd: user 1, who owns some of the seeded scans and reports, else the
// super-user); the rest is what the user types. The end of input ends the
// command as Ctrl-C does; no command may remove a file that is not a report
// in the reports directory.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "console/message_catalogue.h"
#include "fuzz/fuzz_support.h"
#include "testing/in_process.h"

#ifndef SCHSCAN_FUZZ_COMMAND
#error "SCHSCAN_FUZZ_COMMAND must name the command word's key"
#endif

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::SetUpSeededProduct();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  fuzz::ResetSeededProduct();
  const std::string_view input(reinterpret_cast<const char*>(data) + 1, size - 1);
  const bool show = std::getenv("SCHSCAN_FUZZ_SHOW_OUTPUT") != nullptr;
  const auto run = testing_support::RunInProcess({GetMessageText(SCHSCAN_FUZZ_COMMAND)}, input,
                                                 (data[0] & 1) != 0 ? 1 : 0, show);
  if (show) std::fwrite(run.output.data(), 1, run.output.size(), stderr);
  fuzz::CheckProtectedFilesRemain();
  return 0;
}
