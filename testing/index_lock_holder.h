// Another process that holds the report index's whole-file lock, as a user
// does who stops her own delete-reports while it rewrites the index.
#pragma once

#include <sys/types.h>

namespace testing_support {

class IndexLockHolder {
 public:
  // Returns once the other process holds the lock.
  IndexLockHolder();
  IndexLockHolder(const IndexLockHolder&) = delete;
  IndexLockHolder& operator=(const IndexLockHolder&) = delete;
  ~IndexLockHolder() { Release(); }
  void Release();

 private:
  int release_ = -1;
  pid_t pid_ = -1;
};

}  // namespace testing_support
