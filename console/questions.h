// Questions and menus: a number in a range, a yes/no question, and the
// numbered menu printed before a number question. The questions print their
// own complaints and ask again until the answer is acceptable; only Ctrl-C or
// the end of input leaves them.
#pragma once

#include <cstdint>
#include <span>

#include "console/message_print.h"

// A prompt or message: a literal piece, the catalogue text of `key`, and
// another literal piece. Keys are written with the TextKey() marker, or with
// Format0Key() and `keyIsFormat` set where the text is a print format without
// arguments.
struct QuestionText {
  const char* before;
  const char* key;
  const char* after;
  bool keyIsFormat = false;
};

inline constexpr QuestionText kMenuNumberPrompt = {"", TextKey("cli_usrInput_menuNumber"), ""};
inline constexpr QuestionText kMenuNumberError = {"", TextKey("schscan_valid_menunumber"), ".\n"};

void PrintQuestionText(const QuestionText& text);

// Writes `lead`, the text of `title`, ":\n", then one line per choice:
// "\t1. ", the text of the choice, ".\n".
void PrintMenu(const char* lead, const char* title, std::span<const char* const> choices);

// Writes `prompt` and reads a number until one lies in [minimum, maximum].
// A line that is not a number prints "schscan_valid_number_int" and ".\n", a
// number outside the range prints `rangeError`; either way only the prompt is
// written again.
std::int32_t AskNumber(const QuestionText& prompt, std::int32_t minimum, std::int32_t maximum,
                       const QuestionText& rangeError);

// Writes `question` and reads an answer (Enter alone means yes) until it is a
// yes or a no; any other answer prints "schscan_valid_options" and ".\n".
bool AskYesNo(const QuestionText& question);
