// Tables of lines that show one scheduled scan setting by setting: the add
// wizard's summary and the view command's detail view are two such tables,
// printed by the one routine below.
#pragma once

#include <cstdint>
#include <span>

#include "taskstore/schedule_scan_entry.h"

// When a line is printed. Lines whose value cannot be shown (a frequency that
// is neither daily nor weekly, a weekday outside 1 to 7) are left out.
enum class DetailCondition : std::uint8_t {
  kAlways,
  kFrequencyKnown,  // daily or weekly
  kDaily,
  kWeekly,
  kWeeklyWithDay,  // weekly, with a weekday of 1 to 7
  kFirstBoot,      // bFirstBootScan 1
  kTimed,          // bFirstBootScan 0
  kTimedDaily,
  kTimedWeekly,
  kTimedRepeat,  // bFirstBootScan 0 and bRepeatScan 1
  kOption,       // the bit `value` of byScanOptions is set
  kAction,       // nScanAction equals `value`
  kEachItem,     // once per directory, in list order
};

// What the key is and what it is given.
enum class DetailArgument : std::uint8_t {
  kNone,          // no key: only the line end is written
  kText,          // the text of the key, unchanged
  kLabel,         // format (text of `label`)
  kLabelName,     // format (text of `label`, scan name)
  kLabelWeekDay,  // format (text of `label`, weekday word)
  kLabelTime,     // format (text of `label`, hour, minute, second)
  kRecurrence,    // format (nRecurEvery)
  kRepeat,        // format (nRepeatInterval, unit word)
  kEmpty,         // format (empty string)
  kEmptyPath,     // format (empty string, directory path)
};

struct DetailLine {
  DetailCondition condition;
  int value;  // the option bit or action number that the condition tests
  DetailArgument argument;
  const char* key;
  const char* label;
  const char* lineEnd;
};

void PrintDetailTable(std::span<const DetailLine> table, const tagSCHEDULE_SCAN_ENTRY& entry);

// The add wizard's summary before its confirmation question.
void PrintAddScanSummary(const tagSCHEDULE_SCAN_ENTRY& entry);
// The view command's detail view of one scan.
void PrintScanDetailView(const tagSCHEDULE_SCAN_ENTRY& entry);
