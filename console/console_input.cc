#include "console/console_input.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "console/interrupt.h"

namespace {

bool IsLineEnd(char c) { return c == '\n' || c == '\r'; }
bool IsLetter(char c, char lower) { return c == lower || c == std::toupper(lower); }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

char DecideYesNo(const char* text) {
  if (IsLetter(text[0], 'y')) {
    if (IsLineEnd(text[1])) return 'Y';
    if (!IsLetter(text[1], 'e')) return 'z';
    if (!IsLetter(text[2], 's')) return 'z';
    return IsLineEnd(text[3]) ? 'Y' : 'z';
  }
  if (IsLetter(text[0], 'n')) {
    if (IsLineEnd(text[1])) return 'N';
    if (!IsLetter(text[1], 'o')) return 'z';
    return IsLineEnd(text[2]) ? 'N' : 'z';
  }
  return text[0];
}

}  // namespace

std::size_t ReadLine(char* buffer, std::size_t size) {
  std::memset(buffer, 0, size);
  // Read character by character rather than with fgets, so that the count
  // of a line that holds NUL characters is known.
  std::size_t count = 0;
  BeginInputWait();
  while (count + 1 < size) {
    const int c = std::getc(stdin);
    if (c == EOF) break;
    buffer[count++] = static_cast<char>(c);
    if (c == '\n') break;
  }
  EndInputWait();
  if (count == 0) EndAsInterrupted();
  return count;
}

void DiscardRestOfLine() {
  char chunk[kInputLineSize];
  std::size_t count;
  do {
    count = ReadLine(chunk, sizeof chunk);
  } while (chunk[count - 1] != '\n');
}

void ReadOneCharacter() {
  BeginInputWait();
  int c = std::getchar();
  EndInputWait();
  if (c == EOF) EndAsInterrupted();
}

bool ReadNumber(std::int32_t* value) {
  char line[kInputLineSize];
  ReadLine(line, sizeof line);
  if (!IsDigit(line[0])) return false;
  std::int64_t number = 0;
  for (const char* p = line;; ++p) {
    if (*p == '\n') break;
    if (!IsDigit(*p)) return false;
    number = number * 10 + (*p - '0');
    if (number > INT32_MAX) return false;
  }
  *value = static_cast<std::int32_t>(number);
  return true;
}

void ReadYesNo(char* answer, char defaultAnswer) {
  char line[kInputLineSize];
  ReadLine(line, sizeof line);
  if (IsLineEnd(line[0])) {
    *answer = defaultAnswer;
    return;
  }
  const char* text = line;
  while (*text != '\0' && std::isspace(static_cast<unsigned char>(*text))) ++text;
  *answer = (*text == '\0') ? 'z' : DecideYesNo(text);
}
