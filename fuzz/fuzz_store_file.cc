// The task store opening a file of arbitrary bytes as its task list: every
// store call on it (listing, details, name checks, add, modify, delete) only
// succeeds or fails. The seeds are real task lists, so mutations reach the
// database's pages and schema as well as its header.
#include <cstdint>

#include "fuzz/fuzz_support.h"
#include "fuzz/store_exercise.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::SetUpSeededProduct();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::RemoveTaskList();
  fuzz::WriteFileOrDie(kTaskListPath, data, size);
  fuzz::ExerciseStore();
  return 0;
}
