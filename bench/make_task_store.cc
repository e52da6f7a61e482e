// Builds a task list for the benchmarks:
//   make_task_store FILE SCANS DIRECTORIES_PER_SCAN
#include <cstdio>
#include <cstdlib>

#include "bench/task_store_fixture.h"

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s FILE SCANS DIRECTORIES_PER_SCAN\n", argv[0]);
    return 2;
  }
  const int scans = std::atoi(argv[2]);
  const int directories = std::atoi(argv[3]);
  if (scans < 0 || directories < 1 || directories > static_cast<int>(MAX_SCAN_ITEMS)) {
    std::fprintf(stderr, "%s: SCANS must be >= 0 and DIRECTORIES_PER_SCAN 1 to 100\n", argv[0]);
    return 2;
  }
  return bench::FillTaskStore(argv[1], scans, directories) ? 0 : 1;
}
