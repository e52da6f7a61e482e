#include "service/run_schedule.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>

namespace service {
namespace {

using std::chrono::seconds;
using LocalSeconds = date::local_seconds;
using LocalDays = date::local_days;

constexpr seconds kDay{86400};

// The instants worked with: those whose local dates the text form can hold.
constexpr Instant kEarliest{date::sys_days{date::year{0} / 1 / 1}};
constexpr Instant kLatest{date::sys_days{date::year{9999} / 12 / 31}};

// The timing of a record, checked and in the units the arithmetic uses.
struct Timing {
  seconds start;  // local time of day of the first run of a scan day
  seconds step;   // wall-clock time between the runs of a day; a whole day
                  // when the scan does not repeat, so that it has one run
  int period;     // days from one scan day to the next
  int weekDay;    // 0 = Sunday ... 6 = Saturday for a weekly scan, else -1
};

// The record's timing, or nullopt when it has no timed runs: a first-boot
// scan, or a value out of its range. Packed fields are read by value.
std::optional<Timing> ReadTiming(const tagSCHEDULE_SCAN_ENTRY& scan) {
  const int frequency = scan.byFrequency;
  const int firstBoot = scan.bFirstBootScan;
  const int hour = scan.nHour, minute = scan.nMinute, second = scan.nSecond;
  const int every = scan.nRecurEvery;
  const int repeat = scan.bRepeatScan;
  if (firstBoot != 0 || (frequency != FREQ_DAILY && frequency != FREQ_WEEKLY)) return {};
  if (hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59) return {};
  if (repeat != 0 && repeat != 1) return {};

  Timing timing{seconds{hour * 3600 + minute * 60 + second}, kDay, every, -1};
  if (frequency == FREQ_DAILY) {
    if (every < 1 || every > 90) return {};
  } else {
    const int weekDay = scan.byWeekDay;
    if (every < 1 || every > 15 || weekDay < 1 || weekDay > 7) return {};
    timing.period = 7 * every;
    timing.weekDay = weekDay - 1;
  }
  if (repeat == 1) {
    const int interval = scan.nRepeatInterval;
    const int unit = scan.byRepeatUnit;
    if (unit == REPEAT_UNIT_HOURS && interval >= 1 && interval <= 23)
      timing.step = seconds{interval * 3600};
    else if (unit == REPEAT_UNIT_MINUTES && interval >= 1 && interval <= 1439)
      timing.step = seconds{interval * 60};
    else
      return {};
  }
  return timing;
}

// The earliest local time that ToInstant places strictly after `instant`.
// Mostly the next second of its own local time; but in the second pass of an
// hour that the clocks repeat, the times still to come in that hour stand for
// their first pass, which is over, so the next one is where the hour ends.
LocalSeconds FirstLocalAfter(Instant instant, const date::time_zone& zone) {
  const LocalSeconds local = zone.to_local(instant);
  const date::local_info info = zone.get_info(local);
  if (info.result == date::local_info::ambiguous && instant >= info.second.begin)
    return LocalSeconds{(info.second.begin + info.first.offset).time_since_epoch()};
  return local + seconds{1};
}

// The first day at or after the day of `from` whose start time is not before it.
LocalDays FirstDayStartingFrom(LocalSeconds from, seconds start) {
  const LocalDays day = date::floor<date::days>(from);
  return day + start < from ? day + date::days{1} : day;
}

}  // namespace

Instant ToInstant(date::local_seconds local, const date::time_zone& zone) {
  const date::local_info info = zone.get_info(local);
  if (info.result == date::local_info::nonexistent) return info.second.begin;
  // Unique, or the earlier of two: the offset in force before the change.
  return Instant{local.time_since_epoch() - info.first.offset};
}

std::optional<Instant> NextRunAfter(const tagSCHEDULE_SCAN_ENTRY& scan, Instant anchor,
                                    Instant after, const date::time_zone& zone) {
  const std::optional<Timing> timing = ReadTiming(scan);
  if (!timing || anchor < kEarliest || anchor > kLatest || after > kLatest) return {};
  const seconds start = timing->start;
  const seconds step = timing->step;
  const date::days period{timing->period};

  // The first scan day: the first day, of the weekday for a weekly scan, whose
  // start time lies after the anchor.
  LocalDays first = FirstDayStartingFrom(FirstLocalAfter(anchor, zone), start);
  if (timing->weekDay >= 0) {
    const int weekDay = static_cast<int>(date::weekday{first}.c_encoding());
    first += date::days{(timing->weekDay - weekDay + 7) % 7};
  }

  // Every run is after the anchor, so a moment before it asks for the first
  // (and instants before the years handled are never looked up).
  // Runs at local times before `from` are not after `after`; those from it are.
  const LocalSeconds from = FirstLocalAfter(std::max(after, anchor), zone);
  const LocalDays fromDay = date::floor<date::days>(from);
  LocalDays day = first;
  if (fromDay > first) {
    const long long behind = (fromDay - first).count();
    day += period * ((behind + period.count() - 1) / period.count());
  }
  seconds time = start;
  if (day + start < from) {  // only on the day of `from`: the runs left on it
    const long long late = (from - (day + start)).count();
    time += step * ((late + step.count() - 1) / step.count());
    if (time >= kDay) {
      day += period;
      time = start;
    }
  }
  const Instant run = ToInstant(day + time, zone);
  if (run > kLatest) return {};
  return run;
}

std::optional<Instant> ParseLocalMoment(std::string_view text, const date::time_zone& zone) {
  constexpr std::string_view kShape = "0000-00-00 00:00:00";
  if (text.size() != kShape.size()) return {};
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool digit = text[i] >= '0' && text[i] <= '9';
    if (kShape[i] == '0' ? !digit : text[i] != kShape[i]) return {};
  }
  const auto number = [text](std::size_t at, std::size_t width) {
    int value = 0;
    for (std::size_t i = at; i < at + width; ++i) value = value * 10 + (text[i] - '0');
    return value;
  };
  const date::year_month_day date{date::year{number(0, 4)},
                                  date::month{static_cast<unsigned>(number(5, 2))},
                                  date::day{static_cast<unsigned>(number(8, 2))}};
  const int hour = number(11, 2), minute = number(14, 2), second = number(17, 2);
  if (!date.ok() || hour > 23 || minute > 59 || second > 59) return {};
  return ToInstant(LocalDays{date} + seconds{hour * 3600 + minute * 60 + second}, zone);
}

std::string FormatLocalMoment(Instant instant, const date::time_zone& zone) {
  const LocalSeconds local = zone.to_local(instant);
  const LocalDays day = date::floor<date::days>(local);
  const date::year_month_day date{day};
  const date::hh_mm_ss<seconds> time{local - day};
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02u-%02u %02d:%02d:%02d", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                static_cast<int>(time.seconds().count()));
  return text;
}

int LocalWeekDay(Instant instant, const date::time_zone& zone) {
  const LocalDays day = date::floor<date::days>(zone.to_local(instant));
  return static_cast<int>(date::weekday{day}.c_encoding()) + 1;
}

const date::time_zone& SystemZone() {
  if (const char* variable = std::getenv("TZ"); variable != nullptr) {
    std::string_view name = variable;
    if (!name.empty() && name.front() == ':') name.remove_prefix(1);
    // Anything else TZ may hold (a rule such as "CET-1CEST", a file path) is
    // not a zone name; the system's own zone stands then.
    try {
      if (!name.empty()) return *date::locate_zone(name);
    } catch (const std::exception&) {
    }
  }
  try {
    return *date::current_zone();
  } catch (const std::exception&) {
    return *date::locate_zone("UTC");
  }
}

}  // namespace service
