#include "console/questions.h"

#include <cstdio>

#include "console/console_input.h"
#include "console/message_print.h"

void PrintQuestionText(const QuestionText& text) {
  PrintLiteral(text.before);
  if (text.keyIsFormat) {
    PrintFormat0(text.key);
  } else {
    PrintText(text.key);
  }
  PrintLiteral(text.after);
}

void PrintMenu(const char* lead, const char* title, std::span<const char* const> choices) {
  PrintLiteral(lead);
  PrintText(title);
  PrintLiteral(":\n");
  for (std::size_t i = 0; i < choices.size(); ++i) {
    char number[32];
    std::snprintf(number, sizeof number, "\t%zu. ", i + 1);
    PrintLiteral(number);
    PrintMessageLine(choices[i]);
  }
}

std::int32_t AskNumber(const QuestionText& prompt, std::int32_t minimum, std::int32_t maximum,
                       const QuestionText& rangeError) {
  for (;;) {
    PrintQuestionText(prompt);
    std::int32_t value = 0;
    if (!ReadNumber(&value)) {
      PrintMessageLine("schscan_valid_number_int");
    } else if (value < minimum || value > maximum) {
      PrintQuestionText(rangeError);
    } else {
      return value;
    }
  }
}

bool AskYesNo(const QuestionText& question) {
  for (;;) {
    PrintQuestionText(question);
    char answer = 0;
    ReadYesNo(&answer, 'Y');
    if (answer == 'Y' || answer == 'y') return true;
    if (answer == 'N' || answer == 'n') return false;
    PrintMessageLine("schscan_valid_options");
  }
}
