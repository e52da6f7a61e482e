#include "console/questions.h"

#include "console/console_input.h"
#include "console/message_print.h"

void PrintWizardText(const WizardText& text) {
  PrintLiteral(text.before);
  if (text.keyIsFormat) {
    PrintFormat0(text.key);
  } else {
    PrintText(text.key);
  }
  PrintLiteral(text.after);
}

std::int32_t AskNumber(const WizardText& prompt, std::int32_t minimum, std::int32_t maximum,
                       const WizardText& rangeError) {
  for (;;) {
    PrintWizardText(prompt);
    std::int32_t value = 0;
    if (!ReadNumber(&value)) {
      PrintMessageLine("schscan_valid_number_int");
    } else if (value < minimum || value > maximum) {
      PrintWizardText(rangeError);
    } else {
      return value;
    }
  }
}

bool AskYesNo(const WizardText& question) {
  for (;;) {
    PrintWizardText(question);
    char answer = 0;
    ReadYesNo(&answer, 'Y');
    if (answer == 'Y' || answer == 'y') return true;
    if (answer == 'N' || answer == 'n') return false;
    PrintMessageLine("schscan_valid_options");
  }
}
