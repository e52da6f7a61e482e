#include "testing/index_lock_holder.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "product_paths.h"
#include "reports/report_index.h"

namespace testing_support {

IndexLockHolder::IndexLockHolder() {
  int ready[2];
  int release[2];
  // Not inherited by programs started meanwhile, which would keep the lock held.
  if (pipe2(ready, O_CLOEXEC) != 0 || pipe2(release, O_CLOEXEC) != 0) std::abort();
  pid_ = fork();
  if (pid_ == 0) {
    close(release[1]);  // so that the parent's close ends the read below
    const int index = open(kReportIndexPath, O_RDWR | O_CREAT, 0666);
    char byte = LockReportIndex(index) == 0 ? 'l' : 'x';
    if (write(ready[1], &byte, 1) != 1 || read(release[0], &byte, 1) < 0) _exit(1);
    _exit(0);
  }
  close(release[0]);
  release_ = release[1];
  char byte = 0;
  if (pid_ < 0 || read(ready[0], &byte, 1) != 1 || byte != 'l') {
    std::fprintf(stderr, "the index lock could not be taken\n");
    std::abort();
  }
  close(ready[0]);
  close(ready[1]);
}

void IndexLockHolder::Release() {
  if (pid_ <= 0) return;
  close(release_);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

}  // namespace testing_support
