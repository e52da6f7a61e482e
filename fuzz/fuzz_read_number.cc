// ReadNumber on arbitrary standard input: every line is read without harm,
// and each answer agrees with the rule "one or more decimal digits directly
// followed by the line feed, within the 32-bit signed range".
#include <cstdint>
#include <string>
#include <vector>

#include "console/console_input.h"
#include "fuzz/fuzz_support.h"

namespace {

// The rule, written out independently of the reader.
bool ExpectedNumber(const std::string& piece, std::int32_t* value) {
  const std::string text = piece.substr(0, piece.find('\0'));  // the reader sees a C string
  if (text.empty() || text[0] < '0' || text[0] > '9') return false;
  std::int64_t number = 0;
  for (std::size_t i = 0;; ++i) {
    if (i == text.size()) return false;  // no line feed
    if (text[i] == '\n') break;
    if (text[i] < '0' || text[i] > '9') return false;
    number = number * 10 + (text[i] - '0');
    if (number > INT32_MAX) return false;
  }
  *value = static_cast<std::int32_t>(number);
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::SetUpConsole();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> pieces = fuzz::SplitAsLineReads(data, size, kInputLineSize);
  fuzz::FeedStandardInput(data, size);
  std::size_t read = 0;
  fuzz::RunToEndOfInput([&] {
    for (;; ++read) {
      std::int32_t value = -7;
      const bool accepted = ReadNumber(&value);
      fuzz::Require(read < pieces.size(), "a read past the end of input returned");
      std::int32_t expected = -7;
      const bool expectedAccepted = ExpectedNumber(pieces[read], &expected);
      fuzz::Require(accepted == expectedAccepted, "ReadNumber accepted the wrong line");
      fuzz::Require(value == expected, "ReadNumber stored the wrong value");
    }
  });
  fuzz::Require(read == pieces.size(), "ReadNumber did not read line by line");
  return 0;
}
