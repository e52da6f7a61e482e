#include "commands/scan_settings_prompts.h"

#include "commands/scan_directory_prompt.h"
#include "console/console_input.h"
#include "console/message_print.h"

constexpr WizardTexts kAddWizardTexts = {
    TextKey("schscan_msg_scan_frequency"),
    {"", TextKey("schscan_valid_weekday"), ".\n"},
    "",
    {"", TextKey("schscan_valid_time_minutes"), ".\n"},
    "\n",
    TextKey("schscan_msg_repeatescan_time"),
    kMenuNumberError,
    {"", TextKey("schscan_msg_enter_hours"), ":"},
    {"", TextKey("schscan_valid_hours"), ".\n"},
};

constexpr WizardTexts kModifyWizardTexts = {
    TextKey("schscan_msg_scanfrequency"),
    {"", TextKey("schscan_valid_weekdays"), ".\n"},
    "\n",
    {"", Format0Key("Please enter valid time (minutes).\n"), "", true},
    "",
    TextKey("schscan_msg_entertimetoscan"),
    {"", TextKey("schscan_valid_options"), ".\n"},
    {"", Format0Key("Enter repeat time in hours (1-23):"), "", true},
    {"", Format0Key("Please enter hours between 1-23.\n"), "", true},
};

std::uint8_t AskFrequency(const WizardTexts& texts) {
  constexpr const char* kChoices[] = {TextKey("schscan_msg_dailyscan"),
                                      TextKey("schscan_msg_weeklyscan")};
  PrintMenu("\n", texts.frequencyTitle, kChoices);
  return AskNumber(kMenuNumberPrompt, 1, 2, kMenuNumberError) == 1 ? FREQ_DAILY : FREQ_WEEKLY;
}

std::uint8_t AskWeekDay(const WizardTexts& texts) {
  return static_cast<std::uint8_t>(
      AskNumber({"", TextKey("schscan_enter_weekday"), ":"}, 1, 7, texts.weekDayRangeError));
}

bool AskFirstBootScan() { return AskYesNo({"\n", TextKey("schscan_msg_firstbootscan"), ":"}); }

void AskScanTime(const WizardTexts& texts, tagSCHEDULE_SCAN_ENTRY& entry) {
  PrintLiteral(texts.scanTimeLead);
  PrintText("schscan_msg_enterscantime");
  PrintLiteral(":\n");
  entry.nHour =
      static_cast<std::int16_t>(AskNumber({"", TextKey("schscan_msg_enterhours"), ":"}, 0, 23,
                                          {"", TextKey("schscan_valid_hourtime"), ".\n"}));
  entry.nMinute = static_cast<std::int16_t>(
      AskNumber({"", TextKey("schscan_msg_enter_minutes"), ":"}, 0, 59, texts.minuteRangeError));
  entry.nSecond =
      static_cast<std::int16_t>(AskNumber({"", TextKey("schscan_msg_enter_seconds"), ":"}, 0, 59,
                                          {"", TextKey("schscan_valid_time_seconds"), ".\n"}));
}

std::int16_t AskRecurrence(const WizardTexts& texts, std::uint8_t frequency) {
  if (frequency == FREQ_DAILY) {
    return static_cast<std::int16_t>(AskNumber({"\n", TextKey("schscan_msg_days_recurscan"), ":"},
                                               1, 90, {"", TextKey("schscan_valid_days"), ".\n"}));
  }
  return static_cast<std::int16_t>(
      AskNumber({texts.weeklyRecurrenceLead, TextKey("schscan_msg_recurscan_week"), ":"}, 1, 15,
                {"", TextKey("schscan_valid_weeks"), ".\n"}));
}

void AskRepeatInterval(const WizardTexts& texts, tagSCHEDULE_SCAN_ENTRY& entry) {
  PrintText(texts.repeatUnitTitle);
  PrintLiteral(":\n\t1. ");
  PrintText("schscan_str_hour");
  PrintLiteral("\n\t2. ");
  PrintText("schscan_str_minute");
  PrintLiteral("\n");
  if (AskNumber(kMenuNumberPrompt, 1, 2, texts.repeatUnitError) == 1) {
    entry.byRepeatUnit = REPEAT_UNIT_HOURS;
    entry.nRepeatInterval = static_cast<std::int16_t>(
        AskNumber(texts.repeatHoursPrompt, 1, 23, texts.repeatHoursRangeError));
  } else {
    entry.byRepeatUnit = REPEAT_UNIT_MINUTES;
    entry.nRepeatInterval =
        static_cast<std::int16_t>(AskNumber({"", TextKey("schscan_msg_enter_minutes_2"), ":"}, 1,
                                            1439, {"", TextKey("schscan_valid_minutes"), ".\n"}));
  }
}

std::uint8_t AskScanOptions() {
  struct OptionQuestion {
    const char* key;
    std::uint8_t bit;
  };
  constexpr OptionQuestion kQuestions[] = {
      {TextKey("schscan_msg_scan_archive"), SCAN_OPT_ARCHIVE},
      {TextKey("schscan_msg_scan_spyware"), SCAN_OPT_SPYWARE},
      {TextKey("schscan_msg_scan_dump"), SCAN_OPT_DUMP},
      {TextKey("schscan_msg_scan_packed"), SCAN_OPT_PACKED},
  };
  std::uint8_t options = 0;
  for (const OptionQuestion& question : kQuestions) {
    if (AskYesNo({"", question.key, ":"})) options |= question.bit;
  }
  return options;
}

std::int16_t AskScanAction() {
  constexpr const char* kChoices[] = {
      TextKey("schscan_msg_repaironly"), TextKey("schscan_msg_repairdelete"),
      TextKey("schscan_msg_delete"), TextKey("schscan_msg_reportonly")};
  PrintMenu("\n", TextKey("schscan_msg_scan_action"), kChoices);
  return static_cast<std::int16_t>(AskNumber(kMenuNumberPrompt, 1, 4, kMenuNumberError) - 1);
}

void AskDirectories(ScanItemList& items) {
  for (;;) {
    tagSCAN_ITEM item;
    do {
      item = tagSCAN_ITEM{};
    } while (!PromptScanDirectory(items, item.szPath));
    if (items.size() >= MAX_SCAN_ITEMS) {
      PrintFormatD("schscan_valid_scan_items", static_cast<int>(MAX_SCAN_ITEMS));
      PrintLiteral(".\n");
      PrintText("schscan_msg_presskey");
      PrintLiteral(".");
      ReadOneCharacter();
      return;
    }
    items.Append(item);
    if (!AskYesNo({"", TextKey("schscan_confirm_addmore_item"), ":"})) return;
  }
}
