// The task store on a task list of 10,000 scans with 3 directories each:
// listing all of it (the super-user's view) and adding one more scan.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include "bench/task_store_fixture.h"

namespace {

constexpr int kScans = 10000;
constexpr int kDirectoriesPerScan = 3;

// Built once for all benchmarks, removed at exit.
class BenchStore {
 public:
  BenchStore() {
    char directory[] = "/tmp/task-store-bench-XXXXXX";
    if (mkdtemp(directory) == nullptr) return;
    directory_ = directory;
    path_ = directory_ + "/tsklst.inf";
    ready_ = bench::FillTaskStore(path_, kScans, kDirectoriesPerScan);
  }
  ~BenchStore() {
    std::error_code ignored;
    if (!directory_.empty()) std::filesystem::remove_all(directory_, ignored);
  }
  const char* path() const { return path_.c_str(); }
  bool ready() const { return ready_; }

 private:
  std::string directory_;
  std::string path_;
  bool ready_ = false;
};

BenchStore& Store() {
  static BenchStore store;
  return store;
}

void BM_ListTenThousandScans(benchmark::State& state) {
  if (!Store().ready()) return state.SkipWithError("the store could not be built");
  for (auto _ : state) {
    ScheduleScanList list;
    std::uint32_t code = SCHSCAN_OK;
    if (!ReadScheduleScanTaskList(Store().path(), list, 0, &code) ||
        list.size() < static_cast<std::size_t>(kScans))
      return state.SkipWithError("listing failed");
    benchmark::DoNotOptimize(list.data());
  }
  state.SetItemsProcessed(state.iterations() * kScans);
}
BENCHMARK(BM_ListTenThousandScans)->Unit(benchmark::kMillisecond);

void BM_AddOneScan(benchmark::State& state) {
  if (!Store().ready()) return state.SkipWithError("the store could not be built");
  static int added = 0;
  for (auto _ : state) {
    state.PauseTiming();
    tagSCHEDULE_SCAN_ENTRY entry = bench::MakeBenchScan("Added" + std::to_string(added), added,
                                                        kDirectoriesPerScan);
    ++added;
    state.ResumeTiming();
    std::uint32_t code = SCHSCAN_OK;
    if (!AddScheduleScanTask(Store().path(), &entry, &code)) return state.SkipWithError("add failed");
  }
}
BENCHMARK(BM_AddOneScan)->Unit(benchmark::kMillisecond);

}  // namespace
