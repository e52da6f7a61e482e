// ReadYesNo on arbitrary standard input: every line is read without harm,
// and each answer agrees with the yes/no rules: an empty line gives the
// default; after leading white space y/yes and n/no in any case, ended by a
// line feed or a carriage return, give 'Y' and 'N'; another word that starts
// with y or n gives 'z'; white space only gives 'z'; anything else gives its
// first character.
#include <cctype>
#include <cstdint>
#include <string>
#include <vector>

#include "console/console_input.h"
#include "fuzz/fuzz_support.h"

namespace {

constexpr char kDefault = 'Q';

bool IsEnd(char c) { return c == '\n' || c == '\r'; }
char Lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

char ExpectedAnswer(const std::string& piece) {
  std::string text = piece.substr(0, piece.find('\0'));  // the reader sees a C string
  if (!text.empty() && IsEnd(text[0])) return kDefault;
  std::size_t start = 0;
  while (start < text.size() && std::isspace(static_cast<unsigned char>(text[start]))) ++start;
  text = text.substr(start) + std::string(4, '\0');
  if (text[0] == '\0') return 'z';
  if (Lower(text[0]) == 'y') {
    if (IsEnd(text[1])) return 'Y';
    return Lower(text[1]) == 'e' && Lower(text[2]) == 's' && IsEnd(text[3]) ? 'Y' : 'z';
  }
  if (Lower(text[0]) == 'n') {
    if (IsEnd(text[1])) return 'N';
    return Lower(text[1]) == 'o' && IsEnd(text[2]) ? 'N' : 'z';
  }
  return text[0];
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
      char answer = 0;
      ReadYesNo(&answer, kDefault);
      fuzz::Require(read < pieces.size(), "a read past the end of input returned");
      fuzz::Require(answer == ExpectedAnswer(pieces[read]), "ReadYesNo gave the wrong answer");
    }
  });
  fuzz::Require(read == pieces.size(), "ReadYesNo did not read line by line");
  return 0;
}
