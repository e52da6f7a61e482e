// The two question patterns of the scheduled scan wizards: a number in a
// range, and a yes/no question. Both print their own complaints and ask again
// until the answer is acceptable; only Ctrl-C or the end of input leaves them.
#pragma once

#include <cstdint>

// A prompt or message: a literal piece, the catalogue text of `key`, and
// another literal piece. Keys are written with the TextKey() marker, or with
// Format0Key() and `keyIsFormat` set where the text is a print format without
// arguments.
struct WizardText {
  const char* before;
  const char* key;
  const char* after;
  bool keyIsFormat = false;
};

void PrintWizardText(const WizardText& text);

// Writes `prompt` and reads a number until one lies in [minimum, maximum].
// A line that is not a number prints "schscan_valid_number_int" and ".\n", a
// number outside the range prints `rangeError`; either way only the prompt is
// written again.
std::int32_t AskNumber(const WizardText& prompt, std::int32_t minimum, std::int32_t maximum,
                       const WizardText& rangeError);

// Writes `question` and reads an answer (Enter alone means yes) until it is a
// yes or a no; any other answer prints "schscan_valid_options" and ".\n".
bool AskYesNo(const WizardText& question);
