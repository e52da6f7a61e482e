#include "service/scheduler.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <vector>

namespace service {
namespace {

using std::chrono::seconds;

constexpr seconds kDelay{120};

struct Rule {
  int frequency = FREQ_DAILY;
  const char* start = "10:00:00";
  int every = 1;
  int repeatMinutes = 0;  // 0: no repeat
  int weekDay = 0;
  int firstBoot = 0;
};

// One look of the service at the time: `wall` local (UTC) and `steady`
// seconds after its start; whether the clock jumped; the run expected.
struct Look {
  const char* wall;
  int steady;
  bool jumped;
  bool due;
};

struct Case {
  const char* what;
  Rule rule;
  const char* anchor;
  const char* lastRun;  // "" when it never ran
  bool newBoot;
  const char* start;    // when the service starts
  std::vector<Look> looks;
};

const date::time_zone& Utc() { return *date::locate_zone("UTC"); }

Instant At(const char* text) {
  const auto instant = ParseLocalMoment(text, Utc());
  EXPECT_TRUE(instant) << text;
  return instant.value_or(Instant{});
}

ScanSchedule Schedule(const Rule& rule, const char* anchor) {
  ScanSchedule scan{ScanKey{1000, "Scan"}, {}, At(anchor)};
  PrepareNewScheduleScanEntry(&scan.record);
  int hour = 0, minute = 0, second = 0;
  std::sscanf(rule.start, "%d:%d:%d", &hour, &minute, &second);
  scan.record.byFrequency = rule.frequency, scan.record.bFirstBootScan = rule.firstBoot;
  scan.record.nHour = hour, scan.record.nMinute = minute, scan.record.nSecond = second;
  scan.record.nRecurEvery = rule.every, scan.record.byWeekDay = rule.weekDay;
  scan.record.bRepeatScan = rule.repeatMinutes != 0;
  scan.record.nRepeatInterval = rule.repeatMinutes;
  scan.record.byRepeatUnit = REPEAT_UNIT_MINUTES;
  return scan;
}

// clang-format off
const Case kCases[] = {
    {"on time, once", {}, "2026-05-04 09:00:00", "", false, "2026-05-04 09:59:58",
     {{"2026-05-04 09:59:59", 1, false, false}, {"2026-05-04 10:00:00", 2, false, true},
      {"2026-05-04 10:00:01", 3, false, false}, {"2026-05-05 10:00:00", 86402, false, true}}},
    {"a run missed while stopped comes once, after the start delay", {},
     "2026-05-01 09:00:00", "2026-05-02 10:00:00", false, "2026-05-04 12:00:00",
     {{"2026-05-04 12:00:01", 1, false, false}, {"2026-05-04 12:02:00", 120, false, true},
      {"2026-05-04 12:02:01", 121, false, false}}},
    {"the run of a scan that never ran is missed too", {}, "2026-05-03 09:00:00", "", false,
     "2026-05-04 12:00:00", {{"2026-05-04 12:02:00", 120, false, true}}},
    {"nothing missed since the last run", {}, "2026-05-01 09:00:00", "2026-05-04 10:00:00", false,
     "2026-05-04 12:00:00", {{"2026-05-04 12:02:00", 120, false, false}}},
    {"a jump over runs every minute gives one run, later", {FREQ_DAILY, "00:00:00", 1, 1},
     "2026-05-01 09:00:00", "2026-05-04 11:59:00", false, "2026-05-04 11:59:30",
     {{"2026-05-04 13:00:00", 1, true, false}, {"2026-05-04 13:01:00", 61, false, true},
      {"2026-05-04 13:02:00", 121, false, true}, {"2026-05-04 13:02:01", 122, false, false}}},
    {"a backward jump counts from the new time", {}, "2026-05-01 09:00:00", "2026-05-04 10:00:00",
     false, "2026-05-04 12:00:00",
     {{"2026-05-03 12:00:00", 1, true, false}, {"2026-05-04 10:00:00", 79201, false, true}}},
    {"first boot on a new boot", {FREQ_DAILY, "00:00:00", 1, 0, 0, 1}, "2026-05-01 09:00:00", "",
     true, "2026-05-04 12:00:00",
     {{"2026-05-04 12:01:59", 119, false, false}, {"2026-05-04 12:02:00", 120, false, true},
      {"2026-05-05 12:02:00", 86520, false, false}}},
    {"first boot, no new boot", {FREQ_DAILY, "00:00:00", 1, 0, 0, 1}, "2026-05-01 09:00:00", "",
     false, "2026-05-04 12:00:00", {{"2026-05-04 12:02:00", 120, false, false}}},
    {"weekly first boot on its weekday (Monday)", {FREQ_WEEKLY, "00:00:00", 1, 0, 2, 1},
     "2026-05-01 09:00:00", "", true, "2026-05-04 12:00:00", {{"2026-05-04 12:02:00", 120, false, true}}},
    {"weekly first boot on another day", {FREQ_WEEKLY, "00:00:00", 1, 0, 3, 1},
     "2026-05-01 09:00:00", "", true, "2026-05-04 12:00:00", {{"2026-05-04 12:02:00", 120, false, false}}},
};
// clang-format on

class SchedulerCase : public ::testing::TestWithParam<Case> {};

TEST_P(SchedulerCase, RunsWhenDue) {
  const Case& c = GetParam();
  std::map<ScanKey, LastRun> lastRuns;
  if (*c.lastRun != '\0') lastRuns[ScanKey{1000, "Scan"}] = LastRun{At(c.lastRun), "clean"};
  Scheduler scheduler(kDelay, lastRuns, c.newBoot);
  const Steady started{};
  scheduler.SetScans({Schedule(c.rule, c.anchor)}, At(c.start), started, Utc());
  for (const Look& look : c.looks) {
    const auto due = scheduler.Due(At(look.wall), started + seconds(look.steady), look.jumped, Utc());
    EXPECT_EQ(due.size(), look.due ? 1u : 0u) << c.what << " at " << look.wall;
  }
}

INSTANTIATE_TEST_SUITE_P(Table, SchedulerCase, ::testing::ValuesIn(kCases));

// A scan that is there from the start keeps its times through later reads
// of the store; one that appears later, or whose schedule changes, gets no
// first-boot run and counts from its anchor.
TEST(Scheduler, LaterReadsOfTheStore) {
  Scheduler scheduler(kDelay, {}, true);
  const Steady started{};
  const Rule boot{FREQ_DAILY, "00:00:00", 1, 0, 0, 1};
  const Rule daily{};
  scheduler.SetScans({Schedule(daily, "2026-05-04 09:00:00")}, At("2026-05-04 09:59:00"), started,
                     Utc());
  ScanSchedule added = Schedule(boot, "2026-05-04 09:59:30");
  added.key.name = "Added";
  // Due at 09:59:31, a second before the store was read: it runs at once.
  ScanSchedule late = Schedule(Rule{FREQ_DAILY, "09:59:31"}, "2026-05-04 09:59:30");
  late.key.name = "Late";
  scheduler.SetScans({Schedule(daily, "2026-05-04 09:00:00"), added, late},
                     At("2026-05-04 09:59:32"), started + seconds(32), Utc());
  EXPECT_EQ(scheduler.Due(At("2026-05-04 09:59:32"), started + seconds(32), false, Utc()).size(), 1u);
  EXPECT_EQ(scheduler.Due(At("2026-05-04 10:00:00"), started + seconds(60), false, Utc()).size(), 1u);
  EXPECT_TRUE(scheduler.Due(At("2026-05-04 10:02:30"), started + seconds(210), false, Utc()).empty());
  // Moved to 11:00: the next run is today at 11:00, none missed at 10:00.
  ScanSchedule moved = Schedule(Rule{FREQ_DAILY, "11:00:00"}, "2026-05-04 10:30:00");
  scheduler.SetScans({moved}, At("2026-05-04 10:30:00"), started + seconds(1860), Utc());
  const auto upcoming = scheduler.Upcoming(At("2026-05-04 10:30:00"), started + seconds(1860));
  ASSERT_EQ(upcoming.size(), 1u);
  EXPECT_EQ(FormatLocalMoment(upcoming.begin()->second, Utc()), "2026-05-04 11:00:00");
}

}  // namespace
}  // namespace service
