// When a scheduled scan runs: the timed runs of a record, worked out from the
// moment its schedule was set, in the local time of a zone.
//
// A daily scan runs every n days, a weekly one every n weeks on its weekday,
// counted from the first such day whose start time lies after that moment.
// With repeat on, a scan day also has runs every r hours or minutes of wall
// clock after the start time, up to midnight. Local times that a clock change
// skips mean the instant of the change; local times that occur twice mean the
// earlier one; runs that come out on the same instant are one run.
#pragma once

#include <date/tz.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "taskstore/schedule_scan_entry.h"

namespace service {

using Instant = std::chrono::sys_seconds;

// The first run of `scan` strictly after `after`, for a schedule set at
// `anchor`; nullopt for a first-boot scan, for schedule values out of their
// ranges, and for anchors or runs outside the years 0000-9999.
std::optional<Instant> NextRunAfter(const tagSCHEDULE_SCAN_ENTRY& scan, Instant anchor,
                                    Instant after, const date::time_zone& zone);

// A local wall-clock time as an instant: a skipped time is the instant of the
// change, a time that occurs twice the earlier of the two. For local times
// within the years 0000-9999.
Instant ToInstant(date::local_seconds local, const date::time_zone& zone);

// "YYYY-MM-DD HH:MM:SS" in local time, read as ToInstant does; nullopt unless
// the text is exactly that shape with a real date and time of day.
std::optional<Instant> ParseLocalMoment(std::string_view text, const date::time_zone& zone);

// The instant as local "YYYY-MM-DD HH:MM:SS".
std::string FormatLocalMoment(Instant instant, const date::time_zone& zone);

// The local weekday of the instant, 1 = Sunday ... 7 = Saturday as in byWeekDay.
int LocalWeekDay(Instant instant, const date::time_zone& zone);

// The zone that TZ names ("Europe/Berlin" or ":Europe/Berlin"), else that of
// /etc/localtime, else UTC. Looked up on every call so a change is seen.
const date::time_zone& SystemZone();

}  // namespace service
