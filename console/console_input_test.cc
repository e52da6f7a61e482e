#include "console/console_input.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace {

// Makes `text` the whole of standard input.
void FeedStandardInput(const std::string& text) {
  char path[] = "/tmp/console_input_testXXXXXX";
  int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  close(fd);
  ASSERT_NE(std::freopen(path, "r", stdin), nullptr);
  unlink(path);
}

TEST(ReadNumber, AcceptsOnlyDigitsEndedByLineFeed) {
  struct Case {
    const char* line;
    bool accepted;
    std::int32_t value;
  } cases[] = {
      {"12\n", true, 12},          {"0\n", true, 0},
      {"007\n", true, 7},          {"2147483647\n", true, 2147483647},
      {"2147483648\n", false, 0},  {"99999999999999999999\n", false, 0},
      {"\n", false, 0},            {" 5\n", false, 0},
      {"5 \n", false, 0},          {"+5\n", false, 0},
      {"-5\n", false, 0},          {"5a\n", false, 0},
      {"12\r\n", false, 0},        {"12", false, 0},
  };
  for (const Case& c : cases) {
    FeedStandardInput(c.line);
    std::int32_t value = -77;
    EXPECT_EQ(ReadNumber(&value), c.accepted) << c.line;
    EXPECT_EQ(value, c.accepted ? c.value : -77) << c.line;
  }
}

TEST(ReadNumber, LongLineIsReadInPieces) {
  FeedStandardInput(std::string(1500, '1') + "\n7\n");
  std::int32_t value = -1;
  EXPECT_FALSE(ReadNumber(&value));  // first 1023 characters, no line feed
  EXPECT_FALSE(ReadNumber(&value));  // the remaining 477 digits overflow
  EXPECT_TRUE(ReadNumber(&value));
  EXPECT_EQ(value, 7);
}

// A typed NUL is a character of the line like any other. Found by fuzzing the
// name prompt, which measured lines with strlen and took "ab<NUL>cd" for the
// name "ab"; skipping the rest of a line stopped at no line feed behind a NUL.
TEST(ReadLine, CountsNulCharactersAndStopsAfterTheLineFeed) {
  FeedStandardInput(std::string("ab\0cd\n\0tail\nnext\nlast", 21));
  char line[16];
  ASSERT_EQ(ReadLine(line, sizeof line), 6u);
  EXPECT_EQ(std::string(line, 6), std::string("ab\0cd\n", 6));
  DiscardRestOfLine();  // "\0tail\n", and no more
  ASSERT_EQ(ReadLine(line, 4), 3u);  // at most size - 1 characters
  EXPECT_STREQ(line, "nex");
  ASSERT_EQ(ReadLine(line, sizeof line), 2u);
  EXPECT_STREQ(line, "t\n");
  ASSERT_EQ(ReadLine(line, sizeof line), 4u);  // the last line, without a line feed
  EXPECT_STREQ(line, "last");
}

TEST(ReadYesNo, Answers) {
  struct Case {
    const char* line;
    char answer;
  } cases[] = {
      {"\n", 'Y'},     {"\r\n", 'Y'},    {"Y\n", 'Y'},    {"y\n", 'Y'},    {"YES\n", 'Y'},
      {"yes\n", 'Y'},  {"yEs\n", 'Y'},   {"  yes\n", 'Y'}, {"yes\r\n", 'Y'}, {"\tY\n", 'Y'},
      {"N\n", 'N'},    {"n\n", 'N'},     {"no\n", 'N'},   {"NO\n", 'N'},   {"No\n", 'N'},
      {"nO\n", 'N'},   {"n\r\n", 'N'},   {"ye\n", 'z'},   {"yess\n", 'z'}, {"yeah\n", 'z'},
      {"nope\n", 'z'}, {"yes please\n", 'z'}, {"y es\n", 'z'}, {"  \n", 'z'}, {"q\n", 'q'},
      {"x\n", 'x'},    {"1\n", '1'},     {"abc\n", 'a'},
  };
  for (const Case& c : cases) {
    FeedStandardInput(c.line);
    char answer = '?';
    ReadYesNo(&answer, 'Y');
    EXPECT_EQ(answer, c.answer) << '"' << c.line << '"';
  }
}

}  // namespace
