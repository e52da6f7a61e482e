// The start-up baseline: a program that prints a few lines and ends, linked
// the way the tool is (the C++ runtime, the task store library and the same
// run-time search path), so that the comparison shows what the tool itself
// adds: the locale, the catalogue and its own work.
#include <cstdio>

#include "taskstore/task_store.h"

int main() {
  // Refer to the library so that the linker keeps it, as the tool's does.
  volatile auto keep = &ValidateTaskName;
  (void)keep;
  std::printf("\nminimal program\nbanner\nfooter\n\n");
  return 0;
}
