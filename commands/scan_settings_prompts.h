// The setting prompts that the add and modify wizards share. The wizards ask
// the same things in the same ranges; the few texts in which they differ are
// given by a WizardTexts of each wizard.
#pragma once

#include <cstdint>

#include "console/questions.h"
#include "taskstore/schedule_scan_entry.h"

struct WizardTexts {
  const char* frequencyTitle;  // title of the frequency menu
  QuestionText weekDayRangeError;
  const char* scanTimeLead;  // written before the scan time heading
  QuestionText minuteRangeError;
  const char* weeklyRecurrenceLead;  // written before the weekly recurrence prompt
  const char* repeatUnitTitle;       // title of the repeat unit menu
  QuestionText repeatUnitError;        // a number that is not on that menu
  QuestionText repeatHoursPrompt;
  QuestionText repeatHoursRangeError;
};

extern const WizardTexts kAddWizardTexts;
extern const WizardTexts kModifyWizardTexts;

// The frequency menu; returns FREQ_DAILY or FREQ_WEEKLY.
std::uint8_t AskFrequency(const WizardTexts& texts);
// The weekday, 1 (Sunday) to 7 (Saturday).
std::uint8_t AskWeekDay(const WizardTexts& texts);
// The "run at system start" question; true for yes.
bool AskFirstBootScan();
// The scan time heading and its hour, minute and second.
void AskScanTime(const WizardTexts& texts, tagSCHEDULE_SCAN_ENTRY& entry);
// Every how many days (daily) or weeks (weekly) the scan day comes.
std::int16_t AskRecurrence(const WizardTexts& texts, std::uint8_t frequency);
// The repeat unit menu and the interval in that unit.
void AskRepeatInterval(const WizardTexts& texts, tagSCHEDULE_SCAN_ENTRY& entry);
// The four scanner option questions; returns the option bits.
std::uint8_t AskScanOptions();
// The action menu; returns ACTION_REPAIR_ONLY to ACTION_REPORT_ONLY.
std::int16_t AskScanAction();
// Asks for directories until the user wants no more, appending each accepted
// one; a directory beyond MAX_SCAN_ITEMS is refused and ends the asking.
void AskDirectories(ScanItemList& items);
