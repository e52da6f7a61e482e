// Lists a whole task list once, as the super-user's view does, and prints how
// many scans and directories it holds:
//   list_task_store FILE
#include <cstdio>

#include "taskstore/result_codes.h"
#include "taskstore/task_store.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s FILE\n", argv[0]);
    return 2;
  }
  ScheduleScanList list;
  std::uint32_t code = SCHSCAN_OK;
  if (!ReadScheduleScanTaskList(argv[1], list, 0, &code)) {
    std::fprintf(stderr, "%s: listing failed with %u\n", argv[1], code);
    return 1;
  }
  std::size_t directories = 0;
  for (const auto& entry : list) directories += entry.vecScanItems.size();
  std::printf("%zu scans, %zu directories\n", list.size(), directories);
  return 0;
}
