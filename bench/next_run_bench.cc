// The next run of each of 10,000 scans of every timed kind: daily and weekly,
// every 1 to 90 days or 1 to 15 weeks, with and without repeats, set at
// moments spread over six years and asked about from one moment in Berlin,
// inside the gap of a spring clock change. The store read is left out: the
// scans are made in memory.
//
//   BM_NextRunOfTenThousandScans  the rule alone (NextRunAfter), once a scan
//   BM_SchedulerTakesTenThousandScans
//                                 what the service does with a store it has
//                                 just read: a new scheduler takes the scans,
//                                 checks each for a missed run and works out
//                                 its next one
#include <benchmark/benchmark.h>

#include <chrono>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "service/run_schedule.h"
#include "service/scheduler.h"

namespace {

constexpr int kScans = 10000;

const date::time_zone& Berlin() { return *date::locate_zone("Europe/Berlin"); }

service::Instant Moment(const char* text) { return *service::ParseLocalMoment(text, Berlin()); }

std::vector<service::ScanSchedule> MakeScans() {
  const service::Instant first = Moment("2020-01-01 00:00:00");
  std::vector<service::ScanSchedule> scans(kScans);
  unsigned seed = 12345;
  const auto next = [&seed](unsigned bound) {
    seed = seed * 1103515245u + 12345u;
    return static_cast<int>((seed >> 8) % bound);
  };
  int number = 0;
  for (service::ScanSchedule& scan : scans) {
    scan.key = {static_cast<std::uint32_t>(number % 4) * 1000, "Scan" + std::to_string(number)};
    ++number;
    tagSCHEDULE_SCAN_ENTRY& entry = scan.record;
    PrepareNewScheduleScanEntry(&entry);
    const bool weekly = next(2) == 1;
    entry.byFrequency = weekly ? FREQ_WEEKLY : FREQ_DAILY;
    entry.nHour = static_cast<std::int16_t>(next(24));
    entry.nMinute = static_cast<std::int16_t>(next(60));
    entry.nSecond = static_cast<std::int16_t>(next(60));
    entry.nRecurEvery = static_cast<std::int16_t>(1 + next(weekly ? 15 : 90));
    entry.byWeekDay = static_cast<std::uint8_t>(1 + next(7));
    entry.bRepeatScan = next(2) == 1;
    entry.byRepeatUnit = next(2) == 1 ? REPEAT_UNIT_MINUTES : REPEAT_UNIT_HOURS;
    entry.nRepeatInterval =
        static_cast<std::int16_t>(1 + next(entry.byRepeatUnit == REPEAT_UNIT_MINUTES ? 1439 : 23));
    scan.anchor = first + std::chrono::seconds{next(6 * 365) * 86400LL + next(86400)};
  }
  return scans;
}

// The scans, and the moment asked about, made once for both benchmarks.
struct Data {
  std::vector<service::ScanSchedule> scans = MakeScans();
  service::Instant now = Moment("2026-03-29 02:30:00");
};

const Data& TheData() {
  static const Data data;
  return data;
}

void BM_NextRunOfTenThousandScans(benchmark::State& state) {
  const date::time_zone& zone = Berlin();
  const Data& data = TheData();
  // Every scan has a next run: a value out of range would time the early
  // refusal instead of the rule.
  for (const service::ScanSchedule& scan : data.scans) {
    if (!service::NextRunAfter(scan.record, scan.anchor, data.now, zone)) {
      state.SkipWithError("a scan without a next run");
      return;
    }
  }
  for (auto _ : state) {
    for (const service::ScanSchedule& scan : data.scans)
      benchmark::DoNotOptimize(service::NextRunAfter(scan.record, scan.anchor, data.now, zone));
  }
  state.SetItemsProcessed(state.iterations() * kScans);
}
BENCHMARK(BM_NextRunOfTenThousandScans)->Unit(benchmark::kMillisecond);

void BM_SchedulerTakesTenThousandScans(benchmark::State& state) {
  const date::time_zone& zone = Berlin();
  const Data& data = TheData();
  const service::Steady steadyNow = std::chrono::steady_clock::now();
  for (auto _ : state) {
    state.PauseTiming();
    std::vector<service::ScanSchedule> scans = data.scans;
    service::Scheduler scheduler(std::chrono::seconds{120}, {}, false);
    state.ResumeTiming();
    scheduler.SetScans(std::move(scans), data.now, steadyNow, zone);
    benchmark::DoNotOptimize(scheduler.NextWake(data.now, steadyNow));
    state.PauseTiming();
    {
      const service::Scheduler gone = std::move(scheduler);  // its map's release is not timed
    }
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kScans);
}
BENCHMARK(BM_SchedulerTakesTenThousandScans)->Unit(benchmark::kMillisecond);

}  // namespace
