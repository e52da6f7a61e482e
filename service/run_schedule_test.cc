#include "service/run_schedule.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdio>
#include <string>

namespace service {
namespace {

constexpr const char* kBerlin = "Europe/Berlin";
enum { D = FREQ_DAILY, W = FREQ_WEEKLY, H = REPEAT_UNIT_HOURS, M = REPEAT_UNIT_MINUTES };

// A record's schedule; a repeat interval of 0 means the scan does not repeat.
struct Rule {
  int frequency;
  const char* start;  // "HH:MM:SS", unchecked so that bad values can be given
  int every, repeat = 0, unit = H, weekDay = 0, firstBoot = 0;
};

tagSCHEDULE_SCAN_ENTRY Record(const Rule& rule) {
  tagSCHEDULE_SCAN_ENTRY entry;
  PrepareNewScheduleScanEntry(&entry);
  int hour = 0, minute = 0, second = 0;
  std::sscanf(rule.start, "%d:%d:%d", &hour, &minute, &second);
  entry.byFrequency = rule.frequency, entry.bFirstBootScan = rule.firstBoot;
  entry.nHour = hour, entry.nMinute = minute, entry.nSecond = second;
  entry.nRecurEvery = rule.every, entry.byWeekDay = rule.weekDay;
  entry.bRepeatScan = rule.repeat != 0, entry.nRepeatInterval = rule.repeat;
  entry.byRepeatUnit = rule.unit;
  return entry;
}

// Local text in `zone`, or, ending in " UTC", UTC text (for the second pass of a repeated hour).
Instant At(std::string_view text, const date::time_zone& zone) {
  const bool utc = text.ends_with(" UTC");
  if (utc) text.remove_suffix(4);
  const auto instant = ParseLocalMoment(text, utc ? *date::locate_zone("UTC") : zone);
  EXPECT_TRUE(instant) << text;
  return instant.value_or(Instant{});
}

struct Case {
  const char* what;
  Rule rule;
  const char *anchor, *after, *zone, *expected;  // expected "" for no run
};

// clang-format off
const Case kCases[] = {
    {"start equal to the anchor's time is not after it", {D, "09:00:00", 1},
     "2026-05-04 09:00:00", "2026-05-04 09:00:00", kBerlin, "2026-05-05 09:00:00"},
    {"90 days, years later", {D, "06:00:00", 90},
     "2026-01-10 12:00:00", "2030-06-01 00:00:00", kBerlin, "2030-06-19 06:00:00"},
    {"90 days, `after` long before the anchor", {D, "06:00:00", 90},
     "2026-01-10 12:00:00", "2001-01-01 00:00:00", kBerlin, "2026-01-11 06:00:00"},
    {"15 weeks, anchor's weekday past the time", {W, "09:00:00", 15, 0, H, 2},
     "2026-05-04 10:00:00", "2026-05-04 10:00:00", kBerlin, "2026-05-11 09:00:00"},
    {"15 weeks, months later", {W, "09:00:00", 15, 0, H, 2},
     "2026-05-04 10:00:00", "2027-01-01 00:00:00", kBerlin, "2027-03-22 09:00:00"},
    {"Saturday, last second of the day", {W, "23:59:59", 1, 0, H, 7},
     "2026-05-09 23:59:58", "2026-05-09 23:59:58", kBerlin, "2026-05-09 23:59:59"},
    {"every 3 hours, last run before midnight", {D, "18:00:00", 1, 3, H},
     "2026-05-04 12:00:00", "2026-05-04 18:00:00", kBerlin, "2026-05-04 21:00:00"},
    {"every 3 hours, no run at midnight", {D, "18:00:00", 1, 3, H},
     "2026-05-04 12:00:00", "2026-05-04 21:00:00", kBerlin, "2026-05-05 18:00:00"},
    {"every 1439 minutes, then 2 days on", {D, "00:00:00", 2, 1439, M},
     "2026-05-03 23:00:00", "2026-05-04 23:59:00", kBerlin, "2026-05-06 00:00:00"},
    {"weekly repeats, past the last", {W, "22:00:00", 2, 25, M, 3},
     "2026-05-04 10:00:00", "2026-05-05 23:40:00", kBerlin, "2026-05-19 22:00:00"},
    {"Feb 28 to the leap day", {D, "09:00:00", 1},
     "2028-02-28 08:00:00", "2028-02-28 09:00:00", kBerlin, "2028-02-29 09:00:00"},
    {"every 2 days over the leap day", {D, "09:00:00", 2},
     "2028-02-27 10:00:00", "2028-02-28 09:00:00", "UTC", "2028-03-01 09:00:00"},
    {"Dec 31 to Jan 1", {D, "00:30:00", 1},
     "2026-12-30 12:00:00", "2026-12-31 23:00:00", kBerlin, "2027-01-01 00:30:00"},
    {"runs in the gap merge", {D, "02:00:00", 1, 30, M},
     "2026-03-28 12:00:00", "2026-03-29 01:59:59", kBerlin, "2026-03-29 03:00:00"},
    {"after the merged run", {D, "02:00:00", 1, 30, M},
     "2026-03-28 12:00:00", "2026-03-29 03:00:00", kBerlin, "2026-03-29 03:30:00"},
    {"start in the fold runs in its first pass", {D, "02:30:00", 1},
     "2026-10-24 12:00:00", "2026-10-25 00:00:00", kBerlin, "2026-10-25 00:30:00 UTC"},
    {"repeats in the first pass", {D, "02:00:00", 1, 15, M},
     "2026-10-24 12:00:00", "2026-10-25 00:20:00 UTC", kBerlin, "2026-10-25 00:30:00 UTC"},
    {"second pass skips to the fold's end", {D, "02:00:00", 1, 15, M},
     "2026-10-24 12:00:00", "2026-10-25 01:10:00 UTC", kBerlin, "2026-10-25 03:00:00"},
    {"anchor in the second pass", {D, "02:30:00", 1},
     "2026-10-25 01:10:00 UTC", "2026-10-25 01:10:00 UTC", kBerlin, "2026-10-26 02:30:00"},
    {"first boot", {D, "09:00:00", 1, 0, H, 0, 1},
     "2026-05-04 08:00:00", "2026-05-04 08:00:00", kBerlin, ""},
};
// clang-format on

// A run as UTC text, which tells the two passes of a repeated hour apart.
std::string Utc(std::optional<Instant> run) {
  return run ? FormatLocalMoment(*run, *date::locate_zone("UTC")) + " UTC" : "none";
}

TEST(RunSchedule, NextRunAfter) {
  for (const Case& c : kCases) {
    const date::time_zone& zone = *date::locate_zone(c.zone);
    const auto run = NextRunAfter(Record(c.rule), At(c.anchor, zone), At(c.after, zone), zone);
    EXPECT_EQ(Utc(run), *c.expected ? Utc(At(c.expected, zone)) : "none") << c.what;
  }
}

TEST(RunSchedule, NoRunsForValuesOutOfRange) {
  const date::time_zone& zone = *date::locate_zone(kBerlin);
  const Instant anchor = At("2026-05-04 08:00:00", zone);
  int row = 0;
  for (const Rule& rule :
       {Rule{D, "09:00:00", 0}, Rule{D, "09:00:00", 91}, Rule{W, "09:00:00", 16, 0, H, 1},
        Rule{W, "09:00:00", 1, 0, H, 0}, Rule{W, "09:00:00", 1, 0, H, 8}, Rule{D, "24:00:00", 1},
        Rule{D, "09:60:00", 1}, Rule{D, "09:00:-1", 1}, Rule{D, "09:00:60", 1},
        Rule{D, "09:00:00", 1, 24, H}, Rule{D, "09:00:00", 1, 1440, M},
        Rule{D, "09:00:00", 1, 5, 2}, Rule{2, "09:00:00", 1}}) {
    EXPECT_FALSE(NextRunAfter(Record(rule), anchor, anchor, zone)) << "rule " << row;
    ++row;
  }
  // The ends of the instant range: no overflow; the first run, or none.
  const auto daily = Record({D, "09:00:00", 1});
  EXPECT_EQ(Utc(NextRunAfter(daily, anchor, Instant::min(), zone)), "2026-05-04 07:00:00 UTC");
  EXPECT_FALSE(NextRunAfter(daily, anchor, Instant::max(), zone));
  EXPECT_FALSE(NextRunAfter(daily, Instant::min(), anchor, zone));
}

TEST(RunSchedule, LocalMomentText) {
  const date::time_zone& zone = *date::locate_zone(kBerlin);
  for (const char* bad : {"", "2026-02-29 10:00:00", "2026-13-01 10:00:00", "2026-00-10 10:00:00",
                          "2026-01-01 24:00:00", "2026-01-01 10:60:00", "2026-01-01 10:00:60",
                          "2026-1-01 10:00:00", "2026-01-01T10:00:00", "2026-01-01 10:00:00 ",
                          "2026-01-01 10:00", "+026-01-01 10:00:00", "2026-01-01 10:0a:00"})
    EXPECT_FALSE(ParseLocalMoment(bad, zone)) << '"' << bad << '"';
  const auto leap = ParseLocalMoment("2028-02-29 23:59:59", zone);
  ASSERT_TRUE(leap);
  EXPECT_EQ(FormatLocalMoment(*leap, zone), "2028-02-29 23:59:59");
  EXPECT_EQ(LocalWeekDay(*leap, zone), 3);  // a Tuesday
  EXPECT_EQ(LocalWeekDay(*leap, *date::locate_zone("Asia/Tokyo")), 4);
  EXPECT_EQ(FormatLocalMoment(At("2026-03-29 02:30:00", zone), zone), "2026-03-29 03:00:00");
}

TEST(RunSchedule, SystemZoneFollowsTz) {
  const std::string system = date::current_zone()->name();
  using Row = std::pair<const char*, std::string>;
  for (const auto& [tz, zone] : {Row{"Europe/Berlin", kBerlin}, Row{":Asia/Tokyo", "Asia/Tokyo"},
                                 Row{"CET-1CEST", system}, Row{"", system}, Row{nullptr, system}}) {
    tz ? setenv("TZ", tz, 1) : unsetenv("TZ");
    EXPECT_EQ(SystemZone().name(), zone) << (tz ? tz : "unset");
  }
  unsetenv("TZ");
}

}  // namespace
}  // namespace service
