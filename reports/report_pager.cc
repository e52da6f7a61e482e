#include "reports/report_pager.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace {

constexpr const char* kPagerPrograms[] = {"/usr/bin/more", "/bin/more"};

const char* FindPager() {
  for (const char* program : kPagerPrograms) {
    if (access(program, X_OK) == 0) return program;
  }
  return nullptr;
}

// Sets the disposition of the terminal's two keys; keeps the old ones.
class KeyDispositions {
 public:
  explicit KeyDispositions(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    savedInterrupt_ = sigaction(SIGINT, &action, &interrupt_) == 0;
    savedQuit_ = sigaction(SIGQUIT, &action, &quit_) == 0;
  }
  KeyDispositions(const KeyDispositions&) = delete;
  KeyDispositions& operator=(const KeyDispositions&) = delete;
  ~KeyDispositions() {
    if (savedInterrupt_) sigaction(SIGINT, &interrupt_, nullptr);
    if (savedQuit_) sigaction(SIGQUIT, &quit_, nullptr);
  }

 private:
  struct sigaction interrupt_ {};
  struct sigaction quit_ {};
  bool savedInterrupt_ = false;
  bool savedQuit_ = false;
};

// In the child, between fork and exec: async-signal-safe calls only.
[[noreturn]] void ExecPager(const char* pager, const char* reportPath) {
  struct sigaction defaults {};
  defaults.sa_handler = SIG_DFL;
  sigemptyset(&defaults.sa_mask);
  sigaction(SIGINT, &defaults, nullptr);
  sigaction(SIGQUIT, &defaults, nullptr);
  char* const argv[] = {const_cast<char*>("more"), const_cast<char*>(reportPath), nullptr};
  execv(pager, argv);
  _exit(127);
}

}  // namespace

void ShowReportInPager(const char* reportPath) {
  const char* pager = FindPager();
  if (pager == nullptr) return;
  std::fflush(stdout);
  KeyDispositions ignored(SIG_IGN);
  const pid_t child = fork();
  if (child == 0) ExecPager(pager, reportPath);
  if (child < 0) return;
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
}
